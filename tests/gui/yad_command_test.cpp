#include "gui/model/yad_command.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kit/log_capture.h"
#include "kit/records.h"
#include "support/own.h"

namespace {

constexpr char form_head[] =
    "yad --form --title='vrm' --scroll --center --width=600 --height=400 --text='Heading' "
    "--buttons-layout=center --button=yad-ok:0";
constexpr char form_tail[] = " >/dev/null 2>&1";

std::string form_of(const std::vector<std::pair<const char *, const char *>> &pairs) {
    return yad_form_command("vrm", "Heading", record(pairs).get());
}
std::string expected_form(const std::string &fields) {
    return form_head + fields + form_tail;
}

}  // namespace

TEST(YadFormCommand, HasAFieldForEachPair) {
    EXPECT_EQ(form_of({{"Name", "foo"}, {"Version", "1.0"}}),
              expected_form(" --field='Name:RO' 'foo' --field='Version:RO' '1.0'"));
}

TEST(YadFormCommand, LabelsARepeatedKeyOnce) {
    EXPECT_EQ(form_of({{"a", "1"}, {"a", "2"}, {"b", "3"}}),
              expected_form(" --field='a:RO' '1' --field=:RO '2' --field='b:RO' '3'"));
}

TEST(YadFormCommand, ComparesAKeyOnlyWithTheOneBefore) {
    EXPECT_EQ(form_of({{"a", "1"}, {"b", "2"}, {"a", "3"}, {"A", "4"}}),
              expected_form(" --field='a:RO' '1' --field='b:RO' '2' --field='a:RO' '3'"
                            " --field='A:RO' '4'"));
}

TEST(YadFormCommand, OfAnEmptyRecordHasNoField) {
    EXPECT_EQ(form_of({}), expected_form(""));
    EXPECT_EQ(yad_form_command("vrm", "Heading", nullptr), expected_form(""));
}

TEST(YadFormCommand, NullTextsAreEmpty) {
    EXPECT_EQ(form_of({{"a", nullptr}}), expected_form(" --field='a:RO' ''"));
    EXPECT_EQ(yad_form_command(nullptr, nullptr, nullptr),
              "yad --form --title='' --scroll --center --width=600 --height=400 --text='' "
              "--buttons-layout=center --button=yad-ok:0 >/dev/null 2>&1");
}

TEST(YadFormCommand, ASingleQuoteDoesNotEndTheQuotes) {
    EXPECT_EQ(form_of({{"k'", "it's; reboot '"}}),
              expected_form(R"( --field='k'\'':RO' 'it'\''s; reboot '\''')"));
    EXPECT_EQ(yad_form_command("t'", "h'", nullptr),
              "yad --form --title='t'\\''' --scroll --center --width=600 --height=400 "
              "--text='h'\\''' --buttons-layout=center --button=yad-ok:0 >/dev/null 2>&1");
}

TEST(YadFormCommand, NothingElseIsEscaped) {
    EXPECT_EQ(form_of({{"a", "\"$HOME\" `x` \\ %s !\n*"}}),
              expected_form(" --field='a:RO' '\"$HOME\" `x` \\ %s !\n*'"));
}

TEST(YadFormCommand, AValueIsNoOptionOfYad) {
    EXPECT_EQ(form_of({{"a", "--field=Run:BTN"}, {"b", "a-b"}, {"c", "-"}}),
              expected_form(" --field='a:RO' ' --field=Run:BTN' --field='b:RO' 'a-b'"
                            " --field='c:RO' ' -'"));
}

TEST(YadFormCommand, GrowsAsNeeded) {
    const std::string value(100000, 'v');
    EXPECT_EQ(form_of({{"a", value.c_str()}}), expected_form(" --field='a:RO' '" + value + "'"));
}

TEST(YadSelectionCommand, OffersTheValues) {
    const own_ekva choices(str2ekva("k=keep entry,L=Leave all entries,a=abort chkhead", ','));
    EXPECT_EQ(yad_selection_command("vrm", "What now?", choices.get()),
              "yad --entry --title=\"vrm\" --text \"What now?\" --no-markup --button=yad-ok:0 "
              "--entry-text  \"keep entry\"  \"Leave all entries\"  \"abort chkhead\" ");
}

TEST(YadSelectionCommand, NothingLeavesTheQuotes) {
    const own_ekva choices = record({{"a", "\"$(reboot)\""}, {"b", nullptr}});
    EXPECT_EQ(yad_selection_command("`t`", "\\ it's \"$x\"", choices.get()),
              "yad --entry --title=\"\\`t\\`\" --text \"\\\\ it's \\\"\\$x\\\"\" --no-markup "
              "--button=yad-ok:0 --entry-text  \"\\\"\\$(reboot)\\\"\"  \"\" ");
}

TEST(YadSelectionCommand, TakesUpTo8191CharactersAndIsNotCut) {
    LogCapture log;
    const own_ekva choices = record({{"a", "b"}});
    const size_t around = yad_selection_command("vrm", "", choices.get()).value().size();
    const std::string longest(8191 - around, 'p');
    EXPECT_EQ(yad_selection_command("vrm", longest.c_str(), choices.get()).value_or("").size(),
              8191U);
    EXPECT_TRUE(log.at(LEVEL_ERROR).empty());
    EXPECT_FALSE(yad_selection_command("vrm", (longest + "p").c_str(), choices.get()));
    EXPECT_TRUE(log.has(LEVEL_ERROR,
                        "cannot offer a choice: the command line has 8192 characters, which is "
                        "more than 8191"));
}

TEST(KeyOfYadAnswer, IsTheRecordsOwnString) {
    const own_ekva choices(str2ekva("k=keep entry,L=Leave all entries", ','));
    EXPECT_EQ(key_of_yad_answer(choices.get(), "Leave all entries\n"), choices.get()[2]->key);
    EXPECT_STREQ(key_of_yad_answer(choices.get(), "keep entry\n"), "k");
}

TEST(KeyOfYadAnswer, NeedsTheWholeValue) {
    const own_ekva choices(str2ekva("k=keep entry,L=Leave all entries", ','));
    for (const char *line :
         {"", "\n", "keep\n", "Keep entry\n", "k\n", "keep entry", "keep entry \n"}) {
        EXPECT_FALSE(key_of_yad_answer(choices.get(), line)) << line;
    }
    EXPECT_FALSE(key_of_yad_answer(nullptr, "k\n"));
}

TEST(KeyOfYadAnswer, TheFirstOfEqualValuesCounts) {
    const own_ekva choices = record({{"a", "same"}, {"b", "same"}});
    EXPECT_STREQ(key_of_yad_answer(choices.get(), "same\n"), "a");
}
