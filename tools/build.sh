# shellcheck shell=bash
# Builds by the presets of CMakePresets.json.

build_folder() { if [[ $1 == dev ]]; then echo build; else echo "build-$1"; fi; }

# build PRESET TARGET...
build() {
    configure "$1" || return
    say "Building ($1)"
    run_job cmake --build --preset "$1" --parallel "$(compile_jobs)" --target "${@:2}"
}

configure() {
    local folder warnings=ON
    folder=$(build_folder "$1")
    [[ -f $folder/build.ninja ]] && is_stamped "$folder/.configured-from" CMakePresets.json && return
    # Other compilers than Debian 12's GCC warn of other things.
    is_debian_12 && [[ ! $1 =~ ^(clang|libcxx) ]] || warnings=OFF
    say "Configuring ($1)"
    run_job cmake --preset "$1" -D KVPIM_WARNINGS_AS_ERRORS=$warnings || return
    stamp "$folder/.configured-from" CMakePresets.json
}

project_version() { sed -nE 's/^project\(.* VERSION ([0-9.]+) .*/\1/p' CMakeLists.txt; }

# One for each processor, as long as each has the memory that the largest files take.
compile_jobs() {
    local memory_kib
    memory_kib=$(sed -nE 's/^MemAvailable: +([0-9]+) kB$/\1/p' /proc/meminfo)
    local jobs=$((${memory_kib:-0} / 1500000))
    ((jobs <= $(nproc))) || jobs=$(nproc)
    echo $((jobs > 1 ? jobs : 1))
}

remove_builds() {
    local preset
    for preset in dev debug release bench package wheel asan tsan clang clang-22 libcxx libcxx-root portable arm64 arm64-root i386 i386-root windows windows-root coverage fuzz tidy; do rm -rf "$(build_folder "$preset")"; done
}

# All C++ files of the project, each followed by a null character.
cxx_files() {
    find . '(' -path './build*' -o -name node_modules ')' -prune -o '(' -name '*.cpp' -o -name '*.h' ')' -print0
}
