// Several changes under one record.
#pragma once

#include "support/handle.h"

// The executors record what they change, so that it can be undone or finished after a crash
// (transaction/recover_change.h). Each makes the end of its record durable, which takes a while.
// While an object of this class exists, all changes of the process share one record, which ends
// with the last of these objects, or when the last script or hook has run that is due. What is
// reported as done meanwhile outlives a crash all the same.
class journal_scope {
 public:
    explicit journal_scope(const vrm_handle *handle);
    ~journal_scope();
    journal_scope(const journal_scope &) = delete;
    journal_scope &operator=(const journal_scope &) = delete;
};
