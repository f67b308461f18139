#!/usr/bin/env bats
# Links of packages that would take the place of others' links or of the machine's directories.

load ../helpers
load hostile

setup_file() {
    set_up_attacks
}

# Installs a package with a link in its directory.
install_owner() { # NAME
    begin "$1" 1.0 "data/usr/share/$1/about=owner" "info/link.txt=/usr/share/$1|about|link"
    seal
    pvrm -y install "$vrk"
}

@test "a link that another package lists with another target" {
    install_owner owner
    begin foo 1.0 data/usr/share/foo/about=foo info/link.txt='/usr/share/owner|../foo/about|link'
    seal
    attack pvrm -y install "$vrk"
    assert_repelled /usr/share/owner/link owner
    refute_installed foo
    assert_equal "$(readlink /usr/share/owner/link)" about
}

@test "a link that another package lists, by another way to the same place" {
    install_owner owner2
    begin foo 1.0 data/usr/share/foo/about=foo \
        info/link.txt='/usr/share/../share/owner2/|../foo/about|link'
    seal
    attack pvrm -y install "$vrk"
    assert_repelled owner2/link owner2
    refute_installed foo
}

@test "an upgrade whose link another package lists" {
    install_owner owner3
    begin bar 1.0
    seal
    pvrm -y install "$vrk"
    begin bar 2.0 data/usr/share/bar/about=bar info/link.txt='/usr/share/owner3|/etc/passwd|link'
    seal
    attack pvrm -y upgrade "$vrk"
    assert_repelled /usr/share/owner3/link owner3
    assert_equal "$(version_of bar)" 1.0
}

# vrk-build makes no package with this line in its list of links.
assert_not_packed() { # LINE DIRECTORY
    mkdir -p "$BATS_TEST_TMPDIR/source/info"
    printf 'evrkName: foo\nevrkVersion: 1.0\nevrkArchitecture: any\nevrkDescription: A thing\n' \
        >"$BATS_TEST_TMPDIR/source/package.ldif"
    printf '%s\n' "$1" >"$BATS_TEST_TMPDIR/source/info/link.txt"
    attack vrk-build pack "$BATS_TEST_TMPDIR/source" --key "$keys/builder.key" \
        --cert "$keys/builder.pem" -o "$BATS_TEST_TMPDIR"
    assert_repelled "$2" 'base layout'
    [[ ! -e $BATS_TEST_TMPDIR/foo_any_1.0.vrk ]]
}

@test "a link in the place of /lib is not packed" {
    assert_not_packed '/|usr/lib|lib' /lib
}

@test "a link in the place of /usr/bin is not packed" {
    assert_not_packed '/usr|../bin|bin' /usr/bin
}

@test "a link in the place of /etc is not packed, whatever way leads there" {
    assert_not_packed '/usr/..//|srv/victim|etc' /etc
}

@test "a link in the place of /home is not packed, also by its name" {
    assert_not_packed '/var|srv|../home' /home
}
