#include "gui/model/package_rows.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <iostream>
#include <set>
#include <string>
#include <vector>

#include "gui/rows_kit.h"
#include "kit/log_capture.h"
#include "kit/scripted_user.h"
#include "kit/test_repo.h"
#include "repository/vrc.h"
#include "support/own.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string cell(int row, int column) {
    return cell_by(package_cell, row, column);
}

std::vector<std::string> cells(int row) {
    return {cell(row, 0), cell(row, 1), cell(row, 2), cell(row, 3)};
}

class Rows : public testing::Test {
 protected:
    ~Rows() override {
        package_rows_free();
        arr_free(sel);
    }

    int choose(const std::set<int> &selected) {
        return package_rows_choose([&](int row) { return selected.count(row) > 0; }, &sel);
    }
    std::vector<std::string> chosen() const {
        return {sel, sel + arr_count(sel)};
    }

    char **sel = nullptr;
};

using PackageCell = Rows;
using PackageRows = Rows;
using PackageRowsChoose = Rows;
using PackageRowsView = Rows;

}  // namespace

TEST(PackageColumns, AreFourWithTheirTitlesAndWidths) {
    ASSERT_EQ(package_columns.size(), 4U);
    EXPECT_STREQ(package_columns[0].title, "Name");
    EXPECT_STREQ(package_columns[1].title, "Variant");
    EXPECT_STREQ(package_columns[2].title, "Version");
    EXPECT_STREQ(package_columns[3].title, "Description");
    EXPECT_EQ(package_columns[0].width, 160);
    EXPECT_EQ(package_columns[1].width, 60);
    EXPECT_EQ(package_columns[2].width, 60);
    EXPECT_EQ(package_columns[3].width, 450);
    EXPECT_EQ(table_row_height, 20);
}

TEST_F(PackageCell, IsNameVariantVersionAndDescription) {
    show_rows({{"foo", "small", "1.2", "Does foo"}, {"bar", nullptr, "3", "Does bar"}});
    EXPECT_THAT(cells(0), ElementsAre("foo", "small", "1.2", "Does foo"));
    EXPECT_EQ(cell(1, 0), "bar");
    EXPECT_EQ(cell(1, 3), "Does bar");
}

TEST_F(PackageCell, OfWhatTheRecordLacksIsEmpty) {
    show_rows({{"foo"}});
    EXPECT_EQ(cell(0, 1), "");
    for (char **field : {&vri_list[0]->name, &vri_list[0]->version, &vri_list[0]->description}) {
        free(*field);
        *field = nullptr;
    }
    for (int column = 0; column < 4; ++column) {
        EXPECT_EQ(cell(0, column), "");
    }
}

TEST_F(PackageCell, OutsideTheListIsEmpty) {
    EXPECT_EQ(cell(0, 0), "");
    show_rows({{"foo"}});
    EXPECT_EQ(cell(-1, 0), "");
    EXPECT_EQ(cell(1, 0), "");
    EXPECT_EQ(cell(0, -1), "");
    EXPECT_EQ(cell(0, 4), "");
}

TEST_F(PackageCell, IsCutAt255Characters) {
    for (const size_t length : {254U, 255U, 256U, 257U, 100000U}) {
        const std::string text(length, 'a');
        show_rows({{text, text.c_str(), text, text}});
        for (int column = 0; column < 4; ++column) {
            EXPECT_EQ(cell(0, column), text.substr(0, 255)) << length << " in column " << column;
        }
    }
}

TEST_F(PackageCell, IsNotCutWithinACharacter) {
    const std::string smile = "\xF0\x9F\x98\x80";
    for (size_t before = 250; before <= 255; ++before) {
        const std::string start(before, 'a');
        show_rows({{start + smile + smile}});
        EXPECT_EQ(cell(0, 0), before <= 251 ? start + smile : start) << before;
    }
}

TEST_F(PackageCell, WithoutUtf8IsCutAtTheLimit) {
    const std::string bytes(300, '\xA7');
    show_rows({{bytes}});
    EXPECT_EQ(cell(0, 0), bytes.substr(0, 255));
    const std::string latin(300, '\xE4');
    show_rows({{latin}});
    EXPECT_EQ(cell(0, 0), latin.substr(0, 255));
}

TEST_F(PackageCell, IsOneLine) {
    show_rows({{"foo", nullptr, "1", "first\nsecond\n"}});
    EXPECT_EQ(cell(0, 3), "first second ");
}

TEST_F(PackageCell, TakesSignsOfFormatsAndLabelsAsTheyAre) {
    const std::string text = "100%s %n @-> a@b &x\ty";
    show_rows({{text, nullptr, text, text}});
    EXPECT_EQ(cell(0, 0), text);
    EXPECT_EQ(cell(0, 3), text);
}

// ---- What is installed ----

namespace {

class Installed : public Rows {
 protected:
    void install(const std::string &name, const std::string &description = "A package") {
        PackageSpec spec;
        spec.name = name;
        spec.description = description;
        repo_.install(spec);
    }
    void search(const char *typed) {
        package_rows_search_installed(repo_.handle(), "Package Name", typed);
    }

    TestRepo repo_;
};

}  // namespace

TEST_F(Installed, IsListedByName) {
    for (const char *name : {"zoo", "bar", "foo"}) {
        install(name);
    }
    package_rows_list_installed(repo_.handle());
    EXPECT_THAT(names_on_screen(), ElementsAre("bar", "foo", "zoo"));
    EXPECT_EQ(vri_list[3], nullptr);
}

TEST_F(Installed, NothingIsNoList) {
    show_rows({{"earlier"}});
    package_rows_list_installed(repo_.handle());
    EXPECT_EQ(vri_list, nullptr);
    EXPECT_EQ(sel_rows, 0);
}

TEST_F(Installed, IsFoundByNamePatternAndDescription) {
    install("foo", "Does a thing");
    install("foobar", "Does another thing");
    install("bar", "Does nothing");
    search("foo");
    EXPECT_THAT(names_on_screen(), ElementsAre("foo"));
    search("foo*");
    EXPECT_THAT(names_on_screen(), ElementsAre("foo", "foobar"));
    search("*thing");
    EXPECT_THAT(names_on_screen(), ElementsAre("bar", "foo", "foobar"));
    search("Does nothing");
    EXPECT_THAT(names_on_screen(), ElementsAre("bar"));
}

TEST_F(Installed, SearchWithoutAHitLeavesNoList) {
    install("foo");
    package_rows_list_installed(repo_.handle());
    search("other");
    EXPECT_EQ(vri_list, nullptr);
    EXPECT_EQ(sel_rows, 0);
    search("");
    EXPECT_EQ(vri_list, nullptr);
}

TEST_F(Installed, SearchIsLogged) {
    install("foo");
    const LogCapture log;
    search("f*");
    EXPECT_TRUE(log.has_line_end(LEVEL_DEBUG, "Add Callback for Package Name 'f*'"));
    EXPECT_TRUE(log.has_line_end(LEVEL_DEBUG, "Got 1 entries for f*"));
}

TEST_F(Installed, SearchTakesTypedPercentSignsAsTheyAre) {
    install("foo");
    const LogCapture log;
    search("%s%n%d");
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "Add Callback for Package Name '%s%n%d'\n"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "Got 0 entries for %s%n%d\n"));
}

// ---- The catalogue ----

namespace {

// What the backend has, and what it was asked for.
std::vector<Row> catalogue;
int answer_instead = 0;  // below 0: the backend's answer, whatever it has
struct Request {
    std::string name, description;
    bool variant, version, list_on_screen;
} request;

int fake_findpkg(void *, const char *name, const char *variant, const char *version, int,
                 s_ekva **filter, vri ***out) {
    request = {name ? name : "", "", variant != nullptr, version != nullptr, vri_list != nullptr};
    const own_array wanted(ekva_getvals(filter, "evrkDescription"));
    for (char **value = wanted.get(); value && *value; ++value) {
        request.description += *value;
    }
    if (answer_instead < 0) {
        return answer_instead;
    }
    if (catalogue.empty()) {
        return 0;
    }
    *out = new_list(catalogue);
    return static_cast<int>(catalogue.size());
}

class Catalogue : public Installed {
 protected:
    Catalogue() {
        pvrm_vrc_findpkg = fake_findpkg;
        catalogue.clear();
        answer_instead = 0;
    }
    ~Catalogue() override {
        pvrm_vrc_findpkg = nullptr;
        vrm_cache_free(vrc_cache);
        vrc_cache = nullptr;
    }
    void find(const char *typed) {
        package_rows_search_catalogue(repo_.handle(), &connection_, "Package Name", typed);
    }

 private:
    int connection_ = 0;
};

}  // namespace

TEST_F(Catalogue, IsAskedForTheTextAsNameAndAsDescription) {
    find("edit*");
    EXPECT_EQ(request.name, "edit*");
    EXPECT_EQ(request.description, "edit*");
    EXPECT_FALSE(request.variant);
    EXPECT_FALSE(request.version);
}

TEST_F(Catalogue, IsSearchedOnlyWhenTheEarlierListIsFreed) {
    show_rows({{"earlier"}});
    request.list_on_screen = true;
    find("foo");
    EXPECT_FALSE(request.list_on_screen);
}

TEST_F(Catalogue, GivesTheNewestOfEachVariantOfWhatIsNotInstalled) {
    install("bar");
    catalogue = {{"foo", nullptr, "1.9"},
                 {"foo", "small", "3"},
                 {"bar", nullptr, "2"},
                 {"foo", nullptr, "1.10"},
                 {"zoo", nullptr, "1"}};
    find("*");
    EXPECT_THAT(names_on_screen(), ElementsAre("foo", "foo", "zoo"));
    EXPECT_EQ(cell(0, 1), "small");
    EXPECT_EQ(cell(0, 2), "3");
    EXPECT_EQ(cell(1, 1), "");
    EXPECT_EQ(cell(1, 2), "1.10");
}

TEST_F(Catalogue, WithoutAHitLeavesNoList) {
    show_rows({{"earlier"}});
    find("nothing");
    EXPECT_EQ(vri_list, nullptr);
    EXPECT_EQ(sel_rows, 0);
}

TEST_F(Catalogue, WhoseHitsAreAllInstalledLeavesNoList) {
    install("foo");
    catalogue = {{"foo"}};
    find("foo");
    EXPECT_EQ(vri_list, nullptr);
    EXPECT_EQ(sel_rows, 0);
}

TEST_F(Catalogue, ThatFailsLeavesNoList) {
    answer_instead = -3;
    find("foo");
    EXPECT_EQ(vri_list, nullptr);
    EXPECT_EQ(sel_rows, 0);
}

TEST_F(Catalogue, SearchIsLogged) {
    catalogue = {{"foo"}, {"bar"}};
    const LogCapture log;
    find("*o");
    EXPECT_TRUE(log.has_line_end(LEVEL_DEBUG, "Add Callback for Package Name '*o'"));
    EXPECT_TRUE(log.has_line_end(LEVEL_DEBUG, "Got 2 entries for *o"));
}

TEST_F(Catalogue, Of60000PackagesIsSearchedInMemory) {
    catalogue = numbered_rows(60000);
    vrc_cache = new_list(catalogue);
    for (const char *typed : {"package00042", "package*", "*number 00*", "no such package"}) {
        const auto start = std::chrono::steady_clock::now();
        find(typed);
        const std::chrono::duration<double, std::milli> took =
            std::chrono::steady_clock::now() - start;
        std::cout << "search for " << typed << ": " << sel_rows << " rows in " << took.count()
                  << " ms\n";
        RecordProperty(std::string("ms for ") + typed, std::to_string(took.count()));
    }
    find("package*");
    EXPECT_EQ(sel_rows, 60000);
    find("*number 00*");
    EXPECT_EQ(sel_rows, 1000);
    find("package00042");
    EXPECT_EQ(sel_rows, 1);
}

// ---- What is selected ----

TEST_F(PackageRowsChoose, GivesTheNamesInTheOrderOfTheRows) {
    show_rows({{"c"}, {"a"}, {"d"}, {"b"}});
    EXPECT_EQ(choose({3, 0, 2}), 3);
    EXPECT_THAT(chosen(), ElementsAre("c", "d", "b"));
}

TEST_F(PackageRowsChoose, GivesNullForNothing) {
    show_rows({{"a"}, {"b"}});
    EXPECT_EQ(choose({}), 0);
    EXPECT_EQ(sel, nullptr);
}

TEST_F(PackageRowsChoose, GivesNullWithoutRows) {
    EXPECT_EQ(choose({0}), 0);
    EXPECT_EQ(sel, nullptr);
}

TEST_F(PackageRowsChoose, FreesTheChoiceBefore) {
    show_rows({{"a"}, {"b"}});
    choose({0, 1});
    EXPECT_EQ(choose({1}), 1);
    EXPECT_THAT(chosen(), ElementsAre("b"));
    EXPECT_EQ(choose({}), 0);
    EXPECT_EQ(sel, nullptr);
}

TEST_F(PackageRowsChoose, GivesNamesThatOutliveTheList) {
    show_rows({{"a"}, {"b"}});
    choose({0, 1});
    package_rows_free();
    EXPECT_THAT(chosen(), ElementsAre("a", "b"));
}

TEST_F(PackageRowsChoose, TakesAllOfALongList) {
    show_rows(numbered_rows(5000));
    EXPECT_EQ(package_rows_choose([](int) { return true; }, &sel), 5000);
    EXPECT_EQ(chosen(), names_on_screen());
}

TEST_F(PackageRowsChoose, IsLogged) {
    show_rows({{"a"}, {"b"}, {"c"}});
    const LogCapture log;
    choose({0, 2});
    EXPECT_THAT(log.at(LEVEL_INFO), ElementsAre("Somebody presssed the install button."));
    EXPECT_THAT(log.at(LEVEL_DEBUG),
                ElementsAre("added 1 entry: <a>", "Row 0 is selected: a.", "added 2 entry: <c>",
                            "Row 2 is selected: c.", "2 rows were selected."));
}

TEST_F(PackageRowsChoose, LogsNoCountForNothing) {
    show_rows({{"a"}});
    const LogCapture log;
    choose({});
    EXPECT_THAT(log.at(LEVEL_INFO), ElementsAre("Somebody presssed the install button."));
    EXPECT_THAT(log.at(LEVEL_DEBUG), IsEmpty());
}

TEST_F(PackageRows, CanBeFreedTwice) {
    show_rows({{"a"}});
    package_rows_free();
    EXPECT_EQ(vri_list, nullptr);
    EXPECT_EQ(sel_rows, 0);
    package_rows_free();
}

TEST_F(PackageRowsView, ShowsTheFirstSelectedRowAsInstalled) {
    ScriptedUser &user = ScriptedUser::fresh();
    const LogCapture log;
    show_rows({{"a"}, {"b", "small", "2.0", "Second"}, {"c"}});
    vri_list[1]->install_time = 1700000000;
    vri_list[1]->install_type = 'X';
    package_rows_view([](int row) { return row >= 1; });
    ASSERT_EQ(user.forms.size(), 1U);
    EXPECT_EQ(user.forms[0].heading, "Package details");
    EXPECT_THAT(user.forms[0].fields, testing::Contains(testing::Pair("Name", "b")));
    EXPECT_THAT(user.forms[0].fields,
                testing::Contains(testing::Pair("Installed as", "Explicit request")));
    EXPECT_THAT(log.at(LEVEL_DEBUG),
                ElementsAre("Somebody presssed the listloc button.",
                            "vrm_vrk_info_write: list_format = 6", "package b selected"));
    EXPECT_EQ(log.lines().size(), 3U);
}

TEST_F(PackageRowsView, WithNoneSelectedOnlyTellsTheLog) {
    ScriptedUser &user = ScriptedUser::fresh();
    const LogCapture log;
    show_rows({{"a"}});
    package_rows_view([](int) { return false; });
    package_rows_free();
    package_rows_view([](int) { return true; });
    EXPECT_THAT(user.forms, IsEmpty());
    EXPECT_THAT(log.at(LEVEL_DEBUG),
                ElementsAre("Somebody presssed the listloc button.", "No package selected",
                            "Somebody presssed the listloc button.", "No package selected"));
}
