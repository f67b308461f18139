// The transaction of an installation: staging all of it, then its packages one by one.
#include "transaction/install.h"

#include "support/log.h"
#include "transaction/attempt.h"
#include "transaction/change_run.h"
#include "transaction/scripts.h"

static constexpr char me[] = "vrm_exe_install";

static int install_all(const change_run &run) {
    const vrt *plan = *run.transaction;
    if (plan->deps) {
        log_say(LEVEL_DEBUG, "%s: Number of deps: %d", me, plan->num_deps);
    }
    for (int32_t i = plan->deps ? plan->num_deps - 1 : -1; i >= 0; i--) {
        const int rc =
            plan->deps[i]->info
                ? install_dependency(run, plan->deps[i], event_kind::dependency_install_failed)
                : 0;
        if (rc != 0) {
            return rc;
        }
    }
    return is_installed_by_now(run.handle, plan->info) ? 0 : install_top(run);
}

int vrm_exe_install(vrm_handle *handle, vrt **transaction, void *connection, int verbose,
                    int rmpkg) {
    if (!may_carry_out(me, handle, *transaction)) {
        return -1;
    }
    change_run run = {me, handle, transaction, connection, verbose != 0, rmpkg != 0, {}};
    if (attempt([&run] { return stage_all(&run, {event_kind::fetching, true}); }) != 0) {
        return -1;
    }
    const int rc = attempt([&run] { return install_all(run); });
    // Also after a failure: what was installed before it stays, and wants to be configured.
    vrm_scripts_exe(handle, transaction);
    return rc;
}
