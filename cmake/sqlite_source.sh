#!/usr/bin/env bash
# Makes sqlite3.c and sqlite3.h in a directory, of the distribution's source package. Does nothing where they are.
#   cmake/sqlite_source.sh DIRECTORY
# The package index is kept in the directory, so that the system's own sources stay as they are.
set -euo pipefail
target=${1:?the directory}
[ -s "$target/sqlite3.c" ] && [ -s "$target/sqlite3.h" ] && exit 0

mkdir -p "$target"
target=$(cd "$target" && pwd)
work=$target/work
rm -rf "$work"
mkdir -p "$work/lists/partial" "$work/build"
trap 'rm -rf "$work"' EXIT

. /etc/os-release
keyring=/usr/share/keyrings/debian-archive-keyring.gpg
cat >"$work/sources.list" <<END
deb-src [signed-by=$keyring] http://deb.debian.org/debian $VERSION_CODENAME main
deb-src [signed-by=$keyring] http://deb.debian.org/debian-security $VERSION_CODENAME-security main
END
options=(-o "Dir::Etc::sourcelist=$work/sources.list" -o Dir::Etc::sourceparts=/dev/null
         -o "Dir::State::lists=$work/lists" -o APT::Sandbox::User=root -qq)
apt-get "${options[@]}" update
(cd "$work" && apt-get "${options[@]}" source --download-only sqlite3 && dpkg-source -x ./*.dsc source)

(cd "$work/build" && ../source/configure --disable-tcl --disable-readline && make sqlite3.c sqlite3.h)
mv "$work/build/sqlite3.h" "$target/sqlite3.h"
mv "$work/build/sqlite3.c" "$target/sqlite3.c"
