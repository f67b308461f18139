#!/usr/bin/env bats
# What each screen looks like: where its parts stand and what colours they have.
#
# The colours are those of the theme: a border is its ground with 12 hundredths of black where it is
# light and 33 where it is dark, a button has three quarters of white, and what is inactive has two
# thirds of the background, which is f6f5f4.

load window
load table
load picture
load scripted_tool

# Makes the tool print a line, wait for leave to go on, and print the others.
tool_prints() { # LINE...
    tool_does "$(
        echo "echo '$1'"
        echo "$wait_for_test"
        shift
        printf "echo '%s'\n" "$@"
    )"
}

# --- Parts of screens, as picture.awk is told them -------------------------------------------------

ground=eaeaea

button() { # X Y W H active|inactive
    if [[ $5 == active ]]; then
        echo "box ${*:1:4} cdcdcd cdcdcd 9c9c9c f9f9f9 $ground"
    else
        echo "box ${*:1:4} e8e7e7 e8e7e7 d8d7d6 f6f6f5 $ground"
    fi
    echo "amid $(($1 + 4)) $(($2 + 4)) $(($3 - 8)) $(($4 - 8))"
}

white_area() { # X Y W H
    echo "box $* aaaaaa e0e0e0 e0e0e0 ffffff $ground"
}

top_row() { # active|inactive
    local i
    for i in {0..5}; do button $((10 + 120 * i)) 10 120 25 "$1"; done
    echo 'empty 731 5 69 40'
}

action() {
    printf '%s\n' 'amid 10 36 250 23' 'empty 260 36 540 23'
}

status_line() {
    white_area 10 70 660 25
    echo 'left 15 74 630 17 ffffff'
}

# The parcel in the middle (340, 287) of its place, and none of it outside.
logo() {
    printf '%s\n' 'point 330 370 3584e4' 'point 350 370 1a5fb4' 'amid 10 130 660 315' \
        'empty 680 130 120 320'
}

close_button() { # active|inactive
    button 10 500 120 25 "$1"
    printf '%s\n' 'empty 0 450 800 45' 'empty 140 450 660 150'
}

# The head of a table with these columns, and the colours of its rows, "w" and "b" as in `rows`.
table() { # ROWS WIDTH...
    local x=12 y=150 width row fill
    echo 'point 400 130 a4a4a3'
    for width in "${@:2}"; do
        printf '%s\n' "point $((x + width - 6)) 132 d8d7d6" "point $((x + width - 6)) 149 a4a4a3" \
            "point $((x + width - 6)) 134 f6f5f4" "left $((x + 4)) 135 $((width - 8)) 12 f6f5f4"
        x=$((x + width))
    done
    for ((row = 0; row < ${#1}; row++)); do
        x=12
        fill=ffffff
        [[ ${1:row:1} == w ]] || fill=0000ff
        for width in "${@:2}"; do
            echo "point $((x + width - 7)) $((y + 10)) $fill"
            echo "left $((x + 4)) $((y + 3)) $((width - 10)) 14 $fill"
            x=$((x + width))
        done
        y=$((y + 20))
    done
    echo "point 300 $((y + 5)) f6f5f4"
    echo "empty 20 $((y + 1)) 700 $((540 - y))"
}

package_table() { # ROWS
    table "$1" 160 60 60 450
}

update_table() { # ROWS
    printf '%s\n' 'amid 10 101 250 23' 'empty 262 97 538 30'
    table "$1" 60 160 60 450
}

search_field() {
    white_area 120 100 300 25
    printf '%s\n' 'some 15 103 100 18' 'empty 425 97 375 30'
}

output() { # LINES
    local i
    white_area 10 100 660 345
    for ((i = 0; i < $1; i++)); do echo "left 15 $((104 + 14 * i)) 600 11 ffffff"; done
    echo "empty 15 $((104 + 14 * $1)) 600 $((335 - 14 * $1))"
}

# --- The screens ----------------------------------------------------------------------------------

idle_screen() {
    top_row active
    action
    logo
    # Where the status line would be, and where buttons would be.
    printf '%s\n' 'empty 0 65 800 32' 'empty 0 450 800 150'
}

@test "idle" {
    start_window
    wait_for_window
    assert_picture screen-idle idle_screen
}

bare_screen() {
    top_row active
    logo
    printf '%s\n' 'empty 0 36 800 90' 'empty 0 450 800 150'
}

@test "the question whether to quit, and what its refusal leaves" {
    start_window
    wait_for_window
    press quit
    wait_for_dialog
    assert_dialog screen-quit
    xdotool key Escape
    wait_until no_dialog
    assert_picture screen-quit-refused bare_screen
}

# The screen of what is installed, and that of the search.
table_screen() { # ROWS
    top_row active
    action
    search_field
    package_table "$1"
    button 10 570 220 25 active
    printf '%s\n' 'empty 0 62 800 32' 'empty 240 550 560 50'
}

@test "list" {
    for name in bar foo zoo; do
        pvrm install "$(package $name variant=small)" >"$BATS_TEST_TMPDIR/pvrm.out"
    done
    open_screen list
    select_rows 1
    assert_picture screen-list table_screen wbw
}

@test "search: before, with hits, with rows selected, and without a hit" {
    for name in one three two; do offer $name big 1.0 1 "The package $name" '' ''; done
    open_screen install
    assert_picture screen-search table_screen ''
    search_for 'one'
    assert_picture screen-search-hit table_screen w
    search_for '*'
    assert_picture screen-search-hits table_screen www
    select_rows 2 0
    assert_picture screen-search-selected table_screen bwb
    search_for 'none'
    assert_picture screen-search-no-hit table_screen ''
}

# The words stand in the middle of the large area, before the logo.
refresh_screen() {
    top_row active
    status_line
    close_button inactive
    printf '%s\n' 'empty 0 36 800 30' 'empty 10 110 660 20' "point 200 272 $ground" \
        'point 330 370 3584e4' 'point 350 370 1a5fb4' 'some 255 265 50 14' 'some 375 265 50 14'
}

@test "refresh, with success and without" {
    open_screen refresh
    assert_picture screen-refresh refresh_screen
    touch "$repository/catalogue.no-refresh"
    go_by press refresh
    assert_picture screen-refresh-failed refresh_screen
}

run_screen() { # TOP-ROW CLOSE LINES
    top_row "$1"
    action
    status_line
    output "$3"
    close_button "$2"
}

closed_screen() {
    top_row active
    action
    status_line
    logo
    echo 'empty 0 450 800 150'
}

@test "cleanup: running, ended, and closed" {
    tool_prints 'one' 'pvrm: two' 'three'
    open_screen cleanup
    assert_picture screen-cleanup-running run_screen active inactive 1
    touch /tmp/go
    assert_picture screen-cleanup run_screen active active 3
    click 70 512
    assert_picture screen-cleanup-closed closed_screen
}

no_names_screen() {
    top_row active
    action
    white_area 10 70 660 25
    logo
    close_button inactive
    printf '%s\n' 'amid 15 74 240 17' 'empty 262 74 390 17'
}

@test "install: running, ended, and come back with nothing selected" {
    tool_prints 'pvrm: Installing foo' 'done'
    offer foo '' 1.0 1 'The package foo' '' ''
    open_screen install
    search_and_install foo
    assert_picture screen-install-running run_screen inactive inactive 1
    touch /tmp/go
    assert_picture screen-install run_screen active active 2
    close_by_manager
    assert_picture screen-install-nothing no_names_screen
}

update_screen() { # ROWS
    top_row active
    action
    update_table "$1"
    button 10 570 220 25 active
    button 250 570 220 25 active
    printf '%s\n' 'empty 0 62 800 32' 'empty 480 550 320 50'
}

no_updates_screen() {
    top_row active
    action
    logo
    printf '%s\n' 'empty 0 62 800 32' 'amid 10 101 250 23' 'empty 262 97 538 30' \
        'empty 0 450 800 150'
}

@test "updates: none, some, and with rows selected" {
    pvrm --quiet install "$(package bar)" "$(package foo)"
    open_screen update
    assert_picture screen-updates-none no_updates_screen
    for name in bar foo; do offer $name '' 2.0 1 "The package $name" '' ''; done
    go_by press refresh
    go_by press update
    assert_picture screen-updates update_screen ww
    select_rows 1
    assert_picture screen-updates-selected update_screen wb
}

@test "update: of all and of some, running, ended, and come back with nothing selected" {
    pvrm --quiet install "$(package foo)"
    offer foo '' 2.0 1 'The package foo' '' ''
    tool_prints 'pvrm: Upgrading foo' 'two' 'done'
    open_screen update
    assert_rows w
    press_update_all
    assert_picture screen-update-all-running run_screen inactive inactive 1
    touch /tmp/go
    assert_picture screen-update-all run_screen active active 3
    rm /tmp/go
    go_by press update
    assert_rows w
    select_rows 0
    press_update_selected
    assert_picture screen-update-selected-running run_screen inactive inactive 1
    touch /tmp/go
    assert_picture screen-update-selected run_screen active active 3
    close_by_manager
    assert_picture screen-update-nothing no_names_screen
}

updates_only_screen() { # ROWS
    button 10 10 120 25 active
    update_table "$1"
    button 10 570 220 25 active
    printf '%s\n' 'empty 135 5 665 90' 'empty 0 36 800 60' 'empty 240 550 560 50'
}

updates_only_run_screen() { # QUIT CLOSE LINES
    button 10 10 120 25 "$1"
    echo 'empty 135 5 665 30'
    action
    status_line
    output "$3"
    close_button "$2"
}

@test "updates alone: offered, running, and ended" {
    pvrm --quiet install "$(package foo)"
    offer foo '' 2.0 1 'The package foo' '' ''
    tool_prints 'pvrm: Upgrading foo' 'done'
    start_window fltk-vrm-update
    wait_for_window
    assert_picture screen-updates-only updates_only_screen w
    press_update_all
    assert_picture screen-updates-only-running updates_only_run_screen inactive inactive 1
    touch /tmp/go
    assert_picture screen-updates-only-ended updates_only_run_screen active active 2
}

@test "not allowed" {
    printf '#!/bin/sh\nexit 1\n' >/usr/sbin/pvrm
    start_window
    wait_for_dialog
    assert_dialog screen-not-allowed
    xdotool key Return
    wait_for_end 1
}
