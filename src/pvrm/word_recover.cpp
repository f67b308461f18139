#include "pvrm/engine_report.h"
#include "pvrm/interruption.h"
#include "pvrm/session.h"
#include "pvrm/tell.h"
#include "transaction/recover.h"
#include "transaction/recover_change.h"

static exit_status abandon(session *work) {
    vrm_handle *const repository = work->repository();
    const int count = vrm_show_recovery(repository);
    if (count == 0) {
        tell_step("no change was cut off");
        return EXIT_DONE;
    }
    tell_problem(
        "warning: without a recovery the packages of that change stay half changed; pvrm verify "
        "and pvrm check show what is wrong with them");
    if (!user_agrees("Leave everything as it is, and never recover from that change?", 0)) {
        tell_problem("nothing was changed");
        return EXIT_FAILED;
    }
    return vrm_abandon_change(repository) == 0 ? EXIT_DONE : EXIT_FAILED;
}

static exit_status recover(session *work) {
    vrm_handle *const repository = work->repository();
    const int count = vrm_recover_change(repository);
    if (count < 0) {
        tell_problem(
            "the system was not repaired; correct that and try again, or give up what was saved "
            "with: pvrm recover --abandon");
        return EXIT_FAILED;
    }
    const int swaps = vrm_undo_broken_swaps(repository);
    if (count == 0 && swaps == 0) {
        tell_step("no change was cut off");
    }
    return EXIT_DONE;
}

exit_status word_recover(const common_options &options, bool gives_up) {
    session work(options);
    if (options.dry_run) {
        if (const exit_status refused = work.begin_change()) {
            return refused;
        }
        if (!work.found_cut_off()) {
            tell_step("no change was cut off");
        }
        return EXIT_DONE;
    }
    hold_signals();
    if (!work.open_repository()) {
        return EXIT_FAILED;
    }
    if (const exit_status refused = work.lock()) {
        return refused;
    }
    return gives_up ? abandon(&work) : recover(&work);
}
