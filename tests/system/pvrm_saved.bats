#!/usr/bin/env bats
# What packages replace and nobody owned is kept, and links are shared, refused or left.

bats_require_minimum_version 1.5.0
load helpers

setup_file() { begin_tests; }

setup() {
    clean_repository
    rm -rf /srv/s /srv/real /srv/alias
    mkdir -p /srv/s
    cd "$BATS_TEST_TMPDIR"
    saved=$repository/saved
}

# The only directory of a change.
change_directory() {
    local found=("$saved"/*)
    ((${#found[@]} == 1))
    echo "${found[0]}"
}

# Owner, group, mode, time of modification.
attributes() {
    stat -c '%u:%g %a %.Y' "$1"
}

@test "a file that belongs to no package is kept with all that belongs to it, and where is printed" {
    local copy
    printf 'my own\n' >/srv/s/a
    chown 65534:12 /srv/s/a
    chmod 4751 /srv/s/a
    setfattr -n user.note -v mine /srv/s/a
    touch -d '2020-02-03 04:05:06.789' /srv/s/a
    before=$(attributes /srv/s/a)
    run pvrm install "$(package foo data/srv/s/a=theirs data/srv/s/b=new)"
    assert_status 0
    copy=$(change_directory)/srv/s/a
    [[ $copy =~ ^"$saved"/[0-9-]{10}T[0-9:]{8}_foo_any_1.0/srv/s/a$ ]]
    assert_line "pvrm: the replaced file /srv/s/a is kept as $copy"
    assert_equal "$(cat "$copy")" 'my own'
    assert_equal "$(attributes "$copy")" "$before"
    assert_equal "$(getfattr --absolute-names --only-values -n user.note "$copy")" mine
    assert_equal "$(cat /srv/s/a)" theirs
    assert_equal "$(stat -c %a "$saved")" 700
    assert_equal "$(find "$saved" -type f | wc -l)" 1
    pvrm remove foo
    [[ ! -e /srv/s/a ]]
    assert_equal "$(cat "$copy")" 'my own'
}

@test "a link that belongs to no package is kept as a link, and what it leads to stays" {
    echo target >/srv/s/target
    ln -s target /srv/s/a
    ln -s nowhere /srv/s/dangling
    run pvrm install "$(package foo data/srv/s/a=theirs data/srv/s/dangling=x)"
    assert_status 0
    assert_equal "$(readlink "$(change_directory)/srv/s/a")" target
    assert_equal "$(cat /srv/s/target)" target
    assert_equal "$(cat /srv/s/a)" theirs
    # A removal takes it away.
    assert_equal "$(readlink "$(change_directory)/srv/s/dangling")" nowhere
    rm -f /srv/s/nowhere
}

@test "an installation that replaces nothing keeps nothing" {
    run pvrm install "$(package foo data/srv/s/a=1 info/link.txt='/srv/s|a|b')"
    assert_status 0
    [[ ! -e $saved ]]
    pvrm upgrade "$(package foo version=2.0 data/srv/s/a=2 info/link.txt='/srv/s|a|b')"
    [[ ! -e $saved ]]
}

@test "an upgrade keeps what belongs to no package, and not what the old version had" {
    pvrm install "$(package foo data/srv/s/a=1)"
    echo edited >/srv/s/a
    echo mine >/srv/s/b
    run pvrm upgrade "$(package foo version=2.0 data/srv/s/a=2 data/srv/s/b=2)"
    assert_status 0
    assert_line "pvrm: the replaced file /srv/s/b is kept as $(change_directory)/srv/s/b"
    assert_equal "$(find "$saved" -type f)" "$(change_directory)/srv/s/b"
    assert_equal "$(cat "$(change_directory)/srv/s/b")" mine
}

@test "a file that was left is not kept" {
    echo mine >/srv/s/a
    echo other >/srv/s/b
    file=$(package foo data/srv/s/a=1 data/srv/s/b=1)
    answer_on_terminal "pvrm install '$file'" '[Y/n]' y 'Your choice' L
    assert_status 0
    assert_equal "$(cat /srv/s/a /srv/s/b)" $'mine\nother'
    [[ ! -e $saved ]]
}

@test "two changes of one second have two directories" {
    local file
    file=$(package foo data/srv/s/a=1)
    for _ in 1 2 3; do
        echo mine >/srv/s/a
        pvrm install --quiet "$file"
        pvrm remove --quiet foo
    done
    assert_equal "$(find "$saved" -name a | wc -l)" 3
}

@test "what can't be kept is not replaced" {
    local file
    file=$(package foo data/srv/s/a=theirs data/srv/s/b=new init/99-add.sh='exit 0')
    echo mine >/srv/s/a
    mkdir -m 700 "$saved"
    mount -t tmpfs -o size=4k,mode=700 tmpfs "$saved"
    head -c 20000 /dev/zero >/srv/s/a
    run pvrm install "$file"
    umount "$saved"
    assert_status 1
    assert_output_has "pvrm: cannot keep a copy of /srv/s/a in $saved"
    assert_output_has "No space left on device"
    assert_output_has 'pvrm: the installation of foo_any_1.0 failed'
    refute_installed foo
    assert_equal "$(stat -c %s /srv/s/a)" 20000
    [[ ! -e /srv/s/b ]]
    assert_equal "$(ls "$repository/stagearea")" foo_any_1.0.vrk
    rmdir "$saved"
}

@test "a link in the place of the directory is refused" {
    mkdir /srv/s/elsewhere
    ln -s /srv/s/elsewhere "$saved"
    echo mine >/srv/s/a
    run pvrm install "$(package foo data/srv/s/a=theirs)"
    assert_status 1
    assert_output_has "pvrm: cannot keep a copy of /srv/s/a in $saved: "
    assert_equal "$(cat /srv/s/a)" mine
    assert_equal "$(ls -A /srv/s/elsewhere)" ''
    run pvrm saved
    assert_status 1
    assert_output_has "pvrm: cannot read $saved: "
    run pvrm saved --prune 0
    assert_status 1
    rm "$saved"
}

@test "copies are on the disk before the original is touched" {
    local file
    file=$(package foo data/srv/s/a=theirs)
    echo mine >/srv/s/a
    # The leak checker does not work under a tracer.
    ASAN_OPTIONS=detect_leaks=0 strace -f -o trace -e trace=syncfs,rename,renameat,renameat2 pvrm install --quiet "$file"
    awk '/syncfs\(/ && / = 0$/ && !synced { synced = NR }
        /rename(at2?)?\(/ && /"\/srv\/s\/a"/ { gone = NR }
        END { exit !(synced && gone && synced < gone) }' trace
}

@test "a failed change leaves the copies" {
    echo mine >/srv/s/a
    run pvrm install "$(package foo data/srv/s/a=theirs init/99-add.sh='exit 1')"
    assert_status 1
    assert_equal "$(cat /srv/s/a)" mine
    assert_equal "$(cat "$(change_directory)/srv/s/a")" mine
}

# --- The word -------------------------------------------------------------------------------------

# saved_file DIRECTORY PATH CONTENT
saved_file() {
    mkdir -p "$saved/$1/$(dirname "$2")"
    echo "$3" >"$saved/$1/$2"
    chmod 700 "$saved"
}

@test "saved files are listed, the oldest first" {
    run pvrm saved
    assert_status 0
    assert_equal "$output" ''
    saved_file '2026-03-04T05:06:07_foo_any_1.0#2' srv/s/second two
    saved_file 2026-03-04T05:06:07_foo_any_1.0 srv/s/first one
    saved_file 2025-12-31T23:59:59_bar_small_any_2.0-1 opt/x 1234567
    ln -s /etc "$saved/2026-03-04T05:06:07_foo_any_1.0/srv/s/link"
    run pvrm saved
    assert_status 0
    assert_equal "$output" \
"2025-12-31 23:59:59  bar_small_any_2.0-1  8 bytes  /opt/x
2026-03-04 05:06:07  foo_any_1.0          4 bytes  /srv/s/first
2026-03-04 05:06:07  foo_any_1.0          4 bytes  /srv/s/link -> /etc
2026-03-04 05:06:07  foo_any_1.0          4 bytes  /srv/s/second"
}

@test "only root may list them" {
    saved_file 2026-03-04T05:06:07_foo_any_1.0 srv/s/first one
    run as_nobody pvrm saved
    assert_status 1
    assert_equal "$output" "pvrm: cannot read $saved: Permission denied; run this as root"
}

@test "old ones are deleted, and no others" {
    local yesterday
    yesterday=$(date -d '25 hours ago' +%Y-%m-%dT%H:%M:%S)
    saved_file 2020-01-01T00:00:00_foo_any_1.0 srv/s/first one
    saved_file 2020-01-01T00:00:00_foo_any_1.0 srv/s/second two
    saved_file "${yesterday}_bar_any_1.0" srv/s/third three
    run pvrm --dry-run saved --prune 30
    assert_status 0
    assert_equal "$output" \
"pvrm: would delete the files that foo_any_1.0 replaced on 2020-01-01 00:00:00
pvrm: would delete 2 saved files and free 8 bytes"
    assert_equal "$(find "$saved" -type f | wc -l)" 3
    answer_on_terminal 'pvrm saved --prune 30' 'Delete 2 saved files?' n
    assert_status 1
    assert_output_has '/srv/s/second'
    assert_equal "$(find "$saved" -type f | wc -l)" 3
    run pvrm --yes saved --prune 30
    assert_status 0
    assert_equal "$output" \
"pvrm: deleting the files that foo_any_1.0 replaced on 2020-01-01 00:00:00
pvrm: deleted 2 saved files and freed 8 bytes"
    assert_equal "$(ls "$saved")" "${yesterday}_bar_any_1.0"
    run pvrm saved --prune 2
    assert_equal "$output" 'pvrm: there are no saved files to delete'
    run pvrm saved --prune 1
    assert_status 0
    assert_equal "$(ls "$saved")" ''
    run pvrm saved --prune -1
    assert_status 2
    run pvrm saved --prune soon
    assert_status 2
}

@test "another user may not delete them, nor while something is changed" {
    saved_file 2020-01-01T00:00:00_foo_any_1.0 srv/s/first one
    run as_nobody pvrm saved --prune 1
    assert_status 3
    start_pvrm install "$(package slow init/00-add.sh="$waiting_script")"
    run pvrm saved --prune 1
    assert_status 4
    finish
    [[ -e $saved/2020-01-01T00:00:00_foo_any_1.0/srv/s/first ]]
}

@test "links in the directory lead nowhere" {
    mkdir -p /srv/s/victim
    echo precious >/srv/s/victim/file
    saved_file 2020-01-01T00:00:00_foo_any_1.0 srv/s/first one
    ln -s /srv/s/victim "$saved/2020-01-01T00:00:00_foo_any_1.0/srv/dir"
    ln -s /srv/s/victim "$saved/2020-01-01T00:00:00_evil_any_1.0"
    mkdir "$saved/whatever"
    echo x >"$saved/2020-01-01T00:00:00_file_any_1.0"
    run pvrm saved
    assert_status 1
    refute_output_has precious
    refute_output_has victim/file
    assert_line "pvrm: $saved/whatever is not a directory of saved files: it is skipped"
    assert_line "pvrm: $saved/2020-01-01T00:00:00_evil_any_1.0 is not a directory of saved files: it is skipped"
    run pvrm saved --prune 0
    assert_status 1
    assert_equal "$(cat /srv/s/victim/file)" precious
    assert_equal "$(ls "$saved")" \
"2020-01-01T00:00:00_evil_any_1.0
2020-01-01T00:00:00_file_any_1.0
whatever"
    rm -r "$saved"
}

@test "names of saved files can't steer the terminal" {
    saved_file 2026-03-04T05:06:07_foo_any_1.0 $'srv/a\e[31mb' one
    run pvrm saved
    assert_output_has '/srv/a\x1B[31mb'
}

# --- Links ----------------------------------------------------------------------------------------

@test "a link that another package lists with the same target is shared" {
    pvrm install "$(package one info/link.txt='/srv/s|lib.1|lib')"
    run pvrm install "$(package two info/link.txt='/srv/s|lib.1|lib')"
    assert_status 0
    assert_equal "$(readlink /srv/s/lib)" lib.1
    [[ ! -e $saved ]]
    pvrm remove one
    assert_equal "$(readlink /srv/s/lib)" lib.1
    pvrm remove two
    [[ ! -L /srv/s/lib ]]
}

@test "a link that another package lists with another target is a conflict" {
    pvrm install "$(package one info/link.txt='/srv/s|lib.1|lib')" \
        "$(package two version=0.9 data/srv/s/two=0.9)"
    echo mine >/srv/s/a
    run pvrm install "$(package three data/srv/s/a=3 info/link.txt='/srv/s|lib.2|lib')"
    assert_status 1
    assert_line 'pvrm: the link /srv/s/lib would point to lib.2, but the package one has it pointing to lib.1'
    assert_output_has 'pvrm: the installation of three_any_1.0 failed'
    grep -q '\[ERROR\] vrm_install_vrk: the link /srv/s/lib would point' /var/log/pvrm.log
    run pvrm upgrade "$(package two data/srv/s/two=1.0 info/link.txt='/srv/s|lib.2|lib')"
    assert_status 1
    assert_line 'pvrm: the link /srv/s/lib would point to lib.2, but the package one has it pointing to lib.1'
    assert_line 'pvrm: two was not upgraded'
    # Nothing was touched.
    assert_equal "$(readlink /srv/s/lib) $(cat /srv/s/a /srv/s/two | xargs)" 'lib.1 mine 0.9'
    refute_installed three
    assert_equal "$(version_of two)" 0.9
    [[ ! -e $saved ]]
}

@test "a link is the same however its directory is spelled" {
    mkdir /srv/real
    ln -s real /srv/alias
    pvrm install "$(package one info/link.txt='/srv/real|lib.1|lib')"
    run pvrm install "$(package two info/link.txt='/srv/alias/|lib.2|lib')"
    assert_status 1
    assert_line 'pvrm: the link /srv/real/lib would point to lib.2, but the package one has it pointing to lib.1'
    pvrm install "$(package three info/link.txt='/srv|lib.1|alias/../real//lib')"
    pvrm remove one
    [[ -L /srv/real/lib ]]
    pvrm remove three
    [[ ! -L /srv/real/lib ]]
}

@test "a file of another package in the place of a link is a conflict" {
    mkdir /srv/real
    ln -s real /srv/alias
    pvrm install "$(package one data/srv/alias/x=one)"
    run pvrm install "$(package two info/link.txt='/srv/real|y|x')"
    assert_status 1
    assert_line 'pvrm: the link /srv/real/x to y would replace a file that belongs to the package one'
    assert_equal "$(cat /srv/real/x)" one
}

@test "a link that belongs to no package is kept and replaced" {
    ln -s mine /srv/s/lib
    run pvrm install "$(package foo info/link.txt='/srv/s|lib.1|lib')"
    assert_status 0
    assert_line "pvrm: the replaced file /srv/s/lib is kept as $(change_directory)/srv/s/lib"
    assert_equal "$(readlink "$(change_directory)/srv/s/lib")" mine
    assert_equal "$(readlink /srv/s/lib)" lib.1
}

@test "a file that belongs to no package in the place of a link is kept and replaced" {
    echo mine >/srv/s/lib
    run pvrm install "$(package foo info/link.txt='/srv/s|lib.1|lib')"
    assert_status 0
    assert_equal "$(cat "$(change_directory)/srv/s/lib")" mine
    assert_equal "$(readlink /srv/s/lib)" lib.1
}

@test "a directory in the place of a link stays" {
    mkdir /srv/s/lib
    echo x >/srv/s/lib/file
    run pvrm install "$(package foo info/link.txt='/srv/s|lib.1|lib')"
    assert_status 0
    assert_equal "$(cat /srv/s/lib/file)" x
    [[ ! -e $saved ]]
    pvrm remove foo
    assert_equal "$(cat /srv/s/lib/file)" x
}

@test "a link and a file of one package in one place: the file is there" {
    echo mine >/srv/s/lib
    run pvrm install "$(package foo data/srv/s/lib=file info/link.txt='/srv/s|lib.1|lib')"
    assert_status 0
    assert_equal "$(cat /srv/s/lib)" file
    assert_equal "$(cat "$(change_directory)/srv/s/lib")" mine
}

@test "links of the old version are the package's own" {
    pvrm install "$(package foo info/link.txt='/srv/s|lib.1|lib' data/srv/s/tool=1)"
    run pvrm upgrade "$(package foo version=2.0 info/link.txt='/srv/s|lib.2|lib
|lib.2|tool')"
    assert_status 0
    assert_equal "$(readlink /srv/s/lib)" lib.2
    assert_equal "$(readlink /srv/s/tool)" lib.2
    [[ ! -e $saved ]]
}

@test "a removal leaves links that point elsewhere by now" {
    pvrm install "$(package foo info/link.txt='/srv/s|lib.1|lib
|lib.1|other')"
    ln -sf mine /srv/s/lib
    pvrm remove foo
    assert_equal "$(readlink /srv/s/lib)" mine
    [[ ! -L /srv/s/other ]]
}

@test "an inventory whose link lists can't be read is no reason to go on" {
    pvrm install "$(package one info/link.txt='/srv/s|lib.1|lib')"
    file=$(package two info/link.txt='/srv/s|lib.2|lib')
    run strace -f -o /dev/null -P "$repository/installed/one/link.txt" -e trace=openat \
        -e inject=openat:error=EIO pvrm install "$file"
    assert_status 1
    assert_line "pvrm: cannot read $repository/installed/one/link.txt: Input/output error"
    refute_installed two
    run strace -f -o /dev/null -P "$repository/installed/one/link.txt" -e trace=openat \
        -e inject=openat:error=EIO pvrm remove one
    assert_status 1
    is_installed one
    assert_equal "$(readlink /srv/s/lib)" lib.1
}
