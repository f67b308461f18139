#include "maintenance/hash_audit.h"

#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <unordered_set>

#include "maintenance/settled_findings.h"
#include "package/hashlist.h"
#include "package/vrs.h"
#include "repository/inventory.h"
#include "support/boundary.h"
#include "support/ekva.h"
#include "support/event.h"
#include "support/file.h"
#include "support/log.h"
#include "support/own.h"
#include "ui/vrmui.h"

namespace {

// In the order of the audit.
enum fork_place { dump_fork, init_fork, data_fork, conf_fork, number_of_forks };

struct fork_kind {
    const char *name;
    bool kept_in_entry;   // the file lies in the inventory's entry, not in the system
    bool edited;          // the one in the system is looked at as well, and may differ
    event_kind unusable;  // reported when its list cannot be used
};

constexpr fork_kind forks[number_of_forks] = {
    // The spelling of the first message is not that of the others.
    {"dump", true, false, event_kind::dump_list_unusable},
    {"init", true, false, event_kind::fork_list_unusable},
    {"data", false, false, event_kind::fork_list_unusable},
    {"conf", true, true, event_kind::fork_list_unusable},
};

struct fork_count {
    int hashes = 0;
    int errors = 0;
};

struct digest {
    char text[41];
};

// What is done with each finding.
using finding_sink = std::function<void(const event &)>;

}  // namespace

static std::optional<digest> digest_of(const std::string &path) {
    digest found;
    if (!vrs_sha1_file(path.c_str(), 'x', found.text)) {
        return std::nullopt;
    }
    return found;
}

static void say_ok(const std::string &path, bool verbose) {
    if (verbose) {
        vrmui_say("%s verfied ok.\n", path.c_str());
    }
}

// Files that were as they should be, each with its hash: a second look need not read them again.
using good_files = std::unordered_set<std::string>;

static std::string key_of(const std::string &path, const char *hash) {
    return std::string(hash) + " " + path;
}

// Each reports what is wrong, and says whether nothing is.
static bool check_delivered(const std::string &path, const char *expected, bool verbose,
                            const finding_sink &found_one, good_files *good) {
    if (good && good->contains(key_of(path, expected))) {
        say_ok(path, verbose);
        return true;
    }
    const std::optional<digest> found = digest_of(path);
    if (!found) {
        found_one({.kind = event_kind::audited_file_missing, .path = path});
        return false;
    }
    if (strcmp(found->text, expected) != 0) {
        found_one({.kind = event_kind::audited_file_changed,
                   .path = path,
                   .other = expected,
                   .found = found->text});
        return false;
    }
    if (good) {
        good->insert(key_of(path, expected));
    }
    say_ok(path, verbose);
    return true;
}

static bool check_edited(const char *path, const char *delivered, bool verbose,
                         const finding_sink &found_one) {
    const std::optional<digest> found = digest_of(path);
    if (!found) {
        found_one({.kind = event_kind::conf_missing, .path = path});
        return false;
    }
    if (strcmp(found->text, delivered) != 0) {
        vrmui_say("%s is not the same on fs, this is normal.\n", path);
    } else {
        say_ok(path, verbose);
    }
    return true;
}

bool is_there_unreadable(const std::string &list, const char **why) {
    return !is_missing(list.c_str()) && !open_regular(list.c_str(), nullptr, why).valid();
}

// Nothing when the list can't be read or is malformed.
static std::optional<fork_count> check_fork(const std::string &entry, const fork_kind &fork,
                                            bool verbose, const finding_sink &found_one,
                                            good_files *good) {
    s_ekva **list = nullptr;
    const int rc = vrm_vrf_vrk_hashes(entry.c_str(), fork.name, &list);
    const own_ekva hashes(list);
    const std::string path_of_list = entry + "/hash/" + fork.name + ".txt";
    const char *why = nullptr;
    const bool not_opened = rc == 0 && !hashes && is_there_unreadable(path_of_list, &why);
    if (not_opened) {
        found_one({.kind = event_kind::list_not_opened, .path = path_of_list, .other = why});
    }
    if (rc != 0 || not_opened) {
        found_one({.kind = fork.unusable, .other = fork.name});
        return std::nullopt;
    }
    fork_count count;
    if (!hashes) {
        if (verbose) {
            vrmui_say("No hashes stored for fork: %s\n", fork.name);
        }
        return count;
    }
    count.hashes = ekva_nument(list);
    if (verbose) {
        vrmui_say("Found %d hashes stored for fork: %s\n", count.hashes, fork.name);
    }
    const std::string root = fork.kept_in_entry ? entry + "/" + fork.name : "";
    for (s_ekva *const *pair = list + 1; *pair; pair++) {
        const char *const hash = (*pair)->key, *const path = (*pair)->val;
        log_debug("vrm_chkhash: found %s: %s\n", hash, path);
        count.errors += check_delivered(root + path, hash, verbose, found_one, good) ? 0 : 1;
        if (fork.edited && !check_edited(path, hash, verbose, found_one)) {
            count.errors++;
        }
    }
    return count;
}

// The result is that of vrm_chkhash.
static int audit(vrm_handle *handle, const char *name, bool verbose, const finding_sink &found_one,
                 good_files *good) {
    if (!own_vri(vrm_vrl_info(handle, name))) {
        found_one({.kind = event_kind::audited_not_installed, .package = name});
        return -1;
    }
    const std::string entry = std::string(ekva_getval(handle->dirs, "installed")) + "/" + name;
    fork_count counts[number_of_forks];
    int errors = 0;
    for (int place = 0; place < number_of_forks; place++) {
        const std::optional<fork_count> count =
            check_fork(entry, forks[place], verbose, found_one, good);
        if (!count) {
            return -1;
        }
        counts[place] = *count;
        errors += count->errors;
    }
    vrmui_say("%s summary: dump: (%d/%d) conf: (%d/%d) data: (%d/%d) init: (%d/%d)\n", name,
              counts[dump_fork].hashes, counts[dump_fork].errors, counts[conf_fork].hashes,
              counts[conf_fork].errors, counts[data_fork].hashes, counts[data_fork].errors,
              counts[init_fork].hashes, counts[init_fork].errors);
    return errors;
}

int vrm_chkhash(vrm_handle *handle, const char *name, unsigned verbose) {
    return guarded("vrm_chkhash", -1, [&] {
        return audit(
            handle, name, verbose != 0, [](const event &one) { report(one); }, nullptr);
    });
}

int vrm_chkhash_settled(vrm_handle *handle, const char *name, unsigned verbose) {
    return guarded("vrm_chkhash", -1, [&] {
        int errors = 0;
        good_files good;
        const auto look = [&] {
            finding_list all;
            vrmui_line_new(vrmui, "");
            errors = audit(
                handle, name, verbose != 0, [&](const event &one) { all.emplace_back(one); },
                &good);
            return all;
        };
        settled_findings found(handle);
        found.add(look(), look);
        if (found.withheld()) {
            // The counts in the text are of a package that is being changed.
            vrmui_line_new(vrmui, "");
            found.end(std::string("the files of ") + name);
            return found.count();
        }
        return errors;
    });
}
