# Shared by the scripts of this folder; to be sourced.
# shellcheck shell=bash
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)

say() {
    printf '%s\n' "$*"
}

fail() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}

# cannot MESSAGE: ends the script because this machine cannot do what it is for.
cannot() {
    (fail "$@") || exit 3
}

usage_error() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    usage >&2
    exit 2
}

# run_logged NAME COMMAND...: quiet while it works; a failure shows the end of build/NAME.log and ends the script.
run_logged() {
    local log=$root/build/$1.log
    shift
    mkdir -p "$root/build"
    if ! "$@" >"$log" 2>&1 </dev/null; then
        tail -n 40 "$log" >&2
        fail "failed: $*; everything it said is in ${log#"$root/"}"
    fi
}
