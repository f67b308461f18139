#!/usr/bin/env bats
# Payloads that are signed by a trusted key and hold what no package may hold: content that its own
# lists do not name, members that are not files, archives that break off.

load ../helpers
load hostile

setup_file() {
    set_up_attacks
}

# The package is refused before anything but the stage area is touched, and a corrected one of the
# same name and version is not in its way.
assert_refused() { # TEXT OF THE MESSAGE...
    assert_repelled "$@"
    refute_installed foo
}

# The archive of the tree, with members in front that stdin holds.
seal_behind() {
    { cat; archive; } | gzip -n >"$work/payload"
    seal
}

# --- Lists ----------------------------------------------------------------------------------------

@test "a file with other content than its list says" {
    begin foo 1.0
    echo evil >"$tree/data/usr/share/foo/about"
    seal
    attack pvrm -y install "$vrk"
    assert_refused 'data/usr/share/foo/about' 'damaged, or not in the package'
    assert_sound_one_installs foo
}

@test "a file that no list names" {
    begin foo 1.0
    echo evil >"$tree/data/usr/share/foo/more"
    seal
    attack pvrm -y install "$vrk"
    assert_refused 'data/usr/share/foo/more'
    assert_sound_one_installs foo
}

@test "a file of the right content at another place" {
    begin foo 1.0
    mkdir -p "$tree/data/etc/profile.d"
    mv "$tree/data/usr/share/foo/about" "$tree/data/etc/profile.d/foo.sh"
    seal
    attack pvrm -y install "$vrk"
    assert_refused '/etc/profile.d/foo.sh' 'not in the package'
}

@test "a script that no list names is not run" {
    begin foo 1.0 data/usr/share/foo/about=foo init/99-cfg.sh=:
    echo 'echo run >/srv/victim/run' >"$tree/init/00-add.sh"
    seal
    attack pvrm -y install "$vrk"
    assert_refused '00-add.sh'
}

@test "scripts without a list are not run" {
    begin foo 1.0 init/00-add.sh='echo run >/srv/victim/run'
    rm "$tree/hash/init.txt"
    seal
    attack pvrm -y install "$vrk"
    assert_refused 'no list of its init files'
}

@test "the list of another fork" {
    begin foo 1.0 data/etc/foo=data conf/etc/foo.conf=conf
    mv "$tree/hash/data.txt" "$tree/hash/conf.txt"
    seal
    attack pvrm -y install "$vrk"
    assert_refused 'no list of its data files'
}

@test "a list with a line that is too short" {
    begin foo 1.0
    echo "$(printf %040d 0):" >>"$tree/hash/data.txt"
    seal
    attack pvrm -y install "$vrk"
    assert_refused 'a list of the package holds a line that is too short'
}

@test "a list that is a pipe holds nothing up" {
    begin foo 1.0
    rm "$tree/hash/data.txt"
    mkfifo "$tree/hash/data.txt"
    seal
    attack pvrm -y install "$vrk"
    assert_refused 'data'
}

@test "a list that is a link to a file of the machine" {
    begin foo 1.0
    mv "$tree/hash/data.txt" /srv/victim/list
    ln -s /srv/victim/missing "$tree/hash/data.txt"
    seal
    attack pvrm -y install "$vrk"
    assert_refused 'no list of its data files'
    rm /srv/victim/list
}

# --- Members that are not files -------------------------------------------------------------------

@test "a pipe among the files holds nothing up" {
    begin foo 1.0
    mkfifo "$tree/data/usr/share/foo/pipe"
    seal
    attack pvrm -y install "$vrk"
    assert_refused 'data files of the package'
    assert_sound_one_installs foo
}

@test "an endless device among the files holds nothing up" {
    begin foo 1.0
    member data/usr/share/foo/zero 020666 '' 1 5 | seal_behind
    attack pvrm -y install "$vrk"
    assert_refused 'data files of the package'
}

@test "a device of a disk among the files" {
    begin foo 1.0
    member data/dev/foo-disk 060666 '' 8 0 | seal_behind
    attack pvrm -y install "$vrk"
    assert_refused 'data files of the package'
}

@test "a link that leads nowhere among the files" {
    begin foo 1.0
    ln -s /srv/victim/nothing "$tree/data/usr/share/foo/link"
    seal
    attack pvrm -y install "$vrk"
    assert_refused 'data files of the package'
}

@test "a link to a secret whose content no list can name" {
    begin foo 1.0
    ln -s /etc/shadow "$tree/data/usr/share/foo/shadow"
    seal
    attack pvrm -y install "$vrk"
    assert_refused 'data/usr/share/foo/shadow'
}

@test "a link among the scripts to a script of the machine" {
    echo 'echo run >/srv/victim/run' >/srv/victim/script
    begin foo 1.0
    mkdir "$tree/init"
    ln -s /srv/victim/script "$tree/init/00-add.sh"
    seal
    attack pvrm -y install "$vrk"
    assert_refused 'init'
    rm /srv/victim/script
}

# --- Members that lie outside ---------------------------------------------------------------------

@test "a member with an absolute path is not written there" {
    begin foo 1.0
    member /srv/victim/file 100644 evil | seal_behind
    attack pvrm -y install "$vrk"
    assert_refused "can't be unpacked"
    assert_sound_one_installs foo
}

@test "a member that climbs out of the stage area" {
    begin foo 1.0
    member ../../../../../../srv/victim/file 100644 evil | seal_behind
    attack pvrm -y install "$vrk"
    assert_refused "can't be unpacked"
}

@test "a member that is written through a link of the package" {
    begin foo 1.0
    {
        member data/way 120777 /srv/victim
        member data/way/file 100644 evil
    } | seal_behind
    attack pvrm -y install "$vrk"
    assert_refused foo
    assert_equal "$(cat /srv/victim/file)" untouched
}

# --- Archives that break off ----------------------------------------------------------------------

@test "an archive whose compression breaks off within a file" {
    begin foo 1.0
    head -c 100000 /dev/urandom >"$tree/data/usr/share/foo/noise"
    make_lists
    archive | gzip -n | head -c 50000 >"$work/payload"
    seal
    attack pvrm -y install "$vrk"
    assert_refused "can't be unpacked"
    assert_sound_one_installs foo
}

@test "an archive that breaks off within a file" {
    begin foo 1.0
    head -c 100000 /dev/urandom >"$tree/data/usr/share/foo/noise"
    make_lists
    archive | head -c 50000 | gzip -n >"$work/payload"
    seal
    attack pvrm -y install "$vrk"
    assert_refused "can't be unpacked"
}

@test "an archive that breaks off ahead of its lists" {
    begin foo 1.0
    rm -r "$tree"/{hash,info}
    seal
    attack pvrm -y install "$vrk"
    assert_refused 'no list of its data files'
}

@test "an archive that breaks off ahead of its description" {
    begin foo 1.0
    rm -r "$tree/info"
    seal
    attack pvrm -y install "$vrk"
    assert_refused 'cannot install foo_any_1.0.vrk' 'signed description'
}

@test "compressed data that is damaged in its middle" {
    begin foo 1.0
    head -c 100000 /dev/urandom >"$tree/data/usr/share/foo/noise"
    make_lists
    archive | gzip -n >"$work/payload"
    head -c 20 /dev/zero | dd of="$work/payload" bs=1 seek=60000 conv=notrunc status=none
    seal
    attack pvrm -y install "$vrk"
    assert_refused foo
}

# --- Files in places that are taken ---------------------------------------------------------------

@test "a file in the place of another package's" {
    begin foo 1.0 data/usr/share/hello/about=evil
    seal
    attack pvrm -y install "$vrk"
    assert_refused '/usr/share/hello/about is on the disk already and belongs to the package hello'
}

@test "a file in the place of a directory" {
    begin foo 1.0 data/srv/victim=evil
    seal
    attack pvrm -y install "$vrk"
    assert_refused '/srv/victim is no regular file'
    assert_sound_one_installs foo
}

@test "a file in the place of a device" {
    begin foo 1.0 data/dev/null=evil
    seal
    attack pvrm -y install "$vrk"
    assert_refused '/dev/null is no regular file'
}

@test "a file below a file" {
    begin foo 1.0 data/srv/victim/file/below=evil
    seal
    attack pvrm -y install "$vrk"
    assert_refused '/srv/victim/file/below'
}

@test "an upgrade that takes a file of another package" {
    begin bar 1.0
    seal
    pvrm install "$vrk"
    begin bar 2.0 data/usr/share/bar/about=new data/usr/share/hello/about=evil
    seal
    attack pvrm -y upgrade "$vrk"
    assert_repelled '/usr/share/hello/about is on the disk already and belongs to the package hello'
    assert_equal "$(version_of bar)" 1.0
}
