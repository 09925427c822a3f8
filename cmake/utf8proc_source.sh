#!/usr/bin/env bash
# Lays utf8proc's sources into a directory, of the distribution's source package. Does nothing where they are.
#   cmake/utf8proc_source.sh DIRECTORY
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/debian_source.sh"
target=${1:?the directory}
[ -s "$target/utf8proc.h" ] && exit 0

mkdir -p "$target"
target=$(cd "$target" && pwd)
work=$target/work
rm -rf "$work"
mkdir -p "$work"
trap 'rm -rf "$work"' EXIT
debian_source utf8proc "$work"

mv "$work/source/utf8proc_data.c" "$work/source/utf8proc.c" "$target/"
# Last of all: with it the directory is whole.
mv "$work/source/utf8proc.h" "$target/utf8proc.h"
