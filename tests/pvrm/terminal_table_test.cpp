#include "pvrm/terminal_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <string>

#include "kit/records.h"
#include "kit/temp_dir.h"
#include "pvrm/terminal_ui.h"
#include "support/own.h"
#include "ui/vrmui.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class TerminalTable : public testing::Test {
 protected:
    ~TerminalTable() override {
        terminal_out = nullptr;
    }

    // What a table of these rows looks like in a file.
    std::string in_a_file(const std::vector<own_ekva> &rows, const char *title = "Found") {
        const std::string path = dir_ / "out";
        const own_file out(fopen(path.c_str(), "w"));
        terminal_out = out.get();
        write(rows, title);
        return read_all(path);
    }

    // The same on a terminal of a width, which is 0 for one that doesn't know it.
    std::string on_a_terminal(unsigned short width, const std::vector<own_ekva> &rows) {
        int keyboard = -1, screen = -1;
        winsize size = {};
        size.ws_col = width;
        termios raw = {};
        cfmakeraw(&raw);
        EXPECT_EQ(openpty(&keyboard, &screen, nullptr, &raw, &size), 0);
        const own_fd reader(keyboard);
        own_file out(fdopen(screen, "w"));
        terminal_out = out.get();
        write(rows, "Found");
        terminal_out = nullptr;
        out.reset();
        return everything_from(reader.get());
    }

 private:
    static void write(const std::vector<own_ekva> &rows, const char *title) {
        const own_ekva columns = record({{"Name", "5"}, {"Version", "7"}, {"Description", "10"}});
        EXPECT_EQ(vrmui_write_table_new(nullptr, title, columns.get()), 0);
        int number = 0;
        for (const own_ekva &row : rows) {
            EXPECT_EQ(vrmui_write_table_add(nullptr, row.get(), ++number), 0);
        }
        EXPECT_EQ(vrmui_write_table_end(nullptr, title), 0);
    }

    // A terminal hands on what was written piece by piece, and behind its last writer an error.
    static std::string everything_from(int terminal) {
        std::string text;
        char piece[4096];
        for (ssize_t length; (length = read(terminal, piece, sizeof piece)) > 0;) {
            text.append(piece, static_cast<size_t>(length));
        }
        return text;
    }

    TempDir dir_;
};

std::vector<own_ekva> two_packages() {
    std::vector<own_ekva> rows;
    rows.push_back(
        record({{"Name", "größe"}, {"Version", "1.0"}, {"Description", "Measures what is there"}}));
    rows.push_back(record({{"Name", "漢字"}, {"Description", "Wide letters"}}));
    return rows;
}

}  // namespace

TEST_F(TerminalTable, ColumnsAreAlignedAndUncutInAFile) {
    EXPECT_EQ(in_a_file(two_packages()),
              "Found\n"
              "Name   Version  Description\n"
              "-----  -------  ----------------------\n"
              "größe  1.0      Measures what is there\n"
              "漢字            Wide letters\n");
}

TEST_F(TerminalTable, WithoutTitleOrRowsIsItsHeads) {
    EXPECT_EQ(in_a_file({}, nullptr),
              "Name  Version  Description\n"
              "----  -------  -----------\n");
}

TEST_F(TerminalTable, IsUncutWhereTheTerminalIsWideEnough) {
    EXPECT_EQ(on_a_terminal(38, two_packages()), in_a_file(two_packages()));
}

TEST_F(TerminalTable, FitsTheTerminal) {
    EXPECT_EQ(on_a_terminal(27, two_packages()),
              "Found\n"
              "Name   Version  Description\n"
              "-----  -------  -----------\n"
              "größe  1.0      Measures w…\n"
              "漢字            Wide lette…\n");
    EXPECT_EQ(on_a_terminal(11, two_packages()),
              "Found\n"
              "Na…  V…  D…\n"
              "---  --  --\n"
              "gr…  1…  M…\n"
              "漢…      W…\n");
}

TEST_F(TerminalTable, OfATerminalWithoutAWidthIsThatOfTheEnvironmentOr80) {
    std::vector<own_ekva> rows;
    rows.push_back(record({{"Name", std::string(100, 'n').c_str()}}));
    unsetenv("COLUMNS");
    EXPECT_THAT(on_a_terminal(0, rows), testing::HasSubstr("\n" + std::string(57, 'n') + "…\n"));
    setenv("COLUMNS", "40", 1);
    EXPECT_THAT(on_a_terminal(0, rows), testing::HasSubstr("\n" + std::string(17, 'n') + "…\n"));
    unsetenv("COLUMNS");
}

TEST_F(TerminalTable, CellsCannotSteerTheTerminalOrLeaveTheirLine) {
    std::vector<own_ekva> rows;
    rows.push_back(record({{"Name", "a\nb\t\x1b[31m"}, {"Version", "\xff"}}));
    EXPECT_EQ(in_a_file(rows, "\x1b[2J"),
              "\\x1B[2J\n"
              "Name          Version  Description\n"
              "------------  -------  -----------\n"
              "a b \\x1B[31m  \\xFF\n");
}

TEST_F(TerminalTable, WithoutItsBeginningItFails) {
    EXPECT_EQ(vrmui_write_table_add(nullptr, record({}).get(), 1), -1);
    EXPECT_EQ(vrmui_write_table_end(nullptr, nullptr), -1);
}

TEST(FitColumns, LeavesWhatFits) {
    EXPECT_THAT(fit_columns({}, {}, 0), IsEmpty());
    EXPECT_THAT(fit_columns({5, 7}, {1, 1}, 14), ElementsAre(5, 7));
}

TEST(FitColumns, TakesFromTheLastFirstDownToWhatItWasAskedToHave) {
    EXPECT_THAT(fit_columns({20, 30}, {10, 10}, 51), ElementsAre(20, 29));
    EXPECT_THAT(fit_columns({20, 30}, {10, 10}, 32), ElementsAre(20, 10));
    EXPECT_THAT(fit_columns({20, 30}, {10, 10}, 31), ElementsAre(19, 10));
    EXPECT_THAT(fit_columns({20, 8}, {10, 10}, 25), ElementsAre(15, 8));
    EXPECT_THAT(fit_columns({20, 8}, {10, 0}, 25), ElementsAre(15, 8));
}

TEST(FitColumns, ThenFromTheWidest) {
    EXPECT_THAT(fit_columns({20, 30}, {10, 12}, 20), ElementsAre(9, 9));
    EXPECT_THAT(fit_columns({20, 30}, {10, 12}, 19), ElementsAre(9, 8));
    EXPECT_THAT(fit_columns({20, 30}, {0, 0}, 30), ElementsAre(14, 14));
}

TEST(FitColumns, LeavesEachColumnSomething) {
    EXPECT_THAT(fit_columns({20, 30, 1}, {10, 10, 1}, 3), ElementsAre(1, 1, 1));
}
