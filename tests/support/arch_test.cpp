#include "support/arch.h"

#include <gtest/gtest.h>

TEST(ArchGetid, KnowsTheFourNamesExactly) {
    EXPECT_EQ(vrm_arch_getid("any"), 1);
    EXPECT_EQ(vrm_arch_getid("i686"), 2);
    EXPECT_EQ(vrm_arch_getid("x86_64"), 4);
    EXPECT_EQ(vrm_arch_getid("mips"), 8);
    EXPECT_EQ(vrm_arch_getid("X86_64"), 99);
    EXPECT_EQ(vrm_arch_getid(""), 99);
    EXPECT_EQ(vrm_arch_getid(nullptr), 99);
}

TEST(ArchGetname, IsTheWayBack) {
    EXPECT_STREQ(vrm_arch_getname(1), "any");
    EXPECT_STREQ(vrm_arch_getname(2), "i686");
    EXPECT_STREQ(vrm_arch_getname(4), "x86_64");
    EXPECT_STREQ(vrm_arch_getname(8), "mips");
    EXPECT_EQ(vrm_arch_getname(0), nullptr);
    EXPECT_EQ(vrm_arch_getname(2 | 4), nullptr);
    EXPECT_EQ(vrm_arch_getname(99), nullptr);
}
