#include "transaction/plan_install.h"

#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "package/vrf.h"
#include "repository/choice.h"
#include "support/boundary.h"
#include "support/event.h"
#include "support/log.h"
#include "support/text.h"
#include "transaction/plan_order.h"
#include "transaction/plan_walk.h"
#include "ui/vrmui.h"

// Which candidate brought a name in. Names count as equal whatever their case, as they do in every
// record of the engine.
class first_candidates {
 public:
    // The candidate that brought the name in before, or null, and then it is this one.
    const std::string *find_or_add(const char *name, const char *candidate) {
        const auto [place, added] = by_name_.try_emplace(lower_case(name), candidate);
        return added ? nullptr : &place->second;
    }

 private:
    std::unordered_map<std::string, std::string> by_name_;
};

// Whether a walked record is part of the plan: it has a package, and its name is a new one.
static bool is_kept(const vrd *record, first_candidates *processed) {
    if (!record->info) {
        return false;
    }
    if (const std::string *first = processed->find_or_add(record->name, record->cand)) {
        log_debug("Skipping %s for %s, already processed for %s", record->name, record->cand,
                  first->c_str());
        return false;
    }
    return true;
}

static bool is_to_be_installed(const vrd *record, first_candidates *processed) {
    if (record->status == 'I') {
        log_debug("Skipping %s for %s, locally installed", record->name, record->cand);
        return false;
    }
    log_debug("Found dep %s for cand %s, status: %c", record->name, record->cand, record->status);
    return is_kept(record, processed);
}

// Moves the records that are part of the plan from the walk into the transaction, in the order of
// installation, and adds up their sizes. The request's own name counts as taken: a circle that
// leads back to it ends here.
static bool take_deps(vrt *plan, walked_deps *walked,
                      bool (*is_wanted)(const vrd *, first_candidates *)) {
    if (walked->num <= 0) {
        return true;
    }
    vrds_sort(plan->info, &walked->records);
    own_heap<vrd *> kept(
        static_cast<vrd **>(calloc(static_cast<size_t>(walked->num) + 1, sizeof(vrd *))));
    if (!kept) {
        return false;
    }
    // All is decided before the first record changes its owner: nothing fails in between.
    first_candidates processed;
    processed.find_or_add(plan->name, "User");
    std::vector<bool> wanted;
    for (vrd *const *place = walked->records; *place; place++) {
        const vrd *record = *place;
        wanted.push_back(is_wanted(record, &processed));
        if (wanted.back()) {
            add_sizes(plan, record);
        }
    }
    vrd **dropped = walked->records;
    for (size_t i = 0; i < wanted.size(); i++) {
        vrd *record = walked->records[i];
        if (wanted[i]) {
            kept.get()[plan->num_deps++] = record;
        } else {
            *dropped++ = record;
        }
    }
    *dropped = nullptr;
    if (plan->num_deps > 0) {
        plan->deps = kept.release();
    }
    return true;
}

vrt *plan_install(const installed_view &installed, void *vrc, const char *name, const char *variant,
                  const char *version, char *const *dirs, vrt **out) {
    return guarded(nullptr, [&]() -> vrt * {
        vrm_handle *const handle = installed.handle();
        const bool is_file = vrk_file_is_vrk(name);
        own_vri candidate(is_file ? vrm_vrf_info(handle, name, 1)
                                  : vrm_findone_vrc(handle, name, variant, version, vrc));
        if (!candidate) {
            if (is_file) {
                report({.kind = event_kind::not_a_package_file, .path = name});
            } else {
                report({.kind = event_kind::not_in_catalogue, .package = name});
            }
            return nullptr;
        }
        if (installed.has_own(candidate->name)) {
            report({.kind = event_kind::already_installed, .package = candidate->name});
            return nullptr;
        }

        walked_deps walked;
        if (walk_install(installed, candidate.get(), vrc, dirs, &walked.num, &walked.records) !=
            0) {
            log_debug("%s cannot be installed", candidate->name);
            if (walked.begun()) {
                walked.log_found("Found", false);
                return nullptr;
            }
        }

        own_vrt plan = new_transaction(name, is_file ? 'L' : 'R', std::move(candidate));
        if (!plan) {
            return nullptr;
        }
        plan->action = 'I';
        plan->scripts = ekva_new(walked.num + 1, 1);
        plan->hookcmds = ekva_new(walked.num + 1, 1);
        if (!plan->scripts || !plan->hookcmds ||
            !take_deps(plan.get(), &walked, is_to_be_installed)) {
            return nullptr;
        }
        return *out = plan.release();
    });
}

vrt *vrm_pre_install(vrm_handle *handle, void *vrc, const char *name, const char *variant,
                     const char *version, char *const *dirs, vrt **out) {
    return plan_install(handle, vrc, name, variant, version, dirs, out);
}

vrt *plan_tree(const installed_view &installed, void *vrc, const char *name, const char *variant,
               char *const *dirs, vrt **out) {
    return guarded(nullptr, [&]() -> vrt * {
        vrm_handle *const handle = installed.handle();
        const bool is_file = vrk_file_is_vrk(name);
        own_vri candidate(is_file ? vrm_vrf_info(handle, name, 1)
                                  : vrm_findone_vrc(handle, name, variant, nullptr, vrc));
        if (!candidate) {
            // The caller, who wants to show a tree, tells the user why there is none.
            vrmui_say_new(
                "%s %s\n", name,
                is_file ? "is not a valid package file" : "was not found in the package catalogue");
            return nullptr;
        }

        walked_deps walked;
        if (walk_tree(installed, candidate.get(), vrc, dirs, &walked.num, &walked.records) != 0) {
            log_debug("%s cannot be installed", candidate->name);
            if (walked.begun()) {
                walked.log_found("Found", false);
                return nullptr;
            }
        } else {
            walked.log_found("Found", true);
        }

        own_vrt plan = new_transaction(name, is_file ? 'L' : 'R', std::move(candidate));
        if (!plan || !take_deps(plan.get(), &walked, is_kept)) {
            return nullptr;
        }
        return *out = plan.release();
    });
}

vrt *vrm_walk(vrm_handle *handle, void *vrc, const char *name, const char *variant,
              char *const *dirs, vrt **out) {
    return plan_tree(handle, vrc, name, variant, dirs, out);
}
