# shellcheck shell=bash
# Builds with Clang and its own standard library, libc++, for which Debian has no packages of what is written in C++: these
# are built from Debian's sources, in a folder.

prepare_libcxx() {
    local root=$PWD/build-libcxx-root
    is_stamped "$root/.built-from" cmake/libcxx/CMakeLists.txt tools/libcxx.sh && return
    say "Building what Debian does not have for libc++"
    rm -rf "$root"
    fetch_re2 "$root/sources" && build_for_libcxx "$root" >"$root/build.log" 2>&1 || fail "That failed. The log, if there is one: $root/build.log"
    rm -rf "$root/build" "$root/sources"
    stamp "$root/.built-from" cmake/libcxx/CMakeLists.txt tools/libcxx.sh
}

build_for_libcxx() {
    local jobs
    jobs=$(compile_jobs)
    run_job make -C "$1/sources/re2" -j "$jobs" CXX="clang++-22 -stdlib=libc++" CXXFLAGS="-O2 -fPIC" REBUILD_TABLES=1 prefix="$1" static-install || return
    run_job cmake -S cmake/libcxx -B "$1/build" -G Ninja -D CMAKE_BUILD_TYPE=Release -D CMAKE_CXX_COMPILER=clang++-22 -D CMAKE_CXX_FLAGS=-stdlib=libc++ \
        -D CMAKE_POSITION_INDEPENDENT_CODE=ON -D "CMAKE_INSTALL_PREFIX=$1" -D CMAKE_INSTALL_LIBDIR=lib || return
    run_job cmake --build "$1/build" --parallel "$jobs" && cmake --install "$1/build"
}

# With package lists of its own: those of the machine seldom have sources.
fetch_re2() {
    local mirror options
    mirror=$(debian_mirror) || return
    mkdir -p "$1"/apt/{lists,archives}/partial
    echo "deb-src [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $mirror bookworm main" >"$1/apt/sources.list"
    options=(-qq -o "Dir::Etc::SourceList=$1/apt/sources.list" -o Dir::Etc::SourceParts=- -o "Dir::State::Lists=$1/apt/lists"
        -o "Dir::Cache=$1/apt" -o Debug::NoLocking=1 -o APT::Sandbox::User=)
    apt-get "${options[@]}" update && (cd "$1" && apt-get "${options[@]}" source re2) && mv "$1"/re2-* "$1/re2"
}
