// The update of one package, step by step.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "package/backup_journal.h"
#include "package/fileops.h"
#include "package/vrs.h"
#include "repository/inventory.h"
#include "support/event.h"
#include "support/file.h"
#include "support/log.h"
#include "transaction/attempt.h"
#include "transaction/conflicts.h"
#include "transaction/link_conflicts.h"
#include "transaction/package_change.h"
#include "transaction/register.h"
#include "transaction/rollback.h"
#include "transaction/update.h"

namespace {

// The update of one package: what its steps share.
struct package_update : package_change {
    const vri *old_package;
    inventory_places places;
    own_array old_files;  // of the file index; null without one
    own_array del_files, add_files;
    settled_links links;
    rollback_notes notes;
};

}  // namespace

static constexpr char me[] = "vrm_update_vrk";

static int verify(package_update *step) {
    const int rc = verify_unpacked(step);
    if (rc != 0) {
        report({.kind = event_kind::update_not_proven,
                .package = step->package->name,
                .path = step->stage.fresh});
    }
    return rc;
}

// The files of the old version are those of its record's name, and they are taken away. A damaged
// entry of the inventory may have another name than its record.
static int check_name(const package_update &step) {
    const char *name = step.package->name, *old_name = step.old_package->name;
    if (strcmp(name, old_name) != 0) {
        report({.kind = event_kind::entry_of_another, .package = name, .other = old_name});
        return -1;
    }
    return 0;
}

// Without the list the files of the old version would stay and belong to nobody.
static int read_old_files(package_update *step) {
    step->old_files.reset(vrm_vrl_file_list(step->handle, step->old_package));
    if (!step->old_files && errno != 0) {
        report({.kind = event_kind::file_not_read, .path = step->places.index, .error = errno});
        return -1;
    }
    return 0;
}

static int settle_files(package_update *step) {
    if (!settle_links(*step, step->old_package, &step->links)) {
        return -1;
    }
    char **del_files = nullptr, **add_files = nullptr;
    const int rc = vrm_chk_local_update(step->handle, step->old_files.get(), step->forks.data.get(),
                                        &del_files, &add_files);
    if (rc != 0) {
        report({.kind = event_kind::update_conflicts, .status = rc});
        return -1;
    }
    step->del_files.reset(del_files);
    step->add_files.reset(add_files);
    if (!keep_replaced_files(*step, step->add_files.get(), step->old_files.get(), step->links,
                             &step->notes.kept)) {
        return -1;
    }
    note_absent_places(*step, step->links, &step->notes);
    if (step->verbose) {
        report({.kind = event_kind::updating, .package = step->stage.puname});
    }
    return 0;
}

// Takes the files away that the new version doesn't have.
static int remove_old_files(const package_update &step) {
    for (char **path = step.del_files.get(); path && *path; path++) {
        if (log_wants(LEVEL_DEBUG)) {
            log_say(LEVEL_DEBUG, "%s: Found %s to delete", me, *path);
        }
        struct stat present;
        if (stat(*path, &present) != 0) {
            continue;
        }
        if (save_backup(step.stage.old.c_str(), *path) != 0) {
            report({.kind = event_kind::old_file_not_saved, .path = *path});
            return -1;
        }
        if (unlink(*path) != 0) {
            report({.kind = event_kind::old_file_not_removed, .path = *path, .error = errno});
        }
    }
    return 0;
}

static int place_data(const package_update &step) {
    int number = 0;
    for (char **path = step.add_files.get(); path && *path; path++, number++) {
        if (log_wants(LEVEL_DEBUG)) {
            log_say(LEVEL_DEBUG, "%s: Processing add_files[%d]", me, number);
        }
        if (!place_file(step, "data", *path)) {
            report({.kind = event_kind::data_not_updated,
                    .path = *path,
                    .other = unpacked_path(step, "data", *path)});
            return -1;
        }
    }
    return 0;
}

// Whether a configuration file on the disk is the administrator's own: all but one that is known to
// be as the installed version shipped it. What can't be read is not known.
static bool is_own_conf(const package_update &step, const char *path) {
    log_say(LEVEL_DEBUG, "%s: config file %s already exists", me, path);
    const std::string shipped = step.places.entry + "/conf" + path;
    if (is_missing(shipped.c_str())) {
        log_say(LEVEL_DEBUG, "%s: keeping existing config", me);
        return true;
    }
    log_say(LEVEL_DEBUG, "%s: %s was shipped the last time", me, path);
    char on_disk[41], as_shipped[41];
    const bool same = vrs_sha1_file(path, 'x', on_disk) &&
                      vrs_sha1_file(shipped.c_str(), 'x', as_shipped) &&
                      strcmp(on_disk, as_shipped) == 0;
    if (step.verbose) {
        report({.kind = same ? event_kind::conf_replaced : event_kind::conf_kept_modified,
                .path = path});
    }
    return !same;
}

static int place_conf(const package_update &step) {
    for (char **path = step.forks.conf.get(); path && *path; path++) {
        const bool present = !is_missing(*path);
        if (present && is_own_conf(step, *path)) {
            continue;
        }
        if (!present && step.verbose) {
            report({.kind = event_kind::conf_installed_missing, .path = *path});
        }
        if (!place_file(step, "conf", *path)) {
            report({.kind = event_kind::file_not_installed,
                    .who = me,
                    .path = *path,
                    .other = unpacked_path(step, "conf", *path)});
            if (!present) {
                remove_half_written(*path);
            }
            return -1;
        }
    }
    return 0;
}

static bool write_record(const package_update &step) {
    const vri *before = step.old_package;
    return write_install_record(
        own_file(fopen((step.places.new_entry + "/inst.txt").c_str(), "we")), before->install_time,
        before->install_type, before->install_head, updates_until_now(before));
}

// Builds the new registration beside the old one.
static int build_entry(const package_update &step) {
    const char *name = step.package->name;
    log_say(LEVEL_DEBUG, "Registering %s ", name);
    // One that a crash left would add its files to the new one.
    drop_new_registration(step.places);
    if (const char *failed = register_forks(step.stage.fresh, step.places.new_entry, step.forks)) {
        const bool info = strcmp(failed, "info files") == 0;
        if (!info) {
            report({.kind = event_kind::registration_not_copied,
                    .who = me,
                    .package = name,
                    .other = failed});
        }
        if (info || strcmp(failed, "data hash file") == 0) {
            report({.kind = event_kind::entry_not_registered, .package = name});
        }
        return -1;
    }
    if (!write_record(step)) {
        report({.kind = event_kind::install_record_not_written, .who = me, .package = name});
        return -1;
    }
    if (step.add_files) {
        log_say(LEVEL_DEBUG, "Cur fileindex name: <%s>", step.places.index.c_str());
        log_say(LEVEL_DEBUG, "Old fileindex name: <%s>", step.places.old_index.c_str());
        log_say(LEVEL_DEBUG, "New fileindex name: <%s>", step.places.new_index.c_str());
        if (write_fileindex(step.places.new_index, step.add_files.get()) != 0) {
            report({.kind = event_kind::file_index_not_written, .who = me, .package = name});
            return -1;
        }
    }
    return 0;
}

// Takes the package from its staged file to the place of the old version. What a failed step has
// done is taken back here, so that a step need only say that it failed.
static int update_package(package_update *step) {
    // A package that can't be unpacked or verified leaves its stage directory for a look at it.
    int rc = unpack_staged(step);
    if (rc == 0) {
        rc = verify(step);
    }
    if (rc == 0) {
        rc = believe_signed_record(step);
    }
    if (rc == 0) {
        rc = check_name(*step);
    }
    if (rc != 0) {
        return rc;
    }

    const auto drop_stage = [step] { vrm_vrf_rmdir(step->stage.base.c_str()); };
    const auto roll_back = [step] {
        vrm_install_rollback(step->add_files.get(), step->stage.old.c_str());
        report_remains(*step, step->notes);
    };

    rc = attempt([step] {
        if (read_old_files(step) != 0) {
            return -1;
        }
        const int failed =
            run_add_script(*step, step->old_package, before_change, event_kind::pre_update_failed);
        return failed != 0 ? failed : settle_files(step);
    });
    if (rc != 0) {
        drop_stage();
        return rc;
    }

    rc = attempt([step] {
        if (remove_old_files(*step) != 0 || place_data(*step) != 0 || place_conf(*step) != 0) {
            return -1;
        }
        apply_links_and_perms(me, step->stage.fresh, step->forks.info, step->links);
        return run_add_script(*step, step->old_package, after_change,
                              event_kind::post_update_failed);
    });
    if (rc != 0) {
        roll_back();
        drop_stage();
        return -1;
    }

    rc = attempt([step] { return build_entry(*step); });
    if (rc != 0) {
        roll_back();
        vrm_vrf_rmdir(step->places.new_entry.c_str());
        drop_stage();
        return -1;
    }

    swap_in(step->places, step->add_files != nullptr);
    refresh_linker_cache(me);
    note_configuration(*step, 2, step->add_files.get());
    drop_stage();
    drop_old_registration(step->places);
    return 0;
}

int vrm_update_vrk(vrm_handle *handle, vrt **transaction, const vri *old_package,
                   const vri *new_package, void * /*connection*/, int verbose) {
    have_so = 0;
    return attempt([=] {
        package_update step = {};
        step.who = me;
        step.handle = handle;
        step.transaction = *transaction;
        step.package = new_package;
        step.verbose = verbose != 0;
        step.old_package = old_package;
        if (!stage_paths_of(me, handle, new_package, &step.stage)) {
            return -1;
        }
        step.places = inventory_places_of(handle, new_package->name);
        return update_package(&step);
    });
}
