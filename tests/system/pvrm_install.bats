#!/usr/bin/env bats
# Installing package files with the command line tool.

load helpers

setup_file() { begin_tests catalogue; }

setup() { clean_repository; }

@test "a package file is installed, step by step" {
    run pvrm install "$(package foo)"
    assert_status 0
    assert_line 'pvrm: copying foo_any_1.0'
    assert_line 'pvrm: unpacking foo_any_1.0'
    assert_line 'pvrm: verifying foo_any_1.0'
    assert_line 'pvrm: installing foo_any_1.0'
    assert_line 'pvrm: installed foo_any_1.0'
    assert_equal "$(cat /usr/share/foo/about)" 'foo 1.0'
    is_installed foo
    [[ ! -e $repository/lock ]]
}

@test "the plan tells version, variant, origin, sizes and totals" {
    file=$(package foo version=1.5 variant=small)
    run pvrm install --dry-run "$file"
    assert_status 0
    [[ ${lines[0]} =~ ^Package\ +Version\ +Variant\ +Architecture\ +From\ +Package\ file\ +Installed$ ]]
    [[ ${lines[1]} =~ ^foo\ +1\.5\ +small\ +any\ +file\ +[0-9].*$ ]]
    [[ ${lines[2]} =~ ^1\ package,\ .*\ of\ package\ files,\ .*\ when\ installed$ ]]
    refute_installed foo
}

@test "--dry-run needs no right, takes no lock and writes nothing" {
    file=$(package foo out=/tmp/for-all)
    chmod 755 /tmp/for-all
    run setpriv --reuid 65534 --regid 65534 --clear-groups pvrm install --dry-run "$file"
    assert_status 0
    [[ ! -e $repository/lock && ! -e /var/log/pvrm.log ]]
    assert_equal "$(ls "$repository/stagearea")" ''
}

@test "--quiet tells no step and no plan, but shows what a dry run is about" {
    file=$(package foo)
    run pvrm install --quiet --dry-run "$file"
    assert_output_has 'foo'
    run pvrm install --quiet "$file"
    assert_status 0
    assert_equal "$output" ''
    is_installed foo
}

@test "what is installed already is told, and is no failure" {
    file=$(package foo)
    pvrm install "$file"
    run pvrm install "$file"
    assert_status 0
    assert_equal "$output" 'pvrm: foo is already installed, version 1.0'
}

@test "dependencies from directories come along, under their own names" {
    package b needs=c out="$BATS_TEST_TMPDIR/more" >/dev/null
    package c out="$BATS_TEST_TMPDIR/even-more" >/dev/null
    file=$(package a needs=b)
    run pvrm install --dir "$BATS_TEST_TMPDIR/more" --dir "$BATS_TEST_TMPDIR/even-more" "$file"
    assert_status 0
    assert_equal "$(install_type a)$(install_type b)$(install_type c)" XDD
    assert_equal "$(sed -n 's/^evrkInstallHead: //p' "$repository/installed/c/inst.txt")" b
    assert_equal "$(cat /usr/share/c/about)" 'c 1.0'
    assert_output_has 'needed by b'
}

@test "two packages in one directory that is named without --dir are two requests" {
    a=$(package a)
    b=$(package b)
    run pvrm install "$a" "$b"
    assert_status 0
    is_installed a
    is_installed b
    assert_output_has '2 packages, '
}

@test "what is asked for is no dependency, even when something else needs it" {
    a=$(package a needs=b)
    b=$(package b)
    run pvrm install --dir "$(dirname "$b")" "$a" "$b"
    assert_status 0
    assert_equal "$(install_type a)$(install_type b)" XX
}

@test "the same name twice is the same name" {
    file=$(package foo)
    run pvrm install "$file" "$file"
    assert_status 0
    refute_output_has 'already installed'
    is_installed foo
}

@test "two files of one package: the second is passed over" {
    one=$(package foo)
    two=$(package foo version=2.0)
    run pvrm install "$one" "$two"
    assert_line "pvrm: $two is passed over: it is the package foo, as $one is"
    assert_equal "$(cat /usr/share/foo/about)" 'foo 1.0'
}

@test "a request that fails does not stop the others" {
    run pvrm install /nowhere/bar.vrk "$(package foo)"
    assert_status 1
    assert_line 'pvrm: /nowhere/bar.vrk: No such file or directory'
    is_installed foo
}

@test "an empty name is told" {
    run pvrm install ''
    assert_status 1
    assert_line 'pvrm: an empty text is no name of a package'
}

@test "a missing dependency is told in a sentence" {
    file=$(package a needs=nobody)
    run pvrm install "$file"
    assert_status 1
    assert_line 'pvrm: a needs nobody, which is neither installed nor to be had from anywhere'
    assert_line "pvrm: $file can't be installed"
}

@test "a foreign architecture is refused, also for the package that was named" {
    other=mips
    file=$(package foo arch=$other)
    run pvrm install "$file"
    assert_status 1
    assert_line "pvrm: $file can't be installed: it is built for mips, and this machine is $(
        sed -n 's/^arch_name=//p' /etc/vrm.conf)"
    refute_installed foo
}

@test "a dependency of a foreign architecture is told as the reason" {
    package b arch=mips >/dev/null
    a=$(package a needs=b)
    run pvrm install --dir "$(dirname "$a")" "$a"
    assert_status 1
    assert_line "pvrm: a needs b, which is neither installed nor to be had from anywhere"
    refute_installed a
}

@test "a damaged file is refused with what is wrong with it" {
    file=$(package foo)
    head -c 8 "$file" >/tmp/short.vrk
    run pvrm install /tmp/short.vrk
    assert_status 1
    assert_equal "$output" 'pvrm: /tmp/short.vrk is not a valid package file: it is cut short'
    echo 'no package at all' >/tmp/short.vrk
    run pvrm install /tmp/short.vrk
    assert_equal "$output" 'pvrm: /tmp/short.vrk is not a valid package file: it does not begin as a package file does'
}

@test "a signer who is not trusted is told, with the way to trust" {
    file=$(package foo)
    mv "$(signer_in_store)" /tmp/aside
    run pvrm install "$file"
    mv /tmp/aside "$(signer_in_store)"
    assert_status 1
    assert_line "pvrm: $file can't be installed: its signer is not trusted here, as there is no certificate $(signer_in_store); pvrm trust puts one there"
    refute_installed foo
}

@test "a content that the signature does not fit is told" {
    file=$(package foo)
    printf 'x' >>"$file"
    run pvrm install "$file"
    assert_status 1
    assert_line "pvrm: $file can't be installed: the signature does not fit its content"
}

@test "a directory or a file of another kind is no package" {
    run pvrm install /etc/
    assert_status 1
    assert_line 'pvrm: /etc/ is not a regular file'
    run pvrm install /etc/passwd
    assert_line 'pvrm: /etc/passwd is not a package file: its name does not end in .vrk'
}

@test "a file of another package is never replaced" {
    pvrm install "$(package a data/usr/share/both=a)"
    run pvrm install "$(package b data/usr/share/both=b)"
    assert_status 1
    assert_line 'pvrm: /usr/share/both is on the disk already and belongs to the package a'
    assert_line 'pvrm: the installation of b_any_1.0 failed'
    refute_output_has 'rolled back'
    assert_equal "$(cat /usr/share/both)" a
    refute_installed b
}

@test "without a terminal a file that nobody owns is replaced, and that is told" {
    echo mine >/usr/share/conflict
    run pvrm install "$(package foo data/usr/share/conflict=theirs)"
    assert_status 0
    assert_line 'pvrm: replacing /usr/share/conflict, which was on the disk already'
    assert_equal "$(cat /usr/share/conflict)" theirs
}

@test "a script that fails takes the package back" {
    run pvrm install "$(package foo 'init/99-add.sh=echo from the script; exit 3')"
    assert_status 1
    assert_line 'pvrm: executing post-install script for foo_any_1.0'
    assert_line 'from the script'
    assert_line 'pvrm: the script 99-add.sh of foo_any_1.0, which runs after the installation, failed: exit status 3'
    assert_line 'pvrm: foo was not installed'
    [[ ! -e /usr/share/foo/about ]]
    refute_installed foo
}

@test "what a rollback leaves is named" {
    mkdir -p /usr/share/foo
    echo mine >/usr/share/foo/mine
    run pvrm install "$(package foo data/usr/share/foo/mine=theirs conf/etc/foo.conf=new \
        'info/link.txt=/usr/share|foo|foolink' \
        'init/99-add.sh=rm -r /usr/share/foo; echo in the way >/usr/share/foo; exit 3')"
    rm /usr/share/foo
    assert_status 1
    assert_line 'pvrm: /etc/foo.conf is new and stays: a rollback of foo_any_1.0 leaves it'
    assert_line 'pvrm: /usr/share/foolink is new and stays: a rollback of foo_any_1.0 leaves it'
    assert_output_has 'pvrm: /usr/share/foo/mine was lost in the rollback of foo_any_1.0; its copy is /var/lib/vrm/saved/'
    assert_equal "$(cat /var/lib/vrm/saved/*/usr/share/foo/mine)" mine
    # Nothing is in the way any more.
    run pvrm recover
    assert_status 0
    assert_equal "$(cat /usr/share/foo/mine)" mine
    [[ ! -e /etc/foo.conf && ! -L /usr/share/foolink ]]
}

@test "a package that fails before it changes anything leaves nothing to name" {
    run pvrm install "$(package foo conf/etc/foo.conf=new 'init/00-add.sh=exit 3')"
    assert_status 1
    refute_output_has stays
    refute_output_has 'rolled back'
}

@test "a configuration script that fails is told, and the package stays" {
    run pvrm install "$(package foo 'init/99-cfg.sh=exit 3')"
    assert_status 0
    assert_line 'pvrm: the configuration script 99-cfg.sh of foo failed: exit status 3; the package stays installed'
    is_installed foo
}

@test "what a script prints is not taken for what the engine says" {
    run pvrm install "$(package foo 'init/00-add.sh=printf "Configured x, rc = 1"')"
    assert_status 0
    refute_output_has 'failed'
}

@test "a script may print a very long line" {
    run pvrm install "$(package foo 'init/00-add.sh=head -c 300000 /dev/zero | tr "\000" x; exit 0')"
    assert_status 0
    is_installed foo
}

@test "a hook runs at the end" {
    cat >/etc/vrm/hooks.d/test.vrh <<'END'
evrhType: 99-cfg
evrhCond: data:/usr/share/hooked/*
evrhExec: /bin/touch /tmp/ran
END
    run pvrm install "$(package foo data/usr/share/hooked/x=1)"
    rm /etc/vrm/hooks.d/test.vrh
    assert_status 0
    assert_line 'pvrm: configured foo'
    [[ -e /tmp/ran ]]
}

@test "a full stage area is told, and nothing is installed" {
    file=$(package foo "data/usr/share/foo/big=$(head -c 300000 /dev/urandom | base64 -w 0)")
    mount -t tmpfs -o size=64k,mode=755 tmpfs "$repository/stagearea"
    run pvrm install --ignore-space "$file"
    umount "$repository/stagearea"
    assert_status 1
    assert_output_has 'No space left on device'
    assert_line 'pvrm: foo was not installed'
    refute_installed foo
    [[ ! -e $repository/lock ]]
}

@test "a missing directory of the repository is told with what to do" {
    file=$(package foo)
    rmdir "$repository/stagearea"
    run pvrm install "$file"
    assert_status 1
    assert_equal "$output" "pvrm: there is no directory $repository/stagearea, or it can't be reached; make what is missing with: pvrm init"
}

@test "the log takes the lines of the engine, with --verbose all of them" {
    file=$(package foo)
    pvrm install --dry-run "$file"
    assert_equal "$(grep -c '\[DEBUG\]' /var/log/pvrm.log)" 0
    grep -q 'Setting log level 7$' /var/log/pvrm.log
    pvrm install --verbose "$file"
    grep -q '\[DEBUG\]' /var/log/pvrm.log
    grep -q 'Setting log level 15$' /var/log/pvrm.log
}

@test "a log that can't be written is a warning" {
    file=$(package foo)
    mkdir /var/log/pvrm.log
    run pvrm install "$file"
    rmdir /var/log/pvrm.log
    assert_status 0
    assert_equal "${lines[0]}" "pvrm: warning: there is no log of this, as /var/log/pvrm.log can't be written: Is a directory"
    is_installed foo
}

@test "what is installed doesn't depend on the caller's umask" {
    (umask 077 && pvrm install "$(package foo)")
    assert_equal "$(stat -c %a /usr/share/foo/about /usr/share/foo)" $'644\n755'
}

@test "closed standard streams do no harm" {
    file=$(package foo)
    pvrm install "$file" <&- >&- 2>&-
    is_installed foo
    assert_equal "$(wc -l <"$repository/installed/foo/inst.txt")" 2
}
