#include "pvrm/plan_view.h"

#include <gtest/gtest.h>

#include "kit/capture.h"
#include "pvrm/transactions.h"

TEST(PlanView, ShowsEachPackageWithOriginSizesAndTotals) {
    plan_view view;
    view.add(*new_plan({.name = "a", .version = "2", .status = 'L', .filesize = 4, .datasize = 20},
                       {{.name = "b", .cand = "a", .status = 'R', .filesize = 2, .datasize = 30},
                        {.name = "c", .cand = "b", .status = 'L', .filesize = 3, .datasize = 40}}));
    EXPECT_EQ(view.size(), 3U);
    EXPECT_EQ(stdout_of([&view] { view.print(); }),
              "Package  Version  Variant  Architecture  From       Package file  Installed\n"
              "a        2        -        any           file       4 bytes       20 bytes\n"
              "b        1.0      -        any           catalogue  2 bytes       30 bytes   needed "
              "by a\n"
              "c        1.0      -        any           file       3 bytes       40 bytes   needed "
              "by b\n"
              "3 packages, 9 bytes of package files, 90 bytes when installed\n");
}

TEST(PlanView, CountsAPackageOfSeveralTransactionsOnce) {
    plan_view view;
    view.add(*new_plan({.name = "a"}, {{.name = "c", .cand = "a"}}));
    view.add(*new_plan({.name = "b"}, {{.name = "c", .cand = "b"}}));
    EXPECT_EQ(view.size(), 3U);
    view.add(*new_plan({.name = "a"}));
    EXPECT_EQ(view.size(), 3U);
}

TEST(PlanView, LeavesOutWhatIsInstalled) {
    plan_view view;
    view.add(*new_plan({.name = "a"}, {{.name = "b", .cand = "a", .status = 'I'}}));
    EXPECT_EQ(view.size(), 1U);
}

TEST(PlanView, OnePackageIsNoPackages) {
    plan_view view;
    view.add(*new_plan({.name = "a"}));
    EXPECT_NE(stdout_of([&view] { view.print(); }).find("\n1 package, "), std::string::npos);
}

TEST(PlanView, CoversWhatItShows) {
    plan_view view;
    view.add(*new_plan({.name = "a"}, {{.name = "b", .cand = "a"}}));
    EXPECT_TRUE(view.covers(*new_plan({.name = "a"}, {{.name = "b", .cand = "a"}})));
    EXPECT_TRUE(view.covers(*new_plan({.name = "a"})));
    EXPECT_TRUE(view.covers(*new_plan({.name = "b"})));
    EXPECT_TRUE(view.covers(*new_plan({.name = "a"}, {{.name = "z", .cand = "a", .status = 'I'}})));
}

TEST(PlanView, DoesNotCoverAnotherVersionOrAFurtherPackage) {
    plan_view view;
    view.add(*new_plan({.name = "a"}, {{.name = "b", .cand = "a"}}));
    EXPECT_FALSE(view.covers(*new_plan({.name = "a", .version = "1.1"})));
    EXPECT_FALSE(
        view.covers(*new_plan({.name = "a"}, {{.name = "b", .version = "2", .cand = "a"}})));
    EXPECT_FALSE(view.covers(*new_plan({.name = "a"}, {{.name = "c", .cand = "a"}})));
}

TEST(PlanView, ShowsWhatARemovalFrees) {
    plan_view view;
    const own_vrt plan = new_plan({.name = "a", .version = "2", .status = 'L', .datasize = 20},
                                  {{.name = "b", .cand = "a", .status = 'I', .datasize = 30}});
    plan->action = plan->deps[0]->action = 'D';
    view.add(*plan);
    EXPECT_EQ(stdout_of([&view] { view.print_removal(); }),
              "Package  Version  Variant  Architecture  Installed\n"
              "a        2        -        any           20 bytes\n"
              "b        1.0      -        any           30 bytes   was needed by a\n"
              "2 packages to remove, 50 bytes installed\n");
}
