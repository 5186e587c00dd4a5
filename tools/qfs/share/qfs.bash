# bash completion for qfs: its options, locales after --locale, files after -f and --library.
_qfs() {
    local cur prev
    cur=${COMP_WORDS[COMP_CWORD]}
    prev=${COMP_WORDS[COMP_CWORD-1]}
    case $prev in
        -f) mapfile -t COMPREPLY < <(compgen -f -X '!*.qfs' -- "$cur"; compgen -d -- "$cur"); return ;;
        --library) mapfile -t COMPREPLY < <(compgen -f -- "$cur"); return ;;
        --locale) mapfile -t COMPREPLY < <(compgen -W "$(locale -a 2>/dev/null)" -- "$cur"); return ;;
    esac
    if [[ $cur == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W '--json --json=typed --json=plain --quiet --locale
            --debug --library -f --help --version' -- "$cur")
    fi
}
complete -o default -F _qfs qfs
