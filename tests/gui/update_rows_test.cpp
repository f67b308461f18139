#include "gui/model/update_rows.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>
#include <string>
#include <vector>

#include "gui/update_rows_kit.h"
#include "kit/log_capture.h"
#include "kit/test_repo.h"

using testing::ElementsAre;
using testing::IsSupersetOf;

namespace fs = std::filesystem;

namespace {

std::string cell(int row, int column) {
    return cell_by(update_cell, row, column);
}

std::vector<std::string> cells(int row) {
    return {cell(row, 0), cell(row, 1), cell(row, 2), cell(row, 3)};
}

class UpdateRows : public testing::Test {
 protected:
    UpdateRows() {
        vrc_cache = nullptr;
        pvrm_vrc_findpkg = find_offer;
        offers.clear();
        asked_for_package = 0;
    }
    ~UpdateRows() override {
        update_rows_free();
        pvrm_vrc_findpkg = nullptr;
        arr_free(sel);
    }

    void installed(const std::string &name, const std::string &version = "1.0") {
        PackageSpec spec;
        spec.name = name;
        spec.version = version;
        repo.install(spec);
    }
    void plan() {
        update_rows_free();
        update_rows_plan(repo.handle(), &offers);
    }
    int choose(const std::set<int> &rows) {
        return update_rows_choose([&](int row) { return rows.contains(row); }, &sel);
    }
    std::vector<std::string> chosen() const {
        return sel ? std::vector<std::string>{sel, sel + arr_count(sel)}
                   : std::vector<std::string>{};
    }

    TestRepo repo;
    char **sel = nullptr;
};

using UpdateCell = UpdateRows;
using UpdatePlan = UpdateRows;
using UpdateChoose = UpdateRows;

}  // namespace

TEST(UpdateColumns, HaveTheirTitlesAndWidths) {
    const char *const titles[] = {"Action", "Package", "Version", "Description"};
    const int widths[] = {60, 160, 60, 450};
    for (size_t i = 0; i < update_columns.size(); ++i) {
        EXPECT_STREQ(update_columns[i].title, titles[i]);
        EXPECT_EQ(update_columns[i].width, widths[i]);
    }
}

// ---- Cells ----

TEST_F(UpdateCell, TellsActionNameVersionAndDescription) {
    show_updates({{{"foo", "small", "1.2", "Does foo"}}, {{"bar", nullptr, "3", "Does bar"}}});
    EXPECT_THAT(cells(0), ElementsAre("update", "foo", "1.2", "Does foo"));
    EXPECT_EQ(cell(1, 1), "bar");
    EXPECT_EQ(cell(1, 2), "3");
    EXPECT_EQ(cell(1, 3), "Does bar");
}

TEST_F(UpdateCell, TellsTheActionOfTheFirstEntryInEveryRow) {
    show_updates({{{"a"}, 'I'}, {{"b"}, 'U'}, {{"c"}, 'D'}});
    for (int row = 0; row < 3; ++row) {
        EXPECT_EQ(cell(row, 0), "install");
    }
    show_updates({{{"a"}, 'D'}, {{"b"}, 'U'}});
    EXPECT_EQ(cell(0, 0), "delete");
    EXPECT_EQ(cell(1, 0), "delete");
    show_updates({{{"a"}, 'U'}, {{"b"}, 'I'}});
    EXPECT_EQ(cell(0, 0), "update");
    EXPECT_EQ(cell(1, 0), "update");
}

TEST_F(UpdateCell, OfAnotherActionIsEmpty) {
    for (const char action : {'N', 'u', ' ', '\0'}) {
        show_updates({{{"a"}, action}, {{"b"}, 'U'}});
        EXPECT_EQ(cell(0, 0), "");
        EXPECT_EQ(cell(1, 0), "");
    }
}

TEST_F(UpdateCell, IsCutAt255Characters) {
    const std::string text(300, 'x');
    show_updates({{{text, nullptr, text, text}}});
    for (const int column : {1, 2, 3}) {
        EXPECT_EQ(cell(0, column), text.substr(0, 255));
    }
}

TEST_F(UpdateCell, OutsideTheListIsEmpty) {
    EXPECT_EQ(cell(0, 0), "");
    EXPECT_EQ(cell(0, 1), "");
    show_updates({{{"a"}}});
    for (const int column : {0, 1}) {
        EXPECT_EQ(cell(1, column), "");
        EXPECT_EQ(cell(-1, column), "");
    }
    EXPECT_EQ(cell(0, 4), "");
    EXPECT_EQ(cell(0, -1), "");
}

// ---- The plan ----

TEST_F(UpdatePlan, ListsWhatHasANewerVersionInTheOrderOfTheInventory) {
    for (const char *name : {"zoo", "foo", "bar", "old"}) {
        installed(name);
        offers.push_back({{name, nullptr, "2.0", "Newer"}});
    }
    offers.back().package.version = "0.9";
    plan();
    EXPECT_EQ(num_vras, 3);
    EXPECT_THAT(updates_on_screen(), ElementsAre("bar", "foo", "zoo"));
    EXPECT_EQ(cell(0, 0), "update");
    EXPECT_EQ(cell(0, 2), "2.0");
    EXPECT_EQ(cell(0, 3), "Newer");
}

TEST_F(UpdatePlan, IsLogged) {
    installed("bar");
    installed("foo");
    offers = {{{"foo", nullptr, "2.0"}}};
    const LogCapture log;
    plan();
    EXPECT_THAT(log.at(LEVEL_DEBUG),
                IsSupersetOf({"no update for bar",
                              "Transaction for foo added to vra_list, which now contains 1 "
                              "entries"}));
}

TEST_F(UpdatePlan, HasANewDependencyBehindThePackageThatNeedsIt) {
    installed("foo");
    installed("goo");
    offers = {
        {{"foo", nullptr, "2.0"}, {"new", "goo"}}, {{"goo", nullptr, "2.0"}, {"new"}}, {{"new"}}};
    plan();
    // What both need stands there once; what is installed is no dependency to act on.
    EXPECT_THAT(updates_on_screen(), ElementsAre("foo", "new", "goo"));
    EXPECT_EQ(vra_list[1]->action, 'I');
    EXPECT_EQ(cell(1, 0), "update");
}

TEST_F(UpdatePlan, LeavesOutWhatNeedsWhatIsNotToBeHad) {
    installed("foo");
    offers = {{{"foo", nullptr, "2.0"}, {"nobody"}}};
    const LogCapture log;
    plan();
    EXPECT_EQ(num_vras, 0);
    EXPECT_EQ(vra_list, nullptr);
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "foo cannot be updated"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "no update for foo"));
}

TEST_F(UpdatePlan, OfNothingInstalledIsEmpty) {
    plan();
    EXPECT_EQ(num_vras, 0);
    EXPECT_EQ(vra_list, nullptr);
    EXPECT_EQ(asked_for_package, 0);
}

TEST_F(UpdatePlan, IsMadeAnewEachTime) {
    installed("foo");
    offers = {{{"foo", nullptr, "2.0"}}};
    plan();
    plan();
    EXPECT_THAT(updates_on_screen(), ElementsAre("foo"));
    offers.clear();
    plan();
    EXPECT_EQ(num_vras, 0);
    EXPECT_EQ(vra_list, nullptr);
}

TEST_F(UpdatePlan, IsAnsweredByTheCatalogueInMemory) {
    installed("foo");
    vrc_cache = new_list({{"foo", nullptr, "3.0"}});
    plan();
    EXPECT_EQ(asked_for_package, 0);
    EXPECT_EQ(cell(0, 2), "3.0");
    vrm_cache_free(vrc_cache);
    vrc_cache = nullptr;
}

TEST_F(UpdatePlan, ThatIsFreedTwiceIsEmpty) {
    show_updates({{{"a"}}});
    update_rows_free();
    EXPECT_EQ(num_vras, 0);
    EXPECT_EQ(vra_list, nullptr);
    update_rows_free();
}

TEST_F(UpdatePlan, OffersAnUpdateThatWasCutOffOnceMore) {
    for (const bool entered : {false, true}) {
        installed("foo");
        installed("zoo");
        offers = {{{"foo", nullptr, "2.0"}}, {{"zoo", nullptr, "2.0"}}};
        // As it is amidst the swap: between the renames of the entry, or behind them.
        const std::string dir = repo.in("installed/");
        fs::rename(dir + "foo", dir + ".foo.old");
        installed("foo", "2.0");
        if (entered) {
            std::ofstream(repo.in("fileindex/.foo.new")) << "/foo\n";
        } else {
            fs::rename(dir + "foo", dir + ".foo.new");
        }
        const LogCapture log;
        plan();
        EXPECT_THAT(updates_on_screen(), ElementsAre("zoo", "foo"));
        EXPECT_EQ(cell(1, 2), "2.0");
        EXPECT_TRUE(log.has(LEVEL_WARNING, "the update of foo was cut off while it was entered"));
        for (const char *left : {"foo", ".foo.old", ".foo.new", "zoo"}) {
            fs::remove_all(dir + left);
        }
    }
}

// ---- What is selected ----

TEST_F(UpdateChoose, GivesTheNamesInTheOrderOfTheRows) {
    show_updates({{{"c"}}, {{"a"}}, {{"d"}}, {{"b"}}});
    EXPECT_EQ(choose({3, 0, 2}), 3);
    EXPECT_THAT(chosen(), ElementsAre("c", "d", "b"));
}

TEST_F(UpdateChoose, GivesNullForNothingAndFreesTheChoiceBefore) {
    show_updates({{{"a"}}, {{"b"}}});
    EXPECT_EQ(choose({0, 1}), 2);
    EXPECT_EQ(choose({}), 0);
    EXPECT_EQ(sel, nullptr);
}

TEST_F(UpdateChoose, GivesNamesThatOutliveTheList) {
    show_updates({{{"a"}}, {{"b"}}});
    choose({0, 1});
    update_rows_free();
    EXPECT_THAT(chosen(), ElementsAre("a", "b"));
}

TEST_F(UpdateChoose, IsLogged) {
    show_updates({{{"a"}}, {{"b"}}});
    const LogCapture log;
    choose({1});
    EXPECT_THAT(log.at(LEVEL_INFO), ElementsAre("Somebody presssed the update_sel button"));
    EXPECT_THAT(log.at(LEVEL_DEBUG), ElementsAre("added 1 entry: <b>", "Row 1 is selected: b.",
                                                 "1 rows were selected."));
    log_say(LEVEL_INFO, "again");
    choose({});
    EXPECT_THAT(log.at(LEVEL_INFO), ElementsAre("Somebody presssed the update_sel button", "again",
                                                "Somebody presssed the update_sel button"));
    EXPECT_EQ(log.at(LEVEL_DEBUG).size(), 3U);
}

TEST(UpdateRows, AsksForUpdatesWithTheWordAnywhereInIt) {
    EXPECT_TRUE(asks_for_updates_only("fltk-vrm-update"));
    EXPECT_TRUE(asks_for_updates_only("/usr/bin/fltk-vrm-update"));
    EXPECT_TRUE(asks_for_updates_only("fltk-updater.old"));
    EXPECT_TRUE(asks_for_updates_only("/opt/my-update/fltk-vrm"));
}

TEST(UpdateRows, AsksForNothingWithoutTheWord) {
    EXPECT_FALSE(asks_for_updates_only("fltk-vrm"));
    EXPECT_FALSE(asks_for_updates_only("update"));
    EXPECT_FALSE(asks_for_updates_only("fltk-vrm-Update"));
    EXPECT_FALSE(asks_for_updates_only(""));
    EXPECT_FALSE(asks_for_updates_only(nullptr));
}
