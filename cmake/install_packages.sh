# Sourced by ./check and ./quickstart: `need_packages NAME...` installs those that are missing.
need_packages() {
    local missing=() package
    for package in "$@"; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || { echo "missing packages, and neither root nor sudo: ${missing[*]}" >&2; return 1; }
        as_root=(sudo)
    fi
    echo "installing: ${missing[*]}"
    if ! { "${as_root[@]}" apt-get update -qq &&
           "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"; } \
           >/tmp/quorvane3-apt.log 2>&1; then
        echo "apt-get could not install ${missing[*]}; its output is in /tmp/quorvane3-apt.log" >&2
        return 1
    fi
}

BUILD_PACKAGES=(g++ cmake ninja-build pkg-config libsqlite3-dev libsodium-dev libutf8proc-dev zlib1g-dev libdeflate-dev libcli11-dev libgmime-3.0-dev libsystemd-dev nlohmann-json3-dev ccache)
