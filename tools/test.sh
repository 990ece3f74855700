# shellcheck shell=bash
# Runs the tests and counts them.

passed=0
failed=0
skipped=0

# run_tests PRESET [CTEST ARGUMENT...]
run_tests() {
    local preset=$1
    shift
    # GCC 12's thread sanitizer does not start where the kernel scatters addresses widely.
    if [[ $preset == tsan ]] && setarch -R true 2>/dev/null; then launcher=(setarch -R); fi
    if build "$preset" all; then
        run_ctest "$preset" "$@"
    else
        failed=1
    fi
    # The service is the same in every build, and ctest's filters say nothing about it.
    if [[ $preset == dev && $# == 0 ]]; then run_service_tests; fi
    print_counts
    ((failed == 0))
}

run_ctest() {
    local log status
    log=$(build_folder "$1")/tests.log
    say "Running the tests ($1)"
    run_job ctest --preset "$1" --output-log "$log" "${@:2}"
    status=$?
    count_ctest "$log" "$status"
}

# The closing lines of ctest count a skipped test as passed, and name it once more with the word in brackets.
count_ctest() {
    local broken=0 all=0 left_out
    if [[ $(grep 'tests failed out of' "$1") =~ ([0-9]+)\ tests\ failed\ out\ of\ ([0-9]+) ]]; then
        broken=${BASH_REMATCH[1]} all=${BASH_REMATCH[2]}
    fi
    left_out=$(grep -cE '^\s+[0-9]+ - .* \(Skipped\)$' "$1")
    ((broken > 0 || $2 == 0)) || broken=1
    ((failed += broken, skipped += left_out, passed += all > broken + left_out ? all - broken - left_out : 0))
}

run_service_tests() {
    local log=service/node_modules/.tests.log status
    say "Running the tests of the service"
    run_job service_tests "$log"
    status=$?
    count_service_tests "$log" "$status"
}

service_tests() {
    npm test --prefix service 2>&1 | tee "$1"
    return "${PIPESTATUS[0]}"
}

count_service_tests() {
    local broken
    broken=$(($(node_count "$1" fail) + $(node_count "$1" cancelled)))
    ((broken > 0 || $2 == 0)) || broken=1
    ((failed += broken, passed += $(node_count "$1" pass), skipped += $(node_count "$1" skipped)))
}

# node_count LOG WORD: from the closing lines of Node's test runner, "# pass 12" or "ℹ pass 12".
node_count() { sed -nE "s/^(#|ℹ) $2 ([0-9]+)$/\2/p" "$1" | tail -n 1 | grep . || echo 0; }

print_counts() {
    printf '%d passed, %d failed' "$passed" "$failed"
    ((skipped == 0)) || printf ', %d skipped' "$skipped"
    printf '\n'
}
