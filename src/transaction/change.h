// A change of one package, and the engine that runs its stages.
//
// A change has an old side (a removal), a new side (an installation), or both (an update). Its
// life, by the files of this directory:
//
//   plan_*       what will be done, for one request
//   install, update, removal
//                the executors: in what they differ, and their way through the packages of a plan
//   stage_area   where the work is done, and whose it is
//   fetch        the package files come into the stage area
//   unpack       one is unpacked and proven
//   space        there must be room for it
//   scripts      00-add.sh or 00-del.sh
//   conflicts    what is in the way is settled (with link_conflicts and changed_kinds), and kept
//   journal      what will be touched is recorded and saved (with record and touched)
//   place        the old files go, the new ones come (with exchange)
//   scripts      99-add.sh or 99-del.sh
//   register     the new entry of the inventory is built
//   journal      all is written to the disk, and the change has happened
//   register     the inventory gets the new entry, or loses the old one
//   scripts      99-cfg.sh and hooks, at the end of the transaction
//   rollback     a change that failed is taken back
//   recover      one that was cut off is repaired
//
// change.cpp has the exact order. Private to the library.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>

#include "package/file_digests.h"
#include "support/boundary.h"
#include "support/event.h"
#include "transaction/changed_kinds.h"
#include "transaction/exchange.h"
#include "transaction/link_conflicts.h"
#include "transaction/register.h"
#include "transaction/rollback.h"
#include "transaction/scripts.h"
#include "transaction/stage_area.h"
#include "transaction/touched.h"
#include "transaction/unpack.h"

// Takes a step of a change and hands on its result. A step that runs out of memory has failed like
// any other, with -1, and what it did until then is taken back in the same way. `name` is for the
// receiver of the event.
template <typename Step>
int attempt(const char *name, const Step &step) {
    return guarded(
        [name] {
            report({.kind = event_kind::change_memory_exhausted, .other = name});
            return -1;
        },
        step);
}

// ---- One package ----

// In what the executors differ. All else is one algorithm.
struct executor {
    const char *who;  // the public function, with which messages begin
    change_script first, last;
    // Whether the result of a failed last script is its status, and not -1.
    bool gives_last_status = true;

    // What becomes of the files of the old side.
    struct {
        std::optional<event_kind> missing = {};  // none: not reported
        event_kind not_saved, not_removed;
    } old_files = {};

    // What a new side needs.
    struct {
        const char *mode;  // VRM_MODE of the scripts
        int hook_context;  // of vrm_hooks_parse
        event_kind not_proven, conflicts, begun;
        event_kind data_not_placed;
        bool numbers_data;  // a DEBUG line with the number of each data file
        event_kind conf_placed;
        std::optional<event_kind> not_registered = {};  // beside the name of what was not copied
    } added = {};
};
extern const executor installing, updating, removing;

// The change of one package: what its stages share.
struct change {
    const executor *by;
    vrm_handle *handle;
    vrt *transaction;        // null in a removal
    const vri *old_package;  // as in the inventory; null in an installation
    const vri *new_package;  // as planned, and from `unpack` on as signed; null in a removal
    const char *head;        // in an installation, the package for whose sake it is done
    bool verbose;

    stage_paths stage = {};
    inventory_places places = {};
    bool has_stage = false;  // whether the stage directory is this change's

    file_digests unpacked = {};  // the plain files, by their path below the directory for them
    package_forks forks = {};    // what was unpacked, and proven
    own_vri file_head = {};      // the head of the staged file, with the verified signature
    own_vri signed_record = {};  // what `new_package` is from `unpack` on
    own_array old_files = {};    // of an update: those of the file index; null without one
    own_array taken = {};        // of an update: the data files that the new version lacks
    own_array written = {};      // the data files that are really written; null without data
    settled_links links = {};    // of the new side
    changed_kinds kinds = {};    // of an update
    std::unordered_set<std::string> shared_links = {};  // of a removal
    rollback_notes notes = {};
    bool recorded = false;                           // whether the journal knows of it
    touched_paths touched = {};                      // from `save` on
    std::unique_ptr<backup_tree> backups = nullptr;  // and so are they
    own_array due = {};  // what is to be run at the end of the transaction

    const vri *package() const {
        return new_package ? new_package : old_package;
    }
    bool is_update() const {
        return old_package && new_package;
    }
};

// Runs the stages of a change whose first group of fields is set. What a failed stage leaves is
// taken back here, so that a stage need only say that it failed.
// Result: 0, or the code of the stage that failed: -1, that of the verification, or a script's raw
// wait status.
int run_change(change *change);

// ---- The packages of a plan ----

// One run of an executor of plans.
struct plan_run {
    const char *who;  // the public function, with which messages begin
    vrm_handle *handle;
    vrt **transaction;
    void *connection;
    bool verbose;
    bool rmpkg;
    std::string last_staged = {};  // the file that was staged last: the one that rmpkg deletes
};

// Whether an executor may begin: the handle holds the lock, nothing in the plan would leave its
// place in a path or on a command line, and the stage area is trusted. Asked before anything is
// touched.
// Result: false, with an ERROR line that begins with `who`.
bool may_carry_out(const char *who, const vrm_handle *handle, const vrt *transaction);

// What is reported of the change of one package of a plan.
struct package_words {
    int action;  // of vrm_log_action
    event_kind done;
    std::optional<event_kind> failed = {};  // none: not reported
    const char *function = nullptr;         // of a DEBUG line with the result; null for none
    const char *old_puname = nullptr;       // of what is replaced
};

// Changes one package of a plan by a function, unless the program asked to stop: writes the success
// to the action log, reports how it went, and deletes the file that was staged last, whichever
// package it was for, if `rmpkg` asks for it. `head` is the package for whose sake it is done, null
// for the user's. Result: that of the function, -1 for a stop.
int change_package(const plan_run &run, const vri *package, const char *head,
                   const package_words &words, const std::function<int()> &change_it);

// Takes the dependencies of a plan, those with a package, from the last to the first. Ends with the
// first result that is not 0.
int change_dependencies(const plan_run &run, int (*change_one)(const plan_run &, const vrd *));
