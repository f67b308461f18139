#!/usr/bin/env bats
# Package files whose head says something else than the signer said. Whoever hands a package file on
# can write any head; the payload behind it, and the description in there, are signed.

load ../helpers
load hostile

setup_file() {
    set_up_attacks
}

# The message about a head that says other things than the signed description.
assert_mismatch() { # HEAD SIGNED
    assert_repelled "cannot install ${vrk##*/}: its head says $1, its signed description says $2"
}

@test "an old payload under a higher version does not replace the newer one" {
    begin foo 2.0
    seal
    pvrm install "$vrk"
    begin foo 1.0
    vrk=$work/foo_any_3.0.vrk
    forge_head foo 3.0
    attack pvrm -y upgrade "$vrk"
    assert_mismatch 'foo 3.0' 'foo 1.0'
    assert_equal "$(version_of foo)" 2.0
}

@test "a payload under another name and a high version does not delete that package's files" {
    begin pam 1.0 data/lib/security/pam_test.so=module
    seal
    pvrm install "$vrk"
    begin greeting 1.0
    vrk=$work/greeting_any_999.vrk
    forge_head pam 999
    attack pvrm -y upgrade "$vrk"
    assert_mismatch 'pam 999' 'greeting 1.0'
    [[ -f /lib/security/pam_test.so ]]
}

@test "a package is not registered under another name" {
    begin other 1.0
    forge_head bash 1.0
    attack pvrm -y install "$vrk"
    assert_mismatch 'bash 1.0' 'other 1.0'
    refute_installed bash
    refute_installed other
}

@test "a name that differs in its case alone is another name" {
    begin foo 1.1
    forge_head Foo 1.1
    attack pvrm -y install "$vrk"
    assert_mismatch 'Foo 1.1' 'foo 1.1'
}

# One field of the head differs, which the message names.
assert_field() { # WORD...
    assert_repelled "cannot install ${vrk##*/}: its head" 'its signed description' "$@"
    refute_installed field
}

# A sealed package whose dependency is this one, as head and signed description agree.
begin_needing() { # NAME
    begin needing 1.0
    description needing 1.0 "evrkDependency: $1" | tee "$tree/info/desc.txt" >"$work/head"
    make_lists
    seal
}

@test "a dependency that is dropped from the head" {
    begin field 1.0
    description field 1.0 'evrkDependency: hello' >"$tree/info/desc.txt"
    make_lists
    seal
    attack pvrm -y install "$vrk"
    assert_field dependencies
}

@test "a dependency that is added to the head" {
    dir=$BATS_TEST_TMPDIR/dir
    mkdir "$dir"
    begin extra 1.0 init/00-add.sh='echo >/srv/victim/run' init/99-add.sh='echo >/srv/victim/run'
    vrk=$dir/extra_any_1.0.vrk
    seal
    begin field 1.0
    forge_head field 1.0 'evrkDependency: extra'
    attack pvrm -y install --dir "$dir" "$vrk"
    assert_field dependencies
    refute_installed extra
    [[ ! -e /srv/victim/run ]]

    # The same of a dependency.
    mv "$vrk" "$dir"
    begin_needing field
    attack pvrm -y install --dir "$dir" "$vrk"
    vrk=field_any_1.0.vrk
    assert_field dependencies
    refute_installed extra
    refute_installed needing
}

@test "another architecture in the head" {
    begin field 1.0
    sed -i 's/any$/mips/' "$tree/info/desc.txt"
    make_lists
    seal
    attack pvrm -y install "$vrk"
    assert_field mips
}

@test "a variant in the head" {
    begin field 1.0
    forge_head field 1.0 'evrkVariant: small'
    attack pvrm -y install "$vrk"
    assert_field small
}

@test "another description in the head" {
    begin field 1.0
    sed -i 's/for tests/that everybody needs/' "$work/head"
    seal
    attack pvrm -y install "$vrk"
    assert_field 'differ in the description'
}

@test "another creator in the head" {
    begin field 1.0
    sed -i 's/^evrkCreator: .*/evrkCreator: Somebody/' "$work/head"
    seal
    attack pvrm -y install "$vrk"
    assert_field creator
}

@test "another size in the head" {
    begin field 1.0
    echo 'evrkDataSize: 10' >>"$tree/info/desc.txt"
    make_lists
    forge_head field 1.0 'evrkDataSize: 99999999'
    attack pvrm -y install "$vrk"
    assert_field 'data size'
}

@test "a forged dependency of a package is as little installed as a forged package" {
    begin needed 1.0
    forge_head needed 1.0 'evrkDependency: hello'
    mkdir "$BATS_TEST_TMPDIR/dir"
    cp "$vrk" "$BATS_TEST_TMPDIR/dir/needed_any_1.0.vrk"
    begin_needing needed
    attack pvrm -y install --dir "$BATS_TEST_TMPDIR/dir" "$vrk"
    assert_repelled 'cannot install needed_any_1.0.vrk: its head' 'its signed description'
    refute_installed needing
}

# --- Signed descriptions that are none ------------------------------------------------------------

# What is signed holds no description that can be compared.
assert_no_description() {
    assert_repelled "cannot install ${vrk##*/}" 'signed description'
    refute_installed foo1
}

@test "a signed file without a payload is not a package" {
    begin foo1 1.0
    : >"$work/payload"
    seal
    attack pvrm -y install "$vrk"
    assert_no_description
    assert_sound_one_installs foo1
}

@test "a payload that is not an archive is not a package" {
    begin foo1 1.0
    echo 'nothing that anybody could unpack' >"$work/payload"
    seal
    attack pvrm -y install "$vrk"
    assert_no_description
}

@test "a compressed text is not a package" {
    begin foo1 1.0
    echo 'nothing that anybody could unpack' | gzip >"$work/payload"
    seal
    attack pvrm -y install "$vrk"
    assert_no_description
}

@test "an archive of another form is not a package" {
    begin foo1 1.0
    tar -C "$tree" -czf "$work/payload" .
    seal
    attack pvrm -y install "$vrk"
    assert_no_description
}

@test "a package without a description is not registered" {
    begin foo1 1.0
    rm "$tree/info/desc.txt"
    make_lists
    seal
    attack pvrm -y install "$vrk"
    assert_no_description
    assert_sound_one_installs foo1
}

@test "an empty description" {
    begin foo1 1.0
    : >"$tree/info/desc.txt"
    make_lists
    seal
    attack pvrm -y install "$vrk"
    assert_no_description
}

@test "a description that ends at a null byte" {
    begin foo1 1.0
    printf 'evrmVersion: 2.0\nevrkName: foo1\0evrkVersion: 1.0\n' >"$tree/info/desc.txt"
    make_lists
    seal
    attack pvrm -y install "$vrk"
    assert_no_description
}

@test "a description that no list of hashes covers" {
    begin foo1 1.0
    rm "$tree/hash/info.txt"
    seal
    attack pvrm -y install "$vrk"
    assert_repelled info
    refute_installed foo1
}

@test "of two descriptions in one archive the one that is unpacked last counts" {
    begin foo1 1.0
    member info/desc.txt 100644 "$(description foo1 9.0)"$'\n' >"$work/archive"
    archive >>"$work/archive"
    gzip <"$work/archive" >"$work/payload"
    forge_head foo1 9.0
    attack pvrm -y install "$vrk"
    assert_repelled 'its head says foo1 9.0, its signed description says foo1 1.0'
}

@test "a description that is a link to a file of the machine" {
    description foo1 1.0 >/srv/victim/description
    begin foo1 1.0
    ln -sf /srv/victim/description "$tree/info/desc.txt"
    seal
    attack pvrm -y install "$vrk"
    assert_no_description
    rm /srv/victim/description
}

@test "a description that is a pipe holds nothing up" {
    begin foo1 1.0
    rm "$tree/info/desc.txt"
    mkfifo "$tree/info/desc.txt"
    seal
    attack pvrm -y install "$vrk"
    assert_repelled info
    refute_installed foo1
}

@test "a description that is a directory" {
    begin foo1 1.0
    rm "$tree/info/desc.txt"
    mkdir "$tree/info/desc.txt"
    description foo1 1.0 >"$tree/info/desc.txt/desc.txt"
    make_lists
    seal
    attack pvrm -y install "$vrk"
    assert_no_description
}

@test "a description that an earlier attempt left is not taken for the package's own" {
    begin foo1 1.0
    echo wrong >"$tree/data/usr/share/foo1/about"
    seal
    run pvrm -y install "$vrk"
    assert_status 1
    begin foo1 1.0
    rm "$tree/info/desc.txt"
    make_lists
    seal
    attack pvrm -y install "$vrk"
    assert_no_description
}

# --- Heads that are none --------------------------------------------------------------------------

# Writes the package with these 11 bytes in front of its description.
seal_with_front() { # MAGIC AND SIZE
    seal
    { printf '%s' "$1"; cat "$work/description" "$work/payload"; } >"$vrk"
}

assert_not_a_package() {
    assert_repelled "$vrk is not a valid package file" "$@"
}

@test "a magic of one wrong letter" {
    begin foo2 1.0
    seal
    printf 3 | dd of="$vrk" bs=1 seek=4 conv=notrunc status=none
    attack pvrm -y install "$vrk"
    assert_not_a_package 'does not begin as a package file does'
}

@test "a description that is said to be larger than the file" {
    begin foo2 1.0
    seal_with_front EVRM2099999
    attack pvrm -y install "$vrk"
    assert_not_a_package 'cut short'
}

@test "a description of a negative size" {
    begin foo2 1.0
    seal_with_front EVRM20-0001
    attack pvrm -y install "$vrk"
    assert_not_a_package 'cut short'
}

@test "a description whose size is not a number" {
    begin foo2 1.0
    seal_with_front EVRM20x0123
    attack pvrm -y install "$vrk"
    assert_not_a_package "description can't be read"
}

@test "a description of no size" {
    begin foo2 1.0
    seal_with_front EVRM2000000
    attack pvrm -y install "$vrk"
    assert_not_a_package 'which format'
}

@test "a description that ends at a null byte in the head" {
    begin foo2 1.0
    printf 'evrmVersion: 2.0\nevrkName: foo2\0\nevrkVersion: 1.0\nevrkArchitecture: any\n' \
        >"$work/head"
    seal
    attack pvrm -y install "$vrk"
    assert_not_a_package
}

@test "a file of a few bytes" {
    begin foo2 1.0
    printf EVRM2 >"$vrk"
    attack pvrm -y install "$vrk"
    assert_not_a_package 'cut short'
}

@test "a description of 99,999 bytes of dependencies that nobody has" {
    begin foo2 1.0
    seq -f 'evrkDependency: %g' 0 4399 >>"$work/head"
    cp "$work/head" "$tree/info/desc.txt"
    make_lists
    seal
    attack pvrm -y install "$vrk"
    assert_repelled 'foo2 needs 0, which is neither installed nor to be had'
}
