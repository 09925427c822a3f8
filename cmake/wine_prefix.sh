# Sourced: a Wine prefix for a build directory of the preset mingw.

# Not on the path: this is where the distribution's package has it.
WINE=/usr/lib/wine/wine64

# No windows are shown and nothing is told but what the programs say themselves; menus, the debugger (a program that
# fails ends at once) and the runtimes of other languages stay out. A library mapi32 outside of the system directory is
# itself, and not the system's.
export WINEARCH=win64 WINEDEBUG=${WINEDEBUG:--all} WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe,winedbg.exe=d;mapi32=n,b"
export LC_ALL=C.UTF-8
unset DISPLAY

# The directory above a program that CMake configured.
build_directory_of() {
    local directory=$1
    while [ "$directory" != / ]; do
        directory=$(dirname "$directory")
        [ -f "$directory/CMakeCache.txt" ] && { echo "$directory"; return 0; }
    done
    echo "$1 lies in no build directory" >&2
    return 1
}

# make_wine_prefix PREFIX BUILD: a fresh prefix, with the build's message store as the default mail client's MAPI.
make_wine_prefix() {
    local prefix=$1 build=$2
    rm -rf "$prefix" "$prefix.new"
    export WINEPREFIX=$prefix.new
    "$WINE" wineboot -i
    "$WINE" reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f
    "$WINE" regedit /S "$build/mail_client.reg"
    # Other processes may use it only when everything is in its files.
    "${WINE%/wine64}/wineserver" -k || true
    "${WINE%/wine64}/wineserver" -w
    mv "$prefix.new" "$prefix"
}

# use_wine_prefix PREFIX BUILD: for the programs that are started from now on. Made where there is none.
use_wine_prefix() {
    if [ ! -d "$1" ]; then
        exec 7>"$1.lock"
        flock 7
        [ -d "$1" ] || make_wine_prefix "$1" "$2" >"$1.log" 2>&1
        exec 7>&-
    fi
    export WINEPREFIX=$1
}
