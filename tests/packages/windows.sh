#!/usr/bin/env bash
# Installs quorvane3 under Wine in a fresh prefix, for the machine and for the user, uses it, takes it away, and compares
# what is left: nothing but the mailboxes.
#
#   tests/packages/windows.sh SETUP.EXE [QUORVANE]
#
# QUORVANE is the program of this machine, build/release/bin/quorvane unless given, which makes .msg files of the sample
# mails. It takes some minutes. Ends with 0, or with 1 and what was wrong.
set -uo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source_root=$(cd "$here/../.." && pwd)
case ${1:-} in
    -h | --help) sed -n '2,9s/^# \{0,1\}//p' "${BASH_SOURCE[0]}"; exit 0 ;;
    '') echo "$(basename "$0"): see --help" >&2; exit 2 ;;
esac
setup=$(realpath "$1")
native=$(realpath "${2:-$source_root/build/release/bin/quorvane}")
. "$source_root/cmake/wine_prefix.sh"
# The system's own: nobody's library stands in for it here.
WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe,winedbg.exe=d"
work=$(mktemp -d "${TMPDIR:-/tmp}/quorvane-windows-XXXXXX")
export WINEPREFIX=$work/prefix
server="${WINE%/wine64}/wineserver"
clean_up() {
    "$server" -k 2>/dev/null
    "$server" -w 2>/dev/null
    rm -rf "$work"
}
trap clean_up EXIT
fail() { tail -n 5 "$work/errors"; echo "windows: $*" >&2; exit 1; }
say() { printf '\n== %s (%s s)\n' "$*" "$SECONDS"; }
# Uninstallers go on in a copy of theirs when they have returned.
wine() { "$WINE" "$@" </dev/null 2>>"$work/errors"; local code=$?; return $code; }
wine_to_the_end() { wine "$@" && "$server" -w; }

# Everything in the prefix, files with their checksums, and every line of the registry with its key. Left out is what
# Wine keeps to itself, and the temporary directory, where an uninstaller's copy stays until the next start.
listing() {
    "$server" -w
    (cd "$WINEPREFIX" && find . \( -path '*/Temp' -o -path './*.reg' -o -path ./.update-timestamp \) -prune -o -type f -print0 |
        xargs -0 sha256sum; find . -path '*/Temp' -prune -o -type d -printf 'directory  %p\n') | sort -k 2
    local file
    for file in system user; do
        awk -v file="$file" '/^#/ { next } /^\[/ { sub(/\] [0-9]+$/, "]"); key = $0; print file, key; next } NF { print file, key, $0 }' \
            "$WINEPREFIX/$file.reg" | grep -v 'PendingFileRenameOperations\|"DriverDate\|NetworkCards\|Control\\\\Class\\\\{4D36E96\|Wow6432Node\\\\Interface\]$'
    done | sort
}
compare() { diff "$work/$1" "$work/$2" | grep '^[<>]'; }
# expect_nothing FAULT <LINES
expect_nothing() {
    local lines
    lines=$(cat)
    [ -z "$lines" ] && return 0
    echo "$lines"
    fail "$1"
}

say "a fresh prefix"
"$WINE" wineboot -i >"$work/errors" 2>&1 || fail "no prefix could be made"
wine reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f >/dev/null
# What Wine writes of its own accord when a script first runs.
wine_to_the_end cscript.exe /nologo "Z:${here//\//\\}\\nothing.js"
# It finishes its own registry at its second start.
wine_to_the_end cmd /c exit
listing >"$work/before"

# What is a user's own, and stays.
mailboxes='drive_c/mail\|Brindlemoor\\\\Quorvane\\\\Mailboxes\|Software\\\\Brindlemoor\(\\\\Quorvane\)\?\]$'

# install NAME ARGUMENT...: and what it changed.
install() {
    local name=$1
    shift
    wine_to_the_end "$setup" /S "$@" || fail "the installer ends with $?"
    listing >"$work/$name"
}
# remove DIRECTORY: the same as before it came has to be left.
remove() {
    wine_to_the_end "$1\\uninstall.exe" /S || fail "the uninstaller ends with $?"
    listing >"$work/after"
    expect_nothing "that is left, or gone" < <(compare before after | grep -v "$mailboxes")
}
use() {
    wine "$1\\quorvane.exe" --version || fail "the program doesn't start"
    # Older Wines see the machine's classes alone; that the user's are the same is seen below.
    if ! wine reg query 'HKCR\quorvane3.Library' >/dev/null; then
        [ "$2" = user ] || fail "the library isn't registered"
        echo "this Wine doesn't show a user's classes to programs"
        return
    fi
    wine cscript.exe /nologo "Z:${source_root//\//\\}\\tests\\windows\\library.js" quorvane3.Library || fail "no script gets the library"
}

say "for the machine"
install machine /AllUsers
machine='C:\Program Files\Quorvane'
use "$machine" machine
compare before machine | grep -c 'system \[' | sed 's/$/ lines of the machine'"'"'s registry/'
expect_nothing "the user's registry was written" < <(compare before machine | grep 'user \[')

say "two mailboxes share a folder"
quorvane() { wine "$machine\\quorvane.exe" "$@" || fail "quorvane $* ends with $?"; }
wine cmd /c 'mkdir C:\mail\exchange'
"$native" init "$work/native" --name nina >/dev/null && "$native" import "$work/native" Mails "$source_root/samples" >/dev/null &&
    "$native" export "$work/native" Mails "$WINEPREFIX/drive_c/mail/messages" --format msg || fail "$native makes no .msg files"
quorvane init 'C:\mail\alice' --name alice --exchange 'C:\mail\exchange'
quorvane init 'C:\mail\bob' --name bob --exchange 'C:\mail\exchange'
quorvane import 'C:\mail\alice' Projects 'C:\mail\messages'
quorvane share 'C:\mail\alice' Projects --with bob
quorvane members add 'C:\mail\bob' alice
quorvane run 'C:\mail\alice' --until-idle
quorvane run 'C:\mail\bob' --until-idle --accept-from alice
quorvane run 'C:\mail\alice' --until-idle
quorvane run 'C:\mail\bob' --until-idle
quorvane compare 'C:\mail\alice' Projects 'C:\mail\bob' Projects

say "what the page says, pasted, with a member on this system"
# The blocks of commands for Windows, one after the other.
page() { awk '/^```bat$/ { inside = 1; next } /^```$/ { inside = 0 } inside { gsub(/Z:.mnt.exchange/, "C:\\mail\\shared"); print }' "$source_root/docs/windows.md"; }
paste() {
    local words
    read -r -a words <<<"$1"
    WINEPATH=$machine wine "${words[0]}.exe" "${words[@]:1}"
}
alice() { "$native" "$@" >>"$work/errors" 2>&1; }
# until WHAT COMMAND...
until_it() {
    local what=$1 end=$((SECONDS + 120))
    shift
    until "$@"; do
        [ "$SECONDS" -lt "$end" ] || fail "$what: in vain"
        alice run "$work/alice" --until-idle --idle-seconds 0.5 || fail "alice's run"
    done
}
mkdir "$WINEPREFIX/drive_c/mail/shared"
alice init "$work/alice" --name alice --exchange "$WINEPREFIX/drive_c/mail/shared" &&
    alice import "$work/alice" Projects "$source_root/samples/01-plain.eml" || fail "alice has no mailbox"
hers() { "$native" list "$work/alice" Projects --json; }
his() { wine "$machine\\quorvane.exe" list 'C:\mail\page' Projects --json; }
count=0
while read -r line <&3; do
    line=${line//\\bob/\\page}
    count=$((count + 1))
    echo "    $line"
    case $line in
        *' run '*)
            paste "$line" &
            alice share "$work/alice" Projects --with bob || fail "alice can't share"
            until_it "the mail at bob's" eval 'his | grep -q \"subject\"'
            ;;
        *) paste "$line" || fail "$line ends with $?" ;;
    esac
done 3< <(page)
[ "$count" -ge 7 ] || fail "the page has $count lines"
until_it "his change at alice's" eval 'hers | grep -q Changed'
wine taskkill /f /im quorvane.exe >/dev/null
wait

say "the first host of the guide, built with what was installed"
mkdir "$work/host"
sed -n '/^```cpp$/,/^```$/p' "$source_root/docs/sdk.md" | awk '/^```/ { if (++fences == 2) exit; next } { print }' >"$work/host/my_host.cpp"
cat >"$work/host/CMakeLists.txt" <<'END'
cmake_minimum_required(VERSION 3.25)
project(my_host LANGUAGES CXX)
find_package(quorvane3 3 REQUIRED)
add_executable(my_host my_host.cpp)
target_link_libraries(my_host PRIVATE quorvane3::quorvane3)
END
cmake -S "$work/host" -B "$work/host/build" --toolchain "$source_root/cmake/mingw.cmake" \
      -Dquorvane3_DIR="$WINEPREFIX/drive_c/Program Files/Quorvane/sdk/lib/cmake/quorvane3" >>"$work/errors" 2>&1 &&
    cmake --build "$work/host/build" >>"$work/errors" 2>&1 || fail "it isn't built"
# It gets as far as the engine, which finds no mailbox.
WINEPATH=$machine wine "$work/host/build/my_host.exe" >"$work/said"
grep -a 'no logon: 0x8' "$work/said" || fail "it says $(cat "$work/said")"
! grep -qa 0x800401F0 "$work/said" || fail "its thread has entered no apartment"
# What a host traces is its user's.
rm -r "$WINEPREFIX"/drive_c/users/*/AppData/Local/Quorvane3 || fail "it has traced nothing"

say "installed again over itself, then taken away"
install again /AllUsers
expect_nothing "the second time left something else" < <(compare machine again | grep -v "$mailboxes")
remove "$machine"
[ -f "$WINEPREFIX/drive_c/mail/bob/host.db" ] || fail "the mailbox is gone"

say "for the user, in a directory of his choice"
install user /CurrentUser '/D=C:\quorvane'
use 'C:\quorvane' user
# The message store's place can be entered for the machine alone; and Wine enters interfaces there for programs of 32 bits.
expect_nothing "the machine's registry was written" < <(compare before user | grep 'system \[' | grep -v 'Installer\|Wow6432Node\\\\Interface')
say "the same keys"
# Either way the library registers itself: but for whose they are and the place they are the same.
keys() {
    compare before "$1" | grep '^>' | grep 'Software\\\\Classes\|Uninstall\|Installer' | sed -E 's/^> (system|user) //; s/C:\\\\(Program Files\\\\Quorvane|quorvane)/DIRECTORY/g' |
        tr '[:upper:]' '[:lower:]' | sort
}
keys machine >"$work/machine-keys"
keys user >"$work/user-keys"
diff "$work/machine-keys" "$work/user-keys" || fail "the user's keys are others than the machine's"
wc -l <"$work/user-keys"
remove 'C:\quorvane'

say "as the default mail client's MAPI"
wine_to_the_end reg add 'HKLM\Software\Clients\Mail' /ve /d 'Somebody else' /f >/dev/null
listing >"$work/before"
install mapi /AllUsers /MAPI
sed "s/@MESSAGE_STORE_PATH@/C:\\\\\\\\Program Files\\\\\\\\Quorvane\\\\\\\\msgstore.dll/" \
    "$source_root/packaging/windows/mail_client.reg.in" >"$work/mail_client.reg"
wine_to_the_end regedit /S "Z:${work//\//\\}\\mail_client.reg"
listing >"$work/imported"
expect_nothing "the installer writes other keys than mail_client.reg" < <(compare mapi imported)
remove "$machine"
wine "$setup" /S /CurrentUser /MAPI
[ $? = 2 ] || fail "the user's installation took /MAPI"
listing >"$work/after"
expect_nothing "a refused installation left something" < <(compare before after)
say "done"
