# Disks that are full or read-only at each place that an installation writes to: the reason is told,
# the status says so, and what was there before is there afterwards. So it is with an upgrade, but for
# the files that its rollback costs, and these are told.

setup_file() {
    load helpers
    begin_tests
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
    mount -t tmpfs -o size=256k,mode=755 tmpfs "$repository/stagearea"
    run pvrm install --ignore-space "$file"
    umount "$repository/stagearea"
    assert_status 1
    assert_line "pvrm: the package can't be unpacked: Write failed: No space left on device"
    assert_line 'pvrm: foo was not installed'
    assert_as_before
    assert_works_now
}

@test "no room for the files" {
    mount -t tmpfs -o size=256k tmpfs /srv/target
    run pvrm install --ignore-space "$file"
    assert_status 1
    assert_output_has 'No space left on device'
    assert_line 'pvrm: foo was not installed'
    assert_as_before
    umount /srv/target
    assert_works_now
}

# Installs while a directory of the repository has no room left.
install_with_full() { # DIRECTORY
    mount -t tmpfs -o size=4k tmpfs "$repository/$1"
    dd if=/dev/zero of="$repository/$1/filler" bs=4k count=1 2>/dev/null
    run pvrm install --ignore-space "$file"
    umount "$repository/$1"
    assert_status 1
}

@test "no room for the entry in the inventory" {
    # Takes the directories and not the description.
    install_with_full installed
    assert_output_has 'No space left on device'
    assert_as_before
    assert_works_now
}

@test "no room for the file index" {
    install_with_full fileindex
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

@test "an inventory that may only be read is told before anything is done" {
    for place in stagearea installed fileindex; do
        mount --bind "$repository/$place" "$repository/$place"
        mount -o remount,bind,ro "$repository/$place"
        for word in "install $file" upgrade 'remove other' cleanup check; do
            # shellcheck disable=SC2086
            run pvrm $word
            assert_status 1
            assert_equal "$output" \
                "pvrm: the directory $repository/$place can't be written to: Read-only file system"
            assert_as_before
        done
        run pvrm --dry-run install "$file"
        assert_status 0
        umount "$repository/$place"
    done
    assert_works_now
}

@test "a repository that may only be read is told by its cause" {
    mount --bind "$repository" "$repository"
    mount -o remount,bind,ro "$repository"
    run pvrm install "$file"
    umount "$repository"
    assert_status 1
    assert_equal "$output" \
        "pvrm: the directory $repository/installed can't be written to: Read-only file system"
    assert_as_before
}

@test "no room for a file of an upgrade: nothing of the old version is lost, and more room is the remedy" {
    local newer path
    mount -t tmpfs -o size=256k tmpfs /srv/target
    pvrm install --quiet "$(package foo data/srv/target/{a,b,c,d,e}=small)"
    # Whichever way the unpacked directory is read, something comes after c.
    newer=$(package foo version=2.0 data/srv/target/{a,b,d,e}=new \
        "data/srv/target/c=$(printf '%0400000d' 0)")
    run pvrm upgrade --ignore-space "$newer"
    assert_status 1
    assert_output_has 'No space left on device'
    assert_line 'pvrm: the upgrade to foo_any_2.0 failed, and what it had changed was rolled back'
    assert_line 'pvrm: foo was not upgraded'
    refute_output_has lost
    assert_equal "$(version_of foo)" 1.0
    for path in /srv/target/{a,b,c,d,e}; do
        assert_equal "$(cat "$path")" small
    done
    assert_equal "$(find /srv/target -mindepth 1 | wc -l)" 5
    run pvrm verify foo
    assert_status 0
    mount -o remount,size=2m /srv/target
    run pvrm upgrade "$newer"
    assert_status 0
    run pvrm verify foo
    assert_status 0
    assert_equal "$(cat /srv/target/a)" new
}
