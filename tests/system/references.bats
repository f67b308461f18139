#!/usr/bin/env bats
# Packages whose description refers to a file of the machine, to have it read by root.

load helpers
load package_file

index=/var/cache/vrm/vrc-dirs.index

setup_file() {
    begin_tests
    # What nobody but root may read.
    printf 'root:%s:1::::::\n' "$(openssl rand -hex 20)" >/etc/shadow
    chmod 0600 /etc/shadow
    mkdir -p /srv/packages
    sed -i 's,^vrc_dirs=.*,vrc_dirs=/srv/packages,' /etc/vrm.conf
}

setup() {
    clean_repository
    rm -rf /srv/packages/* /var/cache/vrm
    cd "$BATS_TEST_TMPDIR" || return
    secret=$(cut -d: -f2 /etc/shadow)
    forms=(
        'evrkDescription:< file:///etc/shadow\n'
        'evrkDescription:< /etc/shadow\n'
        'evrkDescription;binary: /etc/shadow\n'
        'evrkDescription;binary: file:///etc/shadow\n'
        'evrkDescrip\n tion:< file:///etc/shadow\n'
        'evrkDescription:\n < file:///etc/shadow\n'
        'evrkDescription:<\n  file:///etc\n /shadow\n'
        'evrkDescription;bin\n ary: /etc/shadow\n'
        'evrkDescription;binary\n : /etc/shadow\n'
        'evrkDescription:\r< file:///etc/shadow\n'
        'EVRKDESCRIPTION:< file:///etc/shadow\n'
        'evrkCreator:< file:///etc/shadow\n'
        'evrkDependency;binary: /etc/shadow\n'
        'evrkRsaSigSubj:< file:///etc/shadow\n'
        'evrkUnknown:< file:///etc/shadow\n'
        'evrkUnknown;binary: /etc/shadow\n'
        ';binary: /etc/shadow\n'
    )
}

# A signed package with a line more in its head, before all others, as printf writes it. The
# signature covers the payload and still holds.
with_line() { # LINE FILE [NAME]
    local sound
    sound=$(package "${3:-foo}")
    { printf '%b' "$1" && head_of "$sound"; } >head.txt
    payload_of "$sound" >payload
    join_package head.txt payload "$2"
}

@test "a refresh copies no byte of the file into the index" {
    local i
    for i in "${!forms[@]}"; do
        with_line "${forms[i]}" "/srv/packages/$i.vrk" "foo$i"
    done
    mv "$(package sound)" /srv/packages
    run pvrm refresh
    assert_status 0
    refute_output_has "$secret"
    grep -q sound "$index"
    run grep -c "$secret" "$index" /var/log/pvrm.log
    assert_status 1
    run pvrm search '*'
    assert_status 0
    refute_output_has foo
    assert_output_has sound
    for i in "${!forms[@]}"; do
        grep -q "vrc-dirs: skipping /srv/packages/$i.vrk: not a package file, or a damaged one" \
            /var/log/pvrm.log
    done
    run grep -c 'refusing a reference to another file in attribute' /var/log/pvrm.log
    assert_equal "$output" "${#forms[@]}"
    # They are remembered, and not read again.
    : >/var/log/pvrm.log
    pvrm refresh
    run grep -c 'refusing a reference' /var/log/pvrm.log
    assert_equal "$output" 0
    run grep -c 'vrc-dirs: skipping' /var/log/pvrm.log
    assert_equal "$output" "${#forms[@]}"
}

@test "a package file with any form of a reference is refused by every command" {
    local form command
    for form in "${forms[@]}"; do
        with_line "$form" evil.vrk
        for command in 'pvrm info' 'pvrm files' 'pvrm -y install' 'pvrm -y upgrade' \
            'vrk-build show'; do
            # shellcheck disable=SC2086
            run $command ./evil.vrk
            assert_status 1
            refute_output_has "$secret"
            assert_output_has 'another file'
        done
        refute_installed foo
    done
}

@test "the message names the file and says why" {
    with_line 'evrkDescription:< file:///etc/shadow\n' evil.vrk
    local why='its description refers to another file, which is not allowed'
    run pvrm info ./evil.vrk
    assert_status 1
    assert_equal "$output" "pvrm: ./evil.vrk is not a valid package file: $why"
    run pvrm -y install ./evil.vrk
    assert_status 1
    assert_line "pvrm: ./evil.vrk is not a valid package file: $why"
    run vrk-build show evil.vrk
    assert_status 1
    assert_equal "$output" 'vrk-build: evil.vrk is no valid package file: its description refers to another file, which is not allowed'
}

@test "a value in base64 is no reference" {
    with_line 'evrkUnknown:: PCBmaWxlOi8vL2V0Yy9zaGFkb3c=\nevrkRsaSigData;binary:: AAAA\n' good.vrk
    run vrk-build show good.vrk --cert "$signer_cert"
    assert_status 0
    run pvrm -y install ./good.vrk
    assert_status 0
    is_installed foo
}

@test "an entry of the inventory that refers to a file is damaged" {
    pvrm -y install "$(package good)" "$(package evil)"
    printf 'evrkCreator:< file:///etc/shadow\n' >>"$repository/installed/evil/desc.txt"
    run pvrm list
    assert_output_has good
    assert_output_has "the inventory's entry of evil is damaged, and passed over: its description refers to another file, which is not allowed"
    run pvrm info evil
    refute_output_has "$secret"
    run pvrm check
    assert_status 1
    assert_output_has evil
}

@test "a package file of 2 GiB is skipped without being read" {
    mv "$(package large)" "$(package small)" /srv/packages
    truncate -s 2G /srv/packages/large_any_1.0.vrk
    local i
    for i in 1 2; do
        rm -f /var/log/pvrm.log
        run pvrm refresh
        assert_status 0
        grep -q 'vrc-dirs: skipping /srv/packages/large_any_1.0.vrk: too large: 2147483648 bytes, and a fetch delivers less than 2 GiB' /var/log/pvrm.log
    done
    run pvrm search '*'
    assert_output_has small
    refute_output_has large
}
