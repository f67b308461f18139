#!/usr/bin/env bats
# Two changes at once: the second one ends at once or, with --wait, begins when the first has ended.

load helpers

setup_file() { begin_tests; }

setup() {
    clean_repository
    second_out=$BATS_TEST_TMPDIR/second
    foo=$(package foo "init/00-add.sh=$waiting_script")
    bar=$(package bar)
}

start_second() { # ARGUMENT...
    pvrm "$@" >"$second_out" 2>&1 3>&- &
    second=$!
}

# Runs a second change while the first one is under way; afterwards $status, $output and $lines are its.
run_beside_first() { # ARGUMENT...
    start_pvrm install "$foo"
    run pvrm "$@"
    local said=$output code=$status
    finish
    assert_status 0
    status=$code output=$said
    mapfile -t lines <<<"$said"
}

second_says() { # TEXT
    grep -qF -- "$1" "$second_out"
}

@test "--wait begins when the other change has ended" {
    start_pvrm install "$foo"
    start_second --wait install "$bar"
    wait_until second_says "waiting for process $tool, which is changing the repository"
    refute_installed bar
    finish
    assert_status 0
    wait "$second"
    is_installed foo
    is_installed bar
}

@test "--wait=SECONDS gives up after that time, with the status 4 and the process" {
    run_beside_first install --wait=1 "$bar"
    assert_status 4
    assert_line "pvrm: process $tool has not ended its change of the repository within 1 s: nothing was changed; try again when it has ended"
}

@test "an interruption ends the wait" {
    start_pvrm install "$foo"
    start_second --wait remove bar
    wait_until second_says 'waiting for process'
    kill -TERM "$second"
    status=0
    wait "$second" || status=$?
    code=$status
    finish
    assert_status 0
    assert_equal "$code" 1
    second_says 'pvrm: interrupted: nothing was changed'
}

@test "without another change --wait waits for nothing" {
    run pvrm --wait install "$bar"
    assert_status 0
    refute_output_has waiting
    is_installed bar
}

@test "without --wait, and with no time to wait, the change ends at once" {
    run_beside_first install --wait=0 "$bar"
    assert_status 4
    assert_equal "$output" "pvrm: process $tool is changing the repository; try again when it has ended"
}

@test "a time that is none is a wrong usage" {
    for value in -1 -2 x 1.5 99999999999999999999 1s; do
        run pvrm "--wait=$value" install "$bar"
        assert_status 2
    done
    refute_installed bar
}
