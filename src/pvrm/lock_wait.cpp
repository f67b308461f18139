#include "pvrm/lock_wait.h"

#include <cinttypes>
#include <ctime>

#include "pvrm/interruption.h"
#include "pvrm/tell.h"
#include "repository/repository.h"

wait_result wait_while(const std::function<bool()> &goes_on, const wait_end &until) {
    while (goes_on()) {
        if (was_interrupted()) {
            return wait_result::interrupted;
        }
        if (until.has_come()) {
            return wait_result::late;
        }
        // No call of the system waits for a process that is not a child, on every kernel.
        timespec pause = {0, 50'000'000};
        nanosleep(&pause, nullptr);  // shorter when a signal comes
    }
    return wait_result::over;
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
    switch (wait_while(is_held, until)) {
        case wait_result::over:
            return EXIT_DONE;
        case wait_result::interrupted:
            tell_problem("interrupted: nothing was changed");
            return EXIT_FAILED;
        case wait_result::late:
            break;
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
