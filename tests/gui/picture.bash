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
    await_picture "$1" '' "${@:2}"
}

await_picture() { # NAME WINDOW-ID COMMAND [ARGUMENT]...
    local end=$((SECONDS + 30))
    until take_picture "$1" "$2" && picture_shows "${@:3}"; do
        ((SECONDS < end)) || {
            cat "$BATS_TEST_TMPDIR/difference" >&2
            return 1
        }
    done
}

# The dialog that is there shows a text and a button.
assert_dialog() { # NAME
    # shellcheck disable=SC2034  # some of what is told is not used
    local WINDOW X Y WIDTH HEIGHT SCREEN
    eval "$(xdotool getwindowgeometry --shell "$(dialog_id)")"
    await_picture "$1" "$WINDOW" dialog "$WIDTH" "$HEIGHT"
}

# A text and, at the right of the bottom, buttons. The sizes of the dialog are the toolkit's.
dialog() { # WIDTH HEIGHT
    printf '%s\n' 'point 1 1 f6f5f4' "point 65 $(($2 - 2)) f6f5f4" "some 65 5 $(($1 - 70)) 35" \
        "some $(($1 - 60)) $(($2 - 40)) 55 35"
}

picture_shows() { # COMMAND [ARGUMENT]...
    "$@" >"$BATS_TEST_TMPDIR/expected"
    awk -f "$source_dir/tests/gui/picture.awk" "$BATS_TEST_TMPDIR/expected" \
        "$BATS_TEST_TMPDIR/picture" 2>"$BATS_TEST_TMPDIR/difference"
}
