// Private to the transactions: what the planners of an install and of an update share.
#pragma once

#include <cstdlib>

#include "repository/snapshot.h"
#include "support/log.h"
#include "transaction/vrt.h"

// The records that a walk found, with their array.
struct walked_deps {
    int num = 0;
    vrd **records = nullptr;

    walked_deps() = default;
    walked_deps(const walked_deps &) = delete;
    walked_deps &operator=(const walked_deps &) = delete;
    ~walked_deps() {
        for (vrd **record = records; record && *record; record++) {
            vrd_free(*record);
            free(*record);
        }
        free(records);
    }

    // Whether the walk came to the candidate's dependencies. If not, it was the candidate's own
    // architecture that failed, and that is no reason to refuse what the user asked for by name.
    bool begun() const {
        return records || num > 0;
    }

    // Tells of what was found, and of what was not too if `all` is asked for. `found` is the first
    // word of the lines.
    void log_found(const char *found, bool all) const {
        for (vrd *const *record = records; record && *record; record++) {
            if (all || (*record)->info) {
                log_debug("%s dep %s for cand %s, status: %c", found, (*record)->name,
                          (*record)->cand, (*record)->status);
            }
        }
    }
};

// A transaction for a request, with the candidate and its sizes. Result: null when memory fails.
own_vrt new_transaction(const char *name, char source, own_vri candidate);

// The walks of vrm_chk_install and vrm_chk_walk, with what is installed as the view has it.
int walk_install(const installed_view &installed, const vri *candidate, void *vrc,
                 char *const *dirs, int *num, vrd ***deps);
int walk_tree(const installed_view &installed, const vri *candidate, void *vrc, char *const *dirs,
              int *num, vrd ***deps);

// Adds the sizes of a dependency to the totals of its transaction.
void add_sizes(vrt *plan, const vrd *dep);
