// Walking the dependencies of a package that is to be installed.
#pragma once

#include <cstdlib>

#include "repository/snapshot.h"
#include "support/handle.h"
#include "support/log.h"
#include "transaction/vrt.h"

// Walks the dependencies of a candidate. At the first call `*deps` is null and `*num` 0. Each
// dependency is appended to `*deps`, a null-terminated array, and what is to be installed is walked
// in its turn. A name that was met before is stored once more, the earlier record gets `circular`
// 1, and it isn't walked again. What is installed isn't walked. The result is 0, with the number of
// records in `*num`, or 99 when a package is of a foreign architecture, a dependency is nowhere to
// be had or memory fails; `*deps` holds what was found by then. In both cases the caller releases
// each record, with vrd_free and free, and the array. It is null when the candidate has no
// dependency list or is of a foreign architecture itself, and when there is no memory for it, which
// a `*num` above 0 tells.
int vrm_chk_install(vrm_handle *handle, const vri *candidate, void *vrc, char *const *dirs,
                    int *num, vrd ***deps);

// The same, but what is installed is walked as well.
int vrm_chk_walk(vrm_handle *handle, const vri *candidate, void *vrc, char *const *dirs, int *num,
                 vrd ***deps);

// The same two, with what is installed as the view has it, which may be a snapshot.
int walk_install(const installed_view &installed, const vri *candidate, void *vrc,
                 char *const *dirs, int *num, vrd ***deps);
int walk_tree(const installed_view &installed, const vri *candidate, void *vrc, char *const *dirs,
              int *num, vrd ***deps);

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
