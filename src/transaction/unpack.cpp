#include "transaction/unpack.h"

#include <fnmatch.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <unordered_set>
#include <utility>

#include "package/hashlist.h"
#include "package/signed_record.h"
#include "package/vrf.h"
#include "support/array.h"
#include "support/boundary.h"
#include "support/event.h"
#include "support/growing_list.h"
#include "support/log.h"
#include "transaction/change.h"

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
    log_debug("vrm_chk_sub_files: checking real file <%s>", path);
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
    log_debug("vrm_chk_sub_files: verify of %s%s succeeded: hash %s matches", sub, path, hash);
    return true;
}

}  // namespace

// As vrm_chk_sub_files, without a second reading of the files whose digests are known.
static int prove_fork(const char *stage, const char *sub, const file_digests *known, char ***list) {
    return guarded(-1, [&] {
        s_ekva **found = nullptr;
        int rc = hash_fork(stage, sub, known, &found);
        const own_ekva real(found);
        if (rc != 0) {
            report({.kind = event_kind::fork_not_hashed, .other = sub});
            return rc;
        }
        if (!real || !real.get()[0] || !real.get()[1]) {
            log_debug("vrm_chk_sub_files: No files were found in %s", sub);
            return 0;
        }

        s_ekva **read = nullptr;
        rc = vrm_vrf_vrk_hashes(stage, sub, &read);
        const own_ekva read_owner(read);
        if (rc != 0 || !read) {
            report({.kind = event_kind::fork_without_list, .other = sub});
            return rc != 0 ? rc : -1;
        }

        const listed_files listed(read);
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
            log_debug("vrm_chk_sub_files: verify of all files in %s failed. %d errors found", sub,
                      errors);
            *list = nullptr;
            return errors;
        }
        log_debug("vrm_chk_sub_files: verify of %d files in %s succeeded", paths.count(), sub);
        *list = paths.release();
        return 0;
    });
}

int vrm_chk_sub_files(const char *stage, const char *sub, char ***list) {
    return prove_fork(stage, sub, nullptr, list);
}

static constexpr struct {
    const char *name;
    own_array package_forks::*files;
} forks_in_order[] = {{"data", &package_forks::data},
                      {"info", &package_forks::info},
                      {"init", &package_forks::init},
                      {"conf", &package_forks::conf},
                      {"dump", &package_forks::dump}};

// As vrm_chk_all_files.
static int prove_forks(const char *stage, const file_digests *known, package_forks *proven) {
    for (const auto &fork : forks_in_order) {
        log_debug("vrm_chk_all_files: checking %s files in %s", fork.name, stage);
        char **files = nullptr;
        const int rc = prove_fork(stage, fork.name, known, &files);
        (proven->*fork.files).reset(files);
        if (rc != 0) {
            report({.kind = event_kind::fork_not_proven, .path = stage, .other = fork.name});
            *proven = {};
            return rc;
        }
    }
    return 0;
}

int vrm_chk_all_files(const char *stage, char ***data, char ***info, char ***init, char ***conf,
                      char ***dump) {
    package_forks forks;
    const int rc = prove_forks(stage, nullptr, &forks);
    *data = forks.data.release();
    *info = forks.info.release();
    *init = forks.init.release();
    *conf = forks.conf.release();
    *dump = forks.dump.release();
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

// The record of the signed description. It bears the signature that the payload was verified with,
// whatever the description says of one.
static own_vri signed_record_of(const change &change, std::string *why) {
    static constexpr char ours[] = "its signed description";
    own_vri record = read_signed_record(change.stage.fresh, why);
    if (!record) {
        return nullptr;
    }
    vri *head = change.file_head.get();
    // Unlisted it would have failed the verification: it came between that and now.
    *why = !fork_has(change.forks.info, signed_description_file)
               ? "its signed description is not in its list of info files"
               : difference_in_words("its head", head, ours, record.get());
    if (why->empty()) {
        *why = plan_difference(change.transaction, change.new_package, record.get());
    }
    if (!why->empty()) {
        return nullptr;
    }
    std::swap(record->rsa_sig_subj, head->rsa_sig_subj);
    std::swap(record->rsa_sig_data, head->rsa_sig_data);
    std::swap(record->rsa_sig_len, head->rsa_sig_len);
    record->sig_status = head->sig_status;
    return record;
}

// ---- The stage ----

static int extract(change *change) {
    const stage_paths &stage = change->stage;
    const char *who = change->by->who;
    change->has_stage = make_stage_directory(who, change->handle, stage, {stage.fresh, stage.old});
    if (!change->has_stage) {
        return -1;
    }
    // What an earlier attempt unpacked must not vouch for a payload that brings no description.
    unlink((stage.fresh + "/" + signed_description_path).c_str());
    log_debug("%s: Will unpack %s to %s", who, stage.file.c_str(), stage.fresh.c_str());
    if (change->verbose) {
        report({.kind = event_kind::unpacking, .package = stage.puname});
    }
    vri *head = nullptr;
    const int rc = extract_and_digest(change->handle, stage.file.c_str(), stage.fresh.c_str(), 1,
                                      &head, &change->unpacked);
    change->file_head.reset(head);
    if (rc != 0) {
        report({.kind = event_kind::unpacking_failed,
                .who = who,
                .path = stage.file,
                .other = stage.fresh});
    }
    return rc;
}

static int verify(change *change) {
    if (change->verbose) {
        report({.kind = event_kind::verifying, .package = change->stage.puname});
    }
    const int rc = prove_forks(change->stage.fresh.c_str(), &change->unpacked, &change->forks);
    if (rc != 0) {
        report({.kind = change->by->added.not_proven,
                .package = change->new_package->name,
                .path = change->stage.fresh});
    }
    return rc;
}

static bool believe_signed_record(change *change) {
    std::string why;
    change->signed_record = signed_record_of(*change, &why);
    if (!change->signed_record) {
        report({.kind = event_kind::package_not_believed,
                .who = change->by->who,
                .package = change->stage.puname,
                .path = file_name_of(change->new_package),
                .other = why});
        return false;
    }
    change->new_package = change->signed_record.get();
    return true;
}

// The files of the old version are those of its record's name, and they are taken away. A damaged
// entry of the inventory may have another name than its record.
static bool has_one_name(const change &change) {
    const char *name = change.package()->name;
    const char *old_name = change.old_package ? change.old_package->name : name;
    const bool same = strcmp(name, old_name) == 0;
    if (!same) {
        report({.kind = event_kind::entry_of_another, .package = name, .other = old_name});
    }
    return same;
}

int unpack(change *change) {
    int rc = extract(change);
    if (rc == 0) {
        rc = verify(change);
    }
    if (rc == 0 && !(believe_signed_record(change) && has_one_name(*change))) {
        rc = -1;
    }
    return rc;
}
