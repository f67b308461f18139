#!/usr/bin/env bats
# Upgrading packages with the command line tool.

load helpers

setup_file() { begin_tests catalogue; }

setup() {
    clean_repository
    rm -rf /etc/foo.conf /usr/share/foo
    pvrm --quiet install "$(package foo data/usr/share/foo/about=one conf/etc/foo.conf=shipped-1)"
}

@test "a newer package file replaces the installed version, step by step" {
    run pvrm upgrade "$(package foo version=2.0 data/usr/share/foo/new=two)"
    assert_status 0
    assert_output_has 'in place of 1.0'
    assert_line 'pvrm: upgrading to foo_any_2.0'
    assert_line 'pvrm: upgraded to foo_any_2.0'
    assert_equal "$(version_of foo)" 2.0
    [[ ! -e /usr/share/foo/about && -e /usr/share/foo/new ]]
    [[ ! -e $repository/lock ]]
}

@test "--dry-run shows what would be done and does nothing" {
    run pvrm upgrade --dry-run "$(package foo version=2.0)"
    assert_status 0
    assert_output_has 'in place of 1.0'
    assert_equal "$(version_of foo)" 1.0
}

@test "configuration that the new version does without is kept, and told unless another package has it" {
    local newer
    rm -rf /etc/baz.d
    pvrm --quiet install "$(package baz conf/etc/baz.d/{plain,edited,moved,data,stays,gone}=shipped)" \
        "$(package lib)"
    echo mine >/etc/baz.d/edited
    rm /etc/baz.d/gone
    pvrm --quiet upgrade "$(package lib version=2.0 conf/etc/baz.d/moved=shipped)"
    newer=$(package baz version=2.0 conf/etc/baz.d/stays=shipped data/etc/baz.d/data=now)
    run pvrm --quiet upgrade "$newer"
    assert_status 0
    assert_equal "$output" \
        'pvrm: /etc/baz.d/edited came with the old version of baz and not with the new one; it is kept and belongs to no package
pvrm: /etc/baz.d/plain came with the old version of baz and not with the new one; it is kept and belongs to no package'
    assert_equal "$(cat /etc/baz.d/{data,edited,moved,plain,stays})" $'now\nmine\nshipped\nshipped\nshipped'
    # Of an upgrade that fails nothing changes hands.
    run pvrm --quiet upgrade "$(package baz version=3.0 'init/99-add.sh=exit 1')"
    assert_status 1
    refute_output_has 'belongs to no package'
    rm -r /etc/baz.d
}

@test "edited configuration is kept, and the shipped copy is told, also when quiet" {
    echo mine >/etc/foo.conf
    run pvrm --quiet upgrade "$(package foo version=2.0 conf/etc/foo.conf=shipped-2)"
    assert_status 0
    assert_equal "$output" "pvrm: /etc/foo.conf was edited and is kept; the one that came with\
 version 2.0 is $repository/installed/foo/conf/etc/foo.conf"
    assert_equal "$(cat /etc/foo.conf)" mine
}

@test "configuration that nobody edited is replaced" {
    run pvrm upgrade "$(package foo version=2.0 conf/etc/foo.conf=shipped-2)"
    assert_status 0
    assert_line 'pvrm: replacing unmodified config file /etc/foo.conf'
    assert_equal "$(cat /etc/foo.conf)" shipped-2
    refute_output_has 'was edited'
}

@test "the installed version is up to date, and that is no failure" {
    run pvrm upgrade "$(package foo)"
    assert_status 0
    assert_line 'pvrm: foo is up to date, version 1.0'
}

@test "everything is up to date" {
    run pvrm upgrade
    assert_status 0
    assert_line 'pvrm: everything is up to date'
}

@test "what is not installed is a failure" {
    run pvrm upgrade bar
    assert_status 1
    assert_line 'pvrm: bar is not installed'
}

@test "a script that fails takes the upgrade back" {
    run pvrm upgrade "$(package foo version=2.0 data/usr/share/foo/about=two init/99-add.sh='exit 1')"
    assert_status 1
    assert_line 'pvrm: the script 99-add.sh of foo_any_2.0, which runs after the upgrade, failed: exit status 1'
    assert_line 'pvrm: foo was not upgraded'
    assert_equal "$(cat /usr/share/foo/about)" one
    assert_equal "$(version_of foo)" 1.0
}
