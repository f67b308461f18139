#!/usr/bin/env bats
# What the options of the build change: only configured here, nothing is compiled.

setup() {
    source_dir=$(cd "$BATS_TEST_DIRNAME/../.." && pwd -P)
    build_dir=$BATS_TEST_TMPDIR/build
}

configure() { # OPTION...
    cmake -S "$source_dir" -B "$build_dir" -G Ninja -DVRM_TESTS=OFF "$@" >"$BATS_TEST_TMPDIR/log" 2>&1 || {
        cat "$BATS_TEST_TMPDIR/log" >&2
        return 1
    }
}

# The files of libarchive that a program is linked with.
libarchives_of() { # PROGRAM
    ninja -C "$build_dir" -t commands "$1" | tail -n 1 | grep -oE '[^/ ]*libarchive\.[a-z]+'
}

assert_linked_with() { # FILE
    local program
    for program in src/pvrm/pvrm src/tools/vrk-build; do
        [[ $(libarchives_of "$program") == "$1" ]] || {
            printf '%s is linked with <%s>, not with %s\n' "$program" "$(libarchives_of "$program")" "$1" >&2
            return 1
        }
    done
}

@test "libarchive is linked statically unless the shared library is asked for" {
    configure
    assert_linked_with libarchive.a
    configure -DVRM_SHARED_LIBARCHIVE=ON
    assert_linked_with libarchive.so
    configure -DVRM_SHARED_LIBARCHIVE=OFF
    assert_linked_with libarchive.a
}
