#include "repository/choice.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "package/variant.h"
#include "repository/inventory.h"
#include "repository/vrc.h"
#include "support/boundary.h"
#include "support/log.h"

namespace {

// A copy of a record's puname, which itself stands in a buffer of vrk_puname's own.
struct version_id {
    explicit version_id(const vri *info) {
        snprintf(text, sizeof text, "%s", vrk_puname(info));
    }
    char text[1025];
};

// The choice while it goes through a list, one record after the other.
class version_choice {
 public:
    version_choice(const char *name, const char *variant);

    void look_at(const vri *record, int index) {
        if (!best_) {
            look_for_first(record, index);
        } else if (wanted_) {
            compare_in_wanted(record, index);
        } else if (!record->variant) {
            compare_in_default(record, index);
        } else {
            compare_in_fallback(record, index);
        }
    }
    int best_index() const {
        return best_index_;
    }

 private:
    void select(const vri *record, int index) {
        best_ = record;
        best_index_ = index;
    }
    void look_for_first(const vri *record, int index);
    void compare_in_wanted(const vri *record, int index);
    void compare_in_default(const vri *record, int index);
    void compare_in_fallback(const vri *record, int index);
    void compare_versions(const vri *record, int index, const char *where, const char *more);

    const char *wanted_ = nullptr;  // never the default variant
    bool fallback_allowed_ = false;
    const char *fallback_variant_ = nullptr;
    const vri *best_ = nullptr;
    int best_index_ = -1;
};

version_choice::version_choice(const char *name, const char *variant) {
    if (!variant) {
        fallback_allowed_ = true;
        log_debug("vrm_findone: Checking for %s (no variant specified).", name);
    } else if (means_default_variant(variant)) {
        log_debug("vrm_findone: Checking for %s (default variant specified).", name);
    } else {
        wanted_ = variant;
        log_debug("vrm_findone: Checking for %s (%s variant specified).", name, variant);
    }
}

void version_choice::look_for_first(const vri *record, int index) {
    const bool is_default = !record->variant;
    if (wanted_ && !is_default && strcmp(record->variant, wanted_) == 0) {
        log_debug("vrm_findone: Initiallly selecting %s variant for %s", wanted_,
                  version_id(record).text);
        select(record, index);
    } else if (!wanted_ && is_default) {
        log_debug("vrm_findone: Initiallly selecting default variant for %s",
                  version_id(record).text);
        select(record, index);
        fallback_allowed_ = false;
    } else if (!wanted_ && fallback_allowed_) {
        log_debug("vrm_findone: Initiallly selecting fallback variant %s for %s", record->variant,
                  version_id(record).text);
        select(record, index);
        fallback_variant_ = record->variant;
    } else {
        log_debug("vrm_findone: Initiallly skipping %s due to variant mismatch",
                  version_id(record).text);
    }
}

// The record and the best one are of the same variant; `where` and `more` name it for the log.
void version_choice::compare_versions(const vri *record, int index, const char *where,
                                      const char *more) {
    const int order = strverscmp(record->version, best_->version);
    if (order > 0) {
        // The new one first, against what the words say.
        log_debug("vrm_findone: Replacing %s with %s in the %s%s, as this is newer",
                  version_id(record).text, version_id(best_).text, where, more);
        select(record, index);
    } else {
        log_debug("vrm_findone: Keeping %s instead of %s in the %s%s, %s", version_id(best_).text,
                  version_id(record).text, where, more,
                  order == 0 ? "first is first" : "as this is older");
    }
}

void version_choice::compare_in_wanted(const vri *record, int index) {
    if (!record->variant) {
        log_debug(
            "vrm_findone: Skipping %s of default variant, as %s was in the relevant %s "
            "variant",
            version_id(record).text, version_id(best_).text, wanted_);
    } else if (strcmp(record->variant, best_->variant) != 0) {
        log_debug("vrm_findone: Skipping %s of %s variant, as %s was in the relevant %s variant",
                  version_id(record).text, record->variant, version_id(best_).text, wanted_);
    } else {
        compare_versions(record, index, wanted_, " variant");
    }
}

void version_choice::compare_in_default(const vri *record, int index) {
    if (!fallback_variant_) {
        compare_versions(record, index, "default variant", "");
        return;
    }
    log_debug("vrm_findone: Default variant found: %s, overriding fallback variant %s: %s",
              version_id(record).text, fallback_variant_, version_id(best_).text);
    select(record, index);
    fallback_allowed_ = false;
    fallback_variant_ = nullptr;
}

void version_choice::compare_in_fallback(const vri *record, int index) {
    if (!fallback_allowed_) {
        log_debug(
            "vrm_findone: Keeping %s instead of %s of variant %s, no fallback allowed "
            "(anymore)",
            version_id(best_).text, version_id(record).text, record->variant);
    } else if (!best_->variant) {
        // A default record ends the fallback, so that this is only a safeguard.
        log_debug(
            "vrm_findone: Skipping %s of %s variant, as %s was the relevant default "
            "variant",
            version_id(record).text, record->variant, version_id(best_).text);
    } else if (strcmp(record->variant, best_->variant) != 0) {
        log_debug(
            "vrm_findone: Skipping both %s and %s and set no fallback allowed, as only one "
            "fallback can exist",
            version_id(best_).text, version_id(record).text);
        // Other than the line says a fallback stays allowed, and its variant stays noted.
        select(nullptr, -1);
    } else {
        compare_versions(record, index, "fallback variant ", record->variant);
    }
}

}  // namespace

int vrm_findone(const char *name, const char *variant, vri *const *list) {
    return guarded(-1, [&] {
        if (!name) {
            return -1;
        }
        version_choice choice(name, variant);
        for (int i = 0; list && list[i]; ++i) {
            if (list[i]->name && strcmp(list[i]->name, name) == 0) {
                choice.look_at(list[i], i);
            }
        }
        return choice.best_index();
    });
}

namespace {

// The newest record for each hit of a search, as vrm_findone would choose it from all hits for the
// hit's own name and variant. Hits of other names have no part in that, and for a variant that is
// asked for neither have those of other variants: each group is gone through once.
class newest_hits {
 public:
    explicit newest_hits(vri *const *hits);
    // The index of the newest hit for this one, -1 for none.
    int newest_for(const vri *hit);

 private:
    struct hit_group {
        std::vector<vri *> hits;  // ends with a null
        std::vector<int> indices;
        std::optional<int> newest;
    };
    static void add(hit_group *group, vri *hit, int index) {
        group->hits.back() = hit;
        group->hits.push_back(nullptr);
        group->indices.push_back(index);
    }
    static int choose(const hit_group &group, const vri *hit) {
        const int found = vrm_findone(hit->name, hit->variant, group.hits.data());
        return found < 0 ? -1 : group.indices[static_cast<size_t>(found)];
    }

    std::unordered_map<std::string_view, hit_group> by_name_;
    std::map<std::pair<std::string_view, std::string_view>, hit_group> by_variant_;
};

newest_hits::newest_hits(vri *const *hits) {
    for (int i = 0; hits[i]; ++i) {
        const auto add_to = [&](hit_group *group) {
            if (group->hits.empty()) {
                group->hits.push_back(nullptr);
            }
            add(group, hits[i], i);
        };
        add_to(&by_name_[hits[i]->name]);
        if (hits[i]->variant) {
            add_to(&by_variant_[{hits[i]->name, hits[i]->variant}]);
        }
    }
}

int newest_hits::newest_for(const vri *hit) {
    hit_group &same_name = by_name_[hit->name];
    if (log_wants(LEVEL_DEBUG)) {
        return choose(same_name, hit);  // each hit has lines of its own
    }
    hit_group &own = hit->variant ? by_variant_[{hit->name, hit->variant}] : same_name;
    if (!own.newest) {
        // A variant that is spelled "default" asks for records without one.
        const bool in_own = hit->variant && !means_default_variant(hit->variant);
        own.newest = choose(in_own ? own : same_name, hit);
    }
    return *own.newest;
}

// Whether the i-th hit is the newest version that the search found.
bool is_newest(newest_hits *choices, vri *const *hits, int i) {
    const vri *const hit = hits[i];
    const int newest = choices->newest_for(hit);
    if (newest == i) {
        log_debug("vrm_findpkg_new: %s not installed and %s is the newest version, copying",
                  hit->name, version_id(hit).text);
        return true;
    }
    log_debug(
        "vrm_findpkg_new: %s not installed, but %s is older than the newest version %s, "
        "skipping",
        hit->name, version_id(hit).text, newest < 0 ? "-" : version_id(hits[newest]).text);
    return false;
}

// A record as its copy would be: without what vrk_info_copy leaves out.
vri *as_copy(vri *hit) {
    ekva_free(std::exchange(hit->ekva, nullptr));
    if (hit->rsa_sig_len < 1) {
        free(std::exchange(hit->rsa_sig_data, nullptr));
    }
    return hit;
}

}  // namespace

int vrm_findpkg_new(vrm_handle *handle, void *connection, const char *name, const char *variant,
                    s_ekva **filter, int newest, vri ***out) {
    return guarded(0, [&] {
        vri **found = nullptr;
        const int count = vrm_findpkg(connection, name, variant, nullptr, 5, filter, &found);
        const own_vri_list hits(found);
        if (count < 1 || !hits) {
            return count < 1 ? count : 0;
        }

        const own_array names(vrm_list_arr(handle, 0));
        std::unordered_set<std::string_view> installed;
        for (size_t i = 0; names && names.get()[i]; ++i) {
            installed.insert(names.get()[i]);
        }
        log_debug("vrm_findpkg_new: %04d entries found in catalogue", count);

        size_t room = 1;
        while (hits.get()[room - 1]) {
            ++room;
        }
        own_vri_list copies(static_cast<vri **>(calloc(room, sizeof(vri *))));
        if (!copies) {
            return 0;
        }
        std::optional<newest_hits> choices;
        if (newest) {
            choices.emplace(hits.get());
        }
        std::vector<bool> chosen(room - 1);
        for (int i = 0; hits.get()[i]; ++i) {
            const vri *const hit = hits.get()[i];
            if (installed.count(hit->name) > 0) {
                log_debug("vrm_findpkg_new: %s already installed, skipping", hit->name);
                continue;
            }
            if (!choices) {
                log_debug("vrm_findpkg_new: %s not installed, copying", hit->name);
            } else if (!is_newest(&*choices, hits.get(), i)) {
                continue;
            }
            chosen[static_cast<size_t>(i)] = true;
        }

        // The hits are ours and end here anyway: what is chosen is handed over as it is, not copied
        // once more, and what is left is closed up to be freed.
        int copied = 0;
        size_t left = 0;
        for (size_t i = 0; i + 1 < room; ++i) {
            vri *const hit = std::exchange(hits.get()[i], nullptr);
            if (chosen[i]) {
                copies.get()[copied++] = as_copy(hit);
            } else {
                hits.get()[left++] = hit;
            }
        }
        *out = copies.release();
        return copied;
    });
}

vri *vrm_findone_vrc(vrm_handle *, const char *name, const char *variant, const char *version,
                     void *connection) {
    vri **found = nullptr;
    const int count = vrm_findpkg(connection, name, variant, version, 5, nullptr, &found);
    const own_vri_list hits(found);
    log_debug("Number of packages returned for %s: %d", name, count);
    if (!hits) {
        return nullptr;
    }
    const int chosen = vrm_findone(name, variant, hits.get());
    if (chosen < 0) {
        return nullptr;
    }
    // The rest of the list closes up, so that it can be freed as a list.
    vri *const best = hits.get()[chosen];
    for (vri **at = hits.get() + chosen; *at; ++at) {
        at[0] = at[1];
    }
    return best;
}
