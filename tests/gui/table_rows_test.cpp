#include "gui/model/table_rows.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "gui/rows_kit.h"
#include "kit/log_capture.h"
#include "support/own.h"

using testing::ElementsAre;

namespace {

constexpr table_columns columns = {
    {{"A", 1, nullptr}, {"B", 2, &vri::name}, {"C", 3, &vri::variant}, {"D", 4, &vri::version}}};

std::string written(const char *whole) {
    cell_text text;
    write_cell(whole, text);
    return text;
}

std::string written(const vri &package, int column) {
    cell_text text;
    write_package_cell(package, columns, column, text);
    return text;
}

}  // namespace

TEST(WriteCell, TakesATextOf255Characters) {
    EXPECT_EQ(written("foo"), "foo");
    EXPECT_EQ(written(std::string(255, 'x').c_str()), std::string(255, 'x'));
    EXPECT_EQ(written(std::string(256, 'x').c_str()), std::string(255, 'x'));
    EXPECT_EQ(written(std::string(100000, 'x').c_str()), std::string(255, 'x'));
}

TEST(WriteCell, OfNothingIsEmpty) {
    EXPECT_EQ(written(""), "");
    EXPECT_EQ(written(nullptr), "");
}

TEST(WriteCell, CutsBeforeACharacterOfSeveralBytes) {
    const std::string front(254, 'x');
    EXPECT_EQ(written((front + "\xC3\xA4").c_str()), front);
    EXPECT_EQ(written((front.substr(1) + "\xC3\xA4").c_str()), front.substr(1) + "\xC3\xA4");
}

TEST(WriteCell, KeepsALineEndOutOfTheRow) {
    EXPECT_EQ(written("two\nlines\n"), "two lines ");
}

TEST(WritePackageCell, ShowsTheFieldOfTheColumn) {
    const own_vri package(new_record({"foo", nullptr, "1.2", "Does foo"}));
    EXPECT_EQ(written(*package, 0), "");
    EXPECT_EQ(written(*package, 1), "foo");
    EXPECT_EQ(written(*package, 2), "");
    EXPECT_EQ(written(*package, 3), "1.2");
}

TEST(WritePackageCell, OutsideTheTableIsEmpty) {
    const own_vri package(new_record({"foo"}));
    EXPECT_EQ(written(*package, 4), "");
    EXPECT_EQ(written(*package, -1), "");
}

TEST(ChooseNames, TellsTheLogWhatWasPressed) {
    const LogCapture log;
    char **names = nullptr;
    const auto name_of = [](int row) { return row == 0 ? "a" : "b"; };
    EXPECT_EQ(choose_names(
                  "100% %s pressed", 2, [](int) { return true; }, name_of, &names),
              2);
    const own_array chosen(names);
    EXPECT_THAT(log.at(LEVEL_INFO), ElementsAre("100% %s pressed"));
    EXPECT_THAT(log.at(LEVEL_DEBUG),
                ElementsAre("added 1 entry: <a>", "Row 0 is selected: a.", "added 2 entry: <b>",
                            "Row 1 is selected: b.", "2 rows were selected."));
}

TEST(ChooseNames, ChoosesNothingWhenARowHasNoName) {
    char **names = nullptr;
    const auto name_of = [](int row) { return row == 0 ? "a" : nullptr; };
    EXPECT_EQ(choose_names(
                  "pressed", 2, [](int) { return true; }, name_of, &names),
              0);
    EXPECT_EQ(names, nullptr);
}
