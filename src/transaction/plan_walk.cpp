// The two walkers of dependencies. They take the same steps and differ in a few words and in
// whether they go on through what is installed.
#include "transaction/plan_walk.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <unordered_map>
#include <vector>

#include "support/arch.h"
#include "support/array.h"
#include "support/boundary.h"
#include "support/event.h"
#include "support/log.h"
#include "transaction/depend.h"

namespace {

struct walker {
    const char *name;            // in front of each message, with a colon
    const char *name_regrowing;  // in front of the message on more room: the walk's has no colon
    const char *externally;      // how a package to be installed was resolved
    bool through_installed;

    int next = 0;  // the next free index of the array
    // The newest record of each name. Only that one can still be unflagged: a name's older records
    // were flagged when it was met again. So a name costs one look-up, not a scan of the array.
    std::unordered_map<std::string, vrd *> newest = {};
    size_t room = 0;  // slots of the array
};

// A package whose dependencies are being walked. The levels are kept here and not on the stack of
// the process: a long chain of packages must not exhaust that.
struct level {
    const vri *candidate;
    char *const *rest;  // of its dependency names, those still to be looked at
};

struct walk {
    walker *self;
    const installed_view &installed;
    void *vrc;
    char *const *dirs;
    int *num;
    vrd ***deps;
    std::vector<level> levels = {};

    int enter(const vri *candidate);
    int resolve(const vri *candidate, const char *name);
    int run(const vri *candidate);

 private:
    bool make_room(int names);
    vrd *store(const vri *candidate, const char *name);
};

}  // namespace

static walker install_walker{"vrm_chk_install", "vrm_chk_install:", " externally", false};
static walker tree_walker{"vrm_chk_walk", "vrm_chk_walk", "", true};

// Counts the room for the dependencies of one more candidate and makes it. The memory grows by
// doubling, as the array grows with each candidate.
bool walk::make_room(int names) {
    const bool first = !*deps;
    if (first) {
        self->next = 0;
        self->newest.clear();
        self->room = 0;
        *num = names;
    } else {
        *num += names;
    }
    const size_t needed = static_cast<size_t>(*num) + 1;
    if (first) {
        log_debug("%s: Initially allocating space for %zu vrds, setting counter to %d", self->name,
                  needed, *num);
    } else {
        log_debug("%s Reallocating space for %zu vrds, setting counter to %d", self->name_regrowing,
                  needed, *num);
    }
    if (!*deps || needed > self->room) {
        const size_t room = std::max(needed, self->room * 2);
        void *grown = reallocarray(*deps, room, sizeof(vrd *));
        if (!grown) {
            return false;
        }
        *deps = static_cast<vrd **>(grown);
        self->room = room;
    }
    (*deps)[self->next] = nullptr;
    return true;
}

// Tests a candidate and puts it on the levels when it has dependencies to be walked.
int walk::enter(const vri *candidate) {
    log_debug("%s: Checking candidate <%s>", self->name, candidate->name);
    const int own_arch = installed.handle()->arch;
    if (candidate->arch != arch_any && candidate->arch != own_arch) {
        const char *arch = vrm_arch_getname(candidate->arch);
        const char *local = vrm_arch_getname(own_arch);
        report({.kind = event_kind::architecture_differs,
                .other = local ? local : "unknown",
                .found = arch ? arch : "unknown"});
        return 99;
    }
    if (!candidate->deps) {
        log_debug("%s: ok, canidate <%s> has no new dependencies, total of deps: %d", self->name,
                  candidate->name, *num);
        return 0;
    }
    const int names = arr_count(candidate->deps);
    log_debug("%s: ok, canidate <%s> has %02d dependencies", self->name, candidate->name, names);
    if (!make_room(names)) {
        return 99;
    }
    levels.push_back({candidate, candidate->deps});
    return 0;
}

// Appends the record of a dependency to the array.
vrd *walk::store(const vri *candidate, const char *name) {
    auto *record = static_cast<vrd *>(calloc(1, sizeof(vrd)));
    if (!record) {
        return nullptr;
    }
    find_dependency(installed, candidate->name, name, vrc, dirs, &record);
    if (!record->name || !record->cand) {
        vrd_free(record);
        free(record);
        return nullptr;
    }
    log_debug("%s: Storing dependency %s with index %d", self->name, name, self->next);
    (*deps)[self->next++] = record;
    (*deps)[self->next] = nullptr;
    return record;
}

// Takes one dependency: stores it, and enters its package when it is to be walked.
int walk::resolve(const vri *candidate, const char *name) {
    log_debug("%s: Got dependency %s", self->name, name);
    vrd *&newest = self->newest[name];
    const bool seen = newest != nullptr;
    if (seen) {
        newest->circular = 1;
    }
    vrd *record = store(candidate, name);
    if (!record) {
        return 99;
    }
    newest = record;
    if (seen) {
        log_debug("%s: Found circular dependency %s", self->name, name);
        return 0;
    }
    if (record->status == 'U') {
        report({.kind = event_kind::dependency_not_found,
                .who = self->name,
                .package = candidate->name,
                .other = name});
        return 99;
    }
    if (record->status == 'I') {
        log_debug("%s: Resolved dependeny internally", self->name);
        if (!self->through_installed) {
            return 0;
        }
    }
    log_debug("%s: Resolved depeneny%s, status = %c", self->name, self->externally, record->status);
    return enter(record->info);
}

int walk::run(const vri *candidate) {
    int result = enter(candidate);
    while (result == 0 && !levels.empty()) {
        level &deepest = levels.back();
        if (!*deepest.rest) {
            levels.pop_back();
            continue;
        }
        const char *name = *deepest.rest++;
        result = resolve(deepest.candidate, name);
    }
    return result;
}

int walk_install(const installed_view &installed, const vri *candidate, void *vrc,
                 char *const *dirs, int *num, vrd ***deps) {
    return guarded(99, [&]() -> int {
        return walk{&install_walker, installed, vrc, dirs, num, deps}.run(candidate);
    });
}

int walk_tree(const installed_view &installed, const vri *candidate, void *vrc, char *const *dirs,
              int *num, vrd ***deps) {
    return guarded(99, [&]() -> int {
        return walk{&tree_walker, installed, vrc, dirs, num, deps}.run(candidate);
    });
}

int vrm_chk_install(vrm_handle *handle, const vri *candidate, void *vrc, char *const *dirs,
                    int *num, vrd ***deps) {
    return walk_install(handle, candidate, vrc, dirs, num, deps);
}

int vrm_chk_walk(vrm_handle *handle, const vri *candidate, void *vrc, char *const *dirs, int *num,
                 vrd ***deps) {
    return walk_tree(handle, candidate, vrc, dirs, num, deps);
}
