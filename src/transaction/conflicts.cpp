#include "transaction/conflicts.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <unordered_set>

#include "repository/owner_lookup.h"
#include "repository/saved_files.h"
#include "support/array.h"
#include "support/event.h"
#include "support/file.h"
#include "support/log.h"
#include "support/own.h"
#include "transaction/link_conflicts.h"
#include "transaction/package_change.h"
#include "ui/vrmui.h"

// ---- Files in the way ----

const char *const vrm_insert_choices =
    "l=leave existing file,L=Leave all existing files,r=replace existing file,"
    "R=Replace all existing files,a=abort installation";

namespace {

// What becomes of one path.
enum class verdict { write, leave, abort };

// The words of the two functions that decide about files in the way. A kind or a text that one of
// them does not have is `none` or null.
struct insert_words {
    const char *who;
    event_kind owned_by_another, aborted_by_user;
    // DEBUG lines after the path.
    const char *free, *of_old_version;
    // What is reported of the user's answers: events, or DEBUG lines.
    bool reports_answers;
};

constexpr insert_words of_install = {
    .who = "vrm_chk_local_insert",
    .owned_by_another = event_kind::file_owned_by_another,
    .aborted_by_user = event_kind::install_aborted_by_user,
    .free = nullptr,
    .of_old_version = nullptr,
    .reports_answers = true,
};

constexpr insert_words of_update = {
    .who = "vrm_chk_local_update",
    .owned_by_another = event_kind::update_file_owned_by_another,
    .aborted_by_user = event_kind::update_aborted_by_user,
    .free = "is not on disk, adding it to add_files",
    .of_old_version = "is on disk and belongs to the old package, adding it to add_files",
    .reports_answers = false,
};

// Decides about the data files of one package, for which an answer for all files lasts.
class file_judge {
 public:
    file_judge(vrm_handle *handle, const insert_words &words, char *const *old_files)
        : words_(words), owners_(handle) {
        for (; old_files && *old_files; old_files++) {
            old_files_.insert(*old_files);
        }
    }

    verdict decide(const char *path) {
        if (log_wants(LEVEL_DEBUG)) {
            log_say(LEVEL_DEBUG, "%s: Checking for local existence of %s", words_.who, path);
        }
        if (is_missing(path)) {
            say(path, words_.free);
            return verdict::write;
        }
        if (old_files_.contains(path)) {
            say(path, words_.of_old_version);
            return verdict::write;
        }
        if (const own_string owner = owners_.owner(path)) {
            report({.kind = words_.owned_by_another, .package = owner.get(), .path = path});
            return verdict::abort;
        }
        return ask(path);
    }

 private:
    void say(const char *path, const char *what) const {
        if (what && log_wants(LEVEL_DEBUG)) {
            log_say(LEVEL_DEBUG, "%s: %s %s", words_.who, path, what);
        }
    }

    verdict ask(const char *path) {
        const char answer = sticky_ ? sticky_ : answer_of_user(path);
        if (answer == 'r') {
            if (words_.reports_answers) {
                report({.kind = event_kind::file_will_be_replaced, .path = path});
            } else {
                say(path, "is on disk, but does not belong to any package, will overwrite");
            }
            return verdict::write;
        }
        if (answer == 'l') {
            if (words_.reports_answers) {
                report({.kind = event_kind::file_will_stay, .path = path});
            } else {
                say(path, "is on disk, but does not belong to any package, skipping");
            }
            return verdict::leave;
        }
        report({.kind = words_.aborted_by_user});
        return verdict::abort;
    }

    // 'l' leaves the file, 'r' replaces it, 'a' aborts.
    char answer_of_user(const char *path) {
        if (!choices_) {
            choices_.reset(str2ekva(vrm_insert_choices, ','));
        }
        const std::string question = std::string("The file ") + path +
                                     " already exists on the filesystem. Choose your action";
        const char *answer = vrmui_select(vrmui, question.c_str(), choices_.get(), "r", 0);
        switch (answer ? answer[0] : '\0') {
            case 'l':
            case 'r':
                return answer[0];
            case 'L':
                return sticky_ = 'l';
            case 'R':
                return sticky_ = 'r';
            default:
                return 'a';
        }
    }

    const insert_words &words_;
    owner_lookup owners_;
    std::unordered_set<std::string_view> old_files_;
    own_ekva choices_;
    char sticky_ = '\0';
};

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

}  // namespace

// Adds the files that may be written. False when the change must not go on.
static bool choose_written(file_judge *judge, char *const *files, path_array *written) {
    for (; files && *files; files++) {
        switch (judge->decide(*files)) {
            case verdict::write:
                written->add(*files);
                break;
            case verdict::leave:
                break;
            case verdict::abort:
                return false;
        }
    }
    return true;
}

int vrm_chk_local_insert(vrm_handle *handle, char *const *files, char ***out) try {
    *out = nullptr;
    path_array written(files);
    file_judge judge(handle, of_install, nullptr);
    if (!choose_written(&judge, files, &written)) {
        return -1;
    }
    *out = written.release();
    return 0;
} catch (const std::bad_alloc &) {
    return -1;
}

int vrm_chk_local_update(vrm_handle *handle, char *const *old_files, char *const *new_files,
                         char ***del_files, char ***add_files) try {
    *del_files = *add_files = nullptr;
    path_array gone(old_files), written(new_files);
    file_judge judge(handle, of_update, old_files);
    if (!choose_written(&judge, new_files, &written)) {
        return -1;
    }
    std::unordered_set<std::string_view> wanted;
    for (char *const *path = new_files; path && *path; path++) {
        wanted.insert(*path);
    }
    for (char *const *path = old_files; path && *path; path++) {
        if (!wanted.contains(*path) && !is_missing(*path)) {
            if (log_wants(LEVEL_DEBUG)) {
                log_say(LEVEL_DEBUG, "%s: %s is not in new files, adding it to del_files",
                        of_update.who, *path);
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

// ---- Copies of what belongs to no package ----

// Whether there is something that could be lost: only files and links are ever replaced. What can't
// be looked at is not passed over: it can't be kept.
static bool can_be_lost(const char *path) {
    struct stat status;
    if (lstat(path, &status) != 0) {
        return errno != ENOENT && errno != ENOTDIR;
    }
    return S_ISREG(status.st_mode) || S_ISLNK(status.st_mode);
}

static std::vector<std::string> unowned_files(char *const *written, char *const *old_files,
                                              const settled_links &links) {
    std::unordered_set<std::string_view> owned;
    for (; old_files && *old_files; old_files++) {
        owned.insert(*old_files);
    }
    std::vector<std::string> found;
    std::unordered_set<std::string_view> known;
    for (; written && *written; written++) {
        if (!owned.contains(*written) && can_be_lost(*written)) {
            found.emplace_back(*written);
            known.insert(*written);
        }
    }
    for (const std::string &place : links.unowned) {
        if (!known.contains(place)) {
            found.push_back(place);
        }
    }
    return found;
}

bool keep_replaced_files(const package_change &change, char *const *written, char *const *old_files,
                         const settled_links &links,
                         std::vector<std::pair<std::string, std::string>> *kept_files) {
    const std::vector<std::string> files = unowned_files(written, old_files, links);
    saved_change copies(change.handle, change.stage.puname);
    bool kept = true;
    for (auto file = files.begin(); kept && file != files.end(); ++file) {
        kept = copies.keep(*file);
    }
    if (!kept || !copies.sync()) {
        copies.discard();
        return false;
    }
    for (const std::string &file : files) {
        report(
            {.kind = event_kind::replaced_file_kept, .path = file, .other = copies.copy_of(file)});
        kept_files->emplace_back(file, copies.copy_of(file));
    }
    return true;
}
