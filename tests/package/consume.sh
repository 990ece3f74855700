#!/usr/bin/env bash
# Builds a small program with the library as another project would, and runs it against a service of its own.
#   consume.sh find_package|socketio|pkg-config|plugin|testkit|c PREFIX WORK    with what is installed below PREFIX
#   consume.sh add_subdirectory|FetchContent "" WORK                  with the sources
# WORK is a folder that is made and removed; arguments behind it are handed to CMake.
set -eu
way=$1 prefix=$2 work=$(realpath -m "$3")
cd "$(dirname "$(readlink -f "$0")")/../.."
fail() {
    printf '%s\n' "$*" >&2
    exit 1
}
. tools/jobs.sh

rm -rf "$work"
mkdir -p "$work"

if [[ $way == pkg-config ]]; then
    PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name kvpim.pc)")
    export PKG_CONFIG_PATH
    read -ra flags <<<"$(pkg-config --cflags --libs kvpim)"
    "${CXX:-c++}" -std=c++20 -Wall -Wextra -Werror examples/first_steps.cpp "${flags[@]}" -o "$work/consumer"
    LD_LIBRARY_PATH=$(pkg-config --variable=libdir kvpim)
    export LD_LIBRARY_PATH
else
    cmake -S tests/package/consumer -B "$work" -G Ninja -D HOW="$way" -D CMAKE_PREFIX_PATH="$prefix" \
        -D CMAKE_FIND_PACKAGE_NO_PACKAGE_REGISTRY=ON "${@:4}" >"$work/configure.log" ||
        fail "$(cat "$work/configure.log")"
    cmake --build "$work" --target consumer
fi

if [[ $way == testkit ]]; then
    run_job "$work/testing/host_test"
    rm -rf "$work"
    exit
fi

# What is unpacked, not installed, is found by no linker: CMake names the library to it, but not what that one needs.
if [[ $way == c ]]; then
    LD_LIBRARY_PATH=$(dirname "$(find "$(realpath "$prefix")" -name libkvpim_c.so)")
    export LD_LIBRARY_PATH
fi
start_service "$work/service.log"
# What the program keeps stays out of the user's own directories.
run_job env XDG_CACHE_HOME="$work" XDG_DATA_HOME="$work" DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent \
    "$work/consumer" "$service_url" alice | tee "$work/said"
case $way in
socketio | plugin) expected=connect ;;
c) expected='"peerId":"alice"' ;;
*) expected="alice says: Hello, world" ;;
esac
grep -qF "$expected" "$work/said" || fail "It did not say: $expected"
rm -rf "$work"
