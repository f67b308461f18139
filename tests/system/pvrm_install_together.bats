#!/usr/bin/env bats
# Installing and upgrading several packages with one command.

load helpers

setup_file() { begin_tests catalogue; }

setup() { clean_repository; }

# The heads of packages: for whose sake each was installed.
heads() { # NAME...
    local name
    for name; do
        sed -n "s/^evrkInstallHead: /$name:/p" "$repository/installed/$name/inst.txt"
    done | tr '\n' ' '
}

@test "package files that were named are dependencies of each other, in either order" {
    local order
    a=$(package a needs=b out="$BATS_TEST_TMPDIR/one")
    b=$(package b out="$BATS_TEST_TMPDIR/two")
    for order in "$a $b" "$b $a"; do
        # shellcheck disable=SC2086
        run pvrm install $order
        assert_status 0
        assert_output_has '2 packages, '
        assert_equal "$(install_type a)$(install_type b)" XX
        assert_equal "$(grep -o 'installed .*_1.0' <<<"$output" | tr '\n' ' ')" \
            'installed b_any_1.0 installed a_any_1.0 '
        pvrm remove a b
    done
}

@test "only the files that were named serve, not their directories" {
    package b >/dev/null
    package c >/dev/null
    run pvrm install "$(package a needs=b)" "$(package d)"
    assert_status 1
    refute_installed a
    is_installed d
}

@test "named files and the catalogue together" {
    put_on_offer c
    a=$(package a needs=b needs=c)
    b=$(package b needs=c)
    run pvrm install "$a" "$b"
    assert_status 0
    assert_output_has '3 packages, '
    assert_equal "$(grep -c 'getting c_any' <<<"$output")" 1
    assert_equal "$(install_type a)$(install_type b)$(install_type c)" XXD
}

@test "a file that is needed by something of the catalogue is installed before it" {
    put_on_offer c needs=b
    b=$(package b)
    run pvrm install "$(package a needs=c)" "$b"
    assert_status 0
    assert_equal "$(grep -o 'installed .*_1.0' <<<"$output" | tr '\n' ' ')" \
        'installed b_any_1.0 installed c_any_1.0 installed a_any_1.0 '
}

@test "a named file is preferred over the catalogue and over --dir" {
    put_on_offer b version=3.0
    package b version=2.0 out="$BATS_TEST_TMPDIR/more" >/dev/null
    b=$(package b version=1.0)
    run pvrm install --dir "$BATS_TEST_TMPDIR/more" "$(package a needs=b)" "$b"
    assert_status 0
    assert_equal "$(version_of b)$(install_type b)" 1.0X
}

@test "a named file that can't be used is not a dependency either" {
    put_on_offer b version=3.0
    b=$(package b version=1.0)
    printf x >>"$b"
    a=$(package a needs=b)
    run pvrm install "$a" "$b"
    assert_status 1
    assert_equal "$(version_of b)$(install_type b)" 3.0D
    is_installed a
}

@test "two that need each other are both installed explicitly" {
    a=$(package a needs=b)
    b=$(package b needs=a)
    run pvrm install "$a" "$b"
    assert_status 0
    assert_output_has '2 packages, '
    assert_equal "$(install_type a)$(install_type b)" XX
    pvrm remove a b
    put_on_offer a needs=b
    put_on_offer b needs=a
    run pvrm install a b
    assert_status 0
    assert_equal "$(install_type a)$(install_type b)" XX
}

@test "what is named counts as asked for, and what several need is fetched once" {
    put_on_offer a needs=b needs=c
    put_on_offer b needs=c
    put_on_offer c
    run pvrm install a b
    assert_status 0
    assert_output_has '3 packages, '
    assert_equal "$(grep -c 'getting c_any' <<<"$output")" 1
    assert_equal "$(install_type a)$(install_type b)$(install_type c)" XXD
    assert_equal "$(heads c)" 'c:b '
}

@test "what a failed request should have brought is brought by the next one that needs it" {
    # Dependencies are installed from the last one on, so e ends before c is there.
    put_on_offer b needs=c
    put_on_offer c
    put_on_offer e needs=c needs=broken
    put_on_offer broken 'init/00-add.sh=exit 4'
    run pvrm install e b
    assert_status 1
    refute_installed e
    is_installed b
    is_installed c
    assert_equal "$(tail -n 2 <<<"$output")" 'pvrm: 1 of 2 installations failed:
  e: the script 00-add.sh of broken_any_1.0, which runs before the installation, failed: exit status 4'
}

@test "a request that needs a failed one fails, and the last lines say why" {
    put_on_offer a needs=b
    put_on_offer b 'init/00-add.sh=echo asked; exit 3'
    put_on_offer c 'init/99-cfg.sh=echo configured c'
    run pvrm install a b nowhere c ./none.vrk
    assert_status 1
    assert_line 'pvrm: a was not installed: it needs b, which was not installed'
    assert_equal "$(grep -c asked <<<"$output")" 1
    is_installed c
    assert_equal "$(tail -n 5 <<<"$output")" 'pvrm: 4 of 5 installations failed:
  nowhere: it was not found in the package catalogue
  ./none.vrk: No such file or directory
  b: the script 00-add.sh of b_any_1.0, which runs before the installation, failed: exit status 3
  a: it needs b, which was not installed'
    run pvrm install --dry-run a nowhere
    assert_status 1
    assert_equal "$(tail -n 1 <<<"$output")" '  nowhere: it was not found in the package catalogue'
}

@test "an upgrade takes new dependencies from the files that were named" {
    pvrm install "$(package a)"
    a=$(package a version=2.0 needs=b)
    b=$(package b needs=c)
    put_on_offer c
    run pvrm upgrade "$b" "$a"
    assert_status 0
    refute_output_has 'b is not installed'
    assert_output_has '3 packages, '
    assert_equal "$(version_of a)$(version_of b)" 2.01.0
    assert_equal "$(install_type a)$(install_type b)$(install_type c)" XDD
    run pvrm upgrade "$(package d)" "$(package a version=3.0)"
    assert_status 1
    assert_line 'pvrm: d is not installed'
    assert_equal "$(version_of a)" 3.0
    assert_equal "$(tail -n 1 <<<"$output")" "  $BATS_TEST_TMPDIR/packages/d_any_1.0.vrk: d is not installed"
}

@test "a new dependency that two upgrades share is fetched and shown once" {
    pvrm install "$(package a)" "$(package b)" >/dev/null
    put_on_offer a version=2.0 needs=c
    put_on_offer b version=2.0 needs=c
    put_on_offer c
    run pvrm upgrade
    assert_status 0
    assert_output_has '3 packages, '
    assert_equal "$(grep -c 'retrieving c_any\|getting c_any' <<<"$output")" 1
    assert_equal "$(version_of a)$(version_of b)$(install_type c)" 2.02.0D
}

@test "an upgrade of everything names what failed at the end" {
    pvrm install "$(package a)" "$(package b)" "$(package c)" >/dev/null
    put_on_offer a version=2.0 'init/00-add.sh=exit 3'
    put_on_offer b version=2.0
    run pvrm upgrade
    assert_status 1
    assert_equal "$(tail -n 2 <<<"$output")" 'pvrm: 1 of 2 upgrades failed:
  a: the script 00-add.sh of a_any_2.0, which runs before the upgrade, failed: exit status 3'
}

# ---- Package files that can't be used ----

@test "a named file that can't be used is not taken from a directory either" {
    b=$(package b)
    printf x >>"$b"
    a=$(package a needs=b)
    d=$(package d)
    local order
    for order in "$a $b" "$b $a"; do
        # shellcheck disable=SC2086
        run timeout 60 pvrm install --dir "${a%/*}" $order "$d"
        assert_status 1
        assert_line "pvrm: $a can't be installed: it needs b, whose package file $b can't be used"
        refute_installed a
        refute_installed b
        is_installed d
        pvrm remove d
    done
}

@test "a named file for another machine does not stand in the way of one for this machine" {
    other=$(package b arch=mips out="$BATS_TEST_TMPDIR/other")
    b=$(package b)
    a=$(package a needs=b)
    run pvrm install "$a" "$other" "$b"
    assert_status 1
    assert_output_has 'it is built for mips'
    assert_equal "$(install_type a)$(install_type b)" XX
}

@test "the order of the requests does not decide whether a file can be done without" {
    put_on_offer b version=3.0
    b=$(package b needs=nowhere)
    a=$(package a needs=b)
    local order
    for order in "$a $b" "$b $a"; do
        # shellcheck disable=SC2086
        run pvrm install $order
        assert_status 1
        is_installed a
        assert_equal "$(version_of b)$(install_type b)" 3.0D
        refute_output_has "$a can't"
        assert_equal "$(grep -c 'b needs nowhere' <<<"$output")" 2  # once in the summary
        pvrm remove a
        refute_installed b
    done
}

@test "a file that an upgrade only needs is verified before anything happens" {
    pvrm install "$(package a)"
    put_on_offer b version=3.0
    b=$(package b)
    printf x >>"$b"
    a=$(package a version=2.0 needs=b)
    local order
    for order in "$a $b" "$b $a"; do
        # shellcheck disable=SC2086
        run pvrm upgrade --dry-run $order
        assert_status 1
        assert_output_has "$b can't be upgraded"
    done
    run pvrm upgrade "$a" "$b"
    assert_status 1
    assert_equal "$(version_of a)$(version_of b)$(install_type b)" 2.03.0D
}

@test "a dependency that failed is not tried again for the next request that needs it" {
    put_on_offer a needs=c
    put_on_offer b needs=c
    put_on_offer c 'init/00-add.sh=echo asked; exit 3'
    run pvrm install a b
    assert_status 1
    assert_equal "$(grep -c asked <<<"$output")" 1
    assert_line 'pvrm: b was not installed: it needs c, which was not installed'
}

@test "a single file in a circle is installed explicitly, and in its own version" {
    put_on_offer a version=2.0 needs=b
    put_on_offer b needs=a
    run pvrm install "$(package a needs=b)"
    assert_status 0
    assert_equal "$(version_of a)$(install_type a)$(install_type b)" 1.0XD
}
