#!/usr/bin/env bats
# What vrk-build shows of package files, and how it is called.

bats_require_minimum_version 1.5.0
load helpers
load vrk_build

@test "show tells the head, the members and the signature" {
    pack
    run vrk-build show foo_any_1.2.vrk --cert "$keys/cert"
    assert_status 0
    assert_equal "$output" "Name:          foo
Version:       1.2
Architecture:  any
Description:   A thing
Unpacked:      $(cat tree/{data/usr/bin/foo,conf/etc/foo.conf,dump/note,init/99-add.sh} | wc -c) bytes
Package file:  $(stat -c %s foo_any_1.2.vrk) bytes
SHA-1:         $(sha1sum <foo_any_1.2.vrk | cut -c 1-40)
Signed by:     /O=My Distribution/CN=Jane
Signature:     verified
Head:          matches the signed description
Members:
  -rw-r--r--          6 conf/etc/foo.conf
  -rwxr-xr-x         19 data/usr/bin/foo
  -rw-r--r--          5 dump/note
  -rw-r--r--         54 hash/conf.txt
  -rw-r--r--         53 hash/data.txt
  -rw-r--r--         46 hash/dump.txt
  -rw-r--r--        100 hash/info.txt
  -rw-r--r--         51 hash/init.txt
  -rw-r--r--$(printf '%11d' "$(grep -v '^ \|^evrkRsaSig' <(head -c $((11 + $(head_size foo_any_1.2.vrk))) foo_any_1.2.vrk | tail -c +12) | wc -c)") info/desc.txt
  -rw-r--r--         18 info/perm.txt
  -rw-r--r--         11 init/99-add.sh"
}

@test "show believes only whom it is told to" {
    pack
    run vrk-build show foo_any_1.2.vrk
    assert_status 1
    assert_line "Signature:     not trusted: the signer's certificate is not in /var/lib/vrm/certstore"
    cp "$keys/cert" "/var/lib/vrm/certstore/$(openssl x509 -in "$keys/cert" -noout -subject_hash).crt"
    run vrk-build show foo_any_1.2.vrk
    assert_status 0
    mv /var/lib/vrm /var/lib/vrm.away
    run vrk-build show foo_any_1.2.vrk
    mv /var/lib/vrm.away /var/lib/vrm
    assert_status 1
    assert_line "Signature:     not trusted: there is no certificate store /var/lib/vrm/certstore; name a certificate with --cert"
    openssl req -x509 -newkey rsa:2048 -nodes -subj /O=Other -keyout other.key -out other 2>log
    mkdir tmp
    TMPDIR=$PWD/tmp run vrk-build show foo_any_1.2.vrk --cert other
    assert_status 1
    assert_line "Signature:     not trusted: the certificate given is not the signer's"
    assert_equal "$(ls -A tmp)" ""
}

@test "show notices a changed payload, and one that is cut anywhere" {
    local size cut
    head -c 3000 /dev/urandom >tree/dump/noise
    pack
    size=$(stat -c %s foo_any_1.2.vrk)
    head -c -1 foo_any_1.2.vrk >changed.vrk
    run vrk-build show changed.vrk --cert "$keys/cert"
    assert_status 1
    assert_line "Signature:     invalid: it does not fit the payload"
    for cut in 12 40 1500 $((size - 1000)); do
        head -c "$cut" foo_any_1.2.vrk >cut.vrk
        run vrk-build show cut.vrk --cert "$keys/cert"
        assert_status 1
    done
    head -c $((11 + $(head_size foo_any_1.2.vrk) + 600)) foo_any_1.2.vrk >cut.vrk
    run vrk-build show cut.vrk --cert "$keys/cert"
    assert_status 1
    [[ ${lines[-1]} == "vrk-build: cut.vrk: the payload is damaged: "* ]]
    { head -c $((11 + $(head_size foo_any_1.2.vrk))) foo_any_1.2.vrk; echo nonsense; } >cut.vrk
    run vrk-build show cut.vrk --cert "$keys/cert"
    assert_status 1
    [[ ${lines[-1]} == "vrk-build: cut.vrk: the payload is damaged: "* ]]
}

@test "show refuses what is no package, with the reason" {
    echo 'something else altogether' >it.vrk
    run vrk-build show it.vrk
    assert_status 1
    assert_equal "$output" "vrk-build: it.vrk is no valid package file: it does not begin as a package file does"
    : >it.vrk
    run vrk-build show it.vrk
    assert_equal "$output" "vrk-build: it.vrk is no valid package file: it is cut short"
    run vrk-build show nowhere.vrk
    assert_status 1
    assert_equal "$output" "vrk-build: nowhere.vrk: No such file or directory"
    cp it.vrk it.txt
    run vrk-build show it.txt
    assert_status 1
    assert_equal "$output" "vrk-build: it.txt is no package file: it must be a regular file named *.vrk"
    mkdir dir.vrk
    run vrk-build show dir.vrk
    assert_status 1
}

# A package of another maker: hostile DESCRIPTION and the members of the directory "evil".
hostile() { # DESCRIPTION
    local bytes
    printf '%b' "$1" >text
    bytes=$(stat -c %s text)
    {
        printf 'EVRM20%05d' "$bytes"
        cat text
        (cd evil && find . -mindepth 1 -printf '%P\0' | cpio --null -o -H newc --quiet) | gzip
    } >evil.vrk
}

@test "nothing in a package steers the terminal of who looks at it" {
    mkdir -p evil/data
    touch "evil/data/a"$'\e'"]0;x"$'\a' "evil/data/b"$'\n'"Signature: verified" "evil/data/"$'\xc2\x9b'"c"
    ln -s "t"$'\e'"[2J" evil/data/link
    hostile 'evrmVersion: 2.0\nevrkName: a\033[31m\nevrkVersion: 1\x9b\nevrkArchitecture: any\nevrkCreator: \xe2\x80\xaeevil\nevrkDescription:: '"$(printf 'one\nSignature:     verified\e[0m' | base64)"'\nevrkRsaSigSubj: /X\033[31m=y\nevrkRsaSigData:: AAAA\n'
    run vrk-build show evil.vrk --store .
    assert_status 1
    assert_equal "$(tr -d '\n\40-\176' <<<"$output" | od -An -tx1)" ""
    assert_line 'Name:          a\x1B[31m'
    assert_line '               Signature:     verified\x1B[0m'
    assert_line "Signature:     not trusted: the signer's certificate is not in ."
    grep -qF 'data/b Signature: verified' <<<"$output"
    grep -qF 'data/link -> t\x1B[2J' <<<"$output"
    run ! grep -qx 'Signature:     verified' <<<"$output"
}

@test "the engine's reasons are told in letters too" {
    mkdir evil
    hostile 'evrmVersion: 2.0\nevrkName: a\nevrkVersion: 1\nevrkArchitecture: b\033[31m\nevrkDescription: x\n'
    run vrk-build show evil.vrk
    assert_status 1
    assert_equal "$output" 'vrk-build: evil.vrk is no valid package file: its architecture b\x1B[31m is not known here'
}

@test "wrong usage ends with 2 and says where help is" {
    local -a line
    while read -ra line; do
        run vrk-build "${line[@]}"
        assert_status 2
        [[ ${lines[0]} == "vrk-build: "* ]]
        assert_equal "${lines[1]}" "Try: vrk-build --help"
        assert_equal "${#lines[@]}" 2
    done <<'LINES'

unpack
pack
pack tree
pack tree --key k
pack tree --key k --cert c more
pack tree --key k --cert c --wrong
pack tree --key k --cert c -o
keygen /O=x
keygen /O=x --key k --cert c --days 0
keygen /O=x --key k --cert c --days many
show
show a.vrk --cert c --store s
LINES
    run vrk-build pack '' --key k --cert c
    assert_status 2
    run vrk-build show foo.vrk --cert ''
    assert_status 2
}

@test "each word tells of itself" {
    local word
    run vrk-build --help
    assert_status 0
    for word in keygen pack show; do
        grep -q "^  $word " <<<"$output"
    done
    run vrk-build pack --help
    assert_status 0
    for word in TREE --key --cert --output package.ldif perm.txt link.txt; do
        grep -qe "$word" <<<"$output"
    done
    run vrk-build show --help
    grep -q -e '--store' <<<"$output"
    run vrk-build keygen --help
    grep -q -e '--days' <<<"$output"
}

@test "an output that can't be written is a failure" {
    pack
    run bash -c 'vrk-build show foo_any_1.2.vrk --cert "$keys/cert" >/dev/full'
    assert_status 1
    assert_equal "$output" "vrk-build: the output can't be written: No space left on device"
}
