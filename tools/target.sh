# shellcheck shell=bash
# Builds for other processors than that of the machine, and for Windows. What Debian has for them is unpacked in a folder:
# nothing but the cross compiler, and what runs their programs, is installed.

# take_target ARGUMENT...: sets `target`, from "--target NAME" or "--target=NAME", and `rest`, the other arguments.
take_target() {
    target="" rest=()
    while (($#)); do
        case $1 in
        --target) target=${2:-none} && shift ;;
        --target=*) target=${1#*=} ;;
        *) rest+=("$1") ;;
        esac
        shift
    done
    [[ ${target:-arm64} =~ ^(arm64|i386|windows)$ ]] || fail "There are --target=arm64, --target=i386 and --target=windows."
}

prepare_target() {
    if [[ $target == windows ]]; then
        prepare_windows
        return
    fi
    unpack_target || fail "The packages for $target could not be unpacked."
    [[ $target != arm64 ]] || let_kernel_run_arm64
}

# What a build takes of Debian, with all that it needs, out of packages for this processor.
unpack_target() {
    local root packages options archive
    root=$PWD/$(build_folder "$target")-root
    is_stamped "$root/.unpacked-from" tools/packages && return
    mapfile -t packages < <(sed -n 's/^build: //p' tools/packages | tr ' ' '\n' | grep -E '^(lib|zlib).*-dev$')
    say "Fetching for $target: ${packages[*]}"
    rm -rf "$root"
    mkdir -p "$root"/apt/{lists,archives}/partial
    touch "$root/apt/status"
    options=(-qq -o "APT::Architecture=$target" -o "APT::Architectures::=$target" -o "Dir::State=$root/apt" -o "Dir::Cache=$root/apt"
        -o "Dir::State::status=$root/apt/status" -o Debug::NoLocking=1 -o APT::Sandbox::User=)
    apt-get "${options[@]}" update || say "Not all package lists could be fetched."
    apt-get "${options[@]}" --no-install-recommends --download-only -y install libc6-dev libstdc++6 "${packages[@]}" || return
    for archive in "$root"/apt/archives/*.deb; do dpkg-deb -x "$archive" "$root" || return; done
    rm -rf "$root/apt"
    stamp "$root/.unpacked-from" tools/packages
}

# Tests start programs of their own: the kernel gives those of arm64 to the emulator.
let_kernel_run_arm64() {
    [[ $(uname -m) == aarch64 || -e /proc/sys/fs/binfmt_misc/qemu-aarch64 ]] && return
    say "Having the kernel run programs of arm64 in the emulator"
    as_root update-binfmts --enable qemu-aarch64 || fail "The kernel does not run programs of arm64."
}

# A Windows of the build's own, without what shows web pages and runs .NET.
prepare_windows() {
    windows=$PWD/$(build_folder windows)-root
    [[ ! -f $windows/system.reg ]] || return 0
    say "Making a Windows for the tests"
    run_job env WINEPREFIX="$windows" WINEDEBUG=-all WINEDLLOVERRIDES=mscoree,mshtml= wine wineboot --init >/dev/null 2>&1 ||
        fail "Wine does not start."
    WINEPREFIX=$windows wineserver -w # what it has done is in its files then
}
