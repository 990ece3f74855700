# shellcheck shell=bash
# Runs programs so that none outlives the script, however it ends.

launcher=() # what jobs are started through: a command that takes a command
job=
server_pid=
server_stdin=
windows= # the folder that is Wine's drive and registry, once it may be running

# run_job COMMAND...: in a process group of its own, which ends as a whole.
run_job() {
    local status
    set -m
    {
        # A server ends with the last writer of its standard input, which is to be this script.
        [[ -z $server_pid ]] || exec {server_stdin}>&-
        "${launcher[@]}" "$@"
    } </dev/null &
    job=$!
    set +m
    wait "$job"
    status=$?
    stop_job
    return $status
}

stop_job() {
    local group=$job tries
    job=
    [[ -n $group ]] || return 0
    kill -TERM -- "-$group" 2>/dev/null || return 0
    for ((tries = 0; tries < 50; tries++)); do
        kill -0 -- "-$group" 2>/dev/null || return 0
        sleep 0.1
    done
    kill -KILL -- "-$group" 2>/dev/null
}

# start_service LOG: on a free port; $service_url is where it listens.
start_service() {
    start_server "$1" 's/^kvpim service ready on //p' node service/main.js --port 0 --control --exit-with-stdin
    service_url=$server_said
}

# start_server LOG EXPRESSION COMMAND...: a command that ends with its standard input, and so goes away even if this
# script is killed. $server_said is what sed's expression finds in its log, by which it is known to be ready.
start_server() {
    local log=$1 tries
    : >"$log" # what an earlier server said there is not to be taken for this one's word
    exec {server_stdin}> >(exec "${@:3}" >"$log" 2>&1)
    server_pid=$!
    for ((tries = 0; tries < 200; tries++)); do
        server_said=$(sed -n "$2" "$log" 2>/dev/null) || true # there is no log yet
        [[ -z $server_said ]] || return 0
        kill -0 "$server_pid" 2>/dev/null || break
        sleep 0.1
    done
    cat "$log" >&2
    fail "It did not start: ${*:3}"
}

stop_server() {
    local pid=$server_pid tries
    server_pid=
    [[ -n $pid ]] || return 0
    exec {server_stdin}>&-
    for ((tries = 0; tries < 30; tries++)); do
        kill -0 "$pid" 2>/dev/null || return 0
        sleep 0.1
    done
    kill -KILL "$pid" 2>/dev/null
}

# Wine's server would stay for a while, to be there for the next program.
stop_windows() { [[ -z $windows ]] || WINEPREFIX=$windows wineserver -k 2>/dev/null; }

stop_everything() {
    stop_job
    stop_server
    stop_windows
}

trap stop_everything EXIT
trap 'exit 129' HUP
trap 'exit 130' INT
trap 'exit 143' TERM
