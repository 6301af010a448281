# shellcheck shell=bash
# Sourced by ./run: what a person sees. Each phase prints one line. Its output goes to a log file and is
# shown only if the phase fails.

LOGS=build/logs
mkdir -p "$LOGS"

if [[ -t 1 && -z ${NO_COLOR:-} && ${TERM:-dumb} != dumb ]]; then
    BOLD=$'\e[1m' RED=$'\e[31m' PLAIN=$'\e[0m'
else
    BOLD='' RED='' PLAIN=''
fi

say() {
    printf '%s==> %s%s\n' "$BOLD" "$*" "$PLAIN"
}

fail() {
    printf '%s./run: %s%s\n' "$RED" "$*" "$PLAIN" >&2
    exit 1
}

# phase LOG TEXT COMMAND...: prints TEXT and runs COMMAND with its output in build/logs/LOG.log.
phase() {
    local log="$LOGS/$1.log" text=$2 start=$SECONDS
    shift 2
    printf '%s==> %s ...%s' "$BOLD" "$text" "$PLAIN"
    if "$@" </dev/null >"$log" 2>&1; then
        printf ' %d s\n' $((SECONDS - start))
    else
        printf ' %sfailed%s\n' "$RED" "$PLAIN"
        tail -n 40 "$log" >&2
        fail "$text failed; everything it printed is in $log"
    fi
}
