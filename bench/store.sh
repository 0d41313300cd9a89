# shellcheck shell=bash disable=SC2154
# The store, call by call. To be sourced by bench.sh.

readonly store_kinds=(first save save-own save-text join times read ids seal remove)

# measure_calls VERSION CALLS: lines "KIND VERSION SYNCS BYTES MICROSECONDS".
measure_calls() {
    local kind count
    for kind in "${store_kinds[@]}"; do
        count=$2
        [[ $kind != ids ]] || count=3
        on "$1" "$bench/store_calls" "$kind" "$count" | sed "s/^/$kind $1 /"
    done
}

# The row of each call, from lines of measure_calls.
calls_table() {
    sort -k 1,1 -k 2,2 -k 5,5n | awk -v stored="$1" -v order="${store_kinds[*]}" '
        { key = $1 " " $2; at = ++n[key]; time[key, at] = $5; bytes[key] += $4; if ($3 > syncs[key]) syncs[key] = $3
          other = other || $2 == "other" }
        function median(key) { return time[key, int((n[key] + 1) / 2)] }
        END { kinds = split(order, kind, " ")
            for (i = 1; i <= kinds; ++i) {
                key = kind[i] " this"
                printf "%s\t%d\t%d\t%d\t%d", stored, median(key), time[key, int(n[key] * 0.95 + 0.5)], syncs[key],
                    bytes[key] / n[key]
                if (other) printf "\t%.2f", median(key) / median(kind[i] " other")
                printf "\t%s\n", kind[i] } }' | awk -F '\t' -v OFS='\t' '{ last = $NF; NF--; print last, $0 }'
}

section_store() {
    local stored version round sizes=(1000 10000)
    ! $full || sizes+=(100000 1000000)
    local titles=(Call Stored 'CPU, µs' '19 of 20 within' Syncs 'Bytes to pwrite')
    [[ ${#versions[@]} == 1 ]] || titles+=("CPU, ratio to $against")
    cat <<'T'
## The store, call by call

Beside that many stored reports of 1 KiB whose contents do not compress, with one interpreter and one connection, as
while a pass has ids, log records included, in memory, where syncs take no time. Medians of 60 calls; bytes on average,
the most syncs: 31 and more are those of a store that grows its journal. `first` builds an interpreter, opens the store
and lists times. `save-own` has an aggregationid of its own, `save-text` compresses to a third, `join` is
`ext_aggregation`, `ids` lists all ids, which are of one time.

T
    for stored in "${sizes[@]}"; do
        say "store: $stored reports"
        for version in "${versions[@]}"; do fill "$version" "$stored"; done
        for round in 1 2 3; do
            say "store: $stored reports, round $round of 3"
            for version in "${versions[@]}"; do measure_calls "$version" 20; done
        done | calls_table "$stored"
        printf '%s\t%d\n' "$stored" "$(stat -c %s "$data/db_reports")" >>"$scratch/sizes"
        rm -rf -- "$scratch/filled"
    done | markdown "${titles[@]}"
    printf '\nThe database file, once those calls were made:\n\n'
    awk -F '\t' -v OFS='\t' '{ print $1, $2, int($2 / $1) }' "$scratch/sizes" | markdown Reports Bytes 'Bytes a report'
}

section_overload() {
    local rate=5
    say 'overload: an hour of five reports a second'
    cat <<'T'
## The bound under overload

An hour of simulated time in which five reports of 1 KiB come in each second and none is sent, with a bound of
4 MiB. Contents do not compress. Once the bound is reached, each save drops the oldest reports.

T
    rm -f -- "$data"/db_reports*
    "$build/tools/set-config" "$data/config/config.def" db_max_size=4194304 processor.dispatching_time=03:00
    on this "$bench/store_calls" overload $rate >"$scratch/overload"
    sqlite3 -readonly -separator $'\t' "$data/db_reports" "SELECT saved, dropped_space, refused, (SELECT total(count) FROM reports),
        saved - removed - dropped_space - dropped_age - (SELECT total(count) FROM reports) FROM accounts" |
        awk -F '\t' -v OFS='\t' -v journal="$(stat -c %s "$data/db_reports-journal")" -v figures="$scratch/overload" '
            { while ((getline line <figures) > 0) { split(line, f, " "); if (f[2] > most) most = f[2]; if (f[3] > longest) longest = f[3] }
              print $1, $2, $3, int($4), int($5), most, journal, sprintf("%.1f", longest / 1000) }' |
        markdown Saved Dropped Refused Stored 'Accounts: difference' 'Largest file' 'Journal' 'Longest save, ms of CPU'
    printf '\n'
    awk '{ printf "database\t%d\t%.3f\nbound\t%d\t%.3f\n", $1, $2 / 1048576, $1, 4 }' "$scratch/overload" |
        chart overload 'The database file under constant overload' 'minute' MiB
    make_device "$device"
    rm -f -- "$data"/db_reports*
}

# What bench/flash prints, which has its own medium. The page size of the script comes first.
section_flash() {
    local size
    printf '## What reaches the medium\n\nA loop device with ext4, blocks of 4 KiB, beside 10,000 reports of 1 KiB whose contents do not\n'
    printf 'compress; 200 calls of each kind. The last is the shipped page size.\n'
    for size in 512 1024 2048 4096; do
        say "flash: pages of $size"
        echo
        bench/flash "$size"
    done
}

section_device() {
    local root=build/device-root-fs installed=build/device-installed
    [[ -d $installed ]] || fail "build/device-installed is missing: run ./device.sh first"
    say 'device: sizes, and a pass under emulation'
    printf '## Size and memory on 32-bit ARM\n\n'
    dev/check-binaries $root $installed/usr/lib/libtev_reporter.so.*.*.* "$installed/$plugin/tev_reporter_main" \
        $installed/usr/bin/tev-report | awk -F '[:,] ' -v OFS='\t' '{ print $1, $2 + 0, $3 + 0 }' |
        markdown File 'Bytes after stripping' Relocations
    echo
    bench/device-memory
}
