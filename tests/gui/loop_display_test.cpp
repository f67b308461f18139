#include "gui/loop.h"

#include <FL/Fl_Button.H>
#include <FL/Fl_Multi_Browser.H>
#include <gmock/gmock.h>

#include <cstdlib>

#include "gui/callbacks.h"
#include "gui/passes.h"
#include "gui/screens.h"
#include "kit/log_capture.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr char no_action[] = "No action selected";

class Loop : public LoopTest {
 protected:
    static void press_quit() {
        but_quit->do_callback();
    }
    static void expect_idle() {
        EXPECT_EQ(vrm_gui_action, ACTION_IDLE);
        EXPECT_EQ(widgets_labelled(no_action), 1);
        EXPECT_FALSE(pvrm_status->Fl_Widget::visible());
    }
    // The row of buttons and the logo, nothing of a screen.
    static void expect_bare() {
        EXPECT_EQ(widgets_labelled(no_action), 0);
        EXPECT_EQ(win->children(), 8);
        EXPECT_FALSE(pvrm_status->Fl_Widget::visible());
    }
};

}  // namespace

TEST_F(Loop, StartsIdleAndEndsByAConfirmedQuit) {
    user.answers = {"1"};
    Passes::run({[] {
        expect_idle();
        press_quit();
    }});
    ASSERT_THAT(user.questions, SizeIs(1));
    EXPECT_EQ(user.questions[0].text, "Do you really want to quit?");
    EXPECT_EQ(user.questions[0].default_answer, "1");
}

TEST_F(Loop, GoesOnWhenTheManagerClosesTheWindow) {
    user.answers = {"1"};
    Passes::run({close_by_manager, close_by_manager, close_by_manager, [] {
                     expect_idle();
                     press_quit();
                 }});
    EXPECT_THAT(user.questions, SizeIs(1));
}

TEST_F(Loop, ShowsTheFallbackForUnknownActionsAndIsIdleAfterIt) {
    user.answers = {"1"};
    const auto expect_fallback = [] {
        EXPECT_EQ(vrm_gui_action, ACTION_IDLE);
        EXPECT_EQ(widgets_labelled(no_action), 1);
        EXPECT_TRUE(pvrm_status->Fl_Widget::visible());
        EXPECT_EQ(pvrm_status->size(), 0);
    };
    const auto go_to = [](int action) {
        vrm_gui_action = action;
        win->hide();
    };
    Passes::run({
        [] { vrm_remove_cb(nullptr, nullptr); },
        [&] {
            expect_fallback();
            go_to(11);
        },
        [&] {
            expect_fallback();
            go_to(0);
        },
        [&] {
            expect_fallback();
            close_by_manager();
        },
        [] {
            expect_idle();
            press_quit();
        },
    });
}

TEST_F(Loop, LeavesABareWindowWhenQuitIsRefused) {
    user.answers = {"0", "1"};
    Passes::run({
        press_quit,
        [] {
            expect_bare();
            press_quit();
        },
    });
    EXPECT_THAT(user.questions, SizeIs(2));
}

TEST_F(Loop, RepeatsTheActionBeforeARefusedQuit) {
    user.answers = {"0", "1"};
    Passes::run({
        press_quit,
        [] {
            expect_bare();
            EXPECT_EQ(vrm_gui_action, ACTION_IDLE);
            close_by_manager();
        },
        [] {
            expect_idle();
            press_quit();
        },
    });
}

TEST_F(Loop, RefusesToQuitByAnythingButYes) {
    user.answers = {"2", "1"};
    Passes::run({press_quit, [] {
                     expect_bare();
                     press_quit();
                 }});
}

TEST_F(Loop, QuitsWithoutAQuestionInUpdateOnlyMode) {
    update_only = 1;
    Passes::run({[] {
        EXPECT_EQ(widgets_labelled("Quit"), 1);
        EXPECT_EQ(widgets_labelled("List Packages"), 0);
        press_quit();
    }});
    EXPECT_THAT(user.questions, IsEmpty());
}

TEST_F(Loop, AsksForTheCatalogueInEachPassUntilThereIsOne) {
    user.answers = {"1"};
    Passes::run({close_by_manager, close_by_manager,
                 [] {
                     EXPECT_EQ(asked_for_catalogue, 3);
                     // Filled: the next pass keeps it.
                     vrc_cache = static_cast<vri **>(calloc(1, sizeof(vri *)));
                     close_by_manager();
                 },
                 press_quit});
    EXPECT_EQ(asked_for_catalogue, 3);
    vrm_cache_free(vrc_cache);
    vrc_cache = nullptr;
}

TEST_F(Loop, LogsTheActionOfEachPassAndEachButton) {
    const LogCapture log;
    user.answers = {"1"};
    Passes::run(
        {[] { vrm_remove_cb(nullptr, nullptr); }, [] { quit_CB(nullptr, nullptr); }, press_quit});
    EXPECT_THAT(log.at(LEVEL_DEBUG),
                testing::IsSupersetOf({"Gui Action: 5", "Somebody presssed the remove button!!",
                                       "Gui Action: 3", "Somebody presssed the quit button!!",
                                       "Gui Action: 6"}));
    EXPECT_TRUE(log.has_line_end(LEVEL_DEBUG, "Gui Action: 5"));
}

namespace {

// Each callback alone, with a window that it can hide.
struct Pressed {
    int action;
    bool hidden;
    std::vector<std::string> lines;
    bool operator==(const Pressed &) const = default;
};

Pressed press(Fl_Callback *callback) {
    const LogCapture log;
    Fl_Double_Window window(100, 100);
    window.end();
    window.show();
    win = &window;
    vrm_gui_action = 77;
    callback(nullptr, nullptr);
    win = nullptr;
    const std::vector<std::string> lines = log.at(LEVEL_DEBUG);
    for (const std::string &line : lines) {
        EXPECT_TRUE(log.has_line_end(LEVEL_DEBUG, line));
    }
    return {vrm_gui_action, window.shown() == 0, lines};
}

Pressed outcome(int action, const char *button) {
    return {action, true, {"Somebody presssed the " + std::string(button) + " button!!"}};
}

std::ostream &operator<<(std::ostream &out, const Pressed &pressed) {
    return out << pressed.action << (pressed.hidden ? " hidden " : " shown ")
               << testing::PrintToString(pressed.lines);
}

}  // namespace

TEST(TopRow, SetsTheActionOfEachButtonAndHidesTheWindow) {
    EXPECT_EQ(press(vrm_install_cb), outcome(1, "install"));
    EXPECT_EQ(press(vrm_update_cb), outcome(2, "update"));
    EXPECT_EQ(press(vrm_remove_cb), outcome(3, "remove"));
    EXPECT_EQ(press(vrm_refresh_cb), outcome(4, "refresh"));
    EXPECT_EQ(press(vrm_quit_cb), outcome(6, "quit"));
    EXPECT_EQ(press(vrm_listloc_cb), outcome(10, "listloc"));
    EXPECT_EQ(press(vrm_cleanup_cb), outcome(12, "cleanup"));
}

TEST(TopRow, LeavesTheActionWhenAWindowIsOnlyHidden) {
    EXPECT_EQ(press(quit_CB), outcome(77, "quit"));
}
