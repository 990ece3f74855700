# shellcheck shell=bash
# What ./run needs from outside: Debian's packages, Node.js and the service's npm packages. Sourced by ./run.

# packages_for COMMAND: prints the Debian packages that the command needs.
packages_for() {
    local build=(g++ cmake ninja-build ccache pkg-config libboost1.81-dev libboost-json1.81-dev libssl-dev
                 libcurl4-openssl-dev libre2-dev libsecret-1-dev zlib1g-dev libedit-dev libcli11-dev)
    case $1 in
        build | demo | chat) echo "${build[@]}" ;;
        test) echo "${build[@]}" libgtest-dev gnome-keyring dbus openssl iproute2 chromium ;;
        bench) echo "${build[@]}" libbenchmark-dev gnuplot-nox ;;
        format) echo clang-format ;;
        # Debian's default, clang-tidy 14, does not know the coroutines of C++20.
        tidy) echo "${build[@]}" libgtest-dev clang-tidy-16 ;;
    esac
}

OLDEST_NODE=18
APT_PATIENCE_SECONDS=600

as_root() {
    if ((EUID == 0)); then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        die "root's rights are needed for: $*  (no sudo here: run it as root, then try again)"
    fi
}

# Runs apt-get, and waits for whoever holds its locks; it waits by itself for one of its three only.
apt_get() {
    local errors deadline=$((SECONDS + APT_PATIENCE_SECONDS))
    errors=$(mktemp)
    until as_root env DEBIAN_FRONTEND=noninteractive LC_ALL=C apt-get -q -o DPkg::Lock::Timeout=$APT_PATIENCE_SECONDS \
        "$@" 2> >(tee "$errors" >&2); do
        if ((SECONDS > deadline)) || ! grep -q 'Could not get lock' "$errors"; then
            rm -f "$errors"
            return 1
        fi
        sleep 2
    done
    rm -f "$errors"
}

missing_packages() {
    local installed
    installed=$(dpkg-query -W -f='${db:Status-Status} ${Package}\n' "$@" 2>/dev/null) || true
    for package in "$@"; do
        grep -qxF "installed $package" <<<"$installed" || echo "$package"
    done
}

# need_packages NAME...: installs those that are not there.
need_packages() {
    (($#)) || return 0
    local missing
    mapfile -t missing < <(missing_packages "$@")
    ((${#missing[@]})) || return 0
    command -v apt-get >/dev/null || die "these Debian packages are needed, and there is no apt-get: ${missing[*]}"
    say "Installing: ${missing[*]}"
    if ! apt-get -q --simulate install "${missing[@]}" >/dev/null 2>&1; then
        apt_get update
    fi
    # Lists of some weeks ago name files that the mirror no longer has.
    apt_get install -y --no-install-recommends "${missing[@]}" ||
        { apt_get update && apt_get install -y --no-install-recommends "${missing[@]}"; } ||
        die "could not install: ${missing[*]}"
}

has_node() {
    command -v node >/dev/null && command -v npm >/dev/null &&
        (($(node -p 'process.versions.node.split(".")[0]') >= OLDEST_NODE))
}

need_node() {
    # npm checks the registry's certificate against the system's list.
    has_node || need_packages nodejs npm ca-certificates
    has_node || die "Node.js $OLDEST_NODE or newer is needed; found $(node --version 2>&1)"
}

need_service_packages() {
    local stamp=service/node_modules/.installed lock
    lock=$(sha256sum service/package-lock.json)
    [[ -e $stamp && $(<"$stamp") == "$lock" ]] && return
    say "Installing: the service's npm packages (npm ci in service/)"
    (cd service && npm ci --no-audit --no-fund --loglevel=error) || die "npm ci failed in service/"
    echo "$lock" >"$stamp"
}
