#!/usr/bin/env bats
# The audits of the inventory, with the command line tool.

load helpers

setup_file() { begin_tests; }

setup() { clean_repository; }

# An entry as an install leaves it behind that dies before its last step.
damage() { # NAME
    mkdir -p "$repository/installed/$1/hash"
    echo 'x' >"$repository/installed/$1/hash/data.txt"
}

# lib, which came for app; app is there no more.
leave_over() {
    local packages=$BATS_TEST_TMPDIR/packages
    package lib >/dev/null
    pvrm install --dir "$packages" "$(package app needs=lib)"
    rm -r "$repository"/{installed,fileindex}/app
}

snapshot() {
    (cd "$repository" && find installed fileindex stagearea -printf '%P %y %s %T@\n' | sort)
}

@test "an inventory as it should be is no failure" {
    package lib >/dev/null
    pvrm install --dir "$BATS_TEST_TMPDIR/packages" "$(package app needs=lib)"
    run pvrm check
    assert_status 0
    assert_equal "$output" 'checked 2 entries, 2 valid , 0 invalid
pvrm: found no damaged entries and no dependencies left over'
    assert_no_lock
    run pvrm check --quiet
    assert_status 0
    assert_equal "$output" ''
}

@test "without a terminal nothing is changed, and what was found is a failure" {
    leave_over
    damage half
    before=$(snapshot)
    run pvrm check
    assert_status 1
    assert_equal "$output" 'half is not a valid package dir
pvrm: keeping the inventory'"'"'s entry half
checked 2 entries, 1 valid , 1 invalid
lib was installed as a dependency of app, but app is no longer installed
pvrm: the inventory'"'"'s entry of half is damaged, and passed over
pvrm: leaving lib as it is
pvrm: found 1 damaged entry and 1 dependency left over'
    assert_equal "$(snapshot)" "$before"
    assert_no_lock
    run pvrm check --yes
    assert_status 1
    assert_equal "$(snapshot)" "$before"
}

@test "what else needs a dependency that was left over is named" {
    leave_over
    pvrm install --dir "$BATS_TEST_TMPDIR/packages" "$(package other needs=lib)"
    run pvrm check
    assert_status 1
    assert_line 'lib is still needed by other'
    refute_output_has vrm_chkhead
}

@test "--dry-run needs no right, takes no lock and changes nothing" {
    leave_over
    damage half
    before=$(snapshot)
    rm -f /var/log/pvrm.log
    run as_nobody pvrm check --dry-run
    assert_status 1
    assert_equal "$output" 'half is not a valid package dir
checked 2 entries, 1 valid , 1 invalid
lib was installed as a dependency of app, but app is no longer installed
pvrm: the inventory'"'"'s entry of half is damaged, and passed over
pvrm: found 1 damaged entry and 1 dependency left over'
    assert_equal "$(snapshot)" "$before"
    assert_no_lock
    [[ ! -e /var/log/pvrm.log ]]
    run on_terminal 'pvrm check --dry-run' </dev/null
    assert_status 1
    refute_output_has 'Your choice'
}

@test "without a right nothing is done" {
    damage half
    run as_nobody pvrm check
    assert_status 3
    refute_output_has 'valid'
}

@test "on a terminal each damaged entry is asked about" {
    damage one
    damage two
    answer_on_terminal 'pvrm check' 'Your choice' d 'Your choice' ''
    assert_status 1
    assert_line '  k  keep entry (default)'
    assert_line '  L  Leave all entries'
    assert_line '  d  delete entry'
    assert_line '  R  Remove all entries'
    assert_line '  a  abort chkinst'
    assert_output_has "remove directory $repository/installed/one"
    assert_output_has "remove directory $repository/installed/two"
    assert_equal "$(grep -c "pvrm: removing the inventory's entry" <<<"$output")" 1
    assert_equal "$(grep -c "pvrm: keeping the inventory's entry" <<<"$output")" 1
    assert_equal "$(find "$repository/installed" -mindepth 1 -maxdepth 1 | wc -l)" 1
    assert_line 'checked 2 entries, 0 valid , 2 invalid'
}

@test "one answer removes all damaged entries, and the packages stay" {
    pvrm install "$(package foo)"
    damage one
    damage two
    damage three
    answer_on_terminal 'pvrm check' 'Your choice' R
    assert_status 1
    assert_equal "$(grep -c 'Your choice:' <<<"$output")" 1
    assert_equal "$(ls -A "$repository/installed")" foo
    run pvrm check
    assert_status 0
}

@test "on a terminal a repair is offered, and changes nothing yet" {
    leave_over
    before=$(snapshot)
    answer_on_terminal 'pvrm check' 'Your choice' ''
    assert_status 1
    assert_line 'fix install info'
    assert_line '  f  fix entry'
    assert_line '  F  Fix all entries'
    assert_line '  a  abort chkhead'
    assert_output_has 'Your choice [l]:'
    assert_output_has 'pvrm: leaving lib as it is'
    answer_on_terminal 'pvrm check' 'Your choice' F
    assert_status 1
    assert_equal "$(snapshot)" "$before"
}

@test "an abort is a failure, and what was removed is gone" {
    damage one
    damage two
    answer_on_terminal 'pvrm check' 'Your choice' d 'Your choice' a
    assert_status 1
    assert_output_has 'pvrm: the check was not finished'
    assert_equal "$(find "$repository/installed" -mindepth 1 -maxdepth 1 | wc -l)" 1
    assert_no_lock
}

@test "an interruption at a question ends it with the lock released" {
    damage one
    interrupt_on_terminal TERM 'pvrm check' 'Your choice'
    assert_status 1
    assert_output_has 'pvrm: interrupted: the check was not finished'
    [[ -e $repository/installed/one ]]
    assert_no_lock
}

@test "while another process changes the repository it ends, and the dry run does not" {
    assert_refused_beside_change check
    assert_output_has 'pvrm: found no damaged entries and no dependencies left over'
}

@test "an entry that can't be removed is told" {
    damage busy
    mkdir "$repository/installed/busy/mounted"
    mount -t tmpfs none "$repository/installed/busy/mounted"
    answer_on_terminal 'pvrm check' 'Your choice' d
    umount "$repository/installed/busy/mounted"
    assert_status 1
    assert_line "pvrm: $repository/installed/busy is not removed, or not whole"
}

@test "a missing inventory is told" {
    rm -r "$repository/installed"
    for option in '' --dry-run; do
        # shellcheck disable=SC2086
        run pvrm check $option
        assert_status 1
        assert_output_has "pvrm: there is no directory $repository/installed"
    done
}

@test "names can't steer the terminal" {
    damage $'\e[31mred'
    run pvrm check
    assert_status 1
    assert_line '\x1B[31mred is not a valid package dir'
    assert_line "pvrm: keeping the inventory's entry \\x1B[31mred"
}
