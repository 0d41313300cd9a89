# shellcheck shell=bash disable=SC2154  # scratch is the caller's
# What the measurements of this machine share: a device in the directory `scratch`, which the caller makes and
# removes, sending passes beside a collector, and the bare program to compare them with. To be sourced by bash
# scripts in the root of the tree, after dev/lib.sh.

readonly build=$PWD/build/release device=$scratch/device
readonly data=$device/opt/data/dpm/dplugins/tev-reporter-plugin
readonly requests=$device/collector.log
readonly skip=LD_PRELOAD=$scratch/libskip_pauses.so

# prepare [TARGET ...]: builds what every measurement needs, and the targets, and makes the device.
prepare() {
    dev/install-packages build test bench
    build_preset release tev_reporter_main collector set-config bare_post skip_pauses "$@"
    # The loader splits its list at blanks, which the path of the tree may have.
    cp -- "$build/tools/libskip_pauses.so" "$scratch"
    make_device
}

# make_device [OPTION ...]: a device with its keys, without a bound, whose agent sends at once what is stored.
make_device() {
    tools/make-device "$@" "$device" processor.dispatching_time=0 processor.dispatching_spread=0 db_max_size=0
    mkdir -p "$device/platform/secure_storage"
    tar -xf "$device/pki/00000051.bin" -C "$device/platform/secure_storage"
}

# save COUNT: reports of 1 KiB; needs the target report-source.
save() {
    seq "$1" | awk '{ printf "{\"module\":%d,\"type\":1,\"size\":1024,\"seed\":%d}\n", $1 % 7, $1 }' |
        env "$skip" tools/device-root "$device" \
            "$build/tools/report_source/report-source" --quiet >"$scratch/saved" 2>&1 ||
        { tail "$scratch/saved" >&2; exit 1; }
}

# pass FORMAT LOG [VARIABLE=VALUE ...]: one sending pass, which must send something. Prints what FORMAT of time asks.
pass() {
    local format=$1 log=$2
    shift 2
    tools/with-collector "$device" tools/device-root "$device" env "$@" \
        /usr/bin/time -o "$scratch/time" -f "$format" "$build/processor/tev_reporter_main" 2>"$log"
    sent_something "$log"
    cat "$scratch/time"
}

sent_something() {
    grep -q ' POST /reports .* status=200 ' "$requests" || fail "the pass sent nothing: $(last_line "$1")"
}

# bare_peak COUNT: peak memory, in KiB, of the bare program that posts as much as the largest of the last COUNT
# requests of the latest pass; +1 for all of them.
bare_peak() {
    local bytes
    bytes=$(tail -n "$1" "$requests" | grep -o 'bytes=[0-9]*' | cut -d= -f2 | sort -n | tail -n 1)
    head -c "$bytes" /dev/zero | tr '\0' x >"$scratch/body"
    # shellcheck disable=SC2016  # sh expands it
    tools/with-collector "$device" sh -c '/usr/bin/time -f %M "$0" "$TEV_COLLECTOR_URL/other" "$@" 2>&1 >/dev/null' \
        "$build/bench/bare_post" "$device/pki" "$scratch/body"
}
