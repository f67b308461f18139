// The screen of the updates, in the looks of the program and within the loop.
#include <FL/Fl_Box.H>
#include <FL/Fl_Button.H>
#include <FL/Fl_Double_Window.H>
#include <FL/Fl_Multi_Browser.H>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "gui/drawing.h"
#include "gui/passes.h"
#include "gui/screen_kit.h"
#include "gui/screens.h"
#include "gui/tool_kit.h"
#include "gui/update_rows_kit.h"
#include "gui/update_table.h"
#include "kit/log_capture.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::SizeIs;

namespace {

constexpr char action_label[] = "Action: Select software to update";
constexpr char available[] = "The following updates are available:";
constexpr char none_available[] = "There are no updates available.";

class UpdateScreen : public ScreenTest {
 protected:
    UpdateScreen() {
        pvrm_vrc_findpkg = find_offer;
        offers.clear();
        vrm_gui_action = ACTION_UPDATES;
    }
    ~UpdateScreen() override {
        update_rows_free();
        update_only = 0;
    }

    // The window of the other mode.
    static void start_update_only() {
        leave_window();
        update_only = 1;
        new_window();
    }
    void install_with_updates(const std::vector<const char *> &names) {
        for (const char *name : names) {
            install(name);
            offers.push_back({{name, nullptr, "2.0", "Does " + std::string(name)}});
        }
    }
    static VraTable *table() {
        return first<VraTable>();
    }
    static void expect_button(const char *label, int x, Fl_Callback_p callback) {
        const Fl_Button *const button = labelled<Fl_Button>(label);
        ASSERT_TRUE(button) << label;
        EXPECT_THAT(place(button), ElementsAre(x, 570, 220, 25));
        EXPECT_EQ(button->callback(), callback);
        EXPECT_EQ(button->user_data(), table());
        EXPECT_EQ(button->color(), fl_rgb_color(234, 234, 234));
        EXPECT_EQ(button->labelsize(), 12);
    }
    static void expect_label(const char *text, int y) {
        ASSERT_TRUE(labelled<Fl_Box>(text)) << text;
        EXPECT_THAT(place(labelled<Fl_Box>(text)), ElementsAre(10, y, 250, 25)) << text;
    }
    static std::vector<std::string> buttons() {
        std::vector<std::string> labels;
        for (int i = 0; i < win->children(); ++i) {
            if (dynamic_cast<Fl_Button *>(win->child(i))) {
                labels.emplace_back(win->child(i)->label());
            }
        }
        return labels;
    }
};

}  // namespace

TEST_F(UpdateScreen, HasItsWidgetsAtTheirPlaces) {
    install_with_updates({"foo", "bar"});
    EXPECT_TRUE(screen_updates());
    EXPECT_FALSE(pvrm_status->Fl_Widget::visible());
    expect_label(action_label, 35);
    expect_label(available, 100);
    EXPECT_FALSE(labelled(none_available));
    EXPECT_THAT(place(table()), ElementsAre(10, 130, 760, 415));
    EXPECT_EQ(table()->type(), Fl_Table_Row::SELECT_MULTI);
    EXPECT_EQ(table()->rows(), 2);
    expect_button("Update All", 10, update_all_CB);
    expect_button("Update Selected", 250, update_sel_CB);
    EXPECT_EQ(win->resizable(), table());
    EXPECT_EQ(Fl_Group::current(), nullptr);
    EXPECT_TRUE(win->shown());
    EXPECT_THAT(updates_on_screen(), ElementsAre("bar", "foo"));
    table()->select_row(1);
    save_picture("screen-updates");
}

TEST_F(UpdateScreen, IsDrawnInItsColours) {
    install_with_updates({"foo", "bar"});
    screen_updates();
    table()->select_row(1);
    const Picture shown = picture();
    // The ground beside the buttons, a plain row and a selected one at their right ends, below the
    // rows, and the inside of a button.
    EXPECT_EQ(shown.at(600, 582), (Pixel{234, 234, 234}));
    EXPECT_EQ(shown.at(730, 160), pixel_of(FL_WHITE));
    EXPECT_EQ(shown.at(730, 180), pixel_of(FL_BLUE));
    EXPECT_EQ(shown.at(20, 582), shown.at(20, 22));
    EXPECT_EQ(shown.at(260, 582), shown.at(20, 22));
    // The whole text has room in its box: some of the ground is left at its right and left.
    const Box ink = shown.inked({10, 100, 250, 25}, {234, 234, 234});
    EXPECT_GT(ink.w, 150);
    EXPECT_LT(ink.w, 250);
}

TEST_F(UpdateScreen, WithoutUpdatesSaysSo) {
    install("foo");
    offers = {{{"foo", nullptr, "1.0"}}};
    EXPECT_TRUE(screen_updates());
    EXPECT_FALSE(pvrm_status->Fl_Widget::visible());
    expect_label(action_label, 35);
    expect_label(none_available, 100);
    EXPECT_FALSE(labelled(available));
    EXPECT_FALSE(table());
    EXPECT_FALSE(labelled("Update All"));
    EXPECT_FALSE(labelled("Update Selected"));
    EXPECT_EQ(Fl_Group::current(), nullptr);
    EXPECT_TRUE(win->shown());
    EXPECT_THAT(user.messages, IsEmpty());
    save_picture("screen-updates-none");
}

TEST_F(UpdateScreen, InUpdateOnlyModeHasQuitAndUpdateAllAlone) {
    start_update_only();
    install_with_updates({"foo"});
    EXPECT_TRUE(screen_updates());
    EXPECT_THAT(buttons(), ElementsAre("Quit", "Update All"));
    expect_button("Update All", 10, update_all_CB);
    expect_label(available, 100);
    EXPECT_FALSE(labelled(action_label));
    EXPECT_THAT(place(table()), ElementsAre(10, 130, 760, 415));
    EXPECT_EQ(win->resizable(), table());
    EXPECT_TRUE(win->shown());
    save_picture("screen-updates-only");
}

TEST_F(UpdateScreen, InUpdateOnlyModeWithoutUpdatesIsAMessageAndTheEnd) {
    start_update_only();
    install("foo");
    EXPECT_FALSE(screen_updates());
    EXPECT_FALSE(win->shown());
    EXPECT_THAT(user.messages, ElementsAre("There are no updates available"));
    EXPECT_EQ(Fl_Group::current(), nullptr);
}

TEST_F(UpdateScreen, DropsTheListOfBeforeAndLogsItsBeginning) {
    show_updates({{{"earlier"}}});
    const LogCapture log;
    screen_updates();
    EXPECT_EQ(vra_list, nullptr);
    EXPECT_EQ(num_vras, 0);
    EXPECT_TRUE(log.has_line_end(LEVEL_DEBUG, "In action update"));
    EXPECT_TRUE(labelled(none_available));
}

TEST_F(UpdateScreen, TableGrowsWithTheWindow) {
    install_with_updates({"foo"});
    screen_updates();
    win->size(1000, 700);
    EXPECT_THAT(place(table()), ElementsAre(10, 130, 960, 515));
}

// ---- Within the loop ----

namespace {

// The tool is a script of the test, which notes what it is told.
class UpdateLoop : public ToolTest {
 protected:
    UpdateLoop() {
        vrm = repo.handle();
        vrc = &offers;
        vrc_cache = nullptr;
        pvrm_vrc_findpkg = find_offer;
        offers.clear();
        vrm_gui_action = ACTION_UPDATES;
        tool_is("echo \"$@\" >>$dir/starts");
        user.answers = {"1"};
    }
    ~UpdateLoop() override {
        update_rows_free();
        update_only = 0;
        vrm = nullptr;
        vrc = nullptr;
        pvrm_vrc_findpkg = nullptr;
        vrm_gui_action = ACTION_IDLE;
    }
    void install_with_update(const char *name) {
        PackageSpec spec;
        spec.name = name;
        repo.install(spec);
        offers.push_back({{name, nullptr, "2.0"}});
    }
    static VraTable *table() {
        for (int i = 0; i < win->children(); ++i) {
            if (auto *const found = dynamic_cast<VraTable *>(win->child(i))) {
                return found;
            }
        }
        return nullptr;
    }
    static void press(const char *label) {
        const Fl_Widget *const button = widget_labelled(label);
        ASSERT_TRUE(button) << label;
        const_cast<Fl_Widget *>(button)->do_callback();
    }
    static void quit() {
        but_quit->do_callback();
    }
    std::string starts() const {
        return exists(dir / "starts") ? read_all(dir / "starts") : "";
    }
    void expect_outcome(const std::string &command, const char *box, const char *result) {
        EXPECT_TRUE(wait_until(ended));
        EXPECT_EQ(starts(), command + "\n");
        EXPECT_TRUE(widget_labelled(box));
        EXPECT_THAT(status(), ElementsAre(result));
        EXPECT_EQ(sel_vrks, nullptr);
    }

    TestRepo repo;
};

}  // namespace

TEST_F(UpdateLoop, UpdatesAll) {
    install_with_update("foo");
    install_with_update("bar");
    Passes::run({[] { table()->select_row(0); }, [] { press("Update All"); },
                 [this] {
                     expect_outcome("upgrade", "Action: update all packages",
                                    "update all packages was successful");
                 },
                 quit});
}

TEST_F(UpdateLoop, UpdatesWhatIsSelectedInTheOrderOfTheRows) {
    install_with_update("foo");
    install_with_update("bar");
    install_with_update("zoo");
    Passes::run({[] {
                     table()->select_row(2);
                     table()->select_row(0);
                 },
                 [] { press("Update Selected"); },
                 [this] {
                     expect_outcome("upgrade bar zoo", "Action: Perform selected updates",
                                    "update selected packages was successful");
                 },
                 quit});
}

TEST_F(UpdateLoop, PlansAgainWhenNothingIsSelected) {
    install_with_update("foo");
    Passes::run({[this] {
                     EXPECT_THAT(updates_on_screen(), ElementsAre("foo"));
                     install_with_update("bar");
                 },
                 [] { press("Update Selected"); },
                 [this] {
                     EXPECT_EQ(vrm_gui_action, ACTION_UPDATES);
                     EXPECT_THAT(updates_on_screen(), ElementsAre("bar", "foo"));
                     EXPECT_EQ(table()->rows(), 2);
                     EXPECT_EQ(starts(), "");
                 },
                 quit});
}

TEST_F(UpdateLoop, TellsOfAToolThatFails) {
    install_with_update("foo");
    tool_is("echo \"$@\" >>$dir/starts; echo no room; exit 1");
    Passes::run({[] { press("Update All"); },
                 [this] {
                     expect_outcome("upgrade", "Action: update all packages",
                                    "update all packages failed with return code 256");
                     EXPECT_THAT(output(), ElementsAre("no room\n"));
                 },
                 quit});
}

// What a backend says is not to be trusted with a shell.
TEST_F(UpdateLoop, RefusesAHostileName) {
    show_updates({{{"foo;touch${IFS}gone"}}});
    update_rows_choose([](int) { return true; }, &sel_vrks);
    vrm_gui_action = ACTION_UPDATE_SELECTED;
    Passes::run({[this] {
                     EXPECT_THAT(status(), ElementsAre("failed to updated"));
                     EXPECT_EQ(starts(), "");
                     EXPECT_EQ(sel_vrks, nullptr);
                 },
                 quit});
    EXPECT_TRUE(log.has(LEVEL_ERROR,
                        "cannot update selected packages: <foo;touch${IFS}gone> is not a safe "
                        "package name"));
}

TEST_F(UpdateLoop, RefusesMoreNamesThanACommandLineHolds) {
    for (int i = 100; i < 125; ++i) {
        install_with_update((std::string(90, 'x') + std::to_string(i)).c_str());
    }
    Passes::run({[] { table()->select_all_rows(1); }, [] { press("Update Selected"); },
                 [this] {
                     EXPECT_THAT(status(), ElementsAre("failed to updated"));
                     EXPECT_EQ(starts(), "");
                 },
                 quit});
    ASSERT_THAT(log.at(LEVEL_ERROR), SizeIs(1));
    EXPECT_THAT(log.at(LEVEL_ERROR)[0],
                testing::MatchesRegex("cannot update selected packages: the command line has "
                                      "[0-9]+ characters, which is more than 2047"));
}

TEST_F(UpdateLoop, InUpdateOnlyModeUpdatesAllAndQuitsUnasked) {
    update_only = 1;
    install_with_update("foo");
    Passes::run({[] { press("Update All"); },
                 [this] {
                     expect_outcome("upgrade", "Action: update all packages",
                                    "update all packages was successful");
                     EXPECT_FALSE(widget_labelled("List Packages"));
                 },
                 quit});
    EXPECT_THAT(user.questions, IsEmpty());
}

TEST_F(UpdateLoop, InUpdateOnlyModeEndsWithoutAWindowWhenThereAreNoUpdates) {
    update_only = 1;
    Passes::run({});
    EXPECT_EQ(win, nullptr);
    EXPECT_THAT(user.messages, ElementsAre("There are no updates available"));
    EXPECT_THAT(user.questions, IsEmpty());
}

// The screen drops its list and its window each time; what it forgot would be told at the end.
TEST_F(UpdateLoop, ComesAgainManyTimesWithoutLeavingMemoryBehind) {
    for (int i = 100; i < 110; ++i) {
        install_with_update(("package" + std::to_string(i)).c_str());
    }
    std::vector<Passes::Step> steps;
    for (int i = 0; i < 40; ++i) {
        if (i % 2 == 0) {
            steps.emplace_back([] { press("Update Selected"); });
        } else {
            steps.emplace_back([] { win->hide(); });
        }
    }
    steps.emplace_back([] {
        EXPECT_EQ(num_vras, 10);
        EXPECT_EQ(table()->rows(), 10);
        // The window of this pass, and no other.
        int windows = 0;
        for (Fl_Window *window = Fl::first_window(); window; window = Fl::next_window(window)) {
            windows++;
        }
        EXPECT_EQ(windows, 1);
    });
    steps.emplace_back(quit);
    Passes::run(steps);
}
