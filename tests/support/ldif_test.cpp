#include "support/ldif.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "kit/capture.h"
#include "kit/temp_dir.h"
#include "support/own.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

// Memory that fails on demand: the writer takes that for its base64 by reallocarray.
static bool allocation_fails = false;
static size_t largest_allocation = SIZE_MAX;

extern "C" void *reallocarray(void *block, size_t count, size_t size) noexcept {
    return allocation_fails ? nullptr : realloc(block, std::min(count * size, largest_allocation));
}

namespace {

using pairs = std::vector<std::pair<std::string, std::string>>;

// A text in a block of exactly its size, so that a step behind the terminator is seen.
class exact_text {
 public:
    explicit exact_text(const std::string &text)
        : block_(static_cast<char *>(malloc(text.size() + 1))) {
        memcpy(block_.get(), text.c_str(), text.size() + 1);
    }
    operator const char *() const {
        return block_.get();
    }

 private:
    own_string block_;
};

struct parsed {
    bool ok = false;
    std::string name, value;
    int32_t binary = -1;
    ptrdiff_t next = -1;  // offset of the next line
};

parsed parse(const std::string &text, int32_t length = 0) {
    const exact_text input(text);
    char *name = nullptr, *value = nullptr;
    int32_t value_length = -1, binary = -1;
    const char *const next = ldif_parse(input, length, &name, &value, &value_length, &binary);
    const own_string own_name(name), own_value(value);
    if (!next) {
        EXPECT_EQ(name, nullptr);
        EXPECT_EQ(value, nullptr);
        return {};
    }
    EXPECT_EQ(value[value_length], '\0');
    return {true, name, std::string(value, static_cast<size_t>(value_length)), binary,
            next - input};
}

pairs pairs_of(s_ekva *const *rec) {
    pairs result;
    for (size_t i = 1; rec && rec[i]; ++i) {
        result.emplace_back(rec[i]->key, rec[i]->val ? rec[i]->val : "(null)");
    }
    return result;
}

// The pairs of ldif2ekva; "null" alone for no record.
pairs converted(const std::string &text, int32_t length = 0) {
    const own_ekva rec(ldif2ekva(exact_text(text), length));
    return rec ? pairs_of(rec.get()) : pairs{{"null", ""}};
}

std::string text_of(char *text) {
    const own_string owner(text);
    return text ? text : "(null)";
}

// One line in a buffer of its own: all bytes up to the length, and the string.
struct written {
    int32_t length = 0;
    own_string block;
    std::string text;
};

written write(const char *name, const std::string &value, int32_t mode) {
    written line;
    line.block.reset(ldif_write(nullptr, &line.length, name, value.c_str(),
                                static_cast<int32_t>(value.size()), mode));
    line.text = line.block ? line.block.get() : "(null)";
    return line;
}

std::string v(size_t count, char c = 'v') {
    return std::string(count, c);
}

struct entry {
    std::string text;  // "(null)" for none
    int32_t length;
    ptrdiff_t next;  // -1 for null
};

entry next_entry(const std::string &text) {
    const exact_text input(text);
    char *block = nullptr;
    int32_t length = -1;
    const char *const next =
        ldif_get_entry(input, static_cast<int32_t>(text.size()), &block, &length);
    return {text_of(block), length, next ? next - input : -1};
}

struct list_of_records {
    s_ekva ***list = nullptr;
    int32_t count = 0;

    list_of_records(const std::string &text, const char *object_class) {
        count = ldif2ekva_list(&list, exact_text(text), object_class);
    }
    ~list_of_records() {
        ekva_list_free(list);
    }
};

// ---- The parser of one line ----

TEST(LdifParse, TakesTheTextBehindTheBlankToTheEndOfTheLine) {
    const parsed line = parse("name: a value: with colon \nnext: x\n");
    EXPECT_EQ(line.name, "name");
    EXPECT_EQ(line.value, "a value: with colon ");
    EXPECT_EQ(line.binary, 0);
    EXPECT_EQ(line.next, 27);
}

TEST(LdifParse, NothingIsTheEnd) {
    EXPECT_FALSE(parse("").ok);
    char *name = nullptr, *value = nullptr;
    int32_t length = 0, binary = 1;
    EXPECT_EQ(ldif_parse(nullptr, 0, &name, &value, &length, &binary), nullptr);
    EXPECT_EQ(binary, 0);
}

TEST(LdifParse, ContinuationLosesExactlyOneBlank) {
    EXPECT_EQ(parse("a: one\n two\n").value, "onetwo");
    EXPECT_EQ(parse("a: one\n  two\n").value, "one two");
    EXPECT_EQ(parse("a: one\n two\n three\nb: x\n").value, "onetwothree");
    EXPECT_EQ(parse("a: one\n two\nb: x\n").next, 12);
    EXPECT_EQ(parse("a: one\n\ttwo\n").value, "one");
}

TEST(LdifParse, FoldMayStandInTheNameAndBehindTheColon) {
    const parsed line = parse("na\n me:\n  x\n");
    EXPECT_EQ(line.name, "name");
    EXPECT_EQ(line.value, "x");
}

TEST(LdifParse, LineThatEndsInCarriageReturnLosesItsLastCharacter) {
    EXPECT_EQ(parse("a: bcd\r\n").value, "bc");
    EXPECT_EQ(parse("a: b\r\n").value, "");
    EXPECT_EQ(parse("a: bcd\r").value, "bc");
    EXPECT_EQ(parse("a: bcd\r\r\n").value, "bc");
}

TEST(LdifParse, CarriageReturnInMidLineDisappears) {
    EXPECT_EQ(parse("a: b\rc\n").value, "bc");
    EXPECT_EQ(parse("a: b\r\n c\n").value, "bc");
}

TEST(LdifParse, LineOfACarriageReturnAloneIsEmpty) {
    const parsed line = parse("\r\na: b\n");
    EXPECT_TRUE(line.ok);
    EXPECT_EQ(line.name, "");
    EXPECT_EQ(line.next, 2);
}

TEST(LdifParse, WithoutAClosingLineFeedTheNextLineIsBehindTheTerminator) {
    EXPECT_EQ(parse("a: b").value, "b");
    EXPECT_EQ(parse("a: b").next, 5);
}

TEST(LdifParse, CommentIsItsFirstCharacter) {
    const parsed line = parse("# a comment\n");
    EXPECT_EQ(line.name, "#");
    EXPECT_EQ(line.value, "#");
    EXPECT_EQ(line.binary, 0);
    EXPECT_EQ(parse("#\n folded away\nx: y\n").next, 15);
}

TEST(LdifParse, EmptyLineHandsOutTheNextPosition) {
    const parsed line = parse("\na: b\n");
    EXPECT_EQ(line.name, "");
    EXPECT_EQ(line.value, "");
    EXPECT_EQ(line.next, 1);
    EXPECT_EQ(parse("\n").next, 1);
}

TEST(LdifParse, ByteBehindTheColonIsSkippedUnseen) {
    EXPECT_EQ(parse("a:xyz\n").value, "yz");
    EXPECT_EQ(parse("a:  xyz\n").value, " xyz");
    EXPECT_EQ(parse("a:x\n").value, "");
}

TEST(LdifParse, LineThatEndsBehindItsColonIsEmpty) {
    for (const char *text : {"a:", "a:\n", "a: ", "a: \n"}) {
        EXPECT_EQ(parse(text).name, "a") << text;
        EXPECT_EQ(parse(text).value, "") << text;
        EXPECT_EQ(parse(text).binary, 0) << text;
    }
    for (const char *text : {"a:<", "a:<\n", "a;binary:", "a;binary:\n"}) {
        EXPECT_EQ(parse(text).value, "") << text;
        EXPECT_EQ(parse(text).binary, 1) << text;
    }
}

TEST(LdifParse, LineWithoutColonIsAllName) {
    EXPECT_EQ(parse("no colon\n").name, "no colon");
    EXPECT_EQ(parse("no colon\n").value, "");
}

TEST(LdifParse, TwoColonsAreBase64) {
    const parsed line = parse("a:: aGVsbG8=\n");
    EXPECT_EQ(line.name, "a");
    EXPECT_EQ(line.value, "hello");
    EXPECT_EQ(line.binary, 1);
    EXPECT_EQ(parse("a:: AAEA\n").value, std::string("\0\1\0", 3));
    EXPECT_EQ(parse("a:: aGVs\n bG8=\n").value, "hello");
}

TEST(LdifParse, MalformedOrEmptyBase64EndsTheParse) {
    for (const char *text : {"a:: !!!!\nb: c\n", "a:: aGVsbG8\nb: c\n", "a:: \nb: c\n", "a::\n",
                             "a::", "a:: ", "a::aGVs\n"}) {
        EXPECT_FALSE(parse(text).ok) << text;
    }
}

TEST(LdifParse, LengthNeverLimits) {
    for (const int32_t length : {-1, 0, 1, 3, 1000}) {
        EXPECT_EQ(parse("name: a long value\n", length).value, "a long value");
        EXPECT_EQ(parse("name:: aGVsbG8=\n", length).value, "hello");
    }
}

TEST(LdifParse, ReferenceIsTheContentOfTheFile) {
    const TempDir dir;
    const std::string content("line\n\0\xff", 7);
    const std::string path = dir.write("value", content);
    for (const std::string &text : {"a:< file://" + path + "\n", "a:< " + path + "\n",
                                    "a;binary: " + path + "\n", "a;binary: file://" + path}) {
        EXPECT_EQ(parse(text).value, content) << text;
        EXPECT_EQ(parse(text).binary, 1) << text;
    }
    EXPECT_EQ(parse("a;binary: " + path + "\n").name, "a;binary");
}

TEST(LdifParse, NameWithBinaryAndTwoColonsIsBase64) {
    EXPECT_EQ(parse("a;binary:: aGVsbG8=\n").value, "hello");
}

TEST(LdifParse, ReferenceThatCannotBeReadIsEmptyAndTheParseGoesOn) {
    const TempDir dir;
    for (const std::string &path : {dir / "missing", dir.path(), dir / std::string(5000, 'x')}) {
        const parsed line = parse("a:< file://" + path + "\nb: c\n");
        EXPECT_TRUE(line.ok);
        EXPECT_EQ(line.value, "");
        EXPECT_EQ(line.binary, 1);
    }
}

TEST(LdifParse, BarePathEndsAfter1999Bytes) {
    const TempDir dir;
    std::string path = dir.write("value", "content");
    path.insert(dir.path().size(), std::string(1999 - path.size(), '/'));
    ASSERT_EQ(path.size(), 1999U);
    EXPECT_EQ(parse("a:< " + path + "more\n").value, "content");
    EXPECT_EQ(parse("a:< file://" + path + "more\n").value, "");
}

TEST(LdifParse, ReferenceToAPipeOrDeviceDoesNotWait) {
    const TempDir dir;
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(parse("a:< " + (dir / "pipe") + "\n").value, "");
    EXPECT_EQ(parse("a:< file:///dev/zero\n").value, "");
}

// ---- Text to record ----

TEST(Ldif2ekva, KeepsOrderAndRepeatedNames) {
    EXPECT_THAT(converted("b: 1\na: 2\nb: 3\n"),
                ElementsAre(Pair("b", "1"), Pair("a", "2"), Pair("b", "3")));
}

TEST(Ldif2ekva, MakesARecordOfCapacity50AndMode3) {
    const own_ekva rec(ldif2ekva("a: b\n", 5));
    EXPECT_STREQ(rec.get()[0]->key, "#EKVA_10:50:3");
}

TEST(Ldif2ekva, Base64StaysBase64UnderABinaryKey) {
    EXPECT_THAT(converted("a:: aGVsbG8=\nb;binary:: aGVsbG8=\n"),
                ElementsAre(Pair("a;binary", "aGVsbG8="), Pair("b;binary;binary", "aGVsbG8=")));
}

TEST(Ldif2ekva, ReferenceBecomesBase64UnderABinaryKey) {
    const TempDir dir;
    const std::string path = dir.write("value", "foobar");
    EXPECT_THAT(converted("a:< file://" + path + "\n"), ElementsAre(Pair("a;binary", "Zm9vYmFy")));
}

TEST(Ldif2ekva, ReferenceToNothingAddsNoKey) {
    EXPECT_THAT(converted("a;binary: /nonexistent/file\nb: c\n"), ElementsAre(Pair("b", "c")));
}

TEST(Ldif2ekva, CommentIsAPairToo) {
    EXPECT_THAT(converted("# comment\na: b\n"), ElementsAre(Pair("#", "#"), Pair("a", "b")));
}

TEST(Ldif2ekva, GoesOnAcrossEmptyLines) {
    EXPECT_THAT(converted("a: 1\n\n\nb: 2\n"), ElementsAre(Pair("a", "1"), Pair("b", "2")));
}

TEST(Ldif2ekva, LineWithoutANameAddsNothing) {
    EXPECT_THAT(converted(": x\na: \n"), ElementsAre(Pair("a", "")));
}

TEST(Ldif2ekva, FailureOnTheFirstLineIsTold) {
    for (const char *text : {"", "a:: \nb: c\n"}) {
        EXPECT_EQ(stderr_of([&] {
                      EXPECT_EQ(converted(text), (pairs{{"null", ""}}));
                  }),
                  "ldif2ekva: failed to parse ldif buffer\n");
    }
    EXPECT_EQ(stderr_of([] { EXPECT_EQ(ldif2ekva(nullptr, 0), nullptr); }),
              "ldif2ekva: failed to parse ldif buffer\n");
}

TEST(Ldif2ekva, FailureOnALaterLineEndsItSilently) {
    EXPECT_EQ(stderr_of([] {
                  EXPECT_THAT(converted("a: 1\nb:: \nc: 2\n"), ElementsAre(Pair("a", "1")));
              }),
              "");
}

TEST(Ldif2ekva, TextWithoutClosingLineFeedIsNotReadBehindItsEnd) {
    EXPECT_THAT(converted("a: 1\nb: 2"), ElementsAre(Pair("a", "1"), Pair("b", "2")));
    EXPECT_THAT(converted("a: 1\nb:"), ElementsAre(Pair("a", "1"), Pair("b", "")));
}

TEST(Ldif2ekva, TakesTimeInProportionToTheText) {
    std::string text;
    for (int i = 0; i < 100000; ++i) {
        text += "key: value " + std::to_string(i) + "\n";
    }
    const std::clock_t start = std::clock();  // of this process, whatever others do meanwhile
    EXPECT_EQ(converted(text, static_cast<int32_t>(text.size())).size(), 100000U);
    EXPECT_LT(std::clock() - start, 10 * CLOCKS_PER_SEC);
}

// ---- The writer of one line ----

TEST(LdifWrite, WritesTextAsItStands) {
    const written line = write("name", "a value ", 0);
    EXPECT_EQ(line.text, "name: a value \n");
    EXPECT_EQ(line.length, 15);
    EXPECT_EQ(write("name", "", 0).text, "name: \n");
    EXPECT_EQ(write("name", "text", 4).text, "name: text\n");
}

TEST(LdifWrite, AppendsToABuffer) {
    int32_t length = 0;
    char *buffer = ldif_write(nullptr, &length, "a", "1", 0, 0);
    buffer = ldif_write(buffer, &length, "b", "2", 0, 0);
    buffer = ldif_write(buffer, &length, nullptr, "", 0, 0);
    EXPECT_EQ(length, 11);
    EXPECT_EQ(text_of(buffer), "a: 1\nb: 2\n\n");
}

TEST(LdifWrite, UnsafeTextGoesToBase64) {
    EXPECT_EQ(write("a", " x", 0).text, "a:: IHg=\n");
    EXPECT_EQ(write("a", ":x", 0).text, "a:: Ong=\n");
    EXPECT_EQ(write("a", "<x", 0).text, "a:: PHg=\n");
    EXPECT_EQ(write("a", "x\n", 0).text, "a:: eAo=\n");
    EXPECT_EQ(write("a", "x\ry", 0).text, "a:: eA15\n");
    EXPECT_EQ(write("a", "\xC3\xA4", 0).text, "a:: w6Q=\n");
    EXPECT_EQ(write("a", "\xC3\xA4", 4).text, "a:: w6Q=\n");
    EXPECT_EQ(write("a", " x", 0).length, 9);
}

TEST(LdifWrite, SafeTextStaysPlain) {
    for (const char *value : {"x ", "x:y", "x<y", "x y", "\tx", "\x7f", "#x"}) {
        EXPECT_EQ(write("a", value, 0).text, std::string("a: ") + value + "\n");
    }
}

TEST(LdifWrite, DnKeepsBytesAbove127) {
    EXPECT_EQ(write("dn", "cn=\xC3\xA4", 2).text, "dn: cn=\xC3\xA4\n");
    EXPECT_EQ(write("dn", " x", 2).text, "dn:: IHg=\n");
    EXPECT_EQ(write("dn", "x\n", 2).text, "dn:: eAo=\n");
}

TEST(LdifWrite, BinaryModeTakesExactlyTheGivenBytes) {
    EXPECT_EQ(write("a", std::string("\0\1\2\3", 4), 1).text, "a:: AAECAw==\n");
    int32_t length = 0;
    EXPECT_EQ(text_of(ldif_write(nullptr, &length, "a", "foobar", 3, 1)), "a:: Zm9v\n");
    EXPECT_EQ(length, 9);
    length = 0;
    EXPECT_EQ(text_of(ldif_write(nullptr, &length, "a", "foobar", 0, 1)), "a:: \n");
}

TEST(LdifWrite, ReferenceModeTestsNothing) {
    EXPECT_EQ(write("a", "file:///x", 3).text, "a:< file:///x\n");
    EXPECT_EQ(write("a", " \xC3\xA4", 3).text, "a:<  \xC3\xA4\n");
    EXPECT_EQ(write("a", "file:///x", 3).length, 13);
}

TEST(LdifWrite, LineOf78BytesStaysWhole) {
    const written line = write("abc", v(72), 0);
    EXPECT_EQ(line.text, "abc: " + v(72) + "\n");
    EXPECT_EQ(line.length, 78);
}

TEST(LdifWrite, LineOf79BytesIsFolded) {
    const written line = write("abc", v(73), 0);
    EXPECT_EQ(line.text, "abc: " + v(72) + "\n v\n");
    EXPECT_EQ(line.length, 81);
}

TEST(LdifWrite, FoldsBase64OneCharacterEarlier) {
    // 54 bytes are 72 characters: with the second colon the line would have 79 bytes.
    const written line = write("abc", v(54, '\n'), 0);
    std::string text;
    for (int i = 0; i < 18; ++i) {
        text += "CgoK";
    }
    EXPECT_EQ(line.text, "abc:: " + text.substr(0, 71) + "\n " + text.substr(71) + "\n");
    EXPECT_EQ(line.length, 81);
}

TEST(LdifWrite, Exactly76BytesLeftAreOneFurtherLine) {
    const written line = write("abc", v(148), 0);
    EXPECT_EQ(line.text, "abc: " + v(72) + "\n " + v(76) + "\n");
    EXPECT_EQ(line.length, 156);
}

TEST(LdifWrite, SeventySevenBytesLeftAreTwoFurtherLines) {
    const written line = write("abc", v(149), 0);
    EXPECT_EQ(line.text, "abc: " + v(72) + "\n " + v(76) + "\n v\n");
    EXPECT_EQ(line.length, 159);
}

TEST(LdifWrite, PlannedSizeCountsTwoTooManyWith75BytesLeft) {
    // 153 planned bytes make two folds by the count, but one does.
    const written line = write("abc", v(147), 0);
    EXPECT_EQ(line.text, "abc: " + v(72) + "\n " + v(75) + "\n");
    EXPECT_EQ(line.text.size(), 155U);
    EXPECT_EQ(line.length, 157);
    EXPECT_EQ(line.block.get()[155], '\0');
    EXPECT_EQ(line.block.get()[156], '\0');
    EXPECT_EQ(line.block.get()[157], '\0');
}

TEST(LdifWrite, WhatItFoldsIsReadBack) {
    for (const size_t name_size : {1U, 12U, 60U, 74U, 75U, 76U, 90U, 200U}) {
        const std::string name = v(name_size, 'n');
        for (size_t size = 0; size < 400; ++size) {
            std::string value;
            for (size_t i = 0; i < size; ++i) {
                value += static_cast<char>('A' + i % 57);
            }
            for (const int32_t mode : {0, 1}) {
                if (mode == 1 && size == 0) {
                    continue;
                }
                const written line = write(name.c_str(), value, mode);
                const parsed back = parse(line.text);
                ASSERT_EQ(back.name, name);
                ASSERT_EQ(back.value, value) << line.text;
                ASSERT_EQ(back.next, static_cast<ptrdiff_t>(line.text.size()));
            }
        }
    }
}

TEST(LdifWrite, EveryLineButTheLastHas78Bytes) {
    std::string text = write("name", v(1000), 0).text;
    while (text.size() > 78) {
        ASSERT_EQ(text.find('\n'), 77U);
        text.erase(0, 78);
    }
    EXPECT_EQ(text.find('\n'), text.size() - 1);
}

TEST(LdifWrite, WithoutANameItIsOneLineFeed) {
    EXPECT_EQ(write(nullptr, v(200), 0).text, "\n");
    EXPECT_EQ(write("", "x", 1).text, "\n");
    EXPECT_EQ(write(nullptr, v(200), 0).length, 1);
}

TEST(LdifWrite, NameWithBinaryHoldsBase64Already) {
    const written line = write("a;binary", "QUJD", 0);
    EXPECT_EQ(line.text, "a:: QUJD\n");
    EXPECT_EQ(line.length, 8);
    EXPECT_EQ(write("a;binary;binary", "QUJD", 0).text, "a:: QUJD\n");
}

TEST(LdifWrite, NameWithFilenameHoldsAReference) {
    const written line = write("a;filename", "/x", 0);
    EXPECT_EQ(line.text, "a:< /x\n");
    EXPECT_EQ(line.length, 8);
}

TEST(LdifWrite, LongValueUnderBinaryIsWholeUpToItsPlannedSize) {
    const written whole = write("a;binary", v(72), 0);
    EXPECT_EQ(whole.text, "a:: " + v(72) + "\n");
    EXPECT_EQ(whole.length, 78);
    EXPECT_EQ(write("a;binary", v(73), 0).length, 79);
    EXPECT_EQ(write("a;binary", v(73), 0).text, "a:: " + v(66) + "\n");
}

TEST(LdifWrite, FoldedValueUnderBinaryEndsAsAStringAt71Bytes) {
    const written line = write("a;binary", v(100), 0);
    EXPECT_EQ(line.text, "a:: " + v(66) + "\n");
    EXPECT_EQ(line.text.size(), 71U);
    EXPECT_EQ(line.length, 106);
    EXPECT_EQ(std::string(line.block.get() + 71, 7), std::string(7, '\0'));
    EXPECT_EQ(std::string(line.block.get() + 78, 28), " " + v(27));
}

TEST(LdifWrite, FoldedValueUnderFilenameEndsAsAStringAt70Bytes) {
    const written line = write("a;filename", v(100), 0);
    EXPECT_EQ(line.text, "a:< " + v(65) + "\n");
    EXPECT_EQ(line.text.size(), 70U);
    EXPECT_EQ(line.length, 108);
    EXPECT_EQ(std::string(line.block.get() + 78, 30), " " + v(29));
}

TEST(LdifWrite, FoldedReferenceIsOneLineWithABlankInIt) {
    const written line = write("abc", v(100), 3);
    EXPECT_EQ(line.text, "abc:< " + v(72) + " " + v(28) + "\n");
    EXPECT_EQ(line.length, 108);
    EXPECT_EQ(write("abc", v(160), 3).text, "abc:< " + v(72) + " " + v(76) + "\n " + v(12) + "\n");
}

TEST(LdifWrite, LongValueSurvivesInBinaryModeWithoutTheOption) {
    const std::string bytes = v(1000, '\xff');
    EXPECT_EQ(parse(write("sig", bytes, 1).text).value, bytes);
}

TEST(LdifWrite, LineBreakInAValueCannotMakeALine) {
    for (const char *name : {"a", "a;binary", "a;filename"}) {
        const std::string text = write(name, "x\nb: forged", 0).text;
        EXPECT_EQ(text.find('\n'), text.size() - 1) << text;
    }
}

TEST(LdifWrite, FailureLeavesTheBuffer) {
    int32_t length = 0;
    const own_string buffer(ldif_write(nullptr, &length, "a", "b", 0, 0));
    EXPECT_EQ(ldif_write(buffer.get(), &length, "c", nullptr, 0, 0), nullptr);
    EXPECT_EQ(ldif_write(buffer.get(), &length, "c", "d", -1, 1), nullptr);
    EXPECT_EQ(length, 5);
    EXPECT_STREQ(buffer.get(), "a: b\n");
    length = INT32_MAX - 4;
    EXPECT_EQ(ldif_write(buffer.get(), &length, "c", "d", 0, 0), nullptr);
    EXPECT_EQ(length, INT32_MAX - 4);
}

TEST(LdifWrite, TellsOfBase64ThatCannotBeHad) {
    int32_t length = 0;
    char *line = nullptr;
    allocation_fails = true;
    EXPECT_EQ(stderr_of([&] { line = ldif_write(nullptr, &length, "a", "b", 1, 1); }),
              "Failed to allocate base64 buffer\n");
    allocation_fails = false;
    EXPECT_EQ(line, nullptr);
    // More characters than an int can count: the encoder refuses before it reads or writes a byte.
    largest_allocation = 1;
    EXPECT_EQ(stderr_of([&] { line = ldif_write(nullptr, &length, "a", "b", INT32_MAX, 1); }),
              "Failed to encode binary value: -1\n");
    largest_allocation = SIZE_MAX;
    EXPECT_EQ(line, nullptr);
    EXPECT_EQ(length, 0);
}

// ---- Stream writer, record to text ----

struct streamed {
    int32_t result;
    std::string text;
};

streamed fwrite_line(const char *name, const std::string &value, int32_t mode) {
    char *block = nullptr;
    size_t size = 0;
    FILE *const stream = open_memstream(&block, &size);
    const int32_t result =
        ldif_fwrite(stream, name, value.c_str(), static_cast<int32_t>(value.size()), mode);
    fclose(stream);
    return {result, text_of(block)};
}

TEST(LdifFwrite, WritesTheLineAndReturnsItsPlannedLength) {
    EXPECT_EQ(fwrite_line("abc", "x", 0).text, "abc: x\n");
    EXPECT_EQ(fwrite_line("abc", "x", 0).result, 7);
    EXPECT_EQ(fwrite_line("abc", v(147), 0).result, 157);
    EXPECT_EQ(fwrite_line("abc", v(147), 0).text.size(), 155U);
}

TEST(LdifFwrite, WithoutANameItWritesOneLineFeed) {
    EXPECT_EQ(fwrite_line(nullptr, "", 0).text, "\n");
    EXPECT_EQ(fwrite_line(nullptr, "", 0).result, 1);
}

TEST(LdifFwrite, FoldedValueUnderBinaryKeepsItsFirstLine) {
    EXPECT_EQ(fwrite_line("a;binary", v(100), 0).text, "a:: " + v(66) + "\n");
    EXPECT_EQ(fwrite_line("a;binary", v(100), 0).result, 106);
}

TEST(LdifFwrite, NothingWrittenGivesZero) {
    EXPECT_EQ(ldif_fwrite(stdout, "a", nullptr, 0, 0), 0);
    const own_file full(fopen("/dev/full", "w"));
    setvbuf(full.get(), nullptr, _IONBF, 0);
    EXPECT_EQ(ldif_fwrite(full.get(), "a", "b", 0, 0), 0);
}

std::string entry_of(const pairs &content) {
    s_ekva **rec = ekva_new(20, 3);
    for (const auto &[key, value] : content) {
        ekva_addval(&rec, key.c_str(), value == "(null)" ? nullptr : value.c_str(), 3);
    }
    const own_ekva owner(rec);
    return text_of(ekva2ldif(rec));
}

TEST(Ekva2ldif, PutsTheDnFirstAndOnce) {
    EXPECT_EQ(entry_of({{"a", "1"}, {"b", "2"}, {"dn", "cn=x"}, {"c", "3"}}),
              "dn: cn=x\na: 1\nb: 2\nc: 3\n");
}

TEST(Ekva2ldif, DnKeepsBytesAbove127AndOthersGoToBase64) {
    EXPECT_EQ(entry_of({{"dn", "\xC3\xA4"}, {"a", "\xC3\xA4"}}), "dn: \xC3\xA4\na:: w6Q=\n");
}

TEST(Ekva2ldif, OnlyAKeyThatIsExactlyDnIsSkipped) {
    EXPECT_EQ(entry_of({{"DN", "x"}, {"a", "1"}}), "dn: x\nDN: x\na: 1\n");
}

TEST(Ekva2ldif, PairsWithoutAValueGiveNoLine) {
    EXPECT_EQ(entry_of({{"a", "(null)"}, {"b", ""}, {"c", "3"}}), "c: 3\n");
    EXPECT_EQ(entry_of({{"dn", ""}, {"c", "3"}}), "c: 3\n");
    EXPECT_EQ(entry_of({}), "");
}

TEST(Ekva2ldif, NullGivesNull) {
    EXPECT_EQ(ekva2ldif(nullptr), nullptr);
}

TEST(Ekva2ldif, LineBehindACutOneFollowsIt) {
    EXPECT_EQ(entry_of({{"a;binary", v(100)}, {"b", v(147)}, {"c", "3"}}),
              "a:: " + v(66) + "\nb: " + v(74) + "\n " + v(73) + "\nc: 3\n");
}

TEST(Ekva2ldif, TakesALongRecord) {
    pairs content;
    std::string expected;
    for (int i = 0; i < 5000; ++i) {
        content.emplace_back("key", std::to_string(i));
        expected += "key: " + std::to_string(i) + "\n";
    }
    EXPECT_EQ(entry_of(content), expected);
}

TEST(Ekva2ldif, IsReadBack) {
    const pairs content = {{"dn", "cn=x"}, {"a", "1"}, {"b;binary", "aGVsbG8="}, {"a", v(300)}};
    EXPECT_EQ(converted(entry_of(content)), content);
}

// ---- Entries ----

TEST(LdifGetEntry, TakesTheLinesUpToTheEmptyOne) {
    const std::string text = "dn: cn=1\na: b\n\ndn: cn=2\n\n";
    const entry first = next_entry(text);
    EXPECT_EQ(first.text, "dn: cn=1\na: b\n");
    EXPECT_EQ(first.length, 14);
    EXPECT_EQ(first.next, 15);
    const entry second = next_entry(text.substr(15));
    EXPECT_EQ(second.text, "dn: cn=2\n");
    EXPECT_EQ(second.next, 10);
    EXPECT_EQ(next_entry("").next, -1);
}

TEST(LdifGetEntry, NullGivesNull) {
    char *block = nullptr;
    int32_t length = -1;
    EXPECT_EQ(ldif_get_entry(nullptr, 0, &block, &length), nullptr);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(length, 0);
}

TEST(LdifGetEntry, Unfolds) {
    EXPECT_EQ(next_entry("dn: c\n n=1\na: b\n  c\n\n").text, "dn: cn=1\na: b c\n");
}

TEST(LdifGetEntry, CarriageReturnsGoWithoutLoss) {
    const entry found = next_entry("dn: cn=1\r\na: bcd\r\ne: f\r\n g\r\n\r\nnext");
    EXPECT_EQ(found.next, 30);
    const own_ekva rec(ldif2ekva(exact_text(found.text), found.length));
    EXPECT_THAT(pairs_of(rec.get()),
                ElementsAre(Pair("dn", "cn=1"), Pair("a", "bcd"), Pair("e", "fg")));
    EXPECT_EQ(next_entry("dn: cn=1\r").text, "dn: cn=1\n");
}

TEST(LdifGetEntry, SkipsWhatStandsAheadOfTheDn) {
    EXPECT_EQ(next_entry("# comment\nversion: 1\ndn: x\n# kept\n\n").text, "dn: x\n# kept\n");
}

TEST(LdifGetEntry, DnLineHasAtLeastFourCharacters) {
    EXPECT_EQ(next_entry("dn:\na: b\n\n").text, "(null)");
    EXPECT_EQ(next_entry("dn:x\na: b\n\n").text, "dn:x\na: b\n");
    EXPECT_EQ(next_entry("DN: x\n\n").text, "(null)");
}

TEST(LdifGetEntry, BlockWithoutDnGivesThePositionAlone) {
    const entry found = next_entry("a: b\n\ndn: x\n\n");
    EXPECT_EQ(found.text, "(null)");
    EXPECT_EQ(found.length, 0);
    EXPECT_EQ(found.next, 6);
    EXPECT_EQ(next_entry("\ndn: x\n\n").next, 1);
}

TEST(LdifGetEntry, TextThatEndsFirstEndsTheEntryAtItsTerminator) {
    EXPECT_EQ(next_entry("dn: x\na: b\n").text, "dn: x\na: b\n");
    EXPECT_EQ(next_entry("dn: x\na: b\n").next, 11);
    EXPECT_EQ(next_entry("dn: x\na: b").text, "dn: x\na: b\n");
    EXPECT_EQ(next_entry("dn: x\na: b").next, 10);
}

std::vector<std::string> stream_entries(std::string text) {
    const own_file stream(fmemopen(text.data(), text.size(), "r"));
    std::vector<std::string> entries;
    while (!feof(stream.get())) {
        entries.push_back(text_of(ldif_fget_entry(stream.get())));
    }
    return entries;
}

TEST(LdifFgetEntry, TakesOneEntryAfterTheOther) {
    EXPECT_THAT(stream_entries("# c\ndn: 1\na: b\n\ndn: 2\n\n"),
                ElementsAre("dn: 1\na: b\n", "dn: 2\n", "(null)"));
}

TEST(LdifFgetEntry, DoesNotUnfold) {
    EXPECT_THAT(stream_entries("dn: 1\na: b\n c\n\n"), ElementsAre("dn: 1\na: b\n c\n", "(null)"));
}

TEST(LdifFgetEntry, StripsLineFeedThenCarriageReturn) {
    EXPECT_THAT(stream_entries("dn: 1\r\na: b\r\r\n\r\n"),
                ElementsAre("dn: 1\na: b\r\n", "(null)"));
}

TEST(LdifFgetEntry, EmptyLineAheadOfTheDnGivesNull) {
    EXPECT_THAT(stream_entries("a: b\n\ndn: 1\n\n"), ElementsAre("(null)", "dn: 1\n", "(null)"));
}

TEST(LdifFgetEntry, EntryThatNoEmptyLineClosesIsLost) {
    EXPECT_THAT(stream_entries("dn: 1\na: b\n"), ElementsAre("(null)"));
}

TEST(LdifFgetEntry, LongLineComesAsSeveral) {
    EXPECT_THAT(stream_entries("dn: 1\na: " + v(1000) + "\n\n"),
                ElementsAre("dn: 1\na: " + v(507) + "\n" + v(493) + "\n", "(null)"));
}

TEST(LdifFgetEntry, LineEndBehindAFullPieceIsNoEmptyLine) {
    for (const std::string end : {"\n", "\r\n"}) {
        EXPECT_THAT(stream_entries("dn: 1\na: " + v(507) + end + "b: c\n\n"),
                    ElementsAre("dn: 1\na: " + v(507) + "\nb: c\n", "(null)"));
    }
}

TEST(LdifFgetEntry, TakesALargeEntry) {
    std::string text = "dn: 1\n";
    for (int i = 0; i < 2000; ++i) {
        text += "key: " + std::to_string(i) + "\n";
    }
    EXPECT_THAT(stream_entries(text + "\n"), ElementsAre(text, "(null)"));
}

// ---- Lists ----

TEST(Ldif2ekvaList, GivesARecordForEachEntry) {
    const list_of_records found("dn: 1\na: b\n\nno: entry\n\n# c\ndn: 2\nd:: aGVsbG8=\n\n",
                                nullptr);
    ASSERT_EQ(found.count, 2);
    EXPECT_THAT(pairs_of(found.list[0]), ElementsAre(Pair("dn", "1"), Pair("a", "b")));
    EXPECT_THAT(pairs_of(found.list[1]),
                ElementsAre(Pair("dn", "2"), Pair("d;binary", "aGVsbG8=")));
    EXPECT_EQ(found.list[2], nullptr);
}

TEST(Ldif2ekvaList, BlocksWithoutDnGiveNothing) {
    const std::string text = "a: 1\nb: 2\n\na: 3\n";
    const list_of_records found(text, nullptr);
    EXPECT_EQ(found.count, 0);
    ASSERT_NE(found.list, nullptr);
    EXPECT_EQ(found.list[0], nullptr);
    EXPECT_THAT(converted(text), ElementsAre(Pair("a", "1"), Pair("b", "2"), Pair("a", "3")));
    char *value = nullptr;
    EXPECT_EQ(ldif_entry_get_attr(text.c_str(), 0, "a", &value, 2), 0);
    EXPECT_EQ(value, nullptr);
}

TEST(Ldif2ekvaList, KeepsRecordsOfTheClassAndThoseOfNone) {
    const list_of_records found(
        "dn: 1\nobjectClass: a\n\ndn: 2\nobjectClass: b\n\ndn: 3\n\ndn: 4\nOBJECTCLASS: a\n\n"
        "dn: 5\nobjectClass: A\n\n",
        "a");
    ASSERT_EQ(found.count, 3);
    EXPECT_STREQ(ekva_getval(found.list[0], "dn"), "1");
    EXPECT_STREQ(ekva_getval(found.list[1], "dn"), "3");
    EXPECT_STREQ(ekva_getval(found.list[2], "dn"), "4");
}

TEST(Ldif2ekvaList, EntryThatCannotBeParsedIsLeftOut) {
    EXPECT_EQ(stderr_of([] { EXPECT_EQ(list_of_records("dn:: \n\ndn: 2\n\n", nullptr).count, 1); }),
              "ldif2ekva: failed to parse ldif buffer\n");
}

TEST(Ldif2ekvaList, TextThatEndsFirstStillGivesItsLastEntry) {
    EXPECT_EQ(list_of_records("dn: 1\n\ndn: 2\n", nullptr).count, 2);
    EXPECT_EQ(list_of_records("dn: 1\n\ndn: 2", nullptr).count, 2);
    EXPECT_EQ(list_of_records("", nullptr).count, 0);
}

TEST(Ldif2ekvaList, TakesMoreThanItsFirstCapacity) {
    std::string text;
    for (int i = 0; i < 10000; ++i) {
        text += "dn: " + std::to_string(i) + "\na: b\n\n";
    }
    const list_of_records found(text, nullptr);
    ASSERT_EQ(found.count, 10000);
    EXPECT_STREQ(ekva_getval(found.list[9999], "dn"), "9999");
    EXPECT_EQ(found.list[10000], nullptr);
}

TEST(Ldif2ekvaListAdd, AppendsToAList) {
    s_ekva ***list = nullptr;
    int capacity = 2;
    int32_t count = ldif2ekva_list_add(&list, "dn: 1\n\ndn: 2\n\n", nullptr, 0, &capacity);
    EXPECT_EQ(count, 2);
    count = ldif2ekva_list_add(&list, "dn: 3\nobjectClass: x\n\ndn: 4\n\n", "y", count, &capacity);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(capacity, 4);
    EXPECT_STREQ(ekva_getval(list[0], "dn"), "1");
    EXPECT_STREQ(ekva_getval(list[2], "dn"), "4");
    EXPECT_EQ(list[3], nullptr);
    ekva_list_free(list);
}

TEST(Ldif2ekvaListAdd, EntryWithoutAnyPairIsLeftOut) {
    s_ekva ***list = nullptr;
    int capacity = 2;
    EXPECT_EQ(ldif2ekva_list_add(&list, "dn:< /nonexistent\n\ndn: 2\n\n", nullptr, 0, &capacity),
              1);
    ekva_list_free(list);
}

TEST(Ldif2ekvaListFile, ReadsAFile) {
    const TempDir dir;
    const std::string path = dir.write("list", "dn: 1\n\ndn: 2\nobjectClass: x\n\n");
    s_ekva ***list = nullptr;
    EXPECT_EQ(ldif2ekva_list_file(&list, path.c_str(), "y"), 1);
    EXPECT_STREQ(ekva_getval(list[0], "dn"), "1");
    int capacity = 1;
    EXPECT_EQ(ldif2ekva_list_file_add(&list, path.c_str(), nullptr, 1, &capacity), 3);
    EXPECT_STREQ(ekva_getval(list[2], "dn"), "2");
    ekva_list_free(list);
}

TEST(Ldif2ekvaListFile, UnreadableFileGivesNothing) {
    s_ekva **none[] = {nullptr};
    s_ekva ***list = none;
    int capacity = 5;
    EXPECT_EQ(ldif2ekva_list_file_add(&list, "/nonexistent", nullptr, 7, &capacity), 7);
    EXPECT_EQ(list, none);
    EXPECT_EQ(ldif2ekva_list_file(&list, "/nonexistent", nullptr), 0);
    EXPECT_EQ(list, nullptr);
}

// ---- Lookups ----

struct looked_up {
    int32_t length;
    std::string value;  // "(null)" for none
};

looked_up attr(const std::string &text, const char *name, int32_t n = 1) {
    char *value = nullptr;
    const int32_t length = ldif_entry_get_attr(exact_text(text), 0, name, &value, n);
    const own_string owner(value);
    return {length, value ? std::string(value, static_cast<size_t>(length)) : "(null)"};
}

const std::string sample = "dn: x\n# c\na: 1\nA: 2\na;binary:: AAEA\ne: \nb: 3\n\na: 4\n";

TEST(LdifEntryCountAttr, CountsInTheFirstEntryWithoutRegardToCase) {
    EXPECT_EQ(ldif_entry_count_attr(sample.c_str(), 0, "a"), 2);
    EXPECT_EQ(ldif_entry_count_attr(sample.c_str(), 0, "B"), 1);
    EXPECT_EQ(ldif_entry_count_attr(sample.c_str(), 0, "a;binary"), 1);
    EXPECT_EQ(ldif_entry_count_attr(sample.c_str(), 0, "z"), 0);
    EXPECT_EQ(ldif_entry_count_attr("\na: 1\n", 0, "a"), 0);
    EXPECT_EQ(ldif_entry_count_attr("a: 1\nb:: \na: 2\n", 0, "a"), 1);
}

TEST(LdifEntryCountAttr, FailureOnTheFirstLineIsTold) {
    for (const char *text : {static_cast<const char *>(nullptr), "", "a:: \n"}) {
        EXPECT_EQ(stderr_of([&] { EXPECT_EQ(ldif_entry_count_attr(text, 0, "a"), 0); }),
                  "ldif_entry_count_attr: failed to parse ldif buffer\n");
    }
}

TEST(LdifEntryGetAttr, GivesTheNthValue) {
    EXPECT_EQ(attr(sample, "a").value, "1");
    EXPECT_EQ(attr(sample, "a", 2).value, "2");
    EXPECT_EQ(attr(sample, "a", 2).length, 1);
    EXPECT_EQ(attr(sample, "a", 3).value, "(null)");
    EXPECT_EQ(attr(sample, "a", 0).value, "(null)");
    EXPECT_EQ(attr("a: 1\n", "a", 2).value, "(null)");
}

TEST(LdifEntryGetAttr, FindsALineBehindAComment) {
    EXPECT_EQ(attr("# comment\na: 1\n", "a").value, "1");
}

TEST(LdifEntryGetAttr, GivesTheDecodedValueWithItsNulBytes) {
    EXPECT_EQ(attr(sample, "a;binary").value, std::string("\0\1\0", 3));
    EXPECT_EQ(attr(sample, "a;binary").length, 3);
}

TEST(LdifEntryGetAttr, EmptyValueIsAnEmptyString) {
    EXPECT_EQ(attr(sample, "e").value, "");
    EXPECT_EQ(attr(sample, "e").length, 0);
}

TEST(LdifEntryGetAttr, StopsAtTheEmptyLine) {
    EXPECT_EQ(attr("a: 1\n\nb: 2\n", "b").value, "(null)");
    EXPECT_EQ(attr("\nb: 2\n", "b").value, "(null)");
}

TEST(LdifEntryGetAttr, FailureOnTheFirstLineLeavesThePlaceAsItWas) {
    char mark;
    char *value = &mark;
    EXPECT_EQ(stderr_of([&] { EXPECT_EQ(ldif_entry_get_attr("a:: \n", 0, "a", &value, 1), 0); }),
              "ldif_entry_get_attr: failed to parse ldif buffer\n");
    EXPECT_EQ(value, &mark);
}

std::vector<std::string> vals(const std::string &text, const char *name) {
    char **values = nullptr;
    const int32_t count = ldif_entry_get_vals(exact_text(text), 0, name, &values);
    const own_array owner(values);
    std::vector<std::string> result;
    if (!values) {
        EXPECT_EQ(count, 0);
        return {"(null)"};
    }
    for (; *values; ++values) {
        result.emplace_back(*values);
    }
    EXPECT_EQ(static_cast<size_t>(count), result.size());
    return result;
}

TEST(LdifEntryGetVals, GivesAllValuesOfATextThatEnds) {
    EXPECT_THAT(vals("a: 1\nb: 2\nA: 3\na:: aGVsbG8=\n", "a"), ElementsAre("1", "3", "hello"));
    EXPECT_THAT(vals("a: 1\n", "b"), IsEmpty());
    EXPECT_THAT(vals("a:: eAB5\n", "a"), ElementsAre("x"));
}

TEST(LdifEntryGetVals, NeverFindsTheDn) {
    EXPECT_THAT(vals("dn: 1\na: 2\n", "dn"), IsEmpty());
}

TEST(LdifEntryGetVals, EntryClosedByAnEmptyLineGivesNothing) {
    EXPECT_THAT(vals("a: 1\n\n", "a"), ElementsAre("(null)"));
    EXPECT_THAT(vals("\na: 1\n", "a"), ElementsAre("(null)"));
}

TEST(LdifEntryGetVals, FailureOnTheFirstLineIsTold) {
    EXPECT_EQ(stderr_of([] { EXPECT_THAT(vals("", "a"), ElementsAre("(null)")); }),
              "ldif_entry_get_attr: failed to parse ldif buffer\n");
}

TEST(LdifEntryGetVals, TakesMoreThanItsFirstCapacity) {
    std::string text;
    for (int i = 0; i < 1000; ++i) {
        text += "a: " + std::to_string(i) + "\n";
    }
    EXPECT_EQ(vals(text, "a").size(), 1000U);
}

// ---- Any input ----

// Texts of the characters that mean something, through every reader. What is tested is that none
// steps out of the text, which the sanitizer sees, and that loops end.
TEST(LdifReaders, AreSafeForAnyText) {
    std::mt19937 random(20240229);
    const std::string alphabet = "\n\n\n\r :<#;dna=AQ\x80";
    stderr_of([&] {
        for (int round = 0; round < 20000; ++round) {
            std::string text(random() % 40, '\0');
            for (char &c : text) {
                c = alphabet[random() % alphabet.size()];
            }
            if (round % 3 == 0) {
                text.insert(0, "dn: x\n");
            }
            if (round % 5 == 0) {
                text += "\na;binary: /x";
            }
            const int32_t length = static_cast<int32_t>(random() % 50);
            parse(text, length);
            converted(text, length);
            list_of_records records(text, nullptr);
            attr(text, "a");
            vals(text, "a");
            const exact_text input(text);
            ldif_entry_count_attr(input, length, "a");
            const char *at = input;
            char *block = nullptr;
            int32_t size = 0;
            while ((at = ldif_get_entry(at, length, &block, &size)) != nullptr) {
                ASSERT_LE(at, input + text.size());
                free(block);
            }
        }
    });
}

}  // namespace
