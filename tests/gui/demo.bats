#!/usr/bin/env bats
# The end of scripts/demo, where the window is driven.

load ../system/helpers

@test "the demo drives the window and leaves its pictures" {
    "$source_dir/examples/pack-all" "$BATS_TEST_TMPDIR/packed"
    mkdir "$BATS_TEST_TMPDIR/pictures"
    run "$source_dir/scripts/demo-window" --drive "$BATS_TEST_TMPDIR/pictures"
    assert_status 1
    assert_line 'demo: FAILED: the window is shown in the throwaway root, after scripts/demo-tour'

    "$source_dir/scripts/demo-tour" "$BATS_TEST_TMPDIR/packed"
    run "$source_dir/scripts/demo-window" --drive "$BATS_TEST_TMPDIR/pictures"
    assert_status 0
    assert_line "demo: the window did as told; its pictures are in $BATS_TEST_TMPDIR/pictures"
    local picture
    for picture in start list search install update upgrade refresh cleanup update-only; do
        assert_equal "$(identify -format '%wx%h' "$BATS_TEST_TMPDIR/pictures/$picture.png")" 800x600
    done
    [[ -s $BATS_TEST_TMPDIR/pictures/quit.png && -s $BATS_TEST_TMPDIR/pictures/details.png ]]
}
