// The transaction of an update: staging all of it, then its packages one by one.
#include "transaction/update.h"

#include <optional>
#include <string>

#include "repository/action_log.h"
#include "repository/inventory.h"
#include "support/event.h"
#include "support/log.h"
#include "transaction/attempt.h"
#include "transaction/change_run.h"
#include "transaction/scripts.h"

static constexpr char me[] = "vrm_exe_update";
static constexpr int not_to_be_met = 99;

// Updates one package of the transaction. No result when it isn't installed. `head` is the package
// for whose sake it is done, null for the user's.
static std::optional<int> update_one(const change_run &run, const vri *package, const char *head) {
    own_vri present(vrm_vrl_info(run.handle, package->name));
    if (!present) {
        log_say(LEVEL_DEBUG, "skipping update of %s, is not installed", package->name);
        return std::nullopt;
    }
    const std::string old_puname = vrk_puname(present.get());
    const std::string puname = vrk_puname(package);
    int rc = must_stop(package) ? -1
                                : vrm_update_vrk(run.handle, run.transaction, present.get(),
                                                 package, run.connection, run.verbose);
    if (rc == 0) {
        vrm_log_action(2, old_puname.c_str(), puname.c_str(), head);
        report({.kind = event_kind::updated, .package = puname});
        drop_staged_file(run, package);
    }
    return rc;
}

static int change_dependency(const change_run &run, const vrd *dep) {
    if (!dep->info) {
        return 0;
    }
    if (dep->action == 'I') {
        return install_dependency(run, dep, event_kind::install_failed);
    }
    if (dep->action != 'U') {
        return 0;
    }
    const int rc = update_one(run, dep->info, dep->cand).value_or(0);
    if (rc != 0) {
        report({.kind = event_kind::update_failed, .package = vrk_puname(dep->info), .status = rc});
    }
    return rc;
}

// What was installed for the sake of the top package is there by now.
static int change_dependencies(const change_run &run) {
    const vrt *plan = *run.transaction;
    if (plan->deps) {
        log_say(LEVEL_DEBUG, "%s: Number of deps: %d", me, plan->num_deps);
    }
    for (int32_t i = plan->deps ? plan->num_deps - 1 : -1; i >= 0; i--) {
        if (const int rc = change_dependency(run, plan->deps[i])) {
            return rc;
        }
    }
    return 0;
}

static int update_top(const change_run &run) {
    const vri *package = (*run.transaction)->info;
    const std::optional<int> rc = update_one(run, package, nullptr);
    if (!rc) {
        return not_to_be_met;
    }
    log_say(LEVEL_DEBUG, "rc of vrm_update_vrk for %s: %d\n", vrk_puname(package), *rc);
    return *rc;
}

int vrm_exe_update(vrm_handle *handle, vrt **transaction, void *connection, int verbose,
                   int rmpkg) {
    if (!may_carry_out(me, handle, *transaction)) {
        return -1;
    }
    change_run run = {me, handle, transaction, connection, verbose != 0, rmpkg != 0, {}};
    if (attempt([&run] {
            return stage_all(&run, {event_kind::fetching_dependency, false});
        }) != 0) {
        return -1;
    }
    int rc = attempt([&run] { return change_dependencies(run); });
    const vrt *plan = *transaction;
    if (rc == 0 && plan->action == 'I' && is_installed_by_now(handle, plan->info)) {
        return not_to_be_met;
    }
    if (rc == 0) {
        rc = attempt([&run, plan] {
            return plan->action == 'U'   ? update_top(run)
                   : plan->action == 'I' ? install_top(run)
                                         : 0;
        });
    }
    // Also after a failure: what was changed before it stays, and wants to be configured.
    vrm_scripts_exe(handle, transaction);
    return rc;
}
