#include "transaction/conflicts.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "repository/inventory.h"
#include "repository/owner_lookup.h"
#include "repository/saved_files.h"
#include "support/absent_directories.h"
#include "support/array.h"
#include "support/boundary.h"
#include "support/event.h"
#include "support/file.h"
#include "support/log.h"
#include "support/own.h"
#include "transaction/change.h"
#include "transaction/journal.h"
#include "ui/vrmui.h"

// ---- Files in the way ----

const char *const vrm_insert_choices =
    "l=leave existing file,L=Leave all existing files,r=replace existing file,"
    "R=Replace all existing files,a=abort installation";

namespace {

std::unordered_set<std::string_view> set_of(char *const *paths) {
    std::unordered_set<std::string_view> all;
    for (; paths && *paths; paths++) {
        all.insert(*paths);
    }
    return all;
}

// What becomes of one path.
enum class verdict { write, leave, abort };

// The words of the two functions that decide about files in the way.
struct insert_words {
    const char *who;
    event_kind owned_by_another, aborted_by_user;
    const char *free, *of_old_version;  // of DEBUG lines; null for none
    bool reports_answers;               // of the user; they are DEBUG lines otherwise
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
        : words_(words), owners_(handle), old_files_(set_of(old_files)) {}

    verdict decide(const char *path) {
        log_debug("%s: Checking for local existence of %s", words_.who, path);
        if (absent_.hold(path) || is_missing(path)) {
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
            log_debug("%s: %s %s", words_.who, path, what);
        }
    }

    verdict ask(const char *path) {
        switch (sticky_ ? sticky_ : answer_of_user(path)) {
            case 'r':
                note(path, event_kind::file_will_be_replaced, "will overwrite");
                return verdict::write;
            case 'l':
                note(path, event_kind::file_will_stay, "skipping");
                return verdict::leave;
            default:
                report({.kind = words_.aborted_by_user});
                return verdict::abort;
        }
    }

    // Reports an answer.
    void note(const char *path, event_kind kind, const char *what) const {
        if (words_.reports_answers) {
            report({.kind = kind, .path = path});
        } else {
            say(path,
                (std::string("is on disk, but does not belong to any package, ") + what).c_str());
        }
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
    absent_directories absent_;
    own_ekva choices_;
    char sticky_ = '\0';
};

}  // namespace

using path_list = std::vector<const char *>;

// Chooses the files that may be written. False when the change must not go on.
static bool choose_written(file_judge *judge, char *const *files, path_list *written) {
    for (; files && *files; files++) {
        const verdict chosen = judge->decide(*files);
        if (chosen == verdict::abort) {
            return false;
        }
        if (chosen == verdict::write) {
            written->push_back(*files);
        }
    }
    return true;
}

// A new array of what was chosen from one, null for none.
static own_array array_of(const path_list &chosen, char *const *source) {
    // Callers may add to it: there is room for all of the source and one more.
    const size_t room = static_cast<size_t>(arr_count(source)) + 2;
    own_array array(source ? static_cast<char **>(calloc(room, sizeof(char *))) : nullptr);
    for (size_t i = 0; array && i < chosen.size(); i++) {
        array.get()[i] = strdup(chosen[i]);
        if (!array.get()[i]) {
            array = nullptr;
        }
    }
    if (source && !array) {
        throw std::bad_alloc();
    }
    return array;
}

int vrm_chk_local_insert(vrm_handle *handle, char *const *files, char ***out) {
    return guarded(-1, [&] {
        *out = nullptr;
        path_list written;
        file_judge judge(handle, of_install, nullptr);
        if (!choose_written(&judge, files, &written)) {
            return -1;
        }
        *out = array_of(written, files).release();
        return 0;
    });
}

int vrm_chk_local_update(vrm_handle *handle, char *const *old_files, char *const *new_files,
                         char ***del_files, char ***add_files) {
    return guarded(-1, [&] {
        *del_files = *add_files = nullptr;
        path_list gone, written;
        file_judge judge(handle, of_update, old_files);
        if (!choose_written(&judge, new_files, &written)) {
            return -1;
        }
        const std::unordered_set<std::string_view> wanted = set_of(new_files);
        for (char *const *path = old_files; path && *path; path++) {
            if (!wanted.contains(*path) && !is_missing(*path)) {
                log_debug("%s: %s is not in new files, adding it to del_files", of_update.who,
                          *path);
                gone.push_back(*path);
            }
        }
        own_array taken = array_of(gone, old_files);
        *add_files = array_of(written, new_files).release();
        *del_files = taken.release();
        return 0;
    });
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

static std::vector<std::string> unowned_files(const change &change) {
    const std::unordered_set<std::string_view> owned = set_of(change.old_files.get());
    std::vector<std::string> found;
    std::unordered_set<std::string_view> known;
    absent_directories absent;
    for (char *const *file = change.written.get(); file && *file; file++) {
        if (!owned.contains(*file) && !absent.hold(*file) && can_be_lost(*file)) {
            found.emplace_back(*file);
            known.insert(*file);
        }
    }
    for (const std::string &place : change.links.unowned) {
        if (!known.contains(place)) {
            found.push_back(place);
        }
    }
    return found;
}

static bool keep_replaced_files(change *change) {
    const std::vector<std::string> files = unowned_files(*change);
    saved_change copies(change->handle, change->stage.puname);
    bool kept = files.empty() ||
                (copies.begin(files.front()) && note_saved_set(*change, copies.directory()) == 0);
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
        change->notes.kept.emplace_back(file, copies.copy_of(file));
    }
    return true;
}

// ---- The stages ----

int read_old_side(change *change) {
    if (!change->new_package) {
        return find_shared_links(*change, &change->shared_links) ? 0 : -1;
    }
    // Without the list the files of the old version would stay and belong to nobody.
    change->old_files.reset(vrm_vrl_file_list(change->handle, change->old_package));
    if (!change->old_files && errno != 0) {
        report({.kind = event_kind::file_not_read, .path = change->places.index, .error = errno});
        return -1;
    }
    return find_changed_kinds(change) ? 0 : -1;
}

static int settle_files(change *change) {
    char **taken = nullptr, **written = nullptr;
    char *const *files = change->forks.data.get();
    const int rc =
        change->old_package
            ? vrm_chk_local_update(change->handle, change->old_files.get(), files, &taken, &written)
            : vrm_chk_local_insert(change->handle, files, &written);
    change->taken.reset(taken);
    change->written.reset(written);
    return rc;
}

int settle_conflicts(change *change) {
    if (!settle_links(*change, &change->links)) {
        return -1;
    }
    if (const int rc = settle_files(change)) {
        report({.kind = change->by->added.conflicts, .status = rc});
        return -1;
    }
    if (!keep_replaced_files(change)) {
        return -1;
    }
    note_absent_places(change);
    if (change->verbose) {
        report({.kind = change->by->added.begun, .package = change->stage.puname});
    }
    return 0;
}
