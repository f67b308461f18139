// Private to the reader and the rewriter of configuration files: what a line is.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

// The line of a file's content that begins at `at`, with its newline if it has one. A line holds at
// most one byte less than the file, which only a file of a single line can exceed: that line comes
// in two pieces.
inline std::string_view vconf_line_at(std::string_view content, size_t at) {
    const size_t limit = std::min(std::max<size_t>(content.size() - 1, 1), content.size() - at);
    const std::string_view line = content.substr(at, limit);
    return line.substr(0, line.find('\n') == line.npos ? line.npos : line.find('\n') + 1);
}
