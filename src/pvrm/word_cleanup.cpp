#include <string>

#include "maintenance/cleanup.h"
#include "maintenance/upkeep.h"
#include "pvrm/engine_report.h"
#include "pvrm/interruption.h"
#include "pvrm/session.h"
#include "pvrm/tell.h"
#include "pvrm/words.h"

static std::string number_of_entries(int count) {
    if (count == 0) {
        return "nothing";
    }
    return std::to_string(count) + (count == 1 ? " entry" : " entries");
}

exit_status word_cleanup(const common_options &options) {
    session work(with_a_dry_run_told(options));
    if (const exit_status refused = work.begin_change()) {
        return refused;
    }
    dry_run = options.dry_run;
    const size_t problems_before = reasons_told();
    const int count = vrm_cleanup(work.repository());
    if (count < 0) {
        tell_problem(was_interrupted() ? "interrupted: the cleanup was not finished"
                                       : "the cleanup was not finished");
        return EXIT_FAILED;
    }
    const std::string entries = number_of_entries(count), size = take_outcome();
    if (options.dry_run) {
        tell_step("would remove %s and free %s", entries.c_str(), size.c_str());
    } else {
        tell_step("removed %s and freed %s", entries.c_str(), size.c_str());
    }
    return reasons_told() == problems_before ? EXIT_DONE : EXIT_FAILED;
}
