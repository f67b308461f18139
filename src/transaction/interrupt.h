// How a program asks an executor to stop between two packages, and a cleanup between two entries.
#pragma once

#include <csignal>

#include "package/vri.h"
#include "support/event.h"

// A signal handler sets it to 1. The executors look at it before each package is staged or
// installed, never within one: then they log "interrupted, not going on with %s" at ERROR and end
// as after a failed package, with -1. vrm_cleanup looks at it before each entry and takes it for an
// abort. Nobody in the engine clears it.
inline volatile sig_atomic_t vrm_stop_requested = 0;

// Whether the program asked to stop, which is reported as the reason why the package isn't changed.
inline bool must_stop(const vri *next) {
    if (vrm_stop_requested) {
        report({.kind = event_kind::interrupted, .package = vrk_puname(next)});
    }
    return vrm_stop_requested;
}
