#!/usr/bin/env bats
# Removing packages with the command line tool.

load helpers

setup_file() { begin_tests; }

setup() { clean_repository; }

# Installs packages that need each other from one directory, in one call.
install_all() { # FILE...
    pvrm install --yes --dir "$BATS_TEST_TMPDIR/packages" "$@"
}

# top needs helper, which came for its sake.
install_pair() {
    package helper >/dev/null
    install_all "$(package top needs=helper)"
}

@test "a package goes with all its files" {
    pvrm install "$(package foo)"
    run pvrm remove foo
    assert_status 0
    assert_line 'pvrm: removed foo_any_1.0'
    refute_installed foo
    [[ ! -e /usr/share/foo/about && ! -e $repository/lock ]]
    [[ $(tail -n 1 "$repository/install.log") == *': deleted foo_any_1.0 as requested by user' ]]
}

@test "the plan tells what goes and why, and what only the package needed goes after it" {
    install_pair
    run pvrm remove top
    assert_status 0
    [[ ${lines[0]} =~ ^Package\ +Version\ +Variant\ +Architecture\ +Installed$ ]]
    [[ ${lines[1]} =~ ^top\ +1\.0\ +-\ +any\ +[0-9].*[a-z]$ ]]
    [[ ${lines[2]} =~ ^helper\ +1\.0\ +-\ +any\ .*\ was\ needed\ by\ top$ ]]
    [[ ${lines[3]} =~ ^2\ packages\ to\ remove,\ .*\ installed$ ]]
    assert_equal "${lines[4]}" 'pvrm: removed top_any_1.0'
    assert_equal "${lines[5]}" 'pvrm: removed helper_any_1.0'
    refute_installed top
    refute_installed helper
}

@test "--keep-deps leaves what only the package needed" {
    install_pair
    run pvrm remove --keep-deps top
    assert_status 0
    refute_output_has helper
    refute_installed top
    is_installed helper
}

@test "what was asked for in its own right stays" {
    install_all "$(package helper)"
    install_all "$(package top needs=helper)"
    run pvrm remove top
    assert_status 0
    is_installed helper
}

@test "what another package needs is refused, with the reason" {
    install_pair
    run pvrm remove helper
    assert_status 1
    assert_equal "$output" "pvrm: helper can't be removed, as top needs it"
    is_installed helper
    run pvrm remove --dry-run helper
    assert_status 1
    assert_equal "$output" "pvrm: helper can't be removed, as top needs it"
}

@test "all that need a package are named when there are many" {
    package helper >/dev/null
    install_all "$(package a needs=helper)" "$(package b needs=helper)" "$(package c needs=helper)"
    run pvrm remove helper
    assert_status 1
    assert_line 'pvrm: helper is needed by 3 packages: a, b, c'
    is_installed helper
}

@test "what stands in the way may go in the same call, in whatever order it is named" {
    install_pair
    run pvrm remove helper top
    assert_status 0
    refute_installed top
    refute_installed helper
    install_all "$(package helper)"
    install_all "$(package top needs=helper)"
    run pvrm remove helper top
    assert_status 0
    assert_line 'pvrm: removed top_any_1.0'
    assert_line 'pvrm: removed helper_any_1.0'
    refute_installed top
    refute_installed helper
}

@test "what two that go shared goes with the last of them" {
    install_all "$(package shared)"
    package helper needs=shared >/dev/null
    install_all "$(package top needs=helper needs=shared)"
    # As if shared had come for the sake of helper, which was asked for itself.
    printf 'evrkInstallTime: 1\nevrkInstallType: D\nevrkInstallHead: helper\n' \
        >"$repository/installed/shared/inst.txt"
    printf 'evrkInstallTime: 1\nevrkInstallType: X\n' >"$repository/installed/helper/inst.txt"
    run pvrm remove top helper
    assert_status 0
    assert_output_has '3 packages to remove'
    refute_installed top
    refute_installed helper
    refute_installed shared
}

@test "what came for a package and needs it doesn't hold it, and is named when it stays" {
    package second needs=first >/dev/null
    install_all "$(package first needs=second)"
    run pvrm remove --keep-deps first
    assert_status 0
    assert_line 'pvrm: warning: first goes although it is needed by second'
    refute_installed first
    is_installed second
}

# Makes packages count as asked for by the user.
as_asked_for() { # NAME...
    local name
    for name; do
        printf 'evrkInstallTime: 1\nevrkInstallType: X\n' >"$repository/installed/$name/inst.txt"
    done
}

@test "two that need each other go when both are named, and neither alone" {
    package a needs=b >/dev/null
    install_all "$(package b needs=a)"
    as_asked_for a b
    run pvrm remove a
    assert_status 1
    assert_equal "$output" "pvrm: a can't be removed, as b needs it"
    run pvrm remove --dry-run b a
    assert_status 0
    assert_output_has '2 packages to remove'
    run pvrm remove b a
    assert_status 0
    refute_output_has 'goes although it is needed'
    refute_installed a
    refute_installed b
}

@test "two that need each other stay when a third needs one of them" {
    package a needs=b >/dev/null
    package b needs=a >/dev/null
    install_all "$(package third needs=a)"
    as_asked_for a b
    run pvrm remove a b
    assert_status 1
    assert_output_has "pvrm: a can't be removed, as "
    assert_output_has "pvrm: b can't be removed, as a needs it"
    is_installed a
    is_installed b
    run pvrm remove a b third
    assert_status 0
    refute_installed third
    refute_installed a
    refute_installed b
}

@test "of two that need each other the second stays when the first fails" {
    package a needs=b >/dev/null
    install_all "$(package b needs=a 'init/00-del.sh=exit 1')"
    as_asked_for a b
    # Each goes behind what needs it, so the second one named is the first.
    run pvrm remove a b
    assert_status 1
    assert_line 'pvrm: b was not removed'
    assert_line "pvrm: a can't be removed, as b needs it"
    is_installed a
    is_installed b
}

# a needs x, which came for its sake; x needs b, which was asked for itself.
install_chain() { # [WHAT=VALUE-OF-A]... -- [WHAT=VALUE-OF-X]...
    local of_a=()
    while [[ $1 != -- ]]; do
        of_a+=("$1")
        shift
    done
    install_all "$(package b)"
    package x needs=b "${@:2}" >/dev/null
    install_all "$(package a needs=x "${of_a[@]}")"
    assert_equal "$(install_type b)$(install_type x)" XD
}

@test "when a package fails, what came for it holds what it needs" {
    install_chain 'init/00-del.sh=exit 1' --
    run pvrm remove a x b
    assert_status 1
    assert_line 'pvrm: a was not removed'
    assert_line "pvrm: x can't be removed, as a needs it"
    assert_line "pvrm: b can't be removed, as x needs it"
    refute_output_has 'removed b_any'
    is_installed a
    is_installed x
    is_installed b
}

@test "when what came for a package fails, it holds what it needs" {
    install_chain -- 'init/00-del.sh=echo asked; exit 1'
    run pvrm remove a x b
    assert_status 1
    assert_line 'pvrm: a was removed, but not all that goes with it'
    assert_line 'pvrm: x was not removed'
    assert_line "pvrm: b can't be removed, as x needs it"
    assert_equal "$(grep -c asked <<<"$output")" 1
    refute_installed a
    is_installed x
    is_installed b
}

@test "what came for a package goes in its own turn when it was named and not reached" {
    package first 'init/00-del.sh=exit 1' >/dev/null
    package second >/dev/null
    install_all "$(package top needs=first needs=second)"
    run pvrm remove top second
    assert_status 1
    assert_line 'pvrm: top was removed, but not all that goes with it'
    assert_line 'pvrm: removed second_any_1.0'
    is_installed first
    refute_installed second
}

@test "all of a chain go, in whatever order they are named" {
    local order
    for order in 'a x b' 'b x a' 'b a' 'x b a'; do
        install_chain --
        # shellcheck disable=SC2086
        run pvrm remove $order
        assert_status 0
        assert_output_has '3 packages to remove'
        refute_installed a
        refute_installed x
        refute_installed b
    done
}

@test "what comes to go along only by the way is no failure in its own turn" {
    package b >/dev/null
    install_all "$(package a needs=b)" "$(package c needs=b)"
    run pvrm remove c a b
    assert_status 0
    refute_output_has 'not installed'
    refute_installed a
    refute_installed b
    refute_installed c
}

@test "a circle stays as a whole when what needs a part of it fails" {
    package b needs=c >/dev/null
    package c needs=b >/dev/null
    install_all "$(package d needs=c 'init/00-del.sh=exit 1')"
    as_asked_for b c
    run pvrm remove c b d
    assert_status 1
    assert_line 'pvrm: d was not removed'
    is_installed b
    is_installed c
    is_installed d
    run pvrm remove b c d
    assert_status 1
    is_installed b
    is_installed c
}

@test "what came for a package does not lift the hold of one that failed" {
    # Of a's two that need it the planner lets the one that came for it decide.
    package tail needs=a >/dev/null
    install_all "$(package a needs=tail)"
    install_all "$(package holder needs=a 'init/00-del.sh=exit 1')"
    run pvrm remove holder a
    assert_status 1
    is_installed holder
    is_installed a
}

@test "one that needs itself goes" {
    install_all "$(package a)"
    # The builder refuses to make such a package.
    echo 'evrkDependency: a' >>"$repository/installed/a/desc.txt"
    run pvrm remove a
    assert_status 0
    assert_line 'pvrm: removed a_any_1.0'
    refute_installed a
}

@test "what isn't installed is a failure, and the others go all the same" {
    pvrm install "$(package foo)"
    run pvrm remove nothing foo foo
    assert_status 1
    assert_line 'pvrm: nothing is not installed'
    refute_installed foo
}

@test "a file is no name of a package" {
    file=$(package foo)
    pvrm install "$file"
    run pvrm remove "$file" ../foo ''
    assert_status 1
    assert_line "pvrm: $file is no name of a package"
    assert_line 'pvrm: ../foo is no name of a package'
    assert_line 'pvrm: an empty text is no name of a package'
    is_installed foo
}

@test "configuration files stay and are told" {
    pvrm install "$(package foo conf/etc/foo.conf=a conf/etc/foo/b=b)"
    rm /etc/foo/b
    run pvrm remove foo
    assert_status 0
    assert_line 'pvrm: keeping config file /etc/foo.conf'
    refute_output_has /etc/foo/b
    assert_equal "$(cat /etc/foo.conf)" a
    rm -r /etc/foo.conf /etc/foo
}

@test "of configuration files the edited ones are told as such, also when quiet" {
    package helper conf/etc/helper.conf=shipped >/dev/null
    install_all "$(package foo needs=helper conf/etc/foo.conf=shipped conf/etc/plain.conf=shipped)"
    echo mine >/etc/foo.conf
    echo mine >/etc/helper.conf
    run pvrm remove foo
    assert_status 0
    assert_line 'pvrm: keeping config file /etc/foo.conf (edited)'
    assert_line 'pvrm: keeping config file /etc/helper.conf (edited)'
    assert_line 'pvrm: keeping config file /etc/plain.conf'
    assert_equal "$(cat /etc/foo.conf)" mine
    rm /etc/plain.conf
    install_all "$(package foo conf/etc/foo.conf=shipped conf/etc/plain.conf=shipped)"
    run pvrm --quiet remove foo
    assert_status 0
    assert_equal "$output" 'pvrm: keeping config file /etc/foo.conf (edited)'
    rm /etc/foo.conf /etc/helper.conf /etc/plain.conf
}

@test "a link or another thing in place of a configuration file is told as edited" {
    pvrm install "$(package foo conf/etc/foo.conf=a conf/etc/same.conf=b conf/etc/pipe.conf=c)"
    rm /etc/foo.conf /etc/pipe.conf
    ln -s nowhere /etc/foo.conf
    mkfifo /etc/pipe.conf
    run timeout 120 pvrm remove foo
    assert_status 0
    assert_line 'pvrm: keeping config file /etc/foo.conf (edited)'
    assert_line 'pvrm: keeping config file /etc/pipe.conf (edited)'
    assert_line 'pvrm: keeping config file /etc/same.conf'
    rm /etc/foo.conf /etc/same.conf /etc/pipe.conf
}

@test "a configuration file that the package's own script takes away is not told" {
    pvrm install "$(package foo conf/etc/foo.conf=a 'init/99-del.sh=rm /etc/foo.conf')"
    run pvrm remove foo
    assert_status 0
    refute_output_has 'keeping config file'
    [[ ! -e /etc/foo.conf ]]
}

@test "of a package that stays no configuration file is told" {
    pvrm install "$(package foo conf/etc/foo.conf=a 'init/00-del.sh=exit 1')"
    echo mine >/etc/foo.conf
    run pvrm remove foo
    assert_status 1
    refute_output_has 'config file'
    rm /etc/foo.conf
}

@test "--dry-run needs no right, takes no lock and removes nothing" {
    install_pair
    run setpriv --reuid 65534 --regid 65534 --clear-groups pvrm remove --dry-run top
    assert_status 0
    assert_output_has '2 packages to remove'
    is_installed top
    is_installed helper
    [[ ! -e $repository/lock ]]
}

@test "--quiet tells no step and no plan" {
    pvrm install "$(package foo)"
    run pvrm remove --quiet foo
    assert_status 0
    assert_equal "$output" ''
    refute_installed foo
}

@test "the user is asked, and a no removes nothing" {
    pvrm install "$(package foo)"
    answer_on_terminal 'pvrm remove foo' 'Remove this package? [Y/n]' n
    assert_status 1
    assert_output_has 'pvrm: nothing was removed'
    is_installed foo
    answer_on_terminal 'pvrm remove foo' 'Remove this package? [Y/n]' y
    assert_status 0
    refute_installed foo
}

@test "a script that refuses keeps the package as it was" {
    pvrm install "$(package foo 'init/00-del.sh=exit 3')" "$(package bar 'init/99-del.sh=exit 4')"
    run pvrm remove foo bar
    assert_status 1
    assert_line 'pvrm: the script 00-del.sh of foo_any_1.0, which runs before the removal, failed: exit status 3'
    assert_line 'pvrm: the removal of foo_any_1.0 failed, and it stays installed'
    assert_line 'pvrm: foo was not removed'
    assert_line 'pvrm: the script 99-del.sh of bar_any_1.0, which runs after the removal, failed: exit status 4'
    assert_line 'pvrm: bar was not removed'
    is_installed foo
    is_installed bar
    assert_equal "$(cat /usr/share/foo/about /usr/share/bar/about)" 'foo 1.0
bar 1.0'
    assert_equal "$(find "$repository/stagearea" -mindepth 1 -type d)" ''
}

@test "a file that is gone already is a warning" {
    pvrm install "$(package foo)"
    rm /usr/share/foo/about
    run pvrm remove foo
    assert_status 0
    assert_line "pvrm: warning: /usr/share/foo/about can't be reached, and is passed over: No such file or directory"
    refute_installed foo
}

@test "an interruption ends it after the package at hand" {
    package helper >/dev/null
    install_all "$(package top needs=helper "init/00-del.sh=$waiting_script")"
    pvrm remove top >/tmp/ran 2>&1 3>&- &
    tool=$!
    wait_until test -e /tmp/started
    kill -TERM "$tool"
    touch /tmp/go
    status=0
    wait "$tool" || status=$?
    output=$(cat /tmp/ran)
    mapfile -t lines <<<"$output"
    assert_status 1
    assert_line 'pvrm: removed top_any_1.0'
    assert_line 'pvrm: interrupted before helper_any_1.0'
    assert_line 'pvrm: top was removed, but not all that goes with it'
    refute_installed top
    is_installed helper
}

@test "it is refused while another process changes the repository" {
    pvrm install "$(package foo "init/00-del.sh=$waiting_script")"
    pvrm remove foo >/dev/null 2>&1 3>&- &
    tool=$!
    wait_until test -e /tmp/started
    run pvrm remove foo
    touch /tmp/go
    wait "$tool"
    assert_status 4
    assert_output_has 'is changing the repository'
    refute_installed foo
}

@test "without a name it is wrong usage, and without the right it is not permitted" {
    run pvrm remove
    assert_status 2
    run setpriv --reuid 65534 --regid 65534 --clear-groups pvrm remove foo
    assert_status 3
}
