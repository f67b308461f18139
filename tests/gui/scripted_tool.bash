# shellcheck shell=bash
# Loaded by the tests in which the privileged tool is a script, after `window` and `table`: load
# scripted_tool. The catalogue is a text, empty at the beginning of each test.

# The text between single quotes is for other shells.
# shellcheck disable=SC2016

setup_file() {
    begin_tests catalogue
    cp /usr/sbin/pvrm /usr/sbin/pvrm.whole
}

setup() {
    clean_repository
    rm -f "$repository"/catalogue.no-* /tmp/go
    : >/tmp/words
}

# Whether no tool of a test runs any more. One that waits for leave goes on when it has it, and would
# else write its last word into the notes of the next test.
no_tool_runs() {
    ! pgrep -f '^/bin/sh /usr/sbin/pvrm' >/dev/null
}

# The program has to be there still: one that has ended by itself has crashed.
teardown() {
    touch /tmp/go
    [[ -z ${window_pid-} ]] || kill -0 "$window_pid" || {
        cat "$BATS_TEST_TMPDIR/err" >&2
        return 1
    }
    end_window
    wait_until no_tool_runs
    cp /usr/sbin/pvrm.whole /usr/sbin/pvrm
}

# Makes the tool a script that notes what it is told.
tool_does() { # SCRIPT
    {
        printf '#!/bin/sh\n[ "$1" != allowed ] || exit 0\necho "$*" >>/tmp/words\n'
        printf '%s\n' "$1" 'echo ended >>/tmp/words'
    } >/usr/sbin/pvrm.new
    chmod +x /usr/sbin/pvrm.new
    mv /usr/sbin/pvrm.new /usr/sbin/pvrm
}

# A line of such a script: waits for leave to go on.
# shellcheck disable=SC2034
wait_for_test='n=0; while [ ! -e /tmp/go ] && [ $n -lt 1200 ]; do sleep 0.05; n=$((n+1)); done'

words_are() { # LINE...
    [[ $(cat /tmp/words) == "$(printf '%s\n' "$@")" ]]
}

assert_words() { # LINE...
    wait_until words_are "$@" || assert_equal "$(cat /tmp/words)" "$(printf '%s\n' "$@")"
}
