#include "transaction/unpack.h"

#include <fnmatch.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <new>
#include <unordered_set>

#include "package/hashlist.h"
#include "package/signed_record.h"
#include "support/array.h"
#include "support/event.h"
#include "support/growing_list.h"
#include "support/log.h"

// ---- The payload against its hash lists ----

int have_so = 0;

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

int verify_forks(const std::string &stage, package_forks *forks) {
    char **data = nullptr, **info = nullptr, **init = nullptr, **conf = nullptr, **dump = nullptr;
    const int rc = vrm_chk_all_files(stage.c_str(), &data, &info, &init, &conf, &dump);
    if (rc == 0) {
        forks->data.reset(data);
        forks->info.reset(info);
        forks->init.reset(init);
        forks->conf.reset(conf);
        forks->dump.reset(dump);
    }
    return rc;
}

bool fork_has(const own_array &fork, const char *path) {
    return in_array(fork.get(), path) != 0;
}

// ---- The plan against the signed description ----

std::string file_name_of(const vri *package) {
    const char *uri = package->relative_uri;
    const std::string path = uri ? uri : "";
    const std::string name = path.substr(path.rfind('/') + 1);
    const bool fit = !name.empty() && std::none_of(name.begin(), name.end(), [](unsigned char c) {
        return c < 0x20 || c == 0x7f;
    });
    return fit ? name : std::string(vrk_puname(package)) + ".vrk";
}

// Where the plan has the record from: `R` is the catalogue.
static char source_of(const vrt *plan, const vri *package) {
    if (plan->info == package) {
        return plan->source;
    }
    for (int32_t i = 0; plan->deps && i < plan->num_deps; i++) {
        if (plan->deps[i]->info == package) {
            return plan->deps[i]->status;
        }
    }
    return 'L';
}

std::string plan_difference(const vrt *plan, const vri *package, const vri *signed_record) {
    const bool is_catalogues = source_of(plan, package) == 'R';
    vri planned = *package;
    if (is_catalogues && !planned.creator) {
        planned.creator = signed_record->creator;
    }
    if (is_catalogues && planned.datasize == 0) {
        planned.datasize = signed_record->datasize;
    }
    return difference_in_words(is_catalogues ? "the catalogue" : "the plan", &planned,
                               "its signed description", signed_record);
}
