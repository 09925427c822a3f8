#!/usr/bin/env bash
# Runs a program of Windows under Wine, in the prefix of the build directory that the program lies in, which is made
# if it isn't there.
#   cmake/run_wine.sh PROGRAM [ARGUMENT...]
set -euo pipefail
program=$(realpath "${1:?the program}")
shift
. "$(dirname "${BASH_SOURCE[0]}")/wine_prefix.sh"
build=$(build_directory_of "$program")
use_wine_prefix "$build/wine-prefix" "$build"
exec "$WINE" "$program" "$@"
