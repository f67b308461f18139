# shellcheck shell=bash
# Loaded by the tests that look at a whole screen, after `window`.

# Takes the picture of a window, by default of the main one. It is also kept under this name for who
# wants to look at it: VRM_SCREENSHOTS is a directory, which has to be bound into the sandbox.
take_picture() { # NAME [WINDOW-ID]
    local file=$BATS_TEST_TMPDIR/picture.png
    import -silent -window "${2:-$(window_id)}" "$file" || return
    convert "$file" -depth 8 rgb:- |
        od -An -v -tx1 -w$((3 * $(identify -format %w "$file"))) | tr -d ' ' >"${file%.png}"
    [[ -z ${VRM_SCREENSHOTS-} ]] || cp "$file" "$VRM_SCREENSHOTS/$1.png"
}

# Takes pictures until one shows what is expected, for 30 seconds at most. The command writes what
# that is, by the words of picture.awk.
assert_picture() { # NAME COMMAND [ARGUMENT]...
    local name=$1 end=$((SECONDS + 30))
    shift
    until take_picture "$name" && picture_shows "$@"; do
        ((SECONDS < end)) || {
            cat "$BATS_TEST_TMPDIR/difference" >&2
            return 1
        }
    done
}

picture_shows() { # COMMAND [ARGUMENT]...
    "$@" >"$BATS_TEST_TMPDIR/expected"
    awk -f "$source_dir/tests/gui/picture.awk" "$BATS_TEST_TMPDIR/expected" \
        "$BATS_TEST_TMPDIR/picture" 2>"$BATS_TEST_TMPDIR/difference"
}
