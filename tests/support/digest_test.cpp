#include "support/digest.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <string>

#include "kit/package_maker.h"
#include "kit/temp_dir.h"

static const unsigned char *bytes(const std::string &text) {
    return reinterpret_cast<const unsigned char *>(text.data());
}

static std::string hex_of(const std::string &text) {
    char out[41];
    EXPECT_EQ(sha1_data(bytes(text), text.size(), 'x', out), out);
    return out;
}

TEST(Sha1Data, GivesThePublishedDigests) {
    EXPECT_EQ(hex_of(""), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
    EXPECT_EQ(hex_of("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
    EXPECT_EQ(hex_of("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
    EXPECT_EQ(hex_of(std::string(1000000, 'a')), "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
}

TEST(Sha1Data, WritesLowerCaseDigitsForXAndRawBytesForAnyOther) {
    static const unsigned char raw[20] = {0xa9, 0x99, 0x3e, 0x36, 0x47, 0x06, 0x81,
                                          0x6a, 0xba, 0x3e, 0x25, 0x71, 0x78, 0x50,
                                          0xc2, 0x6c, 0x9c, 0xd0, 0xd8, 0x9d};
    for (const char format : {'b', 'X', '\0'}) {
        char out[21] = {};
        out[20] = '!';
        EXPECT_EQ(sha1_data(bytes("abc"), 3, format, out), out);
        EXPECT_EQ(memcmp(out, raw, 20), 0);
        EXPECT_EQ(out[20], '!');
    }
    EXPECT_EQ(hex_of("abc").find_first_of("ABCDEF"), std::string::npos);
}

TEST(Sha1Update, GivesTheSameDigestHoweverTheDataIsCut) {
    std::string text;
    for (int i = 0; i < 300; i++) {
        text += static_cast<char>(i * 7);
    }
    unsigned char whole[20];
    sha1_data(bytes(text), text.size(), 'b', reinterpret_cast<char *>(whole));
    for (size_t cut = 1; cut <= text.size(); cut++) {
        SHA1_CTX context;
        SHA1Init(&context);
        for (size_t at = 0; at < text.size(); at += cut) {
            SHA1Update(&context, bytes(text) + at, std::min(cut, text.size() - at));
        }
        unsigned char digest[20];
        SHA1Final(digest, &context);
        EXPECT_EQ(memcmp(digest, whole, 20), 0) << "pieces of " << cut;
    }
}

TEST(Sha1Transform, IsTheStepOverOneBlock) {
    // "abc" padded by hand to one block.
    unsigned char block[64] = {'a', 'b', 'c', 0x80};
    block[63] = 24;
    SHA1_CTX context;
    SHA1Init(&context);
    SHA1Transform(context.state, block);
    const uint32_t expected[5] = {0xa9993e36, 0x4706816a, 0xba3e2571, 0x7850c26c, 0x9cd0d89d};
    for (int i = 0; i < 5; i++) {
        EXPECT_EQ(context.state[i], expected[i]);
    }
}

TEST(Sha1File, AgreesWithTheSha1sumCommandAroundTheBlockSizes) {
    const TempDir dir;
    for (const size_t size :
         std::initializer_list<size_t>{0, 1, 55, 56, 57, 63, 64, 65, 4095, 4096, 4097, 100000}) {
        std::string content(size, '\0');
        for (size_t i = 0; i < size; i++) {
            content[i] = static_cast<char>(i * i + size);
        }
        const std::string path = dir.write("file", content);
        char out[41];
        ASSERT_EQ(sha1_file(path.c_str(), 'x', out), out);
        EXPECT_EQ(out, sha1_of(path)) << size << " bytes";
    }
}

TEST(Sha1File, FollowsALinkToAFile) {
    const TempDir dir;
    std::filesystem::create_symlink(dir.write("file", "abc"), dir / "link");
    char out[41];
    ASSERT_NE(sha1_file((dir / "link").c_str(), 'x', out), nullptr);
    EXPECT_STREQ(out, "a9993e364706816aba3e25717850c26c9cd0d89d");
}

TEST(Sha1File, GivesNullForAMissingFileADirectoryAPipeAndADevice) {
    const TempDir dir;
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
    char out[41] = "untouched";
    EXPECT_EQ(sha1_file((dir / "missing").c_str(), 'x', out), nullptr);
    EXPECT_EQ(sha1_file(dir.path().c_str(), 'x', out), nullptr);
    EXPECT_EQ(sha1_file((dir / "pipe").c_str(), 'x', out), nullptr);
    EXPECT_EQ(sha1_file("/dev/zero", 'x', out), nullptr);
    EXPECT_STREQ(out, "untouched");
}
