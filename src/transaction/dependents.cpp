#include "transaction/dependents.h"

#include "support/event.h"
#include "support/log.h"

// A search ends at the second dependent: nobody is told of more.
static constexpr size_t most_dependents = 2;

dependents_index::dependents_index(const installed_view &installed)
    : snapshot_(installed.snapshot() ? installed.snapshot() : &own_.emplace(installed.handle())) {
    snapshot_->entries();
}

void dependents_index::log_scan(size_t end) const {
    if (!log_wants(LEVEL_DEBUG)) {
        return;
    }
    const std::vector<inventory_snapshot::listed_entry> &entries = snapshot_->entries();
    for (size_t i = 0; i < end; i++) {
        if (!entries[i].is_directory) {
            log_debug("Omitting non-directory %s", entries[i].name.c_str());
        } else if (!entries[i].info) {
            log_debug("Failure parsing info for %s, skipping entry", entries[i].name.c_str());
        }
    }
}

void dependents_index::log_unreadable() const {
    const std::string dir = snapshot_->directory();
    const inventory_snapshot::list_errors errors = snapshot_->errors();
    if (errors.open != 0) {
        report({.kind = event_kind::inventory_not_opened, .path = dir, .error = errors.open});
    } else if (errors.close != 0) {
        report({.kind = event_kind::dependents_not_closed, .path = dir});
    }
}

std::vector<const vri *> dependents_index::of(const char *name) const {
    const std::vector<inventory_snapshot::listed_entry> &entries = snapshot_->entries();
    std::vector<const vri *> found;
    size_t end = entries.size();
    for (const size_t place : snapshot_->places_of_dependents(name)) {
        found.push_back(entries[place].info);
        if (found.size() == most_dependents) {
            end = place;
            break;
        }
    }
    log_scan(end);
    log_unreadable();
    return found;
}

dependson_index::dependson_index(vri *const *packages) {
    for (; packages && *packages; packages++) {
        for (char *const *dep = (*packages)->deps; dep && *dep; dep++) {
            std::vector<const vri *> &found = dependents_[*dep];
            if (found.empty() || found.back() != *packages) {
                found.push_back(*packages);
            }
        }
    }
}

const std::vector<const vri *> &dependson_index::of(const std::string &name) const {
    static const std::vector<const vri *> nobody;
    const auto found = dependents_.find(name);
    return found == dependents_.end() ? nobody : found->second;
}
