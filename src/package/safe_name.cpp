#include "package/safe_name.h"

#include <string_view>

#include "support/arch.h"

static bool may_stand_in_a_name(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("+-.,:~@%=_").find(c) != std::string_view::npos;
}

bool vrk_name_is_safe(const char *text) {
    if (!text || *text == '\0' || *text == '.' || *text == '-') {
        return false;
    }
    for (const char *p = text; *p; p++) {
        if (!may_stand_in_a_name(*p)) {
            return false;
        }
    }
    return true;
}

const char *vrk_info_unsafe_part(const vri *info) {
    if (!vrk_name_is_safe(info->name)) {
        return "name";
    }
    if (info->variant && *info->variant && !vrk_name_is_safe(info->variant)) {
        return "variant";
    }
    if (!vrk_name_is_safe(info->version)) {
        return "version";
    }
    return vrm_arch_getname(info->arch) ? nullptr : "architecture";
}
