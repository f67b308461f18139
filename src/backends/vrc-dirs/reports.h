// What the backend has to report to the program.
#pragma once

#include <string>
#include <vector>

#include "vrm/vrc_backend.h"

namespace vrc_dirs {

// Reports go to the program, which logs them. Where the program did not ask for them they go to the
// log. What is reported while the backend connects waits, as the program can ask only afterwards.
class backend_reports {
 public:
    // From here on reports go to the program, first those that wait. Null ends that.
    void set_receiver(vrc_report_function function, void *context);
    // The connection is used. Nothing waits any more: a program that wants reports has asked.
    void end_waiting();

    // A directory that can't be read, or only a part of it. `error` is an errno value.
    void unreadable_directory(const std::string &path, int error, bool is_begun);
    // A file that is no package file, or a damaged one.
    void damaged_file(const std::string &path);
    // A file that is left out for another reason.
    void skipped_file(const std::string &path, int error);
    void skipped_file(const std::string &path, const std::string &why);
    // Something else, and why a call fails. `error` is an errno value or 0, `package` a name.
    void warn(const std::string &text, int error = 0, const char *path = nullptr);
    void fail(const std::string &text, int error = 0, const char *path = nullptr,
              const char *package = nullptr);

 private:
    struct waiting_report {
        vrc_report report;
        std::string path, text;
    };
    void give(vrc_report_kind kind, int error, const char *path, const char *text,
              const char *package = nullptr);
    void give(const vrc_report &report) const;

    vrc_report_function function_ = nullptr;
    void *context_ = nullptr;
    bool is_waiting_ = true;
    std::vector<waiting_report> waiting_;
};

}  // namespace vrc_dirs
