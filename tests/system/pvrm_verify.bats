#!/usr/bin/env bats
# The files of installed packages beside what was delivered, with the command line tool.

load helpers

setup_file() { begin_tests; }

setup() {
    clean_repository
    rm -rf /etc/foo.conf /etc/bar.conf
    pvrm install "$(package foo data/usr/share/foo/a=one data/usr/share/foo/b=two \
        conf/etc/foo.conf=setting dump/notes=kept init/00-del.sh='exit 0')"
}

# The command's output without what it writes to stderr.
run_without_stderr() { # COMMAND [ARGUMENT]...
    run bash -c '"$@" 2>"$0"' "$BATS_TEST_TMPDIR/stderr" "$@"
}

sha1_of() { # FILE
    sha1sum "$1" | cut -d' ' -f1
}

@test "packages as delivered are one line each, and need no right" {
    pvrm install "$(package bar)"
    run as_nobody pvrm verify
    assert_status 0
    assert_equal "$output" 'bar summary: dump: (0/0) conf: (0/0) data: (1/0) init: (0/0)
foo summary: dump: (1/0) conf: (1/0) data: (2/0) init: (1/0)'
    run pvrm verify bar
    assert_status 0
    assert_equal "$output" 'bar summary: dump: (0/0) conf: (0/0) data: (1/0) init: (0/0)'
}

@test "--verbose tells each file" {
    run pvrm verify --verbose foo
    assert_status 0
    local entry=$repository/installed/foo
    assert_equal "$output" "Found 1 hashes stored for fork: dump
$entry/dump/notes verfied ok.
Found 1 hashes stored for fork: init
$entry/init/00-del.sh verfied ok.
Found 2 hashes stored for fork: data
/usr/share/foo/a verfied ok.
/usr/share/foo/b verfied ok.
Found 1 hashes stored for fork: conf
$entry/conf/etc/foo.conf verfied ok.
/etc/foo.conf verfied ok.
foo summary: dump: (1/0) conf: (1/0) data: (2/0) init: (1/0)"
}

@test "a changed file is told on stderr, and the engine's text alone is on stdout" {
    local before
    before=$(sha1_of /usr/share/foo/a)
    echo changed >/usr/share/foo/a
    rm /usr/share/foo/b
    run_without_stderr pvrm verify
    assert_status 1
    assert_equal "$output" 'foo summary: dump: (1/0) conf: (1/0) data: (2/2) init: (1/0)'
    assert_equal "$(cat "$BATS_TEST_TMPDIR/stderr")" \
        "pvrm: /usr/share/foo/a was changed: its SHA-1 is $(sha1_of /usr/share/foo/a), and $before was delivered
pvrm: /usr/share/foo/b is missing, or can't be read"
}

@test "an edited configuration file is told and is no failure, a missing one is" {
    echo mine >/etc/foo.conf
    run pvrm verify foo
    assert_status 0
    assert_equal "$output" '/etc/foo.conf is not the same on fs, this is normal.
foo summary: dump: (1/0) conf: (1/0) data: (2/0) init: (1/0)'
    rm /etc/foo.conf
    run_without_stderr pvrm verify foo
    assert_status 1
    assert_equal "$output" 'foo summary: dump: (1/0) conf: (1/1) data: (2/0) init: (1/0)'
    assert_equal "$(cat "$BATS_TEST_TMPDIR/stderr")" \
        "pvrm: the configuration file /etc/foo.conf is missing, or can't be read"
}

@test "a file that may not be read is told" {
    chmod 000 /usr/share/foo/a
    run as_nobody pvrm verify foo
    assert_status 1
    assert_line "pvrm: /usr/share/foo/a is missing, or can't be read"
    run pvrm verify foo
    assert_status 0
}

@test "a damaged list is a failure, and the other packages are verified" {
    pvrm install "$(package bar)"
    echo short >"$repository/installed/foo/hash/init.txt"
    run_without_stderr pvrm verify foo bar
    assert_status 1
    assert_equal "$output" 'bar summary: dump: (0/0) conf: (0/0) data: (1/0) init: (0/0)'
    assert_equal "$(cat "$BATS_TEST_TMPDIR/stderr")" \
        "pvrm: a list of the package holds a line that is too short
pvrm: foo can't be verified: the list of its init files can't be used"
}

@test "a list that may not be read is a failure" {
    chmod 000 "$repository/installed/foo/hash/data.txt"
    run as_nobody pvrm verify foo
    assert_status 1
    assert_equal "$output" \
        "pvrm: $repository/installed/foo/hash/data.txt can't be opened for reading: Permission denied
pvrm: foo can't be verified: the list of its data files can't be used"
}

@test "what is not installed is a failure, and the other packages are verified" {
    run pvrm verify nothing foo
    assert_status 1
    assert_line 'pvrm: nothing is not installed'
    assert_line 'foo summary: dump: (1/0) conf: (1/0) data: (2/0) init: (1/0)'
    run pvrm verify ../installed/foo
    assert_status 1
}

@test "an entry that is no package is a failure when all are verified" {
    mkdir "$repository/installed/half"
    run pvrm verify
    assert_status 1
    assert_line "pvrm: the inventory's entry of half is damaged, and passed over"
    assert_line 'foo summary: dump: (1/0) conf: (1/0) data: (2/0) init: (1/0)'
    run pvrm verify foo
    assert_status 0
}

@test "an entry with the record of another package is a failure, and its files are verified" {
    cp -r "$repository/installed/foo" "$repository/installed/foo.bak"
    echo "$(printf '%040d' 0):usr/share/gone" >>"$repository/installed/foo.bak/hash/data.txt"
    run_without_stderr pvrm verify
    assert_status 1
    assert_equal "$output" 'foo summary: dump: (1/0) conf: (1/0) data: (2/0) init: (1/0)
foo.bak summary: dump: (1/0) conf: (1/0) data: (3/1) init: (1/0)'
    assert_equal "$(cat "$BATS_TEST_TMPDIR/stderr")" \
        "pvrm: the inventory's entry foo.bak has the record of another package, foo
pvrm: /usr/share/gone is missing, or can't be read"
    run pvrm verify foo
    assert_status 0
    cp "$repository/installed/foo/hash/data.txt" "$repository/installed/foo.bak/hash/"
    for names in '' foo.bak; do
        # shellcheck disable=SC2086
        run pvrm verify $names
        assert_status 1
    done
}

@test "nothing installed is nothing to verify" {
    clean_repository
    run pvrm verify
    assert_status 0
    assert_equal "$output" ''
}

@test "an upgraded package is verified by its new lists" {
    pvrm upgrade "$(package foo version=2.0 data/usr/share/foo/a=new)"
    run pvrm verify foo
    assert_status 0
    assert_line 'foo summary: dump: (0/0) conf: (0/0) data: (1/0) init: (0/0)'
}

@test "names can't steer the terminal" {
    run pvrm verify $'\e[31mred'
    assert_status 1
    assert_equal "$output" 'pvrm: \x1B[31mred is not installed'
}

@test "a deleted link and modes that differ are failures" {
    pvrm install "$(package bar data/usr/share/bar/a=a data/usr/share/bar/b=b \
        info/link.txt='/usr/share/bar|a|link' info/perm.txt='/usr/share/bar/a|0640')"
    run pvrm verify bar
    assert_status 0
    assert_equal "$output" 'bar summary: dump: (0/0) conf: (0/0) data: (2/0) init: (0/0)'
    rm /usr/share/bar/link
    chmod 777 /usr/share/bar/a /usr/share/bar/b
    run pvrm verify bar
    assert_status 1
    assert_equal "$output" 'bar summary: dump: (0/0) conf: (0/0) data: (2/0) init: (0/0)
the link /usr/share/bar/link of bar is missing; make it again by ln -s, it points to a
the mode of /usr/share/bar/a of bar is 0777 and not 0640; chmod 0640 sets it again
everybody can write to /usr/share/bar/b of bar, its mode is 0777; chmod o-w ends that'
    ln -s a /usr/share/bar/link
    chmod 0640 /usr/share/bar/a
    chmod o-w /usr/share/bar/b
    run pvrm verify bar
    assert_status 0
}

@test "a missing file with a listed mode is reported once" {
    pvrm install "$(package bar conf/etc/bar.conf=secret \
        info/perm.txt=$'/usr/share/bar/about|0640\n/etc/bar.conf|0600')"
    rm /usr/share/bar/about /etc/bar.conf
    run pvrm verify bar
    assert_status 1
    assert_equal "$(grep -c /usr/share/bar/about <<<"$output")" 1
    assert_equal "$(grep -c 'file /etc/bar.conf' <<<"$output")" 1
    refute_output_has 'its mode would be'
}

@test "the mode of a configuration file is the administrator's, but not wider than listed" {
    pvrm install "$(package bar conf/etc/bar.conf=secret info/perm.txt='/etc/bar.conf|0640')"
    chmod 600 /etc/bar.conf
    chmod 666 /etc/foo.conf
    run pvrm verify
    assert_status 0
    chmod 644 /etc/bar.conf
    run pvrm verify bar
    assert_status 1
    assert_line 'the mode of /etc/bar.conf of bar is 0644 and not 0640; chmod 0640 sets it again'
}
