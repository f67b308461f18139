#include "gui/package_table.h"

#include <FL/Fl.H>
#include <FL/Fl_Button.H>
#include <FL/Fl_Double_Window.H>
#include <FL/Fl_Input.H>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <string>
#include <vector>

#include "gui/drawing.h"
#include "gui/model/tool_action.h"
#include "gui/rows_kit.h"
#include "gui/state.h"
#include "gui/table_kit.h"
#include "kit/log_capture.h"
#include "kit/test_repo.h"
#include "repository/vrc.h"

using testing::ElementsAre;

namespace {

using Table = TestedTable<MyTable>;

using PackageTable = TableTest<package_rows_free>;

using MyTableConstruction = PackageTable;
using MyTableDrawing = PackageTable;
using MyTableRebuild = PackageTable;
using MyTableSelection = PackageTable;

}  // namespace

TEST_F(MyTableConstruction, TakesTheRowsOnScreen) {
    show_rows({{"a"}, {"b"}, {"c"}});
    Table table;
    expect_shape(table, 3, {160, 60, 60, 450});
}

TEST_F(MyTableConstruction, WithoutRowsIsEmpty) {
    Table table;
    EXPECT_EQ(table.rows(), 0);
    EXPECT_EQ(table.cols(), 4);
    EXPECT_EQ(table.col_width(3), 450);
}

TEST_F(MyTableConstruction, LeavesTheGroupAroundItOpen) {
    expect_group_left_open<MyTable>();
}

// ---- Drawing ----

TEST_F(MyTableDrawing, SetsTheFontOfEachContext) {
    Table table;
    const Picture picture(20, 20, [&](Fl_Image_Surface &) {
        fl_font(FL_COURIER, 30);
        table.draw_cell(Fl_Table::CONTEXT_STARTPAGE, 0, 0, 0, 0, 0, 0);
        EXPECT_EQ(fl_font(), FL_HELVETICA);
        EXPECT_EQ(fl_size(), 14);
        for (const auto context :
             {Fl_Table::CONTEXT_NONE, Fl_Table::CONTEXT_ENDPAGE, Fl_Table::CONTEXT_TABLE,
              Fl_Table::CONTEXT_RC_RESIZE, Fl_Table::CONTEXT_CELL}) {
            fl_font(FL_COURIER, 30);
            table.draw_cell(context, 0, 0, 0, 0, 10, 10);
            EXPECT_EQ(fl_font(), FL_HELVETICA);
            EXPECT_EQ(fl_size(), 11);
        }
    });
}

TEST_F(MyTableDrawing, OfOtherContextsLeavesThePictureAsItIs) {
    show_rows({{"foo"}});
    Table table;
    const Picture picture(60, 20, [&](Fl_Image_Surface &) {
        for (const auto context :
             {Fl_Table::CONTEXT_NONE, Fl_Table::CONTEXT_STARTPAGE, Fl_Table::CONTEXT_ENDPAGE,
              Fl_Table::CONTEXT_TABLE, Fl_Table::CONTEXT_RC_RESIZE}) {
            table.draw_cell(context, 0, 0, 0, 0, 60, 20);
        }
    });
    EXPECT_EQ(picture.count({0, 0, 60, 20}, pixel_of(FL_GRAY)), 60 * 20);
}

TEST_F(MyTableDrawing, OfACellIsABoxAndTheTextLeftAligned) {
    show_rows({{"foo", "small", "1.2", "Does foo"}, {"bar", nullptr, "3", "Does bar"}});
    Table table;
    expect_cells(table, {{"foo", "small", "1.2", "Does foo"}, {"bar", "", "3", "Does bar"}});
    EXPECT_FALSE(expected_cell("foo", false) == expected_cell("bar", false));
}

TEST_F(MyTableDrawing, OfACellIsBlackOnWhiteAndWhiteOnBlueWhenSelected) {
    show_rows({{"foo"}, {"bar"}});
    Table table;
    table.select_row(1);
    const Picture picture = table.picture();
    picture.save(VRM_BINARY_DIR "/table-selected.png");
    const Box plain = inside(table.cell(0, 0));
    const Box selected = inside(table.cell(1, 0));
    EXPECT_GT(picture.count(plain, pixel_of(FL_WHITE)), plain.w * plain.h * 9 / 10);
    EXPECT_GT(picture.count(plain, dark), 0);
    EXPECT_EQ(picture.count(plain, pixel_of(FL_BLUE)), 0);
    EXPECT_GT(picture.count(selected, pixel_of(FL_BLUE)), selected.w * selected.h * 9 / 10);
    EXPECT_GT(picture.count(selected, light), 0);
    EXPECT_EQ(picture.count(selected, dark), 0);
    // The whole row, not the cell that was clicked.
    const Box description = inside(table.cell(1, 3));
    EXPECT_GT(picture.count(description, pixel_of(FL_BLUE)),
              description.w * description.h * 9 / 10);
}

TEST_F(MyTableDrawing, PutsTheTextAtTheLeftInTheMiddleOfTheCell) {
    show_rows({{"HHHH", nullptr, "HHHH", "HHHH"}});
    Table table;
    const Picture picture = table.picture();
    for (const int column : {0, 2, 3}) {
        const Box cell = table.cell(0, column);
        const Box ink =
            picture.inked({cell.x + 2, cell.y + 2, cell.w - 4, cell.h - 4}, pixel_of(FL_WHITE));
        EXPECT_GT(ink.w, 20);
        EXPECT_LT(ink.w, 50);
        EXPECT_LE(ink.x - cell.x, 4);
        const int above = ink.y - cell.y;
        const int below = cell.y + cell.h - (ink.y + ink.h);
        EXPECT_LE(std::abs(above - below), 2);
    }
    const Box empty = inside(table.cell(0, 1));
    EXPECT_EQ(picture.count(empty, pixel_of(FL_WHITE)), empty.w * empty.h);
}

TEST_F(MyTableDrawing, HasCellsOfTheirSizesSideBySide) {
    show_rows({{"foo"}, {"bar"}});
    Table table;
    table.picture();
    int x = table.cell(0, 0).x;
    const int y = table.cell(0, 0).y;
    EXPECT_EQ(y, table.header(0).y + table.header(0).h);
    for (const int column : {0, 1, 2, 3}) {
        const Box box = table.cell(1, column);
        EXPECT_EQ(box.x, x);
        EXPECT_EQ(box.y, y + 20);
        EXPECT_EQ(box.h, 20);
        EXPECT_EQ(table.header(column).x, x);
        x += box.w;
    }
}

TEST_F(MyTableDrawing, OfTheHeadersIsBoldOnTheHeaderColor) {
    Table table;
    for (const Fl_Color color : {table.row_header_color(), Fl_Color{FL_GREEN}}) {
        table.row_header_color(color);
        expect_headers(table, {"Name", "Variant", "Version", "Description"});
    }
}

TEST_F(MyTableDrawing, OfARowHeaderIsItsNumberInThreeDigits) {
    Table table;
    expect_row_header(table, 7, "007:");
}

TEST_F(MyTableDrawing, OfAHeaderStaysWithinIt) {
    Table table;
    const Picture drawn(200, 40, [&](Fl_Image_Surface &) {
        table.DrawHeader("a title that is much longer than its box", 10, 10, 60, 18);
    });
    EXPECT_EQ(drawn.count({70, 0, 130, 40}, pixel_of(FL_GRAY)), 130 * 40);
}

TEST_F(MyTableDrawing, WithoutRowsShowsTheHeadersAlone) {
    Table table;
    const Picture picture = table.picture();
    picture.save(VRM_BINARY_DIR "/table-empty.png");
    const Box header = inside(table.header(0));
    EXPECT_GT(picture.count(header, dark), 0);
    const Box below{12, header.y + header.h + 2, 740, 390};
    EXPECT_EQ(picture.count(below, pixel_of(table.color())), below.w * below.h);
}

TEST_F(MyTableDrawing, OfALongTextLeavesTheCellsBesideItAsTheyAre) {
    const std::string text(5000, 'W');
    show_rows({{text, "v", "2", "Short"}, {"short", text.c_str(), text, text}, {"below"}});
    Table table;
    const Picture picture = table.picture();
    picture.save(VRM_BINARY_DIR "/table-long.png");
    show_rows({{"short", "v", "2", "Short"}, {"short", "", "", ""}, {"below"}});
    const Picture plain = table.picture();
    const auto same = [&](int row, int column) {
        const Box box = table.cell(row, column);
        for (int y = box.y; y < box.y + box.h; ++y) {
            for (int x = box.x; x < box.x + box.w; ++x) {
                if (!(picture.at(x, y) == plain.at(x, y))) {
                    return false;
                }
            }
        }
        return true;
    };
    EXPECT_FALSE(same(0, 0));
    EXPECT_TRUE(same(0, 1));
    EXPECT_TRUE(same(0, 2));
    EXPECT_TRUE(same(0, 3));
    EXPECT_TRUE(same(1, 0));
    for (int column = 0; column < 4; ++column) {
        EXPECT_TRUE(same(2, column));
    }
    // Nothing outside the table.
    EXPECT_EQ(picture.count({770, 0, 30, 600}, pixel_of(FL_GRAY)), 30 * 600);
}

TEST_F(MyTableDrawing, TakesAnyTextAPackageMayHave) {
    std::string control;
    for (char c = 1; c < 32; ++c) {
        control += c;
    }
    const std::vector<std::string> texts = {
        "%s%s%s%n%n",
        "@-> @<- @+9[] @#-4>> @search @+99999999999999999999x",
        "@",
        "@@",
        "@@@@@@",
        "a@b.org",
        "x@",
        "&File && more &",
        "tab\tand\ttab",
        control,
        "\xFF\xFE\x80\xC0\xC1\xF8 not UTF-8 \xE2\x82",
        std::string(300, '\xF0'),
        "\xEF\xBB\xBF\xE2\x80\xAE reversed \xED\xA0\x80 surrogate \xF4\x90\x80\x80",
        "@" + std::string(5000, '9'),
        std::string(5000, '@'),
        std::string(5000, '\n'),
        std::string(5000, '\t'),
        std::string(1 << 20, 'x'),
    };
    std::vector<Row> rows;
    for (const std::string &text : texts) {
        rows.push_back({text, text.c_str(), text, text});
    }
    show_rows(rows);
    Table table;
    const Picture picture = table.picture();
    picture.save(VRM_BINARY_DIR "/table-hostile.png");
    // The text of an address up to the sign, which begins a symbol as in a label.
    const Box address = inside(table.cell(5, 0));
    EXPECT_GT(picture.count(address, dark), 0);
    // A text of many lines stays in its row.
    for (int column = 0; column < 4; ++column) {
        const Box lines = inside(table.cell(15, column));
        EXPECT_EQ(picture.count(lines, pixel_of(FL_WHITE)), lines.w * lines.h);
    }
}

// ---- A list of another search ----

TEST_F(MyTableRebuild, TakesTheNewRowsUnselected) {
    show_rows(numbered_rows(10));
    Table table;
    table.select_row(1);
    table.col_width(0, 300);
    show_rows({{"x"}, {"y"}, {"z"}});
    table.rebuild();
    EXPECT_EQ(table.rows(), 3);
    EXPECT_EQ(table.cols(), 4);
    EXPECT_EQ(table.row_height(2), 20);
    EXPECT_EQ(table.col_width(0), 160);
    EXPECT_EQ(table.col_width(1), 60);
    EXPECT_EQ(table.col_width(2), 60);
    EXPECT_EQ(table.col_width(3), 450);
    EXPECT_THAT(table.selected(), testing::IsEmpty());
    EXPECT_NE(table.damage(), 0);
    package_rows_free();
    table.rebuild();
    EXPECT_EQ(table.rows(), 0);
    EXPECT_EQ(table.cols(), 4);
}

TEST_F(MyTableRebuild, OfAFewRowsFromFarDownALongListShowsThem) {
    show_rows(numbered_rows(5000));
    Table table;
    table.top_row(4900);
    show_rows({{"x"}, {"y"}});
    table.rebuild();
    EXPECT_EQ(table.top_row(), 0);
    const Box first = inside(table.cell(0, 0));
    EXPECT_GT(table.picture().count(first, dark), 0);
}

namespace {

double milliseconds(const std::function<void()> &code) {
    double least = 1e9;
    for (int i = 0; i < 5; ++i) {
        const auto start = std::chrono::steady_clock::now();
        code();
        const std::chrono::duration<double, std::milli> took =
            std::chrono::steady_clock::now() - start;
        least = std::min(least, took.count());
    }
    return least;
}

}  // namespace

TEST_F(MyTableRebuild, GrowsAsTheNumberOfRows) {
    show_rows(numbered_rows(60000));
    Table table;
    const double large = milliseconds([&] { table.rebuild(); });
    std::cout << "table of 60000 rows rebuilt in " << large << " ms\n";
    EXPECT_EQ(table.rows(), 60000);
    EXPECT_EQ(table.row_height(59999), 20);
    // Heights set row by row take 60000 * 60000 steps, which are seconds.
    EXPECT_LT(large, 1000);
}

TEST_F(MyTableDrawing, CostsWhatTheVisibleRowsCost) {
    show_rows(numbered_rows(60));
    Table table;
    Fl_Image_Surface surface(800, 600);
    Fl_Surface_Device::push_current(&surface);
    const auto draw = [&](const char *what) {
        const double took = milliseconds([&] {
            table.cells_drawn = 0;
            surface.draw(&table, 10, 130);
            // Reading a point back waits for the server to have drawn.
            unsigned char point[3];
            fl_read_image(point, 20, 160, 1, 1);
        });
        std::cout << "repaint " << what << ": " << table.cells_drawn << " cells in " << took
                  << " ms\n";
        return table.cells_drawn;
    };
    const int few = draw("of 60 rows");
    show_rows(numbered_rows(60000));
    table.rebuild();
    const int top = draw("of 60000 rows");
    table.top_row(59000);
    const int middle = draw("of 60000 rows, at row 59000");
    Fl_Surface_Device::pop_current();
    // Some twenty rows have room, a row in part at each end.
    for (const int cells : {few, top, middle}) {
        EXPECT_GE(cells, 19 * 4);
        EXPECT_LE(cells, 22 * 4);
    }
}

// ---- The mouse ----

TEST_F(MyTableSelection, TakesSeveralRowsUnlessTheScreenTakesOne) {
    show_rows(numbered_rows(6));
    Fl_Double_Window window(800, 600);
    Table table;
    window.end();
    table.click(1, 0);
    EXPECT_THAT(table.selected(), ElementsAre(1));
    table.click(4, 3, FL_CTRL);
    EXPECT_THAT(table.selected(), ElementsAre(1, 4));
    table.click(2, 1, FL_CTRL);
    EXPECT_THAT(table.selected(), ElementsAre(1, 2, 4));
    table.click(3, 2);
    EXPECT_THAT(table.selected(), ElementsAre(3));
    table.click(5, 0, FL_SHIFT);
    EXPECT_THAT(table.selected(), ElementsAre(3, 4, 5));
    table.type(Fl_Table_Row::SELECT_SINGLE);
    table.click(0, 0);
    table.click(2, 0, FL_CTRL);
    EXPECT_THAT(table.selected(), ElementsAre(2));
}

// ---- The callbacks ----

namespace {

std::vector<Row> catalogue;

int fake_findpkg(void *, const char *name, const char *, const char *, int, s_ekva **, vri ***out) {
    std::vector<Row> found;
    std::copy_if(catalogue.begin(), catalogue.end(), std::back_inserter(found),
                 [name](const Row &row) { return row.name.rfind(name, 0) == 0; });
    if (!found.empty()) {
        *out = new_list(found);
    }
    return static_cast<int>(found.size());
}

class Callbacks : public PackageTable {
 protected:
    Callbacks() : window(800, 600), input(120, 100, 300, 25, "Package Name") {
        window.end();
        window.add(table);
        window.add(button);
        vrm = repo.handle();
        vrc = &connection;
        pvrm_vrc_findpkg = fake_findpkg;
        catalogue = {{"foo"}, {"food"}, {"bar"}};
    }
    ~Callbacks() override {
        vrm = nullptr;
        vrc = nullptr;
        pvrm_vrc_findpkg = nullptr;
    }
    void install(const std::string &name) {
        PackageSpec spec;
        spec.name = name;
        repo.install(spec);
    }
    std::vector<std::string> chosen() const {
        return {sel_vrks, sel_vrks + arr_count(sel_vrks)};
    }

    TestRepo repo;
    int connection = 0;
    Fl_Double_Window window;
    Fl_Input input;
    Table table;
    Fl_Button button{10, 570, 220, 25, "Install selected"};
};

}  // namespace

TEST_F(Callbacks, AddSearchesTheCatalogueAndFillsTheTable) {
    input.value("foo");
    const LogCapture log;
    vrk_add_cb(&input, &table);
    EXPECT_THAT(names_on_screen(), ElementsAre("foo", "food"));
    EXPECT_EQ(table.rows(), 2);
    EXPECT_EQ(table.row_height(1), 20);
    EXPECT_TRUE(log.has_line_end(LEVEL_DEBUG, "Add Callback for Package Name 'foo'"));
    EXPECT_TRUE(log.has_line_end(LEVEL_DEBUG, "Got 2 entries for foo"));
    input.value("nothing");
    vrk_add_cb(&input, &table);
    EXPECT_EQ(vri_list, nullptr);
    EXPECT_EQ(table.rows(), 0);
    table.picture();
}

TEST_F(Callbacks, ListSearchesWhatIsInstalled) {
    install("bar");
    install("baz");
    input.value("ba?");
    vrk_lst_cb(&input, &table);
    EXPECT_THAT(names_on_screen(), ElementsAre("bar", "baz"));
    EXPECT_EQ(table.rows(), 2);
    input.value("foo");
    vrk_lst_cb(&input, &table);
    EXPECT_EQ(vri_list, nullptr);
    EXPECT_EQ(table.rows(), 0);
}

TEST_F(Callbacks, InstallTakesTheSelectedNamesInTheOrderOfTheRows) {
    show_rows({{"c"}, {"a"}, {"b"}});
    table.rebuild();
    vrm_gui_action = ACTION_SEARCH;
    table.click(2, 0);
    table.click(0, 0, FL_CTRL);
    window.show();
    install_CB(&button, &table);
    EXPECT_THAT(chosen(), ElementsAre("c", "b"));
    EXPECT_EQ(vrm_gui_action, ACTION_INSTALL_SELECTED);
    EXPECT_FALSE(window.shown());
}

TEST_F(Callbacks, InstallWithNothingSelectedLeavesTheAction) {
    show_rows({{"a"}});
    table.rebuild();
    vrm_gui_action = ACTION_SEARCH;
    sel_vrks = arr_copy(std::vector<char *>{const_cast<char *>("old"), nullptr}.data());
    window.show();
    install_CB(&button, &table);
    EXPECT_EQ(sel_vrks, nullptr);
    EXPECT_EQ(vrm_gui_action, ACTION_SEARCH);
    EXPECT_FALSE(window.shown());
}

TEST_F(Callbacks, InstallOfAnEmptyTableChoosesNothing) {
    package_rows_free();
    table.rebuild();
    vrm_gui_action = ACTION_SEARCH;
    window.show();
    install_CB(&button, &table);
    EXPECT_EQ(sel_vrks, nullptr);
    EXPECT_EQ(vrm_gui_action, ACTION_SEARCH);
}
