#!/usr/bin/env bats
# The command line tool at a terminal, under signals, and beside another one of its kind.

load helpers

setup_file() { begin_tests catalogue; }

setup() { clean_repository; }

# --- Questions ------------------------------------------------------------------------------------

@test "on a terminal it asks once for all that is wanted" {
    a=$(package a)
    b=$(package b)
    answer_on_terminal "pvrm install $a $b" 'Install these 2 packages? [Y/n]' y
    assert_status 0
    assert_equal "$(grep -c '\[Y/n\]' <<<"$output")" 1
    is_installed a
    is_installed b
}

@test "no is no" {
    answer_on_terminal "pvrm install $(package foo)" 'Install this package? [Y/n] ' n
    assert_status 1
    assert_line 'pvrm: nothing was installed'
    refute_installed foo
    assert_no_lock
}

@test "--yes asks nothing on a terminal" {
    run on_terminal "pvrm install --yes $(package foo)" </dev/null
    assert_status 0
    refute_output_has '[Y/n]'
    is_installed foo
}

@test "with stdin or stdout elsewhere it asks nothing" {
    run on_terminal "pvrm install $(package foo) </dev/null"
    assert_status 0
    refute_output_has '[Y/n]'
    run on_terminal "pvrm install $(package bar) | cat" </dev/null
    assert_status 0
    refute_output_has '[Y/n]'
    is_installed foo
    is_installed bar
}

# Installs over two files that are there already, with these answers to the questions about them.
install_over() { # ANSWER...
    local answer answers=()
    for answer; do answers+=('Your choice' "$answer"); done
    echo mine >/usr/share/one
    echo mine >/usr/share/two
    answer_on_terminal "pvrm install $(package foo data/usr/share/one=new data/usr/share/two=new)" \
        '[Y/n]' y "${answers[@]}"
}

@test "a file in the way is asked about: leave and replace" {
    install_over l r
    assert_status 0
    assert_line '  l  leave existing file'
    # Which is asked first is the directory's affair.
    local asked
    mapfile -t asked < <(sed -n 's/.*The file \(.*\) already exists on the filesystem. Choose .*/\1/p' \
        <<<"$output")
    assert_equal "${#asked[@]}" 2
    assert_equal "$(cat "${asked[0]}" "${asked[1]}")" $'mine\nnew'
    assert_equal "$(cat "$repository/fileindex/foo")" "${asked[1]}"
    assert_output_has "pvrm: leaving ${asked[0]} as it is on the disk"
    assert_output_has "pvrm: replacing ${asked[1]}, which was on the disk already"
}

@test "a capital letter answers for all: leave" {
    install_over L
    assert_status 0
    assert_equal "$(cat /usr/share/one /usr/share/two)" $'mine\nmine'
}

@test "a capital letter answers for all: replace" {
    install_over R
    assert_status 0
    assert_equal "$(cat /usr/share/one /usr/share/two)" $'new\nnew'
}

@test "abort at a file in the way takes the package back" {
    install_over a
    assert_status 1
    assert_line 'pvrm: the installation is aborted, as you asked for'
    assert_equal "$(cat /usr/share/one /usr/share/two)" $'mine\nmine'
    refute_installed foo
    assert_no_lock
}

# --- Signals --------------------------------------------------------------------------------------

@test "an interruption at the question ends with the lock released" {
    interrupt_on_terminal ^C "pvrm install $(package foo)" '[Y/n]'
    assert_status 1
    assert_line 'pvrm: interrupted: nothing was installed'
    refute_installed foo
    assert_no_lock
}

@test "TERM at the question ends with the lock released" {
    interrupt_on_terminal TERM "pvrm install $(package foo)" '[Y/n]'
    assert_status 1
    assert_output_has 'pvrm: interrupted: nothing was installed'
    refute_installed foo
    assert_no_lock
}

@test "an interruption at a file in the way takes the package back" {
    echo mine >/usr/share/one
    interrupt_on_terminal ^C "pvrm install $(package foo data/usr/share/one=new) $(package bar)" \
        '[Y/n]' y 'Your choice'
    assert_status 1
    assert_output_has 'pvrm: interrupted: '
    assert_equal "$(cat /usr/share/one)" mine
    refute_installed foo
    refute_installed bar
    assert_no_lock
}

# Installs foo, whose script waits, and bar on a terminal, and presses a key during the script.
press_during_script() { # KEY SCRIPT
    start_on_terminal "trap : QUIT; ulimit -c 0
        pvrm install --yes $(package foo "init/$2=$waiting_script") $(package bar)"
    wait_until has_started
    type_in "$1"
    end_on_terminal
}

@test "an interruption from the keyboard during a script takes the package back" {
    press_during_script $'\003' 99-add.sh
    assert_status 1
    assert_output_has 'pvrm: interrupted: '
    refute_installed foo
    refute_installed bar
    [[ ! -e /usr/share/foo/about ]]
    assert_no_lock
}

@test "an interruption from the keyboard during a configuration command ends after it" {
    press_during_script $'\003' 99-cfg.sh
    assert_status 1
    assert_output_has 'pvrm: interrupted: '
    is_installed foo
    refute_installed bar
    assert_no_lock
}

# The tool installs foo, and is sent a signal during its script: bar is not installed any more.
assert_signal_ends_before_bar() { # SIGNAL SCRIPT
    start_pvrm install "$(package foo "init/$2=$waiting_script")" "$(package bar)"
    kill -"$1" "$tool"
    finish
    assert_status 1
    is_installed foo
    refute_installed bar
}

@test "TERM during a script finishes the package and ends before the next one" {
    assert_signal_ends_before_bar TERM 00-add.sh
    assert_line "pvrm: interrupted: $BATS_TEST_TMPDIR/packages/bar_any_1.0.vrk and what follows was not installed"
    assert_no_lock
}

@test "INT from elsewhere during a script ends before the next package, too" {
    assert_signal_ends_before_bar INT 00-add.sh
    assert_output_has 'pvrm: interrupted: '
    assert_no_lock
}

@test "INT from elsewhere during a configuration command ends after it" {
    assert_signal_ends_before_bar INT 99-cfg.sh
    assert_output_has 'pvrm: interrupted: '
}

@test "the quit key during a script takes the package back, and ends before the next one" {
    press_during_script $'\034' 99-add.sh
    assert_status 1
    assert_output_has 'pvrm: interrupted: '
    refute_installed foo
    [[ ! -e /usr/share/foo/about ]]
    refute_installed bar
    assert_no_lock
}

@test "QUIT at the question ends with the lock released" {
    interrupt_on_terminal QUIT "ulimit -c 0; pvrm install $(package foo)" '[Y/n]'
    assert_status 1
    assert_output_has 'pvrm: interrupted: nothing was installed'
    refute_installed foo
    assert_no_lock
}

@test "QUIT in the middle of a change takes the package back" {
    echo mine >/usr/share/one
    interrupt_on_terminal QUIT \
        "ulimit -c 0; pvrm install $(package foo data/usr/share/one=new)" '[Y/n]' y 'Your choice'
    assert_status 1
    assert_output_has 'pvrm: the installation is aborted, as you asked for'
    assert_equal "$(cat /usr/share/one)" mine
    refute_installed foo
    assert_no_lock
}

@test "TERM ends before a package's next dependency, too" {
    package needed "init/00-add.sh=$waiting_script" >/dev/null
    start_pvrm install --dir "$BATS_TEST_TMPDIR/packages" "$(package foo needs=needed)"
    kill -TERM "$tool"
    finish
    assert_status 1
    is_installed needed
    refute_installed foo
    assert_line 'pvrm: interrupted before foo_any_1.0'
    assert_no_lock
}

@test "a hang-up stops nothing" {
    start_pvrm install "$(package foo "init/00-add.sh=$waiting_script")" "$(package bar)"
    kill -HUP "$tool"
    finish
    assert_status 0
    is_installed foo
    is_installed bar
}

@test "an interruption from elsewhere during a question of a package takes it back" {
    echo mine >/usr/share/one
    interrupt_on_terminal INT "pvrm install $(package foo data/usr/share/one=new)" \
        '[Y/n]' y 'Your choice'
    assert_equal "$(cat /usr/share/one)" mine
    refute_installed foo
    assert_no_lock
}

# Installs on a terminal, which is gone when the waiting script of the first package ends.
install_while_terminal_goes() { # FILE...
    start_on_terminal "pvrm install --yes $*"
    wait_until has_started
    kill -KILL "$terminal"
    touch /tmp/go
}

@test "a terminal that goes away stops nothing" {
    foo=$(package foo "init/00-add.sh=$waiting_script")
    bar=$(package bar)
    install_while_terminal_goes "$foo" "$bar"
    wait_until is_installed bar
    is_installed foo
    wait_until assert_no_lock
}

@test "a reader that goes away stops nothing, and no command of a package either" {
    foo=$(package foo "init/00-add.sh=$waiting_script" \
        'init/99-cfg.sh=set -e; echo to nobody; echo again; touch /tmp/configured')
    bar=$(package bar)
    { pvrm install "$foo" "$bar" 2>&1; echo $? >/tmp/out; } 3>&- | true &
    wait_until has_started
    touch /tmp/go
    wait_until test -s /tmp/out
    assert_equal "$(cat /tmp/out)" 0
    is_installed foo
    is_installed bar
    [[ -e /tmp/configured ]]
}

# A configuration script that fails when what it tells can't be written.
telling_script() { # REDIRECTION
    printf 'set -e; echo to nobody %s; touch /tmp/configured' "$1"
}

# As descriptor $to_nobody.
open_pipe_without_reader() {
    exec {to_nobody}> >(true)
    wait "$!"
}

@test "a terminal that goes away fails no command of a package" {
    foo=$(package foo "init/00-add.sh=$waiting_script" "init/99-cfg.sh=$(telling_script)")
    install_while_terminal_goes "$foo"
    wait_until is_installed foo
    wait_until assert_no_lock
    [[ -e /tmp/configured ]]
}

@test "a reader that goes away fails no command of a package when the tool tells nothing" {
    foo=$(package foo "init/99-cfg.sh=$(telling_script)")
    open_pipe_without_reader
    pvrm --quiet install "$foo" >&"$to_nobody" 2>&1
    is_installed foo
    [[ -e /tmp/configured ]]
}

@test "a reader that goes away fails no command of a package that writes to stderr" {
    foo=$(package foo "init/99-cfg.sh=$(telling_script '>&2')")
    open_pipe_without_reader
    pvrm install "$foo" >&"$to_nobody" 2>&1
    is_installed foo
    [[ -e /tmp/configured ]]
}

# --- Two at once ----------------------------------------------------------------------------------

@test "a second one is told which process holds the lock" {
    local bar
    bar=$(package bar)
    assert_refused_beside_change install "$bar"
    refute_installed bar
}
