#!/usr/bin/env bats
# The forms in which list, search and info show packages. They go to stdout, and scripts rely on them.

bats_require_minimum_version 1.5.0
load helpers

setup_file() {
    begin_tests catalogue
    clean_repository
    export file
    file=$(package foo needs=bar version=1.2 variant=x out="$BATS_FILE_TMPDIR")
    package bar out="$BATS_FILE_TMPDIR" >/dev/null
    pvrm install --dir "$BATS_FILE_TMPDIR" "$file"
    sed -i 's/^evrkInstallTime: .*/evrkInstallTime: 1700000000/' "$repository"/installed/*/inst.txt
    offer known foo x 1.2 1 'The package, foo' 'bar,baz' /nowhere
    offer known foo '' 2.0 1 'A newer foo' '' /nowhere
    export TZ=UTC
}

# Runs pvrm and compares all of stdout, to the last newline, with a text; nothing is on stderr.
assert_shows() { # EXPECTED ARGUMENT...
    local expected=$1 shown
    shift
    shown=$(
        pvrm "$@" 2>"$BATS_TEST_TMPDIR/err"
        echo "status $?"
    )
    assert_equal "$shown" "${expected}status 0"
    assert_equal "$(cat "$BATS_TEST_TMPDIR/err")" ''
}

@test "list as text is the form for everything that is no terminal" {
    local text
    text="$(report_row 'Name (with variant)' Version Description)
$(report_row ------------------- ------- -----------)
$(report_row bar 1.0 'The package bar for tests')
$(report_row foo_x 1.2 'The package foo for tests')

"
    assert_shows "$text" list
    assert_shows "$text" list --format text
    assert_shows "$text" list --format=text '*'
}

@test "list as a table" {
    assert_shows "\
Found 2 matching installed packages
Name  Variant  Version  Description
----  -------  -------  -------------------------
bar            1.0      The package bar for tests
foo   x        1.2      The package foo for tests
" list --format table
}

@test "list as LDIF" {
    assert_shows "\
dn: evrkUid=bar_any_1.0,dc=vorathan,dc=org
evrkUid: bar_any_1.0
evrkName: bar
evrkVersion: 1.0
evrkArchitecture: any
evrkCreator: Test
evrkDescription: The package bar for tests
evrkDataSize: 8
evrkInstallTime: 1700000000
evrkInstallType: D
evrkInstallHead: foo

dn: evrkUid=foo_x_any_1.2,dc=vorathan,dc=org
evrkUid: foo_x_any_1.2
evrkName: foo
evrkVariant: x
evrkVersion: 1.2
evrkArchitecture: any
evrkCreator: Test
evrkDescription: The package foo for tests
evrkDependency: bar
evrkDataSize: 8
evrkInstallTime: 1700000000
evrkInstallType: X


" list --format ldif
}

@test "list as CSV, whose rows and header don't fit each other" {
    assert_shows "\
evrkName,evrkVariant,evrkVersion,evrkArchitecture,evrkCreator,evrkDescription,evrkDependency,evrkRsaSigSubj,evrkInstallTime,evrkUpdateTime,evrkInstallType,evrkInstallHead
bar,,1.0,any,Test,The package bar for tests,,8,1700000000,,D,foo
foo,x,1.2,any,Test,The package foo for tests,bar,8,1700000000,,X

" list --format csv
}

@test "search in its forms" {
    assert_shows "\
$(report_row 'Name (with variant)' Version Description)
$(report_row ------------------- ------- -----------)
$(report_row foo_x 1.2 '[installed] The package, foo')
$(report_row foo 2.0 '[1.2_x installed] A newer foo')

" search foo
    assert_shows "\
Found 2 matching packages in catalogue
Name  Variant  Version  Description
----  -------  -------  -----------------------------
foo   x        1.2      [installed] The package, foo
foo            2.0      [1.2_x installed] A newer foo
" search --format table foo
    assert_shows "\
dn: evrkUid=foo_any_2.0,dc=vorathan,dc=org
evrkUid: foo_any_2.0
evrkName: foo
evrkVersion: 2.0
evrkArchitecture: any
evrkDescription: A newer foo
evrkDataSize: 0
evrkFileSize: 0
evrkAbsoluteURI: /nowhere


" search --format ldif '*newer*'
    assert_shows "\
evrkName,evrkVariant,evrkVersion,evrkArchitecture,evrkCreator,evrkDescription,evrkDependency,evrkRsaSigSubj,evrkFileSize,evrkFileHash,evrkAbsoluteURI,evrkRelativeURI
foo,x,1.2,any,,\"The package, foo\",bar|baz,0,,0,,/nowhere,

" search --format csv 'The*'
}

@test "info in its forms" {
    assert_shows "\
Name: foo
Variant: x
Version: 1.2
Architecture: any
Creator: Test
Dependency: bar
Description: The package foo for tests

Installed at: 2023-11-14 22:13:20
Installed as: Explicit request
" info foo
    assert_shows "\
dn: evrkUid=foo_x_any_1.2,dc=vorathan,dc=org
evrkUid: foo_x_any_1.2
evrkName: foo
evrkVariant: x
evrkVersion: 1.2
evrkArchitecture: any
evrkCreator: Test
evrkDependency: bar
evrkDescription: The package foo for tests
evrkDataSize: 8
evrkFileSize: 0
evrkInstallTime: 2023-11-14 22:13:20
evrkInstallType: X

" info --format ldif foo
    assert_shows $'foo:x:1.2:any:Test:bar:The package foo for tests\n' info --format csv foo
    assert_shows "\
Package details
  Name:         foo
  Variant:      x
  Version:      1.2
  Architecture: any
  Creator:      Test
  Description:  The package foo for tests
  Dependency:   bar
  Data size:    8 bytes
  Installed at: 2023-11-14 22:13:20
  Installed as: Explicit request
" info --format form foo
}

@test "a terminal gets a table that fits it, and a form" {
    run on_terminal 'stty columns 40; pvrm list'
    assert_status 0
    assert_equal "$output" "\
Found 2 matching installed packages
Name  Variant  Version  Description
----  -------  -------  ----------------
bar            1.0      The package bar…
foo   x        1.2      The package foo…"
    run on_terminal 'stty columns 40; pvrm search newer'
    assert_line 'foo            2.0      [1.2_x installe…'
    run on_terminal 'pvrm info foo'
    assert_line 'Package details'
    assert_line '  Installed as: Explicit request'
    run on_terminal "pvrm list --format text | cat"
    assert_line "$(report_row bar 1.0 'The package bar for tests')"
}

@test "what is there for programs reaches them byte by byte" {
    offer known odd '' 1.0 1 $'An \e[31modd\e[0m text' '' /nowhere
    pvrm search --format ldif odd >"$BATS_TEST_TMPDIR/out"
    grep -qF $'evrkDescription: An \e[31modd' "$BATS_TEST_TMPDIR/out"
    pvrm search odd >"$BATS_TEST_TMPDIR/out"
    grep -qF 'An \x1B[31modd' "$BATS_TEST_TMPDIR/out"
}

@test "a listing that goes into a file is written in large pieces" {
    local number
    for number in {100..199}; do
        cp -a "$repository/installed/bar" "$repository/installed/bar$number"
        sed -i "s/^evrkName: .*/evrkName: bar$number/" "$repository/installed/bar$number/desc.txt"
    done
    # The leak checker does not work under a tracer.
    ASAN_OPTIONS=detect_leaks=0 strace -o "$BATS_TEST_TMPDIR/trace" -e trace=write \
        pvrm list >"$BATS_TEST_TMPDIR/list"
    rm -r "$repository"/installed/bar1*
    (($(wc -l <"$BATS_TEST_TMPDIR/list") > 100))
    (($(grep -c '^write(1,' "$BATS_TEST_TMPDIR/trace") < 10))
}

@test "in one file both kinds of output keep their order, and that of scripts" {
    local both=$BATS_TEST_TMPDIR/both said
    pvrm info "$(package said)" >"$both" 2>&1
    assert_equal "$(grep -n '^pvrm: ' "$both" | cut -d: -f1)" "$(wc -l <"$both")"
    said=$(package said init/99-cfg.sh='echo "the script"; echo "its error" >&2')
    pvrm install --yes "$said" missing >"$both" 2>&1 || true
    pvrm remove --yes said >>"$both" 2>&1
    assert_equal "$(sed -nE 's/^(pvrm: )?(missing was|Package|the script|its error|installed|removed).*/\2/p' \
        "$both")" 'missing was
Package
installed
the script
its error
Package
removed'
}

@test "nothing found is told on stderr, and nothing is on stdout" {
    for format in text table ldif csv; do
        run --separate-stderr pvrm list --format "$format" zzz
        assert_status 1
        assert_equal "$output/$stderr" '/pvrm: no installed package matches zzz'
        run --separate-stderr pvrm search --format "$format" zzz
        assert_status 1
        assert_equal "$output/$stderr" '/pvrm: nothing in the package catalogue matches zzz'
    done
    run --separate-stderr pvrm info --format ldif zzz
    assert_status 1
    assert_equal "$output" ''
}

@test "another form is wrong usage" {
    for arguments in 'list --format form' 'search --format xml foo' 'info --format table foo' \
        'list --format' 'list --format 1'; do
        # shellcheck disable=SC2086
        run --separate-stderr pvrm $arguments
        assert_status 2
        assert_equal "$output" ''
    done
}

@test "no list stays behind in /tmp, and without room there the reason is told" {
    pvrm list >/dev/null
    run compgen -G '/tmp/vri_list*'
    assert_equal "$output" ''
    run unshare --mount bash -c 'mount -t tmpfs -o size=4k,nr_inodes=1 none /tmp && pvrm list'
    assert_status 1
    assert_equal "$output" "pvrm: the list can't be kept in a temporary file: No space left on device"
    # What is for programs needs no file.
    run unshare --mount bash -c 'mount -t tmpfs -o size=4k,nr_inodes=1 none /tmp && pvrm list --format ldif'
    assert_status 0
}
