# shellcheck shell=bash disable=SC2154
# The memory of a sending pass: its mappings, and its heap by owner. To be sourced by bench.sh.

# maps_of FILE: cells of one row from a process's smaps: resident, anonymous, and resident of files by library.
maps_of() {
    awk '
        function group(path) {
            if (path == "") return "own"
            if (path ~ /^\[(heap|stack)/) return "own"
            if (path ~ /tev_reporter|small_sender|bare_post|syslog-ng/) return "program"
            if (path ~ /libcrypto|libssl/) return "openssl"
            if (path ~ /libcurl/) return "curl"
            if (path ~ /lib(stdc\+\+|c|m|gcc_s)\.so|ld-linux/) return "runtime"
            if (path ~ /lua|sqlite|cjson/) return "script"
            return "others"
        }
        $1 ~ /^[0-9a-f]+-[0-9a-f]+$/ { at = group($6) }
        $1 == "Rss:" { resident += $2; sum[at] += $2 }
        $1 == "Anonymous:" { anonymous += $2; if (at != "own") { dirty += $2; sum[at] -= $2 } }
        END { printf "%d\t%d\t%d\t%d\t%d\t%d\t%d\t%d\t%d\t%d", resident, anonymous, sum["own"], dirty, sum["program"],
            sum["openssl"], sum["curl"], sum["script"], sum["runtime"], sum["others"] }' "$1"
}
readonly map_titles=('Resident' 'Anonymous' 'Heap, stacks' 'Data of files' 'Program' 'OpenSSL' 'libcurl'
    'Lua, SQLite' 'C and C++' 'Other libraries')

# The cells of the largest count in three runs of a command, as a short one may end between two looks.
largest_of_three() {
    local run
    for run in 1 2 3; do
        "$@" --maps "$scratch/maps" >"$scratch/measured"
        maps_of "$scratch/maps"
        echo
    done | sort -n | tail -n 1
}

pass_over() {
    fill this "$1" 1024
    pass this "$bench/measure" "${@:2}"
}

# What is beyond the bare program, from the rows of the table.
excess() {
    awk -F '\t' '
        function kib(number) { return number > 999 ? sprintf("%d,%03d", number / 1000, number % 1000) : number }
        $1 == 0 {
            printf "With nothing due, %s of the %s KiB resident are pages of files.\n", kib($3 - $4), kib($3)
        }
        /^bare/ && reports {
            printf "At %s reports the peak is %s KiB above the bare program: %s KiB more are pages of files, %s of " \
                "them of Lua and SQLite, which it does without, and %s KiB more are anonymous.\n", kib(reports),
                kib(peak - $2), kib(shared - ($3 - $4)), kib(script), kib(anonymous - $4)
        }
        { reports = $1; peak = $2; shared = $3 - $4; anonymous = $4; script = $10 }' "$1"
}

section_memory() {
    local count label previous_body=0 previous=0 body anonymous figures
    cat <<'T'
## Memory

KiB. The mappings are read from outside, over and over, while the collector takes its time to answer; the largest
count stands here. "Anonymous" is the process's own: heap and stacks, and pages of files that it has written to.
The columns after it are files' pages that other users of the same library share. Reports of 1 KiB; the rows "bare" are
a program that makes the largest of the POSTs and nothing else.

T
    answers=(--answer '* reports delay=200')
    for count in 0 10 100 1000; do
        say "memory: $count reports"
        figures=$(largest_of_three pass_over "$count")
        printf '%s\t%s\t%s\n' "$count" "$(awk '{ print $4 }' "$scratch/measured")" "$figures"
        [[ $count -ge 100 ]] || continue
        body=$(largest_body) anonymous=$(cut -f 2 <<<"$figures")
        awk -v a="$anonymous" -v b="$body" -v pa="$previous" -v pb="$previous_body" \
            'BEGIN { if (pb) printf "%.1f\n", 1024 * (a - pa) / (b - pb) }' >"$scratch/growth"
        previous=$anonymous previous_body=$body
        figures=$(largest_of_three bare)
        printf 'bare POST of %s bytes\t%s\t%s\n' "$body" "$(awk '{ print $4 }' "$scratch/measured")" "$figures"
    done >"$scratch/rows"
    markdown Reports Peak "${map_titles[@]}" <"$scratch/rows"
    printf '\nFrom 100 to 1,000 reports the largest body grows, and anonymous memory by %s bytes for each of its bytes.\n' \
        "$(<"$scratch/growth")"
    excess "$scratch/rows"
    answers=()
    heap_by_owner
}

# bare [OPTION ...]: the bare program posts as much as the latest pass at most.
bare() {
    head -c "$(largest_body)" /dev/zero | tr '\0' x >"$scratch/body"
    # shellcheck disable=SC2016  # sh expands it
    tools/with-collector "$device" sh -c '"$@" "$0" "$TEV_COLLECTOR_URL/other" '"'$device/pki' '$scratch/body'" \
        "$bench/bare_post" "$bench/measure" "$@" | tail -n 1
}

heap_by_owner() {
    local count
    cat <<'T'

### The heap by owner

KiB allocated at the moment when most was, by the library that called `malloc` or `operator new`. What the agent builds
as strings is the C++ library's where that grows them. Lua is what `luaL_newstate` allocates.

T
    for count in 0 100 1000; do
        say "memory: the heap of $count reports"
        fill this "$count" 1024
        count_heap >"$scratch/heap$count"
    done
    for count in 0 100 1000; do
        awk -v count="$count" '
            /^allocations/ { print "allocations\t" count "\t" $2; next }
            function owner() {
                if (/libtev_reporter|program/) return "the agent"
                if (/libstdc/) return "C++ library: strings, streams"
                if (/liblua5.1.so/) return "Lua"
                if (/sqlite3.so.0/) return "SQLite"
                if (/jsoncpp/) return "jsoncpp"
                if (/libcrypto|libssl/) return "OpenSSL"
                if (/libcurl/) return "libcurl"
                return "others"
            }
            { name = owner()
              sum[name] += $1; total += $1 }
            END { for (name in sum) printf "%s\t%d\t%d\n", name, count, sum[name] / 1024
                printf "**in all**\t%d\t%d\n", count, total / 1024 }' "$scratch/heap$count"
    done | awk -F '\t' '{ value[$1, $2] = $3; if (!seen[$1]++) names[++n] = $1 }
        END { for (i = 1; i <= n; ++i) printf "%s\t%d\t%d\t%d\n", names[i], value[names[i], 0], value[names[i], 100],
            value[names[i], 1000] }' | sort -t $'\t' -k 4,4nr | markdown Owner 'nothing due' '100 reports' '1,000 reports'
}

# The counts of a pass over what is stored: a line "allocations N", then bytes by owner.
count_heap() {
    cp -- "$bench/libcount_heap.so" "$scratch"
    pass this env "$skip:$scratch/libcount_heap.so" "TEV_HEAP=$scratch/heap" >&2
    cat "$scratch/heap"
}
