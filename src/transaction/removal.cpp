// Carrying a removal out.
#include "transaction/removal.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <unordered_set>

#include "package/backup_journal.h"
#include "package/fileops.h"
#include "repository/action_log.h"
#include "support/event.h"
#include "support/file.h"
#include "support/log.h"
#include "transaction/attempt.h"
#include "transaction/change_run.h"
#include "transaction/link_conflicts.h"
#include "transaction/register.h"
#include "transaction/rollback.h"
#include "transaction/scripts.h"
#include "transaction/stage_area.h"

namespace {

// The removal of one package: what its steps share.
struct package_removal {
    vrm_handle *handle;
    const vri *package;
    stage_paths stage;
    inventory_places places;
    std::unordered_set<std::string> shared_links;
};

enum class outcome { done, failed };

}  // namespace

static constexpr char me[] = "vrm_one_delete";

namespace {

// A script of a removal, and the event that reports its failure.
struct del_script {
    const char *file;
    const char *moment;
    event_kind failed;
};
constexpr del_script before_removal{"00-del.sh", "pre", event_kind::pre_delete_failed};
constexpr del_script after_removal{"99-del.sh", "post", event_kind::post_delete_failed};

}  // namespace

// Runs a script if the package has it.
static int run_del_script(const package_removal &step, const del_script &script) {
    const std::string path = step.places.entry + "/init/" + script.file;
    log_say(LEVEL_DEBUG, "%s: looking for %s-delete script %s\n", me, script.moment, path.c_str());
    if (is_missing(path.c_str())) {
        log_say(LEVEL_DEBUG, "%s: no %s-delete script found", me, script.moment);
        return 0;
    }
    own_string command(vrm_del_script_command(step.handle, script.file, step.package->name,
                                              step.stage.old.c_str()));
    if (!command) {
        return -1;
    }
    char **environment = vrm_scriptenv_add(step.package, nullptr);
    if (!environment) {
        return -1;
    }
    const int rc = vrm_system(script.file, command.get());
    vrm_scriptenv_del(environment);
    if (rc != 0) {
        report({.kind = script.failed,
                .package = vrk_puname(step.package),
                .other = script.file,
                .status = rc});
    }
    return rc;
}

static outcome take_file_away(const package_removal &step, const char *path) {
    if (log_wants(LEVEL_DEBUG)) {
        log_say(LEVEL_DEBUG, "%s: Found %s to delete", me, path);
    }
    struct stat status;
    // A path that isn't absolute would mean another file from another working directory.
    errno = EINVAL;
    if (path[0] != '/' || stat(path, &status) != 0) {
        report({.kind = event_kind::registered_file_missing, .path = path, .error = errno});
        return outcome::done;
    }
    if (save_backup(step.stage.old.c_str(), path) != 0) {
        report({.kind = event_kind::registered_file_not_saved, .path = path});
        return outcome::failed;
    }
    if (unlink(path) != 0) {
        report({.kind = event_kind::registered_file_not_removed, .path = path, .error = errno});
    }
    return outcome::done;
}

static outcome take_files_away(const package_removal &step) {
    const own_file index(fopen_regular(step.places.index.c_str()));
    if (!index && errno == ENOENT) {
        log_say(LEVEL_DEBUG, "%s: no fileindex. This is ok", me);
        return outcome::done;
    }
    if (index) {
        char line[4096];
        while (fgets(line, sizeof line, index.get())) {
            line[strcspn(line, "\n")] = '\0';
            if (line[0] != '\0' && take_file_away(step, line) != outcome::done) {
                return outcome::failed;
            }
        }
    }
    // An index that is there and can't be read to its end would leave files without an owner.
    if (!index || ferror(index.get())) {
        report({.kind = event_kind::file_not_read, .path = step.places.index, .error = errno});
        return outcome::failed;
    }
    log_say(LEVEL_DEBUG, "%s: processed fileindex %s\n", me, step.places.index.c_str());
    return outcome::done;
}

static void take_links_away(const package_removal &step) {
    const std::string list = step.places.entry + "/link.txt";
    log_say(LEVEL_DEBUG, "%s: looking for link script %s\n", me, list.c_str());
    if (is_missing(list.c_str())) {
        log_say(LEVEL_DEBUG, "%s: no link script found", me);
        return;
    }
    const int rc = remove_links(list, step.shared_links);
    log_say(LEVEL_DEBUG, "%s: rc of vrm_vrf_links: %d", me, rc);
}

// Takes the entry out of the inventory at one stroke, under the name that retired entries have:
// what is left when its files can't all be deleted, or when the machine dies meanwhile, is no
// damaged entry but something that a cleanup clears away.
static void drop_entry(const inventory_places &places) {
    vrm_vrf_rmdir(places.old_entry.c_str());
    const bool retired = rename(places.entry.c_str(), places.old_entry.c_str()) == 0;
    vrm_vrf_rmdir((retired ? places.old_entry : places.entry).c_str());
}

static int remove_package(const package_removal &step) {
    if (const int rc = run_del_script(step, before_removal)) {
        return rc;  // nothing was changed
    }

    // What a former run left there must not get into a rollback of this one.
    vrm_vrf_rmdir(step.stage.base.c_str());
    if (!make_stage_directory(me, step.handle, step.stage, {step.stage.old})) {
        return -1;
    }

    const int rc = attempt([&step] {
        return take_files_away(step) == outcome::done ? run_del_script(step, after_removal) : -1;
    });
    if (rc != 0) {
        // A removal wrote no files that would have to go.
        vrm_install_rollback(nullptr, step.stage.old.c_str());
        vrm_vrf_rmdir(step.stage.base.c_str());
        return rc;
    }
    take_links_away(step);

    // From here on it is not installed any more. What a dead update left of a new registration goes
    // ahead of the entry: without that it would be taken for the rest of a swap.
    vrm_vrf_rmdir(step.stage.base.c_str());
    drop_new_registration(step.places);
    unlink(step.places.index.c_str());
    drop_entry(step.places);
    return 0;
}

int vrm_one_delete(vrm_handle *handle, const vri *package) {
    return attempt([=] {
        package_removal step = {handle, package, {}, {}, {}};
        if (!identity_is_safe(me, package) || !stage_paths_of(me, handle, package, &step.stage) ||
            !is_stage_trusted(me, handle, step.stage)) {
            return -1;
        }
        step.places = inventory_places_of(handle, package->name);
        return find_shared_links(me, handle, package->name, step.places.entry + "/link.txt",
                                 &step.shared_links)
                   ? remove_package(step)
                   : -1;
    });
}

// Removes one package of a plan. `candidate` is for whose sake it was there, null for the top one.
static int remove_and_log(vrm_handle *handle, const vri *package, const char *candidate) {
    const std::string puname = vrk_puname(package);
    const int rc = must_stop(package) ? -1 : vrm_one_delete(handle, package);
    if (rc != 0) {
        report({.kind = event_kind::removal_failed, .package = puname, .status = rc});
        return rc;
    }
    vrm_log_action(3, nullptr, puname.c_str(), candidate);
    report({.kind = event_kind::removed, .package = puname});
    return 0;
}

int vrm_exe_delete(vrm_handle *handle, vrt **transaction) {
    const vrt *plan = *transaction;
    if (!may_carry_out("vrm_exe_delete", handle, plan)) {
        return -1;
    }
    return attempt([=] {
        if (const int rc = remove_and_log(handle, plan->info, nullptr)) {
            return rc;
        }
        if (plan->deps) {
            log_say(LEVEL_DEBUG, "vrm_exe_delete: Number of deps: %d", plan->num_deps);
        }
        for (int32_t i = 0; plan->deps && i < plan->num_deps; i++) {
            const vrd *dep = plan->deps[i];
            if (!dep->info) {
                continue;
            }
            if (const int rc = remove_and_log(handle, dep->info, dep->cand)) {
                return rc;
            }
        }
        return 0;
    });
}
