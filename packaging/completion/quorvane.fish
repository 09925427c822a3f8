# Completion of quorvane's commands, options and folders in fish: the program itself knows what comes next.
function __quorvane_complete
    set -l words (commandline -opc)
    set -l current (commandline -ct)
    set -e words[1]
    for line in (quorvane _complete -- $words "$current" 2>/dev/null)
        switch $line
            case '<files>'
                __fish_complete_path $current
            case '<directories>'
                __fish_complete_directories $current
            case '*'
                echo $line
        end
    end
end
complete -c quorvane -f -a '(__quorvane_complete)'
