#!/usr/bin/env bats
# The stages between the call of the window program and its first window, and how each ends it.

load window
load picture

setup_file() {
    cp /etc/vrm.conf /etc/vrm.conf.whole
    cp /usr/sbin/pvrm /usr/sbin/pvrm.whole
    begin_tests catalogue
    cp /etc/vrm.conf /etc/vrm.conf.text
}

setup() {
    cp /etc/vrm.conf.whole /etc/vrm.conf
    cp --remove-destination /usr/sbin/pvrm.whole /usr/sbin/pvrm  # it may be running
    rm -f "$repository"/catalogue.no-*
}

teardown() {
    end_window
}

configure() { # LINE, in place of the one of its key
    sed -i "/^${1%%=*}=/d" /etc/vrm.conf
    printf '%s\n' "$1" >>/etc/vrm.conf
}

@test "without a configuration it says so and ends with 1" {
    rm /etc/vrm.conf
    start_window
    wait_for_end 1
    assert_equal "$(cat err)" "Failed to read vrm config /etc/vrm.conf"
    [[ ! -e fltk-vrm.log ]]
}

@test "the configuration is demanded before a display" {
    rm /etc/vrm.conf
    DISPLAY=:987 start_window
    wait_for_end 1
    assert_equal "$(cat err)" "Failed to read vrm config /etc/vrm.conf"
}

@test "who isn't allowed is told so, and the end is 1" {
    printf '#!/bin/sh\necho "$@" >%s\nexit 3\n' "$BATS_TEST_TMPDIR/asked" >/usr/sbin/pvrm
    start_window
    wait_for_dialog
    assert_equal "$(cat asked)" allowed
    ! has_window || false
    xdotool key Return
    wait_for_end 1
    assert_err_has "vrmui_write_info (0) called with:"
    assert_err_has "You are not authorized to install, update or remove software"
}

@test "permission is asked before the backend is loaded" {
    printf '#!/bin/sh\nexit 1\n' >/usr/sbin/pvrm
    configure vrc_backend=none.so
    start_window
    wait_for_dialog
    xdotool key Return
    wait_for_end 1
    ! grep -q backend err || false
}

@test "without its backend it ends with 2" {
    configure vrc_backend=/some/where/none.so
    start_window
    wait_for_end 2
    assert_err_has "Failed to load backend /usr/lib/vrm/none.so: "
    assert_log_has ERROR "Failed to load catalogue backend none.so!"
}

@test "the backend is loaded before the repository is opened" {
    configure vrc_backend=none.so
    sed -i '/^arch_name=/d' /etc/vrm.conf
    start_window
    wait_for_end 2
    ! grep -q 'local package inventory' fltk-vrm.log || false
}

@test "the repository is opened before the catalogue is connected to" {
    cp /etc/vrm.conf.text /etc/vrm.conf
    touch "$repository/catalogue.no-connection"
    sed -i '/^arch_name=/d' /etc/vrm.conf
    start_window
    wait_for_end 1
    assert_log_has ERROR "Failed to open local package inventory"
    ! grep -q 'connect to catalogue' fltk-vrm.log || false
}

@test "without an architecture the repository isn't opened, and the end is 1" {
    sed -i '/^arch_name=/d' /etc/vrm.conf
    start_window
    wait_for_end 1
    assert_log_has ERROR "Failed to open local package inventory"
}

@test "without a connection to the catalogue it ends with 1" {
    cp /etc/vrm.conf.text /etc/vrm.conf
    touch "$repository/catalogue.no-connection"
    start_window
    wait_for_end 1
    assert_log_has ERROR "Failed to connect to catalogue"
}

@test "a catalogue that can't be refreshed is told of, and the window opens" {
    cp /etc/vrm.conf.text /etc/vrm.conf
    touch "$repository/catalogue.no-refresh"
    start_window
    wait_for_dialog
    ! has_window || false
    assert_err_has "failed to refresh the catalogue"
    assert_dialog refresh-failed-at-start
    xdotool key Return
    wait_for_window
}

@test "a name with -update in it offers updates alone" {
    ln -s /usr/bin/fltk-vrm "$BATS_TEST_TMPDIR/my-updater"
    start_window "$BATS_TEST_TMPDIR/my-updater"
    wait_until grep -q . err
    assert_err_has "in update_only mode"
}

@test "the installed second name does" {
    start_window fltk-vrm-update
    wait_until grep -q . err
    assert_err_has "in update_only mode"
}

@test "an argument -update does not" {
    start_window fltk-vrm -update
    wait_for_window
    ! grep -q 'update_only' err || false
    press quit
    wait_for_dialog
}

@test "the log stands in the working directory, with levels up to INFO" {
    start_window
    wait_for_window
    assert_log_has INFO "executing </usr/sbin/pvrm allowed>"
    ! grep -q '\[DEBUG\]' fltk-vrm.log || false
}

@test "a change that was cut off is reported before the window" {
    # shellcheck disable=SC2016
    file=$(package cut 'init/99-add.sh=kill -9 $(cat /var/lib/vrm/lock)')
    pvrm install "$file" || true
    start_window
    wait_for_dialog
    assert_err_has "The installation of cut_any_1.0 was cut off."
    xdotool key Return
    wait_for_window
    end_window
    pvrm recover
    start_window
    wait_for_window
    ! grep -q 'cut off' err || false
}
