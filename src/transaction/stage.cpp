#include "transaction/stage.h"

#include <fnmatch.h>
#include <limits.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <unordered_set>

#include "package/backup_journal.h"
#include "package/hashlist.h"
#include "repository/owner_lookup.h"
#include "support/event.h"
#include "support/file.h"
#include "support/growing_list.h"
#include "support/log.h"
#include "support/own.h"
#include "transaction/conflict_answers.h"

int have_so = 0;

const char *const vrm_insert_choices =
    "l=leave existing file,L=Leave all existing files,r=replace existing file,"
    "R=Replace all existing files,a=abort installation";

namespace {

using path_list = growing_list<char, arr_free>;
constexpr int room_for_paths = 20;

bool add_path(path_list &list, const char *path) {
    own_string copy(strdup(path));
    if (!copy || !list.add(copy.get())) {
        return false;
    }
    copy.release();
    return true;
}

// A package's list of one fork, by hash and by hash with path: a package may hold thousands of
// files, and thousands of the same content.
class listed_files {
 public:
    explicit listed_files(s_ekva *const *rec) {
        for (int i = 1; rec[i]; i++) {
            const std::string hash = plain(rec[i]->key);
            hashes_.insert(hash);
            files_.insert(hash + (rec[i]->val ? rec[i]->val : ""));
        }
    }
    bool has_hash(const char *hash) const {
        return hashes_.contains(plain(hash));
    }
    bool has_file(const char *hash, const char *path) const {
        return files_.contains(plain(hash) + path);
    }

 private:
    // Keys of a record ignore case, and a list may well be written in capitals.
    static std::string plain(const char *hash) {
        std::string text = hash;
        for (char &c : text) {
            c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
        }
        return text;
    }
    std::unordered_set<std::string> hashes_;
    std::unordered_set<std::string> files_;
};

// Whether the list has this file with this content.
bool verify_file(const listed_files &listed, const char *sub, const char *hash, const char *path) {
    if (log_wants(LEVEL_DEBUG)) {
        log_say(LEVEL_DEBUG, "vrm_chk_sub_files: checking real file <%s>", path);
    }
    if (!have_so && fnmatch("*.so.*", path, 0) == 0) {
        have_so = 1;
    }
    if (!listed.has_hash(hash)) {
        report({.kind = event_kind::listed_content_differs, .path = path, .other = sub});
        return false;
    }
    if (!listed.has_file(hash, path)) {
        report({.kind = event_kind::file_not_listed, .path = path, .other = sub});
        return false;
    }
    if (log_wants(LEVEL_DEBUG)) {
        log_say(LEVEL_DEBUG, "vrm_chk_sub_files: verify of %s%s succeeded: hash %s matches", sub,
                path, hash);
    }
    return true;
}

}  // namespace

int vrm_chk_sub_files(const char *stage, const char *sub, char ***list) try {
    const std::string fork = std::string(stage) + "/" + sub;
    char *relative = nullptr;
    s_ekva **found = nullptr;
    int rc = vrm_vrf_hash_files(fork.c_str(), &relative, &found);
    const own_string relative_owner(relative);
    const own_ekva real(found);
    if (rc != 0) {
        report({.kind = event_kind::fork_not_hashed, .other = sub});
        return rc;
    }
    if (!real || !real.get()[0] || !real.get()[1]) {
        log_say(LEVEL_DEBUG, "vrm_chk_sub_files: No files were found in %s", sub);
        return 0;
    }

    s_ekva **told = nullptr;
    rc = vrm_vrf_vrk_hashes(stage, sub, &told);
    const own_ekva told_owner(told);
    if (rc != 0 || !told) {
        report({.kind = event_kind::fork_without_list, .other = sub});
        return rc != 0 ? rc : -1;
    }

    const listed_files listed(told);
    path_list paths(room_for_paths);
    int errors = 0;
    for (s_ekva *const *file = real.get() + 1; *file; file++) {
        if (!verify_file(listed, sub, (*file)->key, (*file)->val)) {
            errors++;
        } else if (errors == 0 && !add_path(paths, (*file)->val)) {
            return -1;
        }
    }
    if (errors > 0) {
        log_say(LEVEL_DEBUG, "vrm_chk_sub_files: verify of all files in %s failed. %d errors found",
                sub, errors);
        *list = nullptr;
        return errors;
    }
    log_say(LEVEL_DEBUG, "vrm_chk_sub_files: verify of %d files in %s succeeded", paths.count(),
            sub);
    *list = paths.release();
    return 0;
} catch (const std::bad_alloc &) {
    return -1;
}

int vrm_chk_all_files(const char *stage, char ***data, char ***info, char ***init, char ***conf,
                      char ***dump) {
    const struct {
        const char *sub;
        char ***list;
    } forks[] = {{"data", data}, {"info", info}, {"init", init}, {"conf", conf}, {"dump", dump}};
    for (const auto &fork : forks) {
        log_say(LEVEL_DEBUG, "vrm_chk_all_files: checking %s files in %s", fork.sub, stage);
        const int rc = vrm_chk_sub_files(stage, fork.sub, fork.list);
        if (rc == 0) {
            continue;
        }
        report({.kind = event_kind::fork_not_proven, .path = stage, .other = fork.sub});
        for (const auto &made : forks) {
            arr_free(*made.list);
            *made.list = nullptr;
        }
        return rc;
    }
    return 0;
}

namespace {

// What becomes of one path.
enum class verdict { write, leave, abort };

verdict decide(owner_lookup &owners, conflict_answers &answers, const char *path) {
    if (log_wants(LEVEL_DEBUG)) {
        log_say(LEVEL_DEBUG, "vrm_chk_local_insert: Checking for local existence of %s", path);
    }
    if (is_missing(path)) {
        return verdict::write;
    }
    if (const own_string owner = owners.owner(path)) {
        report({.kind = event_kind::file_owned_by_another, .package = owner.get(), .path = path});
        return verdict::abort;
    }
    switch (answers.ask(path)) {
        case 'r':
            report({.kind = event_kind::file_will_be_replaced, .path = path});
            return verdict::write;
        case 'l':
            report({.kind = event_kind::file_will_stay, .path = path});
            return verdict::leave;
        default:
            report({.kind = event_kind::install_aborted_by_user});
            return verdict::abort;
    }
}

}  // namespace

int vrm_chk_local_insert(vrm_handle *handle, char *const *files, char ***out) try {
    *out = nullptr;
    if (!files) {
        return 0;
    }
    const size_t room = static_cast<size_t>(arr_count(files)) + 2;
    own_array writable(static_cast<char **>(calloc(room, sizeof(char *))));
    if (!writable) {
        return -1;
    }
    owner_lookup owners(handle);
    conflict_answers answers;
    char **next = writable.get();
    for (char *const *path = files; *path; path++) {
        switch (decide(owners, answers, *path)) {
            case verdict::write:
                if (!(*next++ = strdup(*path))) {
                    return -1;
                }
                break;
            case verdict::leave:
                break;
            case verdict::abort:
                return -1;
        }
    }
    *out = writable.release();
    return 0;
} catch (const std::bad_alloc &) {
    return -1;
}

// Copies one saved file back to its place.
static bool restore(const char *path, const char *old) {
    char backup[2001];
    snprintf(backup, sizeof backup, "%.1000s%.1000s", old, path);
    if (log_wants(LEVEL_DEBUG)) {
        log_say(LEVEL_DEBUG, "vrm_install_rollback: Found %s to restore", path);
        log_say(LEVEL_DEBUG, "vrm_install_rollback: Copying %s to %s", backup, path);
    }
    if (restore_backup(path, backup) != 0) {
        report({.kind = event_kind::not_restored, .path = path});
        return false;
    }
    return true;
}

int vrm_install_rollback(char *const *written, const char *old) {
    char path_of_index[PATH_MAX];
    snprintf(path_of_index, sizeof path_of_index, "%s/index.txt", old);
    for (char *const *path = written; path && *path; path++) {
        if (log_wants(LEVEL_DEBUG)) {
            log_say(LEVEL_DEBUG, "vrm_install_rollback: removing %s", *path);
        }
        unlink(*path);
    }
    const own_file index(fopen_regular(path_of_index));
    if (!index && errno == ENOENT) {
        report({.kind = event_kind::nothing_to_restore});
        return 0;
    }
    int rc = 0;
    char line[4096];
    while (index && fgets(line, sizeof line, index.get())) {
        line[strcspn(line, "\n")] = '\0';
        if (line[0] != '\0' && !restore(line, old)) {
            rc = -1;
        }
    }
    if (!index || ferror(index.get())) {
        report({.kind = event_kind::backup_list_not_read, .path = path_of_index});
        rc = -1;
    }
    report({.kind = event_kind::rollback_finished});
    return rc;
}
