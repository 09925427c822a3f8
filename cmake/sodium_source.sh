#!/usr/bin/env bash
# Lays libsodium's sources into a directory, of the distribution's source package. Does nothing where they are.
#   cmake/sodium_source.sh DIRECTORY
# They need no configuring: what a compiler of this one's kind has is known to QuorvaneSodium.cmake.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/debian_source.sh"
target=${1:?the directory}
[ -s "$target/libsodium/include/sodium/version.h" ] && exit 0

mkdir -p "$target"
target=$(cd "$target" && pwd)
work=$target/work
rm -rf "$work" "$target/libsodium"
mkdir -p "$work"
trap 'rm -rf "$work"' EXIT
debian_source libsodium "$work"

# The header that is left to configuring, as the package has it for compilers that can't be asked. Last of all: with it
# the directory is whole.
mv "$work/source/src/libsodium" "$target/libsodium"
mv "$work/source/builds/msvc/version.h" "$target/libsodium/include/sodium/version.h"
