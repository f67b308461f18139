#!/usr/bin/env bats
# The screens of the window that run the privileged tool, which is a script here, and the refresh of
# the catalogue.

# The text between single quotes is for other shells.
# shellcheck disable=SC2016

load window
load table
load picture
load scripted_tool

status_line() {
    look_of 640x21+12+72
}

# The middle of the logo, which the output hides.
logo_shows() {
    [[ $(colour_at 330 370) == 3584e4 ]]
}

output_shows() {
    [[ $(colour_at 330 370) == ffffff ]]
}

press_close() {
    click 70 512
}

close_button() {
    look_of 116x21+12+502
}

# Chooses the one package of the catalogue, foo, and has it installed.
install_foo() {
    offer foo '' 1.0 1 'The package foo' '' ''
    open_screen install
    search_and_install foo
}

@test "cleanup runs the tool and shows what it prints" {
    tool_does 'echo one; echo two >&2'
    open_screen cleanup
    assert_words cleanup ended
    wait_until output_shows
    screenshot cleanup
    # Letters stand in the first and the second line of the output, none in the third.
    local empty
    empty=$(look_of 100x10+14+140)
    [[ $(look_of 100x10+14+104) != "$empty" ]]
    [[ $(look_of 100x10+14+117) != "$empty" ]]
}

@test "at its end the output can be closed, and the logo shows again" {
    tool_does 'echo one'
    open_screen cleanup
    assert_words cleanup ended
    wait_for_tool
    local status
    status=$(status_line)
    output_shows
    press_close
    wait_until logo_shows
    assert_equal "$(colour_at 70 512)" eaeaea
    assert_equal "$(status_line)" "$status"
}

@test "before its end the output can't be closed" {
    tool_does "$wait_for_test"
    open_screen cleanup
    assert_words cleanup
    local inactive
    inactive=$(close_button)
    press_close
    output_shows
    touch /tmp/go
    assert_words cleanup ended
    wait_for_tool
    [[ $(close_button) != "$inactive" ]]
}

@test "the status line tells the beginning, the tool's status and the end" {
    rm -f /tmp/begun
    tool_does "${wait_for_test/\/tmp\/go/\/tmp\/begun}; echo 'pvrm: Installing a'; $wait_for_test"
    open_screen cleanup
    local beginning middle success
    beginning=$(status_line)
    screenshot status-beginning
    touch /tmp/begun
    wait_until eval "[[ \$(status_line) != '$beginning' ]]"
    middle=$(status_line)
    screenshot status-middle
    touch /tmp/go
    wait_until eval "[[ \$(status_line) != '$middle' ]]"
    success=$(status_line)
    screenshot status-success
    [[ $success != "$beginning" ]]
    tool_does 'exit 1'
    go_by press cleanup
    wait_until eval "[[ \$(status_line) != '$beginning' ]]"
    screenshot status-failure
    [[ $(status_line) != "$success" ]]
}

@test "what looks like formats of the toolkit is shown as it is" {
    tool_does "echo '@b@C1me @home 100% %s %n'"
    open_screen cleanup
    assert_words cleanup ended
    wait_for_tool
    screenshot formats
    # As a format it would be red, so that a channel would differ from the others.
    ! import -silent -window "$(window_id)" -crop 300x12+12+102 -depth 8 txt:- |
        grep -qiE '#FF0000' || false
}

@test "the buttons stay active during a cleanup, whose output comes to its end" {
    tool_does "echo one; $wait_for_test; seq 20000"
    open_screen cleanup
    assert_words cleanup
    go_by press refresh
    assert_log_has WARNING 'refreshed cat'
    go_by press list
    touch /tmp/go
    assert_words cleanup ended
}

@test "quit during a cleanup ends the program" {
    tool_does "$wait_for_test"
    open_screen cleanup
    assert_words cleanup
    press quit
    wait_for_dialog
    xdotool key Return
    wait_for_end 0
}

@test "the buttons are inactive during an install" {
    tool_does "$wait_for_test"
    install_foo
    assert_words 'install foo'
    local id
    id=$(window_id)
    for button in list install update refresh cleanup quit; do press $button; done
    assert_equal "$(window_id)" "$id"
    no_dialog
    assert_words 'install foo'
    touch /tmp/go
    assert_words 'install foo' ended
    wait_for_tool
    go_by press list
}

@test "closing the window of an install doesn't install again" {
    tool_does ''
    install_foo
    assert_words 'install foo' ended
    wait_for_tool
    close_by_manager
    screenshot no-packages-selected
    wait_for_tool
    words_are 'install foo' ended
    # The idle screen has nothing there.
    [[ $(look_of 240x20+12+72) != "$(look_of 240x20+12+460)" ]]
}

@test "a tool that prints very much is shown whole, and the window stays alive" {
    tool_does 'seq 100000'
    open_screen cleanup
    assert_words cleanup ended
    wait_for_tool
    screenshot many-lines
    go_by press list
}

@test "a tool that is away fails with the shell's message" {
    start_window
    wait_for_window
    rm /usr/sbin/pvrm
    go_by press cleanup
    wait_for_tool
    screenshot missing-tool
    output_shows
    press_close
    wait_until logo_shows
}

@test "a refresh tells of its success" {
    open_screen refresh
    assert_log_has WARNING 'refreshing cat'
    assert_log_has WARNING 'refreshed cat'
    screenshot refreshed
    # Nothing activates its "close" button.
    press_close
    [[ $(close_button) != "$(look_of 116x21+212+502)" ]]
}

@test "a refresh that fails looks otherwise" {
    open_screen refresh
    local success
    success=$(status_line)
    touch "$repository/catalogue.no-refresh"
    go_by press refresh
    screenshot refresh-failed
    [[ $(status_line) != "$success" ]]
    assert_equal "$(grep -c 'refreshing cat' fltk-vrm.log)" 2
    assert_equal "$(grep -c 'refreshed cat' fltk-vrm.log)" 1
}

@test "what a refresh brings can be searched" {
    open_screen install
    search_for foo
    assert_rows ''
    offer foo '' 1.0 1 'The package foo' '' ''
    go_by press refresh
    go_by press install
    search_for foo
    assert_rows w
}

# --- Ways in which a tool can end -----------------------------------------------------------------

# The button heeds only when the tool has ended.
output_closes() {
    press_close
    logo_shows
}

# What the status line looks like at the end of a cleanup.
end_of_cleanup() {
    go_by press cleanup
    wait_until output_closes
    status_line
}

@test "each way in which a tool ends looks otherwise" {
    start_window
    wait_for_window
    local success failure again other killed missing
    tool_does ''
    success=$(end_of_cleanup)
    tool_does 'echo one; exit 1'
    failure=$(end_of_cleanup)
    tool_does 'exit 1'
    again=$(end_of_cleanup)
    tool_does 'exit 2'
    other=$(end_of_cleanup)
    tool_does 'kill -9 $$'
    killed=$(end_of_cleanup)
    rm /usr/sbin/pvrm
    missing=$(end_of_cleanup)
    assert_equal "$again" "$failure"
    assert_equal "$(printf '%s\n' "$success" "$failure" "$other" "$killed" "$missing" | sort -u |
        wc -l)" 5
}

# Lines of the output, and "close", which is active.
ended_output() { # LINES
    local i
    for ((i = 0; i < $1; i++)); do echo "some 15 $((104 + 14 * i)) 600 11"; done
    echo "empty 15 $((104 + 14 * $1)) 600 $((310 - 14 * $1))"
    echo 'box 10 500 120 25 cdcdcd cdcdcd 9c9c9c f9f9f9 eaeaea'
}

@test "a tool that prints nothing leaves the output empty" {
    tool_does ''
    open_screen cleanup
    assert_picture silent-tool ended_output 0
}

@test "a line of 5000 characters comes in five pieces" {
    tool_does "head -c 5000 /dev/zero | tr '\0' M; echo"
    open_screen cleanup
    assert_picture long-line ended_output 5
}

# --- The window manager ---------------------------------------------------------------------------

refreshed_times() { # COUNT
    [[ $(grep -c 'refreshed cat' fltk-vrm.log) == "$1" ]]
}

@test "a window that is closed comes back with its screen, whose action is done again" {
    local label=250x22+10+36 look
    tool_does ''
    offer foo '' 1.0 1 'The package foo' '' ''
    open_screen list
    look=$(look_of $label)
    close_by_manager
    assert_equal "$(look_of $label)" "$look"
    go_by press install
    look=$(look_of $label)
    search_for foo
    assert_rows w
    close_by_manager
    assert_equal "$(look_of $label)" "$look"
    assert_rows ''
    go_by press refresh
    wait_until refreshed_times 1
    close_by_manager
    wait_until refreshed_times 2
    go_by press cleanup
    assert_words cleanup ended
    close_by_manager
    assert_words cleanup ended cleanup ended
}

# --- What a catalogue can say ---------------------------------------------------------------------

@test "texts of packages are shown as they are, and no hostile name reaches the tool" {
    local long marks text
    printf -v long '%05000d' 0
    marks=$'100% %s %n @b@C1red @home \ttab\t \xff\xfe\x80 \xe2\x82'
    for text in "$marks" "$long" '; rm -rf /' '$(touch /tmp/ran)' '--all' evil.vrk; do
        offer "$text" "$text" "$text" 1 "$text" '' ''
    done
    offer zoo "$marks" "$marks" 1 "$marks$long" '' ''
    rm -f /tmp/ran
    tool_does ''
    open_screen install
    search_for '*'
    assert_rows wwwwwww
    screenshot hostile-texts
    # One of them is enough for all to be refused.
    select_rows 0 1 2 3 4 5 6
    press_install_selected
    assert_log_has ERROR 'cannot install selected packages: <'
    grep -qF '> is not a safe package name' fltk-vrm.log
    screenshot hostile-texts-refused
    # So is what the tool would take for a package file.
    go_by press install
    search_and_install 'evil*'
    assert_log_has ERROR \
        'cannot install selected packages: <evil.vrk> would be taken for a package file'
    go_by press install
    words_are ''
    search_and_install 'zoo'
    assert_words 'install zoo' ended
    [[ ! -e /tmp/ran ]]
}
