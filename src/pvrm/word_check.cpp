#include <string>

#include "maintenance/consistency_audit.h"
#include "maintenance/inventory_audit.h"
#include "maintenance/upkeep.h"
#include "pvrm/engine_report.h"
#include "pvrm/interruption.h"
#include "pvrm/session.h"
#include "pvrm/tell.h"
#include "pvrm/terminal_ui.h"
#include "pvrm/words.h"

static std::string counted(int count, const char *one, const char *many) {
    return (count == 0 ? "no" : std::to_string(count)) + " " + (count == 1 ? one : many);
}

exit_status word_check(const common_options &options) {
    session work(options);
    if (const exit_status refused = work.begin_change()) {
        return refused;
    }
    dry_run = options.dry_run;
    terminal_informs = false;  // each finding comes as an event as well
    const size_t problems_before = reasons_told();
    // Entries first: what is removed of them needs nothing any more.
    const int invalid = vrm_chkinst(work.repository(), !options.quiet);
    const int orphans = invalid < 0 ? -1 : vrm_chkhead(work.repository());
    const int others = orphans < 0 ? -1 : vrm_chkconsistency(work.repository());
    if (others < 0) {
        tell_problem(was_interrupted() ? "interrupted: the check was not finished"
                                       : "the check was not finished");
        return EXIT_FAILED;
    }
    const std::string damaged = counted(invalid, "damaged entry", "damaged entries");
    const std::string left_over =
        counted(orphans, "dependency left over", "dependencies left over");
    if (others == 0) {
        tell_step("found %s and %s", damaged.c_str(), left_over.c_str());
    } else {
        tell_step("found %s, %s and %s", damaged.c_str(), left_over.c_str(),
                  counted(others, "other problem", "other problems").c_str());
    }
    const bool clean =
        invalid == 0 && orphans == 0 && others == 0 && reasons_told() == problems_before;
    return clean ? EXIT_DONE : EXIT_FAILED;
}
