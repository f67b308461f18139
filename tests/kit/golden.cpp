#include "kit/golden.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <vector>

#include "kit/temp_dir.h"

namespace {

std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

// A few lines from the first that differs on.
std::string some_of(const std::vector<std::string> &lines, size_t from, const std::string &mark) {
    static constexpr size_t shown = 3;
    std::string text;
    for (size_t i = from; i < std::min(lines.size(), from + shown); i++) {
        text += mark + lines[i] + "\n";
    }
    return text.empty() ? mark + "(end)\n" : text;
}

}  // namespace

void expect_golden(const std::string &path, const std::string &text) {
    if (getenv(golden_variable)) {
        std::ofstream(path) << text;
        ADD_FAILURE() << path << " is written anew. Read what changed, and run the test without "
                      << golden_variable << ".";
        return;
    }
    if (!exists(path)) {
        ADD_FAILURE() << path << " is missing";
        return;
    }
    const std::vector<std::string> expected = lines_of(read_all(path)), found = lines_of(text);
    const auto [one, other] =
        std::mismatch(expected.begin(), expected.end(), found.begin(), found.end());
    if (one == expected.end() && other == found.end()) {
        return;
    }
    const auto at = static_cast<size_t>(one - expected.begin());
    ADD_FAILURE() << path << ":" << at + 1 << ": expected (-) and found (+)\n"
                  << some_of(expected, at, "- ") << some_of(found, at, "+ ");
}
