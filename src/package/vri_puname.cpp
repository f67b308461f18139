#include <algorithm>
#include <cstdio>
#include <string>

#include "package/vri.h"
#include "support/arch.h"
#include "support/boundary.h"
#include "support/event.h"
#include "support/log.h"
#include "support/own.h"
#include "support/text.h"

char *vrk_puname(const vri *info) {
    static char puname[1025];
    const char *arch = or_empty(vrm_arch_getname(info->arch));
    // An empty variant is a variant: it shows as two underscores in a row.
    if (info->variant) {
        snprintf(puname, sizeof puname, "%s_%s_%s_%s", or_empty(info->name), info->variant, arch,
                 or_empty(info->version));
    } else {
        snprintf(puname, sizeof puname, "%s_%s_%s", or_empty(info->name), arch,
                 or_empty(info->version));
    }
    return puname;
}

static bool valid_arch(const std::string &name) {
    if (vrm_arch_getid(name.c_str()) != arch_unknown) {
        return true;
    }
    log_debug("vrk_puname_decode: arch %s is invalid", name.c_str());
    return false;
}

static s_ekva **puname_record(const std::string &name, const std::string *variant,
                              const std::string &version, const std::string *arch) {
    own_ekva rec(ekva_new(20, 4));
    add_pair(&rec, "evrkName", name.c_str());
    if (variant) {
        add_pair(&rec, "evrkVariant", variant->c_str());
    }
    add_pair(&rec, "evrkVersion", version.c_str());
    add_pair(&rec, "evrkArchitecture", arch ? arch->c_str() : nullptr);
    return rec.release();
}

s_ekva **vrk_puname_decode(const char *puname) {
    return guarded(nullptr, [&]() -> s_ekva ** {
        if (!puname) {
            report({.kind = event_kind::puname_missing});
            return nullptr;
        }
        const std::string text(puname);
        const size_t name_end = text.find('_');
        if (name_end == std::string::npos) {
            report({.kind = event_kind::puname_without_name, .package = puname});
            return nullptr;
        }
        const size_t middle_end = text.rfind('_');
        if (middle_end == name_end) {
            report({.kind = event_kind::puname_without_version, .package = puname});
            return nullptr;
        }
        const std::string name = text.substr(0, name_end);
        const std::string version = text.substr(middle_end + 1);
        const std::string middle = text.substr(name_end + 1, middle_end - name_end - 1);

        const auto underscores = std::count(middle.begin(), middle.end(), '_');
        if (underscores == 0) {
            return valid_arch(middle) ? puname_record(name, nullptr, version, &middle) : nullptr;
        }
        if (underscores == 1 && vrm_arch_getid(middle.c_str()) != arch_unknown) {
            return puname_record(name, nullptr, version, &middle);
        }
        if (underscores > 2) {
            // No package has such a puname, yet it is not refused: name and version are still
            // known.
            return puname_record(name, nullptr, version, nullptr);
        }
        const std::string variant = middle.substr(0, middle.find('_'));
        const std::string arch = middle.substr(middle.find('_') + 1);
        // With two underscores only x86_64 makes sense behind the variant, and it is taken on
        // trust.
        if (underscores == 1 && !valid_arch(arch)) {
            return nullptr;
        }
        return puname_record(name, &variant, version, &arch);
    });
}
