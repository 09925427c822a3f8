# Sourced: `debian_source PACKAGE DIRECTORY` unpacks a source package of the distribution into DIRECTORY/source.
# The package index is kept in the directory, so that the system's own sources stay as they are.
debian_source() {
    local package=$1 work=$2 keyring=/usr/share/keyrings/debian-archive-keyring.gpg
    mkdir -p "$work/lists/partial"
    local VERSION_CODENAME
    . /etc/os-release
    cat >"$work/sources.list" <<END
deb-src [signed-by=$keyring] http://deb.debian.org/debian $VERSION_CODENAME main
deb-src [signed-by=$keyring] http://deb.debian.org/debian-security $VERSION_CODENAME-security main
END
    local options=(-o "Dir::Etc::sourcelist=$work/sources.list" -o Dir::Etc::sourceparts=/dev/null
                   -o "Dir::State::lists=$work/lists" -o APT::Sandbox::User=root -qq)
    apt-get "${options[@]}" update
    (cd "$work" && apt-get "${options[@]}" source --download-only "$package" && dpkg-source -x ./*.dsc source)
}
