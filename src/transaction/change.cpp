#include "transaction/change.h"

#include <unistd.h>

#include "package/fileops.h"
#include "package/safe_name.h"
#include "repository/action_log.h"
#include "repository/left_links.h"
#include "support/log.h"
#include "transaction/conflicts.h"
#include "transaction/interrupt.h"
#include "transaction/journal.h"
#include "transaction/place.h"
#include "transaction/space.h"

// ---- One package ----

namespace {

// Which sides a change must have for a stage.
enum class sides { any, with_new, with_old, old_alone };

// What is taken back when a stage fails.
enum class undo {
    nothing,
    stage,         // the stage directory
    files,         // and the files of the live system
    registration,  // and the new entry of the inventory
};

struct stage {
    const char *name;
    sides of;
    // Result: 0, or the code that ends the change and is the executor's result.
    int (*run)(change *);
    undo after_failure;
};

int run_first_script(change *change) {
    return run_script(*change, change->by->first);
}

int run_last_script(change *change) {
    const int status = run_script(*change, change->by->last);
    return status == 0 || change->by->gives_last_status ? status : -1;
}

void drop_stage(const change &change) {
    if (change.has_stage) {
        vrm_vrf_rmdir(change.stage.base.c_str());
    }
}

// The way out of the inventory. The stage directory with the backups goes first.
int leave_inventory(change *change) {
    drop_stage(*change);
    drop_registration(change->places);
    return 0;
}

int refresh_libraries(change *change) {
    refresh_linker_cache(change->by->who);
    return 0;
}

int leave_configuration(change *change) {
    note_configuration(*change);
    return 0;
}

int leave_stage(change *change) {
    drop_stage(*change);
    return 0;
}

// The links that the new version does not list stay, and are noted from the lists of both.
int forget_old_side(change *change) {
    if (change->is_update()) {
        note_left_links(change->handle, change->old_package->name,
                        change->places.old_entry + "/link.txt", change->places.entry + "/link.txt");
        drop_old_registration(change->places);
    } else if (change->old_package) {
        note_removed_links(change->handle, change->old_package->name);
    }
    return 0;
}

// The life of a change.
constexpr stage stages[] = {
    {"record", sides::any, note_begin, undo::nothing},
    // A package that can't be unpacked or proven leaves its stage directory for a look at it.
    {"unpack", sides::with_new, unpack, undo::nothing},
    {"old side", sides::with_old, read_old_side, undo::stage},
    {"space", sides::with_new, look_at_space, undo::stage},
    {"first script", sides::any, run_first_script, undo::stage},
    {"conflicts", sides::with_new, settle_conflicts, undo::stage},
    {"backups", sides::old_alone, make_backup_directory, undo::nothing},
    {"save", sides::any, save_touched, undo::stage},
    // From now on the live system changes.
    {"take away", sides::with_old, take_files_away, undo::files},
    {"place", sides::with_new, place_files, undo::files},
    {"last script", sides::any, run_last_script, undo::files},
    {"links", sides::old_alone, take_links_away, undo::files},
    {"register", sides::with_new, build_registration, undo::registration},
    {"due", sides::with_new, find_due, undo::registration},
    {"commit", sides::any, commit, undo::registration},
};

// What is left to do once the change can't fail any more. Each step is done, whatever became of the
// ones before it; one that ran out of memory is left to a recovery.
constexpr stage last_stages[] = {
    {"enter", sides::with_new, enter_registration, undo::nothing},
    {"leave", sides::old_alone, leave_inventory, undo::nothing},
    {"libraries", sides::with_new, refresh_libraries, undo::nothing},
    {"configuration", sides::with_new, leave_configuration, undo::nothing},
    {"stage directory", sides::with_new, leave_stage, undo::nothing},
    {"old side", sides::with_old, forget_old_side, undo::nothing},
};

bool has_sides(const change &change, sides wanted) {
    switch (wanted) {
        case sides::with_new:
            return change.new_package != nullptr;
        case sides::with_old:
            return change.old_package != nullptr;
        case sides::old_alone:
            return !change.new_package;
        case sides::any:
            break;
    }
    return true;
}

void take_back(const change &change, undo what) {
    bool is_whole = true;
    if (what == undo::files || what == undo::registration) {
        is_whole = roll_back(change);
    }
    if (what == undo::registration) {
        drop_new_registration(change.places);
    }
    // What could not be put back lies in the stage directory, and the record says where it belongs.
    if (!is_whole) {
        keep_journal();
        return;
    }
    note_undone(change);
    if (what != undo::nothing) {
        drop_stage(change);
    }
}

int run_stages(change *change) {
    const char *who = change->by->who;
    if (!identity_is_safe(who, change->package()) ||
        !stage_paths_of(who, change->handle, change->package(), &change->stage) ||
        !is_stage_trusted(who, change->handle, change->stage)) {
        return -1;
    }
    change->places = inventory_places_of(change->handle, change->package()->name);
    const journal_scope scope(change->handle);
    for (const stage &stage : stages) {
        if (!has_sides(*change, stage.of)) {
            continue;
        }
        if (const int code = attempt(stage.name, [&] { return stage.run(change); })) {
            take_back(*change, stage.after_failure);
            return code;
        }
    }
    for (const stage &stage : last_stages) {
        if (has_sides(*change, stage.of) &&
            attempt(stage.name, [&] { return stage.run(change); }) != 0) {
            keep_journal();
        }
    }
    return 0;
}

}  // namespace

int run_change(change *change) {
    if (change->new_package) {
        have_so = 0;
    }
    return attempt("change", [change] { return run_stages(change); });
}

// ---- The packages of a plan ----

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
    return plan_is_safe(who, transaction) && is_stage_area_trusted(who, handle) &&
           !foreign_record_exists(who, handle);
}

int change_package(const plan_run &run, const vri *package, const char *head,
                   const package_words &words, const std::function<int()> &change_it) {
    const std::string puname = vrk_puname(package);
    const history_line line = {words.action, words.old_puname, puname.c_str(), head};
    expect_history(&line);
    const int code = must_stop(package) ? -1 : change_it();
    expect_history(nullptr);
    if (words.function) {
        log_say(LEVEL_DEBUG, "rc of %s for %s: %d\n", words.function, puname.c_str(), code);
    }
    if (code != 0) {
        if (words.failed) {
            report({.kind = *words.failed, .package = puname, .status = code});
        }
        return code;
    }
    vrm_log_action(words.action, words.old_puname, puname.c_str(), head);
    note_finished();
    report({.kind = words.done, .package = puname});
    if (run.rmpkg) {
        log_say(LEVEL_DEBUG, "removing %s.vrk", puname.c_str());
        unlink(run.last_staged.c_str());
    }
    return 0;
}

int change_dependencies(const plan_run &run, int (*change_one)(const plan_run &, const vrd *)) {
    const vrt *plan = *run.transaction;
    if (!plan->deps) {
        return 0;
    }
    log_say(LEVEL_DEBUG, "%s: Number of deps: %d", run.who, plan->num_deps);
    for (int32_t i = plan->num_deps - 1; i >= 0; i--) {
        if (const int code = plan->deps[i]->info ? change_one(run, plan->deps[i]) : 0) {
            return code;
        }
    }
    return 0;
}
