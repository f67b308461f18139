#include <FL/Fl.H>
#include <FL/Fl_Box.H>
#include <FL/Fl_Button.H>
#include <FL/Fl_Window.H>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "kit/capture.h"
#include "ui/vrmui.h"

namespace {

// A user who presses one button of the next dialog, or closes it, and remembers what it showed.
class Dialog : public testing::Test {
 protected:
    Dialog() {
        vrmui = vrmui_init(nullptr, 7);
        Fl::add_timeout(0.05, act, this);
    }
    ~Dialog() override {
        Fl::remove_timeout(act, this);
        vrmui_free(vrmui);
        vrmui = nullptr;
        vote_mode = 2;
    }

    std::string press;                 // label of the button; empty closes the window
    std::string text;                  // what was shown
    std::vector<std::string> buttons;  // the labels of the visible ones
    int dialogs = 0;

 private:
    static void act(void *data) {
        auto *user = static_cast<Dialog *>(data);
        Fl::repeat_timeout(0.05, act, data);
        if (Fl_Window *dialog = Fl::modal()) {
            user->dialogs++;
            user->look_at(dialog);
        }
    }
    void look_at(Fl_Window *dialog) {
        text.clear();
        buttons.clear();
        Fl_Button *pressed = nullptr;
        for (int i = 0; i < dialog->children(); i++) {
            Fl_Widget *child = dialog->child(i);
            const std::string label = child->label() ? child->label() : "";
            if (auto *button = dynamic_cast<Fl_Button *>(child)) {
                if (button->visible()) {
                    buttons.push_back(label);
                    pressed = label == press ? button : pressed;
                }
            } else if (dynamic_cast<Fl_Box *>(child) && label.size() > text.size()) {
                text = label;  // the other box is the icon, with one character
            }
        }
        if (pressed) {
            pressed->do_callback();
        } else {
            dialog->do_callback();
        }
    }
};

using DialogWrite = Dialog;
using DialogWriteInfo = Dialog;
using DialogYesno = Dialog;
using DialogStubs = Dialog;

}  // namespace

TEST(DialogBackend, IsNamedFltk) {
    EXPECT_STREQ(vrmui_backend, "FLTK");
    vrmui_object *ui = vrmui_init(nullptr, 7);
    EXPECT_STREQ(ui->backend, "FLTK");
    EXPECT_STREQ(ui->title, "vrm");
    vrmui_free(ui);
}

TEST_F(DialogWrite, ShowsTheTextAsItIs) {
    EXPECT_EQ(vrmui_write(vrmui, "100% of %s, %n and %%\nline two", 0), 0);
    EXPECT_EQ(dialogs, 1);
    EXPECT_EQ(text, "100% of %s, %n and %%\nline two");
    EXPECT_EQ(buttons.size(), 1U);
}

// In a label an at sign is written twice.
TEST_F(DialogWrite, ShowsAtSigns) {
    vrmui_write(vrmui, "me@home.org", 0);
    EXPECT_EQ(text, "me@@home.org");
}

TEST_F(DialogWrite, ShowsLongTextsWhole) {
    const std::string long_text(20000, 'x');
    vrmui_write(vrmui, long_text.c_str(), 0);
    EXPECT_EQ(text, long_text);
}

TEST_F(DialogWrite, TakesAMissingTextAsEmpty) {
    EXPECT_EQ(vrmui_write(vrmui, nullptr, 0), 0);
    EXPECT_EQ(dialogs, 1);
}

TEST_F(DialogWrite, AsksWhenToldTo) {
    press = "Yes";
    EXPECT_EQ(vrmui_write(vrmui, "Shall we?", 1), 1);
    EXPECT_EQ(text, "Shall we?");
    EXPECT_THAT(buttons, testing::UnorderedElementsAre("No", "Yes"));
}

TEST_F(DialogWrite, AskedForItIsAFormat) {
    press = "No";
    EXPECT_EQ(vrmui_write(vrmui, "100%% sure?", 1), 0);
    EXPECT_EQ(text, "100% sure?");
}

TEST_F(DialogWrite, AStrayPercentSignInAQuestionDoesNoHarm) {
    press = "No";
    EXPECT_EQ(vrmui_write(vrmui, "%s%n%s%n", 1), 0);
    EXPECT_EQ(text, "%s%n%s%n");
}

TEST_F(DialogWriteInfo, TellsStderrFirst) {
    const std::string copy =
        stderr_of([] { EXPECT_EQ(vrmui_write_info(vrmui, "100% @home", 0), 0); });
    EXPECT_EQ(copy, "vrmui_write_info (0) called with:\n100% @home\n");
    EXPECT_EQ(text, "100% @@home");
}

TEST_F(DialogWriteInfo, Asks) {
    press = "Yes";
    const std::string copy =
        stderr_of([] { EXPECT_EQ(vrmui_write_info(vrmui, "Shall we?", 1), 1); });
    EXPECT_EQ(copy, "vrmui_write_info (1) called with:\nShall we?\n");
    EXPECT_EQ(text, "Shall we?");
}

TEST_F(DialogYesno, YesIs1) {
    press = "Yes";
    EXPECT_EQ(vrmui_yesno(vrmui, "Do you really want to quit?", 0), 1);
    EXPECT_EQ(text, "Do you really want to quit?");
    EXPECT_THAT(buttons, testing::UnorderedElementsAre("No", "Yes"));
}

TEST_F(DialogYesno, NoIs0WhateverTheDefault) {
    press = "No";
    EXPECT_EQ(vrmui_yesno(vrmui, "Shall we?", 1), 0);
}

TEST_F(DialogYesno, ClosingTheDialogIsNo) {
    EXPECT_EQ(vrmui_yesno(vrmui, "Shall we?", 1), 0);
    EXPECT_EQ(dialogs, 1);
}

TEST_F(DialogYesno, VoteMode3GivesTheDefaultWithoutADialog) {
    vote_mode = 3;
    EXPECT_EQ(vrmui_yesno(vrmui, "Shall we?", 1), 1);
    EXPECT_EQ(vrmui_yesno(vrmui, "Shall we?", 0), 0);
    EXPECT_EQ(dialogs, 0);
}

TEST_F(DialogYesno, VoteMode1Asks) {
    vote_mode = 1;
    press = "Yes";
    EXPECT_EQ(vrmui_yesno(vrmui, "Shall we?", 0), 1);
}

TEST_F(DialogStubs, TablesAndFilesAreNotOffered) {
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(vrmui_write_table_new(vrmui, "title", nullptr), -1);
        EXPECT_EQ(vrmui_write_table_add(vrmui, nullptr, 1), -1);
        EXPECT_EQ(vrmui_write_table_end(vrmui, "title"), -1);
        EXPECT_EQ(vrmui_write_file(vrmui, "/etc/passwd", 0), -1);
    }
    EXPECT_EQ(dialogs, 0);
}
