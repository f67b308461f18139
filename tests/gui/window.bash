# shellcheck shell=bash
# Loaded by the tests of the installed window program: load window
#
# ctest runs them in the throwaway root with a display; by hand:
#     scripts/sandbox scripts/with-display --manager bats tests/gui/FILE.bats

load ../system/helpers

title='Vorathan Package Manager'

# What the libraries of the display keep to the end is no leak of ours.
export LSAN_OPTIONS=suppressions=$source_dir/tests/gui/leaks.supp:print_suppressions=0

# Starts the program, by the name given, in a directory of the test's own, where its log goes.
start_window() { # [NAME [ARGUMENT]...]
    local program=${1:-fltk-vrm}
    shift || true
    cd "$BATS_TEST_TMPDIR"
    rm -f fltk-vrm.log
    "$program" "$@" >out 2>err 3>&- &
    window_pid=$!
}

# The test's end ends its program too.
end_window() {
    [[ -n ${window_pid-} ]] || return 0
    kill "$window_pid" 2>/dev/null || true
    wait "$window_pid" || true
    window_pid=
}

# The same, where the test has not waited for that end: a program that has ended by itself has crashed.
end_living_window() {
    [[ -z ${window_pid-} ]] || kill -0 "$window_pid" || {
        cat "$BATS_TEST_TMPDIR/err" >&2
        return 1
    }
    end_window
}

# In $activity, what the processes of the display and of the program have done so far: the state and
# the numbers of switches of each. It starts no process itself, as it is called all the time.
observe_activity() {
    local process line
    activity=
    # shellcheck disable=SC2086  # several processes
    for process in ${DISPLAY_PROCESSES-} ${window_pid-}; do
        [[ -r /proc/$process/status ]] || continue
        activity+="$process "
        while read -r line; do
            case $line in
            State:* | voluntary_ctxt_switches:* | nonvoluntary_ctxt_switches:*) activity+="$line " ;;
            esac
        done <"/proc/$process/status"
    done 2>/dev/null
    [[ -n $activity ]] || {
        echo 'no process of the display or of the program is there to observe' >&2
        return 1
    }
}

# All of them sleep, and none has run in between: a click or a key would have woken one that has not
# handled it yet, even on a machine that leaves it no time to run.
is_settled() {
    local activity before
    observe_activity || return
    before=$activity
    observe_activity || return
    [[ $activity == "$before" && $activity != *State:*[RD]\ \(* ]]
}

# Waits until all that has been clicked and typed is handled and drawn, for a minute at most: a window
# that shows the output of a tool may be busy for long.
settle() {
    local activity end=$((SECONDS + ${settle_seconds:-60}))
    until is_settled; do
        observe_activity || return
        ((SECONDS < end)) || {
            printf 'the window does not come to rest: %s\n' "$activity" >&2
            return 1
        }
        sleep 0.05
    done
}

# Waits until the tool, which has been started, has ended, and the window shows that.
wait_for_tool() {
    wait_until no_child_runs
    settle
}

no_child_runs() {
    ! pgrep -P "$window_pid" >/dev/null
}

# The id of the window with this title, or nothing. A dialog of the program has none of its own.
window_id() { # [TITLE]
    xdotool search --onlyvisible --name "^${1:-$title}\$" 2>/dev/null | head -n 1
}

has_window() { # [TITLE]
    [[ -n $(window_id "$@") ]]
}

wait_for_window() { # [TITLE]
    wait_until has_window "$@"
    settle
}

# The dialog is the visible window of the program that isn't the main one.
dialog_id() {
    local id
    for id in $(xdotool search --onlyvisible --class fltk 2>/dev/null); do
        [[ $(xdotool getwindowname "$id") == "$title" ]] || echo "$id"
    done | head -n 1
}

has_dialog() {
    [[ -n $(dialog_id) ]]
}

no_dialog() {
    ! has_dialog
}

wait_for_dialog() {
    wait_until has_dialog
    settle
}

# Clicks on a place of the window, in its own coordinates.
click() { # X Y
    xdotool mousemove --window "$(window_id)" "$1" "$2" click 1
    settle
}

# The middle of a button of the top row.
press() { # list|install|update|refresh|cleanup|quit
    local names=(list install update refresh cleanup quit) i
    for i in "${!names[@]}"; do
        [[ ${names[i]} != "$1" ]] || click $((10 + i * 120 + 60)) 22
    done
}

# Another window than the one with this id stands there, as after each pass of the loop.
another_window_than() { # ID
    local id
    id=$(window_id)
    [[ -n $id && $id != "$1" ]]
}

# As a user does by the window manager.
close_by_manager() {
    local before
    before=$(window_id)
    wmctrl -i -c "$before"
    wait_until another_window_than "$before"
    settle
}

# The toolkit takes the key for the window manager's button.
close_by_escape() {
    local before
    before=$(window_id)
    xdotool windowfocus --sync "$before" key Escape
    wait_until another_window_than "$before"
    settle
}

close_times() { # COUNT
    local count=$1
    while ((count-- > 0)); do close_by_manager; done
}

# The program ends by itself, with this status.
wait_for_end() { # STATUS
    local ended_with=0
    wait_until ended
    wait "$window_pid" || ended_with=$?
    window_pid=
    assert_equal "status $ended_with" "status $1"
}

ended() {
    ! kill -0 "$window_pid" 2>/dev/null || [[ $(ps -o stat= -p "$window_pid") == Z* ]]
}

# The colour of a point of the window, as rrggbb.
colour_at() { # X Y
    import -silent -window "$(window_id)" -crop "1x1+$1+$2" -depth 8 txt:- |
        sed -nE 's/.*#([0-9A-Fa-f]{6}).*/\L\1/p'
}

# A picture of a part of the window, as a digest: two places that look the same have the same.
look_of() { # WxH+X+Y
    import -silent -window "$(window_id)" -crop "$1" +repage -depth 8 rgb:- | sha1sum
}

assert_err_has() { # TEXT
    grep -qF -- "$1" err || {
        printf 'the text <%s> is not on stderr:\n' "$1" >&2
        cat err >&2
        return 1
    }
}

assert_log_has() { # LEVEL TEXT
    grep -qE -- "^[-0-9]+ [0-9:]+ \[$1\] " fltk-vrm.log
    grep -qF -- "[$1] $2" fltk-vrm.log || {
        printf 'the line <[%s] %s> is not in the log:\n' "$1" "$2" >&2
        cat fltk-vrm.log >&2
        return 1
    }
}
