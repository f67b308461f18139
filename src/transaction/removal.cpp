#include "transaction/removal.h"

#include "support/log.h"
#include "transaction/change.h"
#include "transaction/journal.h"

static constexpr char me[] = "vrm_exe_delete";

constinit const executor removing = {
    .who = "vrm_one_delete",
    .first = {"00-del.sh", "pre", event_kind::pre_delete_failed},
    .last = {"99-del.sh", "post", event_kind::post_delete_failed},
    .old_files = {.missing = event_kind::registered_file_missing,
                  .not_saved = event_kind::registered_file_not_saved,
                  .not_removed = event_kind::registered_file_not_removed},
};

int vrm_one_delete(vrm_handle *handle, const vri *package) {
    change removal = {&removing, handle, nullptr, package, nullptr, nullptr, false};
    return run_change(&removal);
}

// ---- The packages of a plan ----

// `head` is for whose sake the package was there, null for the top one.
static int remove_one(const plan_run &run, const vri *package, const char *head) {
    return change_package(
        run, package, head,
        {.action = 3, .done = event_kind::removed, .failed = event_kind::removal_failed},
        [&] { return vrm_one_delete(run.handle, package); });
}

static int remove_all(const plan_run &run) {
    const vrt *plan = *run.transaction;
    if (const int code = remove_one(run, plan->info, nullptr)) {
        return code;
    }
    if (plan->deps) {
        log_say(LEVEL_DEBUG, "%s: Number of deps: %d", me, plan->num_deps);
    }
    for (int32_t i = 0; plan->deps && i < plan->num_deps; i++) {
        const vrd *dep = plan->deps[i];
        if (const int code = dep->info ? remove_one(run, dep->info, dep->cand) : 0) {
            return code;
        }
    }
    return 0;
}

int vrm_exe_delete(vrm_handle *handle, vrt **transaction) {
    if (!may_carry_out(me, handle, *transaction)) {
        return -1;
    }
    const journal_scope scope(handle);
    return attempt(me, [=] {
        return remove_all({me, handle, transaction, nullptr, false, false});
    });
}
