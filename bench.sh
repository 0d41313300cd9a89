#!/usr/bin/env bash
# Measures the agent and writes docs/figures.md with its charts; installs what is missing for that. Ten minutes at
# most, beside building.
#
#   ./bench.sh [--full] [--against REV] [SECTION ...]
#   ./bench.sh --quick [--renew]
#
#   --full          also what takes hours: large numbers of reports and, as root, the medium; the device's
#                   build under emulation needs ./device.sh before it
#   --against REV   the agent of that commit is built in build/against and measured in turn with this one
#   --quick         only counts, for CI: instructions, system calls, syncs, bytes, allocations. Fails when one is more
#                   than a tenth above bench/expected; never for a time. Writes no page
#   --renew         writes these counts to bench/expected instead
#
# A SECTION is one of: pass cpu memory calls stop others store overload fleet, and with --full flash device. A run
# replaces the sections that it measures; the others stay on the page, each with the commit at which it was measured.
# Quiet the machine first: times mean nothing beside other work.
set -euo pipefail
source "$(dirname -- "${BASH_SOURCE[0]}")/dev/lib.sh"
cd -- "$(dirname -- "${BASH_SOURCE[0]}")"

readonly usual=(pass cpu memory calls stop others store overload fleet) rare=(flash device)
full=false quick=false renew=false against='' sections=()
while [[ $# -gt 0 ]]; do
    case $1 in
        --full) full=true ;;
        --quick) quick=true ;;
        --renew) renew=true ;;
        --against)
            [[ $# -ge 2 ]] || fail "--against needs a commit"
            against=$2
            shift
            ;;
        -*) fail "there is no option $1: see --help" ;;
        *)
            [[ " ${usual[*]} ${rare[*]} " == *" $1 "* ]] || fail "there is no section $1: see --help"
            sections+=("$1")
            ;;
    esac
    shift
done
if [[ ${#sections[@]} == 0 ]]; then
    sections=("${usual[@]}")
    ! $full || sections+=("${rare[@]}")
fi

# In memory, where syncs take no time that would hide the agent's own.
scratch=$(mktemp -d -p "${TMPDIR:-/dev/shm}")
readonly scratch full against
clean_up() {
    # shellcheck disable=SC2046  # one word each
    kill $(jobs -p) 2>/dev/null || true
    rm -rf -- "$scratch"
}
trap clean_up EXIT
trap 'exit 130' INT TERM
source bench/lib.sh
source bench/pass.sh
source bench/memory.sh
source bench/others.sh
source bench/store.sh
source bench/fleet.sh
source bench/quick.sh

# Which command measured this section, at which commit and on which machine. Only two sections compare.
provenance() {
    local turn=''
    [[ -z $against || ! $1 =~ ^(pass|store)$ ]] || turn=" in turn with $against"
    # shellcheck disable=SC2016  # backticks of Markdown
    printf '*`./bench.sh %s%s`, commit %s%s%s. %s, %d cores, Linux %s, %s, `-Os`.*\n' "$($full && echo '--full ')" "$1" \
        "$(git rev-parse --short=7 HEAD)" "$(git diff --quiet HEAD -- src processor lua || echo ' with changes')" \
        "$turn" "$(awk -F ': ' '/^model name/ { print $2; exit }' /proc/cpuinfo)" "$(nproc)" "$(uname -r | cut -d - -f 1)" \
        "$(c++ --version | head -n 1)"
}

# That section as it is on the page.
section_of_page() {
    awk -v wanted="<!-- $1 -->" '/^<!-- .* -->$/ { inside = $0 == wanted } inside' docs/figures.md 2>/dev/null || true
}

write_page() {
    local name
    {
        cat bench/figures-head.md
        for name in "${usual[@]}" "${rare[@]}"; do
            if [[ -e $scratch/page/$name ]]; then
                printf '\n<!-- %s -->\n' "$name"
                cat "$scratch/page/$name"
            else
                section_of_page "$name" | sed '1s/^/\n/'
            fi
        done
    } | cat -s >"$scratch/page.md"
    cp -- "$scratch/page.md" docs/figures.md
}

check_device_root "times and system calls mean nothing under it"
targets=(measure count_heap bare_post small_sender fill_store run_script store_calls)
if $quick; then
    prepare "${targets[@]}"
    compare_counts
    exit
fi
prepare "${targets[@]}"
[[ -z $against ]] || add_version "$against"
mkdir -p "$scratch/page" docs/figures
for section in "${sections[@]}"; do
    printf '%s\n' "$section ..."
    begin=$SECONDS
    "section_$section" >"$scratch/part"
    # The heading, then where the figures come from.
    { head -n 1 "$scratch/part"; echo; provenance "$section"; tail -n +2 "$scratch/part"; } >"$scratch/page/$section"
    write_page
    printf '%s: done in %d s\n' "$section" $((SECONDS - begin))
done
printf 'Written: docs/figures.md and docs/figures/\n'
