# Completion of velmora's commands, options, jobs and files for fish.

function __velmora_words
    set -l before (commandline -opc)
    for line in ($before[1] words -- $before[2..-1] (commandline -ct) 2>/dev/null)
        switch $line
            case :files
                __fish_complete_path (commandline -ct)
            case :folders
                __fish_complete_directories (commandline -ct)
            case '*'
                echo $line
        end
    end
end

complete -c velmora -f -a '(__velmora_words)'
