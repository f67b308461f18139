#include <cstdio>

#include "pvrm/engine_report.h"
#include "pvrm/installed_needs.h"
#include "pvrm/session.h"
#include "pvrm/words.h"
#include "support/terminal_text.h"

exit_status word_orphans(const common_options &options) {
    session work(options);
    if (!work.open_repository() || !work.has_directories({"installed"})) {
        return EXIT_FAILED;
    }
    for (const std::string &name : installed_needs(work.installed().packages()).orphans()) {
        puts(terminal_safe_cell(name).c_str());
    }
    // What a damaged entry needs is not known: one of these may be wanted by it.
    return reasons_told() == 0 ? EXIT_DONE : EXIT_FAILED;
}
