#!/usr/bin/env bash
# Installs the Debian packages in a fresh Debian 12, has a user there do what a file of commands says, takes the packages
# away again, and compares what is left: nothing but what the user made.
#
#   tests/packages/debian.sh [--guide] [--host] DIRECTORY [COMMANDS]
#
#   DIRECTORY  where packages lie, as packaging/release makes them
#   COMMANDS   lines that are pasted into a shell, of which none may fail; tests/packages/share.sh unless given
#   --guide    follows docs/guide.md as well, block by block (tests/program/pages_test.py), for which Python is installed
#   --host     builds and starts the example host as well, with libquorvane3-dev and the compiler of the fresh system
#
# It needs root, and mmdebstrap. Ends with 0, or with 1 and what was wrong.
set -uo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source_root=$(cd "$here/../.." && pwd)
guide=0 host=0
[ "${1:-}" = --guide ] && { guide=1; shift; }
[ "${1:-}" = --host ] && { host=1; shift; }
case ${1:-} in
    -h | --help) sed -n '2,13s/^# \{0,1\}//p' "${BASH_SOURCE[0]}"; exit 0 ;;
    '') echo "$(basename "$0"): see --help" >&2; exit 2 ;;
esac
packages=$(realpath "$1")
commands=$(realpath "${2:-$here/share.sh}")
. "$source_root/cmake/install_packages.sh"
need_packages mmdebstrap || exit 1

work=$(mktemp -d "${TMPDIR:-/tmp}/quorvane-debian-XXXXXX")
root=$work/root
mounted=0
clean_up() {
    [ "$mounted" = 1 ] && umount "$root/proc"
    rm -rf --one-file-system "$work"
}
trap clean_up EXIT
fail() { echo "debian: $*" >&2; exit 1; }
say() { printf '\n== %s (%s s)\n' "$*" "$SECONDS"; }
inside() { chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@"; }
as_user() {
    chroot --userspec=tester:tester "$root" env -i PATH=/usr/bin:/bin HOME=/home/tester USER=tester LC_ALL=C.UTF-8 "$@"
}

# All paths with what is in them, but for the records of those who install, and caches.
listing() {
    local kept=(-xdev \( -path ./proc -o -path ./dev -o -path ./packages -o -path ./var/cache -o -path ./var/log
                -o -path ./var/lib/apt -o -path ./var/lib/dpkg -o -path ./etc/ld.so.cache \) -prune -o)
    (cd "$root" && find . "${kept[@]}" ! -type f -printf '%y %l %p\n' && find . "${kept[@]}" -type f -print0 | xargs -0 sha256sum) |
        sort -k 2
}

say "a fresh Debian 12"
mmdebstrap --quiet --variant=minbase bookworm "$root" || fail "mmdebstrap failed"
mount -t proc proc "$root/proc" && mounted=1
inside useradd --create-home --shell /bin/bash tester || fail "no user could be made"
mkdir "$root/packages"
cp "$packages"/{quorvane,libquorvane3,libquorvane3-dev}_*.deb "$root/packages/" || fail "packages are missing in $packages"
cp "$commands" "$root/packages/commands"
listing >"$work/before"
installed() { inside dpkg-query -W -f '${Package}\n' | sort; }
installed >"$work/packages-before"

say "installing"
install=(quorvane libquorvane3)
[ "$host" = 1 ] && install+=(libquorvane3-dev)
files=()
for name in "${install[@]}"; do
    files+=("$(cd "$root" && echo packages/"$name"_*.deb)")
done
inside sh -c 'cd / && apt-get -qq update && apt-get -q -y install "$@" 2>&1 | tail -n 3' _ "${files[@]/#/./}" ||
    fail "apt-get can't install the packages"
inside dpkg -s "${install[@]}" | grep -c '^Status: install ok installed' | grep -qx "${#install[@]}" || fail "not installed"
inside sh -c 'dpkg -V "$@"' _ "${install[@]}" || fail "dpkg finds changed files"

say "as a user: $(basename "$commands")"
as_user bash -exc "$(cat "$commands")" </dev/null 2>&1 | sed "s/^/    /"
[ "${PIPESTATUS[0]}" = 0 ] || fail "a command of $commands failed"

if [ "$guide" = 1 ]; then
    say "the guide, pasted"
    inside sh -c 'apt-get -q -y install --no-install-recommends python3 2>&1 | tail -n 1' || fail "no Python"
    mkdir -p "$root/packages/source/tests/program"
    cp -r "$source_root"/{README.md,docs} "$root/packages/source/"
    cp "$source_root"/tests/program/{pages_test,world}.py "$root/packages/source/tests/program/"
    as_user env PYTHONDONTWRITEBYTECODE=1 QUORVANE_PROGRAM=/usr/bin/quorvane QUORVANE_SOURCE=/packages/source \
        QUORVANE_SAMPLES=/usr/share/doc/quorvane/examples QUORVANE_BUILD=/nowhere \
        python3 /packages/source/tests/program/pages_test.py GuideTest || fail "the guide doesn't lead there"
fi

if [ "$host" = 1 ]; then
    say "a host of one's own"
    inside sh -c 'apt-get -q -y install --no-install-recommends g++ libc6-dev cmake make pkg-config 2>&1 | tail -n 1' || fail "no compiler"
    as_user bash -ec 'cd && cp -r /usr/share/quorvane3/example by-pkg-config && cp -r by-pkg-config by-cmake
        (cd by-pkg-config && g++ -std=c++20 *.cpp -o sharing_host $(pkg-config --cflags --libs quorvane3))
        cmake -S by-cmake -B by-cmake/build >/dev/null && cmake --build by-cmake/build | tail -n 1
        for each in by-pkg-config by-cmake/build; do
            $each/sharing_host 2>&1 | head -n 1
            ! ldd $each/sharing_host | grep "not found"
            ldd $each/sharing_host | grep -c "libmapi32.so => /usr/lib/.*/quorvane3/"
        done
        rm -rf by-pkg-config by-cmake' || fail "no host can be built with the packages"
fi

say "taking them away"
inside sh -c 'apt-get -q -y purge "$@" 2>&1 | tail -n 1; apt-get -q -y autoremove --purge 2>&1 | tail -n 1' _ "${install[@]}"
# What came with them and is kept because something of the fresh system recommends it, or was asked for here.
mapfile -t others < <(installed | comm -13 "$work/packages-before" -)
inside sh -c 'apt-get -q -y purge "$@" 2>&1 | tail -n 1' _ "${others[@]}"
listing >"$work/after"
diff "$work/before" "$work/after" | grep '^[<>]' >"$work/left"
if grep -v ' \./home/tester/' "$work/left"; then
    fail "more than a user's own is left, or something is gone"
fi
echo "left: $(wc -l <"$work/left") files of the user's, and nothing else"
grep -q ' ./home/tester/bob/' "$work/left" || [ "$commands" != "$here/share.sh" ] || fail "the mailbox is gone"
say "done"
