#include "support/arch.h"

#include <cstring>

static constexpr struct {
    int id;
    const char *name;
} architectures[] = {
    {arch_any, "any"},
    {arch_i686, "i686"},
    {arch_x86_64, "x86_64"},
    {arch_mips, "mips"},
};

int vrm_arch_getid(const char *name) {
    for (const auto &arch : architectures) {
        if (name && strcmp(name, arch.name) == 0) {
            return arch.id;
        }
    }
    return arch_unknown;
}

const char *vrm_arch_getname(int id) {
    for (const auto &arch : architectures) {
        if (arch.id == id) {
            return arch.name;
        }
    }
    return nullptr;
}
