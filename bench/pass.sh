# shellcheck shell=bash disable=SC2154
# A sending pass as a whole process over mutual TLS. To be sourced by bench.sh.

# run_in_turn COUNT SIZE RUNS: lines "VERSION RUN WALL USER SYSTEM PEAK" of passes over that many reports.
run_in_turn() {
    local run version
    for ((run = 1; run <= $3; ++run)); do
        for version in "${versions[@]}"; do
            fill "$version" "$1" "$2"
            printf '%s %d %s\n' "$version" "$run" "$(pass "$version" "$bench/measure")"
        done
    done
}

# summary LABEL COUNT: cells of one row from the input's lines of run_in_turn.
summary() {
    awk -v label="$1" -v count="$2" '
        function median(list, n,    i, j, t) {
            for (i = 2; i <= n; ++i) for (j = i; j > 1 && list[j] < list[j - 1]; --j) {
                t = list[j]; list[j] = list[j - 1]; list[j - 1] = t }
            return n % 2 ? list[(n + 1) / 2] : (list[n / 2] + list[n / 2 + 1]) / 2
        }
        function of(version, column,    run, list) {
            for (run = 1; run <= runs; ++run) list[run] = value[version, run, column]
            return median(list, runs)
        }
        { runs = $2
          for (i = 3; i <= 6; ++i) value[$1, $2, i] = $i
          value[$1, $2, 7] = $4 + $5; other = other || $1 == "other" }
        END {
            printf "%s\t%d\t%.1f\t%.1f\t%.1f\t%s\t%d", label, runs, of("this", 3), of("this", 4), of("this", 5),
                count ? sprintf("%.3f", of("this", 7) / count) : "", of("this", 6)
            if (other) {
                for (run = 1; run <= runs; ++run) ratio[run] = value["this", run, 7] / value["other", run, 7]
                printf "\t%.2f\t%d\t%+d", median(ratio, runs), of("other", 6), of("this", 6) - of("other", 6)
            }
            print "" }'
}

pass_times() {
    local kind label count size runs
    local kinds=('nothing due:0:1024:15' '10 of 1 KiB:10:1024:15' '100 of 1 KiB:100:1024:9' '1,000 of 1 KiB:1000:1024:5'
        '100 of 100 KiB:100:102400:3' '1,000 of 50 bytes:1000:50:5')
    ! $full || kinds+=('10,000 of 1 KiB:10000:1024:3' '100,000 of 1 KiB:100000:1024:1')
    local titles=(Reports Runs 'Wall, ms' 'User, ms' 'System, ms' 'CPU a report, ms' 'Peak, KiB')
    [[ ${#versions[@]} == 1 ]] || titles+=("CPU, ratio to $against" "Peak of $against" 'Peak, difference')
    for kind in "${kinds[@]}"; do
        IFS=: read -r label count size runs <<<"$kind"
        say "pass: $label"
        run_in_turn "$count" "$size" "$runs" | summary "$label" "$count"
    done | markdown "${titles[@]}"
}

section_pass() {
    cat <<'T'
## A pass as a whole process

Over mutual TLS to a collector on the same machine, pauses skipped, the device in memory, where syncs take no time.
Contents do not compress. Medians; where two versions are measured, they run in turn, and the ratio is the median of
the ratios of neighbouring runs. Of 100 KiB each, the server is asked for the hashes first.

T
    pass_times
    printf '\n### With its pauses\n\n'
    say 'pass: 100 reports with real pauses'
    fill this 100 1024
    local wall pauses
    wall=$(pass this env -u LD_PRELOAD "$bench/measure" | cut -d ' ' -f 1)
    pauses=$(grep -c 'slow down' "$scratch/log")
    awk -v wall="$wall" -v pauses="$pauses" 'BEGIN { sum = pauses * 150
        printf "100 reports of 1 KiB: %.2f s of wall time, %d pauses of 150 ms are %.2f s, so %.2f s or %.1f %% above.\n",
            wall / 1000, pauses, sum / 1000, (wall - sum) / 1000, 100 * (wall / sum - 1) }'
}

# Whose work a sample is: the first of these that is anywhere on its stack.
section_cpu() {
    say 'cpu: where 1,000 reports spend it'
    cat <<'T'
## Processor time by purpose

1,000 reports of 1 KiB, pauses skipped, stacks sampled 5,000 times a second of CPU. A sample belongs to the first row
that is on its stack, so a log record counts as one wherever it is written. A record looks into `/proc` for the
resident memory. Full collections of Lua's garbage are apart from the script that they follow. Sampling
costs time itself, so the shares count.

T
    fill this 1000 1024
    if ! perf record -q -e cpu-clock -o /dev/null true 2>"$scratch/log"; then
        printf 'Not measured: perf may not sample here.\n'
        return
    fi
    pass this perf record -q -e cpu-clock -F 5000 --call-graph dwarf,8192 -o "$scratch/perf.data" >&2
    perf script --no-inline -i "$scratch/perf.data" -F ip,sym,dso 2>/dev/null | awk '
        function finish(    purpose) {
            if (leaf == "") return
            for (purpose = 1; purpose < rows && stack !~ pattern[purpose]; ++purpose) {}
            ++samples[purpose]; ++all
            if (leaf ~ /kernel/) { ++kernel[purpose]; ++all_kernel }
            leaf = stack = ""
        }
        function row(label, expression) { name[++rows] = label; pattern[rows] = expression }
        BEGIN {
            row("log records: `/proc` look", "process_mem_usage")
            row("log records: the rest", "log_record|__dlog_print|operator<<")
            row("statistics", "stats::|update_stat|add_event")
            row("Lua: full collection", "full_gc|lua_gc")
            row("script: SQLite", "libsqlite3")
            row("script: Lua and the natives", "liblua|lua_state|lua_sandbox|lua::")
            row("TLS and HTTP", "libcurl|libssl|libcrypto|transport::|http_session")
            row("JSON", "Json::|libjsoncpp|json_")
            row("start and end of the process", "ld-linux|_dl_|__libc_start|exit|execve")
            row("the rest: locks, chunks, identifiers", "")
        }
        NF == 0 { finish(); next }
        { if (leaf == "") leaf = $0; stack = stack $0 "\n" }
        END { finish()
            for (i = 1; i <= rows; ++i) printf "%s\t%.3f\t%.1f %%\t%.1f %%\n", name[i], samples[i] / 5000,
                100 * samples[i] / all, samples[i] ? 100 * kernel[i] / samples[i] : 0
            printf "**in all**\t%.3f\t100 %%\t%.1f %%\n", all / 5000, 100 * all_kernel / all }' |
        markdown Purpose 'CPU a report, ms' Share 'Of that in the kernel'
}

# trace_pass COUNT: the system calls of a pass, in $scratch/trace.
trace_pass() {
    fill this "$1" 1024
    pass this strace -f -y -s 0 -o "$scratch/trace"
}

# File by file: writes, bytes and syncs of $scratch/trace.
writes_by_file() {
    awk '!/tev-reporter-plugin/ || !/ (write|writev|pwrite64|fsync|fdatasync)\(/ { next }
        { split($0, part, /[<>]/); file = part[2]; sub(/.*\//, "", file)
          if (file == "tev-reporter-plugin") file = "the directory" }
        /sync\(/ { ++syncs[file]; writes[file] += 0; next }
        { ++writes[file]; bytes[file] += $NF }
        END { for (file in writes) printf "%s\t%d\t%d\t%d\n", file, writes[file], bytes[file], syncs[file] }' \
        "$scratch/trace" | sort
}

section_calls() {
    local count
    cat <<'T'
## System calls, and what goes to files

By strace, pauses skipped, reports of 1 KiB. Log records go to a file here and to the platform's log on a device.

T
    for count in 0 100 1000; do
        say "calls: $count reports"
        trace_pass "$count"
        awk -v count="$count" '{ sub(/^[0-9]+ +/, "") } match($0, /^[a-z_0-9]+\(/) {
            ++calls[substr($0, 1, RLENGTH - 1)]; ++calls["**in all**"] }
            END { for (call in calls) printf "%s\t%d\t%d\n", call, count, calls[call] }' "$scratch/trace"
        [[ $count != 1000 ]] || writes_by_file >"$scratch/writes"
    done | awk -F '\t' '{ value[$1, $2] = $3; names[$1] = 1 }
        END { for (name in names) printf "%s\t%d\t%d\t%d\t%.1f\n", name, value[name, 0], value[name, 100],
            value[name, 1000], (value[name, 1000] - value[name, 100]) / 900 }' | sort -t $'\t' -k 4,4nr | head -n 16 |
        markdown Call 'nothing due' '100 reports' '1,000 reports' 'a report'
    printf '\nWhat 1,000 reports write:\n\n'
    awk -F '\t' '{ printf "`%s`\t%d\t%d\t%d\t%.1f\t%d\t%.2f\n", $1, $2, $3, $4, $2 / 1000, $3 / 1000, $4 / 1000 }' \
        "$scratch/writes" |
        markdown File Writes Bytes Syncs 'Writes a report' 'Bytes a report' 'Syncs a report'
}

# stop_at NUMBER: milliseconds from the end of the pause of 150, and whether the pass ended in order. Prints nothing
# when there was no such pause.
stop_at() {
    local begin='' finished=cut line log
    fill this 10 1024
    exec {log}< <(tools/with-collector "$device" tools/device-root "$device" env "$skip" TEV_SIGNAL=15 \
        TEV_SIGNAL_AT="$1" TEV_REAL_FROM="$1" "$build/processor/tev_reporter_main" 2>&1 |
        grep --line-buffered -oE '^signal$|policy::finish$')
    while read -r -u "$log" line; do
        if [[ $line == signal ]]; then begin=${EPOCHREALTIME/[^0-9]/}; else finished=in_order; fi
    done
    exec {log}<&-
    [[ -z $begin ]] || printf '%d\t%s\t%d\n' "$1" $finished $(((${EPOCHREALTIME/[^0-9]/} - begin) / 1000 - 150))
}

section_stop() {
    local number stopped
    : >"$scratch/stops"
    for ((number = 1; ; ++number)); do
        ((number % 10)) || say "stop: at pause $number"
        stopped=$(stop_at "$number")
        [[ -n $stopped ]] || break
        printf '%s\n' "$stopped" >>"$scratch/stops"
    done
    ! grep -q $'\tcut\t' "$scratch/stops" || fail "a pass did not end in order"
    cat <<'T'
## Stop

A pass over ten reports gets SIGTERM at its first pause, then the same pass at its second, and so on. The pauses from
there on take their time, as on the device. Milliseconds from the end of that pause to the end of the process; each
pass ended in order. What the server has answered is removed first, with a pause of 150 ms for each report.

T
    sort -t $'\t' -k 3,3n "$scratch/stops" | awk -F '\t' '{ times[NR] = $3 } END {
        printf "%d pauses: gone after %d ms (median), %d ms at the latest.\n\n", NR, times[int((NR + 1) / 2)], times[NR] }'
    awk -F '\t' '{ print "SIGTERM\t" $1 "\t" $3 }' "$scratch/stops" |
        chart stop 'From the end of the pause to the end of the process' 'pause at which SIGTERM came' ms
}
