// Takes the place of the process's log for a test, with every level kept. Only its own file is
// written, neither syslog nor stderr. As in every log file a message is cut at 1900 bytes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kit/temp_dir.h"
#include "support/log.h"

class LogCapture {
 public:
    LogCapture();  // llog is a log of this object's own from here on
    ~LogCapture();
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    struct Line {
        std::string level;  // "ERROR", "WARNING", "INFO", "DEBUG"
        std::string text;   // a message that ends in a newline keeps it out of here
        bool operator==(const Line &) const = default;
    };
    std::vector<Line> lines() const;
    // All of the log as it is in the file, without the times: "[ERROR] message" and its line end.
    std::string text() const;

    // Whether exactly this message was logged at exactly this level, with or without the newline
    // that some messages end in.
    bool has(uint32_t level, const std::string &text) const;
    // The messages of one level, in order.
    std::vector<std::string> at(uint32_t level) const;
    // Whether the message, given without it, brings a line end of its own: an empty line follows it
    // in the log.
    bool has_line_end(uint32_t level, const std::string &text) const;
    void clear();

 private:
    TempDir dir_;
    log_object log_{};
    log_object *before_;
};
