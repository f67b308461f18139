#include "transaction/change_run.h"

#include <unistd.h>

#include "repository/action_log.h"
#include "repository/inventory.h"
#include "support/event.h"
#include "support/log.h"
#include "transaction/install.h"
#include "transaction/interrupt.h"
#include "transaction/plan_proof.h"
#include "transaction/staging.h"

bool must_stop(const vri *next) {
    if (vrm_stop_requested) {
        report({.kind = event_kind::interrupted, .package = vrk_puname(next)});
    }
    return vrm_stop_requested;
}

// Stages one package from where the plan found it: `R` the catalogue, `L` the local system.
static int stage(change_run *run, char from, vri *package, event_kind announce) {
    if (must_stop(package)) {
        return -1;
    }
    if (from == 'R') {
        stage_paths paths;
        if (!stage_paths_of(run->who, run->handle, package, &paths)) {
            return -1;
        }
        run->last_staged = paths.file;
        return stage_fetch(run->who, run->verbose ? std::optional(announce) : std::nullopt,
                           run->connection, package, run->last_staged);
    }
    return from == 'L' ? stage_copy(run->who, run->verbose, package, run->last_staged) : 0;
}

int stage_all(change_run *run, const staging_words &words) {
    vrt *plan = *run->transaction;
    stage_paths paths;
    if (!stage_paths_of(run->who, run->handle, plan->info, &paths)) {
        return -1;
    }
    run->last_staged = paths.file;
    if (stage(run, plan->source, plan->info, event_kind::fetching) != 0) {
        return -1;
    }
    for (int32_t i = 0; i < plan->num_deps; i++) {
        const vrd *dep = plan->deps[i];
        if (!dep->info || dep->status == 'I') {
            continue;
        }
        if (words.lists_deps) {
            log_say(LEVEL_DEBUG, "-  %-25s Status: %c, URI: %s\n", dep->name, dep->status,
                    dep->info->absolute_uri ? dep->info->absolute_uri : "");
        }
        // A dependency from a directory (`L`) is copied over the file staged before it: the path is
        // not formed anew for it. Callers that want such a dependency stage it themselves and hand
        // it over as fetched.
        if (stage(run, dep->status, dep->info, words.announce_dep) != 0) {
            return -1;
        }
    }
    return prove_dependencies(*run);
}

void drop_staged_file(const change_run &run, const vri *package) {
    if (run.rmpkg) {
        log_say(LEVEL_DEBUG, "removing %s.vrk", vrk_puname(package));
        unlink(run.last_staged.c_str());
    }
}

bool is_installed_by_now(vrm_handle *handle, const vri *package) {
    own_vri present(vrm_vrl_own_info(handle, package->name));
    if (present) {
        log_say(LEVEL_DEBUG, "skipping installation of %s, was already installed", package->name);
    }
    return present != nullptr;
}

int install_dependency(const change_run &run, const vrd *dep, event_kind failure) {
    const vri *package = dep->info;
    if (is_installed_by_now(run.handle, package)) {
        return 0;
    }
    int rc = must_stop(package) ? -1
                                : vrm_install_vrk(run.handle, run.transaction, package, dep->cand,
                                                  run.connection, run.verbose);
    const std::string puname = vrk_puname(package);
    if (rc != 0) {
        report({.kind = failure, .package = puname, .status = rc});
        return rc;
    }
    vrm_log_action(1, nullptr, puname.c_str(), dep->cand);
    report({.kind = event_kind::installed_dependency, .package = puname});
    drop_staged_file(run, package);
    return 0;
}

int install_top(const change_run &run) {
    const vri *package = (*run.transaction)->info;
    int rc = must_stop(package) ? -1
                                : vrm_install_vrk(run.handle, run.transaction, package,
                                                  package->name, run.connection, run.verbose);
    const std::string puname = vrk_puname(package);
    log_say(LEVEL_DEBUG, "rc of vrm_install_vrk for %s: %d\n", puname.c_str(), rc);
    if (rc != 0) {
        report({.kind = event_kind::install_failed, .package = puname, .status = rc});
        return rc;
    }
    vrm_log_action(1, nullptr, puname.c_str(), nullptr);
    report({.kind = event_kind::installed, .package = puname});
    drop_staged_file(run, package);
    return 0;
}
