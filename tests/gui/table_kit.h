// Tables of the window, clicked on and drawn by a test.
#pragma once

#include <FL/Fl.H>
#include <FL/Fl_Table.H>
#include <FL/fl_draw.H>
#include <gtest/gtest.h>

#include <vector>

#include "gui/drawing.h"
#include "gui/model/tool_action.h"
#include "gui/state.h"
#include "support/array.h"

// A test of a table, whose rows are freed and whose outcome is forgotten at its end.
template <void (*free_rows)()>
class TableTest : public testing::Test {
 protected:
    TableTest() {
        Fl_Group::current(nullptr);
    }
    ~TableTest() override {
        free_rows();
        arr_free(sel_vrks);
        sel_vrks = nullptr;
        vrm_gui_action = ACTION_IDLE;
    }
};

// A table at the place that the screens give it, which can be clicked on and looked at.
template <typename Drawn>
class TestedTable : public Drawn {
 public:
    TestedTable() : Drawn(10, 130, 760, 415) {}

    using Drawn::DrawHeader;

    void draw_cell(Fl_Table::TableContext context, int row, int col, int x, int y, int w,
                   int h) override {
        cells_drawn += context == Fl_Table::CONTEXT_CELL ? 1 : 0;
        Drawn::draw_cell(context, row, col, x, y, w, h);
    }
    int cells_drawn = 0;

    // Where a cell is, in the window.
    Box cell(int row, int column) {
        return place(Fl_Table::CONTEXT_CELL, row, column);
    }
    Box header(int column) {
        return place(Fl_Table::CONTEXT_COL_HEADER, 0, column);
    }
    Picture picture() {
        return Picture::of(*this, 800, 600);
    }
    // Presses and releases the first button in the middle of a cell.
    void click(int row, int column, int modifiers = 0) {
        const Box box = cell(row, column);
        Fl::e_x = box.x + box.w / 2;
        Fl::e_y = box.y + box.h / 2;
        Fl::e_keysym = FL_Button + FL_LEFT_MOUSE;
        Fl::e_state = modifiers;
        Fl::e_is_click = 1;
        this->handle(FL_PUSH);
        this->handle(FL_RELEASE);
    }
    std::vector<int> selected() {
        std::vector<int> found;
        for (int row = 0; row < this->rows(); ++row) {
            if (this->row_selected(row) > 0) {
                found.push_back(row);
            }
        }
        return found;
    }

 private:
    Box place(Fl_Table::TableContext context, int row, int column) {
        Box box{};
        EXPECT_EQ(this->find_cell(context, row, column, box.x, box.y, box.w, box.h), 0);
        return box;
    }
};

// What lies within the frame of a cell.
inline Box inside(const Box &box) {
    return {box.x + 1, box.y + 1, box.w - 2, box.h - 2};
}

// Letters are smoothed: few of their points have the whole colour.
inline bool dark(const Pixel &pixel) {
    return pixel.red < 100 && pixel.green < 100 && pixel.blue < 100;
}
inline bool light(const Pixel &pixel) {
    return pixel.red > 155 && pixel.green > 155 && pixel.blue > 155;
}

// What a cell with this text has to look like, alone on its ground.
inline Picture expected_cell(const char *text, bool selected) {
    return {200, 40, [&](Fl_Image_Surface &) {
                fl_font(FL_HELVETICA, 11);
                fl_draw_box(FL_THIN_UP_BOX, 10, 10, 160, 20, selected ? FL_BLUE : FL_WHITE);
                fl_color(selected ? FL_WHITE : FL_BLACK);
                fl_draw(text, 10, 10, 160, 20, FL_ALIGN_LEFT, nullptr, 1);
            }};
}

template <typename Table>
Picture drawn_cell(Table &table, int row, int column) {
    return {200, 40, [&](Fl_Image_Surface &) {
                table.draw_cell(Fl_Table::CONTEXT_CELL, row, column, 10, 10, 160, 20);
            }};
}

// Runs a piece of drawing as a header would be drawn, clipped.
inline Picture expected_header(const char *text, Fl_Color color) {
    return {200, 40, [&](Fl_Image_Surface &) {
                fl_push_clip(10, 10, 60, 18);
                fl_draw_box(FL_THIN_UP_BOX, 10, 10, 60, 18, color);
                fl_color(FL_BLACK);
                fl_font(FL_HELVETICA_BOLD, 11);
                fl_draw(text, 10, 10, 60, 18, FL_ALIGN_LEFT, nullptr, 1);
                fl_pop_clip();
            }};
}

// ---- What is the same of every table but for its columns ----

template <typename Drawn>
void expect_shape(TestedTable<Drawn> &table, int rows, const std::vector<int> &widths) {
    EXPECT_EQ(table.rows(), rows);
    EXPECT_EQ(table.row_header(), 0);
    EXPECT_EQ(table.row_resize(), 0);
    EXPECT_EQ(table.col_header(), 1);
    EXPECT_EQ(table.col_resize(), 1);
    for (int row = 0; row < rows; ++row) {
        EXPECT_EQ(table.row_height(row), 20);
    }
    ASSERT_EQ(table.cols(), static_cast<int>(widths.size()));
    for (int column = 0; column < table.cols(); ++column) {
        EXPECT_EQ(table.col_width(column), widths[static_cast<size_t>(column)]) << column;
    }
    EXPECT_EQ(table.type(), Fl_Table_Row::SELECT_MULTI);
    EXPECT_EQ(table.callback(), &Drawn::event_callback);
    EXPECT_EQ(table.user_data(), &table);
}

template <typename Drawn>
void expect_group_left_open() {
    Fl_Group group(0, 0, 800, 600);
    const TestedTable<Drawn> table;
    EXPECT_EQ(Fl_Group::current(), &group);
    EXPECT_EQ(table.parent(), &group);
    group.end();
    Fl_Group::current(nullptr);
}

template <typename Drawn>
void expect_headers(TestedTable<Drawn> &table, const std::vector<const char *> &titles) {
    for (int column = 0; column < table.cols(); ++column) {
        const char *const title = titles[static_cast<size_t>(column)];
        const Picture drawn(200, 40, [&](Fl_Image_Surface &) {
            table.draw_cell(Fl_Table::CONTEXT_COL_HEADER, 0, column, 10, 10, 60, 18);
        });
        EXPECT_TRUE(drawn == expected_header(title, table.row_header_color())) << title;
    }
}

template <typename Drawn>
void expect_row_header(TestedTable<Drawn> &table, int row, const char *text) {
    const Picture drawn(200, 40, [&](Fl_Image_Surface &) {
        table.draw_cell(Fl_Table::CONTEXT_ROW_HEADER, row, 0, 10, 10, 60, 18);
    });
    EXPECT_TRUE(drawn == expected_header(text, table.row_header_color()));
}

// Every cell of the first rows has its text; the last of these rows is drawn as selected.
template <typename Drawn>
void expect_cells(TestedTable<Drawn> &table, const std::vector<std::vector<const char *>> &texts) {
    const int last = static_cast<int>(texts.size()) - 1;
    table.select_row(last);
    for (int row = 0; row <= last; ++row) {
        for (int column = 0; column < table.cols(); ++column) {
            const char *const text = texts[static_cast<size_t>(row)][static_cast<size_t>(column)];
            EXPECT_TRUE(drawn_cell(table, row, column) == expected_cell(text, row == last))
                << row << ", " << column;
        }
    }
}
