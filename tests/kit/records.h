// Records of a test's own, and what a test expects of the records of packages.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "kit/strings.h"
#include "package/vri.h"
#include "support/ekva.h"
#include "support/own.h"

// A record of these keys and values; a value may be null.
inline own_ekva record(const std::vector<std::pair<const char *, const char *>> &pairs) {
    s_ekva **rec = ekva_new(10, 4);
    for (const auto &[key, value] : pairs) {
        EXPECT_NE(ekva_addval(&rec, key, value, 0), 0);
    }
    return own_ekva(rec);
}

// What every record of a package says of it.
struct described_package {
    std::string name, variant, version, creator;
    int arch;
    std::string description;
    std::vector<std::string> deps;
};

inline void expect_described(const vri *found, const described_package &expected) {
    EXPECT_STREQ(found->name, expected.name.c_str());
    EXPECT_STREQ(found->variant, expected.variant.c_str());
    EXPECT_STREQ(found->version, expected.version.c_str());
    EXPECT_STREQ(found->creator, expected.creator.c_str());
    EXPECT_EQ(found->arch, expected.arch);
    EXPECT_STREQ(found->description, expected.description.c_str());
    EXPECT_EQ(strings(found->deps), expected.deps);
}
