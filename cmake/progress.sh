# Sourced by ./check and ./quickstart: `with_progress NAME LOG COMMAND...` runs a command with its output in a file and
# tells meanwhile how far it is, as the build tool or ctest counts: in place on a terminal, else in a line now and then.

# The latest count in a log, as "34 of 120"; nothing where there is none.
progress_in() {
    tail -c 20000 "$1" 2>/dev/null | grep -aoE '\[ *[0-9]+/[0-9]+\]|^ *[0-9]+/[0-9]+ Test' | tail -n 1 |
        sed -E 's/[^0-9]*([0-9]+)\/([0-9]+).*/\1 of \2/'
}

with_progress() {
    local name=$1 log=$2 started=$SECONDS pause=15 begin='' end=$'\n' shown=0
    shift 2
    [ -t 1 ] && pause=1 begin=$'\r' end=$'\e[K'
    : >"$log"
    "$@" >"$log" 2>&1 &
    local running=$! next=$((SECONDS + pause)) now
    while kill -0 "$running" 2>/dev/null; do
        if [ "$SECONDS" -ge "$next" ]; then
            next=$((SECONDS + pause))
            now=$(progress_in "$log")
            [ -n "$now" ] && printf '%s      %s: %s, %s s%s' "$begin" "$name" "$now" $((SECONDS - started)) "$end" && shown=1
        fi
        sleep 0.2
    done
    [ "$shown" = 1 ] && [ -t 1 ] && printf '\r\e[K'
    wait "$running"
}
