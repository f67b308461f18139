#include "pvrm/dependency_tree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "pvrm/transactions.h"

using testing::ElementsAre;

TEST(DependencyTree, APackageWithoutNeedsIsOneLine) {
    EXPECT_THAT(dependency_tree(*new_plan({.name = "a", .version = "2"})), ElementsAre("a 2"));
}

TEST(DependencyTree, NeedsStandInTheOrderInWhichTheyAreNamed) {
    const own_vrt walk =
        new_plan({.name = "a", .deps = {"z", "b"}}, {{.name = "b", .cand = "a", .status = 'L'},
                                                     {.name = "y", .cand = "z", .status = 'I'},
                                                     {.name = "z", .deps = {"y"}, .cand = "a"}});
    EXPECT_THAT(dependency_tree(*walk),
                ElementsAre("a 1.0", "  z 1.0 (available remotely)", "    y 1.0 (installed)",
                            "  b 1.0 (available locally)"));
}

TEST(DependencyTree, WhatWasShownIsNotShownAgain) {
    const own_vrt walk =
        new_plan({.name = "a", .deps = {"b", "c"}}, {{.name = "b", .deps = {"d"}, .cand = "a"},
                                                     {.name = "c", .deps = {"b", "d"}, .cand = "a"},
                                                     {.name = "d", .cand = "b"}});
    EXPECT_THAT(
        dependency_tree(*walk),
        ElementsAre("a 1.0", "  b 1.0 (available remotely)", "    d 1.0 (available remotely)",
                    "  c 1.0 (available remotely)", "    b 1.0 (available remotely), see above",
                    "    d 1.0 (available remotely)"));
}

TEST(DependencyTree, CirclesEnd) {
    const own_vrt walk =
        new_plan({.name = "a", .deps = {"b"}}, {{.name = "b", .deps = {"C", "a"}, .cand = "a"},
                                                {.name = "c", .deps = {"b"}, .cand = "b"}});
    EXPECT_THAT(
        dependency_tree(*walk),
        ElementsAre("a 1.0", "  b 1.0 (available remotely)", "    C 1.0 (available remotely)",
                    "      b 1.0 (available remotely), see above", "    a (see the first line)"));
}

TEST(DependencyTree, ALongChainIsNoDanger) {
    std::vector<package_of_plan> chain;
    for (int i = 0; i < 2000; i++) {
        chain.push_back({.name = "n" + std::to_string(i), .deps = {"n" + std::to_string(i + 1)}});
    }
    chain.push_back({.name = "n2000"});
    const auto lines = dependency_tree(*new_plan({.name = "a", .deps = {"n0"}}, chain));
    EXPECT_EQ(lines.size(), 2002U);
    EXPECT_EQ(lines.back(), std::string(4002, ' ') + "n2000 1.0 (available remotely)");
}

TEST(DependencyTree, NamesCanNotSteerTheTerminal) {
    const own_vrt walk = new_plan({.name = "a\x1b[1m", .deps = {"b\x1b"}},
                                  {{.name = "b\x1b", .version = "\x07", .cand = "a"}});
    EXPECT_THAT(dependency_tree(*walk),
                ElementsAre("a\\x1B[1m 1.0", "  b\\x1B \\x07 (available remotely)"));
}
