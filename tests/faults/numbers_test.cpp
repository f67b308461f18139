#include "faults/numbers.h"

#include <gtest/gtest.h>

namespace {

const std::vector<operation> trace = {{"open", "/a", "", true},     {"write", "/a", "", true},
                                      {"read", "/b", "", false},    {"open", "/b", "", true},
                                      {"rename", "/b", "/c", true}, {"unlink", "/d", "", true},
                                      {"unlink", "/d", "", true}};

TEST(Numbers, NeighboursAreARangeWithTheirCalls) {
    const std::vector<size_t> all = {0, 1, 2, 3, 4, 5, 6};
    EXPECT_EQ(text_of_numbers({0, 1}, all, trace), "0-1 (open, write /a)");
    EXPECT_EQ(text_of_numbers({1, 2, 4}, all, trace), "1-2 (write, read), 4 (rename /b -> /c)");
    EXPECT_EQ(text_of_numbers({5, 6}, all, trace), "5-6 (unlink /d)");
    EXPECT_EQ(text_of_numbers({}, all, trace), "");
}

TEST(Numbers, ARangePassesOverWhatWasNotTriedAndEndsAtWhatWasWell) {
    EXPECT_EQ(text_of_numbers({1, 3, 5}, {0, 1, 3, 5}, trace), "1-5 (write, open, unlink)");
    EXPECT_EQ(text_of_numbers({1, 5}, {0, 1, 3, 5}, trace), "1 (write /a), 5 (unlink /d)");
}

}  // namespace
