#!/usr/bin/env bats
# The look at the room on the disks that a change has before it touches anything.

load helpers

setup_file() { begin_tests catalogue; }

setup() {
    clean_repository
    rm -rf /srv/target
    mkdir -p /srv/target
    # Compresses to little, and is more than a disk of 256 kB holds.
    large=data/srv/target/large=$(printf '%0400000d' 0)
}

teardown() {
    umount -l /srv/target "$repository"/{stagearea,installed} 2>/dev/null || true
    rm -rf /srv/target
}

small_disk() { # DIRECTORY [SIZE]
    mount -t tmpfs -o "size=${2-256k},mode=755" tmpfs "$1"
}

# The line of a lack names the file system with both figures.
assert_lack() { # FILE-SYSTEM [TEXT-IN-FRONT]
    local pattern="^pvrm: ${2-}not enough space on $1: [0-9.]+ [kM]?B?(bytes)? are needed, [0-9.]+ [kM]?B?(bytes)? are free; make room, or use --ignore-space to try it all the same\$"
    grep -qE "$pattern" <<<"$output" || {
        printf 'no lack on %s in:\n%s\n' "$1" "$output" >&2
        return 1
    }
}

@test "no room to unpack: refused before the package is fetched" {
    file=$(package foo "$large")
    small_disk "$repository/stagearea"
    run pvrm install "$file"
    left=$(ls -A "$repository/stagearea")
    assert_status 1
    assert_lack "$repository/stagearea"
    assert_equal "$left" ''
    refute_installed foo
    refute_output_has 'can.t be unpacked'
}

@test "a dry run reports it too" {
    file=$(package foo "$large")
    small_disk "$repository/stagearea"
    run pvrm install --dry-run "$file"
    assert_status 1
    assert_output_has '1 package, '
    assert_lack "$repository/stagearea"
}

@test "a stage area of its own needs room for one package at a time" {
    put_on_offer one "data/srv/target/one=$(printf '%0120000d' 0)" needs=two
    put_on_offer two "data/srv/target/two=$(printf '%0120000d' 0)"
    small_disk "$repository/stagearea" 300k
    run pvrm install one two
    assert_status 0
    is_installed one
    is_installed two
}

@test "no room for the files: refused after unpacking, before a script or a file" {
    file=$(package foo "$large" 'init/00-add.sh=touch /tmp/ran')
    small_disk /srv/target
    run pvrm install "$file"
    assert_status 1
    assert_lack /srv/target
    assert_equal "$(ls -A /srv/target)" ''
    [[ ! -e /tmp/ran ]]
    refute_installed foo
    assert_equal "$(find "$repository/stagearea" -mindepth 1 -type d)" ''
}

@test "no room for the new version beside the old one: the old one stays as it is" {
    half="$(printf '%0140000d' 0)"
    small_disk /srv/target
    pvrm install --quiet "$(package foo "data/srv/target/a=1$half")"
    run pvrm upgrade "$(package foo version=2.0 "data/srv/target/a=2$half")"
    assert_status 1
    assert_lack /srv/target
    assert_equal "$(version_of foo)" 1.0
    assert_equal "$(cut -c 1 /srv/target/a)" 1
    assert_equal "$(ls -A /srv/target)" a
}

@test "no room for the registration" {
    file=$(package foo "conf/etc/foo.conf=$(printf '%0400000d' 0)")
    small_disk "$repository/installed"
    run pvrm install "$file"
    assert_status 1
    assert_lack "$repository/installed"
    [[ ! -e /etc/foo.conf ]]
}

@test "no room for copies of what a removal takes away from another file system" {
    small_disk /srv/target 4M
    pvrm install --quiet "$(package foo "$large")"
    small_disk "$repository/stagearea"
    run pvrm remove foo
    assert_status 1
    assert_lack "$repository/stagearea"
    is_installed foo
    [[ -s /srv/target/large ]]
}

@test "--ignore-space begins all the same, and what fails is rolled back" {
    file=$(package foo "$large")
    small_disk /srv/target
    run pvrm install --ignore-space "$file"
    assert_status 1
    assert_output_has 'No space left on device'
    refute_output_has 'not enough space'
    refute_installed foo
    assert_equal "$(ls -A /srv/target)" ''
}

