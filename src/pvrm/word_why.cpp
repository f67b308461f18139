#include <cstdio>
#include <optional>
#include <string>

#include "pvrm/engine_report.h"
#include "pvrm/installed_needs.h"
#include "pvrm/request.h"
#include "pvrm/session.h"
#include "pvrm/tell.h"
#include "pvrm/words.h"
#include "support/terminal_text.h"

static void print_reason(const std::string &name, const installed_needs::reason &reason) {
    const std::string shown = terminal_safe_cell(name);
    if (reason.asked_for) {
        printf("%s was installed explicitly\n", shown.c_str());
    }
    for (const auto &chain : reason.chains) {
        std::string line;
        for (const std::string &link : chain) {
            line += (line.empty() ? "" : " -> ") + terminal_safe_cell(link);
        }
        puts(line.c_str());
    }
    if (!reason.asked_for && !reason.chains_are_wanted) {
        printf(
            "%s came as a dependency of %s, and nothing that was installed explicitly needs it\n",
            shown.c_str(), terminal_safe_cell(reason.head).c_str());
    }
}

exit_status word_why(const common_options &options, const std::string &name) {
    session work(options);
    if (names_nothing(name) || !work.open_repository() || !work.has_directories({"installed"})) {
        return EXIT_FAILED;
    }
    const std::optional<installed_needs::reason> reason =
        installed_needs(work.installed().packages()).why(name);
    if (!reason) {
        tell_problem("%s is not installed", name.c_str());
        return EXIT_FAILED;
    }
    print_reason(name, *reason);
    // What a damaged entry needs is not known.
    return reasons_told() == 0 ? EXIT_DONE : EXIT_FAILED;
}
