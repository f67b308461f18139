#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "maintenance/show_log.h"
#include "pvrm/report_format.h"
#include "pvrm/session.h"
#include "pvrm/tell.h"
#include "pvrm/terminal_ui.h"
#include "pvrm/words.h"
#include "support/boundary.h"
#include "support/event.h"
#include "support/file.h"
#include "support/log.h"
#include "ui/sentences.h"

namespace {

// What the reader reports of a history while it is shown.
struct findings {
    std::vector<int64_t> damaged;  // the numbers of the lines that can't be parsed
    bool incomplete = false;       // something else is not shown
    std::string why;               // the first such failure, empty without memory for it
    bool unread = false;           // memory was missing for the next line that is skipped
};

// The kinds that only say why a line can't be parsed. Its number follows them.
bool is_reason_of_damage(event_kind kind) {
    switch (kind) {
        case event_kind::history_line_unparsable:
        case event_kind::history_line_short:
        case event_kind::history_date_unparsable:
        case event_kind::history_date_invalid:
        case event_kind::history_letter_invalid:
        case event_kind::puname_missing:
        case event_kind::puname_without_name:
        case event_kind::puname_without_version:
            return true;
        default:
            return false;
    }
}

// A sentence for each damaged line does not help a user when there are thousands.
void note(const event &happened, void *context) {
    auto *const found = static_cast<findings *>(context);
    const bool skipped = happened.kind == event_kind::history_line_skipped;
    const bool unread = skipped && std::exchange(found->unread, false);
    // Nothing is lost with an empty line. The reader also finds one at the end of a history of one
    // line.
    const bool empty = skipped && happened.other.empty();
    if (unread || empty || event_level(happened.kind) != LEVEL_ERROR ||
        is_reason_of_damage(happened.kind)) {
        return;
    }
    found->unread = happened.kind == event_kind::memory_short && happened.who == "vrm_parse_log";
    guarded([&] { found->incomplete = true; },
            [&] {
                if (skipped) {
                    found->damaged.push_back(happened.number);
                } else if (!found->incomplete) {
                    found->incomplete = true;
                    found->why = sentence_of(happened).text;
                }
            });
}

// "2", "2 and 5", "2, 5 and 7", "2, 5, 7 and others".
std::string first_few(std::vector<int64_t> lines) {
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

void tell_damage(const std::string &path, const std::vector<int64_t> &lines) {
    if (lines.size() == 1) {
        tell_problem("line %" PRId64 " of the history %s makes no sense, and is passed over",
                     lines[0], path.c_str());
    } else if (!lines.empty()) {
        tell_problem("%zu lines of the history %s make no sense, and are passed over: %s",
                     lines.size(), path.c_str(), first_few(lines).c_str());
    }
}

// Where nothing was installed yet there is nothing to show, and that is an answer. `failure` is the
// errno of the reader, which is 0 only for a file that is empty.
exit_status tell_why_nothing(const std::string &path, int failure) {
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

exit_status word_log(const common_options &options, const std::string &format_name,
                     bool oldest_first) {
    const session work(options);
    const list_format format = format_named(format_name, FORMAT_TEXT);
    terminal_verbatim = stream_for(format) != nullptr;
    // The damage is there each time that somebody looks. It is for him, not for the system's log.
    llog->syslog_levels = 0;
    findings found;
    receive_events(note, &found);
    const int lines = vrm_showlog(nullptr, static_cast<unsigned>(format), oldest_first);
    const int failure = errno;
    receive_events(nullptr, nullptr);
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
