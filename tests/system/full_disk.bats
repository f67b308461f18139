# Disks that are full or read-only at each place that an installation writes to: the reason is told,
# the status says so, and what was there before is there afterwards.

setup_file() {
    load helpers
    make_signer
    trust_signer
}

setup() {
    load helpers
    clean_repository
    rm -rf /srv/target
    mkdir -p /srv/target
    # Another package, of which nothing may be touched.
    pvrm install --quiet "$(package other)"
    history=$(cat "$repository/install.log")
    # Compresses to little, and is more than a disk of 256 kB holds when unpacked.
    file=$(package foo "data/srv/target/first=small" "data/srv/target/second=$(printf '%0400000d' 0)" \
        "data/srv/target/third=small")
}

teardown() {
    umount -l /srv/target "$repository"/{stagearea,installed,fileindex} 2>/dev/null || true
}

# Nothing of foo is left anywhere, and the inventory still answers for the other package.
assert_as_before() {
    refute_installed foo
    assert_equal "$(ls -A /srv/target)" ''
    is_installed other
    assert_equal "$(pvrm files other)" /usr/share/other/about
    assert_equal "$(pvrm owner /usr/share/other/about)" other
    assert_equal "$(cat /usr/share/other/about)" 'other 1.0'
    assert_equal "$(cat "$repository/install.log")" "$history"
    [[ ! -e $repository/lock ]]
}

# After the place is in order again, the same command does what it could not do.
assert_works_now() {
    run pvrm install "$file"
    assert_status 0
    is_installed foo
    assert_equal "$(cat /srv/target/third)" small
}

@test "no room to unpack" {
    mount -t tmpfs -o size=256k tmpfs "$repository/stagearea"
    run pvrm install "$file"
    umount "$repository/stagearea"
    assert_status 1
    assert_line "pvrm: the package can't be unpacked: Write failed: No space left on device"
    assert_line 'pvrm: foo was not installed'
    assert_as_before
    assert_works_now
}

@test "no room for the files" {
    mount -t tmpfs -o size=256k tmpfs /srv/target
    run pvrm install "$file"
    assert_status 1
    assert_output_has 'No space left on device'
    assert_line 'pvrm: foo was not installed'
    assert_as_before
    umount /srv/target
    assert_works_now
}

@test "no room for the entry in the inventory" {
    # Takes the directories and not the description.
    mount -t tmpfs -o size=4k tmpfs "$repository/installed"
    dd if=/dev/zero of="$repository/installed/filler" bs=4k count=1 2>/dev/null
    run pvrm install "$file"
    umount "$repository/installed"
    assert_status 1
    assert_output_has 'No space left on device'
    assert_as_before
    assert_works_now
}

@test "no room for the file index" {
    mount -t tmpfs -o size=4k tmpfs "$repository/fileindex"
    dd if=/dev/zero of="$repository/fileindex/filler" bs=4k count=1 2>/dev/null
    run pvrm install "$file"
    umount "$repository/fileindex"
    assert_status 1
    assert_line 'pvrm: foo was not installed'
    assert_as_before
    assert_works_now
}

@test "a target that may only be read" {
    mount -t tmpfs -o ro tmpfs /srv/target
    run pvrm install "$file"
    assert_status 1
    assert_output_has 'Read-only file system'
    assert_line 'pvrm: foo was not installed'
    assert_as_before
    umount /srv/target
    assert_works_now
}

@test "an inventory that may only be read" {
    for place in stagearea installed fileindex; do
        mount --bind "$repository/$place" "$repository/$place"
        mount -o remount,bind,ro "$repository/$place"
        run pvrm install "$file"
        umount "$repository/$place"
        assert_status 1
        assert_line 'pvrm: foo was not installed'
        assert_as_before
    done
    assert_works_now
}
