#!/usr/bin/env bats
# Catalogues whose packages are exchanged between the plan and the fetch, or never were packages.

load ../helpers
load hostile

setup_file() {
    set_up_attacks
    # Below the files of the tests, so that what an attacker puts there is not a change.
    export packages=$BATS_FILE_TMPDIR/catalogue
    mkdir "$packages"
    sed -i "s|^vrc_dirs=.*|vrc_dirs=$packages|" /etc/vrm.conf
}

index=/var/cache/vrm/vrc-dirs.index

setup() {
    rm -rf "${repository:?}"/stagearea/* "${packages:?}"/*
    rm -rf "$index"
    pvrm refresh
}

# Puts the package into the catalogue under its name.
publish() {
    cp "$vrk" "$packages/"
    pvrm refresh
}

# A package foo that can be exchanged for others of its size: its head has room.
publish_foo() {
    begin foo 1.0
    printf 'evrkNote: %0500d\n' 0 >>"$work/head"
    seal
    publish
    published=$packages/foo_any_1.0.vrk
    size=$(stat -c %s "$published")
}

# Makes $vrk as large as what was published.
fill_up() {
    local digits=$((size - $(stat -c %s "$vrk") - 11))
    printf "evrkNote: %0${digits}d\n" 0 >>"$work/head"
    seal
    assert_equal "$(stat -c %s "$vrk")" "$size"
}

# Puts the package in the place of the published one, which is noticed.
exchange_foo() {
    cp "$vrk" "$published"
    attack pvrm -y install foo
    assert_repelled foo_any_1.0 'not the one in the catalogue'
    refute_installed foo
}

@test "a package that is exchanged for another signed one of its size" {
    publish_foo
    begin foo 1.0 data/usr/share/foo/about='other content'
    seal
    fill_up
    exchange_foo
}

@test "a package that is exchanged for an old version of its size" {
    publish_foo
    begin foo 0.9
    seal
    fill_up
    exchange_foo
}

@test "a package that is exchanged for a shorter one" {
    publish_foo
    begin foo 1.0
    seal
    cp "$vrk" "$published"
    attack pvrm -y install foo
    assert_repelled "did not deliver all $size bytes"
    refute_installed foo
}

@test "a package that grew" {
    publish_foo
    echo more >>"$published"
    attack pvrm -y install foo
    assert_repelled "did not deliver all $size bytes"
}

@test "a package that is gone" {
    publish_foo
    rm "$published"
    attack pvrm -y install foo
    assert_repelled 'did not deliver all' foo_any_1.0.vrk
}

@test "a package that became a pipe holds nothing up" {
    publish_foo
    rm "$published"
    mkfifo "$published"
    attack pvrm -y install foo
    assert_repelled 'did not deliver all' foo_any_1.0.vrk
}

@test "a package that became a link to an endless device" {
    publish_foo
    ln -sf /dev/zero "$published"
    attack pvrm -y install foo
    assert_repelled 'did not deliver all' foo_any_1.0.vrk
}

@test "a package that became a directory" {
    publish_foo
    rm "$published"
    mkdir "$published"
    attack pvrm -y install foo
    assert_repelled 'did not deliver all' foo_any_1.0.vrk
}

@test "a package that became a huge file of nothing" {
    publish_foo
    truncate -s 8G "$published"
    attack pvrm -y install foo
    assert_repelled 'did not deliver all' foo_any_1.0.vrk
}

@test "an upgrade to a package that is exchanged" {
    begin bar 1.0
    seal
    pvrm install "$vrk"
    begin bar 2.0
    seal
    publish
    size=$(stat -c %s "$vrk")
    begin bar 2.0 data/usr/share/bar/about=other
    vrk=$packages/bar_any_2.0.vrk
    while seal; [[ $(stat -c %s "$vrk") != "$size" ]]; do echo 'evrkNote: x' >>"$work/head"
        (($(stat -c %s "$vrk") < size)) || break; done
    attack pvrm -y upgrade
    assert_repelled bar_any_2.0
    assert_equal "$(version_of bar)" 1.0
}

@test "a catalogue that offers an old payload as the newest version" {
    begin foo 1.0
    vrk=$work/foo_any_9.0.vrk
    forge_head foo 9.0
    publish
    attack pvrm -y install foo
    assert_repelled 'cannot install foo_any_9.0.vrk' 'foo 9.0' 'its signed description says foo 1.0'
}

@test "a catalogue that offers an upgrade by an old payload" {
    begin baz 2.0
    seal
    pvrm install "$vrk"
    begin baz 1.0
    vrk=$work/baz_any_3.0.vrk
    forge_head baz 3.0
    publish
    attack pvrm -y upgrade
    assert_repelled 'baz 3.0' 'its signed description says baz 1.0'
    assert_equal "$(version_of baz)" 2.0
}

@test "a catalogue that drops a dependency" {
    begin foo 1.0
    description foo 1.0 'evrkDependency: missing' >"$tree/info/desc.txt"
    make_lists
    seal
    publish
    attack pvrm -y install foo
    assert_repelled 'cannot install foo_any_1.0.vrk' dependencies
}

@test "a catalogue of what is no package" {
    mkfifo "$packages/pipe.vrk"
    ln -s . "$packages/loop"
    ln -s /dev/zero "$packages/zero.vrk"
    ln -s nothing "$packages/nothing.vrk"
    mkdir "$packages/directory.vrk"
    head -c 5000 /dev/urandom >"$packages/noise.vrk"
    : >"$packages/empty.vrk"
    timeout 120 pvrm refresh
    attack pvrm -y install pipe zero nothing directory noise empty
    assert_repelled 'zero was not found in the package catalogue'
    begin foo 1.0
    seal
    publish
    pvrm -y install foo
    pvrm -y remove foo
}

@test "a package of 8 GiB of nothing is not read by a refresh" {
    begin large 1.0
    seal
    truncate -s 8G "$vrk"
    # Not copied: that would read it.
    mv "$vrk" "$packages/"
    # Reading it takes more of the processor than this.
    (ulimit -t 4 && pvrm refresh)
    attack pvrm -y install large
    assert_repelled 'large was not found in the package catalogue'
}

# --- The index that the backend keeps -------------------------------------------------------------

@test "an index that is rubbish" {
    publish_foo
    head -c 4000 /dev/urandom >"$index"
    attack pvrm -y install missing
    assert_message 'missing was not found in the package catalogue'
    pvrm -y install foo
    pvrm -y remove foo
}

@test "an index that names files elsewhere" {
    publish_foo
    elsewhere=${packages%?}x
    rm -rf "$elsewhere"
    cp -r "$packages" "$elsewhere"
    before=$(sha1sum <"$index")
    sed -i "s|$packages/foo|$elsewhere/foo|g" "$index"
    [[ $(sha1sum <"$index") != "$before" ]]
    rm "$published"
    attack pvrm -y install foo
    ((status == 1))
    assert_message foo
    refute_installed foo
}

@test "an index that is a pipe holds nothing up" {
    rm "$index"
    mkfifo "$index"
    attack pvrm -y install missing
    ((status == 1))
    assert_message 'missing was not found in the package catalogue'
}

@test "an index that is a link to a file of the machine" {
    ln -sf /srv/victim/file "$index"
    attack pvrm -y install missing
    ((status == 1))
    assert_message 'missing was not found in the package catalogue'
    assert_equal "$(cat /srv/victim/file)" untouched
}
