#include "transaction/update.h"

#include <optional>
#include <string>

#include "repository/inventory.h"
#include "support/log.h"
#include "transaction/change.h"
#include "transaction/fetch.h"
#include "transaction/install.h"
#include "transaction/journal.h"

static constexpr char me[] = "vrm_exe_update";
static constexpr int not_to_be_met = 99;

constinit const executor updating = {
    .who = "vrm_update_vrk",
    .first = {"00-add.sh", "pre", event_kind::pre_update_failed, event_kind::running_pre_install},
    .last = {"99-add.sh", "post", event_kind::post_update_failed, event_kind::running_post_install},
    .gives_last_status = false,
    .old_files = {.not_saved = event_kind::old_file_not_saved,
                  .not_removed = event_kind::old_file_not_removed},
    .added = {.mode = "UPDATE",
              .hook_context = 2,
              .not_proven = event_kind::update_not_proven,
              .conflicts = event_kind::update_conflicts,
              .begun = event_kind::updating,
              .data_not_placed = event_kind::data_not_updated,
              .numbers_data = true,
              .conf_placed = event_kind::conf_installed_missing,
              .not_registered = event_kind::entry_not_registered},
};

int vrm_update_vrk(vrm_handle *handle, vrt **transaction, const vri *old_package,
                   const vri *new_package, void * /*connection*/, int verbose) {
    change update = {&updating,   handle,  *transaction, old_package,
                     new_package, nullptr, verbose != 0};
    return run_change(&update);
}

// ---- The packages of a plan ----

// Updates one package of the transaction. No result when it isn't installed. `head` is the package
// for whose sake it is done, null for the user's.
static std::optional<int> update_one(const plan_run &run, const vri *package, const char *head) {
    own_vri present(vrm_vrl_info(run.handle, package->name));
    if (!present) {
        log_say(LEVEL_DEBUG, "skipping update of %s, is not installed", package->name);
        return std::nullopt;
    }
    const std::string old_puname = vrk_puname(present.get());
    return change_package(run, package, head,
                          {.action = 2,
                           .done = event_kind::updated,
                           .failed = head ? std::optional(event_kind::update_failed) : std::nullopt,
                           .old_puname = old_puname.c_str()},
                          [&] {
                              return vrm_update_vrk(run.handle, run.transaction, present.get(),
                                                    package, run.connection, run.verbose);
                          });
}

static int change_dependency(const plan_run &run, const vrd *dep) {
    switch (dep->action) {
        case 'I':
            return install_dependency(run, dep, event_kind::install_failed);
        case 'U':
            return update_one(run, dep->info, dep->cand).value_or(0);
        default:
            return 0;
    }
}

static int update_top(const plan_run &run) {
    const vri *package = (*run.transaction)->info;
    const std::optional<int> code = update_one(run, package, nullptr);
    if (!code) {
        return not_to_be_met;
    }
    log_say(LEVEL_DEBUG, "rc of vrm_update_vrk for %s: %d\n", vrk_puname(package), *code);
    return *code;
}

int vrm_exe_update(vrm_handle *handle, vrt **transaction, void *connection, int verbose,
                   int rmpkg) {
    if (!may_carry_out(me, handle, *transaction)) {
        return -1;
    }
    const journal_scope scope(handle);
    plan_run run = {me, handle, transaction, connection, verbose != 0, rmpkg != 0};
    if (attempt("fetch", [&run] {
            return stage_plan(&run, {event_kind::fetching_dependency, false});
        }) != 0) {
        return -1;
    }
    int code = attempt(me, [&run] { return change_dependencies(run, change_dependency); });
    const vrt *plan = *transaction;
    // What was installed for the sake of the top package is there by now.
    if (code == 0 && plan->action == 'I' && is_installed_by_now(handle, plan->info)) {
        return not_to_be_met;
    }
    if (code == 0) {
        code = attempt(me, [&run, plan] {
            return plan->action == 'U'   ? update_top(run)
                   : plan->action == 'I' ? install_top(run)
                                         : 0;
        });
    }
    // Also after a failure: what was changed before it stays, and wants to be configured.
    vrm_scripts_exe(handle, transaction);
    return code;
}
