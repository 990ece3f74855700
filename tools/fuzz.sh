# shellcheck shell=bash
# Runs the fuzzers: build-fuzz/fuzz_TARGET, with what fuzz/ has for it. What they learn stays in build-fuzz/corpus, and an
# input that breaks something in build-fuzz/found.

fuzz_targets() { sed -nE 's/^ *kv_fuzzer\(([a-z]+).*/\1/p' fuzz/CMakeLists.txt; }

# run_fuzzers SECONDS TARGET...
run_fuzzers() {
    local seconds=$1 target folder broken=()
    shift
    folder=$(build_folder fuzz)
    build fuzz "${@/#/fuzz_}" || return
    for target in "$@"; do
        say "Fuzzing $target for $seconds s, from $(find "fuzz/corpus/$target" -type f | wc -l) inputs ($folder/fuzz_$target.log)"
        run_job fuzz "$folder" "$target" "$seconds"
        if (($? == 0)); then
            sed -nE 's/^#[0-9]+\s+DONE\s+/    /p; s/^Done /    /p' "$folder/fuzz_$target.log"
        else
            tail -n 60 "$folder/fuzz_$target.log"
            broken+=("$target")
        fi
    done
    ((${#broken[@]})) || return 0
    say "Broken: ${broken[*]}. The inputs:"
    find "$folder/found" -type f -newer "$folder/found/.began"
    echo "To see one again: $folder/fuzz_TARGET INPUT. Once mended, it belongs into fuzz/corpus/TARGET."
    return 1
}

# fuzz FOLDER TARGET SECONDS
fuzz() {
    local limits=(-max_len=4096 -timeout=25 -rss_limit_mb=2048)
    mkdir -p "$1/corpus/$2" "$1/found"
    [[ -f $1/found/.began ]] || touch "$1/found/.began"
    [[ -w /dev/shm ]] && export TMPDIR=/dev/shm  # directories come and go by the thousand
    # What the library prints would hide what the fuzzer has to say.
    ASAN_OPTIONS=detect_stack_use_after_return=1:strict_string_checks=1 UBSAN_OPTIONS=print_stacktrace=1 \
        "$1/fuzz_$2" "${limits[@]}" -max_total_time="$3" -print_final_stats=1 -close_fd_mask=3 \
        -dict="fuzz/dictionaries/$2" -artifact_prefix="$1/found/$2-" \
        "$1/corpus/$2" "fuzz/corpus/$2" >"$1/fuzz_$2.log" 2>&1
}
