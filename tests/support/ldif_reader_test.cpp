#include "support/ldif_reader.h"

#include <gtest/gtest.h>

#include <string>

#include "kit/references.h"
#include "kit/temp_dir.h"

using kind = ldif_reader::kind;
using references = ldif_reader::references;

namespace {

class LdifReader : public testing::Test {
 protected:
    TempDir dir_;
    const std::string file_ = dir_.write("file", "the content");
};

}  // namespace

TEST_F(LdifReader, FollowsEachFormOfAReference) {
    for (const std::string &line : references_to(file_)) {
        ldif_reader reader(line.c_str(), references::followed);
        ASSERT_TRUE(reader.next()) << line;
        EXPECT_EQ(reader.line_kind(), kind::attribute) << line;
        EXPECT_EQ(reader.value(), "the content") << line;
        EXPECT_TRUE(reader.binary()) << line;
    }
}

TEST_F(LdifReader, RefusesEachFormOfAReferenceAndGoesOn) {
    for (const std::string &line : references_to(file_)) {
        const std::string text = line + "cn: next\n";
        ldif_reader reader(text.c_str(), references::refused);
        ASSERT_TRUE(reader.next()) << line;
        EXPECT_EQ(reader.line_kind(), kind::reference) << line;
        EXPECT_EQ(reader.value(), "") << line;
        EXPECT_FALSE(reader.binary()) << line;
        ASSERT_TRUE(reader.next()) << line;
        EXPECT_EQ(reader.line_kind(), kind::attribute) << line;
        EXPECT_EQ(reader.value(), "next") << line;
    }
}

TEST_F(LdifReader, NamesTheAttributeOfARefusedReference) {
    ldif_reader reader("evrkUn\n known;binary: x\n", references::refused);
    ASSERT_TRUE(reader.next());
    EXPECT_EQ(reader.name(), "evrkUnknown;binary");
}

TEST_F(LdifReader, ReadsTheSameWithoutReferencesWhetherItRefusesThemOrNot) {
    for (const std::string &line : lines_without_reference(file_)) {
        ldif_reader following(line.c_str(), references::followed);
        ldif_reader refusing(line.c_str(), references::refused);
        ASSERT_TRUE(following.next() && refusing.next()) << line;
        EXPECT_NE(refusing.line_kind(), kind::reference) << line;
        EXPECT_EQ(refusing.line_kind(), following.line_kind()) << line;
        EXPECT_EQ(refusing.name(), following.name()) << line;
        EXPECT_EQ(refusing.value(), following.value()) << line;
        EXPECT_EQ(refusing.binary(), following.binary()) << line;
    }
}

TEST_F(LdifReader, SaysWhetherItFailedAtALineOrTheTextIsOver) {
    ldif_reader reader("cn: a\ncn:: !\ncn: b\n", references::refused);
    ASSERT_TRUE(reader.next());
    EXPECT_FALSE(reader.next());
    EXPECT_FALSE(reader.at_end());
    ASSERT_TRUE(reader.next());
    EXPECT_EQ(reader.value(), "b");
    EXPECT_TRUE(reader.at_end());
    EXPECT_FALSE(reader.next());
}
