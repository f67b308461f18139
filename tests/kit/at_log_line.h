// Does something at the first log line that begins with a text, in the middle of what logs it.
#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "support/log.h"

class AtLogLine {
 public:
    // The log and its masks must be those of the test (kit/log_capture.h). There is one object at a
    // time. With an empty text it does it at once.
    AtLogLine(std::string beginning, std::function<void()> act)
        : beginning_(std::move(beginning)),
          act_(std::move(act)),
          before_(stderr),
          levels_before_(llog->stderr_levels) {
        current_ = this;
        // Not closed: who wrote to it once may do so again.
        static FILE *const watched = [] {
            FILE *const stream = fopencookie(nullptr, "w", {nullptr, take, nullptr, nullptr});
            setvbuf(stream, nullptr, _IOLBF, 0);
            return stream;
        }();
        llog->stderr_levels = LEVEL_DEBUG | LEVEL_INFO | LEVEL_WARNING | LEVEL_ERROR;
        stderr = watched;
        if (beginning_.empty()) {
            reached_ = true;
            act_();
        }
    }
    ~AtLogLine() {
        stderr = before_;
        llog->stderr_levels = levels_before_;
        current_ = nullptr;
    }
    AtLogLine(const AtLogLine &) = delete;
    AtLogLine &operator=(const AtLogLine &) = delete;

    bool reached() const {
        return reached_;
    }

 private:
    static ssize_t take(void *, const char *line, size_t size) {
        if (current_ && !current_->reached_ &&
            std::string_view(line, size).starts_with(current_->beginning_)) {
            current_->reached_ = true;
            current_->act_();
        }
        return static_cast<ssize_t>(size);
    }

    const std::string beginning_;
    const std::function<void()> act_;
    FILE *const before_;
    const uint32_t levels_before_;
    bool reached_ = false;
    static inline AtLogLine *current_ = nullptr;
};
