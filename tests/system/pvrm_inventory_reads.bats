#!/usr/bin/env bats
# How often a command reads what is installed: each entry once for all its plans, and once more after
# a change of it.

load helpers

setup_file() { begin_tests catalogue; }

setup() { clean_repository; }

# Runs a command and keeps which description files it opens for reading, one path a line.
read_by() { # COMMAND [ARGUMENT]...
    # The leak checker does not work under a tracer.
    ASAN_OPTIONS=detect_leaks=0 strace -f -o "$BATS_TEST_TMPDIR/trace" -e trace=openat "$@"
    keep_opened
}

keep_opened() {
    grep -o "openat([^,]*, \"$repository/installed/[^\"]*/desc.txt\", O_RDONLY" \
        "$BATS_TEST_TMPDIR/trace" | cut -d'"' -f2 >"$BATS_TEST_TMPDIR/opened" || true
}

# How often the entry of a package was read.
times_read() { # NAME
    grep -cxF "$repository/installed/$1/desc.txt" "$BATS_TEST_TMPDIR/opened" || true
}

assert_read_at_most() { # TIMES NAME...
    local name limit=$1
    for name in "${@:2}"; do
        (($(times_read "$name") <= limit)) || {
            printf '%s was read %d times, and %d are enough\n' "$name" "$(times_read "$name")" \
                "$limit" >&2
            return 1
        }
    done
}

@test "an upgrade reads a package for its plan, as the engine's steps do, and when it is done" {
    pvrm --quiet install --yes "$(package a)" "$(package b)" "$(package c)"
    pvrm --quiet install --yes "$(package d needs=c)"
    put_on_offer a version=2.0 needs=c
    put_on_offer b version=2.0 init/99-cfg.sh='exit 0'
    put_on_offer c version=1.0
    read_by pvrm upgrade --yes
    assert_equal "$(version_of a) $(version_of b)" '2.0 2.0'
    # For the plan, before its files are changed, before its configuration script, and afterwards.
    assert_read_at_most 4 a b
    assert_read_at_most 1 c d
    (($(times_read c) == 1))
}

@test "a dry run of an upgrade reads each package once" {
    pvrm --quiet install --yes "$(package a)" "$(package b)" "$(package c)"
    put_on_offer a version=2.0 needs=c
    put_on_offer b version=2.0 needs=c
    read_by pvrm upgrade --dry-run
    assert_read_at_most 1 a b c
    (($(times_read a) == 1))
}

@test "a removal reads each package once, however many are removed" {
    pvrm --quiet install --yes "$(package a)" "$(package b)" "$(package c)"
    pvrm --quiet install --yes "$(package d needs=c)"
    read_by pvrm remove --dry-run c d a
    assert_read_at_most 1 a b c d
    read_by pvrm remove --yes c d a
    refute_installed a
    assert_read_at_most 1 a b c d
    (($(times_read b) == 1))
}

@test "an installation reads what it needs, and nothing else of what is installed" {
    pvrm --quiet install --yes "$(package a)" "$(package b)"
    read_by pvrm install --yes "$(package c needs=a)"
    is_installed c
    assert_read_at_most 1 a
    assert_read_at_most 0 b
    # Before its configuration script, and afterwards.
    assert_read_at_most 2 c
}

@test "the tree of what a package needs reads each package once" {
    pvrm --quiet install --yes "$(package c)"
    pvrm --quiet install --yes "$(package a needs=c)" "$(package b needs=c)"
    put_on_offer a needs=c
    put_on_offer b needs=c
    put_on_offer c
    put_on_offer top needs=a needs=b
    read_by pvrm depends top
    assert_read_at_most 1 a b c
    (($(times_read c) == 1))
}

@test "a damaged entry is reported with its reason, and once" {
    pvrm --quiet install --yes "$(package a)" "$(package b)"
    echo 'evrkName: b' >"$repository/installed/b/desc.txt"
    run pvrm remove --dry-run a b
    assert_status 1
    assert_line "pvrm: the inventory's entry of b is damaged, and passed over: it does not say which format it has"
    assert_line 'pvrm: b is not installed: it does not say which format it has'
    assert_equal "$(grep -c damaged <<<"$output")" 1
}

# ---- Changes while the question is shown ----

@test "without a change while the question is shown nothing is read again" {
    pvrm --quiet install --yes "$(package a)" "$(package b)" "$(package c)"
    start_on_terminal "ASAN_OPTIONS=detect_leaks=0 strace -f -e trace=openat \
        -o $BATS_TEST_TMPDIR/trace pvrm remove a c"
    await_text 'Remove these 2 packages? [Y/n]'
    type_in $'y\n'
    end_on_terminal
    assert_status 0
    refute_installed a
    refute_output_has 'changed'
    keep_opened
    assert_read_at_most 1 a b c
    (($(times_read b) == 1))
}

@test "a removal is planned again when a package that needs it came while the question was shown" {
    pvrm --quiet install --yes "$(package foo)" "$(package bar)"
    start_on_terminal 'pvrm remove foo'
    await_text 'Remove this package? [Y/n]'
    echo 'evrkDependency: foo' >>"$repository/installed/bar/desc.txt"
    type_in $'y\n'
    end_on_terminal
    assert_status 1
    assert_line 'pvrm: warning: what is installed has changed since the plan was made; it is made anew'
    assert_line "pvrm: foo can't be removed, as bar needs it"
    is_installed foo
}

@test "an installation that would take more than was shown is not carried out" {
    pvrm --quiet install --yes "$(package a)"
    put_on_offer a
    start_on_terminal "pvrm install $(package c needs=a)"
    await_text 'Install this package? [Y/n]'
    rm -r "$repository/installed/a"
    type_in $'y\n'
    end_on_terminal
    assert_status 1
    assert_output_has 'was not installed: what it takes has changed since it was shown; try again'
    refute_installed c
    [[ ! -e $repository/installed/a ]]
}

@test "what is planned again and still as it was shown is carried out" {
    pvrm --quiet install --yes "$(package a)" "$(package b)"
    put_on_offer a version=2.0
    start_on_terminal 'pvrm upgrade'
    await_text 'Upgrade this package? [Y/n]'
    cp -a "$repository/installed/b/inst.txt" "$BATS_TEST_TMPDIR/inst.txt"
    cp -a "$BATS_TEST_TMPDIR/inst.txt" "$repository/installed/b/inst.txt"
    type_in $'y\n'
    end_on_terminal
    assert_status 0
    assert_line 'pvrm: warning: what is installed has changed since the plan was made; it is made anew'
    assert_equal "$(version_of a)" 2.0
}
