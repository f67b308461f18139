#!/usr/bin/env bats
# Which of several packages of one name is taken from the catalogue.

load examples

# Beside the examples an older version of the library, which is greater as a decimal number and as
# a text, and a package of two variants that lacks the default one.
setup_file() {
    make_catalogue
    cp -r "$trees/textlib" "$BATS_FILE_TMPDIR/old"
    sed -i 's/^evrkVersion: .*/evrkVersion: 1.9/' "$BATS_FILE_TMPDIR/old/package.ldif"
    pack_to "$BATS_FILE_TMPDIR/old" "$repository/packages"
    for variant in large small; do
        cp -r "$trees/handbook" "$BATS_FILE_TMPDIR/$variant"
        sed -i "s/^evrkName: .*/evrkName: atlas\nevrkVariant: $variant/" \
            "$BATS_FILE_TMPDIR/$variant/package.ldif"
        pack_to "$BATS_FILE_TMPDIR/$variant" "$repository/packages"
    done
    pvrm refresh
}

# The plan's lines for packages, with single blanks and without sizes.
plan() { # ARGUMENT...
    pvrm install --dry-run "$@" | awk '$5 == "catalogue" { print $1, $2, $3 }'
}

@test "the newest version is the one whose numbers are greater" {
    assert_equal "$(plan textlib)" 'textlib 1.10 -'
}

@test "an older version can be asked for" {
    assert_equal "$(plan --version 1.9 textlib)" 'textlib 1.9 -'
}

@test "the default variant is taken unless another is asked for" {
    assert_equal "$(plan greet | head -1)" 'greet 1.4 -'
    assert_equal "$(plan --variant default greet | head -1)" 'greet 1.4 -'
    assert_equal "$(plan --variant lite greet)" 'greet 1.4 lite
phrases 3.0 -
textlib 1.10 -'
}

@test "where there is only another variant it is taken, but not when the default one was asked for" {
    mkdir "$BATS_TEST_TMPDIR/kept"
    mv "$repository"/packages/greet_any_* "$BATS_TEST_TMPDIR/kept"
    pvrm refresh
    assert_equal "$(plan greet | head -1)" 'greet 1.4 lite'
    run pvrm install --dry-run --variant default greet
    mv "$BATS_TEST_TMPDIR"/kept/* "$repository/packages/"
    pvrm refresh
    assert_status 1
    assert_line 'pvrm: greet has no variant default; there is lite'
}

@test "between two variants that are both not the default one nothing is chosen" {
    run pvrm install --dry-run atlas
    assert_status 1
    assert_line 'pvrm: atlas has no default variant; there are large and small: use --variant'
    run pvrm install --dry-run --version 9.9 --variant small atlas
    assert_status 1
    assert_line 'pvrm: atlas has no version 9.9; there is 2024.2'
    run pvrm install --dry-run --variant huge atlas
    assert_status 1
    assert_line 'pvrm: atlas has no variant huge; there are large and small'
    assert_equal "$(plan --variant small atlas)" 'atlas 2024.2 small'
}

@test "a variant is installed under the package's name and noted under its own" {
    run pvrm install --yes --variant lite greet
    assert_status 0
    assert_line 'pvrm: installed greet_lite_any_1.4'
    assert_equal "$(grep evrkVariant "$repository/installed/greet/desc.txt")" 'evrkVariant: lite'
    [[ -f $repository/stagearea/greet_lite_any_1.4.vrk ]]
    assert_equal "$(history_lines)" 'installed textlib_any_1.10 as dependency of phrases
installed phrases_any_3.0 as dependency of greet
installed greet_lite_any_1.4 as requested by user'
    assert_equal "$(greet Ada)" 'Hello, Ada!'
    [[ ! -e /usr/bin/almanac ]]
}

@test "the other variant counts as installed then" {
    run pvrm install --yes greet
    assert_status 0
    assert_equal "$output" 'pvrm: greet is already installed, version 1.4'
    run pvrm search greet
    assert_line "$(report_row greet_lite 1.4 '[installed] Greets people by name, in one line')"
}
