#!/usr/bin/env bats
# The throwaway root, seen from outside. Where it can't be had these tests fail.

setup() {
    source_dir=$(cd "$BATS_TEST_DIRNAME/../.." && pwd -P)
    sandbox=$source_dir/scripts/sandbox
    cd "$BATS_TEST_TMPDIR"
}

# The machine's own state of all that the package manager writes to.
fixed_paths() {
    ls -lAR --time-style=full-iso /var/lib/vrm /etc/vrm /etc/vrm.conf /usr/lib/vrm 2>&1 || true
}

@test "a repository inside is fresh, and what is written stays inside" {
    before=$(fixed_paths)
    run "$sandbox" --bare sh -c 'find /var/lib/vrm /etc/vrm | LC_ALL=C sort
        test ! -e /etc/vrm.conf || echo configured
        echo x >/var/lib/vrm/x; echo y >/etc/vrm.conf; echo z >/usr/sandbox-leak
        cat /var/lib/vrm/x /etc/vrm.conf /usr/sandbox-leak'
    [[ $status == 0 ]]
    expected='/etc/vrm
/etc/vrm/hooks.d
/var/lib/vrm
/var/lib/vrm/certstore
/var/lib/vrm/fileindex
/var/lib/vrm/installed
/var/lib/vrm/scriptdir
/var/lib/vrm/stagearea
x
y
z'
    [[ $output == "$expected" ]]
    [[ $(fixed_paths) == "$before" ]]
    [[ ! -e /usr/sandbox-leak ]]
}

@test "files of the machine can be changed and removed inside only" {
    run "$sandbox" --bare sh -c 'rm /etc/passwd && mv /usr/share /usr/shared &&
        touch /tmp/sandbox-leak /run/sandbox-leak /dev/shm/sandbox-leak && ls /usr'
    [[ $status == 0 ]]
    [[ $output == *shared* ]]
    [[ -f /etc/passwd && -d /usr/share && ! -e /usr/shared ]]
    [[ ! -e /tmp/sandbox-leak && ! -e /run/sandbox-leak && ! -e /dev/shm/sandbox-leak ]]
}

# A directory below /tmp, which is removed by the end of the test.
make_outer_directory() {
    outer=$(mktemp -d /tmp/sandbox_test.XXXXXX)
    chmod 755 "$outer"
}

teardown() {
    [[ -z ${outer-} ]] || rm -r "$outer"
}

@test "/tmp inside is fresh, and what is written there stays inside" {
    make_outer_directory
    echo outer >"$outer/file"
    cd /
    # shellcheck disable=SC2016
    run "$sandbox" --bare sh -c 'ls -A /tmp; stat -c %a /tmp; mkdir "$0"; echo inner >"$0/file"' \
        "$outer"
    [[ $status == 0 ]]
    # The checkout itself may lie there.
    [[ $source_dir == /tmp/* || $output == 1777 ]]
    [[ $output != *"${outer##*/}"* ]]
    [[ $(cat "$outer/file") == outer ]]
}

@test "a checkout and a build below /tmp are there, and what is written to them stays inside" {
    make_outer_directory
    mkdir -p "$outer"/{tree/scripts,build/sub,beside}
    install -m 755 "$sandbox" "$outer/tree/scripts/sandbox"
    echo built >"$outer/build/program"
    cd "$outer/build/sub"
    # shellcheck disable=SC2016
    run "$outer/tree/scripts/sandbox" --bare --build-dir "$outer/build" sh -ec '
        pwd; cd "$0"; cat build/program; ls; ls tree/scripts
        echo x >build/program; echo x >tree/file; echo x >build/sub/file' "$outer"
    [[ $status == 0 ]]
    [[ $output == "$outer/build/sub"$'\nbuilt\nbuild\ntree\nsandbox' ]]
    [[ $(cat "$outer/build/program") == built ]]
    [[ ! -e $outer/tree/file && ! -e $outer/build/sub/file ]]
}

@test "a directory below /tmp can be bound" {
    make_outer_directory
    cd /
    # shellcheck disable=SC2016
    "$sandbox" --bare --bind "$outer" sh -c 'echo picture >"$0/file"' "$outer"
    [[ $(cat "$outer/file") == picture ]]
}

@test "the exit status is the command's" {
    run "$sandbox" --bare sh -c 'exit 37'
    [[ $status == 37 ]]
    run "$sandbox" --bare true
    [[ $status == 0 ]]
}

@test "a command that a signal ended gives 128 and the signal" {
    run "$sandbox" --bare sh -c 'kill -ABRT $$'
    [[ $status == 134 ]]
}

@test "arguments arrive as they were given" {
    run "$sandbox" --bare printf '<%s>' 'two words' '' '*' --bare "it's"
    [[ $output == "<two words><><*><--bare><it's>" ]]
}

@test "standard input is the caller's, and the directory too" {
    run "$sandbox" --bare sh -c 'cat; pwd' <<<"from outside"
    [[ ${lines[0]} == "from outside" ]]
    [[ ${lines[1]} == "$(pwd -P)" ]]
}

@test "the sources can be read at their own path" {
    run "$sandbox" --bare cat "$sandbox"
    [[ $status == 0 ]]
    [[ $output == "$(cat "$sandbox")" ]]
}

@test "what is bound stays, and nothing beside it" {
    mkdir kept
    "$sandbox" --bare --bind kept sh -c 'echo picture >kept/file; echo gone >beside'
    [[ $(cat kept/file) == picture ]]
    [[ ! -e beside ]]
}

@test "TMPDIR of the caller is not needed inside" {
    TMPDIR=$BATS_TEST_TMPDIR/away run "$sandbox" --bare mktemp
    [[ $status == 0 ]]
    [[ $output == /tmp/* ]]
    [[ ! -e $output ]]
}

@test "devices, processes and the dynamic linker's cache work inside" {
    "$sandbox" --bare sh -ec 'echo x >/dev/null; head -c 4 /dev/urandom >/dev/null
        test -r /proc/self/status; test -d /sys/kernel; test $$ -lt 1000; /sbin/ldconfig
        touch /dev/log'
    [[ ! -f /dev/log ]]
}

# Ended within a minute, or not at all.
wait_until_gone() {
    local i
    for ((i = 0; i < 600; i++)); do
        pgrep -f "$1" >/dev/null || return 0
        sleep 0.1
    done
    return 1
}

@test "nothing is left running or mounted behind the command" {
    mounts=$(cat /proc/self/mounts)
    # shellcheck disable=SC2016
    "$sandbox" --bare sh -c 'setsid sleep 98761.$0 >/dev/null 2>&1 3>&- &' "$$"
    wait_until_gone "sleep 98761.$$"
    [[ $(cat /proc/self/mounts) == "$mounts" ]]
}

@test "a signal to the script ends everything" {
    local signal pid marker
    for signal in TERM HUP KILL; do
        marker="9876${#signal}.$$"  # of this run alone, several may go on at once
        "$sandbox" --bare sh -c "echo >ready; trap '' TERM HUP; sleep $marker" 3>&- &
        pid=$!
        for ((i = 0; i < 600; i++)); do
            ! pgrep -f "^sleep $marker" >/dev/null || break
            sleep 0.1
        done
        pgrep -f "^sleep $marker"
        kill -s $signal $pid
        wait $pid || true
        wait_until_gone "sleep $marker"
    done
}

@test "it says why when it isn't run by root" {
    # The checkout itself may stand where only root can look.
    make_outer_directory
    install -m 755 "$sandbox" "$outer/sandbox"
    run setpriv --reuid 65534 --regid 65534 --clear-groups "$outer/sandbox" --bare true
    [[ $status == 125 ]]
    [[ $output == "sandbox: only root can make a throwaway root; run this as root, or by sudo" ]]
}

@test "it says why when namespaces are refused" {
    run setpriv --bounding-set -sys_admin "$sandbox" --bare true
    [[ $status == 125 ]]
    [[ $output == "sandbox: this machine doesn't let us make namespaces of our own ("*")" ]]
}

@test "it says why when nothing is built" {
    run "$sandbox" --build-dir "$BATS_TEST_TMPDIR/none" true
    [[ $status == 125 ]]
    [[ $output == "sandbox: nothing is built in $BATS_TEST_TMPDIR/none; build it, or name"* ]]
}

@test "a wrong call is refused" {
    run "$sandbox" --no-such-option true
    [[ $status == 125 ]]
    run "$sandbox" --bare
    [[ $status == 125 ]]
    run "$sandbox" --bare --bind /no/such/directory true
    [[ $status == 125 ]]
}

@test "with the programs: configuration, shell and commands of package scripts" {
    run "$sandbox" sh -c 'cat /etc/vrm.conf; cd /var/lib/vrm/scriptdir
        env -i PATH=/var/lib/vrm/scriptdir ./ash -c "mkdir d && echo made && ls -d d"
        ls /usr/share/vrm'
    [[ $status == 0 ]]
    [[ $output == *"arch_name="* ]]
    [[ $output == *$'made\nd\n'* ]]
    [[ $output == *vrm.conf.sample* ]]
}
