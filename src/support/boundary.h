// The boundary of the public functions and of the programs, which exceptions do not cross.
#pragma once

#include <cerrno>
#include <new>
#include <type_traits>

#include "support/event.h"

// Runs the body of a function and returns its result. When memory fails, errno is ENOMEM and the
// result is `failure`, or what it returns where it is a function.
template <typename Failure, typename Body>
auto guarded(const Failure &failure, const Body &body) -> std::invoke_result_t<const Body &> {
    try {
        return body();
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        if constexpr (std::is_invocable_v<const Failure &>) {
            return failure();
        } else {
            return failure;
        }
    }
}

// The same for a function that reports the failure, under its public name.
template <typename Failure, typename Body>
auto guarded(const char *who, const Failure &failure, const Body &body) {
    return guarded(
        [&]() -> std::invoke_result_t<const Body &> {
            report({.kind = event_kind::memory_short, .who = who});
            return failure;
        },
        body);
}
