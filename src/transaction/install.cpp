#include "transaction/install.h"

#include "repository/inventory.h"
#include "support/log.h"
#include "transaction/change.h"
#include "transaction/fetch.h"
#include "transaction/journal.h"

static constexpr char me[] = "vrm_exe_install";

constinit const executor installing = {
    .who = "vrm_install_vrk",
    .first = {"00-add.sh", "pre", event_kind::pre_install_failed, event_kind::running_pre_install},
    .last = {"99-add.sh", "post", event_kind::post_install_failed,
             event_kind::running_post_install},
    .added = {.mode = "INSTALL",
              .hook_context = 1,
              .not_proven = event_kind::install_not_proven,
              .conflicts = event_kind::install_conflicts,
              .begun = event_kind::installing,
              .data_not_placed = event_kind::file_not_installed,
              .numbers_data = false,
              .conf_placed = event_kind::conf_installed_new},
};

int vrm_install_vrk(vrm_handle *handle, vrt **transaction, const vri *package, const char *head,
                    void * /*connection*/, int verbose) {
    change install = {&installing, handle, *transaction, nullptr, package, head, verbose != 0};
    return run_change(&install);
}

// ---- The packages of a plan ----

bool is_installed_by_now(vrm_handle *handle, const vri *package) {
    own_vri present(vrm_vrl_own_info(handle, package->name));
    if (present) {
        log_say(LEVEL_DEBUG, "skipping installation of %s, was already installed", package->name);
    }
    return present != nullptr;
}

int install_dependency(const plan_run &run, const vrd *dep, event_kind failure) {
    if (is_installed_by_now(run.handle, dep->info)) {
        return 0;
    }
    return change_package(
        run, dep->info, dep->cand,
        {.action = 1, .done = event_kind::installed_dependency, .failed = failure}, [&] {
            return vrm_install_vrk(run.handle, run.transaction, dep->info, dep->cand,
                                   run.connection, run.verbose);
        });
}

int install_top(const plan_run &run) {
    const vri *package = (*run.transaction)->info;
    return change_package(run, package, nullptr,
                          {.action = 1,
                           .done = event_kind::installed,
                           .failed = event_kind::install_failed,
                           .function = "vrm_install_vrk"},
                          [&] {
                              return vrm_install_vrk(run.handle, run.transaction, package,
                                                     package->name, run.connection, run.verbose);
                          });
}

static int install_one(const plan_run &run, const vrd *dep) {
    return install_dependency(run, dep, event_kind::dependency_install_failed);
}

static int install_all(const plan_run &run) {
    if (const int code = change_dependencies(run, install_one)) {
        return code;
    }
    return is_installed_by_now(run.handle, (*run.transaction)->info) ? 0 : install_top(run);
}

int vrm_exe_install(vrm_handle *handle, vrt **transaction, void *connection, int verbose,
                    int rmpkg) {
    if (!may_carry_out(me, handle, *transaction)) {
        return -1;
    }
    const journal_scope scope(handle);
    plan_run run = {me, handle, transaction, connection, verbose != 0, rmpkg != 0};
    if (attempt("fetch", [&run] { return stage_plan(&run, {event_kind::fetching, true}); }) != 0) {
        return -1;
    }
    const int code = attempt(me, [&run] { return install_all(run); });
    // Also after a failure: what was installed before it stays, and wants to be configured.
    vrm_scripts_exe(handle, transaction);
    return code;
}
