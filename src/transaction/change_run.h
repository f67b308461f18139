// Private to the transactions: what the executors of an install and of an update share.
#pragma once

#include <string>

#include "support/event.h"
#include "support/handle.h"
#include "transaction/vrt.h"

// Whether an executor may begin: the handle holds the lock, nothing in the plan would leave its
// place in a path or on a command line, and the stage area is trusted. Asked before anything is
// touched.
// Result: false, with an ERROR line that begins with `who`.
bool may_carry_out(const char *who, const vrm_handle *handle, const vrt *transaction);

// One run of an executor.
struct change_run {
    const char *who;  // begins the messages: the executor
    vrm_handle *handle;
    vrt **transaction;
    void *connection;
    bool verbose;
    bool rmpkg;
    std::string last_staged;  // the file that was staged last: the one that rmpkg deletes
};

// What the two tell differently of staging.
struct staging_words {
    event_kind announce_dep;  // reports that a dependency is being fetched
    bool lists_deps;          // a DEBUG line for each dependency
};

// Whether the program asked to stop, told as the reason why the package isn't gone on with.
bool must_stop(const vri *next);

// Stages the top package and then the dependencies, in the order of the array, without what is
// installed, and proves what brings dependencies in (prove_dependencies). Result: 0, or -1 with the
// reason on the log; what was staged by then stays.
int stage_all(change_run *run, const staging_words &words);

// Deletes the file that was staged last, whichever package it was for, if `rmpkg` asks for it.
void drop_staged_file(const change_run &run, const vri *package);

// Whether a package is installed by now, which is told as the reason to pass it over.
bool is_installed_by_now(vrm_handle *handle, const vri *package);

// Installs a dependency of a transaction. `failure` is the kind of event that reports a failure:
// the executors spell it differently.
int install_dependency(const change_run &run, const vrd *dep, event_kind failure);

// The top package of a transaction that is to be installed.
int install_top(const change_run &run);
