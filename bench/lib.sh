# shellcheck shell=bash disable=SC2154  # scratch and log_directory are the caller's
# What the measurements of this machine share: a device and a collector in the directory `scratch`, which the
# caller makes and removes, sending passes, and the bare program to compare them with. To be sourced by bash
# scripts in the root of the tree, after dev/lib.sh.

readonly build=$PWD/build/release device=$scratch/device url=https://127.0.0.1
readonly data=$device/opt/data/dpm/dplugins/tev-reporter-plugin
readonly skip=LD_PRELOAD=$scratch/libskip_pauses.so

# prepare [TARGET ...]: builds what every measurement needs, and the targets. Then there is a collector on
# `port`, and a device whose agent sends to it what is stored, at once and without a bound.
prepare() {
    dev/install-packages build test bench
    build_preset release tev_reporter_main collector bare_post skip_pauses "$@"
    # The loader splits its list at blanks, which the path of the tree may have.
    cp -- "$build/tools/libskip_pauses.so" "$scratch"
    tools/make-pki "$scratch/pki" >/dev/null
    "$build/tools/collector/collector" --port-file "$scratch/port" --ca "$scratch/pki/ca.pem" \
        --cert "$scratch/pki/server.pem" --key "$scratch/pki/server.key" >"$scratch/requests" &

    cmake --install "$build" --prefix "$device" >/dev/null
    install -D -m 644 "$scratch/pki/ca.pem" "$device/opt/data/cert/vdca.pem"
    install -D -m 600 "$scratch/pki/client.key" "$device/platform/secure_storage/reporter-key"
    install -D -m 644 "$scratch/pki/client.pem" "$device/platform/secure_storage/reporter-crt"
    install -m 644 tools/vconf.json tools/system_info.json "$device/platform"
    until [[ -s $scratch/port ]]; do sleep 0.05; done
    port=$(<"$scratch/port")
    sed -i "s|https://reports.example.com|$url|; s|\"443\"|\"$port\"|; s|\"03:00\"|\"0\"|; s|3600,|0,|; \
        s|\"db_max_size\": [0-9]*|\"db_max_size\": 0|" "$data/config/config.def"
}

# save COUNT: reports of 1 KiB; needs the target report-source.
save() {
    seq "$1" | awk '{ printf "{\"module\":%d,\"type\":1,\"size\":1024,\"seed\":%d}\n", $1 % 7, $1 }' |
        env "$skip" tools/device-root "$device" \
            "$build/tools/report_source/report-source" --quiet >"$scratch/saved" 2>&1 ||
        { tail "$scratch/saved" >&2; exit 1; }
}

# pass FORMAT LOG [VARIABLE=VALUE ...]: one sending pass, timed as FORMAT says.
pass() {
    local format=$1 log=$2
    shift 2
    tools/device-root "$device" env "$@" /usr/bin/time -o "$scratch/time" -f "$format" \
        "$build/processor/tev_reporter_main" 2>"$log"
    cat "$scratch/time"
}

# bare_peak COUNT: peak memory, in KiB, of the bare program that posts as much as the largest of the last COUNT
# requests; of all with +1.
bare_peak() {
    local bytes
    bytes=$(tail -n "$1" "$scratch/requests" | grep -o 'bytes=[0-9]*' | cut -d= -f2 | sort -n | tail -n 1)
    head -c "$bytes" /dev/zero | tr '\0' x >"$scratch/body"
    /usr/bin/time -f %M "$build/bench/bare_post" "$url:$port/other" "$scratch/pki" "$scratch/body" 2>&1 >/dev/null
}
