# shellcheck shell=bash
# ./run test: builds the tests, runs them and counts. Sourced by ./run.

PARALLEL_TESTS=4 # tests mostly wait
passed=0 failed=0 skipped=0

# run_tests [--sanitize=LIST] [CTEST-OPTION...]
run_tests() {
    local sanitizers='' ctest_options=() argument
    for argument in "$@"; do
        case $argument in
            --sanitize=*) sanitizers=${argument#*=} ;;
            *) ctest_options+=("$argument") ;;
        esac
    done

    local dir around=()
    case $sanitizers in
        '') dir=build ;;
        *thread*) dir=build-tsan ;;
        *) dir=build-asan ;;
    esac
    # GCC 12's thread sanitizer cannot place its shadow memory where the kernel scatters addresses widely.
    if [[ $dir == build-tsan ]] && setarch -R true 2>/dev/null; then around=(setarch -R); fi
    export ASAN_OPTIONS=${ASAN_OPTIONS-detect_stack_use_after_return=1}
    export UBSAN_OPTIONS=${UBSAN_OPTIONS-halt_on_error=1:print_stacktrace=1}
    export TSAN_OPTIONS=${TSAN_OPTIONS-second_deadlock_stack=1}

    configure $dir KVPIM_BUILD_TESTS=ON KVPIM_SANITIZE="$sanitizers"
    "${around[@]}" ninja -C $dir -j "$(nproc)"
    run_ctest $dir "${around[@]}" -- "${ctest_options[@]}"
    if [[ ! $sanitizers ]] && ((${#ctest_options[@]} == 0)); then run_service_tests; fi

    local line="$passed passed, $failed failed"
    ((skipped == 0)) || line+=", $skipped skipped"
    printf '%s\n' "$line"
    ((failed == 0 && passed > 0))
}

# run_ctest DIR [COMMAND...] -- [CTEST-OPTION...]: COMMAND... goes before ctest.
run_ctest() {
    local dir=$1 log=$1/ctest.log around=() status=0 total not_passed left_out
    shift
    while [[ $1 != -- ]]; do around+=("$1") && shift; done
    shift
    "${around[@]}" ctest --test-dir "$dir" -j $PARALLEL_TESTS --output-on-failure --no-tests=error "$@" 2>&1 |
        tee "$log" || status=$?

    # "97% tests passed, 2 tests failed out of 80", in which a skipped test has passed and a disabled one is not there.
    read -r not_passed total < <(sed -nE 's/^[0-9]+% tests passed, ([0-9]+) tests? failed out of ([0-9]+)$/\1 \2/p' \
        "$log") || true
    left_out=$(grep -cE '^[[:space:]]+[0-9]+ - .* \(Skipped\)$' "$log") || true
    count $((${total:-0} - ${not_passed:-0} - left_out)) "${not_passed:-0}" "$left_out" $status
}

run_service_tests() {
    local log=build/service-tests.log status=0
    (cd service && npm test) 2>&1 | tee "$log" || status=$?
    count "$(node_count pass)" $(($(node_count fail) + $(node_count cancelled))) \
        $(($(node_count skipped) + $(node_count todo))) $status
}

# Node's test runner closes with "# pass 12", or "ℹ pass 12" on a terminal.
node_count() {
    local number
    number=$(sed -nE "s/^[^ ]+ $1 ([0-9]+)\$/\\1/p" "$log" | tail -n 1)
    echo "${number:-0}"
}

# count PASSED FAILED SKIPPED STATUS: a runner that failed without a failed test is itself the failure.
count() {
    ((passed += $1, failed += $2, skipped += $3)) || true
    if (($4 != 0 && $2 == 0)); then ((failed += 1)); fi
}
