#!/usr/bin/env bats
# The examples of the guides in docs/, run as they are printed there.

load helpers

# Runs the commands of a guide in the working directory; the first that fails is the end.
run_guide() { # FILE NAME
    commands_of_guide "$1" "$2" >"$BATS_TEST_TMPDIR/commands.sh"
    [[ -s $BATS_TEST_TMPDIR/commands.sh ]]
    sh -eu "$BATS_TEST_TMPDIR/commands.sh"
}

# Makes a trusted signer in the working directory, and package files of hello and greeting, which it
# needs, in /srv/packages.
make_packages() {
    mkdir -p hello/data/usr/bin greeting/data/usr/share/greeting /srv/packages
    vrk-build keygen "/O=Guides/CN=Test" --key key --cert cert.pem
    pvrm -y trust cert.pem
    printf '%s\n' 'evrkName: hello' 'evrkVersion: 1.0' 'evrkArchitecture: any' \
        'evrkDescription: Says hello' 'evrkDependency: greeting' >hello/package.ldif
    printf '%s\n' 'evrkName: greeting' 'evrkVersion: 1.0' 'evrkArchitecture: any' \
        'evrkDescription: A text to greet with' >greeting/package.ldif
    # shellcheck disable=SC2016
    printf '#!/bin/sh\ncat /usr/share/greeting/text\n' >hello/data/usr/bin/hello
    chmod 755 hello/data/usr/bin/hello
    echo 'Hello, world' >greeting/data/usr/share/greeting/text
    vrk-build pack hello --key key --cert cert.pem -o /srv/packages
    vrk-build pack greeting --key key --cert cert.pem -o /srv/packages
}

# Puts the example backend in the place of the configured one.
install_example_backend() {
    cp "$source_dir/examples/backend/vrc-list.c" .
    run_guide backend-author.md backend
    sed -i '/^vrc_/d' /etc/vrm.conf
    printf 'vrc_backend = vrc-list.so\nvrc_list = /srv/packages/catalogue\n' >>/etc/vrm.conf
}

setup() {
    cd "$BATS_TEST_TMPDIR"
}

@test "the package made by standard commands alone is installed" {
    mkdir by-hand
    cd by-hand
    run run_guide package-author.md "by hand"
    assert_status 0
    assert_line "  Signature:    Successfully verified"
    assert_line "pvrm: installed byhand_any_1.0"
    assert_line "byhand 1.0 is configured"
    assert_equal "${lines[-1]}" "Hello, world"
    assert_equal "$(pvrm files byhand)" "/usr/bin/byhand"
    assert_equal "$(awk 'length > 77' description)" ""
    run vrk-build show byhand.vrk
    assert_status 0
    assert_line "Creator:       Jane Doe <jane@example.org>"
    assert_line "  -rwxr-xr-x         49 data/usr/bin/byhand"
}

@test "the example backend is built without a warning" {
    cp "$source_dir/examples/backend/vrc-list.c" .
    run cc -std=c99 -O2 -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror -shared -fPIC \
        -o vrc-list.so vrc-list.c
    assert_status 0
    assert_equal "$output" ""
    # It must load where the program exports nothing.
    run nm --undefined-only --demangle vrc-list.so
    [[ $output != *vrk_* && $output != *ekva_* && $output != *vrm_* ]]
}

@test "a package and its dependency are installed through the example backend" {
    make_packages
    (run_guide backend-author.md catalogue)
    install_example_backend
    run pvrm refresh
    assert_status 0
    run pvrm search '*'
    assert_equal "${#lines[@]}" 4
    assert_equal "${lines[2]}" "$(report_row greeting 1.0 'A text to greet with')"
    assert_equal "${lines[3]}" "$(report_row hello 1.0 'Says hello')"
    run pvrm search '*to greet*'
    assert_equal "${#lines[@]} ${lines[2]}" "3 $(report_row greeting 1.0 'A text to greet with')"
    run pvrm search 'hell?'
    assert_equal "${#lines[@]} ${lines[2]}" "3 $(report_row hello 1.0 'Says hello')"
    run pvrm -y install hello
    assert_status 0
    assert_line "pvrm: getting greeting_any_1.0"
    assert_line "pvrm: installed hello_any_1.0"
    assert_equal "$(hello)" "Hello, world"
}

@test "the example backend matches versions and variants" {
    mkdir -p /srv/packages
    printf 'tool\t%s\t%s\tany\t\ttool.vrk\t1\t\tA tool\n' '' 1.0 '' 2.0 small 3.0 \
        >/srv/packages/catalogue
    install_example_backend
    run pvrm -n install --version 1.0 tool
    [[ $output == *"tool     1.0 "* ]]
    run pvrm -n install tool
    [[ $output == *"tool     2.0 "* ]]
    run pvrm -n install --variant small tool
    [[ $output == *"tool     3.0 "* ]]
    run pvrm -n install --variant large tool
    assert_status 1
}

@test "a catalogue that can't be read is reported and is no crash" {
    install_example_backend
    rm -f /srv/packages/catalogue
    run pvrm refresh
    assert_status 1
    assert_line "pvrm: cannot read the catalogue /srv/packages/catalogue: No such file or directory"
    assert_line "pvrm: the package catalogue can't be refreshed"
    printf 'not a package\n' >/srv/packages/catalogue
    run pvrm refresh
    assert_status 0
    assert_line "pvrm: warning: line 1 of the catalogue is left out: it is not a package"
    sed -i '/^vrc_list/d' /etc/vrm.conf
    run pvrm refresh
    assert_status 1
    assert_line "vrc-list: vrc_list is missing in the configuration"
}
