#include "pvrm/columns.h"

#include <gtest/gtest.h>

#include "kit/capture.h"

TEST(Columns, AreAsWideAsTheirWidestCell) {
    EXPECT_EQ(stdout_of([] {
                  print_columns({{"a", "bb", "c"}, {"aaa", "b", "cc"}});
              }),
              "a    bb  c\naaa  b   cc\n");
}

TEST(Columns, NoLineEndsInBlanks) {
    EXPECT_EQ(stdout_of([] { print_columns({{"a", ""}, {"b", "c"}, {""}, {}}); }), "a\nb  c\n\n\n");
}

TEST(Columns, NothingIsNothing) {
    EXPECT_EQ(stdout_of([] { print_columns({}); }), "");
}

TEST(Columns, CellsCanNotSteerTheTerminalOrLeaveTheirLine) {
    EXPECT_EQ(stdout_of([] {
                  print_columns({{"a\x1b[1m", "b\nc\td"}, {"x", "y"}});
              }),
              "a\\x1B[1m  b c d\nx         y\n");
}
