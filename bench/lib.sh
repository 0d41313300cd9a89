# shellcheck shell=bash disable=SC2154  # scratch is the caller's
# What the measurements share: devices in the directory `scratch`, which the caller makes and removes, sending
# passes beside a collector, medians and tables. To be sourced by bash scripts in the root of the tree, after
# dev/lib.sh.

readonly build=$PWD/build/release device=$scratch/this plugin=opt/data/dpm/dplugins/tev-reporter-plugin
readonly data=$device/$plugin requests=$device/collector.log
readonly skip=LD_PRELOAD=$scratch/libskip_pauses.so
readonly bench=$build/bench

# The versions that are measured in turn, and the build of each.
versions=(this)
declare -A built=([this]=$build)

# Progress, apart from what a section prints.
say() { printf '  %s\n' "$*" >&2; }

# prepare [TARGET ...]: builds what every measurement needs, and the targets, and makes the device.
prepare() {
    dev/install-packages build test bench
    build_preset release tev_reporter_main collector set-config skip_pauses "$@"
    # The loader splits its list at blanks, which the path of the tree may have.
    cp -- "$build/tools/libskip_pauses.so" "$scratch"
    make_device "$device"
}

# make_device [OPTION ...] DIR: a device with its keys, without a bound, whose agent sends at once what is stored.
make_device() {
    local dir=${*: -1}
    tools/make-device "$@" processor.dispatching_time=0 processor.dispatching_spread=0 db_max_size=0
    mkdir -p "$dir/platform/secure_storage"
    tar -xf "$dir/pki/00000051.bin" -C "$dir/platform/secure_storage"
}

# add_version REV: builds the agent of that commit in build/against, and makes its device.
add_version() {
    local tree=$PWD/build/against rev
    rev=$(git rev-parse --verify --quiet "$1^{commit}") || fail "there is no commit $1"
    git worktree prune
    [[ -e $tree/.git ]] || git worktree add --quiet --detach "$tree" "$rev"
    git -C "$tree" checkout --quiet --detach "$rev"
    step "Configure $1" cmake -S "$tree" -B "$tree/build/release" -G Ninja -DCMAKE_BUILD_TYPE=Release
    step "Build $1" cmake --build "$tree/build/release" --parallel "$(nproc)" --target tev_reporter_main
    built[other]=$tree/build/release
    make_device --build "${built[other]}" "$scratch/other"
    versions+=(other)
}

# The last line of the latest log that is no log record.
reason() { grep -v 'TEV_REPORTER(' "$scratch/log" | tail -n 1; }

# on VERSION COMMAND ...: in that version's device, pauses skipped.
on() {
    tools/device-root "$scratch/$1" env "$skip" "${@:2}" 2>"$scratch/log" || fail "$1: $(reason)"
}

# fill VERSION COUNT [SIZE]: that many due reports. A store that was filled so before is copied.
fill() {
    local store=$scratch/$1/$plugin kept=$scratch/filled/$*
    rm -f -- "$store"/db_reports* "$store"/stats "$store"/journal
    if [[ ! -d $kept ]]; then
        on "$1" "$bench/fill_store" "${@:2}"
        mkdir -p "$kept" && cp -- "$store"/db_reports* "$kept"
    else
        cp -- "$kept"/db_reports* "$store"
    fi
}

# pass VERSION COMMAND [ARG ...]: one sending pass over what is stored, with the agent's path at the end of COMMAND.
# Leaves no report. Pauses are skipped unless `skip` is put out of force by `env -u LD_PRELOAD`.
pass() {
    local version=$1
    shift
    tools/with-collector "${answers[@]}" "$scratch/$version" tools/device-root "$scratch/$version" env "$skip" "$@" \
        "${built[$version]}/processor/tev_reporter_main" 2>"$scratch/log"
    [[ $(sqlite3 "$scratch/$version/$plugin/db_reports" 'SELECT count(*) FROM reports') == 0 ]] ||
        fail "$version: reports are left: $(reason)"
}
answers=()

# Bytes of the largest body of the latest pass.
largest_body() {
    grep -o ' bytes=[0-9]*' "$requests" | cut -d= -f2 | sort -n | tail -n 1
}

# Of the numbers on the input, one a line.
median() {
    sort -g | awk '{ value[NR] = $1 } END { print NR % 2 ? value[(NR + 1) / 2] : (value[NR / 2] + value[NR / 2 + 1]) / 2 }'
}

# markdown TITLE ...: the input's lines of tab-separated cells as a table under these titles. Numbers get commas.
markdown() {
    {
        (IFS=$'\t' && printf '%s\n' "$*")
        cat
    } | awk -F '\t' '
        function commas(text) {
            if (text !~ /^[0-9]+$/ || length(text) < 4) return text
            return commas(substr(text, 1, length(text) - 3)) "," substr(text, length(text) - 2)
        }
        { line = "|"; for (i = 1; i <= NF; ++i) line = line " " commas($i) " |"; print line }
        NR == 1 { gsub(/[^|]+/, "---", line); print line }'
}

# chart FILE TITLE X Y: a chart of the input's lines "SERIES X Y", tab-separated, as docs/figures/FILE.svg, and the
# link to it.
chart() {
    mkdir -p docs/figures
    awk -v title="$2" -v x_title="$3" -v y_title="$4" -f bench/chart.awk >"docs/figures/$1.svg"
    printf '![%s](figures/%s.svg)\n' "$2" "$1"
}
