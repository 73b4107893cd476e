# Completion of nq360 for bash.
_nq360() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} words
    COMPREPLY=()
    if ((COMP_CWORD == 1)); then
        mapfile -t COMPREPLY < <(compgen -W "analyze export batch join match audio space view -h --help --version" -- "$current")
        return
    fi
    case $previous in
        --sound)
            mapfile -t COMPREPLY < <(compgen -W "1 2 none" -- "$current")
            return
            ;;
        --thumbnails | --to | --status)
            compopt -o filenames 2>/dev/null
            mapfile -t COMPREPLY < <(compgen -d -- "$current")
            return
            ;;
    esac
    # Everything else is a file: without words of ours the shell completes names.
    [[ $current == -* ]] || return
    case ${COMP_WORDS[1]} in
        analyze) words="-r --recursive --json --thumbnails --width --jobs -q --quiet -v --verbose" ;;
        export)
            words="--size --tilt --yaw --pitch --roll --turn1 --turn2 --correct1 --correct2 --gain1 --gain2 --feather
                --band --quality --bit-rate --sound --aac --web --jobs --start --start2 --end --end2 --date --partial --exact
                --match --part --preview --dry-run --json -f --force -q --quiet -v --verbose"
            ;;
        batch)
            words="--to -r --recursive --pairs --size --tilt --yaw --pitch --roll --turn1 --turn2 --correct1 --correct2
                --gain1 --gain2 --feather --band --quality --bit-rate --sound --aac --web --jobs --start --start2 --end
                --end2 --date --partial --exact --match --dry-run --json -f --force --slurm --split --status --task -q --quiet -v --verbose"
            ;;
        join) words="--json -f --force -q --quiet -v --verbose" ;;
        match) words="--turn1 --turn2 --start --start2 --end --end2 --json -q --quiet -v --verbose" ;;
        audio) words="--aac -f --force -q --quiet -v --verbose" ;;
        space) words="--bytes --json" ;;
        view) words="--to --port --no-browser --read-only --json -q --quiet -v --verbose" ;;
        *) words= ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words -h --help" -- "$current")
}
complete -o default -F _nq360 nq360
