# shellcheck shell=sh
# For every script: the comment at its head is its use. `--help` prints it, and so does a wrong argument.
use=$(sed -n '1d; /^#/!q; s/^# \{0,1\}//p' "$0")

wrong_use() {
    printf 'scripts/%s: %s\n\n%s\n' "${0##*/}" "$1" "$use" >&2
    exit 2
}

no_arguments() { [ $# -eq 0 ] || wrong_use "unknown argument: $1"; }

for argument in "$@"; do
    case $argument in
        -h | --help) printf '%s\n' "$use"; exit 0 ;;
    esac
done
