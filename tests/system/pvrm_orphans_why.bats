#!/usr/bin/env bats
# What no package needs any more, and what a package is needed for, with the command line tool.

load helpers

setup_file() { begin_tests; }

setup() { clean_repository; }

# app needs gui, which needs lib; tool needs lib.
install_some() {
    package lib >/dev/null
    package gui needs=lib >/dev/null
    pvrm install --dir "$BATS_TEST_TMPDIR/packages" "$(package app needs=gui)" \
        "$(package tool needs=lib)"
}

forget() { # NAME
    rm -r "$repository"/{installed,fileindex}/"$1"
}

@test "dependencies that are needed are no orphans" {
    install_some
    run as_nobody pvrm orphans
    assert_status 0
    assert_equal "$output" ''
}

@test "a dependency that nobody needs is an orphan, and what only it needs follows" {
    install_some
    pvrm remove --keep-deps app
    run pvrm orphans
    assert_status 0
    assert_equal "$output" gui
    pvrm remove --keep-deps gui
    run pvrm orphans
    assert_equal "$output" ''
    pvrm remove --keep-deps tool
    run pvrm orphans
    assert_equal "$output" lib
    # shellcheck disable=SC2046
    run pvrm remove $(pvrm orphans)
    assert_status 0
    assert_equal "$(ls -A "$repository/installed")" ''
}

@test "a circle that nobody else needs is listed and can be removed" {
    package one needs=two >/dev/null
    package two needs=one >/dev/null
    pvrm install --dir "$BATS_TEST_TMPDIR/packages" "$(package top needs=one)"
    run pvrm orphans
    assert_equal "$output" ''
    pvrm remove --keep-deps top
    run pvrm orphans
    assert_status 0
    assert_equal "$output" 'one
two'
    run pvrm remove one
    assert_status 0
    assert_equal "$(ls -A "$repository/installed")" ''
}

@test "a damaged entry makes the list uncertain, and that is told" {
    install_some
    pvrm remove --keep-deps app
    rm "$repository/installed/tool/inst.txt"
    run pvrm orphans
    assert_status 1
    assert_equal "$output" "pvrm: the inventory's entry of tool is damaged, and passed over
gui"
}

@test "a chain leads from what was asked for down to the package" {
    install_some
    run as_nobody pvrm why lib
    assert_status 0
    assert_equal "$output" 'tool -> lib
app -> gui -> lib'
    run pvrm why gui
    assert_equal "$output" 'app -> gui'
}

@test "what was asked for says so, also when it is needed too" {
    install_some
    run pvrm why app
    assert_status 0
    assert_equal "$output" 'app was installed explicitly'
    pvrm install "$(package base)"
    pvrm install --dir "$BATS_TEST_TMPDIR/packages" "$(package late needs=base)"
    run pvrm why base
    assert_equal "$output" 'base was installed explicitly
late -> base'
}

@test "what is left over says whose dependency it was" {
    install_some
    forget app
    forget tool
    run pvrm why gui
    assert_status 0
    assert_equal "$output" \
        'gui came as a dependency of app, and nothing that was installed explicitly needs it'
    run pvrm why lib
    assert_equal "$output" 'gui -> lib
lib came as a dependency of gui, and nothing that was installed explicitly needs it'
}

@test "what is not installed is a failure" {
    install_some
    run pvrm why nothing
    assert_status 1
    assert_equal "$output" 'pvrm: nothing is not installed'
    run pvrm why
    assert_status 2
}

@test "a repository without an inventory is told" {
    rm -r "$repository/installed"
    for word in orphans 'why x'; do
        # shellcheck disable=SC2086
        run pvrm $word
        assert_status 1
        assert_output_has "pvrm: there is no directory $repository/installed"
    done
}

@test "names can't steer the terminal" {
    run pvrm why $'\e[31mred'
    assert_status 1
    assert_equal "$output" 'pvrm: \x1B[31mred is not installed'
}
