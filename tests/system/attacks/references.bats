#!/usr/bin/env bats
# Descriptions that want another file to be read: a secret, a pipe, an endless device, a file that
# is larger than the memory.

# Commands of an attacker are never to be expanded.
# shellcheck disable=SC2016

load ../helpers
load hostile

setup_file() {
    set_up_attacks
    export secret=/srv/secret
    echo 'a word that nobody may read' >$secret
    chmod 600 $secret
}

# A package whose head has this line in the place of its description.
with_line() { # LINE
    begin foo 1.0
    sed -i '/^evrkDescription: /d' "$work/head"
    printf '%s\n' "$1" >>"$work/head"
    seal
}

# Nobody is shown the secret, and nothing is installed, in bounded memory and time.
assert_not_followed() { # [REASON]
    # A sanitizer takes all the addresses that there are, for itself.
    local kilobytes=1000000
    ((${TESTS_SANITIZED:-0} == 0)) || kilobytes=unlimited
    attack bash -c 'ulimit -v "$0"; pvrm -y install "$1"' $kilobytes "$vrk"
    assert_repelled "$vrk is not a valid package file" "${1-refers to another file}"
    run timeout 120 pvrm info "$vrk"
    assert_status 1
    refute_output_has 'nobody may read'
    run timeout 120 vrk-build show "$vrk"
    ((status == 1))
    refute_output_has 'nobody may read'
}

@test "a reference to a secret" {
    with_line "evrkDescription:< file://$secret"
    assert_not_followed
}

@test "a reference by the name of the attribute" {
    with_line "evrkDescription;binary: $secret"
    assert_not_followed
}

@test "a reference by the name, in base64" {
    with_line "evrkDescription;binary:: $(printf %s "$secret" | base64)"
    assert_not_followed ''
}

@test "a reference in letters of another case" {
    with_line "EVRKDESCRIPTION;BINARY: $secret"
    assert_not_followed ''
}

@test "a reference that is folded" {
    with_line $'evrkDescrip\n tion:\n < file://'"$secret"
    assert_not_followed
}

@test "a reference of an attribute that nobody knows" {
    with_line "evrkDescription: The package foo for tests
evrkNote:< file://$secret"
    assert_not_followed
}

@test "a reference for a dependency" {
    with_line "evrkDescription: The package foo for tests
evrkDependency:< file://$secret"
    assert_not_followed
}

@test "a reference for the signature" {
    begin foo 1.0
    archive | gzip -n >"$work/payload"
    printf 'evrkRsaSigSubj: /O=Test/CN=Builder\nevrkRsaSigData:< file:///srv/victim/signature\n' \
        >"$work/signature"
    openssl dgst -sha1 -sign "$keys/builder.key" "$work/payload" >/srv/victim/signature
    seal
    assert_not_followed
    rm /srv/victim/signature
}

@test "a reference to a pipe" {
    mkfifo "$BATS_TEST_TMPDIR/pipe"
    with_line "evrkDescription:< file://$BATS_TEST_TMPDIR/pipe"
    assert_not_followed
}

@test "a reference to an endless device" {
    with_line 'evrkDescription:< file:///dev/zero'
    assert_not_followed
}

@test "a reference to a file of 1 GiB of nothing" {
    truncate -s 1G "$BATS_TEST_TMPDIR/sparse"
    with_line "evrkDescription:< file://$BATS_TEST_TMPDIR/sparse"
    assert_not_followed
}

@test "a reference in the signed description" {
    begin foo 1.0
    sed -i "s|^evrkDescription: .*|evrkDescription:< file://$secret|" "$tree/info/desc.txt"
    make_lists
    sed -i "s|^evrkDescription: .*|evrkDescription: $(<"$secret")|" "$work/head"
    seal
    attack pvrm -y install "$vrk"
    assert_repelled 'cannot install foo_any_1.0.vrk' 'signed description'
    refute_installed foo
}

@test "a reference in a catalogue, which a refresh by root does not copy for everybody" {
    with_line "evrkDescription:< file://$secret"
    mkdir -p "$repository/packages"
    cp "$vrk" "$repository/packages/"
    pvrm refresh
    run grep -c 'nobody may read' /var/cache/vrm/vrc-dirs.index
    assert_equal "$output" 0
    run as_nobody pvrm info foo
    refute_output_has 'nobody may read'
    attack pvrm -y install foo
    assert_repelled 'foo was not found in the package catalogue'
    rm "$repository/packages/foo_any_1.0.vrk"
    pvrm refresh
}

@test "a reference in the inventory" {
    entry=$repository/installed/hello
    cp "$entry/desc.txt" "$BATS_TEST_TMPDIR/saved"
    sed -i "s|^evrkDescription: .*|evrkDescription:< file://$secret|" "$entry/desc.txt"
    attack pvrm info hello
    cp -p "$BATS_TEST_TMPDIR/saved" "$entry/desc.txt"
    assert_repelled hello
    refute_output_has 'nobody may read'
}
