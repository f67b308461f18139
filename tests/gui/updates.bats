#!/usr/bin/env bats
# The screen of the window that offers updates, the two that make them, and the program that does
# nothing else.

load window
load table
load picture

setup_file() {
    begin_tests
    cp /usr/sbin/pvrm /usr/sbin/pvrm.whole
}

# The tool of these tests is the real one, called by a script that notes what it was told and how it
# ended.
setup() {
    clean_repository
    offer_nothing
    rm -f /tmp/calls
    cat >/usr/sbin/pvrm.new <<'END'
#!/bin/sh
status=0
pvrm.whole "$@" || status=$?
[ "$1" = allowed ] || echo "$* $status" >>/tmp/calls
exit $status
END
    chmod +x /usr/sbin/pvrm.new
    mv /usr/sbin/pvrm.new /usr/sbin/pvrm
}

teardown() {
    touch /tmp/go
    wait_until no_tool_runs
    end_living_window
}

teardown_file() {
    mv /usr/sbin/pvrm.whole /usr/sbin/pvrm
}

no_tool_runs() {
    ! pgrep -f '^/bin/sh /usr/sbin/pvrm' >/dev/null
}

# Installs the first versions, and offers second ones of them.
install_with_updates() { # NAME...
    local name files=()
    for name; do
        files+=("$(package "$name")")
        offer_file "$name" version=2.0
    done
    pvrm.whole --quiet install "${files[@]}"
}

# A button is there: its border, of the theme's colour, in the middle of the upper edge.
has_button_at() { # X Y
    [[ $(colour_at "$1" "$2") == cdcdcd ]]
}

# The end of the tool, as the window shows it: "close" is active. It is drawn in the colours of the
# top row then; no letter stands at its left end.
tool_ended() {
    [[ $(colour_at 18 512) == f9f9f9 ]]
}

# The tool was called with this, ended with this status, and the window has seen that.
assert_calls() { # 'ARGUMENTS STATUS'...
    wait_until tool_ended
    assert_equal "$(cat /tmp/calls)" "$(printf '%s\n' "$@")"
}

status_line() {
    look_of 640x21+12+72
}

quit_after_question() {
    press quit
    wait_for_dialog
    xdotool key Return
    wait_for_end 0
}

@test "what has a newer version is offered, and Update All updates it, whatever is selected" {
    install_with_updates zoo foo
    pvrm.whole --quiet install "$(package bar)"
    offer_file bar
    offer_file other
    open_screen update
    assert_rows ww
    has_button_at 120 570
    has_button_at 360 570
    select_rows 1
    assert_rows wb
    screenshot updates
    press_update_all
    assert_calls 'upgrade 0'
    screenshot updated-all
    assert_equal "$(version_of foo) $(version_of zoo) $(version_of bar)" '2.0 2.0 1.0'
    assert_equal "$(cat /usr/share/foo/about /usr/share/zoo/about)" $'foo 2.0\nzoo 2.0'
    grep -q 'updated foo_any_1.0 to foo_any_2.0 as requested by user' "$repository/install.log"
    grep -q 'updated zoo_any_1.0 to zoo_any_2.0 as requested by user' "$repository/install.log"
    assert_log_has INFO 'Somebody presssed the update_all button.'
    quit_after_question
}

@test "without updates the screen has neither table nor buttons, until a refresh brings some" {
    pvrm.whole --quiet install "$(package foo)"
    offer_file foo
    open_screen update
    assert_rows ''
    ! has_button_at 120 570 || false
    ! has_button_at 360 570 || false
    # The one sentence, and the logo that a table would hide.
    [[ $(look_of 240x20+12+102) != "$(look_of 240x20+12+460)" ]]
    assert_equal "$(colour_at 330 370)" 3584e4
    screenshot updates-none
    offer_file foo version=2.0
    go_by press update
    assert_rows ''
    go_by press refresh
    go_by press update
    assert_rows w
    quit_after_question
}

@test "Update Selected updates the selected packages, in the order of the rows" {
    install_with_updates a b c
    open_screen update
    assert_rows www
    select_rows 2 0
    assert_rows bwb
    press_update_selected
    assert_calls 'upgrade a c 0'
    screenshot updated-selected
    assert_equal "$(version_of a) $(version_of b) $(version_of c)" '2.0 1.0 2.0'
    assert_log_has INFO 'Somebody presssed the update_sel button'
    go_by press update
    assert_rows w
    quit_after_question
}

@test "with nothing selected the updates are planned again" {
    install_with_updates foo
    offer_file bar version=2.0
    open_screen update
    assert_rows w
    pvrm.whole --quiet install "$(package bar)"
    press_update_selected
    assert_rows ww
    [[ ! -e /tmp/calls ]]
    assert_log_has INFO 'Somebody presssed the update_sel button'
    # So does a window that is closed.
    pvrm.whole --quiet upgrade foo
    close_by_manager
    assert_rows w
}

@test "a new dependency stands below the package that needs it, and comes along" {
    pvrm.whole --quiet install "$(package foo)"
    offer_file foo version=2.0 needs=needed
    offer_file needed
    open_screen update
    assert_rows ww
    screenshot updates-dependency
    # Both rows tell the action of the first.
    assert_equal "$(look_of 44x14+14+154)" "$(look_of 44x14+14+174)"
    # Alone it is nothing that could be updated.
    select_rows 1
    press_update_selected
    assert_calls 'upgrade needed 1'
    refute_installed needed
    go_by press update
    select_rows 0
    press_update_selected
    assert_calls 'upgrade needed 1' 'upgrade foo 0'
    assert_equal "$(version_of foo) $(version_of needed)" '2.0 1.0'
    assert_equal "$(install_type needed)" D
    quit_after_question
}

@test "an update that fails is told, and the old version stays" {
    install_with_updates bar
    pvrm.whole --quiet install "$(package foo)"
    offer_file foo version=2.0 init/99-add.sh='exit 3'
    open_screen update
    select_rows 0
    press_update_selected
    assert_calls 'upgrade bar 0'
    local success failure
    success=$(status_line)
    go_by press update
    assert_rows w
    select_rows 0
    press_update_selected
    assert_calls 'upgrade bar 0' 'upgrade foo 1'
    failure=$(status_line)
    screenshot update-failed
    [[ $failure != "$success" ]]
    assert_equal "$(version_of foo) $(cat /usr/share/foo/about)" '1.0 foo 1.0'
    grep -q 'Post-Install script ended with errors, aborting update' /var/log/pvrm.log
    ! grep -q 'updated foo' "$repository/install.log" || false
    # The same in all: what can be updated is.
    install_with_updates zoo
    go_by press refresh
    go_by press update
    assert_rows ww
    press_update_all
    assert_calls 'upgrade bar 0' 'upgrade foo 1' 'upgrade 1'
    screenshot update-all-failed
    assert_equal "$(version_of foo) $(version_of zoo)" '1.0 2.0'
    quit_after_question
}

@test "the buttons wait while the tool updates" {
    pvrm.whole --quiet install "$(package foo)" "$(package bar)"
    offer_file foo version=2.0 init/00-add.sh="$waiting_script"
    offer_file bar version=2.0 init/00-add.sh="$waiting_script"
    open_screen update
    select_rows 1
    press_update_selected
    wait_until test -e /tmp/started
    local id running button
    id=$(window_id)
    settle
    running=$(status_line)
    screenshot updating-selected
    ! tool_ended || false
    for button in list install update refresh cleanup quit; do press $button; done
    click 70 512
    assert_equal "$(window_id)" "$id"
    no_dialog
    touch /tmp/go
    assert_calls 'upgrade foo 0'
    [[ $(status_line) != "$running" ]]
    rm /tmp/go /tmp/started
    go_by press update
    assert_rows w
    press_update_all
    wait_until test -e /tmp/started
    settle
    screenshot updating-all
    ! tool_ended || false
    touch /tmp/go
    assert_calls 'upgrade foo 0' 'upgrade 0'
    quit_after_question
}

@test "closing the window updates all again, but not what was selected" {
    install_with_updates foo bar
    open_screen update
    select_rows 1
    press_update_selected
    assert_calls 'upgrade foo 0'
    close_by_manager
    screenshot updated-selected-closed
    # "No packages selected": there is no output that could be closed.
    ! tool_ended || false
    go_by press update
    press_update_all
    assert_calls 'upgrade foo 0' 'upgrade 0'
    close_by_manager
    assert_calls 'upgrade foo 0' 'upgrade 0' 'upgrade 0'
    assert_equal "$(version_of bar)" 2.0
    quit_after_question
}

@test "the program for updates alone has Quit and Update All, which it does without a question" {
    install_with_updates foo bar
    start_window fltk-vrm-update
    wait_for_window
    assert_rows ww
    screenshot updates-only
    has_button_at 70 10
    ! has_button_at 190 10 || false
    has_button_at 120 570
    ! has_button_at 360 570 || false
    local id button
    id=$(window_id)
    for button in install update refresh cleanup quit; do press $button; done
    click 360 582
    assert_equal "$(window_id)" "$id"
    press_update_all
    assert_calls 'upgrade 0'
    screenshot updated-only
    assert_equal "$(version_of foo) $(version_of bar)" '2.0 2.0'
    click 70 22 # "Quit"
    wait_for_end 0
    assert_equal "$(cat err)" 'in update_only mode'
}

@test "the program for updates alone says when there are none, and ends" {
    pvrm.whole --quiet install "$(package foo)"
    start_window fltk-vrm-update
    wait_for_dialog
    ! has_window || false
    assert_dialog updates-only-none
    xdotool key Return
    wait_for_end 0
    assert_equal "$(cat err)" "in update_only mode
vrmui_write_info (0) called with:
There are no updates available"
    [[ ! -e /tmp/calls ]]
}

@test "an update that was cut off as it was entered is offered, and made" {
    install_with_updates foo
    local inventory=$repository/installed
    cp -r "$inventory/foo" "$inventory/.foo.new"
    cp "$repository/fileindex/foo" "$repository/fileindex/.foo.new"
    mv "$inventory/foo" "$inventory/.foo.old"
    start_window fltk-vrm-update
    wait_for_window
    assert_rows w
    assert_log_has WARNING 'the update of foo was cut off while it was entered'
    # Up to here it was only looked at.
    [[ -e $inventory/.foo.old && -e $inventory/.foo.new && ! -e $inventory/foo ]]
    press_update_all
    assert_calls 'upgrade 0'
    assert_equal "$(version_of foo) $(cat /usr/share/foo/about)" '2.0 foo 2.0'
    assert_equal "$(find "$repository"/{installed,fileindex} -maxdepth 1 -name '.foo*')" ''
    click 70 22 # "Quit"
    wait_for_end 0
}
