#include "repository/choice.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "kit/log_capture.h"
#include "kit/test_repo.h"
#include "repository/vrc.h"
#include "support/arch.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct Package {
    std::string name;
    std::optional<std::string> variant;
    std::string version;
};
constexpr std::nullopt_t none = std::nullopt;

vri *new_record(const Package &package) {
    vri *const record = static_cast<vri *>(calloc(1, sizeof(vri)));
    record->name = strdup(package.name.c_str());
    record->variant = package.variant ? strdup(package.variant->c_str()) : nullptr;
    record->version = strdup(package.version.c_str());
    record->description = strdup("A package");
    record->arch = arch_any;
    return record;
}

vri **new_list(const std::vector<Package> &packages) {
    vri **const list = static_cast<vri **>(calloc(packages.size() + 1, sizeof(vri *)));
    for (size_t i = 0; i < packages.size(); ++i) {
        list[i] = new_record(packages[i]);
    }
    return list;
}

int choose(const char *variant, const std::vector<Package> &packages, const char *name = "foo") {
    return vrm_findone(name, variant, own_vri_list(new_list(packages)).get());
}

// The lines behind the first one, which tells what is asked for.
std::vector<std::string> lines_of(const char *variant, const std::vector<Package> &packages) {
    const LogCapture log;
    choose(variant, packages);
    std::vector<std::string> lines = log.at(LEVEL_DEBUG);
    lines.erase(lines.begin());
    return lines;
}

}  // namespace

TEST(Findone, OfAnEmptyListIsNothing) {
    EXPECT_EQ(choose(nullptr, {}), -1);
    EXPECT_EQ(vrm_findone("foo", nullptr, nullptr), -1);
}

TEST(Findone, LetsTwoFallbacksCancelEachOther) {
    EXPECT_EQ(choose(nullptr, {{"foo", "x", "1"}, {"foo", "y", "2"}}), -1);
}

TEST(Findone, StartsOverWithTheThirdFallback) {
    EXPECT_EQ(choose(nullptr, {{"foo", "x", "1"}, {"foo", "y", "2"}, {"foo", "z", "3"}}), 2);
    EXPECT_EQ(choose(nullptr, {{"foo", "x", "1"}, {"foo", "y", "2"}, {"foo", "x", "3"}}), 2);
    EXPECT_EQ(choose(nullptr,
                     {{"foo", "x", "1"}, {"foo", "y", "2"}, {"foo", "z", "3"}, {"foo", "y", "4"}}),
              -1);
}

TEST(Findone, PrefersTheDefaultVariantToANewerFallback) {
    EXPECT_EQ(choose(nullptr, {{"foo", "x", "9"}, {"foo", none, "1"}}), 1);
    EXPECT_EQ(choose(nullptr, {{"foo", none, "1"}, {"foo", "x", "9"}}), 0);
}

TEST(Findone, TakesTheOnlyOtherVariantForAFallback) {
    EXPECT_EQ(choose(nullptr, {{"foo", "x", "9"}}), 0);
    EXPECT_EQ(choose(nullptr, {{"foo", "x", "1"}, {"foo", "x", "3"}, {"foo", "x", "2"}}), 1);
}

TEST(Findone, HasNoFallbackForTheDefaultVariant) {
    EXPECT_EQ(choose("default", {{"foo", "x", "9"}}), -1);
    EXPECT_EQ(choose("", {{"foo", "x", "9"}}), -1);
    EXPECT_EQ(choose("default", {{"foo", "x", "9"}, {"foo", none, "1"}}), 1);
    EXPECT_EQ(choose("", {{"foo", "x", "9"}, {"foo", none, "1"}, {"foo", none, "2"}}), 2);
}

TEST(Findone, MeetsARequestedVariantExactly) {
    EXPECT_EQ(choose("x", {{"foo", none, "9"}, {"foo", "x", "1"}}), 1);
    EXPECT_EQ(choose("x", {{"foo", none, "9"}, {"foo", "X", "1"}}), -1);
    EXPECT_EQ(choose("x", {{"foo", "x", "1"}, {"foo", "y", "9"}, {"foo", "x", "2"}}), 2);
}

TEST(Findone, TakesTheFirstOfEqualVersions) {
    EXPECT_EQ(choose(nullptr, {{"foo", none, "1"}, {"foo", none, "1"}}), 0);
    EXPECT_EQ(choose(nullptr, {{"foo", "x", "1"}, {"foo", "x", "1"}}), 0);
    EXPECT_EQ(choose("x", {{"foo", "x", "1"}, {"foo", "x", "1"}}), 0);
}

TEST(Findone, OrdersVersionsByStrverscmp) {
    EXPECT_EQ(choose(nullptr, {{"foo", none, "1.9"}, {"foo", none, "1.10"}}), 1);
    EXPECT_EQ(choose(nullptr, {{"foo", none, "1.0"}, {"foo", none, "1.00"}}), 0);
    EXPECT_EQ(choose(nullptr, {{"foo", none, "1.00"}, {"foo", none, "1.0"}}), 1);
}

TEST(Findone, CountsOtherNamesButNeverChoosesThem) {
    EXPECT_EQ(choose(nullptr, {{"bar", none, "9"}, {"foo", none, "1"}, {"Foo", none, "2"}}), 1);
    EXPECT_EQ(choose(nullptr, {{"bar", none, "9"}}), -1);
    EXPECT_EQ(choose(nullptr, {{"foo", none, "1"}}, "fo*"), -1);
}

// Two fallbacks leave their trace: the default record that follows them is replaced by the next
// one, an older one too, and only then versions count.
TEST(Findone, ReplacesADefaultRecordThatFollowedTwoFallbacks) {
    EXPECT_EQ(
        choose(nullptr,
               {{"foo", "x", "1"}, {"foo", "y", "2"}, {"foo", none, "9"}, {"foo", none, "3"}}),
        3);
    EXPECT_EQ(choose(nullptr, {{"foo", "x", "1"},
                               {"foo", "y", "2"},
                               {"foo", none, "9"},
                               {"foo", none, "3"},
                               {"foo", none, "2"}}),
              3);
}

TEST(FindoneLog, TellsWhatIsAskedFor) {
    const LogCapture log;
    choose(nullptr, {});
    choose("default", {});
    choose("", {});
    choose("x", {});
    EXPECT_THAT(log.at(LEVEL_DEBUG),
                ElementsAre("vrm_findone: Checking for foo (no variant specified).",
                            "vrm_findone: Checking for foo (default variant specified).",
                            "vrm_findone: Checking for foo (default variant specified).",
                            "vrm_findone: Checking for foo (x variant specified)."));
}

TEST(FindoneLog, PassesOverOtherNamesWithoutAWord) {
    EXPECT_THAT(lines_of(nullptr, {{"bar", none, "1"}, {"bar", "x", "1"}}), IsEmpty());
}

TEST(FindoneLog, TellsOfEachRecordForAWantedVariant) {
    EXPECT_THAT(
        lines_of("x", {{"foo", none, "1"},
                       {"foo", "y", "1"},
                       {"foo", "x", "2"},
                       {"foo", none, "3"},
                       {"foo", "y", "4"},
                       {"foo", "x", "5"},
                       {"foo", "x", "5"},
                       {"foo", "x", "1"}}),
        ElementsAre(
            "vrm_findone: Initiallly skipping foo_any_1 due to variant mismatch",
            "vrm_findone: Initiallly skipping foo_y_any_1 due to variant mismatch",
            "vrm_findone: Initiallly selecting x variant for foo_x_any_2",
            "vrm_findone: Skipping foo_any_3 of default variant, as foo_x_any_2 was in the "
            "relevant x variant",
            "vrm_findone: Skipping foo_y_any_4 of y variant, as foo_x_any_2 was in the relevant x "
            "variant",
            "vrm_findone: Replacing foo_x_any_5 with foo_x_any_2 in the x variant, as this is "
            "newer",
            "vrm_findone: Keeping foo_x_any_5 instead of foo_x_any_5 in the x variant, first is "
            "first",
            "vrm_findone: Keeping foo_x_any_5 instead of foo_x_any_1 in the x variant, as this is "
            "older"));
}

TEST(FindoneLog, TellsOfEachRecordForTheDefaultVariant) {
    EXPECT_THAT(
        lines_of("default", {{"foo", "x", "1"},
                             {"foo", none, "2"},
                             {"foo", none, "3"},
                             {"foo", none, "3"},
                             {"foo", none, "1"},
                             {"foo", "x", "9"}}),
        ElementsAre(
            "vrm_findone: Initiallly skipping foo_x_any_1 due to variant mismatch",
            "vrm_findone: Initiallly selecting default variant for foo_any_2",
            "vrm_findone: Replacing foo_any_3 with foo_any_2 in the default variant, as this is "
            "newer",
            "vrm_findone: Keeping foo_any_3 instead of foo_any_3 in the default variant, first is "
            "first",
            "vrm_findone: Keeping foo_any_3 instead of foo_any_1 in the default variant, as this "
            "is older",
            "vrm_findone: Keeping foo_any_3 instead of foo_x_any_9 of variant x, no fallback "
            "allowed (anymore)"));
}

TEST(FindoneLog, TellsOfEachRecordForAFallback) {
    EXPECT_THAT(
        lines_of(nullptr, {{"foo", "x", "1"},
                           {"foo", "x", "2"},
                           {"foo", "x", "2"},
                           {"foo", "x", "1"},
                           {"foo", none, "1"},
                           {"foo", "x", "9"}}),
        ElementsAre(
            "vrm_findone: Initiallly selecting fallback variant x for foo_x_any_1",
            "vrm_findone: Replacing foo_x_any_2 with foo_x_any_1 in the fallback variant x, as "
            "this is newer",
            "vrm_findone: Keeping foo_x_any_2 instead of foo_x_any_2 in the fallback variant x, "
            "first is first",
            "vrm_findone: Keeping foo_x_any_2 instead of foo_x_any_1 in the fallback variant x, "
            "as this is older",
            "vrm_findone: Default variant found: foo_any_1, overriding fallback variant x: "
            "foo_x_any_2",
            "vrm_findone: Keeping foo_any_1 instead of foo_x_any_9 of variant x, no fallback "
            "allowed (anymore)"));
}

TEST(FindoneLog, TellsOfTwoFallbacksAndWhatFollows) {
    EXPECT_THAT(
        lines_of(nullptr, {{"foo", "x", "1"}, {"foo", "y", "2"}, {"foo", "z", "3"}}),
        ElementsAre("vrm_findone: Initiallly selecting fallback variant x for foo_x_any_1",
                    "vrm_findone: Skipping both foo_x_any_1 and foo_y_any_2 and set no fallback "
                    "allowed, as only one fallback can exist",
                    "vrm_findone: Initiallly selecting fallback variant z for foo_z_any_3"));
}

TEST(FindoneLog, StillNamesTheFallbackWhenADefaultRecordFollowedTwoOfThem) {
    EXPECT_THAT(
        lines_of(nullptr, {{"foo", "x", "1"},
                           {"foo", "y", "2"},
                           {"foo", none, "9"},
                           {"foo", "x", "9"},
                           {"foo", none, "3"}}),
        ElementsAre("vrm_findone: Initiallly selecting fallback variant x for foo_x_any_1",
                    "vrm_findone: Skipping both foo_x_any_1 and foo_y_any_2 and set no fallback "
                    "allowed, as only one fallback can exist",
                    "vrm_findone: Initiallly selecting default variant for foo_any_9",
                    "vrm_findone: Keeping foo_any_9 instead of foo_x_any_9 of variant x, no "
                    "fallback allowed (anymore)",
                    "vrm_findone: Default variant found: foo_any_3, overriding fallback variant x: "
                    "foo_any_9"));
}

namespace {

// What the backend has, and what it was asked for.
std::vector<Package> catalogue;
std::vector<std::string> request;
int answer_instead = 0;  // below 0: the backend's answer, whatever it has

std::string text_of(const char *text) {
    return text ? text : "(null)";
}

int fake_findpkg(void *, const char *name, const char *variant, const char *version, int five,
                 s_ekva **filter, vri ***out) {
    request = {text_of(name), text_of(variant), text_of(version), std::to_string(five),
               filter ? "filter" : "no filter"};
    if (answer_instead < 0) {
        return answer_instead;
    }
    if (!catalogue.empty()) {
        *out = new_list(catalogue);
    }
    return static_cast<int>(catalogue.size());
}

std::vector<std::string> ids_of(vri *const *list) {
    std::vector<std::string> ids;
    for (size_t i = 0; list && list[i]; ++i) {
        ids.emplace_back(vrk_puname(list[i]));
    }
    return ids;
}

class Catalogue : public testing::Test {
 protected:
    Catalogue() : before_(pvrm_vrc_findpkg) {
        pvrm_vrc_findpkg = fake_findpkg;
        catalogue.clear();
        request.clear();
        answer_instead = 0;
    }
    ~Catalogue() override {
        pvrm_vrc_findpkg = before_;
    }

    void install(const std::string &name) {
        PackageSpec spec;
        spec.name = name;
        repo_.install(spec);
    }
    int find_new(int newest, own_vri_list *out, s_ekva **filter = nullptr) {
        vri **found = nullptr;
        const int count =
            vrm_findpkg_new(repo_.handle(), &connection_, "f*", nullptr, filter, newest, &found);
        out->reset(found);
        return count;
    }
    own_vri find_one(const char *variant, const char *version = nullptr) {
        return own_vri(vrm_findone_vrc(repo_.handle(), "foo", variant, version, &connection_));
    }

 private:
    TestRepo repo_;
    int connection_ = 0;
    vrc_findpkg_function before_;
};

using FindpkgNew = Catalogue;
using FindoneVrc = Catalogue;

// The lines of these functions among all.
std::vector<std::string> choice_lines(const LogCapture &log) {
    std::vector<std::string> lines;
    for (const std::string &line : log.at(LEVEL_DEBUG)) {
        if (line.rfind("vrm_findone:", 0) == 0 || line.rfind("vrm_findpkg_new:", 0) == 0) {
            lines.push_back(line);
        }
    }
    return lines;
}

}  // namespace

TEST_F(FindpkgNew, AsksForAnyVersion) {
    own_vri_list out;
    const own_ekva filter(ekva_new(1, 4));
    EXPECT_EQ(find_new(0, &out, filter.get()), 0);
    EXPECT_THAT(request, ElementsAre("f*", "(null)", "(null)", "5", "filter"));
}

TEST_F(FindpkgNew, LeavesTheResultAloneWhenNothingMatches) {
    vri *mark = nullptr;
    vri **out = &mark;
    int connection = 0;
    EXPECT_EQ(vrm_findpkg_new(nullptr, &connection, "f", nullptr, nullptr, 1, &out), 0);
    EXPECT_EQ(out, &mark);
    answer_instead = -3;
    EXPECT_EQ(vrm_findpkg_new(nullptr, &connection, "f", nullptr, nullptr, 1, &out), -3);
    EXPECT_EQ(out, &mark);
}

TEST_F(FindpkgNew, LeavesOutWhatIsInstalled) {
    install("bar");
    catalogue = {{"foo", none, "1"}, {"bar", none, "2"}, {"foo", none, "2"}};
    const LogCapture log;
    own_vri_list out;
    EXPECT_EQ(find_new(0, &out), 2);
    EXPECT_THAT(ids_of(out.get()), ElementsAre("foo_any_1", "foo_any_2"));
    EXPECT_THAT(choice_lines(log), ElementsAre("vrm_findpkg_new: 0003 entries found in catalogue",
                                               "vrm_findpkg_new: foo not installed, copying",
                                               "vrm_findpkg_new: bar already installed, skipping",
                                               "vrm_findpkg_new: foo not installed, copying"));
}

TEST_F(FindpkgNew, GivesAnEmptyArrayWhenAllIsInstalled) {
    install("foo");
    install("bar");
    catalogue = {{"foo", none, "1"}, {"bar", "x", "2"}};
    own_vri_list out;
    EXPECT_EQ(find_new(1, &out), 0);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(out.get()[0], nullptr);
}

TEST_F(FindpkgNew, KeepsTheNewestOfEachVariant) {
    catalogue = {{"foo", none, "1.9"},  {"foo", "x", "1"},     {"bar", none, "1"},
                 {"foo", "x", "3"},     {"foo", none, "1.10"}, {"foo", "y", "2"},
                 {"foo", none, "1.10"}, {"foo", "x", "2"}};
    own_vri_list out;
    EXPECT_EQ(find_new(1, &out), 4);
    EXPECT_THAT(ids_of(out.get()),
                ElementsAre("bar_any_1", "foo_x_any_3", "foo_any_1.10", "foo_y_any_2"));
}

TEST_F(FindpkgNew, TellsOfEachHit) {
    catalogue = {{"foo", none, "1"}, {"foo", none, "2"}};
    const LogCapture log;
    own_vri_list out;
    EXPECT_EQ(find_new(1, &out), 1);
    EXPECT_THAT(
        choice_lines(log),
        ElementsAre(
            "vrm_findpkg_new: 0002 entries found in catalogue",
            "vrm_findone: Checking for foo (no variant specified).",
            "vrm_findone: Initiallly selecting default variant for foo_any_1",
            "vrm_findone: Replacing foo_any_2 with foo_any_1 in the default variant, as this is "
            "newer",
            "vrm_findpkg_new: foo not installed, but foo_any_1 is older than the newest version "
            "foo_any_2, skipping",
            "vrm_findone: Checking for foo (no variant specified).",
            "vrm_findone: Initiallly selecting default variant for foo_any_1",
            "vrm_findone: Replacing foo_any_2 with foo_any_1 in the default variant, as this is "
            "newer",
            "vrm_findpkg_new: foo not installed and foo_any_2 is the newest version, copying"));
}

// The choice for a hit is by definition that among all hits, one search for each.
TEST_F(FindpkgNew, ChoosesAsFromTheWholeList) {
    const std::vector<std::optional<std::string>> variants = {none, none, "x", "y", "", "default"};
    std::mt19937 random(1);
    for (int round = 0; round < 300; ++round) {
        catalogue.clear();
        for (size_t i = 0, size = 1 + random() % 12; i < size; ++i) {
            catalogue.push_back({random() % 3 == 0 ? "bar" : "foo", variants[random() % 6],
                                 std::to_string(random() % 5)});
        }
        const own_vri_list all(new_list(catalogue));
        std::vector<std::string> expected;
        std::vector<std::string> expected_lines;
        {
            const LogCapture log;
            for (int i = 0; all.get()[i]; ++i) {
                const vri *const hit = all.get()[i];
                if (vrm_findone(hit->name, hit->variant, all.get()) == i) {
                    expected.emplace_back(vrk_puname(hit));
                }
            }
            expected_lines = choice_lines(log);
        }

        own_vri_list out;
        EXPECT_EQ(find_new(1, &out), static_cast<int>(expected.size()));
        EXPECT_EQ(ids_of(out.get()), expected);

        const LogCapture log;
        EXPECT_EQ(find_new(1, &out), static_cast<int>(expected.size()));
        EXPECT_EQ(ids_of(out.get()), expected);
        std::vector<std::string> lines = choice_lines(log);
        std::erase_if(
            lines, [](const std::string &line) { return line.rfind("vrm_findpkg_new:", 0) == 0; });
        EXPECT_EQ(lines, expected_lines);
    }
}

TEST_F(FindpkgNew, SearchesTensOfThousandsOfHits) {
    for (int i = 0; i < 20000; ++i) {
        catalogue.push_back({"foo", "variant" + std::to_string(i % 10000), std::to_string(i)});
        catalogue.push_back({"bar", none, std::to_string(i)});
    }
    own_vri_list out;
    EXPECT_EQ(find_new(1, &out), 10001);
    EXPECT_STREQ(out.get()[0]->version, "10000");
    EXPECT_STREQ(out.get()[10000]->name, "bar");
    EXPECT_STREQ(out.get()[10000]->version, "19999");
}

TEST_F(FindoneVrc, PassesTheRequestOn) {
    find_one("x", "1.2");
    EXPECT_THAT(request, ElementsAre("foo", "x", "1.2", "5", "no filter"));
}

TEST_F(FindoneVrc, HandsOutTheBestRecord) {
    catalogue = {{"foo", none, "1"}, {"foo", none, "3"}, {"foo", "x", "9"}, {"foo", none, "2"}};
    const LogCapture log;
    const own_vri found = find_one(nullptr);
    ASSERT_NE(found, nullptr);
    EXPECT_STREQ(vrk_puname(found.get()), "foo_any_3");
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "Number of packages returned for foo: 4"));
}

TEST_F(FindoneVrc, FindsNothingInAnEmptyAnswer) {
    const LogCapture log;
    EXPECT_EQ(find_one(nullptr), nullptr);
    EXPECT_THAT(log.at(LEVEL_DEBUG), ElementsAre("Number of packages returned for foo: 0"));
}

TEST_F(FindoneVrc, FindsNothingWhenNothingIsChosen) {
    catalogue = {{"foo", "x", "1"}, {"foo", "y", "1"}};
    EXPECT_EQ(find_one(nullptr), nullptr);
    EXPECT_EQ(find_one("default"), nullptr);
}

TEST_F(FindoneVrc, FindsNothingWithoutAConnection) {
    const LogCapture log;
    EXPECT_EQ(vrm_findone_vrc(nullptr, "foo", nullptr, nullptr, nullptr), nullptr);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrc-http: Not connected"));
}
