#include "support/vconf.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "kit/capture.h"
#include "kit/temp_dir.h"
#include "support/own.h"

// Copies that fail on demand: the library takes them by strdup.
static const char *fails_on = nullptr;

extern "C" char *strdup(const char *text) noexcept {
    if (fails_on && strcmp(text, fails_on) == 0) {
        return nullptr;
    }
    const size_t size = strlen(text) + 1;
    void *const copy = malloc(size);
    return copy ? static_cast<char *>(memcpy(copy, text, size)) : nullptr;
}

// Streams that break off after so many bytes, as on a disk that fails; none does at first.
static size_t bytes_before_failure = SIZE_MAX;

extern "C" size_t fread(void *buffer, size_t size, size_t count, FILE *stream) {
    static const auto real =
        reinterpret_cast<size_t (*)(void *, size_t, size_t, FILE *)>(dlsym(RTLD_NEXT, "fread"));
    if (bytes_before_failure / size < count) {
        const size_t got = real(buffer, size, bytes_before_failure / size, stream);
        errno = EIO;
        return got;
    }
    return real(buffer, size, count, stream);
}

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

Pairs data_of(s_ekva *const *rec) {
    Pairs pairs;
    for (size_t i = 1; rec && rec[i]; ++i) {
        pairs.emplace_back(rec[i]->key, rec[i]->val ? rec[i]->val : "(null)");
    }
    return pairs;
}

// What a file of this text gives, every line as a pair of its own.
Pairs read_text(const std::string &text) {
    const TempDir dir;
    return data_of(own_ekva(vconf_read_dups(nullptr, dir.write("conf", text).c_str())).get());
}

}  // namespace

TEST(Vconf, MakesARecordForAThousandPairs) {
    const TempDir dir;
    const std::string path = dir.write("conf", "a = 1\n");
    EXPECT_STREQ(own_ekva(vconf_read(nullptr, path.c_str())).get()[0]->key, "#EKVA_10:1024:2");
    EXPECT_STREQ(own_ekva(vconf_read_dups(nullptr, path.c_str())).get()[0]->key, "#EKVA_10:1024:3");
    EXPECT_STREQ(own_ekva(vconf_read_ext(nullptr, path.c_str(), 1)).get()[0]->key,
                 "#EKVA_10:1024:1");
}

TEST(Vconf, RefusesANewRecordOfAnUnknownMode) {
    const TempDir dir;
    const std::string path = dir.write("conf", "a = 1\n");
    EXPECT_EQ(vconf_read_ext(nullptr, path.c_str(), 0), nullptr);
    EXPECT_EQ(vconf_read_ext(nullptr, path.c_str(), 5), nullptr);
}

TEST(Vconf, ReadsKeysAndValuesInAnySpacing) {
    EXPECT_EQ(read_text("a=1\n"
                        "  b  =  two words  \n"
                        "\tc = \"quoted \" and more\n"
                        "d more = 'x'\n"
                        "e =\n"
                        "f = a=b\n"),
              (Pairs{{"a", "1"},
                     {"b", "two words"},
                     {"c", "quoted "},
                     {"d", "x"},
                     {"e", ""},
                     {"f", "a=b"}}));
}

TEST(Vconf, SkipsEmptyLinesAndComments) {
    EXPECT_EQ(read_text("\n"
                        "# a = 1\n"
                        "#\n"
                        "b = 2 # no comment\n"
                        "no pair\n"
                        "= value\n"),
              (Pairs{{"b", "2 # no comment"}}));
}

TEST(Vconf, TakesACommentOnlyInTheFirstColumn) {
    EXPECT_EQ(read_text("  # text\n"), Pairs{});
    EXPECT_EQ(read_text("  # a = b\n"), (Pairs{{"#", "b"}}));
}

TEST(Vconf, KeepsACarriageReturn) {
    EXPECT_EQ(read_text("a = 1\r\nb = 2\n"), (Pairs{{"a", "1\r"}, {"b", "2"}}));
}

TEST(Vconf, LastLineForAKeyWins) {
    const TempDir dir;
    const std::string path = dir.write("conf", "a = 1\nb = 2\nA = 3\n");
    EXPECT_EQ(data_of(own_ekva(vconf_read(nullptr, path.c_str())).get()),
              (Pairs{{"a", "3"}, {"b", "2"}}));
    EXPECT_EQ(data_of(own_ekva(vconf_read_dups(nullptr, path.c_str())).get()),
              (Pairs{{"a", "1"}, {"b", "2"}, {"A", "3"}}));
    EXPECT_EQ(data_of(own_ekva(vconf_read_ext(nullptr, path.c_str(), 1)).get()),
              (Pairs{{"a", "1"}, {"b", "2"}}));
}

TEST(Vconf, AddsToARecord) {
    const TempDir dir;
    const std::string path = dir.write("conf", "b = new\n");
    s_ekva **rec = ekva_new(2, 2);
    ekva_addval(&rec, "a", "1", 0);
    ekva_addval(&rec, "b", "2", 0);
    rec = vconf_read(rec, path.c_str());
    EXPECT_EQ(data_of(rec), (Pairs{{"a", "1"}, {"b", "new"}}));
    ekva_free(rec);
}

TEST(Vconf, TellsOfANullPath) {
    const own_ekva rec(ekva_new(1, 2));
    s_ekva **result = nullptr;
    EXPECT_EQ(stderr_of([&] { result = vconf_read(rec.get(), nullptr); }),
              "No config file specified\n");
    EXPECT_EQ(result, rec.get());
}

TEST(Vconf, PassesOverAMissingFileInSilence) {
    const TempDir dir;
    const own_ekva rec(ekva_new(1, 2));
    s_ekva **result = nullptr;
    EXPECT_EQ(stderr_of([&] { result = vconf_read(nullptr, (dir / "none").c_str()); }), "");
    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(stderr_of([&] { result = vconf_read(rec.get(), (dir / "none").c_str()); }), "");
    EXPECT_EQ(result, rec.get());
}

TEST(Vconf, TellsOfAnEmptyFile) {
    const TempDir dir;
    const std::string path = dir.write("conf", "");
    s_ekva **result = nullptr;
    EXPECT_EQ(stderr_of([&] { result = vconf_read(nullptr, path.c_str()); }),
              "Failed to open <" + path + ">: is empty\n");
    EXPECT_EQ(result, nullptr);
}

// A reader that waits would hang the test, one that takes a directory's size would take it for a
// file of that many bytes.
TEST(Vconf, TakesWhatIsNoRegularFileForEmpty) {
    const TempDir dir;
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    for (const std::string &path : {dir / "fifo", dir.path(), std::string("/dev/zero")}) {
        s_ekva **result = nullptr;
        EXPECT_EQ(stderr_of([&] { result = vconf_read(nullptr, path.c_str()); }),
                  "Failed to open <" + path + ">: is empty\n");
        EXPECT_EQ(result, nullptr) << path;
    }
}

TEST(Vconf, TellsOfAPairThatCannotBeAddedAndReadsOn) {
    const TempDir dir;
    const std::string path = dir.write("conf", "a = 1\nbad = thing\nb = 2\n");
    s_ekva **result = nullptr;
    EXPECT_EQ(stderr_of([&] {
                  fails_on = "thing";
                  result = vconf_read(nullptr, path.c_str());
                  fails_on = nullptr;
              }),
              "Failed to add value <bad> for key <thing>\n");
    EXPECT_EQ(data_of(own_ekva(result).get()), (Pairs{{"a", "1"}, {"b", "2"}}));
}

TEST(Vconf, CutsTheSingleLineOfAFileWithoutALineEnd) {
    EXPECT_EQ(read_text("a=1"), (Pairs{{"a", ""}}));
    EXPECT_EQ(read_text("a=123"), (Pairs{{"a", "12"}}));
    EXPECT_EQ(read_text("a=1\n"), (Pairs{{"a", "1"}}));
    EXPECT_EQ(read_text("\na=1"), (Pairs{{"a", "1"}}));
}

TEST(Vconf, MakesARecordOfAFileOfOneByte) {
    const TempDir dir;
    const own_ekva rec(vconf_read(nullptr, dir.write("conf", "=").c_str()));
    ASSERT_NE(rec, nullptr);
    EXPECT_EQ(ekva_nument(rec.get()), 0);
}

TEST(VconfWalk, ShowsEachPairWithItsPlace) {
    const TempDir dir;
    const std::string other = dir.write("other", "# other\na = 2\n");
    const std::string path = dir.write("conf", "a = 1\n\ninclude " + other + "\nb = 'x'\n");
    std::string shown;
    EXPECT_TRUE(vconf_walk(
        path.c_str(),
        [](const char *key, const char *value, const char *file, int line, void *context) {
            *static_cast<std::string *>(context) +=
                std::string(key) + "=" + value + " " + file + ":" + std::to_string(line) + "\n";
        },
        &shown));
    EXPECT_EQ(shown, "a=1 " + path + ":1\na=2 " + other + ":2\nb=x " + path + ":4\n");
}

TEST(VconfWalk, FailsWithoutAFileOrWithAnEmptyOne) {
    const TempDir dir;
    const auto never = [](const char *, const char *, const char *, int, void *) { FAIL(); };
    EXPECT_FALSE(vconf_walk((dir / "none").c_str(), never, nullptr));
    const std::string empty = dir.write("empty", "");
    bool result = true;
    EXPECT_EQ(stderr_of([&] { result = vconf_walk(empty.c_str(), never, nullptr); }),
              "Failed to open <" + empty + ">: is empty\n");
    EXPECT_FALSE(result);
    result = true;
    EXPECT_EQ(stderr_of([&] { result = vconf_walk(nullptr, never, nullptr); }),
              "No config file specified\n");
    EXPECT_FALSE(result);
}

TEST(VconfInclude, ReadsAFileRelativeToTheWorkingDirectory) {
    const TempDir dir;
    const WorkingDir there(dir.path());
    dir.write("other.conf", "b = 2\n");
    for (const char *line :
         {"include other.conf", "INCLUDE  'other.conf'", "Include \"other.conf\" x"}) {
        dir.write("sub/conf", std::string("a = 1\n") + line + "\nc = 3\n");
        EXPECT_EQ(data_of(own_ekva(vconf_read(nullptr, "sub/conf")).get()),
                  (Pairs{{"a", "1"}, {"b", "2"}, {"c", "3"}}))
            << line;
    }
}

TEST(VconfInclude, WithAnEqualsSignIsAKey) {
    EXPECT_EQ(read_text("include a=b\n"), (Pairs{{"include", "b"}}));
}

TEST(VconfInclude, NeedsItsBlankInTheRightPlace) {
    const TempDir dir;
    const std::string other = dir.write("other.conf", "b = 2\n");
    EXPECT_EQ(read_text("include\t" + other + "\n"), Pairs{});
    EXPECT_EQ(read_text(" include " + other + "\n"), Pairs{});
    EXPECT_EQ(read_text("includes " + other + "\n"), Pairs{});
}

TEST(VconfInclude, ReplacesEarlierValuesAndIsReplacedByLaterOnes) {
    const TempDir dir;
    const std::string other = dir.write("other.conf", "a = other\nb = other\n");
    const std::string path = dir.write("conf", "a = first\ninclude " + other + "\nb = last\n");
    EXPECT_EQ(data_of(own_ekva(vconf_read(nullptr, path.c_str())).get()),
              (Pairs{{"a", "other"}, {"b", "last"}}));
    EXPECT_EQ(data_of(own_ekva(vconf_read_dups(nullptr, path.c_str())).get()),
              (Pairs{{"a", "first"}, {"a", "other"}, {"b", "other"}, {"b", "last"}}));
}

TEST(VconfInclude, OfAMissingFileIsPassedOver) {
    const TempDir dir;
    EXPECT_EQ(read_text("include " + (dir / "none") + "\ninclude \na = 1\n"), (Pairs{{"a", "1"}}));
}

TEST(VconfInclude, OfTheSameFileTwiceIsReadTwice) {
    const TempDir dir;
    const std::string other = dir.write("other.conf", "b = 2\n");
    EXPECT_EQ(read_text("include " + other + "\ninclude " + other + "\n"),
              (Pairs{{"b", "2"}, {"b", "2"}}));
}

TEST(VconfInclude, NestsDeeperThanFilesCanBeOpen) {
    const TempDir dir;
    constexpr int depth = 3000;
    for (int i = 0; i < depth; ++i) {
        dir.write(std::to_string(i), "include " + (dir / std::to_string(i + 1)) + "\nk" +
                                         std::to_string(i) + " = v\n");
    }
    dir.write(std::to_string(depth), "last = v\n");
    const own_ekva rec(vconf_read_dups(nullptr, (dir / "0").c_str()));
    ASSERT_EQ(ekva_nument(rec.get()), depth + 1);
    EXPECT_STREQ(rec.get()[1]->key, "last");
    EXPECT_STREQ(rec.get()[depth + 1]->key, "k0");
}

TEST(VconfInclude, OfItselfIsToldAndNotFollowed) {
    const TempDir dir;
    const std::string path = dir / "conf";
    dir.write("conf", "a = 1\ninclude " + path + "\nb = 2\n");
    s_ekva **result = nullptr;
    EXPECT_EQ(stderr_of([&] { result = vconf_read_dups(nullptr, path.c_str()); }),
              "Not reading <" + path + "> again: it includes itself\n");
    EXPECT_EQ(data_of(own_ekva(result).get()), (Pairs{{"a", "1"}, {"b", "2"}}));
}

TEST(VconfInclude, InACircleIsToldAndNotFollowed) {
    const TempDir dir;
    const std::string link = dir / "link";
    const std::string second = dir.write("second", "b = 2\ninclude " + link + "\nc = 3\n");
    const std::string first = dir.write("first", "a = 1\ninclude " + second + "\nd = 4\n");
    std::filesystem::create_symlink(first, link);
    s_ekva **result = nullptr;
    EXPECT_EQ(stderr_of([&] { result = vconf_read_dups(nullptr, first.c_str()); }),
              "Not reading <" + link + "> again: it includes itself\n");
    EXPECT_EQ(data_of(own_ekva(result).get()),
              (Pairs{{"a", "1"}, {"b", "2"}, {"c", "3"}, {"d", "4"}}));
}

TEST(Vconf, TakesNothingOfAFileThatBreaksOff) {
    const TempDir dir;
    const std::string path = dir.write("conf", "a = 1\nb = 23\n");
    s_ekva **rec = nullptr;
    EXPECT_EQ(stderr_of([&] {
                  bytes_before_failure = strlen("a = 1\nb = 2");
                  rec = vconf_read(nullptr, path.c_str());
                  bytes_before_failure = SIZE_MAX;
              }),
              "Failed to read <" + path + ">: Input/output error\n");
    EXPECT_EQ(rec, nullptr);
}
