// Waiting for what another process does, and for the end of another change in particular.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

#include "pvrm/words.h"
#include "support/handle.h"

// The longest time to wait that may be asked for, in seconds: a year.
inline constexpr int64_t longest_wait = int64_t{365} * 86400;

// The end of a wait that begins now.
class wait_end {
 public:
    // -1 seconds: no end.
    explicit wait_end(int64_t seconds)
        : seconds_(seconds),
          end_(std::chrono::steady_clock::now() +
               std::chrono::seconds(seconds < 0 ? longest_wait : seconds)) {}

    bool has_come() const {
        return std::chrono::steady_clock::now() >= end_;
    }
    int64_t seconds() const {
        return seconds_;
    }

 private:
    int64_t seconds_;
    std::chrono::steady_clock::time_point end_;
};

// Waits as long as something goes on. Result: EXIT_DONE; EXIT_FAILED when the wait was interrupted,
// which is printed; EXIT_LOCKED when its end has come, which the caller prints.
exit_status wait_while(const std::function<bool()> &goes_on, const wait_end &until);

// Waits until no other process changes the repository. Result: EXIT_DONE; EXIT_LOCKED when the end
// has come first, EXIT_FAILED when the wait was interrupted, both with the reason printed.
exit_status await_other_change(vrm_handle *handle, const wait_end &until);
