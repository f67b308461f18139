#include "ui/vrmui.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "kit/failing_memory.h"
#include "kit/log_capture.h"
#include "kit/scripted_user.h"
#include "support/own.h"

namespace {

using own_ui = std::unique_ptr<vrmui_object, release_with<vrmui_free>>;

class Text : public testing::Test {
 protected:
    ScriptedUser &user_ = ScriptedUser::fresh();
};
using LineNew = Text;
using LineAdd = Text;
using Say = Text;
using Questions = Text;

}  // namespace

TEST(VrmuiInit, FillsTheObject) {
    ScriptedUser::fresh();
    const own_ui ui(vrmui_init("vrm: Vorathan Package Manager", 7));
    ASSERT_TRUE(ui);
    EXPECT_EQ(ui->first, 1);
    EXPECT_EQ(ui->second, 3);
    EXPECT_EQ(ui->level, 7);
    EXPECT_STREQ(ui->backend, vrmui_backend);
    EXPECT_STREQ(ui->title, "vrm: Vorathan Package Manager");
    EXPECT_STREQ(ui->text, "");
    EXPECT_EQ(ui->text_limit, 65536);
    EXPECT_EQ(ui->text_size, 65536);
    EXPECT_EQ(ui->last, nullptr);
}

TEST(VrmuiInit, TitleDefaultsToVrm) {
    const own_ui ui(vrmui_init(nullptr, 0));
    EXPECT_STREQ(ui->title, "vrm");
}

TEST(VrmuiInit, VoteModeStartsBetweenAskingAndNotAsking) {
    EXPECT_EQ(vote_mode, 2);
}

TEST(VrmuiLevel, StoresTheLevelAndGivesTheObject) {
    const own_ui ui(vrmui_init(nullptr, 7));
    EXPECT_EQ(vrmui_level(ui.get(), 15), ui.get());
    EXPECT_EQ(ui->level, 15);
    EXPECT_EQ(vrmui_level(nullptr, 15), nullptr);
}

TEST_F(LineNew, ReplacesTheText) {
    EXPECT_STREQ(vrmui_line_new(vrmui, "first"), "first");
    EXPECT_EQ(vrmui_line_new(vrmui, "second"), vrmui->text);
    EXPECT_STREQ(vrmui->text, "second");
    EXPECT_STREQ(vrmui_line_new(vrmui, ""), "");
}

TEST_F(LineAdd, AppendsToTheText) {
    vrmui_line_new(vrmui, "one\n");
    EXPECT_EQ(vrmui_line_add(vrmui, "two\n"), vrmui->text);
    vrmui_line_add(vrmui, "");
    vrmui_line_add(vrmui, "three\n");
    EXPECT_STREQ(vrmui->text, "one\ntwo\nthree\n");
}

TEST_F(LineAdd, NullObjectAndNullPieceDoNoHarm) {
    EXPECT_EQ(vrmui_line_new(nullptr, "x"), nullptr);
    EXPECT_EQ(vrmui_line_add(nullptr, "x"), nullptr);
    vrmui_line_new(vrmui, "x");
    EXPECT_STREQ(vrmui_line_add(vrmui, nullptr), "x");
    EXPECT_STREQ(vrmui_line_new(vrmui, nullptr), "");
}

TEST_F(LineAdd, TextBeyondTheSizeDoublesItForTheNextObjectToo) {
    vrmui_line_new(vrmui, "");
    for (int i = 0; i < 66; i++) {
        vrmui_line_add(vrmui, std::string(1000, 'x').c_str());
    }
    EXPECT_EQ(vrmui->text, std::string(66000, 'x'));
    EXPECT_EQ(textmax, 131072);
    EXPECT_EQ(vrmui->text_limit, 131072);
    EXPECT_EQ(vrmui->text_size, 131072);
    const own_ui next(vrmui_init(nullptr, 0));
    EXPECT_EQ(next->text_size, 131072);
}

TEST_F(LineAdd, GrowsWhenTextAndPieceLeaveLessThanTwoBytes) {
    vrmui_line_new(vrmui, "");
    vrmui_line_add(vrmui, std::string(65534, 'x').c_str());
    EXPECT_EQ(textmax, 65536);
    vrmui_line_add(vrmui, "y");
    EXPECT_EQ(textmax, 131072);
    EXPECT_EQ(vrmui->text, std::string(65534, 'x') + "y");
}

TEST_F(LineNew, CountsTheTextThatItReplaces) {
    vrmui_line_new(vrmui, std::string(40000, 'x').c_str());
    EXPECT_EQ(textmax, 65536);
    vrmui_line_new(vrmui, std::string(40000, 'y').c_str());
    EXPECT_EQ(textmax, 131072);
    EXPECT_EQ(vrmui->text, std::string(40000, 'y'));
}

TEST_F(LineNew, DoublesOnceAndCutsWhatDoesNotFit) {
    vrmui_line_new(vrmui, std::string(300000, 'x').c_str());
    EXPECT_EQ(textmax, 131072);
    EXPECT_EQ(vrmui->text, std::string(131072, 'x'));
    vrmui_line_new(vrmui, std::string(300000, 'y').c_str());
    EXPECT_EQ(textmax, 262144);
    EXPECT_EQ(vrmui->text, std::string(262144, 'y'));
}

TEST_F(LineAdd, DoublesOnceAndKeepsToTheRoomLeft) {
    vrmui_line_new(vrmui, std::string(60000, 'x').c_str());
    vrmui_line_add(vrmui, std::string(300000, 'y').c_str());
    EXPECT_EQ(textmax, 131072);
    EXPECT_EQ(vrmui->text, std::string(60000, 'x') + std::string(71072, 'y'));
}

TEST_F(LineAdd, TakesAPartOfTheTextItself) {
    vrmui_line_new(vrmui, std::string(40000, 'x').c_str());
    vrmui_line_add(vrmui, vrmui->text);
    EXPECT_EQ(vrmui->text, std::string(80000, 'x'));
    vrmui_line_new(vrmui, vrmui->text + 79990);
    EXPECT_STREQ(vrmui->text, "xxxxxxxxxx");
}

TEST_F(LineAdd, AppendsToWhatWasFormattedStraightIntoTheText) {
    vrmui_line_new(vrmui, "something longer than what follows");
    snprintf(vrmui->text, static_cast<size_t>(vrmui->text_limit), "direct");
    vrmui_line_add(vrmui, " piece");
    EXPECT_STREQ(vrmui->text, "direct piece");
    snprintf(vrmui->text, static_cast<size_t>(vrmui->text_limit), "direct piece and more");
    vrmui_line_add(vrmui, "!");
    EXPECT_STREQ(vrmui->text, "direct piece and more!");
    vrmui->text[0] = '\0';
    vrmui_line_add(vrmui, "anew");
    EXPECT_STREQ(vrmui->text, "anew");
}

TEST_F(LineAdd, SeesAShorterTextWithTheSameBeginning) {
    const std::string head(1000, 'h');
    vrmui_line_new(vrmui, (head + std::string(1000, 't')).c_str());
    snprintf(vrmui->text, static_cast<size_t>(vrmui->text_limit), "%s", head.c_str());
    vrmui_line_add(vrmui, "!");
    EXPECT_EQ(vrmui->text, head + "!");
}

TEST_F(LineAdd, ObjectThatIsLargerThanTheSizeForNewOnesGrowsToo) {
    vrmui_line_new(vrmui, std::string(65000, 'x').c_str());
    textmax = 16;
    vrmui_line_add(vrmui, std::string(1000, 'y').c_str());
    EXPECT_EQ(vrmui->text, std::string(65000, 'x') + std::string(1000, 'y'));
    EXPECT_EQ(vrmui->text_size, 131072);
    EXPECT_EQ(textmax, 131072);
}

constexpr char cut_message[] = "vrmui_line_add: there is no room for all of the text, it is cut";

TEST_F(LineAdd, TellsOnceOfATextThatIsCut) {
    const LogCapture log;
    vrmui_line_new(vrmui, std::string(60000, 'x').c_str());
    growing_fails = true;
    for (int i = 0; i < 10; i++) {
        vrmui_line_add(vrmui, std::string(5000, 'y').c_str());
    }
    growing_fails = false;
    EXPECT_EQ(vrmui->text, std::string(60000, 'x') + std::string(5536, 'y'));
    EXPECT_EQ(log.at(LEVEL_ERROR), std::vector<std::string>{cut_message});
    vrmui_line_new(vrmui, std::string(300000, 'x').c_str());
    EXPECT_EQ(log.at(LEVEL_ERROR), (std::vector<std::string>{cut_message, cut_message}));
    vrmui_line_new(vrmui, "short");
    strdups_left = 0;
    vrmui_line_add(vrmui, vrmui->text);
    strdups_left = -1;
    EXPECT_STREQ(vrmui->text, "short");
    EXPECT_EQ(log.at(LEVEL_ERROR).size(), 3U);
}

TEST_F(LineAdd, TellsNothingOfATextThatJustFits) {
    const LogCapture log;
    vrmui_line_new(vrmui, std::string(65535, 'x').c_str());
    growing_fails = true;
    vrmui_line_add(vrmui, "y");
    growing_fails = false;
    EXPECT_EQ(vrmui->text, std::string(65535, 'x') + "y");
    EXPECT_TRUE(log.at(LEVEL_ERROR).empty());
}

TEST_F(LineAdd, CollectsAHundredThousandPieces) {
    vrmui_line_new(vrmui, "");
    const std::string piece(99, 'x');
    for (int i = 0; i < 100000; i++) {
        vrmui_line_add(vrmui, piece.c_str());
    }
    EXPECT_EQ(strlen(vrmui->text), 9900000U);
}

TEST_F(Say, FormatsIntoTheText) {
    vrmui_say_new("%d packages\n", 3);
    vrmui_say("%s\n", "foo");
    vrmui_say("100%%");
    EXPECT_STREQ(vrmui->text, "3 packages\nfoo\n100%");
    vrmui_say_new("%s", "");
    EXPECT_STREQ(vrmui->text, "");
}

TEST_F(Say, OneMessageIsBoundedByTheLimit) {
    const LogCapture log;
    vrmui_say_new("%s", std::string(70000, 'x').c_str());
    EXPECT_EQ(vrmui->text, std::string(65535, 'x'));
    EXPECT_EQ(log.at(LEVEL_ERROR), std::vector<std::string>{cut_message});
}

TEST_F(Say, DoesNothingWithoutAnObject) {
    vrmui_object *const kept = vrmui;
    vrmui = nullptr;
    vrmui_say_new("%s", "x");
    vrmui_say("%s", "x");
    vrmui = kept;
    EXPECT_STREQ(vrmui->text, "");
}

TEST_F(Questions, VoteMode3TakesTheDefaultWithoutAsking) {
    vote_mode = 3;
    user_.answers = {"0", "x"};
    EXPECT_EQ(vrmui_yesno(vrmui, "Sure?", 1), 1);
    EXPECT_EQ(vrmui_yesno(vrmui, "Sure?", 0), 0);
    EXPECT_STREQ(vrmui_select(vrmui, "Which?", nullptr, "r", 0), "r");
    EXPECT_EQ(vrmui_select(vrmui, "Which?", nullptr, nullptr, 0), nullptr);
    EXPECT_TRUE(user_.questions.empty());
    EXPECT_EQ(user_.answers.size(), 2U);
}
