# Sourced by packaging/release: `make_deb` makes the Debian packages of packaging/debian and has lintian look at them.
DEBIAN_PACKAGES=(debhelper dpkg-dev lintian)

build_deb() {
    rm -f "$work"/*.deb "$work"/*.changes "$work"/*.buildinfo
    cp -r "$source/packaging/debian" "$source/debian"
    (cd "$source" && DEB_BUILD_OPTIONS="parallel=$(nproc) ${DEB_BUILD_OPTIONS:-}" dpkg-buildpackage -b -uc -us)
}

# What lintian finds stands in its log; an error ends it.
look_at_deb() {
    lintian --allow-root --no-cfg --info --display-info --fail-on error "$work"/quorvane3_"$version"_*.changes
}

make_deb() {
    need_packages "${DEBIAN_PACKAGES[@]}" || exit 1
    step packages build_deb
    step lintian look_at_deb
    grep -E '^[EW]: ' "$work/lintian.log"
    cp "$work"/*.deb "$output/" || fail "no packages could be copied to $output"
}
