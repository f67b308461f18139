#include "support/base64.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "kit/capture.h"
#include "kit/temp_dir.h"

namespace {

std::string encoded(const std::string &bytes) {
    std::string text(bytes.size() * 2 + 10, 'x');
    const int count = lutil_b64_ntop(reinterpret_cast<const unsigned char *>(bytes.data()),
                                     bytes.size(), text.data(), text.size());
    EXPECT_GE(count, 0);
    text.resize(strlen(text.c_str()));
    EXPECT_EQ(static_cast<size_t>(count), text.size());
    return text;
}

// The result for a target that is just as large as is told, and the bytes.
int decode(const std::string &text, size_t room, std::string *bytes = nullptr) {
    std::vector<unsigned char> target(room + 1, 0xAA);
    const int count = lutil_b64_pton(text.c_str(), target.data(), room);
    EXPECT_EQ(target[room], 0xAA);
    if (bytes && count >= 0) {
        bytes->assign(target.begin(), target.begin() + count);
    }
    return count;
}

std::string decoded(const std::string &text) {
    std::string bytes;
    EXPECT_GE(decode(text, 1000, &bytes), 0) << text;
    return bytes;
}

// The vectors of RFC 4648, section 10.
const std::vector<std::pair<std::string, std::string>> vectors = {
    {"", ""},
    {"f", "Zg=="},
    {"fo", "Zm8="},
    {"foo", "Zm9v"},
    {"foob", "Zm9vYg=="},
    {"fooba", "Zm9vYmE="},
    {"foobar", "Zm9vYmFy"},
};

TEST(Base64Encode, GivesTheVectorsOfTheStandard) {
    for (const auto &[bytes, text] : vectors) {
        EXPECT_EQ(encoded(bytes), text);
    }
}

TEST(Base64Encode, AgreesWithTheBase64CommandOnEveryByte) {
    const TempDir dir;
    for (const size_t size : {256U, 257U, 258U}) {
        std::string bytes;
        for (size_t i = 0; i < size; ++i) {
            bytes += static_cast<char>(i * 7);
        }
        const std::string command = must_run("base64 -w0 " + dir.write("bytes", bytes));
        EXPECT_EQ(encoded(bytes), command);
        EXPECT_EQ(decoded(command), bytes);
    }
}

TEST(Base64Encode, NeedsRoomForTheTerminator) {
    const unsigned char bytes[] = {'f', 'o', 'o'};
    char target[5] = "xxxx";
    EXPECT_EQ(lutil_b64_ntop(bytes, 3, target, 4), -1);
    EXPECT_STREQ(target, "xxxx");
    EXPECT_EQ(lutil_b64_ntop(bytes, 3, target, 5), 4);
    EXPECT_STREQ(target, "Zm9v");
    EXPECT_EQ(lutil_b64_ntop(bytes, 1, target, 4), -1);
}

TEST(Base64Encode, EmptySourceGivesTheTerminatorAlone) {
    char target[1] = {'x'};
    EXPECT_EQ(lutil_b64_ntop(nullptr, 0, target, 0), -1);
    EXPECT_EQ(lutil_b64_ntop(nullptr, 0, target, 1), 0);
    EXPECT_EQ(target[0], '\0');
}

TEST(Base64Encode, RefusesWhatAnIntCannotCount) {
    const unsigned char byte = 0;
    char target[1];
    EXPECT_EQ(lutil_b64_ntop(&byte, SIZE_MAX, target, SIZE_MAX), -1);
    EXPECT_EQ(lutil_b64_ntop(&byte, INT_MAX, target, SIZE_MAX), -1);
}

TEST(Base64Decode, GivesTheVectorsOfTheStandard) {
    for (const auto &[bytes, text] : vectors) {
        EXPECT_EQ(decoded(text), bytes);
    }
}

TEST(Base64Decode, SkipsWhiteSpaceAnywhere) {
    EXPECT_EQ(decoded(" Z\tm\n8\v=\f\r "), "fo");
    EXPECT_EQ(decoded("Zg= ="), "f");
    EXPECT_EQ(decoded(" \n "), "");
}

TEST(Base64Decode, WithoutATargetItOnlyCounts) {
    EXPECT_EQ(lutil_b64_pton("Zm9vYmE=", nullptr, 0), 5);
    EXPECT_EQ(lutil_b64_pton("", nullptr, 0), 0);
    EXPECT_EQ(lutil_b64_pton("Zm9vYmE", nullptr, 0), -1);
}

TEST(Base64Decode, RefusesACharacterOutsideTheAlphabet) {
    for (const char *text : {"Zm9-", "Zm9_", "Zm.v", "Zm9v!", "Zm9\xC3\xA4"}) {
        EXPECT_EQ(decode(text, 100), -1) << text;
    }
}

TEST(Base64Decode, RefusesAnIncompleteGroup) {
    for (const char *text : {"Z", "Zg", "Zm8", "Zm9vY", "Zm9vYm", "Zm9vYmF"}) {
        EXPECT_EQ(decode(text, 100), -1) << text;
    }
}

TEST(Base64Decode, RefusesPaddingInTheFirstOrSecondPlace) {
    for (const char *text : {"=", "====", "Z=", "Z===", "Zm9v=", "Zm9vY==="}) {
        EXPECT_EQ(decode(text, 100), -1) << text;
    }
}

TEST(Base64Decode, RefusesOnePaddingWhereTwoAreRequired) {
    EXPECT_EQ(decode("Zg=", 100), -1);
    EXPECT_EQ(decode("Zg= ", 100), -1);
}

TEST(Base64Decode, RefusesAnythingBehindThePadding) {
    for (const char *text : {"Zg==Z", "Zg===", "Zm8==", "Zm8=Zm8=", "Zg=Z="}) {
        EXPECT_EQ(decode(text, 100), -1) << text;
    }
    EXPECT_EQ(decode("Zg== \n", 100), 1);
}

TEST(Base64Decode, RefusesBitsLeftOver) {
    EXPECT_EQ(decode("Zh==", 100), -1);
    EXPECT_EQ(decode("Zo==", 100), -1);
    EXPECT_EQ(decode("Zm9=", 100), -1);
    EXPECT_EQ(lutil_b64_pton("Zh==", nullptr, 0), -1);
}

TEST(Base64Decode, RefusesWhatDoesNotFit) {
    for (const auto &[bytes, text] : vectors) {
        EXPECT_EQ(decode(text, bytes.size()), static_cast<int>(bytes.size())) << text;
        if (!bytes.empty()) {
            EXPECT_EQ(decode(text, bytes.size() - 1), -1) << text;
            EXPECT_EQ(decode(text, 0), -1) << text;
        }
    }
}

}  // namespace
