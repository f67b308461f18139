#!/usr/bin/env bats
# The tour of scripts/demo, with the programs of this build.

load helpers

setup_file() {
    "$source_dir/examples/pack-all" "$BATS_FILE_TMPDIR/packed"
}

@test "the tour goes as it tells" {
    run "$source_dir/scripts/demo-tour" "$BATS_FILE_TMPDIR/packed" "$BATS_TEST_TMPDIR/tour.md"
    assert_status 0
    [[ ${lines[-1]} == "demo: all "*" parts went as told: configuration init allowed trust refresh search"* ]]
    [[ ${lines[-1]} == *" edit updates crash upgrade merge refusal removal orphan return saved history check cleanup distrust" ]]
    # The page of the guides is what the tour says; its head tells how it is made anew.
    diff "$source_dir/docs/tour.md" "$BATS_TEST_TMPDIR/tour.md"
}

# The root is as the tour has left it.
@test "the tour does not touch a repository that is not the throwaway root's" {
    touch /var/lib/vrm/marker
    run "$source_dir/scripts/demo-tour" "$BATS_FILE_TMPDIR/packed"
    assert_status 1
    assert_line 'demo: FAILED: the tour is for the throwaway root: scripts/sandbox scripts/demo-tour DIRECTORY'
    [[ -e /var/lib/vrm/marker ]]
}
