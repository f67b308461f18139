#include "support/text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "kit/results.h"
#include "support/own.h"

using testing::ElementsAre;

namespace {

// A function that gives what one that cleans in place makes of a text.
auto cleaner(void (*clean)(char *)) {
    return [clean](const std::string &text) {
        std::vector<char> buffer(text.c_str(), text.c_str() + text.size() + 1);
        clean(buffer.data());
        return std::string(buffer.data());
    };
}

struct Split {
    std::string key;
    std::string val;
    bool operator==(const Split &) const = default;
};

Split split(const std::string &line) {
    std::vector<char> key(line.size() + 1, 'x');
    std::vector<char> val(line.size() + 1, 'x');
    _split_line(line.c_str(), key.data(), val.data());
    return {key.data(), val.data()};
}

void PrintTo(const Split &found, std::ostream *stream) {
    *stream << "<" << found.key << "> <" << found.val << ">";
}

}  // namespace

TEST(CleanKey, KeepsTheFirstWord) {
    expect_results(
        cleaner(_clean_key),
        {{"", ""}, {"  a b", "a"}, {"\t \ta\tb c", "a"}, {"word", "word"}, {" \t ", ""}});
}

TEST(CleanVal, UndoesQuotes) {
    expect_results(cleaner(_clean_val),
                   {{"  \"a b\"  x", "a b"}, {"\t' a '", " a "}, {"\"\"", ""}});
}

TEST(CleanVal, EndsAtAQuoteOfEitherKind) {
    expect_results(cleaner(_clean_val), {{"\"a'b\"", "a"}, {"'a\"b'", "a"}});
}

TEST(CleanVal, TakesAQuoteBehindABackslash) {
    expect_results(cleaner(_clean_val),
                   {{"'it\\'s'", "it's"}, {"\"\\\"q\\\"\" x", "\"q\""}, {"'a\\b'", "a\\b"}});
}

TEST(CleanVal, RunsToTheEndWithoutAClosingQuote) {
    expect_results(cleaner(_clean_val), {{"\"a b  ", "a b  "}, {"'", ""}});
}

TEST(CleanVal, DropsTrailingBlanksButNotTabs) {
    expect_results(
        cleaner(_clean_val),
        {{"", ""}, {"   ", ""}, {"a b   ", "a b"}, {"a b\t", "a b\t"}, {"a b \t  ", "a b \t"}});
}

TEST(CleanVal, LeavesQuotesInside) {
    EXPECT_EQ(cleaner(_clean_val)("it's \"x\""), "it's \"x\"");
}

TEST(TrimVal, KnowsNoQuotes) {
    expect_results(cleaner(_trim_val),
                   {{"\t \"a b\"  ", "\"a b\""}, {"a\t ", "a\t"}, {"  ", ""}, {"", ""}});
}

TEST(SplitLine, SplitsAtTheFirstEqualsSign) {
    EXPECT_EQ(split("a = \"b=c\""), (Split{"a", "b=c"}));
    EXPECT_EQ(split("a=b=c"), (Split{"a", "b=c"}));
    EXPECT_EQ(split("  key more =  some value  "), (Split{"key", "some value"}));
}

TEST(SplitLine, LeavesEmptyWhatIsEmpty) {
    EXPECT_EQ(split("no equals sign"), (Split{"", ""}));
    EXPECT_EQ(split(""), (Split{"", ""}));
    EXPECT_EQ(split("=b"), (Split{"", "b"}));
    EXPECT_EQ(split("a="), (Split{"a", ""}));
    EXPECT_EQ(split("="), (Split{"", ""}));
}

TEST(Strallpos, StoresAllPositions) {
    int *positions = nullptr;
    EXPECT_EQ(strallpos("_a_b__", '_', &positions), 4);
    EXPECT_THAT(std::vector<int>(positions, positions + 5), ElementsAre(0, 2, 4, 5, 0));
    free(positions);
    EXPECT_EQ(strallpos("abc", '_', &positions), 0);
    ASSERT_NE(positions, nullptr);
    EXPECT_EQ(positions[0], 0);
    free(positions);
}

TEST(FilenameExt, IsBehindTheLastDot) {
    EXPECT_STREQ(_get_filename_ext("a.tar.gz"), "gz");
    EXPECT_STREQ(_get_filename_ext(".conf"), "");
    EXPECT_STREQ(_get_filename_ext("name"), "");
    EXPECT_STREQ(_get_filename_ext("name."), "");
    EXPECT_STREQ(_get_filename_ext(".a.b"), "b");
    EXPECT_STREQ(_get_filename_ext(""), "");
    const char *const name = "foo.vrk";
    EXPECT_EQ(_get_filename_ext(name), name + 4);
}

TEST(Isip4str, AcceptsDottedQuads) {
    for (const char *text : {"1.2.3.4", "0.0.0.0", "255.255.255.255", "001.02.3.0004"}) {
        EXPECT_EQ(isip4str(text), 1) << text;
    }
}

TEST(Isip4str, RefusesTheRest) {
    for (const char *text :
         {"256.1.1.1", "1.2.3", "1.2.3.4.5", "1..2.3", "", ".1.2.3", "1.2.3.", "1.2.3.4.",
          "a.2.3.4", "1.2.3.4 ", " 1.2.3.4", "1.2.3.-4", "1.2.3.99999999999999999999"}) {
        EXPECT_EQ(isip4str(text), 0) << text;
    }
}

namespace {

constexpr const char *no_words = "(none)";

// The words of each line of a text, joined by "|".
std::vector<std::string> lines_of_words(const std::string &text) {
    FILE *const stream = fmemopen(const_cast<char *>(text.data()), text.size(), "r");
    std::vector<std::string> lines;
    for (;;) {
        const own_array words(fgets_words(stream));
        if (!words && feof(stream)) {
            break;
        }
        lines.emplace_back(words ? own_string(arr2str(words.get(), '|')).get() : no_words);
    }
    fclose(stream);
    return lines;
}

}  // namespace

TEST(FgetsWords, SplitsAtBlanksAndTabs) {
    EXPECT_THAT(lines_of_words("one\ntwo words\na \t b\n"), ElementsAre("one", "two|words", "a|b"));
}

TEST(FgetsWords, GivesEmptyWordsForOuterBlanks) {
    EXPECT_THAT(lines_of_words("  a\nb \n\t\n"), ElementsAre("|a", "b|", "|"));
}

TEST(FgetsWords, KnowsNoQuotes) {
    EXPECT_THAT(lines_of_words("\"a b\"\n"), ElementsAre("\"a|b\""));
}

TEST(FgetsWords, CutsComments) {
    EXPECT_THAT(lines_of_words("# a b\na #b\na b# c # d\n"), ElementsAre(no_words, "a|", "a|b"));
}

TEST(FgetsWords, DropsLineEnds) {
    EXPECT_THAT(lines_of_words("a b\r\n\r\n\nc\n"), ElementsAre("a|b", no_words, no_words, "c"));
}

TEST(FgetsWords, ReadsALastLineWithoutALineEnd) {
    FILE *const stream = fmemopen(const_cast<char *>("a\nb c\r"), 6, "r");
    own_array words(fgets_words(stream));
    EXPECT_STREQ(own_string(arr2str(words.get(), '|')).get(), "a");
    words.reset(fgets_words(stream));
    EXPECT_STREQ(own_string(arr2str(words.get(), '|')).get(), "b|c");
    EXPECT_EQ(fgets_words(stream), nullptr);
    EXPECT_TRUE(feof(stream));
    fclose(stream);
}

TEST(FgetsWords, TakesLinesOfAnyLength) {
    std::string line;
    for (int i = 0; i < 200; ++i) {
        line += "word" + std::to_string(i) + " ";
    }
    const own_array words([&] {
        FILE *const stream = fmemopen(line.data(), line.size(), "r");
        char **const found = fgets_words(stream);
        fclose(stream);
        return found;
    }());
    ASSERT_EQ(arr_count(words.get()), 201);
    EXPECT_STREQ(words.get()[0], "word0");
    EXPECT_STREQ(words.get()[199], "word199");
    EXPECT_STREQ(words.get()[200], "");
    // One word over many pieces.
    const std::string longest(1000, 'x');
    EXPECT_THAT(lines_of_words(longest + "\n"), ElementsAre(longest));
}

TEST(Bin2hex, WritesUpperCase) {
    const unsigned char bytes[] = {0x00, 0x0f, 0xab, 0xff};
    EXPECT_STREQ(own_string(bin2hex(bytes, 4)).get(), "000FABFF");
    EXPECT_EQ(bin2hex(bytes, 0), nullptr);
    EXPECT_EQ(bin2hex(nullptr, 4), nullptr);
}

TEST(Hexchr2bin, TakesDigitsOfEitherCase) {
    const std::string digits = "0123456789abcdefABCDEF";
    for (size_t i = 0; i < digits.size(); ++i) {
        unsigned char value = 99;
        EXPECT_EQ(hexchr2bin(digits[i], &value), 1);
        EXPECT_EQ(value, i < 16 ? i : i - 6) << digits[i];
    }
    for (const char c : {'g', 'G', '/', ':', '@', '`', ' ', '\0'}) {
        unsigned char value = 99;
        EXPECT_EQ(hexchr2bin(c, &value), 0) << c;
        EXPECT_EQ(value, 99);
    }
}

TEST(Hexs2bin, DecodesEitherCase) {
    unsigned char *bytes = nullptr;
    ASSERT_EQ(hexs2bin("00aBFf", &bytes), 3u);
    EXPECT_THAT(std::vector<unsigned char>(bytes, bytes + 3), ElementsAre(0x00, 0xab, 0xff));
    free(bytes);
}

TEST(Hexs2bin, LeavesOutAloneWithoutWholeBytes) {
    unsigned char mark = 0;
    unsigned char *bytes = &mark;
    EXPECT_EQ(hexs2bin(nullptr, &bytes), 0u);
    EXPECT_EQ(hexs2bin("", &bytes), 0u);
    EXPECT_EQ(hexs2bin("abc", &bytes), 0u);
    EXPECT_EQ(bytes, &mark);
}

TEST(Hexs2bin, HandsOutWhatStandsBeforeABadDigit) {
    unsigned char *bytes = nullptr;
    EXPECT_EQ(hexs2bin("0102x304", &bytes), 0u);
    ASSERT_NE(bytes, nullptr);
    EXPECT_THAT(std::vector<unsigned char>(bytes, bytes + 4), ElementsAre(1, 2, 0x41, 0x41));
    free(bytes);
}

TEST(LowerCase, ChangesTheLettersOfAsciiAlone) {
    EXPECT_EQ(lower_case("Evrk-NAME.9"), "evrk-name.9");
    EXPECT_EQ(lower_case(""), "");
    EXPECT_EQ(lower_case("\xc3\x84"), "\xc3\x84");
}
