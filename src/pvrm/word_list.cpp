#include "pvrm/engine_report.h"
#include "pvrm/report_format.h"
#include "pvrm/session.h"
#include "pvrm/tell.h"
#include "pvrm/words.h"
#include "repository/inventory.h"

exit_status word_list(const common_options &options, const std::string &pattern,
                      const std::string &format) {
    session work(options);
    if (!work.open_repository() || !work.has_directories({"installed"})) {
        return EXIT_FAILED;
    }
    warn_of_cut_off_change(work.repository());
    vri **raw = nullptr;
    const int count =
        vrm_list_vri(work.repository(), pattern.empty() ? nullptr : pattern.c_str(), 1, &raw);
    const own_vri_list list(raw);
    if (count == 0 && !pattern.empty()) {
        tell_problem("no installed package matches %s", pattern.c_str());
        return EXIT_FAILED;
    }
    // An inventory that can't be read to its end is no empty one.
    if (count == 0 && reasons_told() > 0) {
        return EXIT_FAILED;
    }
    return report_list(raw, count, 2, format_named(format, FORMAT_TABLE));
}
