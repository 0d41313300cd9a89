# shellcheck shell=bash disable=SC2154
# A fleet over one night, by simulation. To be sourced by bench.sh.

# run_fleet DEVICES: lines of bench/fleet.lua.
run_fleet() {
    { cat "$data/lua/processor_extension_V1.lua"; echo "FLEET = $1"; cat bench/fleet.lua; } >"$scratch/fleet.lua"
    on this env TZ=UTC "$bench/run_script" "$scratch/fleet.lua" 2>"$scratch/fleet.log" || fail "$(last_line "$scratch/fleet.log")"
}

# chart_of SCENARIO: requests a second of each minute, from 01:00 to 10:00, a series for each spread.
chart_of() {
    awk -F '\t' -v scenario="$1" '
        $1 == "rate" && $2 == scenario { rate[$3, $4] = $5 / 60 }
        END { split("0 600 3600 14400", spread, " ")
            for (i = 1; i <= 4; ++i) for (minute = 420; minute <= 960; ++minute)
                printf "spread %d s\t%.4f\t%.4f\n", spread[i], (minute - 360) / 60, rate[spread[i], minute] }' "$scratch/fleet"
}

section_fleet() {
    say 'fleet: 100,000 devices, three nights, four spreads'
    run_fleet 100000 >"$scratch/fleet"
    cat <<'T'
## A fleet

A simulation: 100,000 devices ask the schedule of the shipped script when the reports of an evening are due
("03:00", `dispatching_spread` as given), and send in one request with their first pass from then on. A pass comes
every ten minutes, counted from the device's start. 70 of 100 devices are on all night, the others from midnight to some
time between 06:00 and 10:00 not. Three nights: a usual one; one in which the server is away from 03:00 to 05:00, where
each pass tries and the next tries again; and one in which a fifth of the devices is without power from 02:00 to 03:30,
starts within two minutes of its return, and knows the time a minute later. The mean is taken over
24 hours, the peak over a minute.

T
    local scenario title
    awk -F '\t' '$1 == "peak" {
        name = $2 == "usual" ? "usual" : $2 == "away" ? "server away" : "power cut"
        mean = $5 / 86400; peak = $4 / 60
        printf "%s\t%d\t%d\t%.1f\t%.2f\t%.0f\t%.0f\n", name, $3, $5, peak, mean, peak / mean,
            70000 / ($3 > 600 ? $3 : 600) }' "$scratch/fleet" |
        markdown Night 'Spread, s' Requests 'Peak, a second' 'Mean, a second' 'Peak to mean' 'Formula of a usual night'
    printf '\n'
    for scenario in 'usual:A usual night' 'away:The server is away from 03:00 to 05:00' \
        'cut:A fifth without power from 02:00 to 03:30'; do
        title=${scenario#*:}
        chart_of "${scenario%%:*}" | chart "fleet-${scenario%%:*}" "$title" 'hour of the day' 'requests/s'
        printf '\n'
    done
    cat <<'T'
The formula: devices that are on at night, divided by the spread or the ten minutes between passes, whichever is longer.
With a spread of four hours those that are switched on in the morning come on top. After an
outage all that were due send within ten minutes, whatever the spread. After a power cut the devices of the region send
with their second pass, as they do not know the time in the first: within the two minutes in which they start.

### Sizes

By that formula, 70 of 100 devices on. A request is a TLS handshake and a POST; traffic as of ten reports of 1 KiB, 18 KB
a request, in the peak.

T
    awk 'BEGIN {
        split("100000 1000000 10000000", size, " "); split("0 600 3600 14400", spread, " ")
        for (i = 1; i <= 3; ++i) for (j = 1; j <= 4; ++j) {
            on = 0.7 * size[i]; width = spread[j] > 600 ? spread[j] : 600; due = spread[j] > 7200 ? 7200 / spread[j] : 1
            printf "%d\t%d\t%.0f\t%.0f\t%.0f\t%.0f\n", size[i], spread[j], on / width, on / width * 18000 * 8 / 1e6, on * due / 600,
                0.2 * on * (spread[j] > 2400 ? 2400 / spread[j] : 1) / 120 } }' |
        markdown Devices 'Spread, s' 'Requests a second' 'Mbit a second' 'after two hours away' 'more, after a power cut'
}
