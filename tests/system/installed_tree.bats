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
        `'|include/vrm/vrc_backend\.h)|/opt/X11/share/pixmaps/xvrm-logo\.png' || true)
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

@test "the header for backends is plain C, and C++" {
    local header=$root/usr/include/vrm/vrc_backend.h standard
    for standard in c99 c11 c17; do
        gcc -std=$standard -Wall -Wextra -Wpedantic -Werror -fsyntax-only -x c "$header"
    done
    for standard in c++98 c++11 c++20; do
        g++ -std=$standard -Wall -Wextra -Wpedantic -Werror -fsyntax-only -x c++ "$header"
    done
}

# Builds a backend as its author would: with the installed tree alone.
build_backend() { # COMPILER SOURCE
    local flags
    export PKG_CONFIG_PATH=$root/usr/share/pkgconfig
    read -ra flags < <(pkg-config --cflags vrm)
    cd "$BATS_TEST_TMPDIR"
    "$1" -Wall -Wextra -Werror -shared -fPIC -fvisibility=hidden "${flags[@]}" -o tiny.so "$2"
}

write_tiny_backend() { # FILE
    cat >"$BATS_TEST_TMPDIR/$1" <<'END'
#include <vrm/vrc_backend.h>

#ifdef __cplusplus
extern "C" {
#endif
const uint32_t vrc_abi = VRC_ABI;
void *vrc_connect(s_ekva **conf, void *log) { return log ? log : (void *)conf; }
int vrc_refresh(void *connection) { return !connection; }
int vrc_findpkg(void *connection, const char *name, const char *variant, const char *version,
                int five, s_ekva **filter, vri ***out) {
    return connection && name && variant && version && five && filter && !out;
}
int vrc_readpkg(void *connection, vri *package, FILE *out) {
    return connection ? fprintf(out, "%s", package->name) : -1;
}
void vrc_release(void *connection) { (void)connection; }
void vrc_set_report(void *connection, vrc_report_function report, void *context) {
    vrc_report what = {sizeof what, VRC_REPORT_WARNING, 0, 0, 0, "text", 0};
    if (connection) report(&what, context);
}
#ifdef __cplusplus
}
#endif
END
}

@test "a backend can be built against the installed tree alone, in C and in C++" {
    local source compiler
    for source in tiny.c:gcc tiny.cpp:g++; do
        compiler=${source#*:}
        source=${source%:*}
        write_tiny_backend "$source"
        build_backend "$compiler" "$source"
        assert_equal "$(nm -D --defined-only tiny.so | awk '{ print $3 }' | LC_ALL=C sort | xargs)" \
            "vrc_abi vrc_connect vrc_findpkg vrc_readpkg vrc_refresh vrc_release vrc_set_report"
    done
    run pkg-config --variable=backenddir vrm
    assert_equal "$(realpath -m "$output")" "$root/usr/lib/vrm"
}

# Whether an option or a check of this build is on.
build_has() { # NAME
    grep -qE "^$1:[A-Z]+=(1|ON)\$" "$build_dir/CMakeCache.txt"
}

# The static libarchive brings nothing along: neither the shared one, nor the libraries of formats that
# a package never has.
@test "the programs load the shared libarchive only where it is asked for, or the only one" {
    local program loaded
    for program in /usr/sbin/pvrm /usr/bin/vrk-build; do
        run ldd "$root$program"
        assert_status 0
        assert_output_has "libcrypto.so"
        refute_output_has "not found"
        loaded=$(grep -oE '^\s*lib(archive|xml2|icu[a-z]*)\.' <<<"$output" | tr -d '[:space:]' || true)
        if build_has VRM_CAN_LINK_STATIC_LIBARCHIVE && ! build_has VRM_SHARED_LIBARCHIVE; then
            assert_equal "$program <$loaded>" "$program <>"
        else
            [[ $loaded == *libarchive.* ]]
        fi
    done
}

@test "a function of another type than the header's is not compiled" {
    local source
    for source in tiny.c:gcc tiny.cpp:g++; do
        write_tiny_backend "${source%:*}"
        sed -i 's/^int vrc_refresh(void/int vrc_refresh(int \*x, void/' "$BATS_TEST_TMPDIR/${source%:*}"
        run build_backend "${source#*:}" "${source%:*}"
        assert_status 1
        assert_output_has "vrc_refresh"
    done
}

@test "a backend of version 1 is built again with the include line changed" {
    sed -E '/^#include/d' >"$BATS_TEST_TMPDIR/old.cpp" <<'END'
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
[[maybe_unused]] constexpr vrc_connect_function connect_has_its_type = vrc_connect;
[[maybe_unused]] constexpr vrc_readpkg_function readpkg_has_its_type = vrc_readpkg;
END
    sed -i '1i #include <vrm/vrc_backend.h>' "$BATS_TEST_TMPDIR/old.cpp"
    build_backend g++ old.cpp
}
