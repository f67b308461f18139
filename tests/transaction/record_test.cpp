#include "transaction/record.h"

#include <gtest/gtest.h>

namespace {

const std::string first = "vrm-change 1\n";

record_entry entry(const std::string &kind, const std::string &path) {
    record_entry made(kind);
    made.add("absent", path);
    made.add("absent", "/second");
    return made;
}

TEST(Record, ReadsWhatItWrites) {
    for (const std::string &path :
         std::vector<std::string>{"/usr/bin/x", "/with blank ", "/line\nfeed\rand\ttab",
                                  "/\xc3\xa4\xff", ":colon", "/long/" + std::string(3000, 'x')}) {
        const std::string text = first + entry("touch", path).text();
        const read_record record = parse_record(text);
        ASSERT_EQ(record.entries.size(), 1u) << path;
        EXPECT_EQ(record.refusal, "");
        EXPECT_EQ(record.length, text.size());
        EXPECT_EQ(record.entries[0].kind(), "touch");
        EXPECT_EQ(record.entries[0].value("absent"), path);
        EXPECT_EQ(record.entries[0].all("absent"), (std::vector<std::string>{path, "/second"}));
        EXPECT_EQ(record.entries[0].value("none"), "");
    }
}

TEST(Record, AnEntryThatWasCutOffDoesNotCount) {
    const std::string whole = first + entry("begin", "/a").text();
    const std::string text = whole + entry("touch", "/b").text();
    for (size_t length = whole.size(); length < text.size(); length++) {
        const read_record record = parse_record(text.substr(0, length));
        ASSERT_EQ(record.entries.size(), 1u) << length;
        EXPECT_EQ(record.length, whole.size());
        EXPECT_EQ(record.refusal, "");
    }
    EXPECT_EQ(parse_record(text).entries.size(), 2u);
}

TEST(Record, AnEntryWithAnotherTextThanItsSumSaysEndsIt) {
    std::string text = first + entry("begin", "/a").text() + entry("touch", "/b").text();
    text[text.find("/a")] = '|';
    EXPECT_TRUE(parse_record(text).entries.empty());
    EXPECT_EQ(parse_record(text).length, first.size());
}

TEST(Record, WhatDiedBeforeItsFirstLineWasWholeIsEmpty) {
    for (const std::string text : {"", "vrm", "vrm-change 1"}) {
        EXPECT_EQ(parse_record(text).refusal, "") << text;
        EXPECT_TRUE(parse_record(text).entries.empty());
    }
    EXPECT_EQ(parse_record(std::string(100, '\0')).refusal, "");
}

TEST(Record, RefusesAnotherFormat) {
    EXPECT_EQ(parse_record("vrm-change 2\n").refusal,
              "it is of a version of this program that writes format 2, and this one knows 1");
    EXPECT_EQ(parse_record("something\n").refusal, "it is not a record of a change");
    EXPECT_EQ(parse_record("vrm-change x\n").refusal, "it is not a record of a change");
}

}  // namespace
