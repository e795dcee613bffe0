# Functions for the scripts of this project; source this file.
# shellcheck shell=bash
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)

say() {
    printf '%s\n' "$*"
}

fail() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}

# cannot MESSAGE: ends the script with exit status 3, because this machine cannot run it.
cannot() {
    (fail "$@") || exit 3
}

usage_error() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    usage >&2
    exit 2
}

# run_logged NAME COMMAND...: runs a command with its output in build/NAME.log. If it fails, shows the end of the log
# and ends the script.
run_logged() {
    local log=$root/build/$1.log
    shift
    mkdir -p "$root/build"
    if ! "$@" >"$log" 2>&1 </dev/null; then
        tail -n 40 "$log" >&2
        fail "failed: $*; its whole output is in ${log#"$root/"}"
    fi
}
