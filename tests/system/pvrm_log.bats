#!/usr/bin/env bats
# Showing the history with the command line tool.

load helpers

setup_file() { begin_tests; }

setup() {
    clean_repository
    export TZ=UTC0
}

history=$repository/install.log

# Three entries and a line that is none.
write_history() {
    cat >"$history" <<'END'
2024-01-02 03:04:05: installed foo_i686_1.0 as requested by user
half a line
2024-01-03 03:04:05: updated foo_i686_1.0 to foo_small_x86_64_1.1 as dependency of bar
2024-01-04 03:04:05: deleted foo_small_x86_64_1.1 as requested by user
END
}

# The standard output alone of a run that succeeds.
output_of() { # COMMAND [ARGUMENT]...
    "$@" 2>/dev/null
}

# The standard error stream alone.
errors_of() { # COMMAND [ARGUMENT]...
    { "$@" >/dev/null; } 2>&1
}

@test "what was done is shown, the newest first" {
    pvrm install "$(package foo)"
    pvrm install "$(package foo version=2.0)" "$(package bar)"
    pvrm upgrade "$(package foo version=2.0)"
    pvrm remove foo
    run pvrm log
    assert_status 0
    assert_equal "$(grep -E '^(Action|Package|Version|New)' <<<"$output")" 'Action        : remove
Package       : foo
Version       : 2.0
Action        : update
Package       : foo
Version       : 1.0
New Version   : 2.0
Action        : install
Package       : bar
Version       : 1.0
Action        : install
Package       : foo
Version       : 1.0'
}

@test "text, oldest first" {
    write_history
    assert_equal "$(output_of pvrm log --oldest-first)" "$(cat "$source_dir/tests/maintenance/reports/history.text")

Date          : 2024-01-04 03:04:05
Action        : remove
Package       : foo
Variant       : small
Version       : 1.1
Architecture  : x86_64
Reason        : user"
}

@test "csv, with its head first in either order" {
    write_history
    head='evrkLogLine;evrkLogDate;evrkLogTime;evrkLogAction;evrkLogPkgName;evrkLogPkgVariant;evrkLogPkgVersion;evrkLogPkgArchitecture;evrkLogNewPkgVariant;evrkLogNewPkgVersion;evrkLogReason;evrkLogDependent'
    first='1;2024-01-02 03:04:05;1704164645;install;foo;;1.0;i686;;;user;'
    third='3;2024-01-03 03:04:05;1704251045;update;foo;;1.0;i686;small;1.1;dependency;bar'
    fourth='4;2024-01-04 03:04:05;1704337445;remove;foo;small;1.1;x86_64;;;user;'
    assert_equal "$(output_of pvrm log --format csv)" "$head
$fourth
$third
$first"
    assert_equal "$(output_of pvrm log --format csv --oldest-first)" "$head
$first
$third
$fourth"
}

@test "ldif" {
    write_history
    output_of pvrm log --format ldif --oldest-first >"$BATS_TEST_TMPDIR/ldif"
    assert_equal "$(grep -c '^dn: evrkLogLine=[134],dc=' "$BATS_TEST_TMPDIR/ldif")" 3
    assert_equal "$(sed -n '2,/^$/p' "$BATS_TEST_TMPDIR/ldif")" 'evrkLogLine: 1
objectClass: evrkLog
evrkLogDate: 2024-01-02 03:04:05
evrkLogTime: 1704164645
evrkLogAction: install
evrkLogPkgUid: foo_i686_1.0
evrkLogPkgName: foo
evrkLogPkgVersion: 1.0
evrkLogPkgArchitecture: i686
evrkLogReason: user'
}

@test "raw, which is the file" {
    write_history
    assert_equal "$(pvrm log --format raw --oldest-first)" "$(cat "$history")"
    assert_equal "$(pvrm log --format raw)" "$(tac "$history")"
    assert_equal "$(errors_of pvrm log --format raw)" ''
}

@test "an unknown format is wrong usage" {
    write_history
    run pvrm log --format table
    assert_status 2
    assert_output_has 'table not in {text,ldif,csv,raw}'
}

@test "damaged lines are told by number on stderr, and are no failure" {
    write_history
    run pvrm log --format csv
    assert_status 0
    assert_equal "$(errors_of pvrm log)" \
        "pvrm: line 2 of the history $history makes no sense, and is passed over"
    echo broken >>"$history"
    assert_equal "$(errors_of pvrm log)" \
        "pvrm: 2 lines of the history $history make no sense, and are passed over: 2 and 5"
    echo >>"$history"
    assert_equal "$(errors_of pvrm log --oldest-first)" \
        "pvrm: 2 lines of the history $history make no sense, and are passed over: 2 and 5"
}

@test "ten thousand damaged lines are one sentence" {
    write_history
    yes broken | head -n 10000 >>"$history"
    run errors_of pvrm log
    assert_equal "$output" "pvrm: 10001 lines of the history $history make no sense, and are passed over: 2, 5, 6 and others"
    assert_equal "$(output_of pvrm log | grep -c ^Date)" 3
}

@test "a history of one entry is no damage" {
    write_history
    sed -i 2,4d "$history"
    run pvrm log --format csv
    assert_status 0
    assert_equal "${#lines[@]}" 2
}

@test "a missing or an empty history is told, and is no failure" {
    run pvrm log --format csv
    assert_status 0
    assert_equal "$output" "pvrm: there is no history $history: nothing was changed yet"
    : >"$history"
    run pvrm log
    assert_status 0
    assert_equal "$output" "pvrm: the history $history is empty: nothing was changed yet"
    assert_equal "$(output_of pvrm log)" ''
}

@test "a history that can't be read is a failure" {
    mkdir "$history"
    run pvrm log
    assert_status 1
    assert_equal "$output" "pvrm: the history $history can't be read: Not a regular file"
    rmdir "$history"
    write_history
    chmod 600 "$history"
    run setpriv --reuid 65534 --regid 65534 --clear-groups pvrm log
    assert_status 1
    assert_equal "$output" "pvrm: the history $history can't be read: Permission denied"
}

# The least address space, in KiB, with which the tool starts.
least_memory() {
    local limit=16384
    until (ulimit -v "$limit" && exec pvrm --help) >/dev/null 2>&1; do
        limit=$((limit + 1024))
    done
    echo "$limit"
}

@test "a history that memory doesn't suffice for is a failure" {
    [[ $TESTS_SANITIZED != 1 ]] || skip 'the sanitizers start with no limit of memory'
    for ((i = 0; i < 16000; i++)); do
        echo '2024-01-02 03:04:05: installed foo-with-a-longer-name_i686_1.0 as requested by user'
    done >"$history"
    least=$(least_memory)
    cd "$BATS_TEST_TMPDIR"
    for format in csv ldif; do
        pvrm log --format "$format" >whole
        for ((limit = least, failures = 0; ; limit += 512, failures++)); do
            if (ulimit -v "$limit" && exec pvrm log --format "$format") >out 2>errors; then
                cmp out whole
                assert_equal "$(cat errors)" ''
                break
            fi
            sed -i "s|the history $history|it|" errors
            grep -Ex "pvrm: (there is not enough memory|it can't be read: Cannot allocate memory|\
it is not shown whole: (there is not enough memory|there is no room for all of the text, it is cut))" \
                errors
        done
        ((failures > 0))
    done
}

@test "anybody may see it, and nothing is written" {
    write_history
    run setpriv --reuid 65534 --regid 65534 --clear-groups pvrm log --format raw
    assert_status 0
    assert_equal "${#lines[@]}" 4
    [[ ! -e /var/log/pvrm.log ]]
}

@test "neither configuration nor repository is needed" {
    write_history
    mv /etc/vrm.conf /etc/vrm.conf.away
    run pvrm log --format csv
    mv /etc/vrm.conf.away /etc/vrm.conf
    assert_status 0
}

@test "a reader that has enough is no failure" {
    for ((i = 0; i < 5000; i++)); do
        echo '2024-01-02 03:04:05: installed foo_i686_1.0 as requested by user'
    done >"$history"
    set -o pipefail
    assert_equal "$(pvrm log 2>&1 | head -n 1)" 'Date          : 2024-01-02 03:04:05'
    pvrm log --format raw 2>"$BATS_TEST_TMPDIR/errors" | true
    assert_equal "$(cat "$BATS_TEST_TMPDIR/errors")" ''
}

@test "output that can't be written is a failure" {
    write_history
    run bash -c 'pvrm log >/dev/full'
    assert_status 1
    assert_line "pvrm: the output can't be written: No space left on device"
}

@test "names can't steer the terminal" {
    printf '2024-01-02 03:04:05: installed \e[31mred_any_1 as requested by user\n' >"$history"
    assert_equal "$(pvrm log | grep -c '\\x1B\[31mred')" 1
    for format in text ldif csv raw; do
        run on_terminal "pvrm log --format $format" </dev/null
        assert_output_has '\x1B[31mred'
    done
}

@test "programs get the bytes that are there" {
    printf '2024-01-02 03:04:05: installed \xE9\e[31m_any_1 as requested by user\n\n' >"$history"
    pvrm log --format raw --oldest-first | cmp - "$history"
    pvrm log --format csv | LC_ALL=C grep -q $'install;\xE9\e\\[31m;;1;any;;;user;$'
}

@test "the variable names another file" {
    write_history
    mv "$history" "$BATS_TEST_TMPDIR/other"
    VRM_SHOWLOG_DEBUG_LOGFILE=$BATS_TEST_TMPDIR/other run pvrm log --format raw
    assert_status 0
    assert_equal "${#lines[@]}" 4
}
