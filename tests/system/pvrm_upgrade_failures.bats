#!/usr/bin/env bats
# Upgrades that fail, that are interrupted, and that are killed.

load helpers

setup_file() {
    begin_tests catalogue
    # Loaded into the tool, kills it at one of the renames of the inventory's swap.
    g++ -std=c++20 -shared -fPIC -o /usr/lib/vrm/die_at_rename.so \
        "$source_dir/tests/system/backends/die_at_rename.cpp" -ldl
}

setup() {
    clean_repository
    rm -f /tmp/ran /etc/foo.conf
    pvrm --quiet install "$(package foo data/usr/share/foo/about=one data/usr/share/foo/gone=one)" \
        "$(package bar)"
    rm "$repository/install.log"
}

# Version 2.0 of foo, with other files than 1.0 and whatever is named, and 2.0 of bar.
offer_both() { # [WHAT=VALUE]...
    put_on_offer foo version=2.0 data/usr/share/foo/about=two data/usr/share/foo/new=two "$@"
    put_on_offer bar version=2.0
}

# foo is there in this version, with the files of it alone, and nothing is left of a change.
assert_foo() { # VERSION CONTENT FILE OTHER-FILE
    local here=(/usr/share/foo/about "/usr/share/foo/$3")
    assert_equal "$(version_of foo)" "$1"
    assert_equal "$(cat "${here[@]}")" "$2"$'\n'"$2"
    [[ ! -e /usr/share/foo/$4 ]]
    assert_equal "$(sort "$repository/fileindex/foo")" "$(printf '%s\n' "${here[@]}")"
    assert_equal "$(find "$repository"/{installed,fileindex} -maxdepth 1 -name '.foo*')" ''
}

assert_foo_as_before() {
    assert_foo 1.0 one gone new
    assert_equal "$(find "$repository/stagearea" -mindepth 1 -type d)" ''
}

assert_foo_is_new() { assert_foo 2.0 two new gone; }

# --- Scripts --------------------------------------------------------------------------------------

@test "the script before an upgrade fails: nothing was changed, and the others go on" {
    offer_both 'init/00-add.sh=touch /tmp/ran; exit 3'
    run pvrm upgrade foo bar
    assert_status 1
    assert_line 'pvrm: executing pre-install script for foo_any_2.0'
    assert_line 'pvrm: the script 00-add.sh of foo_any_2.0, which runs before the upgrade, failed: exit status 3'
    assert_line 'pvrm: foo was not upgraded'
    assert_line 'pvrm: upgraded to bar_any_2.0'
    refute_output_has 'pvrm: upgrading to foo_any_2.0'
    refute_output_has 'rolled back'
    assert_foo_as_before
    assert_equal "$(version_of bar)" 2.0
    assert_equal "$(history_lines)" \
        'updated bar_any_1.0 to bar_any_2.0 as requested by user'
}

@test "the script after an upgrade fails: everything is put back, and the others go on" {
    offer_both 'init/99-add.sh=cat /usr/share/foo/new; exit 3' 'init/99-cfg.sh=echo configuring'
    run pvrm upgrade foo bar
    assert_status 1
    assert_line two
    assert_line 'pvrm: the script 99-add.sh of foo_any_2.0, which runs after the upgrade, failed: exit status 3'
    assert_line 'pvrm: the upgrade to foo_any_2.0 failed, and what it had changed was rolled back'
    assert_line 'pvrm: foo was not upgraded'
    refute_output_has lost
    assert_line 'pvrm: upgraded to bar_any_2.0'
    refute_output_has configuring
    assert_foo_as_before
    assert_equal "$(version_of bar)" 2.0
}

@test "configuration that was replaced before the failure is put back" {
    pvrm --quiet upgrade "$(package foo version=1.1 conf/etc/foo.conf=shipped-1)"
    run pvrm upgrade "$(package foo version=2.0 conf/etc/foo.conf=shipped-2 'init/99-add.sh=exit 1')"
    assert_status 1
    assert_line 'pvrm: replacing unmodified config file /etc/foo.conf'
    assert_equal "$(cat /etc/foo.conf)" shipped-1
    assert_equal "$(version_of foo)" 1.1
}

@test "what can't be put back is told, and nothing else claimed" {
    offer_both 'init/99-add.sh=rm -r /usr/share/foo; echo in the way >/usr/share/foo; exit 3'
    run pvrm upgrade foo bar
    rm /usr/share/foo
    assert_status 1
    assert_line 'pvrm: /usr/share/foo/about could not be put back as it was before: restore it from a backup'
    assert_line 'pvrm: the upgrade to foo_any_2.0 failed, and not all that it had changed could be rolled back'
    assert_line 'pvrm: /usr/share/foo/about of foo was lost in the rollback'
    refute_output_has 'was rolled back'
    # What is in the way is gone, and so the next change brings it all back first.
    run pvrm upgrade bar
    assert_status 0
    assert_line 'pvrm: warning: the upgrade of foo_any_2.0 was cut off: everything is as it was before it'
    assert_line 'pvrm: upgraded to bar_any_2.0'
    assert_foo_as_before
}

@test "while it can't be put back every change is refused, until it is abandoned" {
    offer_both 'init/99-add.sh=rm -r /usr/share/foo; echo in the way >/usr/share/foo; exit 3'
    run pvrm upgrade foo
    local saved=$repository/stagearea/foo_any_2.0/keep
    for words in 'upgrade bar' 'remove bar' cleanup recover; do
        # shellcheck disable=SC2086
        run pvrm $words
        assert_status 1
        assert_line "pvrm: cannot put /usr/share/foo/about back: Not a directory; what was there is saved as $saved/1"
    done
    assert_equal "$(version_of bar)" 1.0
    run pvrm recover --abandon --yes
    assert_status 1
    assert_line 'pvrm: nothing was changed'
    rm /usr/share/foo
    mkdir /usr/share/foo
    pvrm recover
    assert_foo_as_before
}

@test "a new dependency that can't be taken back is told so, and not the package that wants it" {
    put_on_offer lib data/usr/share/foo/about=lib \
        'init/99-add.sh=rm -r /usr/share/foo; echo in the way >/usr/share/foo; exit 3'
    rm "$repository/fileindex/foo" # whose file lib may replace now
    offer_both needs=lib
    run pvrm upgrade foo
    rm /usr/share/foo
    assert_status 1
    assert_line 'pvrm: the installation of lib_any_1.0 failed, and not all that it had changed could be rolled back'
    assert_line 'pvrm: foo was not upgraded'
    refute_output_has 'was rolled back'
    refute_output_has 'the upgrade to foo'
}

@test "the scripts see the old version and the new one" {
    # shellcheck disable=SC2016
    offer_both 'init/00-add.sh=echo "before: $VRM_MODE $VRK_VERSION_OLD $VRK_VERSION_NEW $VRK_VERSION"' \
        'init/99-add.sh=echo "after: $VRM_MODE $VRK_VERSION_OLD $VRK_VERSION_NEW $VRK_VERSION"'
    run pvrm upgrade foo
    assert_status 0
    assert_line 'before: UPDATE 1.0 2.0 2.0'
    assert_line 'after: UPDATE 1.0 2.0 2.0'
}

@test "a new dependency whose script fails keeps the old version" {
    put_on_offer lib 'init/99-add.sh=exit 1'
    offer_both needs=lib
    run pvrm upgrade
    assert_status 1
    assert_line 'pvrm: the script 99-add.sh of lib_any_1.0, which runs after the installation, failed: exit status 1'
    assert_line 'pvrm: the installation of lib_any_1.0 failed, and what it had changed was rolled back'
    assert_line 'pvrm: foo was not upgraded'
    refute_installed lib
    assert_foo_as_before
    assert_equal "$(version_of bar)" 2.0
}

@test "a new dependency stays when the package that wanted it fails" {
    put_on_offer lib
    offer_both needs=lib 'init/99-add.sh=exit 1'
    run pvrm upgrade foo
    assert_status 1
    is_installed lib
    assert_foo_as_before
    assert_equal "$(install_type lib)" D
}

# --- Interruption ---------------------------------------------------------------------------------

@test "TERM during a script finishes the package and ends before the next one" {
    # By name bar comes first.
    put_on_offer bar version=2.0 "init/00-add.sh=$waiting_script"
    put_on_offer foo version=2.0 data/usr/share/foo/about=two
    start_pvrm upgrade
    kill -TERM "$tool"
    finish
    assert_status 1
    assert_line 'pvrm: upgraded to bar_any_2.0'
    assert_line 'pvrm: interrupted: foo and what follows was not upgraded'
    assert_equal "$(version_of bar)" 2.0
    assert_foo_as_before
    [[ ! -e $repository/lock ]]
}

@test "TERM ends between a new dependency and the package that wants it" {
    put_on_offer lib "init/00-add.sh=$waiting_script"
    put_on_offer foo version=2.0 needs=lib
    start_pvrm upgrade
    kill -TERM "$tool"
    finish
    assert_status 1
    assert_line 'pvrm: interrupted before foo_any_2.0'
    assert_line 'pvrm: foo was not upgraded'
    is_installed lib
    assert_foo_as_before
}

# Ctrl-C while a script of foo runs, which is followed by bar.
interrupt_script() { # SCRIPT
    put_on_offer foo version=2.0 data/usr/share/foo/about=two data/usr/share/foo/new=two \
        "init/$1=$waiting_script"
    put_on_offer bar version=2.0
    start_on_terminal 'pvrm upgrade --yes foo bar'
    wait_until has_started
    type_in $'\003'
    end_on_terminal
    assert_status 1
    assert_line 'pvrm: foo was not upgraded'
    assert_line 'pvrm: interrupted: bar and what follows was not upgraded'
    assert_foo_as_before
    assert_equal "$(version_of bar)" 1.0
    [[ ! -e $repository/lock ]]
}

@test "an interruption from the keyboard during the script before an upgrade ends all" {
    interrupt_script 00-add.sh
}

@test "an interruption from the keyboard during the script after an upgrade takes it back and ends all" {
    interrupt_script 99-add.sh
}

@test "it is refused while another process changes the repository" {
    offer_both "init/00-add.sh=$waiting_script"
    start_pvrm upgrade
    run pvrm upgrade bar
    local second_status=$status second_output=$output
    run pvrm upgrade --dry-run bar
    assert_status 0
    finish
    assert_status 0
    status=$second_status output=$second_output
    assert_status 4
    assert_output_has "pvrm: process $tool is changing the repository; try again when it has ended"
    assert_foo_is_new
    assert_equal "$(version_of bar)" 2.0
}

# --- Killed ---------------------------------------------------------------------------------------

@test "killed before it is entered: the next run brings the old version back and does it all" {
    # shellcheck disable=SC2016
    offer_both 'init/99-add.sh=[ ! -e /tmp/started ] || exit 0; touch /tmp/started; kill -9 $(cat /var/lib/vrm/lock)'
    run pvrm upgrade foo
    assert_status 137
    assert_equal "$(version_of foo)" 1.0
    assert_equal "$(pvrm owner /usr/share/foo/about)" foo
    run pvrm upgrade --dry-run foo
    assert_line 'pvrm: warning: the upgrade of foo_any_2.0 was cut off; the next change, or pvrm recover, brings everything back as it was before it'
    run pvrm upgrade foo
    assert_status 0
    assert_line 'pvrm: warning: 99-add.sh of foo_any_2.0 had begun to run, and what it did stays'
    assert_line 'pvrm: warning: the upgrade of foo_any_2.0 was cut off: everything is as it was before it'
    assert_line 'pvrm: upgraded to foo_any_2.0'
    assert_foo_is_new
}

@test "killed before it is entered: recover brings the old version back" {
    # shellcheck disable=SC2016
    offer_both 'init/99-add.sh=kill -9 $(cat /var/lib/vrm/lock)'
    run pvrm upgrade foo
    assert_status 137
    run pvrm recover --dry-run
    assert_status 0
    assert_line 'pvrm: warning: the upgrade of foo_any_2.0 was cut off; the next change, or pvrm recover, brings everything back as it was before it'
    local user
    for user in '' as_nobody; do
        run $user pvrm list
        assert_status 0
        assert_line 'pvrm: warning: the upgrade of foo_any_2.0 was cut off; the next change, or pvrm recover, repairs that'
    done
    run pvrm recover
    assert_status 0
    assert_line 'pvrm: warning: the upgrade of foo_any_2.0 was cut off: everything is as it was before it'
    assert_foo_as_before
    assert_equal "$(find "$repository"/{change,stagearea} -mindepth 1 ! -name '*.vrk')" ''
    run pvrm recover
    assert_equal "$output" 'pvrm: no change was cut off'
    run pvrm list
    refute_output_has 'cut off'
}

# Kills an upgrade of foo at a rename of its swap: 1 and 2 are of the entry, 3 and 4 of the index.
kill_at_rename() { # NUMBER
    offer_both
    DIE_AT_RENAME=$1 LD_PRELOAD=/usr/lib/vrm/die_at_rename.so ASAN_OPTIONS=verify_asan_link_order=0 \
        run pvrm upgrade foo
    assert_status 137
    [[ -e $repository/lock ]]
}

# That what is left can be worked with, and that the next change finishes the upgrade.
assert_next_run_mends() {
    run pvrm list bar
    assert_status 0
    assert_equal "$(pvrm owner /usr/share/bar/about)" bar
    run pvrm upgrade
    assert_status 0
    assert_line 'pvrm: warning: the upgrade of foo_any_2.0 was cut off after its last step: it is finished now'
    assert_line 'pvrm: upgraded to bar_any_2.0'
    assert_foo_is_new
    assert_equal "$(version_of bar)" 2.0
    assert_equal "$(history_lines)" \
        'updated foo_any_1.0 to foo_any_2.0 as requested by user
updated bar_any_1.0 to bar_any_2.0 as requested by user'
}

@test "killed before the first rename of the swap" {
    kill_at_rename 1
    assert_equal "$(version_of foo)" 1.0
    assert_next_run_mends
}

@test "killed between the renames of the entry" {
    kill_at_rename 2
    [[ ! -e $repository/installed/foo && -e $repository/installed/.foo.old && -e $repository/installed/.foo.new ]]
    run pvrm list foo
    assert_line 'pvrm: no installed package matches foo'
    assert_next_run_mends
}

@test "killed between those of the entry and those of the index" {
    kill_at_rename 3
    assert_equal "$(version_of foo)" 2.0
    assert_next_run_mends
}

@test "killed between the renames of the index" {
    kill_at_rename 4
    [[ ! -e $repository/fileindex/foo ]]
    assert_next_run_mends
}

@test "a dry run warns of what was killed, and changes nothing" {
    local warning='pvrm: warning: the upgrade of foo_any_2.0 was cut off after its last step; the next change, or pvrm recover, finishes it'
    local words
    kill_at_rename 2
    : >"$repository/catalogue.known" # nothing to be done for bar
    for words in upgrade 'install bar' 'remove bar' cleanup recover; do
        # shellcheck disable=SC2086
        run pvrm $words --dry-run
        assert_status 0
        assert_line "$warning"
        refute_output_has 'up to date'
    done
    [[ -e $repository/installed/.foo.old ]]
    pvrm cleanup --yes
    assert_equal "$(version_of foo)" 2.0
    run pvrm upgrade --dry-run
    assert_line 'pvrm: everything is up to date'
    refute_output_has warning
}

@test "any change mends what was killed, and a cleanup then finds no retired entry" {
    kill_at_rename 2
    run pvrm cleanup --yes
    assert_status 0
    assert_output_has 'pvrm: warning: the upgrade of foo_any_2.0 was cut off'
    refute_output_has '.foo.old'
    assert_equal "$(version_of foo)" 2.0
    run pvrm remove foo
    assert_status 0
    refute_installed foo
    assert_equal "$(find "$repository"/{installed,fileindex} -maxdepth 1 -name '.foo*')" ''
}

@test "an upgrade that an earlier version left between its renames gets its old entry back" {
    kill_at_rename 2
    rm -r "$repository/change" "$repository/change.status"
    run pvrm upgrade
    assert_status 1
    assert_line 'pvrm: warning: an upgrade of foo was cut off; it is registered in its old version again, upgrade it once more'
    assert_backups_in_the_way foo_any_2.0
    put_backups_back foo_any_2.0
    run pvrm upgrade
    assert_status 0
    assert_foo_is_new
}
