# shellcheck shell=bash
# Loaded by the tests of the screens with a table, after `window`. The rows are told by their colours:
# that is what a user sees first of them.

# Empties the directory of the catalogue.
offer_nothing() {
    rm -rf "$repository/packages"
    mkdir "$repository/packages"
}

# Makes a package in the directory of the catalogue.
offer_file() { # NAME [WHAT=VALUE]...
    package "$@" out="$repository/packages" >/dev/null
}

# Waits for the window of the next pass, which the command leads to.
go_by() { # COMMAND...
    local before
    before=$(window_id)
    "$@"
    wait_until another_window_than "$before"
    settle
}

# Starts the program, and goes to one of its screens by the top row.
open_screen() { # list|install|update|refresh|cleanup
    start_window
    wait_for_window
    go_by press "$1"
}

# The button below the table, which leads to another window.
press_install_selected() {
    go_by click 120 582
}

# The buttons below the table of updates, which do so too.
press_update_all() {
    go_by click 120 582
}

press_update_selected() {
    go_by click 360 582
}

# The button below the table of what is installed.
press_view_selected() {
    click 120 582
}

# Types a text into the search field and presses Enter.
search_for() { # TEXT
    click 270 112
    xdotool key ctrl+a type -- "$1"
    xdotool key Return
}

# Searches for what is one package, and has it installed.
search_and_install() { # TEXT
    search_for "$1"
    assert_rows w
    select_rows 0
    press_install_selected
}

# Clicks on rows of the table, counted from 0: on the first alone, on the others with Ctrl.
select_rows() { # ROW...
    local row
    click 700 $((160 + 20 * $1))
    shift
    for row; do
        xdotool keydown ctrl
        click 700 $((160 + 20 * row))
        xdotool keyup ctrl
    done
}

# What the rows of the table are: a letter for each, "w" for a white one, "b" for a blue one, which
# is selected.
rows() {
    import -silent -window "$(window_id)" -crop 1x380+730+160 +repage -depth 8 rgb:- |
        od -An -v -tx1 -w3 | awk '
            over || NR % 20 != 1 { next }
            $0 == " ff ff ff" { letters = letters "w"; next }
            $0 == " 00 00 ff" { letters = letters "b"; next }
            { over = 1 }
            END { print letters }'
}

rows_are() { # LETTERS
    [[ $(rows) == "$1" ]]
}

assert_rows() { # LETTERS
    wait_until rows_are "$1" || assert_equal "$(rows)" "$1"
}

# Keeps a picture of the window, or of another one, for who wants to look at it: VRM_SCREENSHOTS is a
# directory, which has to be bound into the sandbox.
screenshot() { # NAME [WINDOW-ID]
    [[ -z ${VRM_SCREENSHOTS-} ]] ||
        import -silent -window "${2:-$(window_id)}" "$VRM_SCREENSHOTS/$1.png"
}

# The window of the dialog program.
form_id() {
    xdotool search --onlyvisible --class '^[Yy]ad$' 2>/dev/null | head -n 1
}

has_form() {
    [[ -n $(form_id) ]]
}

no_form() {
    ! has_form
}

# The form is drawn: its program has settled too, and it is not of one colour.
form_is_drawn() {
    DISPLAY_PROCESSES+=" $(pgrep -x yad)" is_settled &&
        (($(import -silent -window "$(form_id)" -format %k info:-) > 1))
}
