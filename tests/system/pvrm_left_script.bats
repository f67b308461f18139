#!/usr/bin/env bats
# A script or hook that still runs when the tool was killed: the next change waits for it.

load helpers

note=$repository/script.running

setup_file() { begin_tests; }

setup() {
    clean_repository
    rm -rf "$note" "$note.new" /tmp/second /tmp/daemon
    sed -i '/^script_wait/d' /etc/vrm.conf
    second=
    daemon=
    parent=
}

teardown() {
    touch /tmp/go
    rm -f /etc/vrm/hooks.d/test.vrh
    [[ -z $second ]] || wait "$second" || true
    [[ -z $daemon ]] || kill "$daemon" || true
    [[ -z $parent ]] || kill "$parent" || true
}

# The process of the note.
noted_process() {
    sed -n 's/^process //p' "$note"
}

# Starts the tool and kills it while a waiting script of a package runs; $script is the script's
# shell.
kill_while_script_runs() { # ARGUMENT...
    start_pvrm "$@"
    kill -KILL "$tool"
    wait "$tool" 2>/dev/null || true
    script=$(noted_process)
    [[ -n $script ]]
    kill -0 "$script"
}

# Starts the next change in the background, as process $second, and waits until it waits.
start_second() { # ARGUMENT...
    rm -f /tmp/second
    pvrm "$@" >/tmp/second 2>&1 3>&- &
    second=$!
    wait_until grep -qs '^pvrm: waiting for ' /tmp/second
}

# Waits for the end of that; $status, $output and $lines are its own.
finish_second() {
    status=0
    wait "$second" || status=$?
    second=
    output=$(cat /tmp/second)
    mapfile -t lines </tmp/second
}

# A note of a process that runs, with a start time and a boot of its own unless others are given.
write_note() { # PROCESS [started=TICKS] [boot=ID]
    local started boot argument
    started=$(sed 's/.*) //' "/proc/$1/stat" | cut -d ' ' -f 20)
    boot=$(cat /proc/sys/kernel/random/boot_id)
    for argument in "${@:2}"; do
        case $argument in
        started=*) started=${argument#*=} ;;
        boot=*) boot=${argument#*=} ;;
        esac
    done
    printf 'process %d\nstarted %s\nboot %s\npackage hello\ncommand 99-add.sh\n' \
        "$1" "$started" "$boot" >"$note"
}

# A process that runs until the end of the test, as $daemon.
start_daemon() {
    sleep 1000 3>&- &
    daemon=$!
}

assert_waits_for() { # WHAT
    assert_equal "$(grep -c 'waiting for' <<<"$output")" 1
    assert_line "pvrm: waiting for $1, which was left running when pvrm was killed"
}

# --- What is waited for ---------------------------------------------------------------------------

@test "the next change waits for a script that was left running, and goes on after its end" {
    local bar
    kill_while_script_runs install "$(package foo "init/99-add.sh=$waiting_script; touch /tmp/ended")"
    rm -f /tmp/ended
    bar=$(package bar 'init/00-add.sh=[ -e /tmp/ended ]')
    start_second install "$bar"
    # It holds the lock, and so there is one who waits.
    run pvrm install "$bar"
    assert_status 4
    assert_output_has "process $second is changing the repository"
    refute_installed bar
    touch /tmp/go
    finish_second
    assert_status 0
    assert_waits_for "99-add.sh of foo (process $script)"
    is_installed bar
    [[ ! -e $note ]]
}

@test "every script of a package is waited for" {
    local moment words
    for moment in 00-add 99-add 99-cfg 00-del 99-del; do
        clean_repository
        rm -f /tmp/started /tmp/go
        words=(install "$(package foo "init/$moment.sh=$waiting_script")")
        if [[ $moment == *-del ]]; then
            pvrm "${words[@]}"
            words=(remove foo)
        fi
        kill_while_script_runs "${words[@]}"
        start_second install --quiet "$(package bar)"
        touch /tmp/go
        finish_second
        assert_status 0
        assert_waits_for "$moment.sh of foo (process $script)"
        is_installed bar
    done
}

@test "a hook is waited for" {
    printf '#!/bin/sh\n%s\n' "$waiting_script" >/tmp/hook.sh
    chmod 755 /tmp/hook.sh
    cat >/etc/vrm/hooks.d/test.vrh <<'END'
evrhType: 99-cfg
evrhCond: data:/usr/share/foo/*
evrhExec: /tmp/hook.sh now
END
    kill_while_script_runs install "$(package foo)"
    rm /etc/vrm/hooks.d/test.vrh
    start_second install "$(package bar)"
    touch /tmp/go
    finish_second
    assert_status 0
    assert_waits_for "the hook \"/tmp/hook.sh now\" of foo (process $script)"
}

@test "every word that changes something waits" {
    local words
    pvrm install "$(package old)"
    kill_while_script_runs install "$(package foo "init/00-add.sh=$waiting_script")"
    sed -i '$a script_wait = 0' /etc/vrm.conf
    while read -ra words; do
        run pvrm "${words[@]}"
        assert_status 4
        assert_waits_for "00-add.sh of foo (process $script)"
    done <<END
remove old
upgrade
cleanup
check
trust $signer_cert
distrust Nobody
saved --prune 1
END
    is_installed old
}

@test "a daemon that a script started is not waited for" {
    kill_while_script_runs install \
        "$(package foo "init/99-add.sh=sleep 1000 & echo \$! >/tmp/daemon; $waiting_script")"
    daemon=$(cat /tmp/daemon)
    touch /tmp/go
    wait_until has_gone "$script"
    kill -0 "$daemon"
    run pvrm install "$(package bar)"
    assert_status 0
    refute_output_has 'waiting for'
    is_installed bar
    kill -0 "$daemon"
    [[ ! -e $note ]]
}

@test "a change whose script leaves a daemon ends, and leaves no note" {
    pvrm install "$(package foo 'init/99-cfg.sh=sleep 1000 >/dev/null 2>&1 & echo $! >/tmp/daemon')"
    daemon=$(cat /tmp/daemon)
    kill -0 "$daemon"
    [[ ! -e $note ]]
    run pvrm install "$(package bar)"
    assert_status 0
    refute_output_has 'waiting for'
}

@test "without /proc a script is noted and waited for, too" {
    kill_while_script_runs install "$(package foo "init/00-add.sh=$waiting_script")"
    write_note "$script" started=0 boot=
    start_second install "$(package bar)"
    touch /tmp/go
    finish_second
    assert_status 0
    is_installed bar
    # shellcheck disable=SC2016
    run unshare --mount bash -c 'mount -t tmpfs none /proc && exec pvrm install "$1"' - \
        "$(package baz "init/00-add.sh=grep -q '^started 0\$' $note && grep -q '^boot \$' $note")"
    # The leak check of a sanitizer needs /proc.
    [[ $TESTS_SANITIZED == 1 ]] || assert_status 0
    assert_line 'pvrm: installed baz_any_1.0'
    refute_output_has 'waiting for'
    is_installed baz
    [[ ! -e $note ]]
}

# --- The end of the wait --------------------------------------------------------------------------

@test "the wait is bounded" {
    kill_while_script_runs install "$(package foo "init/99-add.sh=$waiting_script")"
    pvrm config script_wait 1
    run pvrm install "$(package bar)"
    assert_status 4
    assert_waits_for "99-add.sh of foo (process $script)"
    assert_line "pvrm: 99-add.sh of foo (process $script) has not ended within 1 s: nothing was changed; end that process, or try again when it has ended"
    refute_installed bar
    [[ -e $note && ! -e $repository/lock ]]
    touch /tmp/go
    wait_until has_gone "$script"
    run pvrm install "$(package bar)"
    assert_status 0
    refute_output_has 'waiting for'
}

@test "an invalid script_wait is reported, and the default is used" {
    start_daemon
    write_note "$daemon"
    sed -i '$a script_wait = soon' /etc/vrm.conf
    start_second install "$(package bar)"
    kill "$daemon"
    daemon=
    finish_second
    assert_status 0
    assert_line 'pvrm: warning: script_wait of /etc/vrm.conf can'\''t be "soon": it is not a number of seconds from 0 to 86400; 60 is used'
}

@test "an interruption ends the wait" {
    local signal
    kill_while_script_runs install "$(package foo "init/99-add.sh=$waiting_script")"
    for signal in INT TERM; do
        start_second install "$(package bar)"
        kill -"$signal" "$second"
        finish_second
        assert_status 1
        assert_equal "${lines[-1]}" 'pvrm: interrupted: nothing was changed'
        refute_installed bar
        [[ ! -e $repository/lock ]]
        assert_equal "$(noted_process)" "$script"
    done
}

@test "the interruption key ends the wait" {
    start_daemon
    write_note "$daemon"
    start_on_terminal "pvrm install --yes $(package bar)"
    await_text 'pvrm: waiting for '
    type_in $'\003'
    end_on_terminal
    assert_status 1
    assert_output_has 'pvrm: interrupted: nothing was changed'
    refute_installed bar
    kill -0 "$daemon"
}

# --- Notes that do not count ----------------------------------------------------------------------

@test "a note of what has ended is dropped silently" {
    local case
    start_daemon
    pvrm --quiet recover 2>/dev/null # what was killed to have the daemon
    for case in "started=1" "boot=00000000-0000-0000-0000-000000000000" gone zombie empty; do
        case $case in
        gone) write_note "$daemon"; sed -i 's/^process .*/process 2147483647/' "$note" ;;
        zombie)
            # Its parent becomes another program, which does not wait for it.
            bash -c 'bash -c "until [[ \$(<"/proc/\$PPID/comm") == sleep ]]; do :; done" &
                echo $! >/tmp/daemon
                exec sleep 1000' 3>&- &
            parent=$!
            wait_until test -s /tmp/daemon
            wait_until grep -qs ') Z ' "/proc/$(cat /tmp/daemon)/stat"
            write_note "$(cat /tmp/daemon)"
            ;;
        empty) : >"$note" ;;
        *) write_note "$daemon" "$case" ;;
        esac
        run pvrm cleanup
        assert_status 0
        assert_equal "$output" 'pvrm: removed nothing and freed 0 bytes'
        [[ ! -e $note ]]
    done
}

@test "what is not a note is reported, and nobody waits" {
    local what why
    start_daemon
    while read -r what why; do
        rm -rf "$note"
        write_note "$daemon"
        case $what in
        garbage) head -c 200 /dev/urandom >"$note" ;;
        number) sed -i 's/^process .*/process 99999999999999999999/' "$note" ;;
        link) mv "$note" /tmp/second; ln -s /tmp/second "$note" ;;
        pipe) rm "$note"; mkfifo "$note" ;;
        directory) rm "$note"; mkdir "$note" ;;
        foreign) chown 65534 "$note" ;;
        writable) chmod 666 "$note" ;;
        esac
        run pvrm cleanup
        assert_status 0
        assert_equal "$output" "pvrm: warning: $note is ignored: $why
pvrm: removed nothing and freed 0 bytes"
        [[ $what == directory || (! -e $note && ! -L $note) ]]
    done <<'END'
garbage it is not a note of a running script
number it is not a note of a running script
link it is a link
pipe it is not a regular file
foreign it belongs to another user
writable others may write to it
directory it is not a regular file
END
    # A script that can't be noted runs all the same.
    run pvrm install "$(package foo 'init/00-add.sh=touch /tmp/started')"
    assert_status 0
    assert_output_has "pvrm: cannot write $note: Is a directory; if the program is killed while 00-add.sh runs, the next change does not wait for it"
    [[ -e /tmp/started ]]
}

# --- Dry runs -------------------------------------------------------------------------------------

@test "a dry run warns of a script that still runs, and does not wait" {
    local bar before
    kill_while_script_runs install "$(package foo "init/99-add.sh=$waiting_script")"
    bar=$(package bar)
    chmod -R a+rX "$BATS_TEST_TMPDIR"/../..
    before=$(cat "$note")
    for as in env as_nobody; do
        run "$as" pvrm install --dry-run "$bar"
        assert_status 0
        assert_line "pvrm: warning: 99-add.sh of foo (process $script) still runs; a change waits until it has ended"
        refute_output_has 'waiting for'
    done
    assert_equal "$(cat "$note")" "$before"
    touch /tmp/go
    wait_until has_gone "$script"
    run pvrm install --dry-run "$bar"
    assert_status 0
    refute_output_has 'still runs'
    assert_equal "$(cat "$note")" "$before"
}

@test "a dry run beside a change does not warn of that one's script" {
    start_pvrm install "$(package foo "init/00-add.sh=$waiting_script")"
    run pvrm install --dry-run "$(package bar)"
    assert_status 0
    refute_output_has warning
    finish
    assert_status 0
}
