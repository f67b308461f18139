#!/usr/bin/env bats
# Packages whose names, versions and variants would become paths, options or commands. They are
# signed by a trusted key, and head and signed description agree.

# Commands of an attacker are never to be expanded.
# shellcheck disable=SC2016

load ../helpers
load hostile

setup_file() {
    set_up_attacks
}

# Makes a package whose description has this text in the place of one value, in base64 if it needs
# to be.
with_value() { # ATTRIBUTE VALUE
    local line="$1: $2"
    [[ $2 =~ ^[!-~]*$ ]] || line="$1:: $(printf '%s' "$2" | base64 -w 0)"
    begin foo 1.0
    sed -i "/^$1: /d" "$work/head"
    printf '%s\n' "$line" >>"$work/head"
    cp "$work/head" "$tree/info/desc.txt"
    make_lists
    seal
}

assert_name_refused() { # NAME
    with_value evrkName "$1"
    attack pvrm -y install "$vrk"
    assert_repelled "$vrk can't be installed: its name holds characters that are not allowed"
}

@test "a name that leads elsewhere" {
    assert_name_refused '../../../srv/victim/file'
}

@test "a name that is an absolute path" {
    assert_name_refused /srv/victim
}

@test "a name of two dots" {
    assert_name_refused ..
}

@test "a name that is hidden" {
    assert_name_refused .foo
}

@test "a name that is an option" {
    assert_name_refused --dry-run
}

@test "a name with blanks" {
    assert_name_refused 'foo bar'
}

@test "a name of two lines" {
    assert_name_refused $'foo\nevrkName: bar'
}

@test "a name that is a command" {
    assert_name_refused '$(touch$IFS/srv/victim/run)'
}

@test "a name with a command behind it" {
    assert_name_refused 'foo;touch${IFS}/srv/victim/run'
}

@test "a name with an old form of a command" {
    assert_name_refused '`id`'
}

@test "a name with quotes" {
    assert_name_refused "foo'\"bar"
}

@test "a name that is a pattern" {
    assert_name_refused 'f*'
}

@test "a name that steers the terminal" {
    assert_name_refused $'foo\e[2Jbar'
    [[ $output != *$'\e'* ]]
}

@test "a name of letters that look like others" {
    assert_name_refused $'f\xd0\xbe\xd0\xbe'
}

@test "no name" {
    with_value evrkName ''
    attack pvrm -y install "$vrk"
    assert_repelled "$vrk can't be installed: its description gives the package no name"
}

@test "a name that would be taken for a file" {
    with_value evrkName foo.vrk
    attack pvrm -y install "$vrk"
    assert_repelled foo.vrk
    refute_installed foo.vrk
}

@test "a name of 300 letters" {
    with_value evrkName "$(printf 'a%.0s' {1..300})"
    attack pvrm -y install "$vrk"
    assert_repelled 'too long'
}

@test "a name of 3,000 letters" {
    with_value evrkName "$(printf 'a%.0s' {1..3000})"
    attack pvrm -y install "$vrk"
    assert_repelled aaa 'too long'
}

assert_part_refused() { # ATTRIBUTE WORD VALUE
    with_value "$1" "$3"
    attack pvrm -y install "$vrk"
    assert_repelled "$vrk can't be installed: its $2 holds characters that are not allowed"
}

@test "a version that leads elsewhere" {
    assert_part_refused evrkVersion version 1/../../../../srv/victim/x
}

@test "a version that is a command" {
    assert_part_refused evrkVersion version '1$(touch$IFS/srv/victim/run)'
}

@test "a version of two lines" {
    assert_part_refused evrkVersion version $'1\n2'
}

@test "a variant that leads elsewhere" {
    assert_part_refused evrkVariant variant ../../../srv/victim/x
}

@test "a variant that is a command" {
    assert_part_refused evrkVariant variant 'a|touch${IFS}/srv/victim/run'
}

@test "an architecture that is not known" {
    with_value evrkArchitecture ../../x
    attack pvrm -y install "$vrk"
    assert_repelled "$vrk is not a valid package file" 'its architecture ../../x is not known here'
}

@test "a dependency that leads elsewhere" {
    with_value evrkDependency ../../../srv/victim/file
    attack pvrm -y install --dir "$BATS_TEST_TMPDIR" "$vrk"
    assert_repelled 'foo needs ../../../srv/victim/file, which is neither installed nor to be had'
}

@test "a dependency that is a command" {
    with_value evrkDependency '$(touch /srv/victim/run)'
    attack pvrm -y install --dir "$BATS_TEST_TMPDIR" "$vrk"
    assert_repelled 'foo needs $(touch /srv/victim/run), which is neither installed nor to be had'
}

@test "a name of a hostile dependency" {
    with_value evrkName '..'
    mkdir "$BATS_TEST_TMPDIR/dir"
    mv "$vrk" "$BATS_TEST_TMPDIR/dir/x.vrk"
    with_value evrkDependency ..
    attack pvrm -y install --dir "$BATS_TEST_TMPDIR/dir" "$vrk"
    assert_repelled ..
}
