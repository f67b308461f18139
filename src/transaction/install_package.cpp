// The install of one package file, step by step.
#include <cstring>
#include <ctime>
#include <string>

#include "package/fileops.h"
#include "support/event.h"
#include "support/file.h"
#include "support/log.h"
#include "transaction/attempt.h"
#include "transaction/conflicts.h"
#include "transaction/install.h"
#include "transaction/link_conflicts.h"
#include "transaction/package_change.h"
#include "transaction/rollback.h"

namespace {

// The install of one package file: what its steps share.
struct package_install : package_change {
    const char *head;
    std::string entry;  // the inventory directory
    own_array files;    // the data files that are really written; null without data
    settled_links links;
    rollback_notes notes;
};

}  // namespace

static int verify(package_install *step) {
    const int rc = verify_unpacked(step);
    if (rc != 0) {
        report({.kind = event_kind::install_not_proven,
                .package = step->package->name,
                .path = step->stage.fresh});
    }
    return rc;
}

static int settle_conflicts(package_install *step) {
    if (!settle_links(*step, nullptr, &step->links)) {
        return -1;
    }
    if (step->forks.data) {
        char **files = nullptr;
        if (vrm_chk_local_insert(step->handle, step->forks.data.get(), &files) != 0) {
            report({.kind = event_kind::install_conflicts});
            return -1;
        }
        step->files.reset(files);
    }
    if (!keep_replaced_files(*step, step->files.get(), nullptr, step->links, &step->notes.kept)) {
        return -1;
    }
    note_absent_places(*step, step->links, &step->notes);
    if (step->verbose) {
        report({.kind = event_kind::installing, .package = step->stage.puname});
    }
    return 0;
}

static int place(const package_install &step, const char *fork, const char *path) {
    if (!place_file(step, fork, path)) {
        report({.kind = event_kind::file_not_installed,
                .who = "vrm_install_vrk",
                .path = path,
                .other = unpacked_path(step, fork, path)});
        return -1;
    }
    return 0;
}

static int place_data(const package_install &step) {
    for (char **path = step.files.get(); path && *path; path++) {
        if (place(step, "data", *path) != 0) {
            return -1;
        }
    }
    return 0;
}

// Configuration belongs to the administrator once it is on the disk, so a file that stands there is
// never written, and none is ever listed in the file index.
static int place_conf(const package_install &step) {
    for (char **path = step.forks.conf.get(); path && *path; path++) {
        const bool keep = !is_missing(*path);
        if (step.verbose) {
            report({.kind = keep ? event_kind::conf_kept_existing : event_kind::conf_installed_new,
                    .path = *path});
        }
        if (!keep && place(step, "conf", *path) != 0) {
            remove_half_written(*path);
            return -1;
        }
    }
    return 0;
}

static bool write_record(const package_install &step) {
    const bool as_dependency = strcmp(step.package->name, step.head) != 0;
    return write_install_record(own_file(fopen((step.entry + "/inst.txt").c_str(), "we")),
                                static_cast<int64_t>(time(nullptr)), as_dependency ? 'D' : 'X',
                                as_dependency ? step.head : nullptr, {});
}

// Steps that enter the package into the inventory. The install record comes after everything else
// of the entry: until it stands, the entry reads as absent. The file index is the last of all.
static int enter_inventory(const package_install &step) {
    const char *name = step.package->name;
    log_say(LEVEL_DEBUG, "registering %s for candidate %s", name, step.head);
    // An entry that a crash left unfinished would add its scripts and lists to this one.
    vrm_vrf_rmdir(step.entry.c_str());
    if (const char *failed = register_forks(step.stage.fresh, step.entry, step.forks)) {
        report({.kind = event_kind::registration_not_copied,
                .who = "vrm_install_vrk",
                .package = name,
                .other = failed});
        return -1;
    }
    if (!write_record(step)) {
        report({.kind = event_kind::install_record_not_written,
                .who = "vrm_install_vrk",
                .package = name});
        return -1;
    }
    if (step.files) {
        const char *dir = ekva_getval(step.handle->dirs, "fileindex");
        log_say(LEVEL_DEBUG, "vrm_install_vrk: Writing fileindex for <%s> to <%s/%s>", name, dir,
                name);
        if (write_fileindex(std::string(dir) + "/" + name, step.files.get()) != 0) {
            report({.kind = event_kind::file_index_not_written,
                    .who = "vrm_install_vrk",
                    .package = name});
            return -1;
        }
    }
    return 0;
}

// Takes the package from its staged file into the inventory. What a failed step has done is taken
// back here, so that a step need only say that it failed.
static int install_package(package_install *step) {
    // A package that can't be unpacked or verified leaves its stage directory for a look at it.
    int rc = unpack_staged(step);
    if (rc == 0) {
        rc = verify(step);
    }
    if (rc == 0) {
        rc = believe_signed_record(step);
    }
    if (rc != 0) {
        return rc;
    }

    const auto drop_stage = [step] { vrm_vrf_rmdir(step->stage.base.c_str()); };
    const auto roll_back = [step] {
        vrm_install_rollback(step->files.get(), step->stage.old.c_str());
        report_remains(*step, step->notes);
    };

    rc = attempt([step] {
        const int failed =
            run_add_script(*step, nullptr, before_change, event_kind::pre_install_failed);
        return failed != 0 ? failed : settle_conflicts(step);
    });
    if (rc != 0) {
        drop_stage();
        return rc;
    }

    rc = attempt([step] {
        if (place_data(*step) != 0 || place_conf(*step) != 0) {
            return -1;
        }
        apply_links_and_perms("vrm_install_vrk", step->stage.fresh, step->forks.info, step->links);
        return run_add_script(*step, nullptr, after_change, event_kind::post_install_failed);
    });
    if (rc != 0) {
        roll_back();
        drop_stage();
        return rc;
    }

    rc = attempt([step] { return enter_inventory(*step); });
    if (rc != 0) {
        roll_back();
        vrm_vrf_rmdir(step->entry.c_str());
        drop_stage();
        return rc;
    }

    // Registered: nothing can fail any more.
    refresh_linker_cache("vrm_install_vrk");
    note_configuration(*step, 1, step->files.get());
    drop_stage();
    return 0;
}

int vrm_install_vrk(vrm_handle *handle, vrt **transaction, const vri *package, const char *head,
                    void * /*connection*/, int verbose) {
    have_so = 0;
    return attempt([=] {
        package_install step = {};
        step.who = "vrm_install_vrk";
        step.handle = handle;
        step.transaction = *transaction;
        step.package = package;
        step.head = head;
        step.verbose = verbose != 0;
        if (!stage_paths_of("vrm_install_vrk", handle, package, &step.stage)) {
            return -1;
        }
        const char *installed = ekva_getval(handle->dirs, "installed");
        step.entry = std::string(installed).substr(0, 1000) + "/" +
                     std::string(package->name).substr(0, 1000);
        return install_package(&step);
    });
}
