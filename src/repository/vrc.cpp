#include "repository/vrc.h"

#include <cstring>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

#include "support/boundary.h"
#include "support/event.h"
#include "support/growing_list.h"
#include "support/log.h"

vri **vrc_cache;
vri **vri_cache;

// Which records of a filled cache bear a name, in the cache's order. A plan asks for hundreds of
// exact names, each of which would walk the whole catalogue.
static struct {
    vri **array = nullptr;  // the cache that the positions are of
    std::unordered_map<std::string, std::vector<vri *>> by_name;
} name_index;

static void forget_names() {
    name_index.by_name.clear();
    name_index.array = nullptr;
}

static void index_names(vri **cache) {
    // Without memory the searches walk the cache.
    guarded(forget_names, [&] {
        forget_names();
        for (vri *const *record = cache; record && *record; record++) {
            name_index.by_name[(*record)->name].push_back(*record);
        }
        name_index.array = cache;
    });
}

vri **vrm_vrc_cache_fill(void *connection) {
    vri **result = nullptr;
    const int count = pvrm_vrc_findpkg(connection, nullptr, nullptr, nullptr, 5, nullptr, &result);
    log_debug("Number of packages cached: %d", count);
    if (count <= 0) {
        return nullptr;
    }
    index_names(result);
    return result;
}

bool vrm_vrc_is_empty(void *connection) {
    if (vrc_cache) {
        return !*vrc_cache;
    }
    if (pvrm_vrc_count) {
        return pvrm_vrc_count(connection) == 0;
    }
    vri **all = nullptr;
    const int count = pvrm_vrc_findpkg(connection, nullptr, nullptr, nullptr, 5, nullptr, &all);
    vrm_vri_list_free(all);
    return count <= 0;
}

bool vrm_vrc_has_index() {
    return pvrm_vrc_count != nullptr;
}

void vrm_cache_free(vri **cache) {
    if (!cache) {
        return;
    }
    log_debug("Freeing cached vris...");
    if (name_index.array == cache) {
        forget_names();
    }
    int count = 0;
    while (cache[count]) {
        vrk_info_free(cache[count]);
        count++;
    }
    free(cache);
    log_debug("%d cached vris freed.", count);
}

static void log_room(int capacity, bool again) {
    if (again) {
        log_debug("vrm_findpkg: reallocation space for %d entries", capacity);
    } else {
        log_debug("vrm_findpkg: allocating space for %d entries", capacity);
    }
}

static void log_request(const char *name, const char *variant) {
    if (variant) {
        log_debug("vrm_findpkg: Looking for package %s, variant <%s>", name, variant);
    } else {
        log_debug("vrm_findpkg: Looking for package %s", name);
    }
}

// Only a name that can't match another one as a pattern is looked up, and only without a filter, as
// a filter also lets in records of other names.
static bool index_serves(const char *name, s_ekva *const *filter) {
    return name && !filter && vrc_cache == name_index.array && !strpbrk(name, "*?[\\");
}

int vrm_findpkg(void *connection, const char *name, const char *variant, const char *version,
                int five, s_ekva **filter, vri ***out) {
    return guarded(0, [&] {
        if (!connection) {
            report({.kind = event_kind::catalogue_not_connected});
            *out = nullptr;
            return 0;
        }
        if (!vrc_cache) {
            return pvrm_vrc_findpkg(connection, name, variant, version, five, filter, out);
        }
        const char *name_text = name ? name : "(null)";
        log_request(name_text, variant);

        growing_list<vri, vrm_vri_list_free> hits(50, log_room);
        const auto consider = [&](const vri *record) {
            if (!vrm_vri_match(record, 1, name, variant, version, five, filter)) {
                return;
            }
            // No hits rather than some: without the newest one an older one would be chosen.
            if (!hits.make_room()) {
                throw std::bad_alloc();
            }
            log_debug("vrm_findpkg: Storing %s, matches %s", record->name, name_text);
            own_vri copy(vrk_info_copy(record));
            if (!copy) {
                throw std::bad_alloc();
            }
            hits.add(copy.release());
        };
        if (index_serves(name, filter)) {
            const auto named = name_index.by_name.find(name);
            if (named != name_index.by_name.end()) {
                for (const vri *record : named->second) {
                    consider(record);
                }
            }
        } else {
            for (vri *const *record = vrc_cache; *record; record++) {
                consider(*record);
            }
        }

        const int count = hits.count();
        if (count > 1) {
            vrm_vri_list_sort(hits.address());
        }
        log_debug("vrm_findpkg: Stored %d vris", count);
        if (count > 0) {
            *out = hits.release();
        }
        return count;
    });
}
