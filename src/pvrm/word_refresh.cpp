#include "pvrm/engine_report.h"
#include "pvrm/interruption.h"
#include "pvrm/session.h"
#include "pvrm/tell.h"
#include "pvrm/words.h"

exit_status word_refresh(const common_options &options) {
    outlive_watchers();
    session work(options);
    if (!work.open_repository() || !work.connect()) {
        return EXIT_FAILED;
    }
    if (options.dry_run) {
        tell_step("would refresh the package catalogue");
        return EXIT_DONE;
    }
    tell_step("refreshing the package catalogue");
    if (!work.refresh()) {
        tell_failure("the package catalogue can't be refreshed");
        return EXIT_FAILED;
    }
    if (unreadable_directories() > 0) {
        tell_problem("the package catalogue is up to date, except for what cannot be read");
        return EXIT_FAILED;
    }
    tell_step("the package catalogue is up to date");
    return EXIT_DONE;
}
