#!/usr/bin/env bats
# The screens of the window that list, search and install packages.

load window
load table

setup_file() { begin_tests; }

setup() {
    clean_repository
    offer_nothing
}

teardown() {
    end_living_window
}

@test "what is installed is listed" {
    pvrm install "$(package foo)" "$(package bar)" "$(package zoo)"
    open_screen list
    assert_rows www
    screenshot list
    select_rows 1
    assert_rows wbw
    select_rows 0 2 # one at a time
    assert_rows wwb
}

@test "nothing installed is an empty table" {
    open_screen list
    assert_rows ''
    screenshot list-empty
}

@test "what is installed is searched by name, pattern and description" {
    pvrm install "$(package foo)" "$(package bar)" "$(package food)"
    open_screen list
    search_for 'bar'
    assert_rows w
    search_for 'foo*'
    assert_rows ww
    screenshot list-searched
    search_for '*package bar*'
    assert_rows w
    search_for 'other'
    assert_rows ''
    search_for '*'
    assert_rows www
}

@test "the catalogue is searched for what is not installed" {
    for name in foo food bar; do offer_file "$name"; done
    pvrm install "$(package foo)"
    open_screen install
    assert_rows ''
    screenshot search-empty
    search_for '*'
    assert_rows ww
    search_for 'foo'
    assert_rows ''
    search_for 'food'
    assert_rows w
    screenshot search
}

@test "only the newest version of a package is offered" {
    offer_file foo version=1.9
    offer_file foo version=1.10
    offer_file foo version=1.2
    open_screen install
    search_and_install 'foo'
    wait_until is_installed foo
    run pvrm list
    assert_output_has '1.10'
}

@test "the selected packages are installed, in the order of the rows" {
    for name in a b c d; do offer_file "$name"; done
    open_screen install
    search_for '?'
    assert_rows wwww
    select_rows 3 0 2
    assert_rows bwbb
    screenshot search-selected
    press_install_selected
    wait_until is_installed d
    is_installed a
    refute_installed b
    is_installed c
    assert_equal "$(cat /usr/share/a/about)" 'a 1.0'
    # The last of the rows is the last that the tool took.
    [[ $repository/installed/a/inst.txt -ot $repository/installed/c/inst.txt ]]
    [[ $repository/installed/c/inst.txt -ot $repository/installed/d/inst.txt ]]
    wait_for_tool
    screenshot installed
}

@test "what was installed is no more offered, and is listed" {
    for name in a b; do offer_file "$name"; done
    open_screen install
    search_for '?'
    select_rows 1
    press_install_selected
    wait_until is_installed b
    wait_for_tool
    go_by press install
    assert_rows ''
    search_for '?'
    assert_rows w
    go_by press list
    assert_rows w
}

@test "nothing selected installs nothing, and the search begins anew" {
    offer_file foo
    open_screen install
    search_for 'foo'
    assert_rows w
    press_install_selected
    assert_rows ''
    refute_installed foo
    search_for 'foo'
    assert_rows w
}

@test "a search without a hit shows no rows and offers nothing to install" {
    offer_file foo
    open_screen install
    search_for 'foo'
    assert_rows w
    search_for 'no such package'
    assert_rows ''
    screenshot search-nothing
    press_install_selected
    assert_rows ''
    refute_installed foo
}

@test "a window that is closed comes back with its list" {
    pvrm install "$(package foo)"
    open_screen list
    assert_rows w
    pvrm install "$(package bar)"
    close_by_manager
    assert_rows ww
}

@test "Escape closes a search, which comes back without its hits" {
    offer_file foo
    open_screen install
    search_for 'foo'
    assert_rows w
    select_rows 0
    close_by_escape
    assert_rows ''
    refute_installed foo
    search_for 'foo'
    assert_rows w
}

@test "a cleanup takes the fetched files away, and no package" {
    offer_file foo
    open_screen install
    search_and_install 'foo'
    wait_until is_installed foo
    wait_for_tool
    staged_files | grep -q .
    go_by press cleanup
    wait_until no_staged_files
    wait_for_tool
    assert_equal "$(ls -A "$repository/stagearea")" ''
    grep -qF 'cleanup deleted: ' /var/log/pvrm.log
    is_installed foo
    assert_equal "$(cat /usr/share/foo/about)" 'foo 1.0'
    screenshot cleaned-up
    go_by press list
    assert_rows w
}

staged_files() {
    find "$repository/stagearea" -name '*.vrk'
}

no_staged_files() {
    [[ -z $(staged_files) ]]
}

@test "the button is told in the log" {
    open_screen install
    press_install_selected
    assert_log_has INFO 'Somebody presssed the install button.'
}

@test "all that was listed, found and chosen is released at the end" {
    for name in a b c; do offer_file "$name"; done
    pvrm install "$(package foo)"
    open_screen list
    search_for 'f*'
    assert_rows w
    go_by press install
    search_for '?'
    assert_rows www
    select_rows 0 1
    press_install_selected
    wait_until is_installed b
    wait_for_tool
    go_by press install
    search_for '?'
    assert_rows w
    select_rows 0
    press quit
    wait_for_dialog
    xdotool key Return
    wait_for_end 0
}

@test "the selected package is shown in a form, and the list stays" {
    pvrm install "$(package foo needs=bar version=1.2 variant=small)" \
        --dir "$(dirname "$(package bar)")"
    open_screen list
    assert_rows ww
    local before
    before=$(window_id)
    press_view_selected
    no_form
    select_rows 1
    assert_rows wb
    press_view_selected
    wait_until has_form
    wait_until form_is_drawn
    screenshot view-selected "$(form_id)"
    # What the form holds is on its command line.
    tr '\0' '\n' <"/proc/$(pgrep -x yad | head -n 1)/cmdline" >shown
    for text in '--text=Package details' '--field=Name:RO' foo '--field=Variant:RO' small \
        '--field=Version:RO' 1.2 '--field=Dependency:RO' bar '--field=Installed at:RO' \
        'Explicit request'; do
        grep -qxF -- "$text" shown
    done
    xdotool windowfocus "$(form_id)" key ctrl+Return
    wait_until no_form
    # The program is back: it heeds the mouse.
    select_rows 0
    assert_rows bw
    assert_equal "$(window_id)" "$before"
    screenshot list-viewed
}

@test "where there is no program for forms the list just stays" {
    pvrm install "$(package foo)"
    start_window env PATH=/usr/sbin /usr/bin/fltk-vrm
    wait_for_window
    go_by press list
    select_rows 0
    press_view_selected
    no_form
    select_rows 0
    assert_rows b
}
