#!/bin/sh
# keyring_session.sh HOME unlocked|locked COMMAND...: runs a command on a session bus of its own, with a keyring whose
# files are in HOME. The command finds the process id of the keyring in $KEYRING.
if [ "$1" != inside ]; then
    export HOME="$1" XDG_DATA_HOME="$1/data" XDG_RUNTIME_DIR="$1/run"
    shift
    mkdir -p -m 700 "$XDG_RUNTIME_DIR"
    exec timeout -k 5 60 dbus-run-session -- sh "$0" inside "$@"
fi
state=$2
shift 2
daemon="gnome-keyring-daemon --components=secrets --control-directory=$XDG_RUNTIME_DIR --daemonize"
if [ "$state" = unlocked ]; then
    printf password | $daemon --unlock >&2
else
    $daemon --start >&2
fi
# It is there a moment after it says so.
for attempt in 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20; do
    KEYRING=$(dbus-send --session --print-reply=literal --dest=org.freedesktop.DBus /org/freedesktop/DBus \
        org.freedesktop.DBus.GetConnectionUnixProcessID string:org.freedesktop.secrets | sed 's/.* //')
    [ -z "$KEYRING" ] || break
    sleep 0.2
done
export KEYRING
"$@"
status=$?
kill -KILL "$KEYRING"
exit $status
