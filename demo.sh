#!/usr/bin/env bash
# Shows one sending pass: saves some thirty reports, lets the agent send them to a collector on this machine,
# and tells what became of each. Ends with what a technician sees on that device.
#
#   ./demo.sh [--page]
#
# With --page the collector shows a page meanwhile, and goes on until Ctrl-C or the end of the input. The page's buttons
# plan its next answers; each Enter here saves reports again and lets the agent send.
#
# Everything it makes is in build/. Nothing else on the machine changes, except that missing packages are
# installed. Ctrl-C ends it and all that it started.
set -euo pipefail
source "$(dirname -- "${BASH_SOURCE[0]}")/dev/lib.sh"
cd -- "$(dirname -- "${BASH_SOURCE[0]}")"

[[ $# -eq 0 || $* == --page ]] || fail "usage: ./demo.sh [--page]"
readonly page=${1-}
readonly build=$PWD/build/release
readonly demo=$PWD/build/demo     # what this run leaves to look at
readonly device=$demo/device      # the root of the device's own paths
readonly data=$demo/data          # its data directory, a link
readonly requests=$device/collector.log
unset TEV_PLATFORM_DIR            # the device root has its own

bold='' green='' red='' plain=''
[[ ! -t 1 ]] || bold=$'\033[1m' green=$'\033[32m' red=$'\033[31m' plain=$'\033[0m'

# Where people read, even within a step, whose output goes to a log.
exec {person}>&2

stop_all() {
    trap '' INT TERM
    local jobs
    mapfile -t jobs <<<"$(jobs -p)"
    [[ -n ${jobs[0]} ]] || return 0
    { kill "${jobs[@]}" || true; wait "${jobs[@]}" || true; } 2>/dev/null
}

on_signal() {
    printf '\ndemo.sh: interrupted, ending what it started\n' >&"$person"
    exit $((128 + $1))
}

begin() {
    { mkdir -p build && : >>build/demo.lock; } 2>/dev/null || fail "cannot write in $PWD/build: whose is it?"
    exec {lock}<build/demo.lock
    flock --timeout 3 "$lock" || fail "another demo is under way in this tree"
    rm -rf -- "$demo" 2>/dev/null || fail "cannot remove $demo: whose is it?"
    trap stop_all EXIT
    trap 'on_signal 2' INT
    trap 'on_signal 15' TERM
}

make_device() {
    tools/make-device "$device" "$@" && ln -sfn device/opt/data/dpm/dplugins/tev-reporter-plugin "$data"
}

# Its log and its results, line by line, are in the demo's directory. After a failure it prints the log's end.
save() {
    tools/device-root "$device" "$build/tools/report_source/report-source" \
        <"demo/$1.ndjson" 2>"$demo/save-$1.log" | tee "$demo/saved-$1" ||
        { tail -n 20 -- "$demo/save-$1.log" && return 1; }
}

list_stored() {
    sqlite3 -bail -readonly -separator $'\t' "$data/db_reports" <demo/stored.sql >"$demo/$1.tsv"
}

# Results of the report source as: id, module, type, occurrences, size, SHA-256.
list_saved() {
    cat "$demo/saved-due" "$demo/saved-later" | awk -v OFS='\t' '
        /^counted/ { ++count[id]; next }
        !/^(saved|joined) / { exit 1 }
        { gsub(/[a-z0-9]+=/, ""); id = $2; ++count[id]; type[id] = $3 OFS $4; content[id] = $5 OFS $6 }
        END { for (id in count) print id, type[id], count[id], content[id] }' >"$demo/saved.tsv"
}

# The collector knows the contents of module 310, type 1 already. Its third answer refuses one report for good and puts
# another off; the fourth is what a proxy in between might send. It is a job of this shell, so that stop_all ends it.
start_collector() {
    local options=()
    [[ -z $page ]] || options=(--status 0 --page collector/page)
    awk -F '\t' '$2 == 310 && $3 == 1 { print $6 }' "$demo/saved.tsv" >"$demo/known"
    # shellcheck disable=SC2016  # sh expands it
    tools/with-collector --store "$demo/received.db" --known-hashes "$demo/known" \
        --answer '3 reports codes=200,200,400,503' --answer "4 reports body='<html>Busy</html>' keep=no" \
        "${options[@]}" "$device" sh -c ': >"$1"; exec sleep infinity' sh "$demo/ready" &
    local collector=$!
    until [[ -e $demo/ready ]]; do
        kill -0 "$collector" 2>/dev/null || return
        sleep 0.05
    done
}

page_address() {
    sed -n 's|^status on |http://|p' "$requests"
}

# The log has a line for each report that was read and for each pause of 150 ms; the collector's log has a line for
# each request.
run_agent() {
    local log=$demo/agent.log
    : >"$log"
    no_proxy=127.0.0.1 tools/device-root "$device" "$build/processor/tev_reporter_main" 2>>"$log" &
    local agent=$!
    while kill -0 "$agent" 2>/dev/null; do
        echo "$(grep -ac ' JSON size: ' "$log") reports read," \
            "$(grep -c ' POST ' "$requests") requests answered"
        sleep 0.5
    done
    wait "$agent" || { tail -n 20 -- "$log" && return 1; }
}

# Says why that took its time.
tell_pauses() {
    local pauses
    pauses=$(grep -ac 'slow down' "$demo/$1.log") || true
    printf '  %d.%d s of it are %d pauses of 150 ms, by which the agent spares the device\n' \
        $((pauses * 15 / 100)) $((pauses * 15 / 10 % 10)) "$pauses"
}

# The collector's lines as: number, path, bytes, entries, status, codes, plan.
list_requests() {
    awk -v OFS='\t' '$2 == "POST" {
        plan = match($0, / plan=.*/) ? substr($0, RSTART) : ""
        gsub(/ (bytes|entries|status|codes)=/, " ")
        print $1, $3, $4, $5, $6, $7, plan }' "$requests" >"$demo/requests.tsv"
}

in_account() (
    cd -- "$demo"
    sqlite3 -batch -bail "${@:2}" account.db <"$OLDPWD/demo/$1.sql"
)

account() {
    list_requests && list_stored after && in_account account -cmd "CREATE TABLE pass AS SELECT $1 AS start"
}

show() {
    in_account show | sed "s/^== .*/\n$bold&$plain/"
}

# Compares what was saved with what arrived and what is left.
judge() {
    local faults
    faults=$(sqlite3 -readonly "$demo/account.db" 'SELECT fault FROM faults')
    if [[ -n $faults ]]; then
        printf '\n%sNOT OK:%s\n%s\n' "$red" "$plain" "$faults"
        printf 'The last errors in %s:\n' "$demo/agent.log"
        grep -aE '^E/|canceled' "$demo/agent.log" | cut -c -200 | tail -n 5
        exit 1
    fi >&2
    printf '\n%sOK:%s each of %d occurrences is where it has to be. Files of this run: build/demo\n' \
        "$green" "$plain" "$(sqlite3 -readonly "$demo/account.db" 'SELECT sum(count) FROM saved')"
}

look_as_technician() {
    printf '\n%s== tev-report doctor%s\n' "$bold" "$plain"
    no_proxy=127.0.0.1 tools/device-root "$device" "$build/report_tool/tev-report" doctor
    printf '\n%s== tev-report list%s\n' "$bold" "$plain"
    tools/device-root "$device" "$build/report_tool/tev-report" list
}

# The same reports again, due at once, whenever somebody presses Enter.
go_on() {
    step "Let reports be due at once" make_device processor.dispatching_time=0 \
        sender.server_url=https://127.0.0.1 sender.server_port="$(<"$device/collector.port")"
    printf 'The page: %s\nEnter saves reports again and lets the agent send. Ctrl-C ends it.\n' "$(page_address)"
    while read -r; do
        step "Save reports that are due" save due
        step "Run the agent" run_agent
    done
}

begin
dev/install-packages build
check_device_root "all is slower, but nothing is left out"
build_preset release tev_reporter_main report-source collector set-config tev-report

# First reports are due at once; then as the configuration comes, which is in the night to come.
step "Make a device" make_device processor.dispatching_time=0
step "Save reports that are due" save due
tell_pauses save-due
step "Configure it as it comes" make_device
step "Save reports for the night" save later
tell_pauses save-later
list_stored before || fail "cannot read the store"
list_saved || fail "a report was not taken, see $demo/saved-due and saved-later"

start_collector || fail "the collector does not start"
[[ -z $page ]] || printf 'The page: %s\n' "$(page_address)"
start=$(date +%s)
step "Run the agent" run_agent
tell_pauses agent
step "Compare" account "$start"
show
judge
look_as_technician
[[ -z $page ]] || go_on
