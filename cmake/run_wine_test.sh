#!/usr/bin/env bash
# What ctest starts a test program of Windows with: run_wine.sh, and that once more when Wine refused it before it began.
#   cmake/run_wine_test.sh PROGRAM [ARGUMENT...]
# Wine's server ends with its last program, and drops one that comes at that very moment.
set -uo pipefail
said=$(mktemp)
trap 'rm -f "$said"' EXIT
for _ in 1 2 3; do
    "$(dirname "${BASH_SOURCE[0]}")/run_wine.sh" "$@" 2>"$said"
    status=$?
    cat "$said" >&2
    grep -q '^wine client error:0: ' "$said" || break
done
exit "$status"
