#include "gui/model/message_text.h"

#include <gtest/gtest.h>

TEST(WithoutArguments, TwoPercentSignsAreOne) {
    EXPECT_EQ(without_arguments("100%% done"), "100% done");
    EXPECT_EQ(without_arguments("%%%%"), "%%");
    EXPECT_EQ(without_arguments("%%s"), "%s");
}

TEST(WithoutArguments, AStrayPercentSignStandsForItself) {
    EXPECT_EQ(without_arguments("50% of %s and %n"), "50% of %s and %n");
    EXPECT_EQ(without_arguments("%"), "%");
    EXPECT_EQ(without_arguments("%%%"), "%%");
    EXPECT_EQ(without_arguments(""), "");
}

TEST(AsLabel, AtSignsAreDoubled) {
    EXPECT_EQ(as_label("me@here.org"), "me@@here.org");
    EXPECT_EQ(as_label("@-> @@"), "@@-> @@@@");
    EXPECT_EQ(as_label("plain & simple\n"), "plain & simple\n");
    EXPECT_EQ(as_label(""), "");
}
