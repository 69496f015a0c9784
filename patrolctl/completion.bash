# Completion of patrolctl for bash.

_patrolctl() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    local commands="status next history faults check metrics doctor run validate report"
    local options="--data --log --bin --temp --no-color --help" command="" words="" i
    COMPREPLY=()
    case $before in
    --data | --log | --bin | --temp)
        mapfile -t COMPREPLY < <(compgen -d -- "$word")
        return
        ;;
    --controller | -o | --output)
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
        return
        ;;
    --kinds) words="cpu mem hdd cpu,mem,hdd" ;;
    --component) words="CPU Memory HDD cputest memtest hddtest" ;;
    --since) words="1h 1d 1w" ;;
    --max-age) words="1d 2d 1w" ;;
    --time) words="0 60 600 3600" ;;
    clear)
        # Names of files, of which compgen would expand those that look like commands.
        words=$(patrolctl faults --json 2>/dev/null |
            sed -n 's/^    "id": "\([A-Za-z0-9._-]*\)",$/\1/p')
        ;;
    esac
    if [ -z "$words" ]; then
        for ((i = 1; i < COMP_CWORD; i++)); do
            case " $commands " in
            *" ${COMP_WORDS[i]} "*) command=${COMP_WORDS[i]} && break ;;
            esac
        done
        case $command in
        "") words="$commands $options --version" ;;
        status | next | doctor) words="$options --json" ;;
        history) words="$options --json --since --component --failed" ;;
        faults) words="$options --json clear" ;;
        check) words="$options --json --max-age --npd" ;;
        metrics) words=$options ;;
        run) words="$options --kinds --time --controller 1 2 3" ;;
        validate)
            words="$options --"
            mapfile -t COMPREPLY < <(compgen -f -- "$word")
            ;;
        report) words="$options --output" ;;
        esac
    fi
    mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -W "$words" -- "$word")
}
complete -o filenames -F _patrolctl patrolctl
