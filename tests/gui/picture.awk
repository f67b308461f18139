# Compares a picture with what it is expected to show. The first file tells what is expected, a line
# for each; the second is the picture, a line of rrggbb for each row of points. Tells the first
# difference and ends with 1.
#
#   point X Y RRGGBB                             the colour of a point
#   box X Y W H TOP SIDES BOTTOM INSIDE GROUND   borders of one point, round corners, and the ground
#                                                inside and around
#   empty X Y W H                                one colour
#   some X Y W H                                 something is drawn there
#   amid X Y W H                                 something is drawn there, in the middle
#   left X Y W H RRGGBB                          a text begins at the left, on this colour, and leaves
#                                                room at the right

FNR == NR { expected[++lines] = $0; next }
{ row[FNR - 1] = $0 }

END {
    if (!lines || !(0 in row)) complain("there is nothing to compare")
    for (i = 1; i <= lines; i++) {
        split(expected[i], e, " ")
        if (e[1] == "point") expect_point(e[2], e[3], e[4])
        else if (e[1] == "box") expect_box(e[2], e[3], e[4], e[5])
        else {
            measure(e[2], e[3], e[4], e[5], e[6])
            if (e[1] == "empty") good = !found
            else if (e[1] == "some") good = found
            else if (e[1] == "amid") good = found && is_amid(e[2], e[3], e[4], e[5])
            else if (e[1] == "left") good = found && left <= e[2] + 2 && right < e[2] + e[4] - 1
            else complain("what is " expected[i] "?")
            if (!good) complain(expected[i] ": " (found ? "it is from (" left ", " top ") to (" \
                right ", " bottom ")" : "nothing is there"))
        }
    }
}

function complain(what) {
    print what > "/dev/stderr"
    exit 1
}

function colour(x, y) {
    return substr(row[y], 6 * x + 1, 6)
}

function value(hex) {
    return 16 * index("123456789abcdef", substr(hex, 1, 1)) + \
        index("123456789abcdef", substr(hex, 2, 1))
}

# Two colours that nobody can tell apart: an average of two equal colours can come out one less.
function same(a, b,    c, difference) {
    if (a == b) return 1
    for (c = 1; c <= 5; c += 2) {
        difference = value(substr(a, c, 2)) - value(substr(b, c, 2))
        if (difference < -1 || difference > 1) return 0
    }
    return 1
}

function expect_point(x, y, wanted) {
    if (!same(colour(x, y), wanted))
        complain("the point (" x ", " y ") is " colour(x, y) " and not " wanted \
            (e[1] == "box" ? ": " expected[i] : ""))
}

function expect_box(x, y, w, h,    right, bottom) {
    right = x + w - 1
    bottom = y + h - 1
    # Not in the middle, where there is text, and before the mark of what has the focus.
    expect_point(x + 40, y, e[6])
    expect_point(x, y + int(h / 2), e[7])
    expect_point(right, y + int(h / 2), e[7])
    expect_point(x + 40, bottom, e[8])
    expect_point(x + 40, y + 1, e[9])
    expect_point(x + 40, y - 1, e[10])
    expect_point(x + 40, bottom + 1, e[10])
    expect_point(x, y, e[10])
    expect_point(right, y, e[10])
    expect_point(x, bottom, e[10])
    expect_point(right, bottom, e[10])
}

# Where something is drawn: from (left, top) to (right, bottom). The ground is the colour given, else
# that of the first point.
function measure(x, y, w, h, ground,    at, line, px, shade) {
    found = 0
    left = x + w
    right = x - 1
    if (ground == "") ground = colour(x, y)
    for (line = y; line < y + h; line++) {
        for (px = x; px < x + w; px++) {
            shade = colour(px, line)
            if (shade == ground || same(shade, ground)) continue
            if (!found) top = line
            found = 1
            bottom = line
            if (px < left) left = px
            if (px > right) right = px
        }
    }
}

# By twice what the middles are apart. Letters reach further down than up, or the other way.
function is_amid(x, y, w, h,    aside, above) {
    aside = left + right + 1 - 2 * x - w
    above = top + bottom + 1 - 2 * y - h
    return aside >= -6 && aside <= 6 && above >= -8 && above <= 8
}
