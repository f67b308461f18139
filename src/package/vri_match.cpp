#include <fnmatch.h>

#include <cstring>

#include "package/variant.h"
#include "package/vri.h"
#include "support/log.h"

// The wanted text may be a pattern, or the text itself: a name such as "c++[x]" is a pattern that
// does not match itself.
static bool fits(const char *wanted, const char *text) {
    return strcmp(wanted, text) == 0 || fnmatch(wanted, text, 0) == 0;
}

static bool pair_fits(const s_ekva *pair, s_ekva *const *attributes) {
    if (!pair->val) {
        return false;
    }
    bool hit = false;
    const own_array values(ekva_getvals(attributes, pair->key));
    for (char *const *value = values.get(); value && *value; value++) {
        if (!fits(pair->val, *value)) {
            continue;
        }
        hit = true;
        log_debug("Found matching attribite %s with value %s: %s", pair->key, pair->val, *value);
    }
    return hit;
}

// All pairs are tried, also behind a hit, so that the log shows each of them.
static bool filter_fits(s_ekva *const *filter, const vri *info, int mode) {
    const own_ekva attributes(vrk_info_ekva(info, mode));
    bool hit = false;
    for (s_ekva *const *pair = ekva_first_pair(filter); *pair; pair++) {
        if (pair_fits(*pair, attributes.get())) {
            hit = true;
        }
    }
    return hit;
}

int vrm_vri_match(const vri *info, int mode, const char *name, const char *variant,
                  const char *version, int /*ignored*/, s_ekva *const *filter) {
    if (!info) {
        return 0;
    }
    if (name && !(info->name && fits(name, info->name)) &&
        !(filter && filter_fits(filter, info, mode))) {
        return 0;
    }
    if (version && !(info->version && strcmp(version, info->version) == 0)) {
        return 0;
    }
    return variant_fits(variant, info->variant) ? 1 : 0;
}
