# Draws lines "SERIES X Y", tab-separated, as an SVG. Variables: title, x_title, y_title.
BEGIN {
    FS = "\t"; width = 760; height = 340; left = 70; right = 170; top = 40; bottom = 50
    split("#0b62a4 #d1495b #2e8b57 #e08e0b #6a4c93 #555555", colour, " ")
}

{
    if (!($1 in number)) { number[$1] = ++count; name[count] = $1 }
    points[$1] = points[$1] " " $2 "," $3
    if (NR == 1) least = $2 + 0
    if ($2 + 0 < least) least = $2 + 0
    if ($2 + 0 > most) most = $2 + 0
    if ($3 + 0 > highest) highest = $3 + 0
}

function px(x) { return left + (x - least) / (most - least) * (width - left - right) }
function py(y) { return height - bottom - y / ceiling * (height - top - bottom) }
function text(x, y, anchor, what) {
    printf "<text x=\"%.0f\" y=\"%.0f\" text-anchor=\"%s\">%s</text>\n", x, y, anchor, what
}

# A round step that gives four to eight marks.
function step(range,    unit) {
    unit = 10 ^ int(log(range) / log(10) - (range < 1))
    if (range / unit < 2) return unit / 4
    if (range / unit < 5) return unit / 2
    return unit
}

END {
    if (!(highest > 0 && most > least)) { print "chart: nothing to draw" > "/dev/stderr"; exit 1 }
    unit = step(highest); ceiling = unit * int(highest / unit + 0.999999)
    printf "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %d %d\" font-family=\"sans-serif\" font-size=\"12\">\n", width, height
    printf "<rect width=\"%d\" height=\"%d\" fill=\"white\"/>\n", width, height
    text(left, 20, "start", title)
    text((left + width - right) / 2, height - 12, "middle", x_title)
    text(left, 34, "end", y_title)
    for (y = 0; y <= ceiling + unit / 2; y += unit) {
        printf "<path d=\"M%d %.1fH%d\" stroke=\"#ddd\"/>\n", left, py(y), width - right
        text(left - 6, py(y) + 4, "end", y)
    }
    unit = step(most - least)
    for (x = unit * int(least / unit + 0.999999); x <= most; x += unit) text(px(x), height - bottom + 18, "middle", x)
    for (at = 1; at <= count; ++at) {
        line = ""
        pairs = split(points[name[at]], pair, " ")
        for (i = 1; i <= pairs; ++i) { split(pair[i], xy, ","); line = line sprintf(" %.1f,%.1f", px(xy[1]), py(xy[2])) }
        shade = colour[(at - 1) % 6 + 1]
        printf "<polyline fill=\"none\" stroke=\"%s\" stroke-width=\"1.5\" points=\"%s\"/>\n", shade, substr(line, 2)
        printf "<path d=\"M%d %dh18\" stroke=\"%s\" stroke-width=\"3\"/>\n", width - right + 12, top + 18 * at, shade
        text(width - right + 36, top + 18 * at + 4, "start", name[at])
    }
    print "</svg>"
}
