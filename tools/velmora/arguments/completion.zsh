#compdef velmora
# Completion of velmora's commands, options, jobs and files for zsh.

local line
local -a candidates
for line in ${(f)"$(${words[1]/#\~\//$HOME/} words -- "${(@)words[2,CURRENT]}" 2>/dev/null)"}; do
    case $line in
        :files) _files ;;
        :folders) _files -/ ;;
        *) candidates+=("${${line%%$'\t'*}//:/\\:}:${${(M)line%$'\t'*}#$'\t'}") ;;
    esac
done
_describe velmora candidates
