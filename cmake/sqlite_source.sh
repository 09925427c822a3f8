#!/usr/bin/env bash
# Makes sqlite3.c and sqlite3.h in a directory, of the distribution's source package. Does nothing where they are.
#   cmake/sqlite_source.sh DIRECTORY
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/debian_source.sh"
target=${1:?the directory}
[ -s "$target/sqlite3.c" ] && [ -s "$target/sqlite3.h" ] && exit 0

mkdir -p "$target"
target=$(cd "$target" && pwd)
work=$target/work
rm -rf "$work"
mkdir -p "$work/build"
trap 'rm -rf "$work"' EXIT
debian_source sqlite3 "$work"

(cd "$work/build" && ../source/configure --disable-tcl --disable-readline && make sqlite3.c sqlite3.h)
mv "$work/build/sqlite3.h" "$target/sqlite3.h"
mv "$work/build/sqlite3.c" "$target/sqlite3.c"
