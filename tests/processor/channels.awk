# The channels of the RF output and their frequencies, computed without the daemon's code, for
# tests/processor/subcommands_test.cpp, which reads what this prints.
#
# A section holds for each of the countries that it names, as they stand in the database.
#   channel 21 -> 474000      the centre, in kHz, that is stored with a channel
#   frequency 474000 -> 21    the channel that is stored with a frequency

# Of a plan's row: step, first and last channel, lowest and highest frequency, offset of the centre.
function plan_row(plan, row, text,    part, i) {
    split(text, part, " ")
    for (i = 1; i <= 6; ++i)
        value[plan, row, i] = part[i] + 0
    rows[plan] = row + 1
}

function in_range(c, from, to) { return c >= from && c <= to }

# The row that a channel is reckoned in: fixed ranges, so that some rows are never taken.
function row_of(plan, c) {
    if (plan == "A") {
        if (in_range(c, 10, 12)) return 2
        if (in_range(c, 28, 69)) return 3
        return 0
    }
    if (in_range(c, 5, 12)) return 2
    if (in_range(c, 13, 20)) return 3
    if (in_range(c, 21, 69)) return 5
    return 0
}

function centre(plan, c,    r) {
    r = row_of(plan, c)
    return (c - value[plan, r, 2]) * value[plan, r, 1] + value[plan, r, 4] + value[plan, r, 6]
}

function channel(plan, f,    r) {
    for (r = 0; r < rows[plan]; ++r)
        if (f >= value[plan, r, 4] && f <= value[plan, r, 5])
            return int((f - value[plan, r, 4]) / value[plan, r, 1]) + value[plan, r, 2]
    return 0
}

# Each border of each channel in both plans, with what stands beside it, and each centre: what is
# of one plan is asked for in the other, too.
function collect(plan,    r, f) {
    for (r = 0; r < rows[plan]; ++r) {
        for (f = value[plan, r, 4]; f <= value[plan, r, 5]; f += value[plan, r, 1])
            around(f)
        for (f = value[plan, r, 4] + value[plan, r, 6]; f <= value[plan, r, 5]; f += value[plan, r, 1])
            wanted[f]
        around(value[plan, r, 5])
    }
}
function around(f) { wanted[f - 1]; wanted[f]; wanted[f + 1] }

function countries(names,    n, name, k) {
    n = split(names, name, "|")
    for (k = 1; k <= n; ++k)
        print "country \"" name[k] "\""
}

function channels_of(plan, names,    c) {
    countries(names)
    for (c = 0; c <= 255; ++c)
        print "channel " c " -> " centre(plan, c)
    print ""
}

function frequencies_of(plan, names,    k) {
    countries(names)
    for (k = 1; k <= count; ++k)
        print "frequency " sorted[k] " -> " channel(plan, sorted[k])
    print ""
}

BEGIN {
    plan_row("A", 0, "7000  6  9 174000 202000 3500")
    plan_row("A", 1, "7000  9  9 202000 209000 3500")
    plan_row("A", 2, "7000 10 12 209000 223000 3500")
    plan_row("A", 3, "7000 28 69 526000 813000 3500")
    plan_row("E", 0, "7000  2  4  47000  68000 3500")
    plan_row("E", 1, "7000  3 10 118000 173875 3500")
    plan_row("E", 2, "7000  5 12 174000 229875 3500")
    plan_row("E", 3, "7000 11 20 230000 299875 3500")
    plan_row("E", 4, "8000 21 38 302000 445875 4000")
    plan_row("E", 5, "8000 21 69 470000 862000 4000")
    rows["none"] = 0

    collect("A")
    collect("E")
    # nothing, the most that three bytes hold, and what is cut when less of it is taken
    n = split("0 1 65535 65536 180000 8388607 8388608 16777215", further, " ")
    for (k = 1; k <= n; ++k)
        wanted[further[k]]
    for (f in wanted) {
        for (k = ++count; k > 1 && sorted[k - 1] + 0 > f + 0; --k)
            sorted[k] = sorted[k - 1]
        sorted[k] = f + 0
    }

    australian = "Australia|Australian|Australia 2"
    european = "France|Great Britain|Italy|Portugal|Spain|Spainland|Great Britain.|Portugal, norte"
    unknown = "Germany|Austral|australia|SPAIN|spain|Great|Great britain| Spain|S|"
    channels_of("A", australian)
    channels_of("E", european "|" unknown)
    frequencies_of("A", australian)
    frequencies_of("E", european)
    frequencies_of("none", unknown)
}
