# shellcheck shell=bash
# Runs programs so that none outlives the script, however it ends.

launcher=() # what jobs are started through: a command that takes a command
job=
service_pid=
service_stdin=

# run_job COMMAND...: in a process group of its own, which ends as a whole.
run_job() {
    local status
    set -m
    {
        # The service ends with the last writer of its standard input, which is to be this script.
        [[ -z $service_pid ]] || exec {service_stdin}>&-
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
    local log=$1 tries
    # The service also ends with its standard input, so it goes away even if this script is killed.
    exec {service_stdin}> >(exec node service/main.js --port 0 --control --exit-with-stdin >"$log" 2>&1)
    service_pid=$!
    for ((tries = 0; tries < 200; tries++)); do
        service_url=$(sed -n 's/^kvpim service ready on //p' "$log" 2>/dev/null)
        [[ -z $service_url ]] || return 0
        kill -0 "$service_pid" 2>/dev/null || break
        sleep 0.1
    done
    cat "$log" >&2
    fail "The service did not start."
}

stop_service() {
    local pid=$service_pid tries
    service_pid=
    [[ -n $pid ]] || return 0
    exec {service_stdin}>&-
    for ((tries = 0; tries < 30; tries++)); do
        kill -0 "$pid" 2>/dev/null || return 0
        sleep 0.1
    done
    kill -KILL "$pid" 2>/dev/null
}

stop_everything() {
    stop_job
    stop_service
}

trap stop_everything EXIT
trap 'exit 129' HUP
trap 'exit 130' INT
trap 'exit 143' TERM
