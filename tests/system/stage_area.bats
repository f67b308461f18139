#!/usr/bin/env bats
# The stage area: who has a hand in it, what a change keeps there, and what an earlier attempt left.

load helpers
load package_file

setup_file() { begin_tests; }

setup() {
    clean_repository
    rm -rf /srv/elsewhere /usr/share/foo
    area=$repository/stagearea
    chmod 755 "$area"
}

# Puts a file into the payload of a package that its list of data files doesn't have, and signs it
# anew. The signer made a mistake: a package that is verified fails.
add_unlisted_file() { # FILE
    local work=$BATS_TEST_TMPDIR/unlisted
    rm -rf "$work"
    mkdir -p "$work/tree"
    head_of "$1" | sed '/^evrkRsaSigData/,$d' >"$work/head"
    payload_of "$1" | gzip -dc | (cd "$work/tree" && cpio -id --quiet)
    echo stale >"$work/tree/data/usr/share/foo/stale"
    (cd "$work/tree" && find . | cpio -o -H newc --quiet) | gzip >"$work/payload"
    signature_of "$work/payload" >>"$work/head"
    join_package "$work/head" "$work/payload" "$1"
}

# Kills the tool, and its script, as that runs.
# What it leaves is what earlier versions left, which wrote no record.
kill_in_script() { # ARGUMENT...
    start_pvrm "$@"
    kill -KILL "$tool"
    wait "$tool" || true
    touch /tmp/go
    rm -r "$repository/change" "$repository/change.status"
}

# Type, mode, name and content of all that is registered, staged and installed.
state() {
    find "$repository"/{installed,fileindex,stagearea} /usr/share/foo -printf '%y %m %p %l\n' | sort
    find "$repository"/{installed,fileindex,stagearea} /usr/share/foo -type f -exec sha1sum {} + | sort
}

note_state() {
    state >"$BATS_TEST_TMPDIR/before"
}

# Since then nothing was changed.
assert_same_state() {
    state | diff "$BATS_TEST_TMPDIR/before" -
}

# --- Files of other users -------------------------------------------------------------------------

facts_of() { # FILE...
    stat -c '%U:%G %a %y' "$@"
}

# Makes a program that runs as another user.
make_set_uid() { # FILE...
    local file
    for file in "$@"; do
        chown 65534:65534 "$file"
        chmod 4755 "$file"
        touch -d '2001-02-03 04:05:06.123456789' "$file"
    done
}

@test "a failed upgrade gives files their owner, mode and times back" {
    pvrm --quiet install "$(package foo data/usr/share/foo/{kept,gone}=one)"
    make_set_uid /usr/share/foo/{kept,gone}
    before=$(facts_of /usr/share/foo/{kept,gone})
    run pvrm upgrade "$(package foo version=2.0 data/usr/share/foo/kept=two 'init/99-add.sh=exit 1')"
    assert_status 1
    assert_equal "$(cat /usr/share/foo/{kept,gone})" $'one\none'
    assert_equal "$(facts_of /usr/share/foo/{kept,gone})" "$before"
}

@test "so does a failed removal" {
    pvrm --quiet install "$(package foo data/usr/share/foo/program=one 'init/99-del.sh=exit 1')"
    make_set_uid /usr/share/foo/program
    before=$(facts_of /usr/share/foo/program)
    run pvrm remove foo
    assert_status 1
    assert_equal "$(facts_of /usr/share/foo/program)" "$before"
}

@test "nobody else can run a set-uid program from its backup" {
    pvrm --quiet install "$(package foo data/usr/share/foo/program=one "init/99-del.sh=$waiting_script")"
    make_set_uid /usr/share/foo/program
    start_pvrm remove foo
    backup=$area/foo_any_1.0/old/usr/share/foo/program
    assert_equal "$(facts_of "$backup")" 'nobody:nogroup 4755 2001-02-03 04:05:06.123456789 +0000'
    assert_equal "$(stat -c '%U %a' "$area/foo_any_1.0")" 'root 700'
    run as_nobody cat "$backup"
    assert_status 1
    assert_output_has 'Permission denied'
    finish
    assert_status 0
    refute_installed foo
}

# --- An area that others have a hand in -----------------------------------------------------------

# Install, upgrade, remove and cleanup say why, and change nothing.
assert_area_is_refused() { # REASON
    local words
    note_state
    for words in "install $new" "upgrade $next" "remove foo" cleanup; do
        # shellcheck disable=SC2086
        run pvrm $words
        assert_status 1
        assert_equal "$output" "pvrm: cannot use the stage area $area: $1; it must be a directory of root's that nobody else can write to"
    done
    assert_same_state
}

@test "a stage area that others may write to is refused" {
    pvrm --quiet install "$(package foo data/usr/share/foo/x=1)"
    new=$(package bar) next=$(package foo version=2.0 data/usr/share/foo/x=2)
    for mode in 775 757 1777; do
        chmod "$mode" "$area"
        assert_area_is_refused 'others may write to it'
    done
    chmod 755 "$area"
    chown 65534 "$area"
    assert_area_is_refused 'it belongs to user 65534'
    chown root "$area"
    pvrm --quiet upgrade "$next"
}

@test "a link in place of the stage area is refused" {
    pvrm --quiet install "$(package foo data/usr/share/foo/x=1)"
    new=$(package bar) next=$(package foo version=2.0 data/usr/share/foo/x=2)
    mv "$area" /srv/elsewhere
    ln -s /srv/elsewhere "$area"
    echo kept >/srv/elsewhere/file
    assert_area_is_refused 'it is a symbolic link'
    assert_equal "$(ls /srv/elsewhere)" $'file\nfoo_any_1.0.vrk'
    rm "$area"
}

@test "a link in place of a stage directory is refused, and what it leads to is left alone" {
    pvrm --quiet install "$(package foo data/usr/share/foo/x=1 'init/00-del.sh=touch /tmp/started')"
    mkdir /srv/elsewhere
    echo kept >/srv/elsewhere/file
    ln -s /srv/elsewhere "$area/foo_any_1.0"
    run pvrm remove foo
    assert_status 1
    assert_line "pvrm: cannot use the stage directory $area/foo_any_1.0: it is a symbolic link; move it away"
    assert_line 'pvrm: foo was not removed'
    ln -s /srv/elsewhere "$area/bar_any_1.0"
    run pvrm install "$(package bar)"
    assert_status 1
    assert_line "pvrm: cannot use the stage directory $area/bar_any_1.0: it is a symbolic link; move it away"
    assert_line 'pvrm: bar was not installed'
    is_installed foo
    refute_installed bar
    assert_equal "$(ls /srv/elsewhere)" file
    [[ ! -e /tmp/started && ! -e /usr/share/bar ]]
    rm "$area"/*_any_1.0
    pvrm --quiet remove foo
}

# --- What an earlier attempt left -----------------------------------------------------------------

@test "a package that could not be verified is not in the way of a corrected one" {
    file=$(package foo data/usr/share/foo/x=1)
    cp "$file" "$BATS_TEST_TMPDIR/corrected.vrk"
    add_unlisted_file "$file"
    run pvrm install "$file"
    assert_status 1
    assert_line 'pvrm: foo was not installed'
    [[ -e $area/foo_any_1.0/new/data/usr/share/foo/stale ]]
    run pvrm install "$BATS_TEST_TMPDIR/corrected.vrk"
    assert_status 0
    is_installed foo
    [[ -e /usr/share/foo/x && ! -e /usr/share/foo/stale && ! -e $area/foo_any_1.0 ]]
}

@test "nor is one that could not be verified in an upgrade" {
    pvrm --quiet install "$(package foo data/usr/share/foo/x=1)"
    file=$(package foo version=2.0 data/usr/share/foo/x=2)
    cp "$file" "$BATS_TEST_TMPDIR/corrected.vrk"
    add_unlisted_file "$file"
    run pvrm upgrade "$file"
    assert_status 1
    [[ -e $area/foo_any_2.0/new ]]
    run pvrm upgrade "$BATS_TEST_TMPDIR/corrected.vrk"
    assert_status 0
    assert_equal "$(version_of foo)" 2.0
    [[ ! -e /usr/share/foo/stale && ! -e $area/foo_any_2.0 ]]
}

@test "nor is a dependency that could not be verified" {
    mkdir "$BATS_TEST_TMPDIR/good" "$BATS_TEST_TMPDIR/bad"
    package foo data/usr/share/foo/x=1 out="$BATS_TEST_TMPDIR/good"
    add_unlisted_file "$(package foo data/usr/share/foo/x=1 out="$BATS_TEST_TMPDIR/bad")"
    top=$(package top needs=foo)
    run pvrm install --dir "$BATS_TEST_TMPDIR/bad" "$top"
    assert_status 1
    [[ -e $area/foo_any_1.0/new ]]
    run pvrm install --dir "$BATS_TEST_TMPDIR/good" "$top"
    assert_status 0
    is_installed foo
    is_installed top
}

# The change of a package is refused as long as the backups in its stage directory are there, and
# changes nothing.
assert_refused_for_backups() { # ID ARGUMENT...
    local id=$1
    shift
    note_state
    run pvrm "$@"
    assert_status 1
    assert_backups_in_the_way "$id"
    assert_same_state
}

@test "the backups of an upgrade that was killed are not written over" {
    pvrm --quiet install "$(package foo data/usr/share/foo/{x,gone}=1)"
    make_set_uid /usr/share/foo/gone
    gone=$(facts_of /usr/share/foo/gone)
    next=$(package foo version=2.0 data/usr/share/foo/x=2 "init/99-add.sh=$waiting_script")
    kill_in_script upgrade "$next"
    assert_equal "$(sort "$area/foo_any_2.0/old/index.txt")" '/usr/share/foo/gone
/usr/share/foo/x'
    assert_refused_for_backups foo_any_2.0 upgrade "$next"
    assert_line 'pvrm: foo was not upgraded'
    put_backups_back foo_any_2.0
    assert_equal "$(cat /usr/share/foo/{x,gone})" $'1\n1'
    assert_equal "$(facts_of /usr/share/foo/gone)" "$gone"
    run pvrm upgrade "$next"
    assert_status 0
    assert_equal "$(version_of foo)" 2.0
}

@test "nor are those of an installation" {
    mkdir /usr/share/foo
    echo mine >/usr/share/foo/x
    file=$(package foo data/usr/share/foo/x=1 "init/99-add.sh=$waiting_script")
    kill_in_script install "$file"
    assert_refused_for_backups foo_any_1.0 install "$file"
    assert_line 'pvrm: foo was not installed'
    # Nor as the dependency of another one.
    assert_refused_for_backups foo_any_1.0 install --dir "${file%/*}" "$(package top needs=foo)"
    refute_installed top
    put_backups_back foo_any_1.0
    assert_equal "$(cat /usr/share/foo/x)" mine
    run pvrm install "$file"
    assert_status 0
}

@test "nor are those of a removal" {
    pvrm --quiet install "$(package foo data/usr/share/foo/x=1 "init/99-del.sh=$waiting_script")"
    kill_in_script remove foo
    [[ ! -e /usr/share/foo/x ]]
    assert_refused_for_backups foo_any_1.0 remove foo
    assert_line 'pvrm: foo was not removed'
    put_backups_back foo_any_1.0
    assert_equal "$(cat /usr/share/foo/x)" 1
    run pvrm remove foo
    assert_status 0
    refute_installed foo
}

@test "an orphan's backups keep the package that it goes with" {
    pvrm --quiet install --dir "$(dirname "$(package foo data/usr/share/foo/x=1)")" \
        "$(package top needs=foo)"
    mkdir -p "$area/foo_any_1.0/old"
    echo /usr/share/foo/x >"$area/foo_any_1.0/old/index.txt"
    assert_refused_for_backups foo_any_1.0 remove top
    is_installed top
    is_installed foo
}

@test "an attempt that was killed before it saved anything is not in the way" {
    file=$(package foo data/usr/share/foo/x=1 "init/00-add.sh=$waiting_script")
    kill_in_script install "$file"
    [[ -d $area/foo_any_1.0/old && -e $area/foo_any_1.0/new/data ]]
    run pvrm install "$file"
    assert_status 0
    is_installed foo
}
