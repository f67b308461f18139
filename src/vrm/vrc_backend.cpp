// The layout of what crosses the boundary to backends. Backends that were built long ago rely on
// these numbers: a line here that no longer holds asks for a new VRC_ABI, not for another number.
#include "vrm/vrc_backend.h"

#include <cstddef>
#include <type_traits>

namespace {

struct after_one_byte {
    char byte;
    uint64_t number;
};

// The three kinds of machines: pointers of 64 bits; pointers of 32 bits with 64-bit numbers at any
// multiple of 4 (i686) or of 8 (mips).
constexpr size_t by_machine(size_t wide, size_t narrow, size_t narrow_aligned) {
    if (sizeof(void *) == 8) {
        return wide;
    }
    return offsetof(after_one_byte, number) == 4 ? narrow : narrow_aligned;
}

}  // namespace

#define HAS_FIELD(record, type, field, ...)                               \
    static_assert(std::is_same_v<decltype(record::field), type> &&        \
                      offsetof(record, field) == by_machine(__VA_ARGS__), \
                  #record "::" #field)
#define HAS_SIZE(type, ...) static_assert(sizeof(type) == by_machine(__VA_ARGS__), #type)

HAS_FIELD(s_ekva, char *, key, 0, 0, 0);
HAS_FIELD(s_ekva, char *, val, 8, 4, 4);
HAS_SIZE(s_ekva, 16, 8, 8);

HAS_FIELD(vri, char *, name, 0, 0, 0);
HAS_FIELD(vri, char *, variant, 8, 4, 4);
HAS_FIELD(vri, char *, version, 16, 8, 8);
HAS_FIELD(vri, char *, creator, 24, 12, 12);
HAS_FIELD(vri, int32_t, arch, 32, 16, 16);
HAS_FIELD(vri, char *, description, 40, 20, 20);
HAS_FIELD(vri, char **, deps, 48, 24, 24);
HAS_FIELD(vri, int32_t, flag, 56, 28, 28);
HAS_FIELD(vri, uint64_t, datasize, 64, 32, 32);
HAS_FIELD(vri, uint64_t, filesize, 72, 40, 40);
HAS_FIELD(vri, char *, filehash, 80, 48, 48);
HAS_FIELD(vri, char *, absolute_uri, 88, 52, 52);
HAS_FIELD(vri, char *, relative_uri, 96, 56, 56);
HAS_FIELD(vri, int64_t, install_time, 104, 60, 64);
HAS_FIELD(vri, char, install_type, 112, 68, 72);
HAS_FIELD(vri, char *, install_head, 120, 72, 76);
HAS_FIELD(vri, int64_t *, update_times, 128, 76, 80);
HAS_FIELD(vri, char *, rsa_sig_subj, 136, 80, 84);
HAS_FIELD(vri, unsigned char *, rsa_sig_data, 144, 84, 88);
HAS_FIELD(vri, int32_t, rsa_sig_len, 152, 88, 92);
HAS_FIELD(vri, int32_t, sig_status, 156, 92, 96);
HAS_FIELD(vri, s_ekva **, ekva, 160, 96, 100);
HAS_SIZE(vri, 168, 100, 104);

// Later fields come after these, so the size may grow.
HAS_FIELD(vrc_report, uint32_t, size, 0, 0, 0);
HAS_FIELD(vrc_report, uint32_t, kind, 4, 4, 4);
HAS_FIELD(vrc_report, int32_t, error, 8, 8, 8);
HAS_FIELD(vrc_report, uint32_t, reserved, 12, 12, 12);
HAS_FIELD(vrc_report, const char *, path, 16, 16, 16);
HAS_FIELD(vrc_report, const char *, text, 24, 20, 20);
HAS_FIELD(vrc_report, const char *, package, 32, 24, 24);

static_assert(std::is_standard_layout_v<vri> && std::is_trivial_v<vri>);
static_assert(std::is_standard_layout_v<s_ekva> && std::is_trivial_v<s_ekva>);
static_assert(std::is_standard_layout_v<vrc_report> && std::is_trivial_v<vrc_report>);
