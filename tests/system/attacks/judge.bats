#!/usr/bin/env bats
# The judge of the tests about attacks finds whatever is changed, and nothing that was not.

# What is quoted is expanded by others, if at all.
# shellcheck disable=SC2016

load ../helpers
load machine

setup() {
    cd "$BATS_TEST_TMPDIR"
    # What a sandbox was made with is known to it in two ways: as a file of the machine that was
    # never changed here, and as one that was.
    below=/usr/share/common-licenses/Artistic
    above=/usr/share/judge/file
    mkdir -p /usr/share/judge
    echo something >"$above"
    chmod 644 "$above"
    ln -sfn file /usr/share/judge/link
    record_machine before
}

teardown() {
    rm -rf /usr/share/judge
}

# Runs a command and leaves in $changes what the judge says of it.
judge() { # COMMAND [ARGUMENT]...
    "$@"
    record_machine after
    changes=$(machine_changes before after)
}

# The judge names this path, with these words behind it.
assert_found() { # PATH [TEXT]
    [[ $changes == *[-+]" $1"$'\t'*"${2-}"* ]] || {
        printf 'not found: <%s> <%s>\nin the changes:\n%s\n' "$1" "${2-}" "$changes" >&2
        return 1
    }
}

# Each of the two files, as the argument of a command.
judge_both() { # TEXT COMMAND [ARGUMENT]...
    judge "${@:2}" "$above"
    assert_found "$above" "$1"
    judge "${@:2}" "$below"
    assert_found "$below" "$1"
}

@test "a machine on which nothing happened is unchanged" {
    judge true
    assert_equal "$changes" ''
}

@test "what is read, and what comes and goes, is not a change" {
    judge eval 'cat "$below" "$above" >copy; touch /etc/new /var/lib/new; rm /etc/new /var/lib/new;
        mkdir -p /usr/lib/new/dir; rmdir -p /usr/lib/new/dir 2>rmdir.out || true'
    assert_equal "$changes" ''
}

@test "the stage area, the log and the files of the tests are not compared" {
    judge eval 'mkdir /var/lib/vrm/stagearea/x; echo x >/var/lib/vrm/stagearea/x/y;
        echo x >>/var/log/pvrm.log; echo x >here'
    assert_equal "$changes" ''
    judge chmod 777 /var/lib/vrm/stagearea
    assert_found /var/lib/vrm/stagearea 'directory 777'
    chmod 755 /var/lib/vrm/stagearea
    rm -r /var/lib/vrm/stagearea/x
}

same_size_and_time() { # FILE
    touch -r "$1" reference
    tr '[:alnum:]\0\377' x <"$1" >other
    cat other >"$1"
    touch -r reference "$1"
}

@test "other content of the same size and time" {
    judge_both content same_size_and_time
}

@test "other content of a large file" {
    head -c 3000000 /dev/urandom >/usr/share/judge/large
    record_machine before
    judge same_size_and_time /usr/share/judge/large
    assert_found /usr/share/judge/large content
}

@test "another mode" {
    judge_both 'file 4755' chmod 4755
    judge chmod 1777 /usr/share/judge
    assert_found /usr/share/judge 'directory 1777'
}

@test "another owner or group" {
    judge_both ' 1:2, ' chown 1:2
    judge chown -h 3 /usr/share/judge/link
    assert_found /usr/share/judge/link 'link 3:0'
}

@test "another time" {
    judge_both ', of 0.0' touch -d @0
}

@test "a capability, and any other attribute" {
    judge_both 'attribute security.capability' \
        setfattr -n security.capability -v 0x0100000200200000000000000000000000000000
    judge setfattr -n user.note -v x /etc
    assert_found /etc 'attribute user.note'
}

@test "another target of a link" {
    judge ln -sfn elsewhere /usr/share/judge/link
    assert_found /usr/share/judge/link 'link 0:0 to elsewhere'
    assert_found /usr/share/judge/link 'link 0:0 to file'
}

@test "a file, a directory, a link, a pipe, a device, a second name" {
    judge touch /etc/new
    assert_found /etc/new
    judge mkdir /srv/new
    assert_found /srv/new
    judge ln -s nowhere $'/root/new\nlink'
    assert_found $'/root/new\x01link' 'to nowhere'
    judge mkfifo /var/new
    assert_found /var/new pipe
    judge mknod /dev/shm/new c 1 3
    assert_found /dev/shm/new '1,3'
    judge ln "$above" /home/new
    assert_found /home/new '2 names'
    assert_found "$above" '2 names'
    judge touch /tmp/new
    assert_found /tmp/new
    rm -r /etc/new /srv/new /root/new* /var/new /dev/shm/new /home/new /tmp/new
}

@test "a removed file" {
    judge rm "$above"
    assert_found "$above"
    cp "$below" saved
    judge rm "$below"
    assert_found "$below"
    cp saved "$below"
}

@test "a removed directory, also when an empty one is in its place" {
    judge eval 'mv /usr/share/common-licenses /usr/share/judge/; mkdir /usr/share/common-licenses'
    assert_found /usr/share/common-licenses
    rmdir /usr/share/common-licenses
    mv /usr/share/judge/common-licenses /usr/share/
}

@test "one thing exchanged for another" {
    judge eval 'rm "$above"; mkdir "$above"'
    assert_found "$above" directory
}

@test "outside of the sandbox there is no verdict" {
    overlays() { :; }
    run record_machine after
    assert_status 1
    assert_output_has 'this is not the sandbox'
}
