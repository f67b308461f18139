#!/usr/bin/env bats
# Upgrading from the catalogue: one package, several, and all.

load helpers

setup_file() { begin_tests catalogue; }

setup() {
    clean_repository
    rm -f /etc/*.conf.test /etc/vrm/hooks.d/test.vrh
}

variant_of() {
    sed -n 's/^evrkVariant: //p' "$repository/installed/$1/desc.txt"
}

# Installs packages of version 1.0, quietly.
have() { # NAME...
    local name files=()
    for name; do files+=("$(package "$name")"); done
    pvrm --quiet install "${files[@]}"
    rm "$repository/install.log"
}

@test "all that is installed is upgraded, and what needs nothing is not spoken of" {
    have a b c
    put_on_offer a version=2.0
    put_on_offer b version=1.0
    put_on_offer c version=1.10
    put_on_offer other version=3.0
    run pvrm upgrade
    assert_status 0
    [[ ${lines[0]} =~ ^Package\ +Version\ +Variant ]]
    [[ ${lines[1]} =~ ^a\ +2\.0\ +-\ +any\ +catalogue\ .*\ in\ place\ of\ 1\.0$ ]]
    [[ ${lines[2]} =~ ^c\ +1\.10\ +-\ +any\ +catalogue\ .*\ in\ place\ of\ 1\.0$ ]]
    [[ ${lines[3]} =~ ^2\ packages,\ .*\ of\ package\ files,\ .*\ when\ installed$ ]]
    assert_equal "${lines[4]}" 'pvrm: getting a_any_2.0'
    assert_line 'pvrm: upgraded to a_any_2.0'
    assert_line 'pvrm: upgraded to c_any_1.10'
    refute_output_has 'up to date'
    assert_equal "$(version_of a) $(version_of b) $(version_of c)" '2.0 1.0 1.10'
    refute_installed other
    assert_equal "$(history_lines)" "updated a_any_1.0 to a_any_2.0 as requested by user
updated c_any_1.0 to c_any_1.10 as requested by user"
    run pvrm upgrade
    assert_status 0
    assert_equal "$output" 'pvrm: everything is up to date'
    run pvrm --quiet upgrade
    assert_status 0
    assert_equal "$output" ''
}

@test "--dry-run over all shows the plan, needs no right and changes nothing" {
    have a b
    put_on_offer a version=2.0
    run setpriv --reuid 65534 --regid 65534 --clear-groups pvrm upgrade --dry-run
    assert_status 0
    assert_output_has 'in place of 1.0'
    assert_output_has '1 package, '
    assert_equal "$(version_of a)" 1.0
    assert_equal "$(ls "$repository/stagearea")" "a_any_1.0.vrk
b_any_1.0.vrk"
    [[ ! -e $repository/lock ]]
    run pvrm upgrade --dry-run b
    assert_status 1
    assert_equal "$output" "pvrm: b can't be upgraded: its variant default is not in the package catalogue"
}

@test "only what is named is upgraded, and each is told how it stands" {
    have a b c
    put_on_offer a version=2.0
    put_on_offer b version=1.0
    put_on_offer c version=2.0
    run pvrm upgrade a b a
    assert_status 0
    assert_line 'pvrm: b is up to date, version 1.0'
    assert_output_has '1 package, '
    assert_line 'pvrm: upgraded to a_any_2.0'
    assert_equal "$(version_of a) $(version_of b) $(version_of c)" '2.0 1.0 1.0'
}

@test "one that can't be had doesn't keep the others, and is told" {
    have a b
    put_on_offer a version=2.0
    run pvrm upgrade nothing b a
    assert_status 1
    assert_line 'pvrm: nothing is not installed'
    assert_line "pvrm: b can't be upgraded: its variant default is not in the package catalogue"
    assert_line 'pvrm: upgraded to a_any_2.0'
    assert_equal "$(version_of a)" 2.0
}

@test "what no catalogue has is no failure of a run over all" {
    have a b
    put_on_offer a version=2.0
    run pvrm upgrade
    assert_status 0
    refute_output_has b_any
    assert_equal "$(version_of a)" 2.0
}

@test "an older version in the catalogue is passed over" {
    have a
    put_on_offer a version=0.9
    run pvrm upgrade a
    assert_status 0
    assert_equal "$output" 'pvrm: a is up to date, version 1.0'
    run pvrm upgrade
    assert_status 0
    assert_equal "$output" 'pvrm: everything is up to date'
}

@test "a package file takes a package back to an older version" {
    have a
    put_on_offer a version=2.0
    pvrm --quiet upgrade a
    rm "$repository/install.log"
    run pvrm upgrade "$(package a version=0.9)"
    assert_status 0
    [[ ${lines[1]} =~ ^a\ +0\.9\ +-\ +any\ +file\ .*\ in\ place\ of\ 2\.0$ ]]
    assert_line 'pvrm: upgraded to a_any_0.9'
    assert_equal "$(history_lines)" 'updated a_any_2.0 to a_any_0.9 as requested by user'
    assert_equal "$(cat /usr/share/a/about)" 'a 0.9'
}

@test "a name and a file of the same package are one" {
    have a
    put_on_offer a version=2.0
    file=$(package a version=3.0)
    run pvrm upgrade a "$file"
    assert_status 0
    assert_line "pvrm: $file is passed over: it is the package a, as a is"
    assert_equal "$(version_of a)" 2.0
}

@test "a package stays in its variant" {
    pvrm --quiet install "$(package a variant=lite)"
    put_on_offer a version=3.0
    put_on_offer a version=2.0 variant=lite
    run pvrm upgrade
    assert_status 0
    [[ ${lines[1]} =~ ^a\ +2\.0\ +lite\  ]]
    assert_equal "$(version_of a) $(variant_of a)" '2.0 lite'
    run pvrm upgrade a
    assert_status 0
    assert_equal "$output" 'pvrm: a is up to date, version 2.0'
}

@test "a variant that the catalogue has no more is told when the package is named" {
    pvrm --quiet install "$(package a variant=lite)"
    put_on_offer a version=3.0
    run pvrm upgrade a
    assert_status 1
    assert_equal "$output" "pvrm: a can't be upgraded: its variant lite is not in the package catalogue"
    run pvrm upgrade
    assert_status 0
    assert_equal "$output" 'pvrm: everything is up to date'
}

@test "a dependency that turned up is installed with the new version" {
    have a
    put_on_offer lib version=1.0 needs=base
    put_on_offer base version=1.0
    put_on_offer a version=2.0 needs=lib
    run pvrm upgrade
    assert_status 0
    [[ ${lines[2]} =~ ^lib\ .*\ needed\ by\ a$ ]]
    [[ ${lines[3]} =~ ^base\ .*\ needed\ by\ lib$ ]]
    assert_line 'pvrm: installed base_any_1.0'
    assert_line 'pvrm: installed lib_any_1.0'
    assert_line 'pvrm: upgraded to a_any_2.0'
    assert_equal "$(history_lines)" 'installed base_any_1.0 as dependency of lib
installed lib_any_1.0 as dependency of a
updated a_any_1.0 to a_any_2.0 as requested by user'
    assert_equal "$(install_type a)$(install_type lib)$(install_type base)" XDD
}

@test "what is needed is upgraded ahead of what needs it" {
    package c >/dev/null
    package b needs=c >/dev/null
    pvrm --quiet install --dir "$BATS_TEST_TMPDIR/packages" "$(package a needs=b)"
    rm "$repository/install.log"
    put_on_offer a version=2.0 needs=b
    put_on_offer b version=2.0 needs=c
    put_on_offer c version=2.0
    run pvrm upgrade
    assert_status 0
    assert_equal "$(history_lines)" 'updated c_any_1.0 to c_any_2.0 as requested by user
updated b_any_1.0 to b_any_2.0 as requested by user
updated a_any_1.0 to a_any_2.0 as requested by user'
}

@test "a dependency that is nowhere keeps the old version, and the others go on" {
    have a b
    put_on_offer a version=2.0 needs=lib
    put_on_offer b version=2.0
    run pvrm upgrade
    assert_status 1
    assert_line 'pvrm: a needs lib, which is neither installed nor to be had from anywhere'
    assert_line "pvrm: a can't be upgraded"
    assert_line 'pvrm: upgraded to b_any_2.0'
    assert_equal "$(version_of a) $(version_of b)" '1.0 2.0'
    run pvrm upgrade a
    assert_status 1
    assert_line "pvrm: a can't be upgraded"
    refute_output_has 'up to date'
}

@test "a package file that does not arrive whole keeps the old version" {
    have a b
    put_on_offer a version=2.0
    put_on_offer b version=2.0
    touch "$repository/catalogue.short"
    run pvrm upgrade a
    rm "$repository/catalogue.short"
    assert_status 1
    assert_output_has 'pvrm: the catalogue did not deliver all '
    assert_line 'pvrm: a was not upgraded'
    assert_equal "$(version_of a)" 1.0
    run pvrm upgrade
    assert_status 0
    assert_equal "$(version_of a) $(version_of b)" '2.0 2.0'
}

@test "without a catalogue nothing is up to date, but a file will do" {
    have a
    touch "$repository/catalogue.no-connection"
    run pvrm upgrade
    assert_status 1
    refute_output_has 'up to date'
    run pvrm upgrade "$(package a version=2.0)"
    assert_status 0
    assert_equal "$(version_of a)" 2.0
}

@test "a catalogue that was never read is refreshed first" {
    have a
    offer a '' 2.0 1 'The package a for tests' '' "$(package a version=2.0)"
    run pvrm upgrade
    assert_status 0
    assert_equal "$(version_of a)" 2.0
    : >"$repository/catalogue.known"
    offer a '' 3.0 1 'The package a for tests' '' "$(package a version=3.0)"
    run pvrm upgrade a
    assert_status 0
    assert_equal "$(version_of a)" 3.0
}

@test "a file that moves from one package to another stops the one that comes too early" {
    pvrm --quiet install "$(package a data/usr/share/shared/x=1 data/usr/share/a/about=1)" "$(package b)"
    put_on_offer b version=2.0 data/usr/share/shared/x=2
    run pvrm upgrade b
    assert_status 1
    assert_line 'pvrm: /usr/share/shared/x is on the disk already and belongs to the package a'
    assert_line 'pvrm: b was not upgraded'
    assert_equal "$(version_of b) $(cat /usr/share/shared/x /usr/share/b/about)" '1.0 1
b 1.0'
    # When the one that has it lets go of it, the other can have it: in one run by their names.
    put_on_offer a version=2.0 data/usr/share/a/about=2
    run pvrm upgrade
    assert_status 0
    assert_equal "$(version_of a) $(version_of b) $(cat /usr/share/shared/x)" '2.0 2.0 2'
    assert_equal "$(pvrm owner /usr/share/shared/x)" b
    [[ ! -e /usr/share/b/about ]]
}

@test "a file of nobody in the way is replaced, or left when the user says so" {
    have a
    mkdir -p /usr/share/a
    echo mine >/usr/share/a/new
    put_on_offer a version=2.0 data/usr/share/a/about=two data/usr/share/a/new=theirs
    answer_on_terminal 'pvrm upgrade a' 'Upgrade this package? [Y/n]' y 'Your choice' l
    assert_status 0
    assert_output_has 'The file /usr/share/a/new already exists on the filesystem. Choose your action'
    assert_equal "$(cat /usr/share/a/new)" mine
    assert_equal "$(pvrm files a)" /usr/share/a/about
    put_on_offer a version=3.0 data/usr/share/a/new=theirs
    run pvrm upgrade a
    assert_status 0
    assert_equal "$(cat /usr/share/a/new)" theirs
    [[ ! -e /usr/share/a/about ]]
}

@test "abort at a file in the way keeps the old version" {
    have a
    mkdir -p /usr/share/a
    echo mine >/usr/share/a/new
    put_on_offer a version=2.0 data/usr/share/a/new=theirs
    answer_on_terminal 'pvrm upgrade a' 'Upgrade this package? [Y/n]' y 'Your choice' a
    assert_status 1
    assert_line 'pvrm: the upgrade is aborted, as you asked for'
    assert_line 'pvrm: a was not upgraded'
    assert_equal "$(version_of a) $(cat /usr/share/a/about /usr/share/a/new)" '1.0 a 1.0
mine'
    assert_equal "$(find "$repository/stagearea" -mindepth 1 -type d)" ''
}

@test "no is no, for all of them" {
    have a b
    put_on_offer a version=2.0
    put_on_offer b version=2.0
    answer_on_terminal 'pvrm upgrade' 'Upgrade these 2 packages? [Y/n] ' n
    assert_status 1
    assert_line 'pvrm: nothing was upgraded'
    assert_equal "$(version_of a) $(version_of b)" '1.0 1.0'
    [[ ! -e $repository/lock ]]
}

@test "edited configuration of each is kept and told, what stood there before a version shipped it too" {
    pvrm --quiet install "$(package a conf/etc/a.conf.test=one)" "$(package b conf/etc/b.conf.test=one)"
    echo mine >/etc/a.conf.test
    echo mine >/etc/c.conf.test
    rm /etc/b.conf.test
    put_on_offer a version=2.0 conf/etc/a.conf.test=two conf/etc/c.conf.test=two
    put_on_offer b version=2.0 conf/etc/b.conf.test=two
    run pvrm upgrade
    assert_status 0
    assert_line 'pvrm: keeping modified config file /etc/a.conf.test'
    assert_line "pvrm: /etc/a.conf.test was edited and is kept; the one that came with version 2.0 is\
 $repository/installed/a/conf/etc/a.conf.test"
    assert_line "pvrm: /etc/c.conf.test was edited and is kept; the one that came with version 2.0 is\
 $repository/installed/a/conf/etc/c.conf.test"
    assert_line 'pvrm: installing missing config file /etc/b.conf.test'
    assert_equal "$(cat /etc/{a,b,c}.conf.test)" 'mine
two
mine'
    # The next one compares with what came last.
    cp "$repository/installed/a/conf/etc/a.conf.test" /etc/a.conf.test
    put_on_offer a version=3.0 conf/etc/a.conf.test=three
    run pvrm upgrade a
    assert_status 0
    assert_line 'pvrm: replacing unmodified config file /etc/a.conf.test'
    assert_equal "$(cat /etc/a.conf.test)" three
}

@test "hooks and configuration scripts run behind an upgrade" {
    have a
    cat >/etc/vrm/hooks.d/test.vrh <<'END'
evrhType: 99-cfg
evrhCond: data:/usr/share/hooked/*
evrhExec: /bin/echo 'hook for ${evrkName} ${evrkVersion}'
END
    # shellcheck disable=SC2016
    put_on_offer a version=2.0 data/usr/share/hooked/x=1 'init/99-cfg.sh=echo "configuring $VRK_VERSION"'
    run pvrm upgrade
    assert_status 0
    assert_line 'configuring 2.0'
    assert_line 'hook for a 2.0'
    # One that brings no such file meets the condition no more.
    put_on_offer a version=3.0
    run pvrm upgrade
    assert_status 0
    refute_output_has 'hook for a'
}

@test "a configuration script that fails is told, and the new version stays" {
    have a
    put_on_offer a version=2.0 'init/99-cfg.sh=exit 3'
    run pvrm upgrade
    assert_status 0
    assert_line 'pvrm: the configuration script 99-cfg.sh of a failed: exit status 3; the package stays installed'
    assert_equal "$(version_of a)" 2.0
}

@test "install type and head stay, so that an orphan still goes with what it came for" {
    package lib >/dev/null
    pvrm --quiet install --dir "$BATS_TEST_TMPDIR/packages" "$(package a needs=lib)"
    put_on_offer a version=2.0 needs=lib
    put_on_offer lib version=2.0
    run pvrm upgrade
    assert_status 0
    assert_equal "$(install_type a)$(install_type lib)" XD
    assert_equal "$(grep -c '^evrkUpdateTime: ' "$repository/installed/lib/inst.txt")" 1
    run pvrm remove a
    assert_status 0
    assert_line 'pvrm: removed lib_any_2.0'
    refute_installed lib
}

@test "a package that the new version needs no more stays until it is named" {
    package lib >/dev/null
    pvrm --quiet install --dir "$BATS_TEST_TMPDIR/packages" "$(package a needs=lib)"
    put_on_offer a version=2.0
    run pvrm upgrade
    assert_status 0
    is_installed lib
    run pvrm remove lib
    assert_status 0
    refute_installed lib
}
