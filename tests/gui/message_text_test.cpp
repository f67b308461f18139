#include "gui/model/message_text.h"

#include <gtest/gtest.h>

#include "kit/results.h"

TEST(WithoutArguments, TwoPercentSignsAreOne) {
    expect_results(without_arguments, {{"100%% done", "100% done"}, {"%%%%", "%%"}, {"%%s", "%s"}});
}

TEST(WithoutArguments, AStrayPercentSignStandsForItself) {
    expect_results(without_arguments,
                   {{"50% of %s and %n", "50% of %s and %n"}, {"%", "%"}, {"%%%", "%%"}, {"", ""}});
}

TEST(AsLabel, AtSignsAreDoubled) {
    expect_results(as_label, {{"me@here.org", "me@@here.org"},
                              {"@-> @@", "@@-> @@@@"},
                              {"plain & simple\n", "plain & simple\n"},
                              {"", ""}});
}
