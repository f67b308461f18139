#include "transaction/journal_scope.h"

#include "transaction/journal.h"

journal_scope::journal_scope(const vrm_handle *handle) {
    enter_scope(handle);
}

journal_scope::~journal_scope() {
    leave_scope();
}
