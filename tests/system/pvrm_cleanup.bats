#!/usr/bin/env bats
# Freeing the room of staged package files and of what a crash left, with the command line tool.

load helpers

setup_file() { begin_tests; }

setup() { clean_repository; }

# What an update leaves behind that dies before its last step: 6 + 5 bytes, and 4.
crash() { # NAME
    mkdir -p "$repository/installed/.$1.old/hash"
    echo 'entry' >"$repository/installed/.$1.old/desc.txt"
    echo 'hash' >"$repository/installed/.$1.old/hash/data.txt"
    echo '/x' >"$repository/fileindex/.$1.old"
    printf 'x' >>"$repository/fileindex/.$1.old"
}

# A package file of the stage area, with that many bytes.
stage() { # NAME BYTES
    head -c "$2" /dev/zero >"$repository/stagearea/$1.vrk"
}

# Everything below the repository but its lock, with kinds, sizes and contents.
snapshot() {
    (cd "$repository" && find . ! -name lock -printf '%P %y %s %T@\n' | sort &&
        find . -type f ! -name lock -exec sha1sum {} + | sort)
}

@test "staged files are removed after installs, and counted" {
    foo=$(package foo)
    bar=$(package bar)
    pvrm install "$foo" "$bar"
    size=$(cat "$repository"/stagearea/*.vrk | wc -c)
    run pvrm cleanup
    assert_status 0
    assert_equal "${#lines[@]}" 3
    assert_line 'pvrm: removing the package file foo_any_1.0.vrk'
    assert_line 'pvrm: removing the package file bar_any_1.0.vrk'
    assert_equal "${lines[2]}" \
        "pvrm: removed 2 entries and freed $(awk -v b="$size" 'BEGIN { printf "%.1f kB", b / 1024 }')"
    assert_equal "$(ls -A "$repository/stagearea")" ''
    assert_no_lock
    # The packages themselves are untouched.
    is_installed foo
    is_installed bar
    assert_equal "$(cat "$repository/fileindex/foo")" /usr/share/foo/about
    assert_equal "$(cat /usr/share/foo/about)" 'foo 1.0'
}

@test "a repeated install fetches again after a cleanup, and not without one" {
    package foo out="$repository/packages" >/dev/null
    pvrm refresh
    forget() {
        rm -r "$repository"/{installed,fileindex}/foo /usr/share/foo
    }
    run pvrm install foo
    assert_line 'pvrm: getting foo_any_1.0'
    forget
    run pvrm install foo
    assert_status 0
    refute_output_has 'getting'
    pvrm cleanup
    forget
    run pvrm install foo
    assert_status 0
    assert_line 'pvrm: getting foo_any_1.0'
    is_installed foo
}

@test "what a crash left goes, and what is under construction stays" {
    pvrm install "$(package foo)"
    crash foo
    mkdir -p "$repository"/installed/.bar.new "$repository"/stagearea/bar_any_1.0/old
    touch "$repository"/installed/.bar.new/desc.txt "$repository"/fileindex/.bar.new \
        "$repository"/stagearea/bar_any_1.0/old/index.txt "$repository"/stagearea/half.vrk.part
    rm "$repository"/stagearea/*.vrk
    run pvrm cleanup
    assert_status 0
    assert_equal "$output" 'pvrm: removing the old inventory entry .foo.old
pvrm: removing the old file index .foo.old
pvrm: removed 2 entries and freed 15 bytes'
    assert_equal "$(cd "$repository" && ls -A installed fileindex stagearea)" 'fileindex:
.bar.new
foo

installed:
.bar.new
foo

stagearea:
bar_any_1.0
half.vrk.part'
    [[ -e $repository/installed/.bar.new/desc.txt ]]
    [[ -e $repository/stagearea/bar_any_1.0/old/index.txt ]]
    is_installed foo
}

@test "an empty repository has nothing to clean up" {
    run pvrm cleanup
    assert_status 0
    assert_equal "$output" 'pvrm: removed nothing and freed 0 bytes'
}

@test "--quiet tells nothing but problems" {
    stage a 10
    run pvrm cleanup --quiet
    assert_status 0
    assert_equal "$output" ''
    assert_equal "$(ls -A "$repository/stagearea")" ''
}

# --- The dry run ----------------------------------------------------------------------------------

@test "--dry-run needs no right, takes no lock, changes nothing and tells what would go" {
    crash foo
    stage a 2048
    before=$(snapshot)
    run as_nobody pvrm cleanup --dry-run
    assert_status 0
    assert_equal "$output" 'pvrm: would remove the old inventory entry .foo.old, 11 bytes
pvrm: would remove the old file index .foo.old, 4 bytes
pvrm: would remove the package file a.vrk, 2048 bytes
pvrm: would remove 3 entries and free 2.0 kB'
    assert_equal "$(snapshot)" "$before"
    assert_no_lock
    [[ ! -e /var/log/pvrm.log ]]
}

@test "--dry-run asks nothing on a terminal, and tells also when it should be quiet" {
    stage a 1
    run on_terminal 'pvrm cleanup --dry-run --quiet' </dev/null
    assert_status 0
    assert_equal "$output" 'pvrm: would remove the package file a.vrk, 1 bytes
pvrm: would remove 1 entry and free 1 bytes'
    [[ -e $repository/stagearea/a.vrk ]]
}

@test "without a right nothing is removed" {
    stage a 1
    run as_nobody pvrm cleanup
    assert_status 3
    [[ -e $repository/stagearea/a.vrk ]]
}

# --- Questions ------------------------------------------------------------------------------------

@test "on a terminal each entry is asked about" {
    crash foo
    stage a 1000
    answer_on_terminal 'pvrm cleanup' 'Your choice' d 'Your choice' k 'Your choice' ''
    assert_status 0
    assert_line 'installed: delete directory .foo.old with size 11'
    assert_line '  k  keep entry'
    assert_line '  L  Leave all entries'
    assert_line '  d  delete entry (default)'
    assert_line '  R  Remove all entries'
    assert_line '  a  abort cleanup'
    assert_output_has 'fileindex: delete file .foo.old with size 4'
    assert_output_has 'stagearea: delete file a.vrk with size 1000'
    assert_output_has 'pvrm: keeping the old file index .foo.old'
    assert_output_has 'pvrm: removed 2 entries and freed 1011 bytes'
    [[ ! -e $repository/installed/.foo.old && ! -e $repository/stagearea/a.vrk ]]
    [[ -e $repository/fileindex/.foo.old ]]
}

@test "a capital letter answers for the rest of one directory" {
    crash foo
    crash bar
    stage a 1
    stage b 1
    answer_on_terminal 'pvrm cleanup' 'Your choice' L 'Your choice' R 'Your choice' L
    assert_status 0
    assert_equal "$(grep -c 'Your choice:' <<<"$output")" 3
    assert_output_has 'pvrm: removed 2 entries and freed 8 bytes'
    [[ -d $repository/installed/.foo.old && -d $repository/installed/.bar.old ]]
    [[ ! -e $repository/fileindex/.foo.old && ! -e $repository/fileindex/.bar.old ]]
    [[ -e $repository/stagearea/a.vrk && -e $repository/stagearea/b.vrk ]]
}

@test "--yes asks nothing on a terminal" {
    crash foo
    stage a 1
    run on_terminal 'pvrm cleanup --yes' </dev/null
    assert_status 0
    refute_output_has 'Your choice:'
    assert_line 'pvrm: removed 3 entries and freed 16 bytes'
}

@test "an abort ends it, and is a failure" {
    crash foo
    stage a 1
    answer_on_terminal 'pvrm cleanup' 'Your choice' d 'Your choice' a
    assert_status 1
    assert_output_has 'pvrm: removing the old inventory entry .foo.old'
    assert_output_has 'pvrm: the cleanup was not finished'
    refute_output_has 'freed'
    [[ ! -e $repository/installed/.foo.old ]]
    [[ -e $repository/fileindex/.foo.old && -e $repository/stagearea/a.vrk ]]
    assert_no_lock
}

@test "an interruption at a question ends it with the lock released" {
    stage a 1
    interrupt_on_terminal ^C 'pvrm cleanup' 'Your choice'
    assert_status 1
    assert_line 'pvrm: interrupted: the cleanup was not finished'
    [[ -e $repository/stagearea/a.vrk ]]
    assert_no_lock
}

@test "TERM at a question ends it with the lock released" {
    stage a 1
    interrupt_on_terminal TERM 'pvrm cleanup' 'Your choice'
    assert_status 1
    assert_output_has 'pvrm: interrupted: the cleanup was not finished'
    [[ -e $repository/stagearea/a.vrk ]]
    assert_no_lock
}

# --- Failures -------------------------------------------------------------------------------------

@test "while another process changes the repository it ends, and the dry run does not" {
    assert_refused_beside_change cleanup
    assert_output_has 'pvrm: would remove the package file foo_any_1.0.vrk'
    [[ -e $repository/stagearea/foo_any_1.0.vrk ]]
}

@test "a missing directory is told" {
    rm -r "$repository/fileindex"
    for word in cleanup 'cleanup --dry-run'; do
        # shellcheck disable=SC2086
        run pvrm $word
        assert_status 1
        assert_output_has "pvrm: there is no directory $repository/fileindex"
    done
}

@test "a directory that may not be read is told" {
    chmod 700 "$repository/fileindex"
    run as_nobody pvrm cleanup --dry-run
    assert_status 1
    assert_line "pvrm: the directory $repository/fileindex can't be read: Permission denied"
    assert_line 'pvrm: the cleanup was not finished'
}

@test "an entry that can't be removed is told and is a failure, and the others go" {
    crash foo
    stage a 20
    mkdir "$repository/installed/.foo.old/busy"
    mount -t tmpfs none "$repository/installed/.foo.old/busy"
    run pvrm cleanup
    umount "$repository/installed/.foo.old/busy"
    assert_status 1
    assert_line "pvrm: $repository/installed/.foo.old/busy can't be removed"
    assert_line 'pvrm: the old inventory entry .foo.old is not removed, or not whole'
    # The file index and the package file.
    assert_line 'pvrm: removed 2 entries and freed 24 bytes'
    [[ ! -e $repository/stagearea/a.vrk ]]
}

@test "names can't steer the terminal" {
    touch "$repository/stagearea/"$'\e[31mred.vrk'
    run pvrm cleanup
    assert_status 0
    assert_line 'pvrm: removing the package file \x1B[31mred.vrk'
    assert_equal "$(ls -A "$repository/stagearea")" ''
}
