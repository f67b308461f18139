#!/usr/bin/env bats
# What `cmake --install` puts where.

load helpers

setup_file() {
    DESTDIR=$BATS_FILE_TMPDIR/root cmake --install "$build_dir" --prefix /usr >/dev/null
}

setup() {
    root=$BATS_FILE_TMPDIR/root
}

# The path is a regular file of this mode in the installed tree.
assert_file() { # MODE PATH
    [[ -f $root$2 ]] || {
        printf 'not installed: %s; there are:\n' "$2" >&2
        (cd "$root" && find . -type f) >&2
        return 1
    }
    assert_equal "$2 $(stat -c %a "$root$2")" "$2 $1"
}

# A program is demanded from the moment that its sources stand.
has_source() {
    [[ -f $source_dir/src/$1/CMakeLists.txt ]]
}

@test "everything goes to a path that is meant for it" {
    unknown=$(cd "$root" && find . -type f | sed 's/^\.//' | LC_ALL=C sort | grep -vxE '/usr/(sbin/pvrm'`
        `'|bin/(fltk-vrm|fltk-vrm-update|vrk-build)'`
        `'|lib/vrm/[a-z-]+\.so'`
        `'|share/man/man[158]/[a-z.-]+\.[158]'`
        `'|share/bash-completion/completions/[a-z-]+'`
        `'|share/vrm/[a-z.-]+\.(sample|png)'`
        `'|share/applications/[a-z-]+\.desktop'`
        `'|share/doc/vrm/[A-Za-z.-]+'`
        `'|share/pkgconfig/vrm\.pc'`
        `'|include/vrm/[a-z]+/[a-z_]+\.h)|/opt/X11/share/pixmaps/xvrm-logo\.png' || true)
    assert_equal "$unknown" ""
}

@test "configuration and repository of the machine are left alone" {
    assert_equal "$(ls -A "$root")" 'opt
usr'
}

@test "a sample of the configuration is installed" {
    assert_file 644 /usr/share/vrm/vrm.conf.sample
}

@test "the privileged tool stands where the window looks for it" {
    ! has_source pvrm || assert_file 755 /usr/sbin/pvrm
}

@test "the backends stand in the directory that they are loaded from" {
    ! has_source backends || assert_file 644 /usr/lib/vrm/vrc-dirs.so
}

@test "the builder of packages is a user's program" {
    ! has_source tools || assert_file 755 /usr/bin/vrk-build
}

@test "the window is a user's program, and has a name that offers updates alone" {
    assert_file 755 /usr/bin/fltk-vrm
    assert_equal "$(readlink "$root/usr/bin/fltk-vrm-update")" fltk-vrm
}

@test "desktop entries start programs that are there, with a picture that is there" {
    local entry program picture count=0
    for entry in "$source_dir"/packaging/*.desktop; do
        assert_file 644 "/usr/share/applications/${entry##*/}"
        program=$(sed -n 's/^Exec=//p' "$entry")
        [[ -x $root/usr/bin/$program ]]
        # What a desktop joins the window to its entry by.
        assert_equal "$(sed -n 's/^StartupWMClass=//p' "$entry")" "$program"
        picture=$(sed -n 's/^Icon=//p' "$entry")
        assert_file 644 "$picture"
        [[ $(file -b "$root$picture") == "PNG image data, 256 x 256,"* ]]
        count=$((count + 1))
    done
    assert_equal "$count" 2
}

@test "every manual page and completion of the sources is installed" {
    local file
    for file in "$source_dir"/man/*.[1-8]; do
        [[ -f $file ]] || continue
        assert_file 644 "/usr/share/man/man${file##*.}/${file##*/}"
    done
    for file in "$source_dir"/packaging/completions/*; do
        [[ -f $file ]] || continue
        assert_file 644 "/usr/share/bash-completion/completions/${file##*/}"
    done
}

@test "each installed header compiles on its own" {
    local header count=0
    while read -r header; do
        g++ -std=c++20 -Wall -Wextra -Werror -fsyntax-only -I "$root/usr/include/vrm" -x c++ \
            - <<<"#include \"$header\""
        count=$((count + 1))
    done < <(cd "$root/usr/include/vrm" && find . -name '*.h' | sed 's,^\./,,')
    ((count >= 3))
}

@test "a backend can be built against the installed tree alone" {
    local flags
    cat >"$BATS_TEST_TMPDIR/tiny.cpp" <<'END'
#include <cstdio>

#include "repository/vrc.h"

extern "C" {
void *vrc_connect(s_ekva **conf, void *) { return conf; }
int vrc_refresh(void *) { return 0; }
int vrc_findpkg(void *, const char *, const char *, const char *, int, s_ekva **, vri ***) {
    return 0;
}
int vrc_readpkg(void *, vri *package, FILE *out) { return fprintf(out, "%s", package->name); }
void vrc_release(void *) {}
}

// The types of the contract are those that the loader calls.
static_assert(static_cast<vrc_connect_function>(vrc_connect) != nullptr);
static_assert(static_cast<vrc_readpkg_function>(vrc_readpkg) != nullptr);
END
    export PKG_CONFIG_PATH=$root/usr/share/pkgconfig
    read -ra flags < <(pkg-config --cflags vrm)
    cd "$BATS_TEST_TMPDIR"
    g++ -std=c++20 -shared -fPIC "${flags[@]}" -o tiny.so tiny.cpp
    run pkg-config --variable=backenddir vrm
    assert_equal "$(realpath -m "$output")" "$root/usr/lib/vrm"
}
