#include <fnmatch.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "backends/vrc-dirs/index.h"
#include "backends/vrc-dirs/search.h"
#include "kit/records.h"
#include "kit/results.h"
#include "kit/temp_dir.h"

using testing::ElementsAre;
using testing::IsEmpty;
using vrc_dirs::catalogue_index;
using vrc_dirs::required_literal;
using vrc_dirs::text_column;

namespace {

struct Sample {
    std::string name, description, path, rest;
};

Sample sample(const std::string &name, const std::string &description, const std::string &path) {
    vri info = {};
    std::string version = "1";
    info.version = version.data();
    info.arch = 1;
    return {name, description, path, vrc_dirs::rest_of(info, path, {})};
}

std::string bytes_of(const std::vector<Sample> &samples) {
    std::vector<vrc_dirs::new_record> records;
    for (const Sample &one : samples) {
        records.push_back({one.name, one.description, one.path, one.rest, 1});
    }
    return vrc_dirs::make_index({"/"}, records, {});
}

std::unique_ptr<catalogue_index> index_of(const std::vector<Sample> &samples) {
    return catalogue_index::in_memory(bytes_of(samples));
}

std::vector<std::string> paths(const catalogue_index &index,
                               const vrc_dirs::search_request &request) {
    std::vector<std::string> found;
    for (const uint32_t number : vrc_dirs::search(index, request)) {
        found.emplace_back(index.details(number).path);
    }
    return found;
}

// Texts and patterns of bytes that mean something in a pattern, and of two that don't.
std::string random_text(std::mt19937 *random, size_t longest) {
    static constexpr std::string_view letters = "aabbab*?[]\\-!:^";
    std::string text((*random)() % (longest + 1), ' ');
    for (char &letter : text) {
        letter = letters[(*random)() % letters.size()];
    }
    return text;
}

}  // namespace

TEST(RequiredLiteral, IsTheLongestRunOutsideOfWildcards) {
    expect_results(
        required_literal,
        {{"foo", "foo"}, {"*foo*", "foo"}, {"a*bcd?ef", "bcd"}, {"*", ""}, {"??*", ""}, {"", ""}});
}

TEST(RequiredLiteral, LeavesOutWhatABracketExpressionMayHold) {
    expect_results(required_literal, {{"ab[cdefg]h", "ab"},
                                      {"a[cdefg]hij", "hij"},
                                      {"[]abcd]*ef", "ef"},
                                      {"a[[:alpha:]bcd]e", "a"},
                                      {"ab[cdefg", "ab"},
                                      {"abc]de", "abc"}});
}

// "a\*b" fits the text "a*b", and is equal to the text "a\*b".
TEST(RequiredLiteral, EndsAtABackslash) {
    expect_results(required_literal, {{"abc\\*de", "abc"}, {"ab\\cdef", "def"}, {"a\\", "a"}});
}

TEST(DirsSearch, AgreesWithFnmatchOnAnyPattern) {
    std::mt19937 random(20240229);
    std::vector<Sample> samples;
    for (int i = 0; i < 300; i++) {
        samples.push_back(
            sample(random_text(&random, 7), random_text(&random, 9), "/" + std::to_string(i)));
    }
    const auto index = index_of(samples);
    ASSERT_TRUE(index);
    size_t hits = 0;
    for (int i = 0; i < 4000; i++) {
        std::string name = i % 3 == 0 ? "no such name" : random_text(&random, 6);
        std::string wanted = random_text(&random, 6);
        std::string key = i % 2 == 0 ? "evrkDescription" : "EVRKNAME";
        s_ekva pair = {key.data(), wanted.data()};
        s_ekva *filter[] = {&pair, nullptr};
        const auto fits = [](const std::string &pattern, const std::string &text) {
            return pattern == text || fnmatch(pattern.c_str(), text.c_str(), 0) == 0;
        };
        std::vector<std::string> expected;
        for (const Sample &one : samples) {
            if (fits(name, one.name) || fits(wanted, i % 2 == 0 ? one.description : one.name)) {
                expected.push_back(one.path);
            }
        }
        hits += expected.size();
        EXPECT_THAT(paths(*index, {name.c_str(), nullptr, nullptr, filter}),
                    testing::UnorderedElementsAreArray(expected))
            << name << " or " << key << " " << wanted;
        ASSERT_FALSE(index->is_damaged());
    }
    EXPECT_GT(hits, 1000U);
}

TEST(DirsSearch, GivesRecordsByNameThenPath) {
    const auto index =
        index_of({sample("b", "", "/1"), sample("a", "", "/3"), sample("b", "", "/0"),
                  sample("a", "", "/2"), sample("B", "", "/4")});
    ASSERT_TRUE(index);
    EXPECT_THAT(paths(*index, {}), ElementsAre("/4", "/2", "/3", "/0", "/1"));
    EXPECT_THAT(paths(*index, {"b", nullptr, nullptr, nullptr}), ElementsAre("/0", "/1"));
    EXPECT_THAT(paths(*index, {"c", nullptr, nullptr, nullptr}), IsEmpty());
    EXPECT_THAT(paths(*index, {"", nullptr, nullptr, nullptr}), IsEmpty());
}

TEST(DirsSearch, FindsNothingInAnEmptyIndex) {
    const auto index = index_of({});
    ASSERT_TRUE(index);
    EXPECT_THAT(paths(*index, {}), IsEmpty());
    EXPECT_THAT(paths(*index, {"a", nullptr, nullptr, nullptr}), IsEmpty());
    EXPECT_THAT(paths(*index, {"*a*", nullptr, nullptr, nullptr}), IsEmpty());
    EXPECT_FALSE(index->is_damaged());
}

TEST(DirsIndex, KeepsEachFieldOfARecord) {
    std::string name = "n", variant, version = "2", creator = "c", description = "d";
    std::string hash(40, 'f'), signer = "/O=Test";
    std::string dep = "x", empty;
    char *deps[] = {dep.data(), empty.data(), nullptr};
    unsigned char signature[] = {0, 255, 0, 7};
    vri info = {};
    info.name = name.data();
    info.variant = variant.data();  // empty, which is not absent
    info.version = version.data();
    info.creator = creator.data();
    info.arch = 8;
    info.description = description.data();
    info.deps = deps;
    info.datasize = 0x1122334455667788;
    info.filehash = hash.data();
    info.rsa_sig_subj = signer.data();
    info.rsa_sig_data = signature;
    info.rsa_sig_len = 4;
    const std::string rest = vrc_dirs::rest_of(info, "/dir/sub/file", {5000000000, -3, 999});
    const auto index = catalogue_index::in_memory(
        vrc_dirs::make_index({"/dir"}, {{"n", "d", "/dir/sub/file", rest, 5}}, {}));
    ASSERT_TRUE(index);
    EXPECT_TRUE(index->is_sound(0));
    EXPECT_EQ(index->details(0).stamp, (vrc_dirs::file_stamp{5000000000, -3, 999}));
    const own_vri kept = index->record(0);
    ASSERT_TRUE(kept);
    expect_described(kept.get(), {"n", "", "2", "c", 8, "d", {"x", ""}});
    EXPECT_EQ(kept->flag, 1);
    EXPECT_EQ(kept->datasize, 0x1122334455667788U);
    EXPECT_EQ(kept->filesize, 5000000000U);
    EXPECT_EQ(kept->filehash, hash);
    EXPECT_STREQ(kept->absolute_uri, "/dir/sub/file");
    EXPECT_STREQ(kept->relative_uri, "sub/file");
    EXPECT_EQ(kept->rsa_sig_subj, signer);
    ASSERT_EQ(kept->rsa_sig_len, 4);
    EXPECT_EQ(memcmp(kept->rsa_sig_data, signature, 4), 0);
    EXPECT_EQ(kept->install_type, 0);
}

TEST(DirsIndex, KnowsItsDirectories) {
    const auto index = catalogue_index::in_memory(vrc_dirs::make_index({"/a", "/b"}, {}, {}));
    ASSERT_TRUE(index);
    EXPECT_TRUE(index->is_of({"/a", "/b"}));
    EXPECT_FALSE(index->is_of({"/b", "/a"}));
    EXPECT_FALSE(index->is_of({"/a"}));
    EXPECT_FALSE(index->is_of({"/a", "/b", "/c"}));
}

// Long walks give pages back; what they hold must come again, in the walk and after it.
TEST(DirsIndex, ReadsTheSameAfterALongWalk) {
    std::vector<Sample> samples;
    for (int i = 0; i < 3000; i++) {
        const std::string number = std::to_string(100000 + i);
        samples.push_back(sample("name" + number, "text", "/" + std::string(4000, 'x') + number));
    }
    const std::string bytes = bytes_of(samples);
    ASSERT_GT(bytes.size(), size_t{12000000});
    const TempDir dir;
    const std::string path = dir.write("index", bytes);
    const own_file file(fopen(path.c_str(), "r"));
    ASSERT_TRUE(file);
    const auto index = catalogue_index::mapped(fileno(file.get()), bytes.size());
    ASSERT_TRUE(index);
    for (int walk = 0; walk < 2; walk++) {
        for (uint32_t number = 0; number < index->records(); number++) {
            index->walked_to(number);
            ASSERT_EQ(index->details(number).path, samples[number].path);
        }
    }
    EXPECT_EQ(index->details(0).path, samples[0].path);
    EXPECT_FALSE(index->is_damaged());
    EXPECT_EQ(index->texts(text_column::name).substr(0, 10), "name100000");
}

TEST(DirsIndex, RefusesEveryShorterOne) {
    const std::string whole = bytes_of({sample("a", "b", "/c")});
    for (size_t size = 0; size < whole.size(); size++) {
        EXPECT_FALSE(catalogue_index::in_memory(whole.substr(0, size))) << size;
    }
    EXPECT_FALSE(catalogue_index::in_memory(whole + '\0'));
    EXPECT_TRUE(catalogue_index::in_memory(whole));
}

TEST(DirsIndex, RefusesAnotherOrderOfBytesAndAnotherVersion) {
    const std::string whole = bytes_of({sample("a", "b", "/c")});
    std::string other = whole;
    std::reverse(other.begin() + 8, other.begin() + 12);
    EXPECT_FALSE(catalogue_index::in_memory(other));
    other = whole;
    other[12] = static_cast<char>(other[12] + 1);
    other[15] = other[12];
    EXPECT_FALSE(catalogue_index::in_memory(other));
}

// Room is made for all of them at once before the first is read.
TEST(DirsIndex, RefusesMoreSkippedFilesThanItsBytesCanHold) {
    const std::string path = "/bad";
    std::string bytes = vrc_dirs::make_index({"/"}, {}, {{path, {}}});
    const auto index = catalogue_index::in_memory(bytes);
    ASSERT_TRUE(index);
    EXPECT_EQ(index->skipped_files().size(), 1U);
    memset(bytes.data() + offsetof(vrc_dirs::index_header, skipped), 0x7f, sizeof(uint32_t));
    EXPECT_FALSE(catalogue_index::in_memory(bytes));
}

// Every byte in turn, in several ways: reading must stay within the bytes, which the sanitizer
// watches, and what is out of bounds must be told.
TEST(DirsIndex, IsReadWithinItsBoundsWhateverItHolds) {
    const std::string whole = bytes_of(
        {sample("alpha", "first text", "/c/one"), sample("beta", "second text", "/c/two")});
    size_t damaged = 0;
    for (size_t at = 0; at < whole.size(); at++) {
        for (const char change : {'\x01', '\x7f', '\xff'}) {
            std::string bytes = whole;
            bytes[at] = static_cast<char>(bytes[at] ^ change);
            const auto index = catalogue_index::in_memory(bytes);
            if (!index) {
                continue;
            }
            for (uint32_t number = 0; number < index->records(); number++) {
                static_cast<void>(index->is_sound(number));
                static_cast<void>(index->record(number));
            }
            static_cast<void>(index->skipped_files());
            std::string key = "evrkCreator", wanted = "*t*";
            s_ekva pair = {key.data(), wanted.data()};
            s_ekva *filter[] = {&pair, nullptr};
            for (const char *name : {"alpha", "*a*", "*"}) {
                static_cast<void>(vrc_dirs::search(*index, {name, "x", "1", filter}));
            }
            damaged += index->is_damaged() ? 1U : 0U;
        }
    }
    EXPECT_GT(damaged, 100U);
}

TEST(DirsIndex, IsNotSoundOutOfOrder) {
    std::string bytes = bytes_of({sample("alpha", "", "/1"), sample("betas", "", "/2")});
    const size_t at = bytes.find("alpha");
    ASSERT_NE(at, std::string::npos);
    bytes[at] = 'z';
    const auto index = catalogue_index::in_memory(bytes);
    ASSERT_TRUE(index);
    EXPECT_TRUE(index->is_sound(0));
    EXPECT_FALSE(index->is_sound(1));
}
