# Completion of velmora's commands, options, jobs and files for bash. `cmake --install` puts it where
# bash-completion finds it; without that package, source this file.

_velmora()
{
    local program=${1/#\~\//$HOME/} line
    COMPREPLY=()
    while read -r line; do
        case $line in
            :files) compopt -o default ;;
            :folders) compopt -o dirnames ;;
            *) COMPREPLY+=("$(printf %q "${line%%$'\t'*}")") ;;
        esac
    done < <("$program" words -- "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)
    # The shell takes what stands behind a colon for a word of its own.
    [[ ${COMP_WORDS[COMP_CWORD]} != *:* ]] || COMPREPLY=("${COMPREPLY[@]#"${COMP_WORDS[COMP_CWORD]%:*}:"}")
}

complete -F _velmora velmora
