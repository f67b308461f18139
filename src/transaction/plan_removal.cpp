#include "transaction/plan_removal.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <unordered_set>
#include <vector>

#include "repository/inventory.h"
#include "support/array.h"
#include "support/boundary.h"
#include "support/event.h"
#include "support/growing_list.h"
#include "support/log.h"
#include "transaction/dependents.h"
#include "ui/vrmui.h"

// ---- Who needs a package ----

char **vrm_dependson(vrm_handle *handle, const char *name) {
    return guarded(nullptr, [&]() -> char ** {
        vri **list = nullptr;
        vrm_list_vri(handle, nullptr, 1, &list);
        const own_vri_list all(list);
        const dependson_index index(list);
        const std::vector<const vri *> &found = index.of(name);
        if (found.empty()) {
            return nullptr;
        }
        return to_c_array<own_array>(found, [](const vri *one) { return strdup(one->name); })
            .release();
    });
}

vri **vrm_chk_delete_reqs(vrm_handle *handle, const vri *package) {
    return guarded(nullptr, [&]() -> vri ** {
        const dependents_index index(handle);
        const std::vector<const vri *> found = index.of(package->name);
        if (found.empty()) {
            return nullptr;
        }
        return to_c_array<own_vri_list>(found, [](const vri *one) { return vrk_info_copy(one); })
            .release();
    });
}

// ---- What can go along ----

// The count that the lines about room tell, and the slots that the array really has: it grows by
// doubling.
static int alloc_deps = 0;
static size_t real_room = 0;

namespace {

// A package whose dependencies are being looked at. The levels are kept here and not on the stack
// of the process: a long chain of packages must not exhaust that.
struct level {
    const vri *candidate;
    char *const *rest;  // of its dependency names, those still to be looked at
    int index;          // where its next find goes
};

class orphan_search {
 public:
    orphan_search(const installed_view &installed, const dependents_index &dependents, int *num,
                  vrd ***deps)
        : installed_(installed), dependents_(dependents), num_(num), deps_(deps) {
        for (vrd *const *record = *deps; record && *record; record++) {
            names_.insert((*record)->name);
        }
    }

    int run(const vri *candidate);

 private:
    bool enter(const vri *candidate);
    bool make_room(level *opened, int names);
    own_vri find_orphan(const vri *candidate, const char *name);
    bool came_for(const vri *candidate, const vri *package) const;
    bool is_needed_elsewhere(const vri *candidate, const vri *package) const;
    const vri *store(level *current, const char *name, own_vri package);

    const installed_view installed_;
    const dependents_index &dependents_;
    int *num_;
    vrd ***deps_;
    std::vector<level> levels_;
    std::unordered_set<std::string> names_;  // of the records in the array
};

}  // namespace

bool orphan_search::make_room(level *opened, int names) {
    const int most = *deps_ ? *num_ + names : names;
    if (*deps_ && most < alloc_deps) {
        log_debug(
            "vrm_chk_delete_deps: not reallocating space, as we already have %d and this run "
            "could only go to %d",
            alloc_deps, most);
        opened->index = *num_;
        return true;
    }
    const bool first = !*deps_;
    const size_t needed = static_cast<size_t>(most) + 1;
    const size_t room = first ? needed : needed > real_room ? 2 * needed : real_room;
    if (first || room != real_room) {
        void *grown = realloc(*deps_, room * sizeof(vrd *));
        if (!grown) {
            return false;
        }
        *deps_ = static_cast<vrd **>(grown);
        real_room = room;
    }
    alloc_deps = most;
    log_debug(first
                  ? "vrm_chk_delete_deps: initially allocating space for %zu vrds, setting counter "
                    "to %d"
                  : "vrm_chk_delete_deps: reallocating space for %zu vrds, setting counter to %d",
              needed, alloc_deps);
    opened->index = first ? 0 : *num_;
    (*deps_)[opened->index] = nullptr;
    return true;
}

// Whether the entry of that name holds another package's record, which is reported. The removal
// would take the files and the entry of that other package.
static bool is_of_another(const char *name, const vri *package) {
    if (strcmp(package->name, name) == 0) {
        return false;
    }
    report({.kind = event_kind::removal_entry_of_another, .package = name, .other = package->name});
    return true;
}

// Puts a candidate on the levels when it has dependencies.
bool orphan_search::enter(const vri *candidate) {
    log_debug("vrm_chk_delete_deps: checking candidate <%s>", candidate->name);
    if (!candidate->deps) {
        log_debug(
            "vrm_chk_delete_deps: ok, canidate <%s> has no new dependencies, total of "
            "deps: %d",
            candidate->name, *num_);
        return true;
    }
    level opened = {candidate, candidate->deps, 0};
    if (!make_room(&opened, arr_count(candidate->deps))) {
        return false;
    }
    levels_.push_back(opened);
    return true;
}

// Whether the package is there only for the sake of the candidate, or of one that is gone.
bool orphan_search::came_for(const vri *candidate, const vri *package) const {
    if (package->install_type != 'D') {
        log_debug("vrm_chk_delete_deps: nope, %s WAS installed explicitely", package->name);
        return false;
    }
    const char *head = package->install_head ? package->install_head : "";
    if (strcmp(head, candidate->name) == 0) {
        log_debug("vrm_chk_delete_deps: ok, %s WAS installed as dependency of %s", package->name,
                  head);
        return true;
    }
    if (installed_.has(head)) {
        log_debug(
            "vrm_chk_delete_deps: nope, %s was installed as a dependency of %s, which is still "
            "installed",
            package->name, head);
        return false;
    }
    log_debug(
        "vrm_chk_delete_deps: ok, %s was installed as a dependency of %s, which is not "
        "installed anymore",
        package->name, head);
    return true;
}

bool orphan_search::is_needed_elsewhere(const vri *candidate, const vri *package) const {
    bool needed = false;
    for (const vri *dependent : dependents_.of(package->name)) {
        if (strcmp(dependent->name, candidate->name) != 0) {
            log_debug("vrm_chk_delete_deps: skipping dependency %s, %s also depends on it",
                      package->name, dependent->name);
            needed = true;
        }
    }
    return needed;
}

// The package of that name when it can go with the candidate, else null.
own_vri orphan_search::find_orphan(const vri *candidate, const char *name) {
    log_debug("vrm_chk_delete_deps: Got dependency %s", name);
    if (names_.contains(name)) {
        log_debug("vrm_chk_delete_deps: found circular dependency on %s", name);
        return nullptr;
    }
    own_vri package = installed_.info(name);
    if (!package) {
        report({.kind = event_kind::dependency_gone, .package = name});
        return nullptr;
    }
    if (is_of_another(name, package.get()) || !came_for(candidate, package.get()) ||
        is_needed_elsewhere(candidate, package.get())) {
        return nullptr;
    }
    log_debug("vrm_chk_delete_deps: %s seems not to be required by anybody else, adding it", name);
    return package;
}

// Stores a find of a level at the level's own index. That is not the end of the array when an
// earlier find of the level brought more along: those give way, and the array ends here.
const vri *orphan_search::store(level *current, const char *name, own_vri package) {
    own_heap<vrd> record(static_cast<vrd *>(calloc(1, sizeof(vrd))));
    own_string own_name(strdup(name)), own_candidate(strdup(current->candidate->name));
    if (!record || !own_name || !own_candidate) {
        return nullptr;
    }
    names_.reserve(names_.size() + 1);
    for (vrd **dropped = *deps_ + current->index; *dropped; dropped++) {
        names_.erase((*dropped)->name);
        vrd_free(*dropped);
        free(*dropped);
        *dropped = nullptr;
    }
    names_.insert(name);
    record->status = 'I';
    record->action = 'D';
    record->name = own_name.release();
    record->cand = own_candidate.release();
    record->info = package.release();
    const vri *stored = record->info;
    (*deps_)[current->index++] = record.release();
    (*deps_)[current->index] = nullptr;
    log_debug("vrm_chk_delete_deps: we now have a total of %d deps", current->index);
    *num_ = current->index;
    return stored;
}

int orphan_search::run(const vri *candidate) {
    if (!enter(candidate)) {
        return 99;
    }
    while (!levels_.empty()) {
        level &current = levels_.back();
        const char *name = *current.rest;
        if (!name) {
            levels_.pop_back();
            continue;
        }
        current.rest++;
        if (own_vri package = find_orphan(current.candidate, name)) {
            const vri *stored = store(&current, name, std::move(package));
            if (!stored || !enter(stored)) {
                return 99;
            }
        }
    }
    return 0;
}

int find_orphans(const installed_view &installed, const vri *candidate, int *num, vrd ***deps) {
    return guarded(99, [&]() -> int {
        const dependents_index dependents(installed);
        return orphan_search(installed, dependents, num, deps).run(candidate);
    });
}

int vrm_chk_delete_deps(vrm_handle *handle, const vri *candidate, int *num, vrd ***deps) {
    return find_orphans(handle, candidate, num, deps);
}

// ---- The plan ----

// Whether the dependents of a package let it go. The last one judged decides, not the worst.
static bool is_free_to_go(const dependents_index &dependents, const char *name,
                          const vri *package) {
    const std::vector<const vri *> found = dependents.of(package->name);
    if (!found.empty()) {
        log_debug("vrm_pre_delete: found dependent packages for %s", name);
    }
    bool allowed = true;
    for (const vri *dependent : found) {
        if (dependent->install_head && strcmp(dependent->install_head, name) == 0) {
            log_debug("%s is a circular dependency of %s, allowing", dependent->name, name);
            allowed = true;
        } else {
            vrmui_say("%s cannot be deleted, %s depends on it\n", name, dependent->name);
            report({.kind = event_kind::removal_needed, .package = name, .other = dependent->name});
            log_debug("%s cannot be deleted, %s depends on it\n", name, dependent->name);
            allowed = false;
        }
    }
    return allowed;
}

static own_vrt new_removal(const char *name, own_vri package) {
    own_vrt plan(static_cast<vrt *>(calloc(1, sizeof(vrt))));
    if (!plan || !(plan->name = strdup(name))) {
        return nullptr;
    }
    plan->source = 'L';
    plan->action = 'D';
    plan->mark = 'N';
    plan->tot_file_size = package->filesize;
    plan->tot_data_size = package->datasize;
    plan->info = package.release();
    return plan;
}

vrt *plan_removal(const installed_view &installed, const char *name, int mode, vrt **out) {
    return guarded(nullptr, [&]() -> vrt * {
        own_vri package = installed.info(name);
        if (!package) {
            vrmui_say("%s is not installed, skipping\n", name);
            report({.kind = event_kind::removal_not_installed, .package = name});
            return nullptr;
        }
        if (is_of_another(name, package.get())) {
            return nullptr;
        }
        const dependents_index dependents(installed);
        if (!is_free_to_go(dependents, name, package.get())) {
            return nullptr;
        }
        vrmui_say("%s can be deleted, nothing depends on it\n", name);

        // The plan owns what the search stores from the start.
        own_vrt plan = new_removal(name, std::move(package));
        if (!plan) {
            return nullptr;
        }
        if (mode != 2) {
            int found = 0;
            const int rc =
                orphan_search(installed, dependents, &found, &plan->deps).run(plan->info);
            plan->num_deps = found;
            if (rc != 0) {
                report({.kind = event_kind::not_removable, .package = name});
                return nullptr;
            }
            if (found == 0) {
                free(plan->deps);
                plan->deps = nullptr;
            }
        }
        log_debug("%s can be removed along with %d deps", name, plan->num_deps);
        for (int32_t i = 0; i < plan->num_deps; i++) {
            plan->tot_file_size += plan->deps[i]->info->filesize;
            plan->tot_data_size += plan->deps[i]->info->datasize;
        }
        plan->scripts = ekva_new(plan->num_deps + 1, 1);
        plan->hookcmds = ekva_new(plan->num_deps + 1, 3);
        return *out = plan.release();
    });
}

vrt *vrm_pre_delete(vrm_handle *handle, const char *name, int mode, vrt **out) {
    return plan_removal(handle, name, mode, out);
}
