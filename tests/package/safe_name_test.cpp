#include "package/safe_name.h"

#include <gtest/gtest.h>

#include <string>

TEST(NameIsSafe, TakesTheNamesOfRealPackages) {
    for (const char *name : {"foo", "libstdc++", "x11-base", "gtk+2.0", "a", "7zip", "foo_bar",
                             "1.0", "2:1.0~rc1", "1.0,3", "a@b", "a%b", "a=b"}) {
        EXPECT_TRUE(vrk_name_is_safe(name)) << name;
    }
}

TEST(NameIsSafe, RefusesWhatIsEmptyOrHidden) {
    EXPECT_FALSE(vrk_name_is_safe(nullptr));
    EXPECT_FALSE(vrk_name_is_safe(""));
    EXPECT_FALSE(vrk_name_is_safe("."));
    EXPECT_FALSE(vrk_name_is_safe(".."));
    EXPECT_FALSE(vrk_name_is_safe(".foo.new"));
    EXPECT_FALSE(vrk_name_is_safe("-rf"));
}

TEST(NameIsSafe, RefusesEveryOtherByte) {
    const std::string allowed =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789+-.,:~@%=_";
    for (int byte = 1; byte < 256; byte++) {
        const char c = static_cast<char>(byte);
        EXPECT_EQ(vrk_name_is_safe((std::string("a") + c).c_str()),
                  allowed.find(c) != std::string::npos)
            << "byte " << byte;
    }
}

TEST(UnsafePart, NamesTheFirstBadOne) {
    char good[] = "foo", bad[] = "a/b", empty[] = "";
    vri info = {};
    info.name = good;
    info.version = good;
    info.arch = 4;
    EXPECT_EQ(vrk_info_unsafe_part(&info), nullptr);
    info.variant = empty;
    EXPECT_EQ(vrk_info_unsafe_part(&info), nullptr);
    info.arch = 3;
    EXPECT_STREQ(vrk_info_unsafe_part(&info), "architecture");
    info.version = bad;
    EXPECT_STREQ(vrk_info_unsafe_part(&info), "version");
    info.version = empty;
    EXPECT_STREQ(vrk_info_unsafe_part(&info), "version");
    info.variant = bad;
    EXPECT_STREQ(vrk_info_unsafe_part(&info), "variant");
    info.name = bad;
    EXPECT_STREQ(vrk_info_unsafe_part(&info), "name");
    info.name = nullptr;
    EXPECT_STREQ(vrk_info_unsafe_part(&info), "name");
}
