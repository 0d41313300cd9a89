# shellcheck shell=bash disable=SC2154
# The counts that CI looks at: they depend on the machine's load by next to nothing. To be sourced by bench.sh.

# counts_of_pass COUNT: lines "NAME COUNT".
counts_of_pass() {
    say "quick: a pass over $1 reports"
    trace_pass "$1"
    awk -v name="pass-$1" 'match($0, /^[0-9]+ +[a-z_0-9]+\(/) { ++calls } END { print name "-system-calls", calls }' \
        "$scratch/trace"
    writes_by_file | awk -F '\t' -v name="pass-$1" '{ bytes += $3; syncs += $4 }
        END { print name "-bytes-to-files", bytes + 0; print name "-syncs", syncs + 0 }'
    fill this "$1" 1024
    count_heap | awk -v name="pass-$1" '/^allocations/ { print name "-allocations", $2; next } { bytes += $1 }
        END { print name "-heap-bytes", bytes }'
    fill this "$1" 1024
    pass this valgrind --tool=callgrind --callgrind-out-file="$scratch/callgrind"
    awk -v name="pass-$1" '/^(summary|totals): / { print name "-instructions", $2; exit }' "$scratch/callgrind"
}

counts_of_store() {
    local kind
    say 'quick: calls of the store'
    fill this 1000
    for kind in save join seal remove times read; do
        on this "$bench/store_calls" "$kind" 20 | awk -v name="$kind" '{ syncs += $1; bytes += $2 }
            END { print name "-syncs", syncs / NR; print name "-bytes", bytes / NR }'
    done
}

# The rest has to run: a crash fails.
try_the_rest() {
    say 'quick: the other programs'
    run_fleet 1000 | awk -F '\t' '$1 == "peak" { ++n } END { exit n != 12 }' || fail "the fleet is incomplete"
    fill this 100 1024
    make_input >&2
    run_small_sender >&2
}

compare_counts() {
    { counts_of_pass 0; counts_of_pass 100; counts_of_store; } >"$scratch/counts"
    try_the_rest
    if $renew; then
        cp -- "$scratch/counts" bench/expected
        printf 'Written: bench/expected\n'
        return
    fi
    awk 'NR == FNR { expected[$1] = $2; next }
        !($1 in expected) { printf "%-28s %12d  is not in bench/expected\n", $1, $2; bad = 1; next }
        { verdict = $2 > 1.1 * expected[$1] ? "  MORE" : ""
          printf "%-28s %12d  expected %12d%s\n", $1, $2, expected[$1], verdict; bad = bad || verdict != ""
          delete expected[$1] }
        END { for (name in expected) { print name " was not counted"; bad = 1 } exit bad }' bench/expected "$scratch/counts" ||
        fail "counts are more than a tenth above bench/expected. Where that is meant: ./bench.sh --quick --renew"
}
