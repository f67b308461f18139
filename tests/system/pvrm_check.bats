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

# A package whose lists are given, in a directory of the machine.
listed() { # NAME [WHAT=VALUE]...
    package "$@" "data/opt/listed/$1=$1"
}

@test "a dependency that is missing is found, and what installs it is named" {
    package lib >/dev/null
    pvrm install --dir "$BATS_TEST_TMPDIR/packages" "$(package app needs=lib)"
    rm -r "$repository"/{installed,fileindex}/lib
    run pvrm check
    assert_status 1
    assert_equal "$output" 'checked 1 entries, 1 valid , 0 invalid
app needs lib, which is not installed; pvrm install lib installs it
pvrm: found no damaged entries, no dependencies left over and 1 other problem'
    pvrm install "$BATS_TEST_TMPDIR/packages/lib_any_1.0.vrk"
    run pvrm check
    assert_status 0
}

@test "an index without an entry and an entry without an index are found, and the advice mends them" {
    pvrm install "$(package gone)"
    pvrm install "$(package bare)"
    rm -r "$repository/installed/gone" "$repository/fileindex/bare"
    run as_nobody pvrm check --dry-run
    assert_status 1
    assert_line "$repository/fileindex/gone lists files of gone, which is not installed; move it away, and pvrm install gone can replace them"
    assert_line "bare has no file index, so its files belong to no package (files: 1); move $repository/installed/bare away and install bare again"
    assert_line 'pvrm: found no damaged entries, no dependencies left over and 2 other problems'
    mv "$repository/fileindex/gone" "$repository/installed/bare" "$BATS_TEST_TMPDIR"
    pvrm install --yes "$BATS_TEST_TMPDIR"/packages/{gone,bare}_any_1.0.vrk
    run pvrm check
    assert_status 0
}

in_progress='another process is changing the repository: dependencies, indexes, links and permissions were not compared; check again when it has ended'

@test "links and permissions of a package that is being changed are not taken for findings" {
    pvrm install "$(listed foo info/link.txt='/opt/listed|foo|one' info/perm.txt='/opt/listed/foo|0750')"
    package bar "init/00-add.sh=$waiting_script" >/dev/null
    start_pvrm install "$BATS_TEST_TMPDIR/packages/bar_any_1.0.vrk"
    # As half an upgrade has it.
    rm /opt/listed/one
    chmod 700 /opt/listed/foo
    run pvrm check --dry-run
    local check_status=$status check_output=$output
    run pvrm verify foo
    local verify_status=$status verify_output=$output
    finish
    assert_status 0
    rm -r /opt/listed
    status=$check_status output=$check_output
    assert_status 1
    refute_output_has /opt/listed
    assert_output_has "$in_progress"
    status=$verify_status output=$verify_output
    assert_status 1
    refute_output_has /opt/listed
    assert_output_has 'another process is changing the repository: the links and permissions of foo were not compared; check again when it has ended'
}

@test "while another process changes the repository a dry run does not take its half for a finding" {
    pvrm install "$(package gone)"
    rm -r "$repository/installed/gone"
    package foo "init/00-add.sh=$waiting_script" >/dev/null
    start_pvrm install "$BATS_TEST_TMPDIR/packages/foo_any_1.0.vrk"
    run pvrm check --dry-run
    local during_status=$status during_output=$output
    finish
    assert_status 0
    run pvrm check --dry-run
    assert_status 1
    assert_output_has "$repository/fileindex/gone lists files of gone"
    status=$during_status output=$during_output
    assert_status 1
    refute_output_has 'fileindex/gone'
    assert_output_has "$in_progress"
    assert_output_has 'pvrm: found no damaged entries, no dependencies left over and 1 other problem'
}

@test "links and permissions that are not as listed are found, and nothing is changed" {
    pvrm install "$(listed foo info/link.txt='/opt/listed|foo|one
|foo|two
|foo|three' info/perm.txt='/opt/listed/foo|0750')"
    run pvrm check
    assert_status 0
    rm /opt/listed/one
    ln -sfn elsewhere /opt/listed/two
    rm /opt/listed/three
    mkdir /opt/listed/three
    chmod 777 /opt/listed/foo
    run pvrm check
    assert_status 1
    assert_equal "$output" 'checked 1 entries, 1 valid , 0 invalid
the link /opt/listed/one of foo is missing; make it again by ln -s, it points to foo
in the place of the link /opt/listed/three of foo is a directory; move it away and make the link by ln -s, it points to foo
the link /opt/listed/two of foo points to elsewhere and not to foo; make it again by ln -sfn
the mode of /opt/listed/foo of foo is 0777 and not 0750; chmod 0750 sets it again
pvrm: found no damaged entries, no dependencies left over and 4 other problems'
    run pvrm check --quiet
    assert_status 1
    assert_line 'the mode of /opt/listed/foo of foo is 0777 and not 0750; chmod 0750 sets it again'
    [[ ! -e /opt/listed/one && -d /opt/listed/three ]]
    assert_equal "$(stat -c %a /opt/listed/foo)" 777
    rm -r /opt/listed
}

@test "a link in a directory that is a link itself is found where it is" {
    mkdir -p /opt/real
    ln -sfn real /opt/alias
    pvrm install "$(package foo info/link.txt='/opt/alias/../alias|t|one')"
    run pvrm check
    assert_status 0
    rm /opt/real/one
    run pvrm check
    assert_status 1
    assert_line 'the link /opt/real/one of foo is missing; make it again by ln -s, it points to t'
    rm -r /opt/alias /opt/real
}

@test "links that an earlier version made are found until nobody needs to know" {
    pvrm install "$(listed foo info/link.txt='/opt/listed|foo|old
|foo|other')"
    run pvrm upgrade "$(listed foo version=2.0 info/link.txt='/opt/listed|foo|new')"
    assert_status 0
    local left='is left from an earlier version of foo; remove it if nothing needs it'
    run as_nobody pvrm check --dry-run
    assert_status 1
    assert_line "the link /opt/listed/old to foo $left"
    assert_line "the link /opt/listed/other to foo $left"
    assert_line 'pvrm: found no damaged entries, no dependencies left over and 2 other problems'
    rm /opt/listed/other
    pvrm upgrade "$(listed foo version=3.0 info/link.txt='/opt/listed|foo|old')"
    run pvrm check
    assert_status 1
    refute_output_has /opt/listed/old
    assert_line "the link /opt/listed/new to foo $left"
    pvrm remove --yes foo
    run pvrm check
    assert_status 1
    assert_line 'the link /opt/listed/new to foo is left from foo, which is not installed any more; remove it if nothing needs it'
    rm /opt/listed/new
    run pvrm check
    assert_status 0
    rm -r /opt/listed
}

@test "a link that another package lists is not left over" {
    mkdir -p /opt/listed
    pvrm install "$(package one info/link.txt='/opt/listed|t|shared')"
    pvrm install "$(package two info/link.txt='/opt/listed|t|shared')"
    pvrm upgrade "$(package one version=2.0)"
    run pvrm check
    assert_status 0
    pvrm upgrade "$(package two version=2.0)"
    run pvrm check
    assert_status 1
    assert_output_has 'the link /opt/listed/shared to t is left from an earlier version of one'
    rm -r /opt/listed
}

@test "the lists of an entry that somebody damaged are named line by line" {
    pvrm install "$(package foo)"
    printf 'here|t|a\n/srv|t|..\n/srv|\e[31mt|b\n' >"$repository/installed/foo/link.txt"
    printf '/srv|rwx\n../x|644\n' >"$repository/installed/foo/perm.txt"
    run pvrm check
    assert_status 1
    local entry=$repository/installed/foo
    assert_line "$entry/link.txt, line 1, can't be compared: it has no absolute directory"
    assert_line "$entry/link.txt, line 2, can't be compared: its name is not one that a link can have"
    assert_line 'the link /srv/b of foo is missing; make it again by ln -s, it points to \x1B[31mt'
    assert_line "$entry/perm.txt, line 1, can't be compared: its mode is not an octal number"
    assert_line "$entry/perm.txt, line 2, can't be compared: its path is not absolute"
}
