#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "maintenance/show_log.h"
#include "pvrm/engine_report.h"
#include "pvrm/exit_status.h"
#include "pvrm/report_format.h"
#include "pvrm/session.h"
#include "pvrm/tell.h"
#include "pvrm/terminal_ui.h"
#include "pvrm/words.h"
#include "support/file.h"
#include "support/log.h"

namespace {

// What the reader's log tells of a history while it is shown.
struct findings {
    std::vector<int> damaged;  // the numbers of the lines that make no sense
    bool incomplete = false;   // something else is not shown
    std::string why;           // the first such failure, empty without memory for it
    bool unread = false;       // memory was missing for the next line that is skipped
};

// How the log's lines begin that only say why a line makes no sense. Its number follows them.
constexpr const char *reasons_of_damage[] = {"vrm_parse_log: failure parsing line",
                                             "vrm_parse_log: falure parsing date",
                                             "vrm_parse_log: invalid ", "vrk_puname_decode: "};

bool starts_with(const char *message, const char *start) {
    return strncmp(message, start, strlen(start)) == 0;
}

bool is_reason_of_damage(const char *message) {
    return std::any_of(std::begin(reasons_of_damage), std::end(reasons_of_damage),
                       [message](const char *start) { return starts_with(message, start); });
}

// A line of the log for each damaged one is no answer for a user when there are thousands.
void note(uint32_t level, const char *message, void *context) {
    auto *const found = static_cast<findings *>(context);
    int line = 0, empty = 0;
    // An empty line is no loss. It is what the reader finds behind a history of one line, too.
    sscanf(message, "skipping invalid line %d: <>%n", &line, &empty);
    const bool unread = line > 0 && std::exchange(found->unread, false);
    if (unread || empty > 0 || is_reason_of_damage(message)) {
        return;
    }
    found->unread = starts_with(message, "vrm_parse_log: ");
    try {
        if (line > 0) {
            found->damaged.push_back(line);
        } else if (!found->incomplete) {
            found->incomplete = true;
            found->why = understand(level, message).text;
        }
    } catch (const std::bad_alloc &) {
        found->incomplete = true;
    }
}

// "2", "2 and 5", "2, 5 and 7", "2, 5, 7 and others".
std::string first_few(std::vector<int> lines) {
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

void tell_damage(const std::string &path, const std::vector<int> &lines) {
    if (lines.size() == 1) {
        tell_problem("line %d of the history %s makes no sense, and is passed over", lines[0],
                     path.c_str());
    } else if (!lines.empty()) {
        tell_problem("%zu lines of the history %s make no sense, and are passed over: %s",
                     lines.size(), path.c_str(), first_few(lines).c_str());
    }
}

// Where nothing was installed yet there is nothing to show, and that is an answer. `failure` is the
// errno of the reader, which is 0 only for a file that is empty.
int tell_why_nothing(const std::string &path, int failure) {
    const char *why = nullptr;
    if (open_regular(path.c_str(), nullptr, &why).valid()) {
        if (failure == 0) {
            tell_problem("the history %s is empty: nothing was changed yet", path.c_str());
            return EXIT_DONE;
        }
        why = strerror(failure);
    } else if (errno == ENOENT) {
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
    findings found;
    log_observe(note, LEVEL_ERROR, &found);
    const int lines = vrm_showlog(nullptr, static_cast<unsigned>(format), oldest_first);
    const int failure = errno;
    log_observe(nullptr, 0, nullptr);
    const std::string path = vrm_showlog_path();
    if (lines == 0) {
        return tell_why_nothing(path, failure);
    }
    tell_damage(path, found.damaged);
    if (found.incomplete) {
        tell_problem("the history %s is not shown whole: %s", path.c_str(),
                     found.why.empty() ? "there is not enough memory" : found.why.c_str());
        return EXIT_FAILED;
    }
    return EXIT_DONE;
}
