#include "gui/update_table.h"

#include <FL/Fl.H>
#include <FL/Fl_Button.H>
#include <FL/Fl_Double_Window.H>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "gui/drawing.h"
#include "gui/model/tool_action.h"
#include "gui/state.h"
#include "gui/table_kit.h"
#include "gui/update_rows_kit.h"
#include "kit/log_capture.h"
#include "support/array.h"

using testing::ElementsAre;

namespace {

using Table = TestedTable<VraTable>;

using UpdateTable = TableTest<update_rows_free>;

using VraTableConstruction = UpdateTable;
using VraTableDrawing = UpdateTable;

}  // namespace

TEST_F(VraTableConstruction, TakesTheRowsOnScreen) {
    show_updates({{{"a"}}, {{"b"}}, {{"c"}}});
    Table table;
    expect_shape(table, 3, {60, 160, 60, 450});
}

TEST_F(VraTableConstruction, LeavesTheGroupAroundItOpen) {
    expect_group_left_open<VraTable>();
}

// ---- Drawing ----

TEST_F(VraTableDrawing, OfACellIsABoxAndTheTextLeftAligned) {
    show_updates({{{"foo", "small", "1.2", "Does foo"}}, {{"bar", nullptr, "3", "Does bar"}, 'I'}});
    Table table;
    expect_cells(table, {{"update", "foo", "1.2", "Does foo"}, {"update", "bar", "3", "Does bar"}});
    table.picture().save(VRM_BINARY_DIR "/update-table.png");
}

TEST_F(VraTableDrawing, ShowsInstallInEveryRowWhenTheFirstEntryIsOne) {
    show_updates({{{"foo"}, 'I'}, {{"bar"}, 'U'}, {{"baz"}, 'D'}});
    Table table;
    for (int row = 0; row < 3; ++row) {
        EXPECT_TRUE(drawn_cell(table, row, 0) == expected_cell("install", false)) << row;
    }
    table.picture().save(VRM_BINARY_DIR "/update-table-install.png");
}

TEST_F(VraTableDrawing, CutsATextAt255Characters) {
    // Narrow letters, and a cell for all of them.
    const std::string text = std::string(254, 'i') + "WWWW";
    show_updates({{{text, nullptr, text, text}}});
    Table table;
    const auto drawn = [](const std::function<void()> &code) {
        return Picture(900, 40, [&](Fl_Image_Surface &) { code(); });
    };
    for (const int column : {1, 2, 3}) {
        const Picture cut =
            drawn([&] { table.draw_cell(Fl_Table::CONTEXT_CELL, 0, column, 10, 10, 880, 20); });
        const auto expected = [&](const std::string &shown) {
            return drawn([&] {
                fl_font(FL_HELVETICA, 11);
                fl_draw_box(FL_THIN_UP_BOX, 10, 10, 880, 20, FL_WHITE);
                fl_color(FL_BLACK);
                fl_draw(shown.c_str(), 10, 10, 880, 20, FL_ALIGN_LEFT, nullptr, 1);
            });
        };
        EXPECT_TRUE(cut == expected(text.substr(0, 255)));
        EXPECT_FALSE(cut == expected(text.substr(0, 254)));
        EXPECT_FALSE(cut == expected(text.substr(0, 256)));
    }
}

TEST_F(VraTableDrawing, OfTheHeadersIsBoldOnTheHeaderColor) {
    Table table;
    expect_headers(table, {"Action", "Package", "Version", "Description"});
}

TEST_F(VraTableDrawing, OfARowHeaderIsItsNumberInThreeDigits) {
    Table table;
    expect_row_header(table, 42, "042:");
}

// ---- The callbacks ----

namespace {

class UpdateCallbacks : public UpdateTable {
 protected:
    UpdateCallbacks() : window(800, 600) {
        window.end();
        show_updates({{{"c"}}, {{"a"}}, {{"b"}}});
        table = new Table;
        window.add(table);
        window.add(button);
        vrm_gui_action = ACTION_UPDATES;
        window.show();
    }
    static void choose_before() {
        char old[] = "old";
        char *const names[] = {old, nullptr};
        sel_vrks = arr_copy(names);
    }
    static std::vector<std::string> chosen() {
        return {sel_vrks, sel_vrks + arr_count(sel_vrks)};
    }

    Fl_Double_Window window;
    Table *table;
    Fl_Button button{10, 570, 220, 25, "Update"};
    LogCapture log;
};

}  // namespace

TEST_F(UpdateCallbacks, SelectedTakesTheNamesInTheOrderOfTheRows) {
    choose_before();
    table->click(2, 0);
    table->click(0, 0, FL_CTRL);
    update_sel_CB(&button, table);
    EXPECT_THAT(chosen(), ElementsAre("c", "b"));
    EXPECT_EQ(vrm_gui_action, 8);
    EXPECT_FALSE(window.shown());
    EXPECT_THAT(log.at(LEVEL_INFO), ElementsAre("Somebody presssed the update_sel button"));
}

TEST_F(UpdateCallbacks, SelectedWithNothingSelectedLeavesTheAction) {
    choose_before();
    update_sel_CB(&button, table);
    EXPECT_EQ(sel_vrks, nullptr);
    EXPECT_EQ(vrm_gui_action, 2);
    EXPECT_FALSE(window.shown());
}

TEST_F(UpdateCallbacks, AllForgetsWhatWasChosen) {
    choose_before();
    table->click(1, 0);
    update_all_CB(&button, table);
    EXPECT_EQ(sel_vrks, nullptr);
    EXPECT_EQ(vrm_gui_action, 7);
    EXPECT_FALSE(window.shown());
    EXPECT_THAT(log.at(LEVEL_INFO), ElementsAre("Somebody presssed the update_all button."));
}
