#include "transaction/vrt.h"

#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unordered_map>
#include <vector>

#include "support/boundary.h"
#include "support/log.h"
#include "support/own.h"

static int entries_of(vra *const *list) {
    int count = 0;
    while (list && list[count]) {
        ++count;
    }
    return count;
}

static const char *name_of(const vri *info) {
    return info->name ? info->name : "";
}

// Tells of one look-up of a package in the list, in which `present` was found, or null.
static void tell_lookup(const vri *package, const vri *present) {
    if (!log_wants(LEVEL_DEBUG)) {
        return;
    }
    log_debug("checking if %s is already in the vra", name_of(package));
    if (present) {
        log_debug("%s is already in the vra (%s)", name_of(package), vrk_puname(present));
    }
}

int vrm_vra_list_new_vri(vra *const *list, const vri *package) {
    const vri *present = nullptr;
    for (size_t i = 0; !present && list && list[i]; ++i) {
        if (list[i]->info && strcmp(name_of(list[i]->info), name_of(package)) == 0) {
            present = list[i]->info;
        }
    }
    tell_lookup(package, present);
    return present == nullptr;
}

// Whether a dependency belongs into the list at all.
static bool is_action(const vrd *dependency) {
    return dependency->info && dependency->action != 'N';
}

namespace {

// Which packages are in the list that was added to last. Callers add one transaction after the
// other to the same list, and to look through all of it for each would take a time that grows with
// the square of its length. A list that doesn't begin with the entries known here is another one,
// or was changed meanwhile, and is read anew.
class known_entries {
 public:
    void follow(vra *const *list) {
        size_t i = 0;
        while (list && i < entries_.size() && list[i] == entries_[i]) {
            ++i;
        }
        if (i < entries_.size()) {
            *this = {};
            i = 0;
        }
        for (; list && list[i]; ++i) {
            add(list[i]);
        }
    }
    void add(const vra *entry) {
        if (entry->info) {
            by_name_.try_emplace(name_of(entry->info), entry);  // the first of a name stands
        }
        entries_.push_back(entry);
    }
    // What vrm_vra_list_new_vri tells.
    bool is_new(const vri *package) const {
        const auto found = by_name_.find(name_of(package));
        const vri *const present = found == by_name_.end() ? nullptr : found->second->info;
        tell_lookup(package, present);
        return !present;
    }

 private:
    std::vector<const vra *> entries_;
    std::unordered_map<std::string, const vra *> by_name_;
};

// A slot of the list is counted as three words, though it holds a pointer.
constexpr size_t words_a_slot = 3;

}  // namespace

static known_entries known;

static bool can_be_added(const vri *package) {
    if (!known.is_new(package)) {
        return false;
    }
    log_debug("%s can be added vra", name_of(package));
    return true;
}

// How many packages of the transaction the list doesn't have yet. Those that the transaction names
// twice are counted twice.
static int count_new(const vrt *transaction) {
    int count = transaction->info && can_be_added(transaction->info) ? 1 : 0;
    for (size_t i = 0; transaction->deps && transaction->deps[i]; ++i) {
        const vrd *const dependency = transaction->deps[i];
        if (is_action(dependency) && can_be_added(dependency->info)) {
            ++count;
        }
    }
    return count;
}

// Appends an entry at `count`, for which the list has room; the result is the new count.
static int append(vra **list, int count, char action, char status, const vri *info) {
    own_heap<vra> entry(static_cast<vra *>(calloc(1, sizeof(vra))));
    own_vri copy(vrk_info_copy(info));
    own_string name(strdup(name_of(info)));
    if (!entry || !copy || !name) {
        return count;
    }
    *entry = {action, status, copy.release(), name.release()};
    list[count + 1] = nullptr;
    list[count] = entry.release();
    known.add(list[count]);
    return count + 1;
}

int vrm_vra_list_add_vrt(const vrt *transaction, vra ***list) {
    return guarded(
        [&] { return entries_of(*list); },
        [&] {
            const int before = entries_of(*list);
            known.follow(*list);
            const int additions = count_new(transaction);
            if (additions == 0) {
                log_debug("No new additions");
                return before;
            }

            const int wanted = before + additions;
            if (*list) {
                log_debug("Reallocating list for %d entries", wanted);
            } else {
                log_debug("Allocating list for %d entries", wanted);
            }
            vra **const room = static_cast<vra **>(reallocarray(
                *list, static_cast<size_t>(wanted) + 1, words_a_slot * sizeof(void *)));
            if (!room) {
                return before;
            }
            room[before] = nullptr;
            *list = room;

            int count = before;
            if (transaction->info && known.is_new(transaction->info)) {
                log_debug("Adding %s to vra at pos %d", name_of(transaction->info), count);
                count =
                    append(room, count, transaction->action, transaction->mark, transaction->info);
            }
            for (size_t i = 0; transaction->deps && transaction->deps[i]; ++i) {
                const vrd *const dependency = transaction->deps[i];
                if (!is_action(dependency) || !known.is_new(dependency->info)) {
                    continue;
                }
                log_debug("Adding %s to vra", name_of(dependency->info));
                count =
                    append(room, count, dependency->action, dependency->status, dependency->info);
            }
            log_debug("Added %d entries to vra_list, new size: %d (%d)", additions, wanted, count);
            return count;
        });
}

void vrm_vra_list_free(vra **list) {
    if (list) {
        known = {};  // the next list may well lie in the same place
    }
    for (size_t i = 0; list && list[i]; ++i) {
        free(list[i]->name);
        vrk_info_free(list[i]->info);
        free(list[i]);
    }
    free(list);
}

const char *vra_action_word(char action) {
    switch (action) {
        case 'U':
            return "update";
        case 'I':
            return "install";
        case 'D':
            return "delete";
        default:
            return nullptr;
    }
}

void vrd_free(vrd *dependency) {
    if (!dependency) {
        return;
    }
    free(dependency->name);
    free(dependency->cand);
    free(dependency->extra);
    vrk_info_free(dependency->info);
}

void vrt_free(vrt *transaction) {
    if (!transaction) {
        return;
    }
    for (size_t i = 0; transaction->deps && transaction->deps[i]; ++i) {
        vrd_free(transaction->deps[i]);
        free(transaction->deps[i]);
    }
    free(transaction->deps);
    vrk_info_free(transaction->info);
    ekva_free(transaction->scripts);
    ekva_free(transaction->hookcmds);
    free(transaction->name);
    free(transaction);
}

own_vrt new_transaction(const char *name, char source, own_vri candidate) {
    own_vrt plan(static_cast<vrt *>(calloc(1, sizeof(vrt))));
    if (!plan || !(plan->name = strdup(name))) {
        return nullptr;
    }
    plan->source = source;
    plan->mark = 'N';
    plan->tot_file_size = candidate->filesize;
    plan->tot_data_size = candidate->datasize;
    plan->info = candidate.release();
    return plan;
}

void add_sizes(vrt *plan, const vrd *dep) {
    log_debug("Adding %" PRIu64 " to tot_file_size", dep->info->filesize);
    log_debug("Adding %" PRIu64 " to tot_data_size", dep->info->datasize);
    plan->tot_file_size += dep->info->filesize;
    plan->tot_data_size += dep->info->datasize;
}
