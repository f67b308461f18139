// What a request says of a variant: the engine's searches and those of a backend agree on it.
#pragma once

#include <string_view>

// Whether a request means the default variant by name.
inline bool means_default_variant(std::string_view wanted) {
    return wanted.empty() || wanted == "default";
}

// Whether a variant meets a request. `wanted` is null when any does; a `variant` without data is
// the default one, which "" is not.
inline bool variant_fits(const char *wanted, std::string_view variant) {
    if (!wanted) {
        return true;
    }
    return means_default_variant(wanted) ? !variant.data() : variant.data() && variant == wanted;
}

inline bool variant_fits(const char *wanted, const char *variant) {
    return variant_fits(wanted, variant ? std::string_view(variant) : std::string_view());
}
