#include "transaction/plan_update.h"

#include <cstring>
#include <string>
#include <utility>

#include "package/vrf.h"
#include "repository/choice.h"
#include "repository/inventory.h"
#include "support/boundary.h"
#include "support/event.h"
#include "support/log.h"
#include "transaction/plan_walk.h"

namespace {

struct request {
    installed_view installed;
    void *vrc;
    const char *name;
    const char *variant;
    const char *version;
    bool is_file;
    bool cut_off = false;  // the old version is the one that was set aside
};

struct both_sides {
    own_vri before;
    own_vri after;
};

}  // namespace

// Finds the installed package and what it is to become, and settles the variant. What is missing is
// told on the log.
static update_outlook find_sides(request *asked, both_sides *sides) {
    const char *name = asked->name;
    if (asked->is_file) {
        sides->after.reset(vrm_vrf_info(asked->installed.handle(), name, 1));
        if (!sides->after) {
            report({.kind = event_kind::update_not_a_package_file, .path = name});
            return UPDATE_NO_PACKAGE;
        }
        name = sides->after->name;
    }
    vrm_handle *const handle = asked->installed.handle();
    sides->before =
        asked->cut_off ? own_vri(vrm_vrl_retired_info(handle, name)) : asked->installed.info(name);
    if (!sides->before) {
        report({.kind = event_kind::update_not_installed, .package = name});
        return UPDATE_NOT_INSTALLED;
    }
    if (!asked->variant) {
        asked->variant = sides->before->variant ? sides->before->variant : "default";
    }
    if (!asked->is_file) {
        sides->after.reset(
            vrm_findone_vrc(handle, name, asked->variant, asked->version, asked->vrc));
        if (!sides->after) {
            log_debug("%s, variant %s was not found in the package catalogue", name,
                      asked->variant);
            return UPDATE_NOT_OFFERED;
        }
    }
    return UPDATE_WANTED;
}

static bool is_to_be_done(const request &asked, const both_sides &sides, const std::string &puname,
                          const std::string &new_puname) {
    vri *const before = sides.before.get();
    vri *const after = sides.after.get();
    if (!asked.version && puname == new_puname) {
        return false;
    }
    if (asked.is_file) {
        // Only told: the user chose that very file, and may go back to an older version by it.
        const int order = strverscmp(after->version, before->version);
        log_debug("check of installed version %s to new version %s : %d", after->version,
                  before->version, order);
        if (order > 0) {
            log_debug("%s is newer than installed version: %s %s", new_puname.c_str(), before->name,
                      before->version);
        }
        return true;
    }
    if (asked.version) {
        vri *const only[] = {after, nullptr};
        return vrm_findone(asked.name, asked.variant, only) == 0;
    }
    vri *const either[] = {before, after, nullptr};
    return vrm_findone(asked.name, asked.variant, either) == 1;
}

// Finds both sides of a request and decides whether there is something to do.
static update_outlook judge(request *asked, both_sides *sides) {
    const update_outlook found = find_sides(asked, sides);
    if (found != UPDATE_WANTED) {
        return found;
    }
    const std::string puname = vrk_puname(sides->before.get());
    const std::string new_puname = vrk_puname(sides->after.get());
    log_debug("installed version: %s, available version: %s", puname.c_str(), new_puname.c_str());
    if (!is_to_be_done(*asked, *sides, puname, new_puname)) {
        log_debug("Nothing to do, keeping %s", puname.c_str());
        return UPDATE_NOT_NEEDED;
    }
    log_debug("Ok, we'll try to upgrade %s to %s", puname.c_str(), new_puname.c_str());
    return UPDATE_WANTED;
}

update_outlook outlook_of_update(const installed_view &installed, void *vrc, const char *name,
                                 const char *variant, const char *version) {
    return guarded(UPDATE_NOT_OFFERED, [&]() -> update_outlook {
        request asked = {installed, vrc, name, variant, version, vrk_file_is_vrk(name) != 0};
        both_sides sides;
        return judge(&asked, &sides);
    });
}

update_outlook vrm_update_outlook(vrm_handle *handle, void *vrc, const char *name,
                                  const char *variant, const char *version) {
    return outlook_of_update(handle, vrc, name, variant, version);
}

// Hands what the walk found over to the transaction as it is. The executor passes over what is
// installed, and over the repeats, which are installed when it comes to them.
static void take_all_deps(vrt *plan, walked_deps *walked) {
    if (walked->num <= 0) {
        return;
    }
    walked->log_found("found", true);
    for (vrd *const *record = walked->records; *record; record++) {
        if ((*record)->info) {
            add_sizes(plan, *record);
        }
    }
    plan->deps = std::exchange(walked->records, nullptr);
    plan->num_deps = walked->num;
}

static vrt *plan(request asked, char *const *dirs, vrt **out) {
    return guarded(nullptr, [&]() -> vrt * {
        both_sides sides;
        if (judge(&asked, &sides) != UPDATE_WANTED) {
            return nullptr;
        }

        own_vri candidate = std::move(sides.after);
        walked_deps walked;
        if (walk_install(asked.installed, candidate.get(), asked.vrc, dirs, &walked.num,
                         &walked.records) != 0) {
            log_debug("%s cannot be updated", candidate->name);
            if (walked.begun()) {
                walked.log_found("found", false);
                return nullptr;
            }
        }

        own_vrt plan = new_transaction(asked.name, asked.is_file ? 'L' : 'R', std::move(candidate));
        if (!plan) {
            return nullptr;
        }
        plan->action = 'U';
        plan->scripts = ekva_new(walked.num + 1, 1);
        plan->hookcmds = ekva_new(walked.num + 1, 3);
        if (!plan->scripts || !plan->hookcmds) {
            return nullptr;
        }
        take_all_deps(plan.get(), &walked);
        return *out = plan.release();
    });
}

vrt *plan_update(const installed_view &installed, void *vrc, const char *name, const char *variant,
                 const char *version, char *const *dirs, vrt **out) {
    return plan({installed, vrc, name, variant, version, vrk_file_is_vrk(name) != 0}, dirs, out);
}

vrt *vrm_pre_update(vrm_handle *handle, void *vrc, const char *name, const char *variant,
                    const char *version, char *const *dirs, vrt **out) {
    return plan_update(handle, vrc, name, variant, version, dirs, out);
}

vrt *vrm_pre_update_again(vrm_handle *handle, void *vrc, const char *name, vrt **out) {
    return plan({handle, vrc, name, nullptr, nullptr, false, true}, nullptr, out);
}
