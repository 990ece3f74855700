# shellcheck shell=bash
# Installs what a command needs: Debian packages, Node.js, the service's npm packages. Nothing is done twice.

oldest_node=18

is_debian_12() {
    # shellcheck source=/dev/null
    [[ $(. /etc/os-release && echo "${ID:-} ${VERSION_ID:-}") == "debian 12" ]]
}

as_root() {
    if ((EUID == 0)); then
        "$@"
    elif [[ -n $(type -P sudo) ]]; then
        sudo "$@"
    else
        fail "This must be done as root, and there is no sudo: $*"
    fi
}

# needs GROUP...: has the groups of tools/packages installed, and goes on as the user who owns the checkout.
needs() {
    local missing
    mapfile -t missing < <(missing_packages "$@")
    if ((${#missing[@]})); then
        if is_debian_12; then
            install_packages "${missing[@]}"
        else
            say "Packages are installed on Debian 12 only. It would be: ${missing[*]}"
        fi
    fi
    leave_root
}

missing_packages() {
    local group packages=() installed
    for group in "$@"; do
        mapfile -t -O ${#packages[@]} packages < <(sed -n "s/^$group: //p" tools/packages | tr ' ' '\n')
    done
    installed=$(dpkg-query -W -f '${db:Status-Status} ${Package}\n' "${packages[@]}" 2>/dev/null | sed -n 's/^installed //p')
    printf '%s\n' "${packages[@]}" | grep -vx -e "" -F -e "${installed:-none}"
    # These may also have come from elsewhere than Debian.
    if [[ " $* " == *" node "* ]] && ! node_is_recent; then echo nodejs; fi
    if [[ " $* " == *" npm "* && -z $(type -P npm) ]]; then echo npm; fi
}

node_is_recent() {
    local version
    version=$(node --version 2>/dev/null) && [[ $version =~ ^v([0-9]+) ]] && ((BASH_REMATCH[1] >= oldest_node))
}

install_packages() {
    say "Installing: $*"
    # Package lists that are absent or too old for these packages are fetched first.
    apt-get install --simulate --no-install-recommends "$@" >/dev/null 2>&1 || update_package_lists
    mask_services "$@"
    apt_install "$@" && return
    update_package_lists
    apt_install "$@" || fail "The packages could not be installed."
}

# What a package brings as a service of the machine stays off, now and after a restart: only its programs are wanted here.
mask_services() {
    local service
    for service in $(sed -n 's/^service: //p' tools/packages); do
        [[ " $* " != *" ${service%=*} "* ]] || as_root systemctl mask "${service#*=}.service" >/dev/null 2>&1
    done
}

update_package_lists() {
    local attempt
    say "Fetching the package lists"
    # Unlike the lock of an installation, that of the lists is not waited for by apt itself.
    for attempt in 1 2 3 4 5 6; do
        ((attempt == 1)) || sleep 10
        as_root apt-get -qq update && return
    done
    fail "The package lists could not be fetched."
}

apt_install() {
    local log status
    log=$(mktemp)
    as_root env DEBIAN_FRONTEND=noninteractive apt-get -y --no-install-recommends \
        -o DPkg::Lock::Timeout=600 -o Acquire::Retries=3 -o APT::Status-Fd=1 \
        install "$@" 2>&1 </dev/null | show_apt_progress "$log"
    status=${PIPESTATUS[0]}
    ((status == 0)) || tail -n 20 "$log" >&2
    rm -f "$log"
    return "$status"
}

# Keeps apt's many lines in a file, and shows how far it is: in place on a terminal, else now and then.
show_apt_progress() {
    local terminal=0
    [[ -t 1 ]] && terminal=1
    awk -F: -v log_file="$1" -v terminal="$terminal" '
        !/^(dl|pm)status:/ { print > log_file; next }
        terminal { printf "\r\033[K%3d%% %.60s", $3, $4; fflush(); next }
        $1 != phase || $3 >= next_shown { phase = $1; next_shown = $3 + 25; printf "%3d%% %s\n", $3, $4; fflush() }
        END { if (terminal) printf "\r\033[K" }'
}

# What is built belongs to the owner of the checkout, also when the script was started through sudo.
leave_root() {
    ((EUID == 0 && ${SUDO_UID:-0} != 0)) && [[ $(stat -c %u .) == "$SUDO_UID" ]] || return 0
    exec setpriv --reuid="$SUDO_UID" --regid="$SUDO_GID" --init-groups \
        env HOME="$(getent passwd "$SUDO_UID" | cut -d: -f6)" USER="$SUDO_USER" LOGNAME="$SUDO_USER" \
        ./run "${invocation[@]}"
}

install_npm_packages() {
    is_stamped service/node_modules/.installed-from service/package-lock.json && return
    say "Installing the npm packages of the service (npm ci)"
    run_job npm ci --prefix service --no-audit --no-fund --loglevel=error || fail "npm ci failed."
    stamp service/node_modules/.installed-from service/package-lock.json
}

# A stamp tells what a result was made from.
is_stamped() { [[ $(cat "$1" 2>/dev/null) == "$(sha256sum <"$2")" ]]; }
stamp() { sha256sum <"$2" >"$1"; }
