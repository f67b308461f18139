#!/usr/bin/env bats
# The display in memory.

# The text between single quotes is for other shells.
# shellcheck disable=SC2016

setup() {
    source_dir=$(cd "$BATS_TEST_DIRNAME/../.." && pwd -P)
    with_display=$source_dir/scripts/with-display
    cd "$BATS_TEST_TMPDIR"
}

@test "the command has a display of its own, which ends with it" {
    run "$with_display" sh -c 'echo "$DISPLAY"; xdotool getdisplaygeometry'
    [[ $status == 0 ]]
    [[ ${lines[0]} == :[0-9]* ]]
    [[ ${lines[1]} == "1024 768" ]]
    ! DISPLAY=${lines[0]} xdotool getdisplaygeometry 2>/dev/null || false
    [[ ! -e /tmp/.X${lines[0]#:}-lock ]]
}

@test "two at once have different ones" {
    # shellcheck disable=SC2016
    "$with_display" sh -c 'echo $DISPLAY >outer; "$0" sh -c "echo \$DISPLAY" >inner' "$with_display"
    [[ $(cat outer) == :* && $(cat inner) == :* ]]
    [[ $(cat inner) != "$(cat outer)" ]]
}

# A server that started anew behind its last client would turn away whoever connects just then, which
# happened to the window manager.
@test "the display does not start anew when its last client goes" {
    run "$with_display" sh -c 'xprop -root -f KEPT 8s -set KEPT yes && xprop -root KEPT'
    [[ $status == 0 ]]
    [[ $output == 'KEPT(STRING) = "yes"' ]]
}

# The scheduler's timer, which on a busy machine goes on when there is nothing to do, is a SIGALRM.
@test "the display has no timer that wakes it with nothing to do" {
    local caught
    # shellcheck disable=SC2016
    caught=$("$with_display" sh -c 'sed -n "s/^SigCgt:[[:space:]]*//p" "/proc/$DISPLAY_PROCESSES/status"')
    [[ $caught =~ ^[0-9a-f]+$ ]]
    (((0x$caught & 1 << (14 - 1)) == 0))
}

@test "with a manager there is one" {
    run "$with_display" --manager xdotool get_num_desktops
    [[ $status == 0 ]]
    run "$with_display" xdotool get_num_desktops
    [[ $status != 0 ]]
}

@test "the exit status is the command's, and so is its standard input" {
    run "$with_display" sh -c 'exit 37'
    [[ $status == 37 ]]
    [[ $("$with_display" cat <<<"from outside") == "from outside" ]]
}

@test "a signal to the script ends the command and the display" {
    "$with_display" sh -c 'echo $DISPLAY $$ >ready; exec sleep 98' 3>&- &
    pid=$!
    for ((i = 0; i < 600; i++)); do
        [[ ! -s ready ]] || break
        sleep 0.1
    done
    read -r display command <ready
    kill -TERM $pid
    status=0
    wait $pid || status=$?
    [[ $status == 143 ]]
    ! kill -0 "$command" 2>/dev/null || false
    [[ ! -e /tmp/.X${display#:}-lock ]]
}

@test "a wrong call is refused" {
    run "$with_display"
    [[ $status == 125 ]]
    run "$with_display" --no-such-option true
    [[ $status == 125 ]]
}
