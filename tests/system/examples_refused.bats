#!/usr/bin/env bats
# Installations that are refused, and what they leave behind. Each test goes on where the one before
# it ended.

load examples

setup_file() {
    make_catalogue
}

installed() {
    ls -A "$repository/installed"
}

@test "a package file with one byte changed is refused, and leaves nothing" {
    file=$BATS_TEST_TMPDIR/handbook.vrk
    cp "$repository/packages/handbook_any_2024.2.vrk" "$file"
    at=$(($(stat -c %s "$file") - 200))
    byte=$(od -A n -t u1 -j $at -N 1 "$file")
    # shellcheck disable=SC2059
    printf "\\$(printf %o $((byte ^ 1)))" | dd of="$file" bs=1 seek=$at conv=notrunc status=none
    assert_equal "$(cmp -l "$file" "$repository/packages/handbook_any_2024.2.vrk" | wc -l)" 1
    run pvrm install --yes "$file"
    assert_status 1
    assert_line "pvrm: $file can't be installed: the signature does not fit its content"
    assert_equal "$(installed)" ''
    [[ ! -e /usr/share/doc/handbook && ! -e $repository/install.log ]]
}

@test "a refused file in the stage area is not taken for the catalogue's" {
    mv "$repository/certstore" "$BATS_TEST_TMPDIR/certstore"
    mkdir "$repository/certstore"
    run pvrm install --yes handbook
    assert_status 1
    assert_line 'pvrm: handbook was not installed'
    assert_equal "$(installed)" ''
    rmdir "$repository/certstore"
    mv "$BATS_TEST_TMPDIR/certstore" "$repository/certstore"
    printf x | dd of="$repository/stagearea/handbook_any_2024.2.vrk" bs=1 seek=1000 conv=notrunc status=none
    run pvrm install --yes handbook
    assert_status 0
    assert_line 'pvrm: installed handbook_any_2024.2'
    assert_equal "$(installed)" handbook
}

@test "a package of a stranger is refused" {
    vrk-build keygen '/O=Strangers/CN=Somebody' --key "$BATS_TEST_TMPDIR/key" \
        --cert "$BATS_TEST_TMPDIR/cert"
    vrk-build pack "$trees/textlib" --key "$BATS_TEST_TMPDIR/key" --cert "$BATS_TEST_TMPDIR/cert" \
        --output "$BATS_TEST_TMPDIR"
    run pvrm install --yes "$BATS_TEST_TMPDIR/textlib_any_1.10.vrk"
    assert_status 1
    [[ $output == *"its signer is not trusted"* ]]
    assert_equal "$(installed)" handbook
    [[ ! -e /usr/lib/textlib ]]
}

@test "a script that refuses stops its package; what it needs stays installed" {
    touch /var/lib/guestbook
    run pvrm install --yes guestbook
    assert_status 1
    assert_line 'guestbook: /var/lib/guestbook is in the way: it is no directory'
    assert_line 'pvrm: guestbook was not installed'
    # The configuration of the others is done all the same.
    assert_line 'greet: greets in the language en'
    assert_equal "$(installed)" 'almanac
greet
handbook
phrases
textlib'
    [[ -f /var/lib/guestbook && ! -e /usr/bin/guestbook && ! -e /etc/guestbook.conf ]]
    [[ ! -e $repository/fileindex/guestbook && ! -e $repository/stagearea/guestbook_any_0.9 ]]
    run history_lines
    assert_equal "${lines[-1]}" 'installed greet_any_1.4 as dependency of guestbook'
}

@test "the next attempt installs only what is missing, from the file that is there" {
    rm /var/lib/guestbook
    run pvrm install --yes guestbook
    assert_status 0
    [[ $output != *"getting "* && $output != *"almanac"* ]]
    assert_line 'guestbook: began a new book (INSTALL of 0.9)'
    run history_lines
    assert_equal "${lines[-1]}" 'installed guestbook_any_0.9 as requested by user'
}

@test "to install it once more is no failure and changes nothing" {
    before=$(find "$repository/installed" "$repository/install.log" -printf '%p %T@ %s\n')
    run pvrm install --yes guestbook
    assert_status 0
    assert_equal "$output" 'pvrm: guestbook is already installed, version 0.9'
    assert_equal "$(find "$repository/installed" "$repository/install.log" -printf '%p %T@ %s\n')" \
        "$before"
}

@test "a file of another package is never taken over" {
    cp -r "$trees/textlib" "$BATS_TEST_TMPDIR/rival"
    sed -i 's/^evrkName: .*/evrkName: rival/' "$BATS_TEST_TMPDIR/rival/package.ldif"
    echo "echo mine" >"$BATS_TEST_TMPDIR/rival/data/usr/lib/textlib/text.sh"
    pack_to "$BATS_TEST_TMPDIR/rival" "$BATS_TEST_TMPDIR"
    run pvrm install --yes "$BATS_TEST_TMPDIR/rival_any_1.10.vrk"
    assert_status 1
    assert_line 'pvrm: /usr/lib/textlib/text.sh is on the disk already and belongs to the package textlib'
    cmp /usr/lib/textlib/text.sh "$trees/textlib/data/usr/lib/textlib/text.sh"
    [[ ! -e $repository/installed/rival ]]
}

@test "a dependency that nobody has is named, and nothing is begun" {
    cp -r "$trees/almanac" "$BATS_TEST_TMPDIR/lonely"
    sed -i 's/^evrkName: .*/evrkName: lonely/; s/^evrkDependency: .*/evrkDependency: nowhere/' \
        "$BATS_TEST_TMPDIR/lonely/package.ldif"
    pack_to "$BATS_TEST_TMPDIR/lonely" "$repository/packages"
    pvrm refresh
    run pvrm install --yes lonely
    assert_status 1
    assert_line 'pvrm: lonely needs nowhere, which is neither installed nor to be had from anywhere'
    [[ ! -e $repository/stagearea/lonely_any_2.1.vrk ]]
}

@test "a configuration script that finds fault with an older file doesn't stop the package" {
    rm -rf "$repository"/installed/greet "$repository"/fileindex/greet
    echo language=xx >/etc/greet.conf
    run pvrm install --yes greet
    assert_status 0
    assert_line 'greet: /etc/greet.conf: there are no phrases in xx, greets in en'
    run greet Ada 12
    assert_line '* Hello, Ada!   *'
}
