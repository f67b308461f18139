#!/usr/bin/env bats
# The window itself: its looks, its top row, closing and quitting.

load window

setup() {
    start_window
    wait_for_window
}

teardown() {
    end_window
}

@test "the window has its size, and the program's name as its class" {
    eval "$(xdotool getwindowgeometry --shell "$(window_id)")"
    assert_equal "$WIDTH x $HEIGHT" "800 x 600"
    [[ -n $(xdotool search --onlyvisible --class fltk-vrm) ]]
}

@test "it is drawn in the colours of the theme" {
    assert_equal "$(colour_at 700 550)" eaeaea
    # A button of the top row: filled with three quarters of white, borders of 88 and 67 hundredths.
    # The first one has the focus, so another is looked at.
    assert_equal "$(colour_at 140 15)" f9f9f9
    assert_equal "$(colour_at 190 10)" cdcdcd
    assert_equal "$(colour_at 190 34)" 9c9c9c
    assert_equal "$(colour_at 130 22)" cdcdcd
}

@test "the logo stands in the middle of its box" {
    # Of the parcel: its left and right side, left and right of the middle (340, 287).
    assert_equal "$(colour_at 330 370)" 3584e4
    assert_equal "$(colour_at 350 370)" 1a5fb4
    assert_equal "$(colour_at 5 287)" eaeaea
}

@test "without the logo's file it works all the same" {
    end_window
    mv /opt/X11/share/pixmaps/xvrm-logo.png /opt/X11/share/pixmaps/away
    start_window
    wait_for_window
    assert_equal "$(colour_at 330 370)" eaeaea
    mv /opt/X11/share/pixmaps/away /opt/X11/share/pixmaps/xvrm-logo.png
    close_by_manager
    assert_equal "$(colour_at 330 370)" 3584e4
}

@test "quit ends the program with 0 when it is confirmed" {
    press quit
    wait_for_dialog
    xdotool key Return
    wait_for_end 0
}

@test "quit that is refused leaves the window without a screen" {
    # "No action selected".
    local idle bare label=250x22+10+36
    idle=$(look_of $label)
    press quit
    wait_for_dialog
    xdotool key Escape
    wait_until no_dialog
    settle
    bare=$(look_of $label)
    [[ $bare != "$idle" ]]
    # The window manager's close then repeats the screen of before.
    close_by_manager
    assert_equal "$(look_of $label)" "$idle"
    press quit
    wait_for_dialog
    xdotool key Return
    wait_for_end 0
}

@test "closing the window by the window manager is no quit" {
    close_times 3
    kill -0 "$window_pid"
    no_dialog
}

@test "a new window opens where the old one stood" {
    local before
    xdotool windowmove --sync "$(window_id)" 40 70
    settle
    before=$(xdotool getwindowgeometry "$(window_id)" | grep Position)
    close_by_manager
    close_by_manager
    assert_equal "$(xdotool getwindowgeometry "$(window_id)" | grep Position)" "$before"
}

resident() {
    awk '/^VmRSS/ { print $2 }' "/proc/$window_pid/status"
}

@test "a long session does not grow" {
    local before after
    end_window
    # The sanitizer, where it is built in, would keep what is freed.
    export ASAN_OPTIONS=quarantine_size_mb=0:thread_local_quarantine_size_kb=0
    start_window
    wait_for_window
    close_times 5
    before=$(resident)
    close_times 25
    after=$(resident)
    # The logo alone has 256 kB in each window.
    ((after - before < 1500)) || {
        echo "it grew from $before kB to $after kB" >&2
        false
    }
}

# --- The tests' own waiting -----------------------------------------------------------------------

@test "a display that does not come to rest is a failure, and what is busy is named" {
    while :; do :; done 3>&- &
    local busy=$!
    settle_seconds=1 DISPLAY_PROCESSES+=" $busy" run settle
    kill "$busy"
    wait "$busy" || true
    assert_status 1
    assert_output_has "the window does not come to rest: "
    assert_output_has "$busy State:"
    settle
}
