# Completion of velmora's commands and options for bash. `cmake --install` puts it where bash-completion
# finds it; without that package, source this file.

# Fills `kinds` with the words that may follow: what kind of value each takes, nothing for one without.
# The program prints them, so that there is no second list to maintain. "-" stands for arguments that are files.
_velmora_load_words()
{
    local word kind
    kinds=()
    while read -r word kind; do
        kinds[$word]=$kind
    done < <("$program" words "$@" 2>/dev/null)
}

_velmora()
{
    local program=${1/#\~\//$HOME/} current=${COMP_WORDS[COMP_CWORD]} before=$1 command= kind word i
    local -A kinds
    COMPREPLY=()
    _velmora_load_words
    # Bash splits "--portal=test" into three words.
    for ((i = 1; i < COMP_CWORD; ++i)); do
        word=${COMP_WORDS[i]}
        [[ $word == = ]] && continue
        if [[ -z $command && $word != -* && ${kinds[$word]+known} && -z ${kinds[$before]-} ]]; then
            command=$word
            _velmora_load_words "$command"
        fi
        before=$word
    done
    [[ $current == = ]] && current=
    kind=${kinds[$before]-}
    [[ -z $kind && -n $command && $current != -* ]] && kind=${kinds[-]-none}
    case $kind in
        FILE) compopt -o default ;;
        DIR) compopt -o dirnames ;;
        *\|*) mapfile -t COMPREPLY < <(compgen -W "${kind//|/ }" -- "$current") ;;
        '')
            for word in "${!kinds[@]}"; do
                [[ $word == "$current"* && ($current == -* || $word != -*) ]] && COMPREPLY+=("$word")
            done
            ;;
    esac
}

complete -F _velmora velmora
