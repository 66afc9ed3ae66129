# Completion of urlbuild for bash.

_urlbuild() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local commands="plan all check day week month"
    local common="--root --verbose --help"
    local command="" word words=""
    COMPREPLY=()

    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        if [[ " $commands " == *" $word "* ]]; then
            command=$word
            break
        fi
    done

    case $previous in
    --root)
        mapfile -t COMPREPLY < <(compgen -d -- "$current")
        return
        ;;
    --expect | -j) return ;;
    esac

    case $command in
    "") words="$commands $common --version" ;;
    plan) words="$common --json" ;;
    all) words="$common -j" ;;
    *) words="$common --expect" ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}

complete -o filenames -F _urlbuild urlbuild
