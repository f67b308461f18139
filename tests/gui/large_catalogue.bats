#!/usr/bin/env bats
# A catalogue of 60,000 packages: the search, the table and a selection of all of it. The figures are
# printed.

load window
load table
load scripted_tool

# Makes a catalogue of that many packages.
offer_many() { # COUNT
    awk -v count="$1" 'BEGIN {
        for (i = 0; i < count; i++) {
            printf "package%05d|%s|1.%05d|1|Package number %05d of a large catalogue|||\n",
                i, i % 7 ? "" : "small", i, i
        }
    }' >"$repository/catalogue.txt"
}

milliseconds() {
    echo $(($(date +%s%N) / 1000000))
}

# What the program has taken of a processor till now, in milliseconds: user and system time.
processor_time() {
    awk -v ticks="$(getconf CLK_TCK)" '
        { sub(/.*\) /, ""); print int(($12 + $13) * 1000 / ticks) }' "/proc/$window_pid/stat"
}

# The sanitizers slow the program down by far more than what can be felt. What takes a step for each
# pair of packages would take minutes.
processor_limit=1000
[[ ${TESTS_SANITIZED-} != 1 ]] || processor_limit=10000

# Does something and waits for what shows that it is done. Prints how long both took, most of which is
# the looking, and how much of it the program computed. Only that is limited closely, as other work on
# the machine doesn't lengthen it; what takes a minute has got stuck.
measure() { # WHAT COMMAND... -- CONDITION...
    local what=$1 command=() start took=0 processor
    shift
    while [[ $1 != -- ]]; do
        command+=("$1")
        shift
    done
    shift
    processor=$(processor_time)
    start=$(milliseconds)
    "${command[@]}"
    until "$@"; do
        took=$(($(milliseconds) - start))
        ((took < 60000)) || {
            echo "$what is not done after $took ms" >&2
            return 1
        }
    done
    took=$(($(milliseconds) - start))
    processor=$(($(processor_time) - processor))
    echo "# $what: $took ms, of which the program computed $processor ms" >&3
    ((processor < processor_limit)) || {
        echo "for $what it computed $processor ms; less than $processor_limit are allowed" >&2
        return 1
    }
}

row_is() { # ROW RRGGBB
    [[ $(colour_at 730 $((160 + 20 * $1))) == "$2" ]]
}

table_is_empty() {
    ! row_is 0 ffffff
}

enter() {
    xdotool key Return
}

retype() { # TEXT
    click 270 112
    xdotool key ctrl+a type -- "$1"
}

click_row() { # ROW
    xdotool mousemove --window "$(window_id)" 700 $((160 + 20 * $1)) click 1
}

# A click is heeded after all that came before it, and so shows when that is done.
wheel_and_click() { # TIMES BUTTON ROW
    xdotool mousemove --window "$(window_id)" 400 300 click --repeat "$1" --delay 2 "$2"
    click_row "$3"
}

# By the slider, in one go.
drag_to_the_end() {
    xdotool mousemove --window "$(window_id)" 760 151 mousedown 1 \
        mousemove --window "$(window_id)" 760 300 mousemove --window "$(window_id)" 760 560 mouseup 1
}

click_row_with_shift() { # ROW
    xdotool keydown shift
    click_row "$1"
    xdotool keyup shift
}

@test "60000 packages are searched, shown, scrolled and selected without delay" {
    offer_many 60000
    tool_does ''
    open_screen install
    retype 'package00042'
    measure 'a search with one hit' enter -- row_is 0 ffffff
    row_is 1 f6f5f4
    retype 'no such package'
    measure 'a search without a hit' enter -- table_is_empty
    retype '*number 00*'
    measure 'a search with 1000 hits' enter -- row_is 18 ffffff
    retype 'none'
    measure 'another without a hit' enter -- table_is_empty
    retype 'package*'
    measure 'a search with 60000 hits' enter -- row_is 18 ffffff
    screenshot large-catalogue
    local top
    top=$(look_of 700x380+13+152)
    measure 'a click on a row' click_row 3 -- row_is 3 0000ff
    measure '100 turns of the wheel' wheel_and_click 100 5 5 -- row_is 5 0000ff
    [[ $(look_of 700x380+13+152) != "$top" ]]
    measure 'the way back' wheel_and_click 110 4 0 -- row_is 0 0000ff
    # What is selected is the first row, and then all that stands between it and the last one.
    measure 'the way to the end' drag_to_the_end -- row_is 0 ffffff
    screenshot large-catalogue-end
    measure 'the selection of all' click_row_with_shift 17 -- row_is 17 0000ff
    row_is 0 0000ff
    # The command line would be cut: it isn't run at all.
    measure 'a refusal of all' press_install_selected -- grep -q \
        'cannot install selected packages: the command line has [0-9]* characters' fltk-vrm.log
    words_are ''
}
