# Sourced by the scripts beside it: a work directory removed at the end, and
# checks that count what passed and failed.
#   check DESCRIPTION COMMAND...   runs COMMAND, says ok or FAILED
#   has FILE TEXT, lacks FILE TEXT  grep -F
#   finish                          the summary; exits 0 only if all passed
set -u
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
passes=0
failures=0
check() {
    local what=$1
    shift
    if "$@"; then
        echo "ok: $what"
        passes=$((passes + 1))
    else
        echo "FAILED: $what"
        failures=$((failures + 1))
    fi
}
has() { grep -qF -- "$2" "$1"; }
lacks() { ! grep -qF -- "$2" "$1"; }
finish() {
    echo "$passes passed, $failures failed"
    exit $((failures > 0))
}
