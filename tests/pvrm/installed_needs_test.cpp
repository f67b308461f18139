#include "pvrm/installed_needs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "pvrm/installed_list.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

std::vector<std::string> orphans_of(const std::vector<installed> &packages) {
    return installed_needs(list_of(packages).get()).orphans();
}

// The chains, each as one text.
std::vector<std::string> chains_of(const std::vector<installed> &packages,
                                   const std::string &name) {
    const auto reason = installed_needs(list_of(packages).get()).why(name);
    EXPECT_TRUE(reason) << name;
    std::vector<std::string> texts;
    for (const auto &chain : reason ? reason->chains : std::vector<std::vector<std::string>>()) {
        std::string &text = texts.emplace_back();
        for (const std::string &link : chain) {
            text += (text.empty() ? "" : " ") + link;
        }
    }
    return texts;
}

}  // namespace

TEST(InstalledOrphans, NothingInstalledIsNothingLeftOver) {
    EXPECT_THAT(installed_needs({}).orphans(), IsEmpty());
    EXPECT_THAT(orphans_of({}), IsEmpty());
}

TEST(InstalledOrphans, WhatWasAskedForIsNone) {
    EXPECT_THAT(orphans_of({{"a"}, {"b"}}), IsEmpty());
}

TEST(InstalledOrphans, ADependencyThatNobodyNeedsIsOne) {
    EXPECT_THAT(orphans_of({{"a", {"b"}}, {"b", {}, "a"}, {"c", {}, "a"}, {"d", {}, "gone"}}),
                ElementsAre("c", "d"));
}

TEST(InstalledOrphans, ItDoesNotMatterWhoItCameFor) {
    // Its head is gone, and another package needs it by now.
    EXPECT_THAT(orphans_of({{"a", {"lib"}}, {"lib", {}, "gone"}}), IsEmpty());
}

TEST(InstalledOrphans, WhatOnlyAnOrphanNeedsIsNone) {
    EXPECT_THAT(orphans_of({{"a", {"b"}, "gone"}, {"b", {"c"}, "a"}, {"c", {}, "a"}}),
                ElementsAre("a"));
    // Once the orphan is gone it is one.
    EXPECT_THAT(orphans_of({{"b", {"c"}, "a"}, {"c", {}, "a"}}), ElementsAre("b"));
}

TEST(InstalledOrphans, ACircleThatNobodyElseNeedsIsLeftOverAsAWhole) {
    EXPECT_THAT(
        orphans_of(
            {{"a", {"b"}, "gone"}, {"b", {"c"}, "a"}, {"c", {"a", "d"}, "b"}, {"d", {}, "c"}}),
        ElementsAre("a", "b", "c"));
}

TEST(InstalledOrphans, ACircleThatSomebodyNeedsIsNot) {
    EXPECT_THAT(orphans_of({{"a", {"b"}, "gone"}, {"b", {"a"}, "a"}, {"x", {"b"}}}), IsEmpty());
    // Here what was asked for is itself in the circle.
    EXPECT_THAT(orphans_of({{"a", {"b"}, "x"}, {"b", {"a", "x"}, "a"}, {"x", {"b"}}}), IsEmpty());
    // The one that needs the circle is the orphan.
    EXPECT_THAT(orphans_of({{"a", {"b"}, "o"}, {"b", {"a"}, "a"}, {"o", {"a"}, "gone"}}),
                ElementsAre("o"));
}

TEST(InstalledOrphans, APackageThatNeedsItselfIsNeededByNobody) {
    EXPECT_THAT(orphans_of({{"a", {"a", "a"}, "gone"}}), ElementsAre("a"));
}

TEST(InstalledOrphans, SeveralCirclesAreToldApart) {
    EXPECT_THAT(orphans_of({{"a1", {"a2"}, "x"},
                            {"a2", {"a1", "b1"}, "x"},
                            {"b1", {"b2"}, "x"},
                            {"b2", {"b1"}, "x"},
                            {"c1", {"c2"}, "x"},
                            {"c2", {"c1"}, "x"}}),
                ElementsAre("a1", "a2", "c1", "c2"));
}

TEST(InstalledOrphans, NamesAreComparedAsTheyAre) {
    EXPECT_THAT(orphans_of({{"a", {"LIB"}}, {"lib", {}, "a"}}), ElementsAre("lib"));
}

TEST(InstalledWhy, WhatIsNotInstalledHasNoReason) {
    EXPECT_FALSE(installed_needs(list_of({{"a", {"b"}}}).get()).why("b"));
    EXPECT_FALSE(installed_needs({}).why("b"));
}

TEST(InstalledWhy, WhatWasAskedForSaysSo) {
    const installed_list list = list_of({{"a"}, {"b", {}, "a"}});
    const auto asked = installed_needs(list.get()).why("a");
    ASSERT_TRUE(asked);
    EXPECT_TRUE(asked->asked_for);
    EXPECT_EQ(asked->head, "");
    EXPECT_THAT(asked->chains, IsEmpty());
    EXPECT_FALSE(asked->chains_are_wanted);
    const auto brought = installed_needs(list.get()).why("b");
    ASSERT_TRUE(brought);
    EXPECT_FALSE(brought->asked_for);
    EXPECT_EQ(brought->head, "a");
    EXPECT_FALSE(brought->chains_are_wanted);
}

TEST(InstalledWhy, AChainLeadsFromWhatWasAskedForDownToThePackage) {
    const std::vector<installed> packages = {
        {"app", {"gui"}}, {"base", {}, "lib"}, {"gui", {"lib"}, "app"}, {"lib", {"base"}, "gui"}};
    EXPECT_THAT(chains_of(packages, "base"), ElementsAre("app gui lib base"));
    EXPECT_THAT(chains_of(packages, "gui"), ElementsAre("app gui"));
    EXPECT_TRUE(installed_needs(list_of(packages).get()).why("base")->chains_are_wanted);
}

TEST(InstalledWhy, APackageThatWasAskedForMayBeNeededToo) {
    EXPECT_THAT(chains_of({{"app", {"lib"}}, {"lib"}}, "lib"), ElementsAre("app lib"));
}

TEST(InstalledWhy, EachThatWasAskedForGivesItsShortestChain) {
    EXPECT_THAT(chains_of({{"a", {"m"}},
                           {"b", {"lib", "m"}},
                           {"c", {"lib"}},
                           {"lib", {}, "a"},
                           {"m", {"lib"}, "a"}},
                          "lib"),
                ElementsAre("b lib", "c lib", "a m lib"));
}

TEST(InstalledWhy, AChainEndsAtTheFirstThatWasAskedFor) {
    EXPECT_THAT(chains_of({{"far", {"near"}}, {"lib", {}, "near"}, {"near", {"lib"}}}, "lib"),
                ElementsAre("near lib"));
}

TEST(InstalledWhy, CirclesEnd) {
    EXPECT_THAT(chains_of({{"app", {"a"}}, {"a", {"b"}, "app"}, {"b", {"a"}, "a"}}, "b"),
                ElementsAre("app a b"));
    EXPECT_THAT(chains_of({{"app", {"lib"}}, {"lib", {"app"}, "app"}}, "lib"),
                ElementsAre("app lib"));
    EXPECT_THAT(chains_of({{"app", {"lib", "app"}}, {"lib", {"app"}, "app"}}, "app"), IsEmpty());
}

TEST(InstalledWhy, WhereNothingThatWasAskedForNeedsItOrphansDo) {
    const std::vector<installed> packages = {
        {"lib", {}, "m"}, {"m", {"lib"}, "old"}, {"old", {"m"}, "gone"}, {"x"}};
    EXPECT_THAT(chains_of(packages, "lib"), ElementsAre("old m lib"));
    EXPECT_FALSE(installed_needs(list_of(packages).get()).why("lib")->chains_are_wanted);
    EXPECT_THAT(chains_of(packages, "old"), IsEmpty());
    // The others of a circle.
    EXPECT_THAT(chains_of({{"a", {"b"}, "x"}, {"b", {"a"}, "x"}}, "a"), ElementsAre("b a"));
    // An orphan is no reason beside what was asked for.
    EXPECT_THAT(chains_of({{"app", {"lib"}}, {"lib", {}, "app"}, {"old", {"lib"}, "gone"}}, "lib"),
                ElementsAre("app lib"));
}

TEST(InstalledNeeds, ALongChainIsNoDanger) {
    std::vector<installed> packages = {{"n0", {"n1"}}};
    for (int i = 1; i < 50000; i++) {
        packages.push_back({"n" + std::to_string(i), {"n" + std::to_string(i + 1)}, "n0"});
    }
    const installed_list list = list_of(packages);
    const installed_needs needs(list.get());
    EXPECT_THAT(needs.orphans(), IsEmpty());
    const auto reason = needs.why("n49999");
    ASSERT_TRUE(reason);
    ASSERT_THAT(reason->chains, SizeIs(1));
    EXPECT_THAT(reason->chains[0], SizeIs(50000));
}

TEST(InstalledNeeds, APackageThatEverybodyNeedsIsNoDanger) {
    std::vector<installed> packages = {{"lib", {}, "n0"}};
    for (int i = 0; i < 20000; i++) {
        packages.push_back({"n" + std::to_string(i), {"lib", "lib"}});
    }
    const installed_list list = list_of(packages);
    const auto reason = installed_needs(list.get()).why("lib");
    ASSERT_TRUE(reason);
    EXPECT_THAT(reason->chains, SizeIs(20000));
}
