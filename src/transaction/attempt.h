// Private to the transactions.
#pragma once

#include <new>

#include "support/event.h"

// Takes a step of a change and hands on its result. A step that runs out of memory has failed like
// any other, with -1, and what it did until then is taken back in the same way.
template <typename Step>
int attempt(const Step &step) try {
    return step();
} catch (const std::bad_alloc &) {
    report({.kind = event_kind::change_memory_exhausted});
    return -1;
}
