# shellcheck shell=bash
# Builds the Debian packages for another processor than that of the machine, as Debian does it: by a cross compiler, in a
# fresh Debian that takes packages for both.

build_packages_for_target() {
    local root status
    ((EUID == 0)) || fail "Packages for $target are built in a fresh Debian, which needs root."
    root=$(mktemp -d) || return
    (build_in_debian "$root" && packages_run_in_debian "$root")
    status=$?
    rm -rf --one-file-system "$root"
    return $status
}

build_in_debian() {
    local root=$1 folder=$package_folder/$target mirror
    mirror=$(debian_mirror) || return
    rm -rf "$folder"
    mkdir -p "$folder" "$root/root/kvpim"
    say "Making a Debian that builds for $target"
    run_job debootstrap --variant=minbase bookworm "$root" "$mirror" >"$folder/debootstrap.log" || return
    git ls-files -z --cached --others --exclude-standard | xargs -0 cp -a --parents -t "$root/root/kvpim"
    in_debian "$root" "dpkg --add-architecture $target && apt-get update -qq && cd /root/kvpim &&
        apt-get install -y --no-install-recommends crossbuild-essential-$target &&
        apt-get build-dep -y --no-install-recommends --host-architecture $target ./" >"$folder/install.log" 2>&1 ||
        { tail -n 20 "$folder/install.log"; return 1; }
    say "Making the packages for $target"
    in_debian "$root" "cd /root/kvpim && export DEB_BUILD_OPTIONS='parallel=$(compile_jobs) terse' &&
        dpkg-architecture --host-arch $target --command 'debian/rules binary-arch'" >"$folder/build.log" 2>&1 ||
        { tail -n 50 "$folder/build.log"; return 1; }
    cp "$root/root/kvpim/$package_folder"/*.deb "$folder"
    du --bytes "$folder"/*.deb
    lintian --fail-on error,warning "$folder"/*.deb
}

packages_run_in_debian() {
    start_service "$package_folder/service.log"
    cp "$package_folder/$target"/*.deb "$1/root"
    in_debian "$1" 'apt-get install -y --no-install-recommends /root/kvpim-tools_*.deb /root/libkvpim[0-9]*.deb' \
        >>"$package_folder/$target/install.log" 2>&1 || { tail -n 20 "$package_folder/$target/install.log"; return 1; }
    client_talks "$1"
}
