# shellcheck shell=bash
# Shell functions for the scripts that people start: steps with progress, failures with their reason. Bash scripts
# source it before they change the directory, as it answers --help with the comment at the script's head.

if [[ ${1-} == --help ]]; then
    awk 'NR == 1 || /^# shellcheck/ { next } !/^#/ { exit } { sub(/^# ?/, ""); print }' "$0"
    exit 0
fi

log_directory=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd)/build/logs
readonly log_directory

# Seconds between two progress lines where the output is no terminal.
readonly progress_interval=15

fail() {
    printf '%s: %s\n' "${0##*/}" "$1" >&2
    exit 1
}

# The last line of a log, cut to 100 characters; nothing of an empty one.
last_line() {
    tail -c 2000 -- "$1" 2>/dev/null | tr '\r' '\n' | grep -v '^[[:space:]]*$' | tail -n 1 | cut -c -100 || true
}

# Columns of the terminal on standard output.
terminal_width() {
    local width=0
    { read -r _ width <<<"$(stty size <&3 2>/dev/null)"; } 3<&1
    [[ ${width:-0} -gt 0 ]] || width=${COLUMNS:-80}
    echo "$width"
}

# Shows how far a step is until it is killed or the script is gone.
show_progress() {
    local text=$1 log=$2 begin=$SECONDS line
    while sleep 1 && kill -0 "$$" 2>/dev/null; do
        if [[ -t 1 ]]; then
            line="$text ... $((SECONDS - begin)) s  $(last_line "$log")"
            printf '\r\033[K%s' "${line:0:$(terminal_width)-1}"
        elif (((SECONDS - begin) % progress_interval == 0)); then
            printf '  ... %d s  %s\n' $((SECONDS - begin)) "$(last_line "$log")"
        fi
    done
}

# step TEXT COMMAND [ARG ...]: runs one step with its output in a log. A step that fails ends the script
# with the step's name, the end of its log and where the whole log is.
step() {
    local text=$1 log progress status=0 begin=$SECONDS
    shift
    mkdir -p -- "$log_directory" || fail "cannot make the directory $log_directory"
    log=$log_directory/$(tr -cs '[:alnum:]\n' '-' <<<"${text,,}").log
    printf '%s ...' "$text"
    [[ -t 1 ]] || printf '\n'
    : >"$log" || fail "cannot write $log"

    # The command stays in the foreground, so that Ctrl-C ends it.
    show_progress "$text" "$log" &
    progress=$!
    "$@" >"$log" 2>&1 </dev/null || status=$?
    kill "$progress" 2>/dev/null || true
    wait "$progress" 2>/dev/null || true

    [[ ! -t 1 ]] || printf '\r\033[K'
    if [[ $status -ne 0 ]]; then
        printf '%s: FAILED with status %d. The end of %s:\n' "$text" "$status" "$log" >&2
        tail -n 40 -- "$log" | sed 's/^/    /' >&2
        exit "$status"
    fi
    printf '%s: done in %d s\n' "$text" $((SECONDS - begin))
}

# build_preset NAME [TARGET ...]: configures and builds build/NAME; all targets when none is given.
# To be called in the root of the tree.
build_preset() {
    local preset=$1
    shift
    step "Configure $preset" cmake --preset "$preset"
    step "Build $preset" cmake --build "build/$preset" --parallel "$(nproc)" ${1:+--target "$@"}
}

# Prints $1, the consequences, where device roots are made by proot. Ends the script where they cannot be made.
check_device_root() {
    local way
    way=$(tools/device-root --way) || exit
    [[ $way != proot ]] ||
        printf 'Device roots are made by proot, as bubblewrap cannot work here: %s\n' "$1"
}

# The packages that a section of packages.txt lists, one a line.
packages_of() {
    local list
    list=$(dirname -- "${BASH_SOURCE[0]}")/../packages.txt
    grep -qx "\[$1\]" "$list" || fail "packages.txt has no section [$1]"
    awk -v wanted="[$1]" '{ sub(/#.*/, "") } /^\[/ { section = $1; next }
        NF && section == wanted { print $1 }' "$list"
}
