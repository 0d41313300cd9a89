# shellcheck shell=bash disable=SC2154
# Other programs that send the same reports. To be sourced by bench.sh.

readonly header='{"ver":"1.0.0","datetime":"2026-11-24T21:05:59","config_ver":"1","DUID":"","vendor":"","manufacturer":"",
"DTV_type":"","product_type":"","sw_version_model":"","sw_version":"","platform_name":"","tizen_version":""}'
input=$scratch/input

# What the agent sends of the stored reports, one JSON object a line, and as a database for the small sender.
make_input() {
    rm -f -- "$input" "$input.db" "$scratch/taken.db"
    answers=(--store "$scratch/taken.db")
    pass this env
    answers=()
    sqlite3 -readonly "$scratch/taken.db" "SELECT json_object('SHA256', sha256, '_ID', number,
        'aggregationid', aggregationid, 'content', content, 'count', count, 'encoding', 'deflate+base64',
        'first_time', first_time, 'last_time', last_time, 'module', module, 'size', size, 'type', type, 'uid', uid)
        FROM reports" >"$input"
    {
        echo 'CREATE TABLE reports(id INTEGER PRIMARY KEY, json TEXT NOT NULL); BEGIN;'
        sed "s/'/''/g; s/.*/INSERT INTO reports(json) VALUES('&');/" "$input"
        echo 'COMMIT;'
    } | sqlite3 "$input.db"
}

run_small_sender() {
    cp -- "$input.db" "$scratch/small.db"
    # shellcheck disable=SC2016  # sh expands it
    tools/with-collector "$device" sh -c 'pki=$1 db=$2 head=$3 && shift 3 && "$@" "$0" "$TEV_COLLECTOR_URL/reports" "$pki" "$db" "$head"' \
        "$bench/small_sender" "$device/pki" "$scratch/small.db" "{\"header\":${header//$'\n'/},\"body\":[" "$bench/measure" "$@"
    [[ $(sqlite3 "$scratch/small.db" 'SELECT count(*) FROM reports') == 0 ]] || fail "the small sender left reports"
}

# syslog_ng SOURCE DONE [OPTION ...]: a life of syslog-ng with that source, which ends once the function DONE succeeds.
# Prints what `measure` does.
syslog_ng() {
    local source=$1 finished=$2 dir=$scratch/syslog-ng
    shift 2
    sed -e "s|@SOURCE@|$source|; s|@URL@|$TEV_COLLECTOR_URL/reports|; s|@PKI@|$device/pki|; s|@DIR@|$dir|" \
        -e "s|@HEAD@|{\"header\":${header//$'\n'/},\"body\":[|" bench/syslog-ng.conf >"$dir/syslog-ng.conf"
    {
        for ((waited = 0; waited < 1000; ++waited)); do
            ! "$finished" || break
            sleep 0.02
        done
        kill "$(<"$dir/pid")"
    } &
    "$bench/measure" "$@" syslog-ng --foreground --no-caps --cfgfile="$dir/syslog-ng.conf" --persist-file="$dir/persist" \
        --pidfile="$dir/pid" --control="$dir/control" 2>"$scratch/log"
    wait $!
}

has_queued() {
    syslog-ng-ctl stats --control="$scratch/syslog-ng/control" 2>/dev/null | grep -q '^dst.http;.*;queued;1000$'
}

has_sent() {
    [[ $(awk 'match($0, /status=200 codes=200\*[0-9]+/) { sum += substr($0, RSTART + 21, RLENGTH - 21) } END { print sum + 0 }' \
        "$requests") == 1000 ]]
}

# A life that fills the disk buffer while the server is away, then one that sends it, which is measured.
run_syslog_ng() {
    mkdir -p "$scratch/syslog-ng" && rm -f -- "$scratch"/syslog-ng/*
    TEV_COLLECTOR_URL=https://127.0.0.1:1 syslog_ng "file(\"$input\" flags(no-parse) follow-freq(1));" has_queued >/dev/null
    tools/with-collector "$device" bash -c '. "$0" && syslog_ng "" has_sent "$@"' "$scratch/functions" "$@"
    has_sent || fail "syslog-ng did not send all: $(reason)"
}

# on_others NAME COMMAND: one more line "NAME WALL USER SYSTEM PEAK".
on_others() { printf '%s %s\n' "$1" "$("${@:2}" | tail -n 1)"; }

run_agent() {
    fill this 1000 1024
    pass this "$bench/measure" "$@"
}

section_others() {
    local run
    dev/install-packages others >&2
    say 'others: the reports of the agent, as the others get them'
    fill this 1000 1024
    make_input
    openssl pkey -in "$device/pki/client.key" -out "$device/pki/plain.key" \
        -passin "pass:$(head -c 92 "$device/pki/client.pem" | tail -c 64)"
    { declare -p scratch device requests bench header; declare -f syslog_ng has_sent; } >"$scratch/functions"
    for ((run = 1; run <= 5; ++run)); do
        say "others: run $run of 5"
        on_others agent run_agent
        on_others small run_small_sender
        on_others syslog run_syslog_ng
        on_others bare bare
    done >"$scratch/others"
    cat <<'T'
## Beside other programs

1,000 reports of 1 KiB to the same collector over mutual TLS, the same JSON for each report; medians of five runs in
turn. The agent's pauses are skipped; the others have none. All files in memory, where syncs take no time.

T
    others_table
}

# traced NAME COMMAND ...: system calls, syncs and bytes to files of one run under strace, as cells.
count_trace() {
    awk '{ sub(/^[0-9]+ +/, "") }
        match($0, /^[a-z_0-9]+\(/) { ++calls }
        /^(fsync|fdatasync|msync)\(/ { ++syncs }
        /^(write|writev|pwrite64|pwritev)\([0-9]+<\// && !/pipe:|\/dev\/(null|pts|tty)/ { bytes += $NF }
        END { printf "%d\t%d\t%d", calls, syncs, bytes }' "$scratch/trace"
}

others_table() {
    local name trace=(strace -f -y -s 0 -o "$scratch/trace")
    local -A title=([agent]='this agent' [small]='minimal C++ program: SQLite, libcurl' [syslog]='syslog-ng 3.38: disk buffer, http()'
        [bare]='bare libcurl: one POST of 512 KiB') lacks=(
        [agent]='' [bare]='keeps nothing, reads no report'
        [small]='one code for the whole request; no bounds, gates, log, statistics, schedule, stop, hash check'
        [syslog]='one status for the whole batch; takes the key in the clear only; no count of like reports, no consent, no schedule; does not end by itself; a fixed header')
    for name in agent small syslog bare; do
        case $name in
            agent) run_agent "${trace[@]}" >/dev/null ;;
            small) run_small_sender "${trace[@]}" >/dev/null ;;
            syslog) run_syslog_ng "${trace[@]}" >/dev/null ;;
            bare) bare "${trace[@]}" >/dev/null ;;
        esac
        printf '%s' "${title[$name]}"
        for column in 2 3 4 5; do
            printf '\t%.0f' "$(awk -v name="$name" -v column=$column '$1 == name { print $column }' "$scratch/others" | median)"
        done
        printf '\t%s\t%s\n' "$(count_trace)" "${lacks[$name]}"
    done | markdown Program 'Wall, ms' 'User, ms' 'System, ms' 'Peak, KiB' 'System calls' Syncs 'Bytes to files' 'What it does not do'
}
