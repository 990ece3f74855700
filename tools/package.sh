# shellcheck shell=bash
# Builds the Debian packages, and tries them.

package_folder=build-package

build_packages() {
    build package all || return
    rm -f "$package_folder"/*.deb
    say "Making the packages"
    run_job cpack --config "$package_folder/CPackConfig.cmake" -B "$package_folder" >"$package_folder/cpack.log" 2>&1 || {
        cat "$package_folder/cpack.log" >&2
        return 1
    }
    du --bytes "$package_folder"/*.deb
    build_wheel
}

check_packages() {
    unpacked=$PWD/$package_folder/unpacked
    rm -rf "$unpacked"
    local package way
    for package in "$package_folder"/*.deb; do dpkg-deb -x "$package" "$unpacked"; done
    count "what the libraries show" libraries_show_public_names_only
    count "each header stands alone" headers_stand_alone
    count "the wheel, where it is alone" wheel_works
    for way in find_package pkg-config socketio plugin testkit c; do
        count "$way, shared" run_job tests/package/consume.sh "$way" "$unpacked/usr" "$package_folder-consumer"
    done
    if ((EUID != 0)) || [[ -z $(type -P debootstrap) ]]; then
        say "skipped: a fresh Debian needs root and debootstrap"
        ((skipped += 1))
    else
        count "in a fresh Debian" packages_work_in_a_fresh_debian
    fi
    print_counts
    ((failed == 0))
}

# count WHAT COMMAND...
count() {
    say "Checking: $1"
    if "${@:2}"; then
        ((passed += 1))
    else
        printf 'failed: %s\n' "$1"
        ((failed += 1))
    fi
}

# Every symbol belongs to a class or is a function that a public header declares, or it is what one of the two libraries
# takes from the other, of which applications have no header.
libraries_show_public_names_only() {
    local library symbol name bad=0
    for library in "$unpacked"/usr/lib/*/lib*.so.*.*.*; do
        printf '%s: %d bytes, %s\n' "${library##*/}" "$(stat -c %s "$library")" "$(objdump -p "$library" | sed -n 's/ *SONAME */SONAME /p')"
        (($(stat -c %s "$library") < 1536 * 1024)) || bad=1
        while read -r symbol; do
            name=$(sed -nE 's/^kv::([A-Za-z0-9]+).*/\1/p' <<<"$symbol")
            [[ $symbol == KVPIM_+([0-9]) || ${library##*/} == libkvpim_c.* && $symbol == kvpim_* ]] && continue
            [[ $symbol == kv::@(net::|sio::probe)* || $name == @(startHttp|problemOf) ]] && continue
            [[ -n $name && $symbol != *::Impl::* ]] && grep -rqE "KV_EXPORT.*\\b$name\\b" "$unpacked/usr/include" && continue
            printf 'shown, but not public: %s\n' "$symbol"
            bad=1
        done < <(nm -DC --without-symbol-versions --defined-only "$library" | cut -d ' ' -f 3- | sort -u)
    done
    ((bad == 0))
}

headers_stand_alone() {
    local headers header
    mapfile -t headers < <(cd "$unpacked/usr/include" && find KvPim -name '*.h')
    ((${#headers[@]} > 0)) || return
    for header in "${headers[@]}"; do
        printf '#include <%s>\n' "$header" | c++ -std=c++20 -Wall -Wextra -Werror -fsyntax-only -I "$unpacked/usr/include" -x c++ - || return
    done
}

# Installs the packages where nothing else is, has the client talk and the project of README.md built, and removes them again.
packages_work_in_a_fresh_debian() {
    local root status
    root=$(mktemp -d) || return
    (fresh_debian "$root")
    status=$?
    rm -rf --one-file-system "$root"
    return $status
}

fresh_debian() {
    local root=$1 mirror said
    mirror=$(debian_mirror) || return
    run_job debootstrap --variant=minbase bookworm "$root" "$mirror" >"$package_folder/debootstrap.log" || return
    cp "$package_folder"/*.deb "$root/root"
    in_debian "$root" 'apt-get update -qq && apt-get install -y --no-install-recommends /root/kvpim-tools_*.deb /root/libkvpim1_*.deb' \
        >"$package_folder/install.log" 2>&1 || { tail -n 20 "$package_folder/install.log"; return 1; }
    start_service "$package_folder/service.log"
    # The line is one of the client's input; its home keeps what it writes.
    said=$(in_debian "$root" "HOME=/tmp kvpim --version && printf '%s\n' \
        '{\"op\":\"loginByToken\",\"id\":1,\"token\":\"0123456789abcdef0123456789abcdef\",\"timeStamp\":1,\"userId\":\"alice\"}' |
        HOME=/tmp kvpim console --app-id demo --api-server $service_url --linger 2")
    printf '%s\n' "$said"
    [[ $said == *'"op":"loginByToken","code":0'* ]] || return
    readme_works "$root" || return
    in_debian "$root" 'dpkg --purge kvpim-tools libkvpim-dev libkvpim1 >/dev/null && ! ls -d /usr/lib/*/libkv* /usr/include/KvPim \
        /usr/lib/*/cmake/KvPim /usr/share/doc/*kvpim* /usr/bin/kvpim 2>/dev/null'
}

# What README.md shows, word for word: its program, its project and its commands.
readme_works() {
    local project=$1/root/project way commands
    mkdir "$project"
    readme_block cpp >"$project/main.cpp"
    readme_block cmake >"$project/CMakeLists.txt"
    in_debian "$1" 'apt-get install -y --no-install-recommends g++ cmake make pkg-config /root/libkvpim-dev_*.deb' \
        >>"$package_folder/install.log" 2>&1 || { tail -n 20 "$package_folder/install.log"; return 1; }
    for way in 'cmake -B build' 'g[+][+] .*pkg-config'; do
        commands=$(sed -nE "s/^    ($way .*)/\1/p" README.md)
        [[ -n $commands ]] || return
        [[ $commands == cmake* ]] || commands+=' && ./hello'
        said=$(in_debian "$1" "cd /root/project && export HOME=/tmp && $commands $service_url")
        printf '%s\n' "$said"
        [[ $said == *"alice says: Hello, world"* ]] || return
    done
}

in_debian() {
    run_job chroot "$1" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive sh -c "$2"
}

# The one that this machine's own packages come from.
debian_mirror() {
    local found
    found=$(cat /etc/apt/sources.list /etc/apt/sources.list.d/* 2>/dev/null |
        sed -nE 's#^(URIs:|deb)( \[[^]]*\])? *(https?://[^ ]+/debian)/?( .*)?$#\3#p' | head -n 1)
    [[ -n $found ]] && printf '%s\n' "$found"
}
