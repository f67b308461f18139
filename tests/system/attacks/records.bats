#!/usr/bin/env bats
# Records of a catalogue that say something else than the packages they are of. The backend here
# knows no hashes, so that nothing but the records shows it.

load ../helpers
load hostile

setup_file() {
    set_up_attacks
    use_text_backend
}

setup() {
    rm -rf "${repository:?}"/stagearea/*
    : >"$repository/catalogue.known"
}

# A sound package, and what a catalogue may truly say of it.
sound() { # NAME VERSION
    begin "$1" "$2"
    seal
}

assert_record_refused() { # WORD...
    assert_repelled 'cannot install' 'the catalogue' 'its signed description' "$@"
}

@test "a record of a higher version" {
    sound foo 1.0
    offer known foo '' 2.0 1 'The package foo for tests' '' "$vrk"
    attack pvrm -y install foo
    assert_record_refused 'foo 2.0' 'foo 1.0'
    refute_installed foo
}

@test "a record of another name" {
    sound foo 1.0
    offer known sshd '' 1.0 1 'The package foo for tests' '' "$vrk"
    attack pvrm -y install sshd
    assert_record_refused 'sshd 1.0' 'foo 1.0'
    refute_installed foo
    refute_installed sshd
}

@test "a record that upgrades a package by another one" {
    sound pam 1.0
    pvrm install "$vrk"
    sound foo 1.0
    offer known pam '' 999 1 'The package pam for tests' '' "$vrk"
    attack pvrm -y upgrade
    assert_record_refused 'pam 999' 'foo 1.0'
    assert_equal "$(version_of pam)" 1.0
}

@test "a record of another variant" {
    sound foo 1.0
    offer known foo small 1.0 1 'The package foo for tests' '' "$vrk"
    attack pvrm -y install foo
    assert_record_refused small
}

@test "a record without a dependency" {
    begin foo 1.0
    description foo 1.0 'evrkDependency: missing' | tee "$tree/info/desc.txt" >"$work/head"
    make_lists
    seal
    offer known foo '' 1.0 1 'The package foo for tests' '' "$vrk"
    attack pvrm -y install foo
    assert_record_refused dependencies
}

@test "a record with a dependency more" {
    begin extra 1.0 init/00-add.sh='echo >/srv/victim/run'
    seal
    offer known extra '' 1.0 1 'The package extra for tests' '' "$vrk"
    sound foo 1.0
    offer known foo '' 1.0 1 'The package foo for tests' extra "$vrk"
    attack pvrm -y install foo
    assert_record_refused dependencies
    refute_installed extra
    refute_installed foo
    [[ ! -e /srv/victim/run ]]
}

@test "a record of another architecture" {
    sound foo 1.0
    sed -i 's/any$/mips/' "$work/head" "$tree/info/desc.txt"
    make_lists
    rm "$work"/{payload,signature}
    seal
    offer known foo '' 1.0 1 'The package foo for tests' '' "$vrk"
    attack pvrm -y install foo
    assert_record_refused mips
}

@test "a record of another description" {
    sound foo 1.0
    offer known foo '' 1.0 1 'What everybody needs' '' "$vrk"
    attack pvrm -y install foo
    assert_record_refused 'differ in the description'
}

@test "a name in a catalogue that leads elsewhere" {
    sound foo 1.0
    offer known ../../../srv/victim/x '' 1.0 1 'The package foo for tests' '' "$vrk"
    attack pvrm -y install '../../../srv/victim/*'
    assert_repelled srv/victim
}

@test "a version in a catalogue that is a command" {
    sound foo 1.0

    # shellcheck disable=SC2016
    offer known foo '' '1$(touch${IFS}/srv/victim/run)' 1 'The package foo for tests' '' "$vrk"
    attack pvrm -y install foo
    assert_repelled foo 'its version holds characters that are not allowed'
}

@test "a dependency in a catalogue that leads elsewhere" {
    sound foo 1.0
    offer known ../x '' 1.0 1 'The package foo for tests' '' "$vrk"
    offer known bar '' 1.0 1 'The package bar for tests' ../x "$vrk"
    attack pvrm -y install bar
    assert_repelled ../x
}

@test "a catalogue that delivers half of a package" {
    sound foo 1.0
    offer known foo '' 1.0 1 'The package foo for tests' '' "$vrk"
    touch "$repository/catalogue.short"
    attack pvrm -y install foo
    rm "$repository/catalogue.short"
    assert_repelled 'did not deliver all'
}
