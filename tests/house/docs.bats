#!/usr/bin/env bats
# The documents tell of the programs that are there, and their links lead somewhere.

# Backquotes in patterns are those of the markdown.
# shellcheck disable=SC2016

setup() {
    source_dir=$(cd "$BATS_TEST_DIRNAME/../.." && pwd -P)
    build_dir=${VRM_BUILD_DIR:-$source_dir/build/release}
    pvrm=$build_dir/src/pvrm/pvrm
    vrk_build=$build_dir/src/tools/vrk-build
    cd "$source_dir"
}

# The words of a tool, as its help lists them.
words_of() { # PROGRAM
    "$1" --help | awk '/^Subcommands:/ { on = 1; next } /^[^ ]/ || /^$/ { on = 0 } on { print $1 }'
}

# The long options that a program's word takes, --help left out.
options_of() { # PROGRAM [WORD]
    "$@" --help | grep -oE -- '(^|[ ,])--[a-z-]+' | tr -d ' ,' | grep -vx -- --help | sort -u
}

# Prints "WHAT" for each line of the input that the file has no line for.
missing_in() { # FILE PATTERN, in which WORD stands for the line
    local word found=false
    while read -r word; do
        found=true
        grep -qE -- "${2//WORD/$word}" "$1" || printf '%s does not tell of: %s\n' "$1" "$word"
    done
    $found || echo 'nothing was looked for'
}

markdown_files() {
    find . \( -path ./build -o -path ./.git \) -prune -o -name '*.md' -print
}

# The anchors that the headings of a file have.
anchors_of() { # FILE
    awk '/^```/ { fenced = !fenced } !fenced && /^#+ /' "$1" | sed -E 's/^#+ +//' |
        tr '[:upper:]' '[:lower:]' | sed -E 's/[^a-z0-9 _-]//g; s/ /-/g'
}

# Prints each relative link of a file that leads nowhere.
broken_links() { # FILE
    local link path anchor target
    # Text between backquotes and fenced blocks hold no links.
    awk '/^```/ { fenced = !fenced; next } !fenced' "$1" | sed 's/`[^`]*`//g' |
        { grep -oE '\]\([^)]+\)' || true; } | sed 's/^](//; s/)$//' |
        while read -r link; do
            case $link in
            http:* | https:* | mailto:*) continue ;;
            esac
            path=${link%%#*}
            anchor=
            [[ $link != *#* ]] || anchor=${link#*#}
            target=$1
            [[ -z $path ]] || target=$(dirname "$1")/$path
            if [[ ! -e $target ]]; then
                printf '%s: no such file: %s\n' "$1" "$link"
            elif [[ -n $anchor ]] && ! anchors_of "$target" | grep -qx -- "$anchor"; then
                printf '%s: no such heading: %s\n' "$1" "$link"
            fi
        done
}

nothing() { # OUTPUT
    [[ -z $1 ]] || {
        printf '%s\n' "$1" >&2
        return 1
    }
}

@test "every relative link leads to a file and a heading that are there" {
    local file found=0
    while read -r file; do
        found=$((found + 1))
        nothing "$(broken_links "$file")"
    done < <(markdown_files)
    ((found >= 5))
}

@test "a link that leads nowhere is found" {
    cd "$BATS_TEST_TMPDIR"
    printf '# One Two\n[a](#one-two) [b](#three) [c](none.md) [d](x.md#one-two)\n' >x.md
    [[ $(broken_links x.md) == "x.md: no such heading: #three
x.md: no such file: none.md" ]]
}

@test "every word of pvrm has an entry in its manual page and in the administrator's guide" {
    nothing "$(words_of "$pvrm" | missing_in man/pvrm.8 '^\.It Cm WORD( |$)')"
    nothing "$(words_of "$pvrm" | missing_in docs/administrator.md '^### pvrm WORD( |$)')"
    nothing "$(words_of "$pvrm" | missing_in docs/tour.md '^    # pvrm WORD( |$)')"
}

@test "no word of pvrm is told of that isn't there" {
    local word
    for word in $(sed -nE 's/^\.It Cm ([a-z]+).*/\1/p' man/pvrm.8) \
        $(sed -nE 's/^### pvrm ([a-z]+).*/\1/p' docs/administrator.md); do
        words_of "$pvrm" | grep -qx "$word"
    done
}

@test "every option of pvrm and of its words is in both" {
    local word
    nothing "$(options_of "$pvrm" | sed 's/^--//' | missing_in man/pvrm.8 'Fl Fl WORD')"
    nothing "$(options_of "$pvrm" | missing_in docs/administrator.md '`WORD`')"
    for word in $(words_of "$pvrm"); do
        # The common ones stand in the help's last lines too.
        options_of "$pvrm" "$word" | sed 's/^--//' >"$BATS_TEST_TMPDIR/options"
        nothing "$(missing_in man/pvrm.8 'Fl Fl WORD' <"$BATS_TEST_TMPDIR/options")"
        nothing "$(missing_in docs/administrator.md '-WORD' <"$BATS_TEST_TMPDIR/options")"
    done
}

@test "every word and option of vrk-build is in its manual page" {
    local word
    nothing "$(words_of "$vrk_build" | missing_in man/vrk-build.1 '^\.It Cm WORD$')"
    for word in $(words_of "$vrk_build"); do
        nothing "$(options_of "$vrk_build" "$word" | sed 's/^--//' |
            missing_in man/vrk-build.1 '^\.It .*Fl Fl WORD')"
    done
}

@test "every key of the sample configuration is told of" {
    sed -nE 's/^([a-z_]+) *=.*/\1/p' packaging/vrm.conf.sample >"$BATS_TEST_TMPDIR/keys"
    nothing "$(missing_in man/vrm.conf.5 '^\.It Li WORD$' <"$BATS_TEST_TMPDIR/keys")"
    nothing "$(missing_in docs/administrator.md '^\| `WORD` \|' <"$BATS_TEST_TMPDIR/keys")"
}

@test "the manual pages are well-formed" {
    local page found=0
    for page in man/*.[1-8]; do
        found=$((found + 1))
        run mandoc -Tlint -Wwarning "$page"
        nothing "$output"
        [[ $status == 0 ]]
    done
    ((found >= 3))
}

# The tests that a document names, as `FILE`: "NAME", a line each with a tab between the two.
tests_named_in() { # FILE
    grep -oE '`[a-z_/]+\.(bats|cpp)`: "[^"]+"' "$1" | sed -E 's/^`([^`]+)`: "(.*)"$/\1\t\2/'
}

# Prints each of them that is not below this directory.
missing_tests() { # FILE DIRECTORY
    local file name
    while IFS=$'\t' read -r file name; do
        case $file in
        *.bats) grep -qxF "@test \"$name\" {" "$2/$file" ;;
        *) tr -d '\n' <"$2/$file" | grep -qE "TEST(_F)?\(${name%%.*}, *${name#*.}\)" ;;
        esac 2>"$BATS_TEST_TMPDIR/reason" || printf '%s has no test "%s"\n' "$file" "$name"
    done < <(tests_named_in "$1")
}

@test "every test that the security guide names is there" {
    nothing "$(missing_tests docs/security.md tests)"
    (($(tests_named_in docs/security.md | wc -l) >= 30))
    # Lines that name a test in another way would not be looked at.
    assert_same_number "$(grep -oE '\.(bats|cpp)`:' docs/security.md | wc -l)" \
        "$(tests_named_in docs/security.md | wc -l)"
}

assert_same_number() {
    (($1 == $2)) || {
        printf '%d is not %d\n' "$1" "$2" >&2
        return 1
    }
}

@test "a test that is not there is found" {
    cd "$BATS_TEST_TMPDIR"
    mkdir system
    printf '@test "one" {\n' >system/x.bats
    printf 'TEST_F(Suite,\n       Long) {\n' >system/x_test.cpp
    printf '%s\n' '`system/x.bats`: "one" `system/x.bats`: "on" `system/y.bats`: "one"' \
        '`system/x_test.cpp`: "Suite.Long" `system/x_test.cpp`: "Suite.Lon"' >doc.md
    [[ $(missing_tests doc.md .) == 'system/x.bats has no test "on"
system/y.bats has no test "one"
system/x_test.cpp has no test "Suite.Lon"' ]]
}
