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
        if (beginning_.empty()) {
            reached_ = true;
            act_();
        }
        llog->stderr_levels = LEVEL_DEBUG | LEVEL_INFO | LEVEL_WARNING | LEVEL_ERROR;
        stderr = fopencookie(this, "w", {nullptr, take, nullptr, nullptr});
        setvbuf(stderr, nullptr, _IOLBF, 0);
    }
    ~AtLogLine() {
        fclose(std::exchange(stderr, before_));
        llog->stderr_levels = levels_before_;
    }
    AtLogLine(const AtLogLine &) = delete;
    AtLogLine &operator=(const AtLogLine &) = delete;

    bool reached() const {
        return reached_;
    }

 private:
    static ssize_t take(void *cookie, const char *line, size_t size) {
        auto *self = static_cast<AtLogLine *>(cookie);
        if (!self->reached_ && std::string_view(line, size).starts_with(self->beginning_)) {
            self->reached_ = true;
            self->act_();
        }
        return static_cast<ssize_t>(size);
    }

    const std::string beginning_;
    const std::function<void()> act_;
    FILE *const before_;
    const uint32_t levels_before_;
    bool reached_ = false;
};
