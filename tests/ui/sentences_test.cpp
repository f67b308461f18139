#include "ui/sentences.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "kit/log_capture.h"
#include "support/log.h"

namespace {

event sample(event_kind kind) {
    return {.kind = kind,
            .who = "vrm_who",
            .package = "pkg",
            .path = "/p/a th",
            .other = "oth er",
            .found = "fnd",
            .error = ENOSPC,
            .status = 256,
            .number = 7,
            .total = 9};
}

const char *level_name(uint32_t level) {
    return level == 0 ? "none" : level_string[level];
}

const char *sort_name(sentence_sort sort) {
    static constexpr const char *names[] = {"nothing", "step",    "reason", "cause",
                                            "outcome", "failure", "finding"};
    return names[static_cast<size_t>(sort)];
}

// A line feed at the end as it is written in the file.
std::string written(std::string text) {
    if (text.ends_with('\n')) {
        text.replace(text.size() - 1, 1, "\\n");
    }
    return text;
}

// What sentences.txt expects of each kind, by the kind's name.
struct expectation {
    std::string level, sort;
    std::vector<std::string> lines;
};

std::map<std::string, expectation> read_expectations() {
    std::ifstream file(VRM_SOURCE_DIR "/tests/ui/sentences.txt");
    std::map<std::string, expectation> expected;
    expectation *last = nullptr;
    for (std::string line; std::getline(file, line);) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        if (line.starts_with("    ")) {
            last->lines.push_back(line.substr(4));
            continue;
        }
        const size_t first = line.find(' '), second = line.find(' ', first + 1);
        last = &expected[line.substr(0, first)];
        last->level = line.substr(first + 1, second - first - 1);
        last->sort = line.substr(second + 1);
    }
    return expected;
}

struct received {
    int count = 0;
    event_kind kind = {};
};

void count_event(const event &happened, void *context) {
    auto *const seen = static_cast<received *>(context);
    seen->count++;
    seen->kind = happened.kind;
}

}  // namespace

TEST(Sentences, EachKindHasItsLogLineAndItsSentence) {
    const std::map<std::string, expectation> expected = read_expectations();
    EXPECT_EQ(expected.size(), number_of_event_kinds);
    for (size_t i = 0; i < number_of_event_kinds; i++) {
        const auto kind = static_cast<event_kind>(i);
        const auto found = expected.find(event_name(kind));
        ASSERT_NE(found, expected.end()) << event_name(kind);
        const sentence said = sentence_of(sample(kind));
        EXPECT_EQ(found->second.level, level_name(event_level(kind))) << event_name(kind);
        EXPECT_EQ(found->second.sort, sort_name(said.sort)) << event_name(kind);
        std::vector<std::string> lines = {written(event_line(sample(kind)))};
        if (said.sort != sentence_sort::nothing) {
            lines.push_back(said.text);
        }
        EXPECT_EQ(found->second.lines, lines) << event_name(kind);
    }
}

TEST(Sentences, EachKindIsLoggedAtItsLevelAndReachesTheReceiver) {
    LogCapture log;
    received seen;
    receive_events(count_event, &seen);
    for (size_t i = 0; i < number_of_event_kinds; i++) {
        const auto kind = static_cast<event_kind>(i);
        log.clear();
        report(sample(kind));
        EXPECT_EQ(seen.count, static_cast<int>(i) + 1);
        EXPECT_EQ(seen.kind, kind);
        std::string line = event_line(sample(kind));
        if (line.ends_with('\n')) {
            line.pop_back();
            EXPECT_TRUE(log.has_line_end(event_level(kind), line)) << event_name(kind);
        }
        if (event_level(kind) == 0) {
            EXPECT_THAT(log.lines(), testing::IsEmpty()) << event_name(kind);
        } else {
            EXPECT_TRUE(log.has(event_level(kind), line)) << event_name(kind);
        }
    }
    receive_events(nullptr, nullptr);
}

TEST(Events, AreLoggedWithoutAReceiverAndReceivedWithoutALog) {
    const LogCapture log;
    report({.kind = event_kind::fetching, .package = "a_any_1"});
    EXPECT_TRUE(log.has(LEVEL_INFO, "getting a_any_1.vrk"));
    log_object *const before = llog;
    llog = nullptr;
    received seen;
    receive_events(count_event, &seen);
    report({.kind = event_kind::fetching, .package = "a_any_1"});
    receive_events(nullptr, nullptr);
    llog = before;
    EXPECT_EQ(seen.count, 1);
    EXPECT_EQ(seen.kind, event_kind::fetching);
}

TEST(Events, KeepErrno) {
    const LogCapture log;
    errno = EXDEV;
    report({.kind = event_kind::file_not_read, .path = "/x", .error = ENOSPC});
    EXPECT_EQ(errno, EXDEV);
}

TEST(Events, FillInTheValuesOfAnEvent) {
    const event happened{.kind = event_kind::fetching, .package = "a", .other = "why"};
    EXPECT_EQ(fill_in("{package}: {reason}{", happened), "a: why{");
    EXPECT_EQ(fill_in("{unknown} {}}", happened), "{unknown} {}}");
    EXPECT_EQ(fill_in("{path}", {.kind = event_kind::fetching, .path = "{package}"}), "{package}")
        << "a value is not filled in again";
    EXPECT_EQ(fill_in("{reason}", {.kind = event_kind::fetching, .other = "x", .error = EIO}),
              strerror(EIO));
    const auto ending = [](int status) {
        return fill_in("{ending}", {.kind = event_kind::fetching, .status = status});
    };
    EXPECT_EQ(ending(3 << 8), "exit status 3");
    EXPECT_EQ(ending(9), "it was ended by the signal Killed");
    EXPECT_EQ(ending(-1), "it could not be run");
    const char *const none = nullptr;
    EXPECT_EQ(fill_in("{path}", {.kind = event_kind::fetching, .path = none}), "(null)");
}
