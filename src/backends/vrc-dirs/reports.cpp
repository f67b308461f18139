#include "backends/vrc-dirs/reports.h"

#include <utility>

#include "repository/vrc.h"

namespace vrc_dirs {

void backend_reports::set_receiver(vrc_report_function function, void *context) {
    function_ = function;
    context_ = context;
    end_waiting();
}

void backend_reports::end_waiting() {
    is_waiting_ = false;
    for (waiting_report &one : std::exchange(waiting_, {})) {
        const auto text = [](const std::string &s) { return s.empty() ? nullptr : s.c_str(); };
        one.report.path = text(one.path);
        one.report.text = text(one.text);
        give(one.report);
    }
}

void backend_reports::give(const vrc_report &report) const {
    if (function_) {
        function_(&report, context_);
    } else {
        vrm_vrc_report(&report, "vrc-dirs");
    }
}

void backend_reports::give(vrc_report_kind kind, int error, const char *path, const char *text,
                           const char *package) {
    const vrc_report report = {sizeof report, static_cast<uint32_t>(kind), error, 0, path, text,
                               package};
    if (is_waiting_) {
        waiting_.push_back({report, path ? path : "", text ? text : ""});
    } else {
        give(report);
    }
}

void backend_reports::unreadable_directory(const std::string &path, int error, bool is_begun) {
    give(is_begun ? VRC_REPORT_DIRECTORY_PART : VRC_REPORT_DIRECTORY, error, path.c_str(), nullptr);
}

void backend_reports::damaged_file(const std::string &path) {
    give(VRC_REPORT_DAMAGED, 0, path.c_str(), "not a package file, or a damaged one");
}

void backend_reports::skipped_file(const std::string &path, int error) {
    give(VRC_REPORT_SKIPPED, error, path.c_str(), nullptr);
}

void backend_reports::skipped_file(const std::string &path, const std::string &why) {
    give(VRC_REPORT_SKIPPED, 0, path.c_str(), why.c_str());
}

void backend_reports::warn(const std::string &text, int error, const char *path) {
    give(VRC_REPORT_WARNING, error, path, text.c_str());
}

void backend_reports::fail(const std::string &text, int error, const char *path,
                           const char *package) {
    give(VRC_REPORT_ERROR, error, path, text.c_str(), package);
}

}  // namespace vrc_dirs
