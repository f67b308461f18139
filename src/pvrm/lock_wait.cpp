#include "pvrm/lock_wait.h"

#include <cinttypes>
#include <ctime>

#include "pvrm/interruption.h"
#include "pvrm/tell.h"
#include "repository/repository.h"

exit_status wait_while(const std::function<bool()> &goes_on, const wait_end &until) {
    while (goes_on()) {
        if (was_interrupted()) {
            tell_problem("interrupted: nothing was changed");
            return EXIT_FAILED;
        }
        if (until.has_come()) {
            return EXIT_LOCKED;
        }
        // No call of the system waits for a process that is not a child, on every kernel.
        timespec pause = {0, 50'000'000};
        nanosleep(&pause, nullptr);  // shorter when a signal comes
    }
    return EXIT_DONE;
}

exit_status await_other_change(vrm_handle *handle, const wait_end &until) {
    pid_t holder = vrm_lock_holder(handle);
    if (holder > 0 && until.seconds() != 0) {
        tell_problem("waiting for process %d, which is changing the repository",
                     static_cast<int>(holder));
    }
    const auto is_held = [&] {
        const pid_t now = vrm_lock_holder(handle);
        holder = now > 0 ? now : holder;
        return now > 0;
    };
    const exit_status ended = wait_while(is_held, until);
    if (ended != EXIT_LOCKED) {
        return ended;
    }
    if (until.seconds() > 0) {
        tell_problem("process %d has not ended its change of the repository within %" PRId64
                     " s: nothing was changed; try again when it has ended",
                     static_cast<int>(holder), until.seconds());
    } else {
        tell_problem("process %d is changing the repository; try again when it has ended",
                     static_cast<int>(holder));
    }
    return EXIT_LOCKED;
}
