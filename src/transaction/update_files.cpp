// Which files an update writes and which it takes away.
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <unordered_set>

#include "repository/owner_lookup.h"
#include "support/array.h"
#include "support/event.h"
#include "support/file.h"
#include "support/log.h"
#include "support/own.h"
#include "transaction/conflict_answers.h"
#include "transaction/update.h"

namespace {

// Appends copies to an array that was made with room for all of them.
class path_array {
 public:
    explicit path_array(char *const *source) {
        if (source) {
            array_.reset(static_cast<char **>(
                calloc(static_cast<size_t>(arr_count(source)) + 2, sizeof(char *))));
            if (!array_) {
                throw std::bad_alloc();
            }
            next_ = array_.get();
        }
    }
    void add(const char *path) {
        if (!(*next_ = strdup(path))) {
            throw std::bad_alloc();
        }
        next_++;
    }
    char **release() {
        return array_.release();
    }

 private:
    own_array array_;
    char **next_ = nullptr;
};

class path_set {
 public:
    explicit path_set(char *const *paths) {
        for (; paths && *paths; paths++) {
            paths_.insert(*paths);
        }
    }
    bool has(const char *path) const {
        return paths_.contains(path);
    }

 private:
    std::unordered_set<std::string_view> paths_;
};

enum class verdict { write, leave, abort };

}  // namespace

static constexpr char me[] = "vrm_chk_local_update";

// What becomes of a file that stands in the place of a new one and is none of the old package's.
static verdict settle(const char *path, owner_lookup *owners, conflict_answers *answers) {
    if (const own_string owner = owners->owner(path)) {
        report({.kind = event_kind::update_file_owned_by_another,
                .package = owner.get(),
                .path = path});
        return verdict::abort;
    }
    switch (answers->ask(path)) {
        case 'r':
            log_say(LEVEL_DEBUG,
                    "%s: %s is on disk, but does not belong to any package, will overwrite", me,
                    path);
            return verdict::write;
        case 'l':
            log_say(LEVEL_DEBUG, "%s: %s is on disk, but does not belong to any package, skipping",
                    me, path);
            return verdict::leave;
        default:
            report({.kind = event_kind::update_aborted_by_user});
            return verdict::abort;
    }
}

static verdict decide(const char *path, const path_set &old_files, owner_lookup *owners,
                      conflict_answers *answers) {
    const bool tell = log_wants(LEVEL_DEBUG);
    if (tell) {
        log_say(LEVEL_DEBUG, "%s: Checking for local existence of %s", me, path);
    }
    if (is_missing(path)) {
        if (tell) {
            log_say(LEVEL_DEBUG, "%s: %s is not on disk, adding it to add_files", me, path);
        }
        return verdict::write;
    }
    if (old_files.has(path)) {
        if (tell) {
            log_say(LEVEL_DEBUG,
                    "%s: %s is on disk and belongs to the old package, adding it to add_files", me,
                    path);
        }
        return verdict::write;
    }
    return settle(path, owners, answers);
}

int vrm_chk_local_update(vrm_handle *handle, char *const *old_files, char *const *new_files,
                         char ***del_files, char ***add_files) try {
    *del_files = *add_files = nullptr;
    path_array gone(old_files), written(new_files);
    const path_set old_paths(old_files), new_paths(new_files);

    owner_lookup owners(handle);
    conflict_answers answers;
    for (char *const *path = new_files; path && *path; path++) {
        switch (decide(*path, old_paths, &owners, &answers)) {
            case verdict::write:
                written.add(*path);
                break;
            case verdict::leave:
                break;
            case verdict::abort:
                return -1;
        }
    }
    const bool tell = log_wants(LEVEL_DEBUG);
    for (char *const *path = old_files; path && *path; path++) {
        if (!new_paths.has(*path) && !is_missing(*path)) {
            if (tell) {
                log_say(LEVEL_DEBUG, "%s: %s is not in new files, adding it to del_files", me,
                        *path);
            }
            gone.add(*path);
        }
    }
    *del_files = gone.release();
    *add_files = written.release();
    return 0;
} catch (const std::bad_alloc &) {
    return -1;
}
