#include "package/variant.h"

#include <gtest/gtest.h>

static constexpr const char *none = nullptr;

TEST(VariantFits, AnyWhenNoneIsAskedFor) {
    EXPECT_TRUE(variant_fits(none, none));
    EXPECT_TRUE(variant_fits(none, "x"));
}

TEST(VariantFits, TheDefaultOneByEitherName) {
    for (const char *wanted : {"", "default"}) {
        EXPECT_TRUE(means_default_variant(wanted));
        EXPECT_TRUE(variant_fits(wanted, none)) << wanted;
        EXPECT_TRUE(variant_fits(wanted, std::string_view())) << wanted;
        EXPECT_FALSE(variant_fits(wanted, "x")) << wanted;
        // Neither spelling is the default variant where a package has it.
        EXPECT_FALSE(variant_fits(wanted, "")) << wanted;
        EXPECT_FALSE(variant_fits(wanted, "default")) << wanted;
    }
}

TEST(VariantFits, AnyOtherExactly) {
    EXPECT_FALSE(means_default_variant("x"));
    EXPECT_TRUE(variant_fits("x", "x"));
    EXPECT_TRUE(variant_fits("x", std::string_view("x")));
    EXPECT_FALSE(variant_fits("x", "X"));
    EXPECT_FALSE(variant_fits("x", "xy"));
    EXPECT_FALSE(variant_fits("x", none));
}
