#include "transaction/plan_update.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "kit/failing_memory.h"
#include "kit/log_capture.h"
#include "kit/scripted_user.h"
#include "kit/test_repo.h"
#include "repository/vrc.h"
#include "support/arch.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

struct Offer {
    std::string name;
    std::string version = "1.0";
    std::string variant = {};
    std::vector<std::string> deps = {};
    int32_t arch = arch_any;
    uint64_t filesize = 0;
    uint64_t datasize = 0;
    bool empty_list = false;
};

std::vector<Offer> catalogue;

// As a backend: all versions and variants of a name, or only those of a version.
int fake_findpkg(void *, const char *name, const char *, const char *version, int, s_ekva **,
                 vri ***out) {
    std::vector<vri *> found;
    for (const Offer &offer : catalogue) {
        if (offer.name != name || (version && offer.version != version)) {
            continue;
        }
        auto *record = static_cast<vri *>(calloc(1, sizeof(vri)));
        record->name = strdup(name);
        record->version = strdup(offer.version.c_str());
        record->variant = offer.variant.empty() ? nullptr : strdup(offer.variant.c_str());
        record->description = strdup("In the catalogue");
        record->arch = offer.arch;
        record->filesize = offer.filesize;
        record->datasize = offer.datasize;
        if (!offer.deps.empty() || offer.empty_list) {
            record->deps = static_cast<char **>(calloc(offer.deps.size() + 1, sizeof(char *)));
            for (size_t i = 0; i < offer.deps.size(); i++) {
                record->deps[i] = strdup(offer.deps[i].c_str());
            }
        }
        found.push_back(record);
    }
    if (found.empty()) {
        return 0;
    }
    *out = static_cast<vri **>(calloc(found.size() + 1, sizeof(vri *)));
    std::copy(found.begin(), found.end(), *out);
    return static_cast<int>(found.size());
}

class PlanUpdate : public testing::Test {
 protected:
    PlanUpdate() {
        catalogue.clear();
        vrc_cache = nullptr;
        pvrm_vrc_findpkg = fake_findpkg;
    }

    void installed(const std::string &name, const std::string &version = "1.0",
                   const std::string &variant = "") {
        PackageSpec spec;
        spec.name = name;
        spec.version = version;
        spec.variant = variant;
        repo.install(spec);
    }

    std::string file(const std::string &name, const std::string &version) {
        PackageSpec spec;
        spec.name = name;
        spec.version = version;
        const std::string path = files / (name + "-" + version + ".vrk");
        make_package(spec, path);
        return path;
    }

    own_vrt plan(const std::string &name, const char *variant = nullptr,
                 const char *version = nullptr) {
        vrt *const untouched = reinterpret_cast<vrt *>(this);
        vrt *out = untouched;
        own_vrt made(vrm_pre_update(repo.handle(), &catalogue, name.c_str(), variant, version,
                                    nullptr, &out));
        EXPECT_EQ(out, made ? made.get() : untouched);
        return made;
    }

    bool debug(const std::string &text) {
        return log.has(LEVEL_DEBUG, text);
    }

    TestRepo repo;
    TempDir files;
    LogCapture log;
};

}  // namespace

TEST_F(PlanUpdate, NewerVersionGivesATransaction) {
    installed("foo");
    catalogue = {{.name = "foo", .version = "2.0", .filesize = 10, .datasize = 20}};
    const own_vrt made = plan("foo");
    ASSERT_TRUE(made);
    EXPECT_STREQ(made->name, "foo");
    EXPECT_EQ(made->action, 'U');
    EXPECT_EQ(made->source, 'R');
    EXPECT_EQ(made->mark, 'N');
    EXPECT_STREQ(made->info->version, "2.0");
    EXPECT_EQ(made->num_deps, 0);
    EXPECT_EQ(made->deps, nullptr);
    EXPECT_EQ(made->tot_file_size, 10u);
    EXPECT_EQ(made->tot_data_size, 20u);
    EXPECT_STREQ(made->scripts[0]->val, nullptr);
    EXPECT_STREQ(made->scripts[0]->key, "#EKVA_10:1:1");
    EXPECT_STREQ(made->hookcmds[0]->key, "#EKVA_10:1:3");
    EXPECT_TRUE(debug("installed version: foo_any_1.0, available version: foo_any_2.0"));
    EXPECT_TRUE(debug("Ok, we'll try to upgrade foo_any_1.0 to foo_any_2.0"));
}

TEST_F(PlanUpdate, EqualFullNamesGiveNothingToDo) {
    installed("foo");
    catalogue = {{.name = "foo"}};
    EXPECT_FALSE(plan("foo"));
    EXPECT_TRUE(debug("Nothing to do, keeping foo_any_1.0"));
    const std::string same = file("foo", "1.0");
    log.clear();
    EXPECT_FALSE(plan(same));
    EXPECT_TRUE(debug("Nothing to do, keeping foo_any_1.0"));
}

TEST_F(PlanUpdate, OlderVersionInTheCatalogueGivesNothingToDo) {
    installed("foo", "2.0");
    catalogue = {{.name = "foo", .version = "1.0"}};
    EXPECT_FALSE(plan("foo"));
    EXPECT_TRUE(debug("Nothing to do, keeping foo_any_2.0"));
}

TEST_F(PlanUpdate, VersionsCompareAsNumbersWhereTheyHoldSome) {
    installed("foo", "1.9");
    catalogue = {{.name = "foo", .version = "1.10"}};
    EXPECT_TRUE(plan("foo"));
}

TEST_F(PlanUpdate, SameVersionForAnotherArchitectureIsNotNewer) {
    installed("foo", "1.0");
    catalogue = {{.name = "foo", .version = "1.0", .arch = repo.handle()->arch}};
    EXPECT_FALSE(plan("foo")) << "first is first, and that is the installed one";
}

TEST_F(PlanUpdate, VersionThatIsAskedForMayBeOlderOrNewer) {
    installed("foo", "2.0");
    catalogue = {{.name = "foo", .version = "1.0"}, {.name = "foo", .version = "3.0"}};
    own_vrt made = plan("foo", nullptr, "1.0");
    ASSERT_TRUE(made);
    EXPECT_STREQ(made->info->version, "1.0");
    made = plan("foo", nullptr, "3.0");
    ASSERT_TRUE(made);
    EXPECT_STREQ(made->info->version, "3.0");
    EXPECT_FALSE(plan("foo", nullptr, "4.0"));
    EXPECT_TRUE(debug("foo, variant default was not found in the package catalogue"));
}

TEST_F(PlanUpdate, VersionThatIsAskedForMayBeTheInstalledOne) {
    installed("foo");
    catalogue = {{.name = "foo"}};
    EXPECT_TRUE(plan("foo", nullptr, "1.0"));
}

TEST_F(PlanUpdate, PackageFileMayBeOlder) {
    installed("foo", "2.0");
    const std::string older = file("foo", "1.0");
    const own_vrt made = plan(older);
    ASSERT_TRUE(made);
    EXPECT_EQ(made->source, 'L');
    EXPECT_EQ(made->name, older);
    EXPECT_STREQ(made->info->version, "1.0");
    const int order = strverscmp("1.0", "2.0");
    EXPECT_TRUE(
        debug("check of installed version 1.0 to new version 2.0 : " + std::to_string(order)));
    for (const std::string &line : log.at(LEVEL_DEBUG)) {
        EXPECT_THAT(line, Not(testing::HasSubstr("is newer than")));
    }
}

TEST_F(PlanUpdate, NewerPackageFileIsToldAsSuch) {
    installed("foo", "1.0");
    ASSERT_TRUE(plan(file("foo", "2.0")));
    EXPECT_TRUE(debug("check of installed version 2.0 to new version 1.0 : " +
                      std::to_string(strverscmp("2.0", "1.0"))));
    EXPECT_TRUE(debug("foo_any_2.0 is newer than installed version: foo 1.0"));
}

TEST_F(PlanUpdate, PackageFileOfTheInstalledVersionIsTakenWhenAVersionWasAskedFor) {
    installed("foo", "1.0");
    EXPECT_TRUE(plan(file("foo", "1.0"), nullptr, "1.0"));
    EXPECT_TRUE(debug("check of installed version 1.0 to new version 1.0 : 0"));
}

TEST_F(PlanUpdate, WhatIsNotInstalledIsTold) {
    EXPECT_FALSE(plan(file("foo", "1.0")));
    EXPECT_TRUE(log.has(LEVEL_INFO, "foo is not installed"));
    EXPECT_FALSE(plan("bar"));
    EXPECT_TRUE(log.has(LEVEL_INFO, "bar is not installed"));
}

TEST_F(PlanUpdate, BadPackageFileIsTold) {
    const std::string path = files.write("bad.vrk", "no package");
    EXPECT_FALSE(plan(path));
    EXPECT_TRUE(log.has(LEVEL_INFO, path + " is not a valid package file"));
}

TEST_F(PlanUpdate, PackageWithoutVariantStaysInTheDefaultOne) {
    installed("foo");
    catalogue = {{.name = "foo", .version = "2.0", .variant = "lite"}};
    EXPECT_FALSE(plan("foo"));
    EXPECT_TRUE(debug("foo, variant default was not found in the package catalogue"));
}

TEST_F(PlanUpdate, PackageStaysInItsVariant) {
    installed("foo", "1.0", "lite");
    catalogue = {{.name = "foo", .version = "3.0"},
                 {.name = "foo", .version = "2.0", .variant = "lite"}};
    const own_vrt made = plan("foo");
    ASSERT_TRUE(made);
    EXPECT_STREQ(made->info->version, "2.0");
    EXPECT_TRUE(debug("Ok, we'll try to upgrade foo_lite_any_1.0 to foo_lite_any_2.0"));
}

TEST_F(PlanUpdate, AnotherVariantIsTakenWhenItIsAskedFor) {
    installed("foo", "2.0");
    catalogue = {{.name = "foo", .version = "1.0", .variant = "lite"}};
    const own_vrt made = plan("foo", "lite");
    ASSERT_TRUE(made);
    EXPECT_STREQ(made->info->variant, "lite");
}

TEST_F(PlanUpdate, DependencyThatNobodyProvidesEndsIt) {
    installed("foo");
    installed("bar");
    catalogue = {{.name = "foo", .version = "2.0", .deps = {"bar", "none"}}};
    EXPECT_FALSE(plan("foo"));
    EXPECT_TRUE(debug("foo cannot be updated"));
    EXPECT_TRUE(debug("found dep bar for cand foo, status: I"));
    EXPECT_FALSE(debug("found dep none for cand foo, status: U"));
    EXPECT_TRUE(log.has(LEVEL_INFO, "vrm_chk_install: Failed to resovle dependency none for foo"));
}

TEST_F(PlanUpdate, ForeignArchitectureIsLoggedAndPlannedAllTheSame) {
    installed("foo");
    catalogue = {{.name = "foo", .version = "2.0", .deps = {"bar"}, .arch = arch_any + 1}};
    if (catalogue[0].arch == repo.handle()->arch) {
        catalogue[0].arch++;
    }
    const own_vrt made = plan("foo");
    ASSERT_TRUE(made);
    EXPECT_TRUE(debug("foo cannot be updated"));
    EXPECT_EQ(made->deps, nullptr);
    EXPECT_EQ(made->num_deps, 0);
}

TEST_F(PlanUpdate, DependenciesStayAsTheWalkFoundThem) {
    installed("foo");
    installed("here");
    catalogue = {
        {.name = "foo", .version = "2.0", .deps = {"a", "here", "b"}, .filesize = 1, .datasize = 2},
        {.name = "a", .deps = {"c"}, .filesize = 10, .datasize = 20},
        {.name = "b", .deps = {"c"}, .filesize = 100, .datasize = 200},
        {.name = "c", .filesize = 1000, .datasize = 2000}};
    const own_vrt made = plan("foo");
    ASSERT_TRUE(made);
    std::vector<std::string> deps;
    uint64_t here_file = 0, here_data = 0;
    for (vrd *const *dep = made->deps; *dep; dep++) {
        deps.push_back(std::string((*dep)->name) + "<" + (*dep)->cand + " " + (*dep)->status +
                       (*dep)->action);
        if ((*dep)->status == 'I') {
            here_file = (*dep)->info->filesize;
            here_data = (*dep)->info->datasize;
        }
    }
    EXPECT_THAT(deps, ElementsAre("a<foo RI", "c<a RI", "here<foo IN", "b<foo RI", "c<b RI"));
    EXPECT_EQ(made->num_deps, 5);
    EXPECT_EQ(made->tot_file_size, 2111u + here_file) << "repeats and what is installed count";
    EXPECT_EQ(made->tot_data_size, 4222u + here_data);
    EXPECT_TRUE(debug("found dep here for cand foo, status: I"));
    EXPECT_TRUE(debug("found dep c for cand b, status: R"));
    EXPECT_TRUE(debug("Adding 1000 to tot_file_size"));
    EXPECT_TRUE(debug("Adding 2000 to tot_data_size"));
    EXPECT_STREQ(made->scripts[0]->key, "#EKVA_10:6:1");
    EXPECT_STREQ(made->hookcmds[0]->key, "#EKVA_10:6:3");
}

TEST_F(PlanUpdate, WithoutRoomForTheDependenciesThereIsNoPlan) {
    installed("foo");
    catalogue = {{.name = "foo", .version = "2.0", .deps = {"a"}}, {.name = "a"}};
    growing_fails = true;
    EXPECT_FALSE(plan("foo"));
    growing_fails = false;
    EXPECT_TRUE(plan("foo"));
}

TEST_F(PlanUpdate, EmptyDependencyListGivesNoDependencies) {
    installed("foo");
    catalogue = {{.name = "foo", .version = "2.0", .empty_list = true}};
    const own_vrt made = plan("foo");
    ASSERT_TRUE(made);
    EXPECT_EQ(made->deps, nullptr);
}

TEST_F(PlanUpdate, OutlookTellsWhyThereIsNoPlan) {
    installed("foo");
    const auto outlook = [this](const std::string &name, const char *variant = nullptr,
                                const char *version = nullptr) {
        return vrm_update_outlook(repo.handle(), &catalogue, name.c_str(), variant, version);
    };
    EXPECT_EQ(outlook("bar"), UPDATE_NOT_INSTALLED);
    EXPECT_TRUE(log.has(LEVEL_INFO, "bar is not installed"));
    EXPECT_EQ(outlook("foo"), UPDATE_NOT_OFFERED);
    EXPECT_TRUE(debug("foo, variant default was not found in the package catalogue"));
    catalogue = {{.name = "foo", .version = "0.9"}};
    EXPECT_EQ(outlook("foo"), UPDATE_NOT_NEEDED);
    EXPECT_TRUE(debug("Nothing to do, keeping foo_any_1.0"));
    EXPECT_EQ(outlook("foo", nullptr, "0.9"), UPDATE_WANTED);
    EXPECT_EQ(outlook("foo", nullptr, "0.8"), UPDATE_NOT_OFFERED);
    // One that can't be had doesn't make it any less wanted.
    catalogue = {{.name = "foo", .version = "2.0", .deps = {"nowhere"}}};
    EXPECT_EQ(outlook("foo"), UPDATE_WANTED);
    EXPECT_TRUE(debug("Ok, we'll try to upgrade foo_any_1.0 to foo_any_2.0"));
    EXPECT_FALSE(plan("foo"));

    EXPECT_EQ(outlook(file("foo", "1.0")), UPDATE_NOT_NEEDED);
    EXPECT_EQ(outlook(file("foo", "0.5")), UPDATE_WANTED);
    EXPECT_EQ(outlook(file("bar", "1.0")), UPDATE_NOT_INSTALLED);
    const std::string bad = files / "bad.vrk";
    std::ofstream(bad) << "no package\n";
    EXPECT_EQ(outlook(bad), UPDATE_NO_PACKAGE);
}
