# Sourced by packaging/release: `make_windows` makes the installer of packaging/windows.
WINDOWS_RELEASE_PACKAGES=(g++-mingw-w64-x86-64-posix libz-mingw-w64-dev mingw-w64-tools libwine-dev dpkg-dev gcc make tcl nsis python3)

# Libraries that are compiled for Windows of the distribution's sources; those that ./check has fetched will do.
take_libraries() {
    local library
    for library in sqlite sodium utf8proc; do
        [ -d "$root/build/$library-source" ] || cmake/"$library"_source.sh "$root/build/$library-source" || return 1
    done
}

build_windows() {
    local launcher=()
    command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
    cmake -S "$source" -B "$work/windows" -G Ninja --toolchain "$source/cmake/mingw.cmake" -DCMAKE_BUILD_TYPE=Release \
          -DBUILD_TESTING=OFF "${launcher[@]}" -DQUORVANE_SQLITE_SOURCE="$root/build/sqlite-source" \
          -DQUORVANE_SODIUM_SOURCE="$root/build/sodium-source" -DQUORVANE_UTF8PROC_SOURCE="$root/build/utf8proc-source" &&
        cmake --build "$work/windows" --target quorvane3 mapi32 quorvane qv_com qv_mapi qv_cfb &&
        stage_windows "$work/windows" "$work/windows-files"
}

# stage_windows BUILD DIRECTORY: lays down what the installer brings.
stage_windows() {
    rm -rf "$2"
    cmake --install "$1" --prefix "$2" --strip &&
        find "$2" -exec touch --no-dereference --date="@$SOURCE_DATE_EPOCH" {} +
}

# pack_windows DIRECTORY OUTPUT: the installer of what lies in a directory.
pack_windows() {
    local parts=$work/windows-installer
    mkdir -p "$parts" &&
        python3 "$source/packaging/windows/installer_parts.py" files "$1" >"$parts/files.nsh" &&
        python3 "$source/packaging/windows/installer_parts.py" mail "$source/packaging/windows/mail_client.reg.in" >"$parts/mail.nsh" &&
        makensis -V3 -WX -NOCD "-DVERSION=$version" "-DOUTPUT=$2" "-DFILES=$parts/files.nsh" "-DMAIL=$parts/mail.nsh" \
                 "$source/packaging/windows/installer.nsi"
}

make_windows() {
    need_packages "${WINDOWS_RELEASE_PACKAGES[@]}" || exit 1
    step windows-libraries take_libraries
    step windows build_windows
    step installer pack_windows "$work/windows-files" "$output/quorvane3-$version-setup.exe"
}
