#!/usr/bin/env bats
# What the head of a package file says is covered by no signature, and is not believed. Each package
# here is one that anybody can make of a signed one, without a key, unless it says otherwise.

bats_require_minimum_version 1.5.0
load helpers
load package_file

setup_file() { begin_tests catalogue; }

setup() {
    clean_repository
    rm -rf /tmp/ran /etc/vrm/hooks.d
    mkdir -p "$BATS_TEST_TMPDIR/hostile"
    cd "$BATS_TEST_TMPDIR/hostile" || return
}

# Puts a description from stdin in front of the payload of a package file.
with_description() { # FILE NEW-FILE
    cat >"$BATS_TEST_TMPDIR/description"
    payload_of "$1" >"$BATS_TEST_TMPDIR/payload"
    join_package "$BATS_TEST_TMPDIR/description" "$BATS_TEST_TMPDIR/payload" "$2"
}

# A copy of a package file with its head edited by sed.
edited() { # FILE NEW-FILE SED-SCRIPT
    head_of "$1" | sed "$3" | with_description "$1" "$2"
}

# A package file with a signed payload of these bytes. This one needs the key.
signed_payload() { # NEW-FILE NAME VERSION
    cat >"$1.payload"
    {
        printf 'evrmVersion: 2.0\nevrkName: %s\nevrkVersion: %s\n' "$2" "$3"
        printf 'evrkArchitecture: any\nevrkDescription: It\nevrkRsaSigSubj: /O=Test/CN=Builder\n'
        signature_of "$1.payload"
    } >"$1.description"
    join_package "$1.description" "$1.payload" "$1"
}

# All that a change may touch, with mode, owner, size and time; the stage area and the log aside. An
# upgrade refreshes the catalogue.
machine() {
    find /etc /usr/share /usr/bin "$repository" -mindepth 1 \
        \( -path "$repository/stagearea" -o -path "$repository/catalogue.*" \) -prune \
        -o -type d -printf '%p %m %u\n' -o -printf '%p %y %m %u %s %T@ %l\n' | sort
}

# Runs the tool, which must fail with this line and leave the machine as it was.
assert_refused() { # LINE ARGUMENT...
    local line=$1 before
    shift
    before=$(machine)
    run pvrm "$@"
    assert_status 1
    assert_line "$line"
    diff <(echo "$before") <(machine)
}

# As a catalogue that repeats what the heads say.
offer_file() { # NAME VERSION FILE
    offer known "$1" '' "$2" 1 "The package $1 for tests" '' "$PWD/$3"
}

@test "an old version under a higher one does not replace the newer" {
    old=$(package hello version=1.0)
    pvrm install "$(package hello version=2.0)"
    edited "$old" hello_any_3.0.vrk 's/^evrkVersion: .*/evrkVersion: 3.0/'
    sentence='its head says hello 3.0, its signed description says hello 1.0'
    assert_refused "pvrm: cannot install hello_any_3.0.vrk: $sentence" upgrade ./hello_any_3.0.vrk
    offer_file hello 3.0 hello_any_3.0.vrk
    assert_refused "pvrm: cannot install hello_any_3.0.vrk: $sentence" upgrade
    assert_line 'pvrm: hello was not upgraded'
    assert_equal "$(version_of hello)" 2.0
}

@test "a package under the name of another one does not replace that one" {
    pvrm install "$(package pam data/usr/share/pam/module=pam)"
    edited "$(package hello)" hello_any_999.vrk \
        's/^evrkName: .*/evrkName: pam/; s/^evrkVersion: .*/evrkVersion: 999/'
    sentence='its head says pam 999, its signed description says hello 1.0'
    assert_refused "pvrm: cannot install hello_any_999.vrk: $sentence" upgrade ./hello_any_999.vrk
    offer known pam '' 999 1 'The package hello for tests' '' "$PWD/hello_any_999.vrk"
    assert_refused "pvrm: cannot install pam_any_999.vrk: $sentence" upgrade
    assert_equal "$(cat /usr/share/pam/module)" pam
    pvrm remove pam
    assert_refused "pvrm: cannot install hello_any_999.vrk: $sentence" install ./hello_any_999.vrk
    assert_line 'pvrm: pam was not installed'
    assert_equal "$(grep -c 'cannot install' <<<"$output")" 1
}

@test "every other field of the head is held against the signed one" {
    file=$(package foo needs=bar)
    both='its head and its signed description differ in the'
    pvrm install "$(package bar)"
    edited "$file" foo.vrk '/^evrkDependency/d'
    assert_refused "pvrm: cannot install foo.vrk: $both dependencies" install ./foo.vrk
    edited "$file" foo.vrk 's/^evrkCreator: .*/evrkCreator: Somebody/'
    assert_refused "pvrm: cannot install foo.vrk: $both creator" install ./foo.vrk
    edited "$file" foo.vrk 's/^evrkDescription: .*/evrkDescription: Better/'
    assert_refused "pvrm: cannot install foo.vrk: $both description" install ./foo.vrk
    edited "$file" foo.vrk 's/^evrkDataSize: .*/evrkDataSize: 1/'
    assert_refused "pvrm: cannot install foo.vrk: $both data size" install ./foo.vrk
    edited "$file" foo.vrk "s/^evrkArchitecture: .*/evrkArchitecture: $(uname -m)/"
    assert_refused "pvrm: cannot install foo.vrk: its head says foo 1.0 for $(uname -m), its signed \
description says foo 1.0 for any" install ./foo.vrk
    edited "$file" foo.vrk 's/^evrkName: .*/&\nevrkVariant: small/'
    assert_refused 'pvrm: cannot install foo.vrk: its head says foo 1.0 variant "small", its signed '\
'description says foo 1.0 without a variant' install ./foo.vrk
    pvrm install "$file"
}

@test "a payload without a description is not registered" {
    : | signed_payload foo.vrk foo 1.0
    none='it has no signed description (info/desc.txt)'
    assert_refused "pvrm: cannot install foo.vrk: $none" install ./foo.vrk
    echo 'no archive' | signed_payload foo.vrk foo 1.0
    assert_refused "pvrm: cannot install foo.vrk: $none" install ./foo.vrk
    : | cpio -o --quiet -H newc | gzip | signed_payload foo.vrk foo 1.0
    assert_refused "pvrm: cannot install foo.vrk: $none" install ./foo.vrk
    pvrm install "$(package foo)"
    : | signed_payload foo.vrk foo 2.0
    assert_refused "pvrm: cannot install foo.vrk: $none" upgrade ./foo.vrk
    assert_equal "$(cat /usr/share/foo/about)" 'foo 1.0'
}

@test "a catalogue that says something else than the package is not believed" {
    file=$(package foo)
    offer known foo '' 1.0 1 'A better foo' '' "$file"
    assert_refused "pvrm: cannot install foo_any_1.0.vrk: the catalogue and its signed description \
differ in the description" install foo
    clean_repository
    offer known foo '' 2.0 1 'The package foo for tests' '' "$file"
    assert_refused 'pvrm: cannot install foo_any_2.0.vrk: the catalogue says foo 2.0, its signed '\
'description says foo 1.0' install foo
}

@test "nothing of an unsigned head reaches a shell" {
    mkdir -p /etc/vrm/hooks.d
    # shellcheck disable=SC2016
    printf '%s\n' 'evrhType: 99-cfg' 'evrhName: greedy' 'evrhCond: data:*' \
        'evrhExec: /bin/echo "${evrkDescription} ${evrkCreator} ${evrkVersion} ${evrkDependency[]} ${evrkRsaSigSubj} "' \
        >/etc/vrm/hooks.d/greedy.vrh
    file=$(package foo)
    # shellcheck disable=SC2016
    for edit in 's/^evrkDescription: .*/evrkDescription: A $(touch \/tmp\/ran) foo/' \
        's/^evrkCreator: .*/evrkCreator: `touch \/tmp\/ran`/'; do
        edited "$file" foo.vrk "$edit"
        before=$(machine)
        run pvrm install ./foo.vrk
        assert_status 1
        assert_output_has 'pvrm: cannot install foo.vrk: its head and its signed description differ'
        diff <(echo "$before") <(machine)
        [[ ! -e /tmp/ran ]]
    done
    run pvrm install "$file"
    assert_status 0
    assert_line 'The package foo for tests Test 1.0  /O=Test/CN=Builder '
}

@test "a package file that is exchanged after the refresh is refused" {
    mkdir -p "$repository/packages"
    sed -i "s,^vrc_backend=.*,vrc_backend=vrc-dirs.so,; s,^vrc_dirs=.*,vrc_dirs=$repository/packages," \
        /etc/vrm.conf
    file=$(package foo out="$repository/packages")
    planned=$(sha1sum <"$file" | cut -c 1-40)
    pvrm refresh
    # Of the same size, so that only its SHA-1 shows it.
    edited "$file" "$file" 's/^evrkCreator: Test/evrkCreator: Tess/'
    assert_refused "pvrm: the fetched file $repository/stagearea/foo_any_1.0.vrk is not the one in \
the catalogue: its SHA-1 is $(sha1sum <"$file" | cut -c 1-40), not $planned; run pvrm refresh and try \
again" install foo
    assert_line 'pvrm: foo was not installed'
    [[ ! -e $repository/stagearea/foo_any_1.0.vrk ]]
    rm "$repository/packages"/*
    sed -i 's,^vrc_backend=.*,vrc_backend=text.so,' /etc/vrm.conf
}

@test "show and info compare the head with the signed description" {
    file=$(package foo needs=bar)
    run vrk-build show "$file" --cert "$signer_cert"
    assert_status 0
    assert_line 'Head:          matches the signed description'
    run --separate-stderr pvrm info "$file"
    assert_status 0
    assert_equal "$stderr" "pvrm: the head of $file matches its signed description"
    run --separate-stderr pvrm info --format form "$file"
    assert_equal "$stderr" "pvrm: the head of $file matches its signed description
pvrm: foo is not installed"
    run --separate-stderr pvrm info --format ldif "$file"
    assert_equal "$stderr" ''
    run --separate-stderr pvrm info --quiet "$file"
    assert_equal "$stderr" ''

    edited "$file" foo.vrk '/^evrkDependency/d'
    why='its head and its signed description differ in the dependencies'
    run vrk-build show foo.vrk --cert "$signer_cert"
    assert_status 1
    assert_line 'Signature:     verified'
    assert_line "Head:          DIFFERS: $why"
    assert_output_has info/desc.txt
    for format in form ldif; do
        run --separate-stderr pvrm info --quiet --format "$format" foo.vrk
        assert_status 0
        assert_equal "$stderr" "pvrm: warning: foo.vrk cannot be installed: $why"
    done

    : | cpio -o --quiet -H newc | gzip | signed_payload foo.vrk foo 1.0
    run vrk-build show foo.vrk --cert "$signer_cert"
    assert_status 1
    assert_line 'Head:          cannot be compared: it has no signed description (info/desc.txt)'
    run --separate-stderr pvrm info foo.vrk
    assert_equal "${stderr_lines[0]}" \
        'pvrm: warning: foo.vrk cannot be installed: it has no signed description (info/desc.txt)'
}

@test "an entry with the record of another package is found, and can be removed" {
    pvrm install "$(package other)" "$(package bash data/usr/share/bash/about=bash)"
    cp "$repository/installed/other/desc.txt" "$repository/installed/bash/desc.txt"
    run pvrm check --dry-run
    assert_status 1
    assert_line 'bash holds the entry of another package, other'
    assert_line 'checked 2 entries, 1 valid , 1 invalid'
    before=$(machine)
    run pvrm remove bash
    assert_status 1
    assert_equal "$output" "pvrm: bash can't be removed: its entry in the inventory is that of another \
package, other; pvrm check offers to delete that entry"
    run pvrm upgrade bash "$(package bash version=2.0)"
    assert_status 1
    diff <(echo "$before") <(machine)
    answer_on_terminal 'pvrm check' 'Your choice' d
    assert_status 1
    refute_installed bash
    is_installed other
    run pvrm check
    assert_status 0
    # Its files are nobody's now, and are replaced.
    pvrm install "$(package bash data/usr/share/bash/about=bash)"
    pvrm remove other bash
}
