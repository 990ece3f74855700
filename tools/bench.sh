# shellcheck shell=bash
# Measures this library and the JavaScript client of Socket.IO in turns, servers and clients on processors of their own.

# Operations and warm-up of each workload. Requests that do not wait for each other go to a server that answers faster
# than any client asks; the others have the reference one.
workloads_of() {
    if [[ $1 == fast ]]; then
        echo "ack_pipelined 100000 20000"
        return
    fi
    echo "recv_text 100000 50000"
    echo "recv_binary32k 5000 500"
    echo "send_binary32k 2000 200"
    echo "ack_sequential 10000 2000"
    echo "connect 200 20"
    echo "many_clients 1000 1"
    [[ $1 != tls ]] || echo "reconnect 200 0"
}

# compare_clients RUNS
compare_clients() {
    local folder results server run workload
    folder=$(build_folder bench)
    results=$folder/results.jsonl
    : >"$results"
    : >"$folder/clients.log"
    for server in node fast tls; do
        start_bench_server "$server"
        # A server in JavaScript is slow until it has been at work for a while.
        measure_client /dev/null js ack_pipelined 50000 1000
        for ((run = 1; run <= $1; run++)); do
            say "Run $run of $1, against the $server server"
            while read -r -a workload; do
                for client in js socketio-main kit-main kit-thread; do
                    measure_client "$results" "$client" "${workload[@]}"
                done
            done < <(workloads_of "$server")
        done
        stop_server
    done
    node bench/table.js "$results" "$folder/bench.dat" || exit
    mkdir -p docs
    gnuplot -e "data='$folder/bench.dat'" bench/plot.gp >docs/bench.png && say docs/bench.png
}

# measure_crowd CLIENTS
measure_crowd() {
    local server engine files=$(($1 + 1000))
    (($(ulimit -Hn) >= files)) || ulimit -n "$files" 2>/dev/null || fail "So many clients need ulimit -n $files."
    for server in node fast; do
        start_bench_server "$server"
        measure_client /dev/null js ack_pipelined 50000 1000
        for engine in main thread; do
            say "Against the $server server"
            measure_client /dev/stdout "kit-$engine" crowd "$1" 0
        done
        stop_server
    done
}

# measure_cluster CLIENTS
measure_cluster() {
    local files=$(($1 + 1000))
    (($(ulimit -Hn) >= files)) || ulimit -n "$files" 2>/dev/null || fail "So many clients need ulimit -n $files."
    run_job node bench/cluster.js "$1"
}

measure_growth() {
    start_bench_server fast
    measure_client /dev/stdout kit-main growth 0 0
    stop_server
}

measure_awaiting() {
    local engine
    start_bench_server fast
    for engine in main thread; do measure_client /dev/stdout "kit-$engine" await 0 0; done
    stop_server
}

# The C interface and Python beside the C++ client, in turns; Python beside another client of Socket.IO.
# measure_languages CYCLES
measure_languages() {
    local results run
    results=$(build_folder bench)/languages.jsonl
    : >"$results"
    for ((run = 1; run <= 5; run++)); do
        say "Run $run of 5"
        start_bench_server fast
        measure_each "$results" ack_pipelined
        stop_server
        start_bench_server node
        measure_client /dev/null js recv_text 50000 1000
        measure_each "$results" recv_text
        stop_server
    done
    node bench/languages/table.js "$results" || exit
    start_bench_server fast
    measure_client /dev/stdout kvpim crowd 1000 0
    measure_client /dev/stdout c cycles "$1" 0
    stop_server
}

# measure_each RESULTS WORKLOAD
measure_each() {
    local client
    for client in kit-thread kit-main c; do measure_client "$1" "$client" "$2" 100000 20000; done
    for client in kvpim socketio; do measure_client "$1" "$client" "$2" 20000 2000; done
}

# start_bench_server node|fast|tls
start_bench_server() {
    local command=(node bench/server.js) pem
    bench_tls=()
    case $1 in
    fast) command=("$(build_folder bench)/kvpim-fast-server") ;;
    tls)
        pem=$(build_folder bench)/server.pem
        make_bench_certificate "$pem" >"$pem.log" 2>&1 || fail "No certificate. What openssl said: $pem.log"
        command+=("$pem")
        bench_tls=("$pem")
        ;;
    esac
    start_server "$(build_folder bench)/server.log" 's/^PORT //p' $(on_processor 0) "${command[@]}"
}

# Its own authority, behind its key.
make_bench_certificate() {
    openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -noenc -days 2 -subj /CN=bench \
        -addext subjectAltName=IP:127.0.0.1 -keyout "$1" -out "$1"
}

on_processor() { (($(nproc) < 2)) || echo taskset -c "$1"; }

# measure_client RESULTS CLIENT WORKLOAD OPERATIONS WARM-UP
measure_client() {
    local program command
    program=$(build_folder bench)/kvpim-bench
    case $2 in
    js) command=(node bench/client.js "$server_said" "${@:3}" "${bench_tls[@]}") ;;
    socketio-main) command=("$program" "$server_said" "${@:3}" --socketio --engine main) ;;
    kit-main) command=("$program" "$server_said" "${@:3}" --engine main) ;;
    c) command=("$(build_folder bench)/kvpim-bench-c" "$server_said" "${@:3}") ;;
    kvpim | socketio) command=(/usr/bin/python3 bench/languages/client.py "$2" "$server_said" "${@:3}") ;;
    kit-thread) command=("$program" "$server_said" "${@:3}" --engine thread) ;;
    esac
    [[ $2 == js || ${#bench_tls[@]} == 0 ]] || command+=(--tls "${bench_tls[@]}")
    START_NS=$(date +%s%N) PYTHONPATH=python LD_LIBRARY_PATH=$(build_folder bench)/Binding run_job timeout 600 $(on_processor 1) "${command[@]}" \
        >>"$1" 2>>"$(build_folder bench)/clients.log" || fail "No result: ${command[*]}"
}
