// The two screens with a table of packages, in the looks of the program.
#include <FL/Fl.H>
#include <FL/Fl_Box.H>
#include <FL/Fl_Button.H>
#include <FL/Fl_Double_Window.H>
#include <FL/Fl_Input.H>
#include <FL/Fl_Multi_Browser.H>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "gui/drawing.h"
#include "gui/model/tool_action.h"
#include "gui/package_table.h"
#include "gui/rows_kit.h"
#include "gui/screen_kit.h"
#include "gui/screens.h"
#include "gui/state.h"
#include "gui/window.h"
#include "kit/scripted_user.h"
#include "repository/vrc.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<Row> catalogue;
int searches = 0;

int fake_findpkg(void *, const char *, const char *, const char *, int, s_ekva **, vri ***out) {
    searches++;
    if (!catalogue.empty()) {
        *out = new_list(catalogue);
    }
    return static_cast<int>(catalogue.size());
}

class Screen : public ScreenTest {
 protected:
    Screen() {
        pvrm_vrc_findpkg = fake_findpkg;
        catalogue.clear();
        searches = 0;
        vrm_gui_action = ACTION_SEARCH;
    }
    ~Screen() override {
        package_rows_free();
    }

    static MyTable *table() {
        return first<MyTable>();
    }
    static Fl_Input *field() {
        return labelled<Fl_Input>("Package Name");
    }
    // Types a text into the field as a user does, without the Enter key.
    static void type(const std::string &text) {
        for (const char letter : text) {
            char typed[] = {letter, '\0'};
            key(letter, typed);
        }
    }
    static void press_enter() {
        char typed[] = "\r";
        key(FL_Enter, typed);
    }

    // What both screens have, and what a button below the table does.
    static void expect_table_and_field(const char *box, Fl_Table_Row::TableRowSelectMode rows,
                                       Fl_Callback *search) {
        EXPECT_FALSE(pvrm_status->Fl_Widget::visible());
        EXPECT_THAT(place(labelled<Fl_Box>(box)), ElementsAre(10, 35, 250, 25));
        EXPECT_THAT(place(table()), ElementsAre(10, 130, 760, 415));
        EXPECT_EQ(table()->type(), rows);
        EXPECT_THAT(place(field()), ElementsAre(120, 100, 300, 25));
        EXPECT_EQ(field()->callback(), search);
        EXPECT_EQ(field()->user_data(), table());
    }
    static void expect_button(const char *label, Fl_Callback *callback) {
        const Fl_Button *const button = labelled<Fl_Button>(label);
        ASSERT_NE(button, nullptr);
        EXPECT_THAT(place(button), ElementsAre(10, 570, 220, 25));
        EXPECT_EQ(button->callback(), callback);
        EXPECT_EQ(button->user_data(), table());
        EXPECT_EQ(button->color(), win->color());
        EXPECT_EQ(button->labelsize(), 12);
    }

 private:
    static void key(int symbol, char *text) {
        Fl::e_keysym = symbol;
        Fl::e_text = text;
        Fl::e_length = 1;
        Fl::e_state = 0;
        field()->handle(FL_KEYBOARD);
    }
};

using SearchScreen = Screen;
using ListScreen = Screen;

}  // namespace

TEST_F(SearchScreen, HasItsWidgetsAtTheirPlaces) {
    screen_search();
    expect_table_and_field("Action: Select software to install", Fl_Table_Row::SELECT_MULTI,
                           &vrk_add_cb);
    expect_button("Install selected", &install_CB);
    EXPECT_EQ(win->resizable(), table());
    EXPECT_EQ(Fl_Group::current(), nullptr);
    EXPECT_TRUE(win->shown());
    save_picture("screen-search-empty");
}

TEST_F(SearchScreen, OpensEmptyWhateverWasFoundBefore) {
    show_rows({{"earlier"}});
    screen_search();
    EXPECT_EQ(vri_list, nullptr);
    EXPECT_EQ(sel_rows, 0);
    EXPECT_EQ(table()->rows(), 0);
    EXPECT_EQ(searches, 0);
}

TEST_F(SearchScreen, SearchesOnTheEnterKey) {
    catalogue = {{"foo", nullptr, "1.2", "Does foo"}, {"food", "small", "2", "Eats"}};
    screen_search();
    type("foo");
    EXPECT_EQ(searches, 0);
    press_enter();
    EXPECT_EQ(searches, 1);
    EXPECT_THAT(names_on_screen(), ElementsAre("foo", "food"));
    EXPECT_EQ(table()->rows(), 2);
    table()->select_row(1);
    save_picture("screen-search-selected");
}

TEST_F(SearchScreen, SearchesWhenTheFieldIsLeftButNotTwiceForOneText) {
    screen_search();
    type("foo");
    press_enter();
    field()->handle(FL_UNFOCUS);
    EXPECT_EQ(searches, 1);
    type("d");
    field()->handle(FL_UNFOCUS);
    EXPECT_EQ(searches, 2);
    // The Enter key has selected the text that was searched for, so typing replaces it.
    EXPECT_STREQ(field()->value(), "d");
    field()->handle(FL_UNFOCUS);
    EXPECT_EQ(searches, 2);
}

TEST_F(SearchScreen, WithoutAHitShowsNoRows) {
    screen_search();
    type("nothing");
    press_enter();
    EXPECT_EQ(vri_list, nullptr);
    EXPECT_EQ(table()->rows(), 0);
    save_picture("screen-search-nothing");
}

TEST_F(SearchScreen, InstallButtonTakesTheSelectionToTheTool) {
    catalogue = {{"foo"}, {"bar"}};
    screen_search();
    type("x");
    press_enter();
    table()->select_row(1);
    labelled<Fl_Button>("Install selected")->do_callback();
    EXPECT_EQ(vrm_gui_action, ACTION_INSTALL_SELECTED);
    ASSERT_NE(sel_vrks, nullptr);
    EXPECT_STREQ(sel_vrks[0], "bar");
    EXPECT_EQ(sel_vrks[1], nullptr);
    EXPECT_FALSE(win->shown());
}

// The screen after it frees the rows, while the names are still to be used.
TEST_F(SearchScreen, NamesOutliveTheScreen) {
    catalogue = {{"foo"}};
    screen_search();
    type("x");
    press_enter();
    table()->select_row(0);
    labelled<Fl_Button>("Install selected")->do_callback();
    leave_window();
    new_window();
    screen_search();
    EXPECT_STREQ(sel_vrks[0], "foo");
}

TEST_F(SearchScreen, TableGrowsWithTheWindow) {
    screen_search();
    win->size(1000, 700);
    EXPECT_THAT(place(table()), ElementsAre(10, 130, 960, 515));
}

TEST_F(ListScreen, HasItsWidgetsAtTheirPlaces) {
    install("foo");
    screen_list();
    expect_table_and_field("Action: View installed software", Fl_Table_Row::SELECT_SINGLE,
                           &vrk_lst_cb);
    EXPECT_EQ(labelled<Fl_Button>("Install selected"), nullptr);
    expect_button("View selected", &listloc_CB);
    EXPECT_EQ(win->resizable(), table());
    EXPECT_EQ(Fl_Group::current(), nullptr);
    EXPECT_TRUE(win->shown());
}

TEST_F(ListScreen, ShowsAllThatIsInstalledByName) {
    for (const char *name : {"zoo", "bar", "foo"}) {
        install(name);
    }
    show_rows({{"earlier"}});
    screen_list();
    EXPECT_THAT(names_on_screen(), ElementsAre("bar", "foo", "zoo"));
    EXPECT_EQ(table()->rows(), 3);
    table()->select_row(2);
    table()->select_row(1);
    EXPECT_EQ(table()->row_selected(2), 0);
    save_picture("screen-list");
}

TEST_F(ListScreen, ShowsTheSelectedPackageAndStays) {
    install("foo");
    install("bar");
    screen_list();
    vrm_gui_action = ACTION_LIST;
    Fl_Button *const button = labelled<Fl_Button>("View selected");
    button->do_callback();
    EXPECT_THAT(user.forms, IsEmpty());
    table()->select_row(1);
    button->do_callback();
    ASSERT_EQ(user.forms.size(), 1U);
    EXPECT_EQ(user.forms[0].fields[0].second, "foo");
    EXPECT_EQ(vrm_gui_action, ACTION_LIST);
    EXPECT_TRUE(win->shown());
    EXPECT_NE(table()->row_selected(1), 0);
    save_picture("screen-list-selected");
}

// The boxes of the theme have round corners, through which shows what was drawn before.
TEST_F(ListScreen, LeavesNothingOfWhatWasDrawnBeforeInTheCorners) {
    for (int i = 100; i < 160; ++i) {
        install("package" + std::to_string(i));
    }
    screen_list();
    table()->type(Fl_Table_Row::SELECT_MULTI);
    const auto draw_table = [](Fl_Image_Surface &surface) { surface.draw(table(), 10, 130); };
    // By fewer points than a row is high.
    const auto turn_wheel = [](int lines) {
        Fl::e_dy = lines;
        Fl::e_x = 300;
        Fl::e_y = 300;
        static_cast<Fl_Widget *>(table())->handle(FL_MOUSEWHEEL);
    };
    turn_wheel(1);
    turn_wheel(-1);
    const Picture fresh(800, 600, draw_table, win->color());
    const Picture again(
        800, 600,
        [&](Fl_Image_Surface &surface) {
            table()->select_all_rows(1);
            draw_table(surface);
            for (const int lines : {1, 1, 1, -3}) {
                turn_wheel(lines);
                draw_table(surface);
            }
            table()->select_all_rows(0);
            draw_table(surface);
        },
        win->color());
    EXPECT_TRUE(fresh == again);
}

TEST_F(ListScreen, OfNothingIsEmpty) {
    show_rows({{"earlier"}});
    screen_list();
    EXPECT_EQ(vri_list, nullptr);
    EXPECT_EQ(table()->rows(), 0);
}

TEST_F(ListScreen, IsSearchedOnTheEnterKey) {
    install("foo");
    install("bar");
    screen_list();
    type("f*");
    press_enter();
    EXPECT_THAT(names_on_screen(), ElementsAre("foo"));
    EXPECT_EQ(table()->rows(), 1);
    EXPECT_EQ(searches, 0);
    type("x");
    press_enter();
    EXPECT_THAT(names_on_screen(), IsEmpty());
}
