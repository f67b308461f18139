#include "kit/log_capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <regex>

namespace {

// "2024-01-31 12:00:00 [ERROR] ", at the start of a line.
const std::regex &line_head() {
    static const std::regex head(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d \[(\w*)\] )");
    return head;
}

const char *level_word(uint32_t level) {
    switch (level) {
        case LEVEL_ERROR:
            return "ERROR";
        case LEVEL_WARNING:
            return "WARNING";
        case LEVEL_INFO:
            return "INFO";
        case LEVEL_DEBUG:
            return "DEBUG";
        default:
            return "";
    }
}

std::string without_newline(std::string text) {
    if (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    return text;
}

}  // namespace

LogCapture::LogCapture() : before_(llog) {
    snprintf(log_.file, sizeof log_.file, "%s", (dir_ / "log").c_str());
    log_.file_levels = LEVEL_ERROR | LEVEL_WARNING | LEVEL_INFO | LEVEL_DEBUG;
    log_.ready = 1;
    log_.file_enabled = 1;
    log_.level_names = level_string;
    llog = &log_;
}

LogCapture::~LogCapture() {
    llog = before_;
}

std::vector<LogCapture::Line> LogCapture::lines() const {
    std::vector<Line> found;
    if (!exists(log_.file)) {
        return found;
    }
    const std::string all = read_all(log_.file);
    for (size_t at = 0; at < all.size();) {
        size_t end = all.find('\n', at);
        end = end == std::string::npos ? all.size() : end;
        const std::string line = all.substr(at, end - at);
        at = end + 1;
        std::smatch head;
        if (std::regex_search(line, head, line_head())) {
            found.push_back({head[1], head.suffix().str()});
        } else if (!found.empty()) {
            found.back().text += "\n" + line;  // of a message of several lines
        }
    }
    for (Line &line : found) {
        line.text = without_newline(line.text);
    }
    return found;
}

std::string LogCapture::text() const {
    static const std::regex time(R"((^|\n)\d{4}-\d\d-\d\d \d\d:\d\d:\d\d (?=\[))");
    return exists(log_.file) ? std::regex_replace(read_all(log_.file), time, "$1") : "";
}

bool LogCapture::has(uint32_t level, const std::string &text) const {
    const std::vector<std::string> messages = at(level);
    return std::find(messages.begin(), messages.end(), without_newline(text)) != messages.end();
}

std::vector<std::string> LogCapture::at(uint32_t level) const {
    std::vector<std::string> messages;
    for (Line &line : lines()) {
        if (line.level == level_word(level)) {
            messages.push_back(std::move(line.text));
        }
    }
    return messages;
}

bool LogCapture::has_line_end(uint32_t level, const std::string &text) const {
    EXPECT_TRUE(has(level, text)) << text;
    const std::string line = std::string(" [") + level_word(level) + "] " + text + "\n\n";
    return exists(log_.file) && read_all(log_.file).find(line) != std::string::npos;
}

void LogCapture::clear() {
    std::filesystem::remove(log_.file);
}
