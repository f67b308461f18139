#!/usr/bin/env bats
# Words that only read, while packages come, change and go.

load helpers

setup_file() { begin_tests; }

setup() {
    clean_repository
    work=$BATS_TEST_TMPDIR/work
    mkdir "$work"
    writer=
}

teardown() {
    touch "$work/stop"
    [[ -z $writer ]] || wait "$writer" || true
}

@test "an entry that is just being made is not called damaged, one that was left is" {
    mkdir "$repository/installed/half"
    start_pvrm install "$(package foo "init/00-add.sh=$waiting_script")"
    run pvrm list
    refute_output_has damaged
    finish
    assert_status 0
    run pvrm list
    assert_line "pvrm: the inventory's entry of half is damaged, and passed over"
}

@test "what may be just being changed is not called damaged by verify" {
    pvrm install "$(package steady)"
    start_pvrm install "$(package foo "init/00-add.sh=$waiting_script")"
    run pvrm verify steady
    assert_status 0
    assert_output_has 'steady summary: dump: (0/0) conf: (0/0) data: (1/0)'
    echo changed >/usr/share/steady/about
    run pvrm verify steady
    assert_status 1
    refute_output_has /usr/share/steady/about
    refute_output_has summary
    assert_output_has 'the files of steady'
    finish
    assert_status 0
    run pvrm verify steady
    assert_status 1
    assert_output_has /usr/share/steady/about
    assert_output_has 'data: (1/1)'
    refute_output_has 'the files of steady'
}

# The package "big" with many files, and a configuration file.
big() { # VERSION
    local files=() i
    for ((i = 0; i < 30; i++)); do
        files+=("data/usr/share/big/$i=$1 $i" "dump/$i=$1 $i")
    done
    package big "version=$1" "conf/etc/big.conf=$1" "${files[@]}"
}

# Installs, upgrades and removes the package over and over, until told to stop.
change_all_the_time() { # OLD-FILE NEW-FILE
    while [[ ! -e $work/stop ]]; do
        pvrm install "$1" && pvrm upgrade "$2" && pvrm remove big || return 1
        echo round >>"$work/changes"
    done >"$work/writer" 2>&1
}

# Runs a reader, whose output goes to out and err. Its status tells a failure, not a crash.
reads() { # COMMAND [ARGUMENT]...
    status=0
    "$@" >"$work/out" 2>"$work/err" || status=$?
    if ((status > 1)) || grep -qE 'Sanitizer|runtime error' "$work/err"; then
        printf 'status %d of: %s\n' "$status" "$*" >&2
        cat "$work/out" "$work/err" >&2
        return 1
    fi
}

# Each line of the last output fits one of the patterns; all of a line has to.
only_lines() { # PATTERN...
    local patterns=() pattern
    for pattern in "$@"; do patterns+=(-e "$pattern"); done
    if tr -s ' ' <"$work/out" | grep -vxE "${patterns[@]}" >&2; then
        return 1
    fi
}

read_once() {
    reads pvrm list --format table
    [[ $status == 0 ]]
    only_lines 'Found (1|2) matching installed packages' 'Name Variant Version Description' \
        '-+ -+ -+ -+' 'big (1|2)\.0 The package big for tests' \
        'steady 1\.0 The package steady for tests'
    grep -q '^steady ' "$work/out"

    reads pvrm owner /usr/share/steady/about
    [[ $(cat "$work/out") == steady ]]
    reads pvrm owner /usr/share/big/29
    only_lines big

    reads pvrm verify
    only_lines 'steady summary: dump: \(0/0\) conf: \(0/0\) data: \(1/0\) init: \(0/0\)' \
        'big summary: .*' '/etc/big.conf is not the same on fs, this is normal\.' \
        'another process is changing the repository: .* were not compared; check again .*'
    grep -q '^steady ' "$work/out"

    reads pvrm check --dry-run
    only_lines 'big is not a valid package dir' 'checked 1 entries, 1 valid , 0 invalid' \
        'checked 2 entries, (2 valid , 0|1 valid , 1) invalid' \
        'pvrm: found (no|1) damaged (entry|entries) and no dependencies left over' \
        'another process is changing the repository: .* were not compared; check again .*' \
        'pvrm: found (no|1) damaged (entry|entries), no dependencies left over and 1 other problem'
}

@test "listings, owners and audits see whole packages while others come and go" {
    local old new rounds wanted=100
    # Ten times as slow there, where they are to find other faults.
    [[ $TESTS_SANITIZED != 1 ]] || wanted=10
    pvrm install "$(package steady)"
    old=$(big 1.0) new=$(big 2.0)
    change_all_the_time "$old" "$new" 3>&- &
    writer=$!
    for ((rounds = 0; rounds < wanted; rounds++)); do
        read_once
    done
    # On a busy machine there may have been no whole change so far.
    wait_until test -s "$work/changes" || true
    touch "$work/stop"
    wait "$writer" || {
        cat "$work/writer" >&2
        return 1
    }
    writer=
    echo "# $rounds rounds of reading, $(wc -l <"$work/changes") of changes" >&3
    [[ -s $work/changes ]]
    run pvrm check
    assert_status 0
    is_installed steady
    refute_installed big
}
