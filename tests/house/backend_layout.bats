#!/usr/bin/env bats
# The layout of the records that cross to backends, on every machine that the system is built for.

setup() {
    source_dir=$(cd "$BATS_TEST_DIRNAME/../.." && pwd -P)
    # The C library's headers of these machines are not at hand; this is what is used of them.
    stand_ins=$BATS_TEST_TMPDIR/include
    mkdir "$stand_ins"
    echo 'typedef struct FILE FILE;' >"$stand_ins/stdio.h"
    printf 'typedef __%s_TYPE__ %s_t;\n' INT32 int32 UINT32 uint32 INT64 int64 UINT64 uint64 \
        >"$stand_ins/stdint.h"
    cat >"$stand_ins/cstddef" <<'END'
typedef __SIZE_TYPE__ size_t;
#define offsetof(type, field) __builtin_offsetof(type, field)
END
    cat >"$stand_ins/type_traits" <<'END'
namespace std {
template <class T> constexpr bool is_standard_layout_v = __is_standard_layout(T);
template <class T, class U> constexpr bool is_same_v = __is_same(T, U);
template <class T> constexpr bool is_trivial_v = __is_trivial(T);
}
END
}

check_layout() { # MACHINE INCLUDE-DIR
    clang++ -target "$1-linux-gnu" -std=c++20 -Wall -Wextra -Werror -nostdinc -nostdinc++ \
        -I "$stand_ins" -I "$2" -fsyntax-only "$source_dir/src/vrm/vrc_backend.cpp"
}

@test "the records have their layout on every machine" {
    local machine
    for machine in x86_64 i686 mips mipsel aarch64; do
        check_layout "$machine" "$source_dir/src"
    done
}

@test "another type, order or number of fields is noticed on every machine" {
    local machine change header=$BATS_TEST_TMPDIR/changed/vrm/vrc_backend.h
    mkdir -p "${header%/*}"
    for change in 's/int32_t flag;/int64_t flag;/' 's/uint64_t datasize;/uint32_t datasize;/' \
        's/char \*creator;/&\n    char *maker;/' 's/uint32_t reserved;/uint64_t reserved;/' \
        's/char \*val;/&\n    char *more;/' 's/int32_t sig_status;/&\n    int32_t more;/'; do
        sed "$change" "$source_dir/src/vrm/vrc_backend.h" >"$header"
        run cmp -s "$header" "$source_dir/src/vrm/vrc_backend.h"
        [[ $status == 1 ]]
        for machine in x86_64 i686 mips; do
            run check_layout "$machine" "$BATS_TEST_TMPDIR/changed"
            [[ $status != 0 && $output =~ static[_\ ]assert(ion)?\ failed ]]
        done
    done
}
