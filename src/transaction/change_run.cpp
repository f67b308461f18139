#include "transaction/change_run.h"

#include <unistd.h>

#include "package/safe_name.h"
#include "package/signed_record.h"
#include "package/vrf.h"
#include "repository/action_log.h"
#include "repository/inventory.h"
#include "support/event.h"
#include "support/file.h"
#include "support/log.h"
#include "transaction/fetch.h"
#include "transaction/install.h"
#include "transaction/interrupt.h"
#include "transaction/stage_area.h"
#include "transaction/unpack.h"

// The identities of the top package and of every dependency with which something is done.
static bool plan_is_safe(const char *who, const vrt *transaction) {
    if (!identity_is_safe(who, transaction->info)) {
        return false;
    }
    for (int32_t i = 0; transaction->deps && i < transaction->num_deps; i++) {
        const vrd *dep = transaction->deps[i];
        if (!dep->info || dep->action == 'N') {
            continue;
        }
        if (!identity_is_safe(who, dep->info)) {
            return false;
        }
        // It is written to the install record and the action log.
        if (!vrk_name_is_safe(dep->cand)) {
            report({.kind = event_kind::dependency_refused,
                    .who = who,
                    .package = dep->info->name,
                    .other = dep->cand ? dep->cand : ""});
            return false;
        }
    }
    return true;
}

bool may_carry_out(const char *who, const vrm_handle *handle, const vrt *transaction) {
    if (!handle->locked) {
        report({.kind = event_kind::not_locked, .who = who});
        return false;
    }
    return plan_is_safe(who, transaction) && is_stage_area_trusted(who, handle);
}

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

static bool is_changed(const vrd *dep) {
    return dep->info && dep->action != 'N';
}

static int prove(const change_run &run, const vri *package) {
    stage_paths paths;
    if (!stage_paths_of(run.who, run.handle, package, &paths)) {
        return -1;
    }
    if (is_missing(paths.file.c_str())) {
        return 0;
    }
    const own_vri head(vrm_vrf_info(run.handle, paths.file.c_str(), 1));
    if (head && head->sig_status != 1) {
        report({.kind = event_kind::signature_not_trusted, .path = paths.file});
        return -1;
    }
    // The head is the signed description when they match.
    std::string why = compare_head(paths.file.c_str()).why;
    if (why.empty()) {
        why = head ? plan_difference(*run.transaction, package, head.get())
                   : "its head cannot be read";
    }
    if (!why.empty()) {
        report({.kind = event_kind::package_not_believed,
                .who = run.who,
                .package = paths.puname,
                .path = file_name_of(package),
                .other = why});
        return -1;
    }
    return 0;
}

// Makes sure, before the first package of a plan is installed, that what brings dependencies in is
// signed: a dependency that only a head or a catalogue claims would be installed, with its scripts,
// before the package that names it is refused. When the plan changes a dependency, the staged files
// of the top package, and of each dependency to be changed that has dependencies itself, must have
// a valid signature, a head that is the signed description, and the record that was planned. One
// whose own staged file isn't there is passed over, its change will fail.
// Result: 0, or -1 with an ERROR line that begins with the executor.
static int prove_dependencies(const change_run &run) {
    const vrt *plan = *run.transaction;
    bool changes_one = false, fails = false;
    for (int32_t i = 0; plan->deps && i < plan->num_deps && !fails; i++) {
        const vrd *dep = plan->deps[i];
        if (is_changed(dep)) {
            changes_one = true;
            // What needs nothing brings nothing in.
            fails = dep->info->deps && dep->info->deps[0] && prove(run, dep->info) != 0;
        }
    }
    return fails || (changes_one && prove(run, plan->info) != 0) ? -1 : 0;
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
