#include "support/csv.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/own.h"

using testing::ElementsAre;
using testing::ElementsAreArray;

namespace {

using strings = std::vector<std::string>;

std::optional<strings> taken(char **array) {
    const own_array owner(array);
    if (!array) {
        return std::nullopt;
    }
    strings fields;
    for (; *array; ++array) {
        fields.emplace_back(*array);
    }
    return fields;
}

std::optional<std::string> taken(char *text) {
    const own_string owner(text);
    return text ? std::optional<std::string>(text) : std::nullopt;
}

std::optional<std::string> quoted(const char *text, char separator, int always = 0) {
    return taken(csv_quote(text, separator, always));
}

strings fields_of(const std::string &line, char separator = ',') {
    return taken(lgetcsv(line.c_str(), separator)).value_or(strings{"(null)"});
}

std::optional<std::string> line_of(const strings &entries, char separator, int always = 0) {
    std::vector<char *> array;
    for (const std::string &entry : entries) {
        array.push_back(const_cast<char *>(entry.c_str()));
    }
    array.push_back(nullptr);
    return taken(arr2csv(array.data(), separator, always));
}

own_ekva record(const std::vector<std::pair<const char *, const char *>> &pairs) {
    s_ekva **rec = ekva_new(static_cast<int>(pairs.size()) + 1, 3);
    for (const auto &[key, value] : pairs) {
        EXPECT_GT(ekva_addval(&rec, key, value, 3), 0);
    }
    return own_ekva(rec);
}

std::optional<std::string> values_of(const own_ekva &rec, int quote = 0) {
    return taken(ekva2csv(rec.get(), ',', quote, 0));
}

std::optional<std::string> header_of(const own_ekva &rec, int quote = 0) {
    return taken(ekva2csv(rec.get(), ',', quote, 1));
}

// A stream to be read; the text may hold NUL bytes.
own_file stream_of(std::string &text) {
    return own_file(fmemopen(text.data(), text.size(), "r"));
}

TEST(CsvQuote, QuotesWhatHoldsTheSeparator) {
    EXPECT_EQ(quoted("a,b", ','), "\"a,b\"");
    EXPECT_EQ(quoted("a,b", ';'), "a,b");
}

TEST(CsvQuote, QuotesEverythingWhenAsked) {
    EXPECT_EQ(quoted("ab", ',', 1), "\"ab\"");
    EXPECT_EQ(quoted("", ',', 1), "\"\"");
    EXPECT_EQ(quoted("", ',', 0), "");
}

TEST(CsvQuote, DoublesQuotesInEitherKind) {
    EXPECT_EQ(quoted("a\"b", ','), "a\"\"b");
    EXPECT_EQ(quoted("a\"b,", ','), "\"a\"\"b,\"");
}

TEST(CsvQuote, NewlineBecomesBackslashAndN) {
    EXPECT_EQ(quoted("a\nb", ','), "a\\nb");
    EXPECT_EQ(quoted("a\n,", ','), "\"a\\n,\"");
    EXPECT_EQ(quoted("a\\b", ','), "a\\b");
}

TEST(CsvQuote, NullGivesNull) {
    EXPECT_EQ(quoted(nullptr, ','), std::nullopt);
}

TEST(CsvQuote, QuoteMarkAloneIsReadBackAsAnEmptyField) {
    EXPECT_EQ(quoted("\"", ','), "\"\"");
    EXPECT_THAT(fields_of("\"\""), ElementsAre(""));
}

TEST(Arr2csv, JoinsTheEntries) {
    EXPECT_EQ(line_of({"a", "b,c", "d\"e"}, ','), "a,\"b,c\",d\"\"e");
    EXPECT_EQ(line_of({"a", "", "b"}, ';', 1), "\"a\";\"\";\"b\"");
    EXPECT_EQ(line_of({"", ""}, ','), ",");
}

TEST(Arr2csv, NullGivesNullAndAnEmptyArrayAnEmptyText) {
    EXPECT_EQ(taken(arr2csv(nullptr, ',', 0)), std::nullopt);
    EXPECT_EQ(line_of({}, ','), "");
}

TEST(Arr2csv, TakesALongLine) {
    const std::string entry(5000, 'x');
    EXPECT_EQ(line_of({entry, entry}, ','), entry + "," + entry);
}

TEST(Lgetcsv, EmptyFieldsCount) {
    EXPECT_THAT(fields_of("a,,b"), ElementsAre("a", "", "b"));
    EXPECT_THAT(fields_of("a,"), ElementsAre("a", ""));
    EXPECT_THAT(fields_of(","), ElementsAre("", ""));
    EXPECT_THAT(fields_of(""), ElementsAre(""));
}

TEST(Lgetcsv, NullGivesNull) {
    EXPECT_EQ(taken(lgetcsv(nullptr, ',')), std::nullopt);
}

TEST(Lgetcsv, QuotedFieldHoldsSeparators) {
    EXPECT_THAT(fields_of("\"a,b\",c"), ElementsAre("a,b", "c"));
    EXPECT_THAT(fields_of("c,\"a,b\""), ElementsAre("c", "a,b"));
    EXPECT_THAT(fields_of("\"a;b\";c", ';'), ElementsAre("a;b", "c"));
}

TEST(Lgetcsv, QuotedFieldHoldsDoubledQuotes) {
    EXPECT_THAT(fields_of("\"a\"\"b\",c"), ElementsAre("a\"b", "c"));
    EXPECT_THAT(fields_of("\"\"\"\""), ElementsAre("\""));
    EXPECT_THAT(fields_of("\"\"\"a\"\"\""), ElementsAre("\"a\""));
}

TEST(Lgetcsv, QuoteBeforeAnythingElseIsPartOfAQuotedField) {
    EXPECT_THAT(fields_of("\"a\"b\",c"), ElementsAre("a\"b", "c"));
}

TEST(Lgetcsv, QuotedFieldThenSeparatorAtTheEndGivesAnEmptyLastField) {
    EXPECT_THAT(fields_of("\"a\","), ElementsAre("a", ""));
    EXPECT_THAT(fields_of("\"a\",\"\""), ElementsAre("a", ""));
    EXPECT_THAT(fields_of("\"a\""), ElementsAre("a"));
}

TEST(Lgetcsv, QuotesInsideAPlainFieldStand) {
    EXPECT_THAT(fields_of("a\"b\",c"), ElementsAre("a\"b\"", "c"));
    EXPECT_THAT(fields_of(" \"a\""), ElementsAre(" \"a\""));
    EXPECT_THAT(fields_of("d\"\"e"), ElementsAre("d\"\"e"));
}

TEST(Lgetcsv, UnclosedQuotedFieldEndsWithTheLine) {
    EXPECT_THAT(fields_of("\"a,b"), ElementsAre("a,b"));
    EXPECT_THAT(fields_of("\""), ElementsAre(""));
    EXPECT_THAT(fields_of("a,\""), ElementsAre("a", ""));
}

TEST(Lgetcsv, BackslashAndNAreANewline) {
    EXPECT_THAT(fields_of("x\\ny"), ElementsAre("x\ny"));
    EXPECT_THAT(fields_of("\"x\\ny\",z"), ElementsAre("x\ny", "z"));
    EXPECT_THAT(fields_of("a,\\nb"), ElementsAre("a", "\nb"));
    EXPECT_THAT(fields_of("\"\\na\""), ElementsAre("\na"));
    EXPECT_THAT(fields_of("a\\n"), ElementsAre("a\n"));
}

TEST(Lgetcsv, LineCannotStartWithANewline) {
    EXPECT_THAT(fields_of("\\nx"), ElementsAre("\\nx"));
}

TEST(Lgetcsv, TwoBackslashesAndNStay) {
    EXPECT_THAT(fields_of("a\\\\nb"), ElementsAre("a\\\\nb"));
    EXPECT_THAT(fields_of("\"a\\\\nb\""), ElementsAre("a\\\\nb"));
}

TEST(Lgetcsv, OtherBackslashesStandForThemselves) {
    EXPECT_THAT(fields_of("a\\tb\\"), ElementsAre("a\\tb\\"));
    EXPECT_THAT(fields_of("a\\,b"), ElementsAre("a\\", "b"));
    EXPECT_THAT(fields_of("\"a\\\",b"), ElementsAre("a\\", "b"));
}

TEST(Lgetcsv, TakesMoreFieldsThanTheFirstAllocation) {
    std::string line = "0";
    strings expected = {"0"};
    for (int i = 1; i < 3000; ++i) {
        expected.push_back(std::to_string(i));
        line += "," + expected.back();
    }
    EXPECT_THAT(fields_of(line), ElementsAreArray(expected));
}

TEST(Lgetcsv, ReadsBackWhatArr2csvQuotes) {
    const strings entries = {"plain", "a,b", "quote \" in, it", "line\nbreak", "", "\"", "last\\"};
    EXPECT_EQ(fields_of(*line_of(entries, ',', 1)), entries);
}

TEST(Sgetcsv, TakesOneLineAfterTheOther) {
    const std::string text = "a,b\nc\r\n\nd,\"e,f\"\n";
    const char *at = text.c_str();
    std::vector<std::optional<strings>> lines;
    while (at) {
        char **array = nullptr;
        at = sgetcsv(at, text.size(), ',', &array);
        lines.push_back(taken(array));
        if (at) {
            ASSERT_LE(at, text.c_str() + text.size());
        }
    }
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines[0], (strings{"a", "b"}));
    EXPECT_EQ(lines[1], strings{"c"});
    EXPECT_EQ(lines[2], std::nullopt);
    EXPECT_EQ(lines[3], (strings{"d", "e,f"}));
    EXPECT_EQ(lines[4], std::nullopt);
}

TEST(Sgetcsv, NullOrEmptyTextGivesNull) {
    char **array = nullptr;
    EXPECT_EQ(sgetcsv(nullptr, 0, ',', &array), nullptr);
    EXPECT_EQ(sgetcsv("", 0, ',', &array), nullptr);
    EXPECT_EQ(array, nullptr);
}

TEST(Sgetcsv, EmptyLineLeavesTheArray) {
    char *nothing[] = {nullptr};
    char **array = nothing;
    const char *const text = "\nnext\n";
    EXPECT_EQ(sgetcsv(text, 6, ',', &array), text + 1);
    EXPECT_EQ(array, nothing);
    const char *const returned = "\r\nnext\n";
    EXPECT_EQ(sgetcsv(returned, 7, ',', &array), returned + 2);
    EXPECT_EQ(array, nothing);
}

TEST(Sgetcsv, LastLineWithoutNewlinePointsBehindTheTerminator) {
    const char *const text = "a,b";
    char **array = nullptr;
    EXPECT_EQ(sgetcsv(text, 3, ',', &array), text + 4);
    EXPECT_EQ(taken(array), (strings{"a", "b"}));
}

TEST(Sgetcsv, DropsACarriageReturnAtTheVeryEnd) {
    const char *const text = "a,b\r";
    char **array = nullptr;
    EXPECT_EQ(sgetcsv(text, 4, ',', &array), text + 5);
    EXPECT_EQ(taken(array), (strings{"a", "b"}));
}

TEST(Sgetcsv, KeepsACarriageReturnInsideTheLine) {
    char **array = nullptr;
    sgetcsv("a\rb,c\r\r\n", 8, ',', &array);
    EXPECT_EQ(taken(array), (strings{"a\rb", "c\r"}));
}

TEST(Sgetcsv, LengthLimitsNothing) {
    const std::string line(3000, 'x');
    char **array = nullptr;
    sgetcsv((line + "\n").c_str(), 1, ',', &array);
    EXPECT_EQ(taken(array), strings{line});
}

TEST(Sgetcsv, BackslashAndNAtTheStartOfALaterLineStayToo) {
    char **array = nullptr;
    const char *const text = "a\n\\nb\n";
    sgetcsv(text + 2, 4, ',', &array);
    EXPECT_EQ(taken(array), strings{"\\nb"});
}

TEST(Fgetcsv, ReadsLineByLine) {
    std::string text = "a,b\nc\r\n\"d,e\"\n";
    const own_file stream = stream_of(text);
    EXPECT_EQ(taken(fgetcsv(stream.get(), ',', 0)), (strings{"a", "b"}));
    EXPECT_EQ(taken(fgetcsv(stream.get(), ',', 0)), strings{"c"});
    EXPECT_EQ(taken(fgetcsv(stream.get(), ',', 0)), strings{"d,e"});
    EXPECT_EQ(taken(fgetcsv(stream.get(), ',', 0)), std::nullopt);
    EXPECT_TRUE(feof(stream.get()));
    EXPECT_EQ(taken(fgetcsv(stream.get(), ',', 0)), std::nullopt);
}

TEST(Fgetcsv, EmptyLineGivesNullBeforeTheEnd) {
    std::string text = "\n\r\na\n";
    const own_file stream = stream_of(text);
    EXPECT_EQ(taken(fgetcsv(stream.get(), ',', 0)), std::nullopt);
    EXPECT_FALSE(feof(stream.get()));
    EXPECT_EQ(taken(fgetcsv(stream.get(), ',', 0)), std::nullopt);
    EXPECT_FALSE(feof(stream.get()));
    EXPECT_EQ(taken(fgetcsv(stream.get(), ',', 0)), strings{"a"});
}

TEST(Fgetcsv, ReadsLinesOfAnyLength) {
    for (const size_t length : {46U, 47U, 48U, 49U, 95U, 96U, 97U, 100000U}) {
        const std::string field(length, 'x');
        std::string text = field + "\n" + field + ",y\n";
        const own_file stream = stream_of(text);
        EXPECT_EQ(taken(fgetcsv(stream.get(), ',', 0)), strings{field});
        EXPECT_EQ(taken(fgetcsv(stream.get(), ',', 0)), (strings{field, "y"}));
    }
}

TEST(Fgetcsv, LineThatTheEndCutOffIsLeftAsItIs) {
    std::string text = "a,b\r";
    const own_file stream = stream_of(text);
    EXPECT_EQ(taken(fgetcsv(stream.get(), ',', 0)), (strings{"a", "b\r"}));
}

TEST(Fgetcsv, SkipsAByteOrderMarkWhenAsked) {
    std::string text =
        "\xEF\xBB\xBF"
        "a,b\n";
    own_file stream = stream_of(text);
    EXPECT_EQ(taken(fgetcsv(stream.get(), ',', 1)), (strings{"a", "b"}));
    stream = stream_of(text);
    EXPECT_EQ(taken(fgetcsv(stream.get(), ',', 0)), (strings{"\xEF\xBB\xBF"
                                                             "a",
                                                             "b"}));
}

TEST(Fgetcsv, LineOfAByteOrderMarkAloneKeepsIt) {
    std::string text = "\xEF\xBB\xBF\n\xEF\xBB\xBF";
    const own_file stream = stream_of(text);
    EXPECT_EQ(taken(fgetcsv(stream.get(), ',', 1)), strings{"\xEF\xBB\xBF"});
    EXPECT_EQ(taken(fgetcsv(stream.get(), ',', 1)), strings{"\xEF\xBB\xBF"});
}

TEST(Fgetcsv, LineBehindAByteOrderMarkCannotStartWithANewline) {
    std::string text = "\xEF\xBB\xBF\\na\n";
    const own_file stream = stream_of(text);
    EXPECT_EQ(taken(fgetcsv(stream.get(), ',', 1)), strings{"\\na"});
}

TEST(Fgetcsv, NulByteEndsOnlyWhatAReaderSeesOfItsField) {
    std::string text("a\0b,c\n", 6);
    const own_file stream = stream_of(text);
    EXPECT_EQ(taken(fgetcsv(stream.get(), ',', 0)), (strings{"a", "c"}));
}

TEST(Csv2arr, DropsEmptyFieldsAndKnowsNoQuotes) {
    EXPECT_EQ(taken(csv2arr("a,,b", ',')), (strings{"a", "b"}));
    EXPECT_EQ(taken(csv2arr("\"a,b\"", ',')), (strings{"\"a", "b\""}));
    EXPECT_EQ(taken(csv2arr(",", ',')), std::nullopt);
}

TEST(Csv2arr, TakesThousandFields) {
    std::string text;
    for (int i = 0; i < 1001; ++i) {
        text += "x,";
    }
    EXPECT_EQ(taken(csv2arr(text.c_str(), ',')).value_or(strings{}).size(), 1000U);
}

TEST(Ekva2csv, JoinsTheValuesOfARepeatedKey) {
    const own_ekva rec = record({{"a", "1"}, {"a", "2"}, {"b", "3"}});
    EXPECT_EQ(values_of(rec), "1|2,3");
    EXPECT_EQ(header_of(rec), "a,a,b");
}

TEST(Ekva2csv, QuotesAllFieldsWhenAsked) {
    const own_ekva rec = record({{"a", "1"}, {"a", "2"}, {"b", nullptr}, {"c", ""}});
    EXPECT_EQ(values_of(rec, 1), "\"1|2\",,\"\"");
    EXPECT_EQ(header_of(rec, 1), "\"a\",\"a\",\"b\",\"c\"");
}

TEST(Ekva2csv, QuotesTheJoinedValuesAsOne) {
    const own_ekva rec = record({{"a", "x,y"}, {"a", "z\"\n"}});
    EXPECT_EQ(values_of(rec), "\"x,y|z\"\"\\n\"");
}

TEST(Ekva2csv, RepeatFurtherDownGivesTheFieldAgain) {
    const own_ekva rec = record({{"a", "1"}, {"b", "2"}, {"a", "3"}});
    EXPECT_EQ(values_of(rec), "1|3,2,1|3");
}

TEST(Ekva2csv, RepeatInAnotherCaseIsCountedButNotSkipped) {
    const own_ekva rec = record({{"a", "1"}, {"A", "2"}});
    EXPECT_EQ(values_of(rec), "1|2,1|2");
}

TEST(Ekva2csv, NullValueOfARepeatedKeyIsAnEmptyField) {
    EXPECT_EQ(values_of(record({{"a", nullptr}, {"a", "1"}, {"b", "2"}})), ",1,2");
    EXPECT_EQ(values_of(record({{"a", "1"}, {"a", nullptr}, {"b", "2"}})), "1,2");
}

TEST(Ekva2csv, LeavesBinaryKeysOut) {
    const own_ekva rec = record({{"a", "1"}, {"b;binary", "2"}, {"c", "3"}});
    EXPECT_EQ(values_of(rec), "1,3");
    EXPECT_EQ(header_of(rec), "a,c");
}

TEST(Ekva2csv, LineThatBeginsWithABinaryKeyBeginsWithASeparator) {
    const own_ekva rec = record({{"b;binary", "2"}, {"c", "3"}});
    EXPECT_EQ(values_of(rec), ",3");
    EXPECT_EQ(header_of(rec), ",c");
}

TEST(Ekva2csv, NullGivesNullAndAnEmptyRecordAnEmptyLine) {
    EXPECT_EQ(taken(ekva2csv(nullptr, ',', 0, 0)), std::nullopt);
    EXPECT_EQ(values_of(record({})), "");
    EXPECT_EQ(header_of(record({}), 1), "");
}

TEST(Ekva2csv, RecordWithoutAHeaderPairCountsFromItsFirstSlot) {
    char key[] = "a", value[] = "1";
    s_ekva pair = {key, value};
    s_ekva *rec[] = {&pair, nullptr};
    EXPECT_EQ(taken(ekva2csv(rec, ',', 0, 0)), "1");
}

TEST(Ekva2csv, TakesALongRecord) {
    s_ekva **rec = ekva_new(20000, 3);
    std::string expected;
    for (int i = 0; i < 20000; ++i) {
        ekva_addval(&rec, ("key" + std::to_string(i)).c_str(), "value", 3);
        expected += i == 0 ? "value" : ",value";
    }
    EXPECT_EQ(values_of(own_ekva(rec)), expected);
}

}  // namespace
