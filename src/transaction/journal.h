// Private to the library: the journal of a change, by which one that was cut off can be taken back
// or finished.
//
// The process writes a record of what it is about to do (transaction/record.h), saves what it is
// going to touch, and marks what is done. There is one journal in a process, of the repository that
// it holds the lock of. It begins with the first change of a package and ends with the outermost
// journal_scope, unless scripts or hooks are still due.
//
// While it exists there is also a status file for everybody, `change.status` below the repository's
// root, in the form of a note of a running script: the process, the package and the operation.
#pragma once

#include <string>

#include "support/handle.h"
#include "transaction/journal_scope.h"

// Whether a record is there that is not this process's. Reports it, beginning with `who`.
bool foreign_record_exists(const char *who, const vrm_handle *handle);

// What a journal_scope does. The outermost one ends the journal.
void enter_scope(const vrm_handle *handle);
void leave_scope();

// Ends the journal when no scope exists, although something is still due.
void end_idle_journal();

struct change;

// The line of the history that the next change of a package brings. Null for none.
struct history_line {
    int action;
    const char *old_puname, *new_puname, *head;
};
void expect_history(const history_line *line);

// ---- The stages of a change ----

// Records that a change begins. Result: 0, or -1 with an ERROR line.
int note_begin(change *change);
// Records that a script begins.
void note_script(const change &change, const char *script);
// Records the directory that was made for copies of files that belong to nobody, ahead of the first
// copy: they go when the change is taken back. Result: 0, or -1 with an ERROR line.
int note_saved_set(const change &change, const std::string &directory);
// Finds out, records and saves what the change will touch. From its end on the live system may be
// changed. Result: 0, or -1 with an ERROR line.
int save_touched(change *change);
// Makes everything durable and records that the change has happened. Result as above.
int commit(change *change);
// After a rollback: puts back what it does not. Modes that were set stay set, as all that a
// rollback leaves. Result: whether all of the old version is back.
bool repair(const change &change);
// Records that a failed change is taken back.
void note_undone(const change &change);
// Leaves the journal to a recovery, as that failed.
void keep_journal();
// Records that the last change has come to its end.
void note_finished();
// Records that what was due has run.
void note_done(const char *package, const char *what);
// That nothing is due any more.
void drop_due();

// The status file of a repository.
std::string status_path(const vrm_handle *handle);
