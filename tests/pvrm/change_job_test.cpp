#include "pvrm/change_job.h"

#include <gtest/gtest.h>

TEST(ReasonAfter, LeavesOutTheNameAndWhatTheSummarySaysAnyway) {
    EXPECT_EQ(reason_after("foo", "foo is not installed"), "it is not installed");
    EXPECT_EQ(reason_after("foo", "foo can't be removed, as bar needs it"), "bar needs it");
    EXPECT_EQ(reason_after("foo", "foo can't be installed: it is built for mips"),
              "it is built for mips");
    EXPECT_EQ(reason_after("foo", "foo can't be upgraded"), "it can't be upgraded");
    EXPECT_EQ(reason_after("./x.vrk", "./x.vrk: No such file or directory"),
              "No such file or directory");
}

TEST(ReasonAfter, KeepsWhatIsNotAboutThePackageItself) {
    EXPECT_EQ(reason_after("foo", "foobar is not installed"), "foobar is not installed");
    EXPECT_EQ(reason_after("foo", "the script of foo failed"), "the script of foo failed");
    EXPECT_EQ(reason_after("", "an empty name"), "an empty name");
}
