# Completion of urlstat for bash.

_urlstat() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local commands="periods top host compare backlog verify diff export status report"
    local common="--root --config --account --all-accounts --format --verbose --help"
    local period="--day --week --month --from --to"
    local command="" word words=""
    COMPREPLY=()

    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        if [[ " $commands " == *" $word "* ]]; then
            command=$word
            break
        fi
    done

    case $previous in
    --format)
        words="table csv json ndjson"
        [[ $command != backlog && -n $command ]] || words+=" prometheus"
        ;;
    --by) words="day week month" ;;
    --kind) words="rose fell new gone" ;;
    --root | --index)
        mapfile -t COMPREPLY < <(compgen -d -- "$current")
        return
        ;;
    --config | -o)
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        return
        ;;
    --account | --day | --week | --month | --from | --to | --type | --suffix | --min-visits | -n)
        return
        ;;
    esac

    if [[ -z $words ]]; then
        case $command in
        "") words="$commands $common --version" ;;
        top) words="$common $period --type -n" ;;
        host) words="$common --suffix --by --from --to" ;;
        compare) words="$common -n --min-visits --kind" ;;
        backlog) words="$common --all" ;;
        diff) words="$common -n" ;;
        export) words="$common $period --blocks" ;;
        report) words="$common --month -o --index" ;;
        *) words=$common ;;
        esac
        # What is no option is a file, where the command takes one.
        if [[ $current != -* ]]; then
            case $command in
            top | verify | diff | export | status)
                mapfile -t COMPREPLY < <(compgen -f -- "$current")
                return
                ;;
            esac
        fi
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}

complete -o filenames -F _urlstat urlstat
