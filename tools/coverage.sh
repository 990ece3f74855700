# shellcheck shell=bash
# Counts which lines of the library the tests run.

# Files under this share of lines are named, in percent.
least_covered=90

measure_coverage() {
    local folder log
    folder=$(build_folder coverage)
    log=$folder/coverage.csv
    build coverage all || return
    find "$folder" -name '*.gcda' -delete
    run_ctest coverage "$@"
    print_counts
    say "Reading what was counted"
    # Processes that write their counts at the same moment, and lines that the compiler made, are no reason to stop.
    run_job gcovr --root . "$folder" --filter Classes/ --filter SocketIO/ --filter Net/ --filter Platform/ \
        --gcov-ignore-parse-errors --exclude-unreachable-branches --csv --output "$log" || return
    print_coverage <"$log"
}

# From gcovr's table: one line a folder, and one for each file that falls short.
print_coverage() {
    awk -F, -v least="$least_covered" '
        function percent(covered, all) { return all ? 100 * covered / all : 100 }
        NR == 1 { next }
        {
            split($1, path, "/")
            all[path[1]] += $2; covered[path[1]] += $3
            if (percent($3, $2) < least) short[++count] = sprintf("%6.1f %%  %s", percent($3, $2), $1)
        }
        END {
            print "Lines run by the tests:"
            for (folder in all) printf "%6.1f %%  %s/ (%d of %d)\n", percent(covered[folder], all[folder]), folder,
                covered[folder], all[folder]
            printf "Files under %d %%:%s\n", least, count ? "" : " none"
            for (i = 1; i <= count; i++) print short[i]
        }'
}
