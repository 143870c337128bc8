# Completion of scansteps in fish. The program itself says what fits (scansteps __complete).

function __scansteps_complete
    set -l words (commandline -opc)
    set -l current (commandline -ct)
    set -l program $words[1]
    set -e words[1]
    # A pipeline is a word in quotes that are still open.
    set -l begun (string replace -r '^["\']' '' -- $current)
    for line in ($program __complete $words "$begun" 2>/dev/null)
        switch $line
            case ':files'
                __fish_complete_path $begun
            case ':folders'
                __fish_complete_directories $begun ''
            case '*'
                echo $line
        end
    end
end

complete -c scansteps -f -a '(__scansteps_complete)'
