#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "maintenance/show_log.h"
#include "pvrm/exit_status.h"
#include "pvrm/report_format.h"
#include "pvrm/session.h"
#include "pvrm/tell.h"
#include "pvrm/terminal_ui.h"
#include "pvrm/words.h"
#include "support/file.h"
#include "support/log.h"

namespace {

// The numbers of the lines that make no sense.
using damaged_lines = std::vector<int>;

// A line of the log for each of them is no answer for a user when there are thousands.
void note_damage(uint32_t, const char *message, void *context) {
    int line = 0, empty = 0;
    // An empty line is no loss. It is what the reader finds behind a history of one line, too.
    sscanf(message, "skipping invalid line %d: <>%n", &line, &empty);
    if (line == 0 || empty > 0) {
        return;
    }
    try {
        static_cast<damaged_lines *>(context)->push_back(line);
    } catch (const std::bad_alloc &) {
        return;
    }
}

// "2", "2 and 5", "2, 5 and 7", "2, 5, 7 and others".
std::string first_few(damaged_lines lines) {
    static constexpr size_t few = 3;
    std::sort(lines.begin(), lines.end());
    std::string text;
    for (size_t i = 0; i < std::min(lines.size(), few); i++) {
        const bool last = i + 1 == lines.size();
        text += i == 0 ? "" : last ? " and " : ", ";
        text += std::to_string(lines[i]);
    }
    return text + (lines.size() > few ? " and others" : "");
}

void tell_damage(const std::string &path, const damaged_lines &lines) {
    if (lines.size() == 1) {
        tell_problem("line %d of the history %s makes no sense, and is passed over", lines[0],
                     path.c_str());
    } else if (!lines.empty()) {
        tell_problem("%zu lines of the history %s make no sense, and are passed over: %s",
                     lines.size(), path.c_str(), first_few(lines).c_str());
    }
}

// Where nothing was installed yet there is nothing to show, and that is an answer.
int tell_why_nothing(const std::string &path) {
    const char *why = nullptr;
    if (open_regular(path.c_str(), nullptr, &why).valid()) {
        tell_problem("the history %s is empty: nothing was changed yet", path.c_str());
        return EXIT_DONE;
    }
    if (errno == ENOENT) {
        tell_problem("there is no history %s: nothing was changed yet", path.c_str());
        return EXIT_DONE;
    }
    tell_problem("the history %s can't be read: %s", path.c_str(), why);
    return EXIT_FAILED;
}

}  // namespace

int word_log(const common_options &options, const std::string &format_name, bool oldest_first) {
    const session work(options);
    const list_format format = format_named(format_name, FORMAT_TEXT);
    terminal_verbatim = stream_for(format) != nullptr;
    // The damage is there each time that somebody looks. It is for him, not for the system's log.
    llog->syslog_levels = 0;
    damaged_lines damaged;
    log_observe(note_damage, LEVEL_ERROR, &damaged);
    const int lines = vrm_showlog(nullptr, static_cast<unsigned>(format), oldest_first);
    log_observe(nullptr, 0, nullptr);
    if (lines == 0) {
        return tell_why_nothing(vrm_showlog_path());
    }
    tell_damage(vrm_showlog_path(), damaged);
    return EXIT_DONE;
}
