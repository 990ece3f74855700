# shellcheck shell=bash
# Builds the Debian packages, and tries them.

package_folder=build-package

build_packages() {
    versions_agree || exit
    say "Making the packages"
    clean_packages
    rm -rf "$package_folder"/*.deb "$package_folder/debug-symbols"
    # The tools of Debian compile with a home of their own, where no cache would be found.
    CCACHE_DIR=$(ccache --get-config cache_dir) DEB_BUILD_OPTIONS="parallel=$(compile_jobs) terse" \
        run_job debian/rules binary >"$package_folder.log" 2>&1 || {
        tail -n 50 "$package_folder.log" >&2
        return 1
    }
    clean_packages
    du --bytes "$package_folder"/*.deb
    build_wheel
}

versions_agree() {
    local version others
    version=$(project_version)
    others=$(grep -L "version\"\?\( =\|:\) \"$version\"" python/pyproject.toml packaging/vcpkg/kvpim/vcpkg.json packaging/conan/conanfile.py)
    [[ $(sed -nE 's/^#define KVPIM_VERSION_(MAJOR|MINOR|PATCH) //p' Classes/KvPimVersion.h | paste -sd.) == "$version" ]] ||
        others+=" Classes/KvPimVersion.h"
    [[ $(dpkg-parsechangelog -S Version) == "$version"-* ]] || others+=" debian/changelog"
    [[ -z $others ]] || fail "This is of another version than $version: ${others//$'\n'/ }"
}

# What was built stays; only what debhelper keeps beside it goes.
clean_packages() {
    local packages
    mapfile -t packages < <(dh_listpackages)
    rm -rf debian/.debhelper debian/debhelper-build-stamp debian/files debian/tmp debian/*.debhelper* debian/*.substvars \
        "${packages[@]/#/debian/}"
}

# All of it once more in another folder, by the compiler itself, where a cache would give the same files.
packages_are_reproducible() {
    local folder package same=0
    folder=$(mktemp -d) || return
    mkdir -p "$folder/some/other/place"
    git ls-files -z --cached --others --exclude-standard | xargs -0 cp -a --parents -t "$folder/some/other/place"
    (cd "$folder/some/other/place" && CCACHE_DISABLE=1 run_job ./run package) || return
    for package in "$package_folder"/{*.deb,debug-symbols/*.deb,*.whl}; do
        if cmp "$package" "$folder/some/other/place/$package"; then
            printf 'the same: %s  %s\n' "$(sha256sum <"$package" | cut -c 1-64)" "${package##*/}"
        else
            same=1
        fi
    done
    ((same == 1)) || rm -rf --one-file-system "$folder"
    return $same
}

check_packages() {
    unpacked=$PWD/$package_folder/unpacked
    rm -rf "$unpacked"
    local package way
    for package in "$package_folder"/*.deb; do dpkg-deb -x "$package" "$unpacked"; done
    count "lintian" lintian --fail-on error,warning "$package_folder"/*.deb "$package_folder"/debug-symbols/*.deb
    count "what the libraries show" libraries_show_public_names_only
    count "the binary interface" each_library interface_is_kept
    count "each header stands alone" headers_stand_alone
    count "completion" completion_works
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
        (($(stat -c %s "$library") < 1600 * 1024)) || bad=1
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

completion_works() {
    local said
    # shellcheck disable=SC2016 # it is another shell's
    said=$(bash -c '. "$0" && COMP_WORDS=(kvpim "$@") COMP_CWORD=$# && _kvpim && printf "%s" "${COMPREPLY[@]}"' \
        "$unpacked/usr/share/bash-completion/completions/kvpim" show --only r)
    [[ $said == requests ]]
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
    local root=$1 mirror
    mirror=$(debian_mirror) || return
    run_job debootstrap --variant=minbase bookworm "$root" "$mirror" >"$package_folder/debootstrap.log" || return
    cp "$package_folder"/*.deb "$root/root"
    in_debian "$root" 'apt-get update -qq && apt-get install -y --no-install-recommends /root/kvpim-tools_*.deb /root/libkvpim[0-9]*.deb' \
        >"$package_folder/install.log" 2>&1 || { tail -n 20 "$package_folder/install.log"; return 1; }
    start_service "$package_folder/service.log"
    client_talks "$root" || return
    readme_works "$root" || return
    in_debian "$root" 'dpkg --purge $(dpkg-query -W -f "\${Package} " "*kvpim*") >/dev/null && ! ls -d /usr/lib/*/libkv* /usr/include/KvPim \
        /usr/lib/*/cmake/KvPim /usr/share/doc/*kvpim* /usr/bin/kvpim 2>/dev/null'
}

# client_talks ROOT: the line is one of the client's input; its home keeps what it writes.
client_talks() {
    local said
    said=$(in_debian "$1" "HOME=/tmp kvpim --version && printf '%s\n' \
        '{\"op\":\"loginByToken\",\"id\":1,\"token\":\"0123456789abcdef0123456789abcdef\",\"timeStamp\":1,\"userId\":\"alice\"}' |
        HOME=/tmp kvpim console --app-id demo --api-server $service_url --linger 2")
    printf '%s\n' "$said"
    [[ $said == *'"op":"loginByToken","code":0'* ]]
}

# What README.md shows, word for word: its programs, its project and its commands. Who packages that program learns from
# dpkg-shlibdeps what it needs.
readme_works() {
    local project=$1/root/project way commands said
    mkdir "$project"
    readme_block cpp >"$project/main.cpp"
    readme_block cmake >"$project/CMakeLists.txt"
    readme_block python | sed "s#http://127.0.0.1:8600#$service_url#" >"$project/hello.py"
    in_debian "$1" 'apt-get install -y --no-install-recommends g++ cmake make pkg-config dpkg-dev /root/*.deb' \
        >>"$package_folder/install.log" 2>&1 || { tail -n 20 "$package_folder/install.log"; return 1; }
    for way in 'cmake -B build' 'g[+][+] .*pkg-config' python; do
        commands=$(sed -nE "s/^    ($way .*)/\1/p" README.md)
        [[ $way != g* ]] || commands+=' && ./hello'
        [[ $way != python ]] || commands='python3 hello.py'
        said=$(in_debian "$1" "cd /root/project && export HOME=/tmp && $commands $service_url")
        printf '%s\n' "$said"
        [[ $said == *"alice says: Hello, world"* ]] || return
    done
    said=$(in_debian "$1" 'cd /root/project && mkdir debian && printf "Source: hello\\nBuild-Depends: libkvpim-dev\\n" >debian/control &&
        dpkg-shlibdeps -O build/hello')
    printf '%s\n' "$said"
    [[ $said == *"libkvpim"[0-9]" (>= "* ]]
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
