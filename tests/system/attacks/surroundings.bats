#!/usr/bin/env bats
# Sound packages on a machine that somebody prepared: a stage area that others may write to, links
# and pipes in the places that the package manager uses, records of other packages in its inventory.

load ../helpers
load hostile

setup_file() {
    set_up_attacks
}

area=/var/lib/vrm/stagearea

setup() {
    rm -rf "${area:?}"/*
    begin foo 1.0
    seal
    stage=$area/foo_any_1.0
}

teardown() {
    rm -rf "$area"
    mkdir -m 755 "$area"
    [[ -n ${BATS_TEST_COMPLETED-} ]] || restore_machine >"$BATS_TEST_TMPDIR/restored" 2>&1
}

assert_area_refused() {
    attack pvrm -y install "$vrk"
    assert_repelled "$area"
    refute_installed foo
    # Nothing was put where somebody else could exchange it.
    assert_equal "$(find -L "$area" -name 'foo*')" ''
}

# --- The stage area -------------------------------------------------------------------------------

@test "a stage area that everybody may write to" {
    chmod 777 "$area"
    assert_area_refused
}

@test "a stage area with the sticky bit that everybody may write to" {
    chmod 1777 "$area"
    assert_area_refused
}

@test "a stage area that a group may write to" {
    chmod 775 "$area"
    assert_area_refused
}

@test "a stage area of somebody else" {
    chown 65534 "$area"
    assert_area_refused
}

@test "a stage area that is a link" {
    rmdir "$area"
    mkdir -m 777 "$BATS_TEST_TMPDIR/area"
    ln -s "$BATS_TEST_TMPDIR/area" "$area"
    assert_area_refused
}

@test "a removal uses such a stage area as little" {
    chmod 777 "$area"
    attack pvrm -y remove hello
    assert_repelled "$area"
    is_installed hello
}

@test "a dry run refuses such a stage area, too" {
    chmod 777 "$area"
    attack pvrm -y install --dry-run "$vrk"
    assert_repelled "$area"
}

@test "an upgrade uses such a stage area as little" {
    chmod 777 "$area"
    begin hello 2.0
    seal
    attack pvrm -y upgrade "$vrk"
    assert_repelled "$area"
    assert_equal "$(version_of hello)" 1.0
}

# --- The stage directory of a change --------------------------------------------------------------

# The change is refused, naming its stage directory.
assert_stage_refused() {
    attack pvrm -y install "$vrk"
    assert_repelled "$stage"
    refute_installed foo
}

@test "a link in the place of a stage directory" {
    ln -s /srv/victim "$stage"
    assert_stage_refused
}

@test "a link that leads nowhere in the place of a stage directory" {
    ln -s /srv/victim/new "$stage"
    assert_stage_refused
}

@test "a file in the place of a stage directory" {
    echo x >"$stage"
    assert_stage_refused
}

@test "a stage directory with backups is not emptied" {
    mkdir -p "$stage/old/etc"
    echo 'the only copy' >"$stage/old/etc/precious"
    echo /etc/precious >"$stage/old/index.txt"
    assert_stage_refused
    assert_equal "$(cat "$stage/old/etc/precious")" 'the only copy'
}

@test "a stage directory of a removal with backups is not emptied" {
    mkdir -p "$area/hello_any_1.0/old/etc"
    echo 'the only copy' >"$area/hello_any_1.0/old/etc/precious"
    attack pvrm -y remove hello
    assert_repelled "$area/hello_any_1.0"
    is_installed hello
    assert_equal "$(cat "$area/hello_any_1.0/old/etc/precious")" 'the only copy'
}

@test "a link in the place of the backups is not followed" {
    mkdir "$stage"
    ln -s /srv/victim "$stage/old"
    mkdir -p /usr/share/foo
    echo mine >/usr/share/foo/about
    assert_stage_refused
    assert_equal "$(ls /srv/victim)" file
    rm -rf /usr/share/foo
}

@test "a link in the place of the unpacked package is not followed" {
    mkdir "$stage"
    ln -s /srv/victim "$stage/new"
    assert_stage_refused
    assert_equal "$(ls /srv/victim)" file
}

@test "a stage directory that a group may write to" {
    mkdir "$stage"
    chmod 770 "$stage"
    assert_stage_refused
}

@test "what an earlier attempt left is not in the way of a corrected package" {
    good=$vrk
    begin foo 1.0 data/usr/share/foo/evil=evil
    echo other >"$tree/data/usr/share/foo/evil"
    seal
    attack pvrm -y install "$vrk"
    assert_repelled 'data/usr/share/foo/evil'
    run pvrm -y install "$good"
    assert_status 0
    [[ ! -e /usr/share/foo/evil ]]
    pvrm -y remove foo
}

# --- The staged package ---------------------------------------------------------------------------

# Whatever lies in the place of the staged file is not written to.
assert_staged_file_refused() { # WORD
    cp "$vrk" "$repository/packages/"
    pvrm refresh
    attack pvrm -y install foo
    rm "$repository/packages/foo_any_1.0.vrk"
    assert_repelled "$stage.vrk" "$1"
    refute_installed foo
    pvrm refresh
}

@test "a link in the place of a staged package" {
    ln -s /srv/victim/file "$stage.vrk"
    assert_staged_file_refused 'Not a regular file'
}

@test "a link that leads nowhere in the place of a staged package" {
    ln -s /srv/victim/new "$stage.vrk"
    assert_staged_file_refused 'Not a regular file'
}

@test "a pipe in the place of a staged package holds nothing up" {
    mkfifo "$stage.vrk"
    assert_staged_file_refused 'Not a regular file'
}

@test "a directory in the place of a staged package" {
    mkdir "$stage.vrk"
    assert_staged_file_refused 'Is a directory'
}

@test "a directory in the place of a staged local package" {
    mkdir "$stage.vrk"
    attack pvrm -y install "$vrk"
    assert_repelled "$stage.vrk"
    refute_installed foo
}

# --- Package files that are none ------------------------------------------------------------------

@test "a pipe that is called a package holds nothing up" {
    mkfifo "$BATS_TEST_TMPDIR/pipe.vrk"
    attack pvrm -y install "$BATS_TEST_TMPDIR/pipe.vrk"
    assert_repelled 'pipe.vrk is not a regular file'
}

@test "a link to an endless device that is called a package" {
    ln -s /dev/zero "$BATS_TEST_TMPDIR/zero.vrk"
    attack pvrm -y install "$BATS_TEST_TMPDIR/zero.vrk"
    assert_repelled 'zero.vrk is not a regular file'
}

@test "a directory that is called a package" {
    mkdir "$BATS_TEST_TMPDIR/directory.vrk"
    attack pvrm -y install "$BATS_TEST_TMPDIR/directory.vrk"
    assert_repelled 'directory.vrk is not a regular file'
}

# --- The lock -------------------------------------------------------------------------------------

@test "a link in the place of the lock" {
    ln -s /srv/victim/file "$repository/lock"
    attack pvrm -y install "$vrk"
    rm -f "$repository/lock"
    assert_repelled lock
}

@test "a link that leads nowhere in the place of the lock" {
    ln -s /srv/victim/new "$repository/lock"
    attack pvrm -y install "$vrk"
    rm -f "$repository/lock"
    assert_repelled lock
}

@test "a pipe in the place of the lock holds nothing up" {
    mkfifo "$repository/lock"
    attack pvrm -y install "$vrk"
    rm -f "$repository/lock"
    assert_repelled lock
}

@test "a directory in the place of the lock" {
    mkdir "$repository/lock"
    attack pvrm -y install "$vrk"
    rmdir "$repository/lock"
    assert_repelled lock
}

# --- The inventory --------------------------------------------------------------------------------

@test "an entry of the inventory with another package's record is found and can be removed" {
    cp -r "$repository/installed/hello" "$repository/installed/bash"
    attack pvrm check
    # What is damaged is printed by the engine itself, without the name of the tool.
    assert_repelled 'found 1 damaged entry'
    assert_line 'bash holds the entry of another package, hello'
    answer_on_terminal 'pvrm check' 'Your choice' d
    refute_installed bash
    is_installed hello
    [[ -e /usr/share/hello/about ]]
}

@test "a package is not removed by an entry with another package's record" {
    cp -r "$repository/installed/hello" "$repository/installed/bash"
    attack pvrm -y remove bash
    rm -r "$repository/installed/bash"
    assert_repelled bash
    is_installed hello
}

@test "a package is not removed along with another by an entry with its record" {
    local name
    for name in victim lib; do
        begin $name 1.0
        seal
        mkdir -p "$BATS_TEST_TMPDIR/dir"
        cp "$vrk" "$BATS_TEST_TMPDIR/dir"
    done
    pvrm install "$BATS_TEST_TMPDIR/dir/victim_any_1.0.vrk"
    begin top 1.0
    description top 1.0 'evrkDependency: lib' | tee "$tree/info/desc.txt" >"$work/head"
    make_lists
    seal
    pvrm install --dir "$BATS_TEST_TMPDIR/dir" "$vrk"
    cp "$repository/installed/"{victim,lib}/desc.txt
    attack pvrm -y install "$BATS_TEST_TMPDIR/dir/lib_any_1.0.vrk"
    assert_repelled "lib can't be installed: its entry in the inventory is that of another package, victim"
    run pvrm -y remove top
    assert_output_has 'warning: lib is not removed: its entry in the inventory is that of victim'
    is_installed victim
    [[ -e /usr/share/victim/about ]]
    refute_installed top
    rm -r "$repository/"{installed,fileindex}/lib
    pvrm -y remove victim
}

# A part of the entry of hello, exchanged for something else for the time of one command.
exchange() { # FILE COMMAND... : the last argument of COMMAND is the file
    mv "$1" "$BATS_TEST_TMPDIR/kept"
    "${@:2}" "$1"
}

put_back() { # FILE
    rm -rf "$1"
    mv "$BATS_TEST_TMPDIR/kept" "$1"
}

@test "a file index that is a pipe holds no removal up" {
    exchange "$repository/fileindex/hello" mkfifo
    attack pvrm -y remove hello
    put_back "$repository/fileindex/hello"
    assert_repelled fileindex/hello
    is_installed hello
}

@test "a record in the inventory that is a pipe holds nothing up" {
    exchange "$repository/installed/hello/desc.txt" mkfifo
    attack pvrm info hello
    put_back "$repository/installed/hello/desc.txt"
    assert_repelled hello
}

@test "a record in the inventory that is an endless device" {
    exchange "$repository/installed/hello/desc.txt" ln -s /dev/zero
    attack pvrm info hello
    put_back "$repository/installed/hello/desc.txt"
    assert_repelled hello
}

@test "a list of hashes in the inventory that is a pipe holds no verification up" {
    exchange "$repository/installed/hello/hash/data.txt" mkfifo
    attack pvrm verify hello
    put_back "$repository/installed/hello/hash/data.txt"
    assert_repelled hello
}

# --- Other users ----------------------------------------------------------------------------------

nobody=(setpriv --reuid 65534 --regid 65534 --clear-groups)

@test "a user without rights installs nothing" {
    chmod -R a+rX "$BATS_RUN_TMPDIR"
    attack "${nobody[@]}" pvrm -y install "$vrk"
    assert_repelled 'you are not permitted to change the system'
    assert_status 3
}

@test "a user without rights trusts nobody" {
    chmod -R a+rX "$BATS_RUN_TMPDIR"
    attack "${nobody[@]}" pvrm --yes trust "$keys/builder.pem"
    assert_repelled 'you are not permitted to change the system'
    assert_status 3
}

@test "a user who says to be another one by the environment" {
    chmod -R a+rX "$BATS_RUN_TMPDIR"
    attack "${nobody[@]}" env SUDO_UID=0 SUDO_USER=root USER=root LOGNAME=root HOME=/root \
        pvrm -y remove hello
    assert_repelled 'you are not permitted to change the system'
    assert_status 3
}
