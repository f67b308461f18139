#include "gui/model/program_name.h"

#include <gtest/gtest.h>

TEST(ProgramName, AsksForUpdatesWithTheWordAnywhereInIt) {
    EXPECT_TRUE(asks_for_updates_only("fltk-vrm-update"));
    EXPECT_TRUE(asks_for_updates_only("/usr/bin/fltk-vrm-update"));
    EXPECT_TRUE(asks_for_updates_only("fltk-updater.old"));
    EXPECT_TRUE(asks_for_updates_only("/opt/my-update/fltk-vrm"));
}

TEST(ProgramName, AsksForNothingWithoutTheWord) {
    EXPECT_FALSE(asks_for_updates_only("fltk-vrm"));
    EXPECT_FALSE(asks_for_updates_only("update"));
    EXPECT_FALSE(asks_for_updates_only("fltk-vrm-Update"));
    EXPECT_FALSE(asks_for_updates_only(""));
    EXPECT_FALSE(asks_for_updates_only(nullptr));
}
