#include "transaction/depend.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "kit/capture.h"
#include "kit/failing_memory.h"
#include "kit/log_capture.h"
#include "kit/package_maker.h"
#include "kit/temp_dir.h"
#include "kit/test_repo.h"
#include "package/vrf.h"
#include "repository/vrc.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// The catalogue: the names it has, each in version 5.0, and what it was asked for.
std::vector<std::string> catalogue;
std::vector<std::string> asked;

int fake_findpkg(void *, const char *name, const char *variant, const char *version, int, s_ekva **,
                 vri ***out) {
    EXPECT_EQ(variant, nullptr);
    EXPECT_EQ(version, nullptr);
    asked.push_back(name);
    for (const std::string &known : catalogue) {
        if (known != name)
            continue;
        auto *info = static_cast<vri *>(calloc(1, sizeof(vri)));
        info->name = strdup(name);
        info->version = strdup("5.0");
        info->arch = 1;
        info->description = strdup("from the catalogue");
        *out = static_cast<vri **>(calloc(2, sizeof(vri *)));
        (*out)[0] = info;
        return 1;
    }
    return 0;
}

PackageSpec package(const std::string &name, const std::string &version) {
    PackageSpec spec;
    spec.name = name;
    spec.version = version;
    return spec;
}

class VrmGetDependency : public testing::Test {
 protected:
    VrmGetDependency() {
        catalogue.clear();
        asked.clear();
        pvrm_vrc_findpkg = fake_findpkg;
    }
    ~VrmGetDependency() override {
        pvrm_vrc_findpkg = nullptr;
        vrd_free(&record_);
    }

    // Looks up "dep" for "top"; the record starts with other content than any result has.
    void get(const std::vector<std::string> *dirs = nullptr,
             const given_packages *given = nullptr) {
        vrd_free(&record_);
        record_ = {'x', 'y', nullptr, nullptr, nullptr, nullptr, -1, -1};
        std::vector<char *> array;
        if (dirs)
            for (const std::string &dir : *dirs)
                array.push_back(const_cast<char *>(dir.c_str()));
        array.push_back(nullptr);
        vrd *out = &record_;
        int connection = 0;
        stderr_of([&] {
            char *const *const searched = dirs ? array.data() : nullptr;
            const vrd *const found =
                given
                    ? find_dependency(installed_view(repo_.handle(), *given), "top", "dep",
                                      &connection, searched, &out)
                    : vrm_get_dependency(repo_.handle(), "top", "dep", &connection, searched, &out);
            EXPECT_EQ(found, &record_);
        });
        EXPECT_EQ(out, &record_);
    }

    // Makes a package file and reads its record.
    own_vri given_file(const PackageSpec &spec, const std::string &path) {
        make_package(spec, path);
        return own_vri(vrm_vrf_info(repo_.handle(), path.c_str(), 0));
    }

    void expect(char status, char action, const char *version) {
        EXPECT_EQ(record_.status, status);
        EXPECT_EQ(record_.action, action);
        EXPECT_STREQ(record_.name, "dep");
        EXPECT_STREQ(record_.cand, "top");
        EXPECT_EQ(record_.extra, nullptr);
        EXPECT_EQ(record_.weight, 99);
        EXPECT_EQ(record_.circular, 0);
        if (version) {
            ASSERT_NE(record_.info, nullptr);
            EXPECT_STREQ(record_.info->name, "dep");
            EXPECT_STREQ(record_.info->version, version);
        } else {
            EXPECT_EQ(record_.info, nullptr);
        }
    }

    TestRepo repo_;
    TempDir dir_;
    vrd record_ = {};
};

const std::string checking = "Checking dep dep for canditate top";
const std::string setting = "Setting status of dep dep for canditate top to U";
const std::string not_installed = "ok, dependency dep in not yet installed";

}  // namespace

TEST_F(VrmGetDependency, TheInstalledPackageWinsAndTheCatalogueIsNotAsked) {
    repo_.install(package("dep", "1.0"));
    make_package(package("dep", "9.0"), dir_ / "dep.vrk");
    catalogue = {"dep"};
    const std::vector<std::string> dirs = {dir_.path()};
    const LogCapture log;
    get(&dirs);
    expect('I', 'N', "1.0");
    EXPECT_THAT(asked, IsEmpty());
    EXPECT_TRUE(log.has_line_end(LEVEL_DEBUG, checking));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, setting));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "ok, dependency dep was found already installed"));
    EXPECT_FALSE(log.has(LEVEL_DEBUG, not_installed));
}

TEST_F(VrmGetDependency, ADirectoryComesBeforeTheCatalogue) {
    make_package(package("dep", "1.0"), dir_ / "dep.vrk");
    catalogue = {"dep"};
    const std::vector<std::string> dirs = {dir_.path()};
    const LogCapture log;
    get(&dirs);
    expect('L', 'I', "1.0");
    EXPECT_THAT(asked, IsEmpty());
    EXPECT_TRUE(log.has(LEVEL_DEBUG, not_installed));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "ok, dependency dep was found locally"));
}

TEST_F(VrmGetDependency, WithoutDirectoriesGoesToTheCatalogue) {
    catalogue = {"dep"};
    const LogCapture log;
    get();
    expect('R', 'I', "5.0");
    EXPECT_THAT(asked, ElementsAre("dep"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "ok, no directories to search in specified"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "ok, dependency dep was found in catalogue"));
    EXPECT_FALSE(log.has(LEVEL_DEBUG, "No package for dep in directories found"));
}

TEST_F(VrmGetDependency, WithADirectoryThatCannotBeOpenedEndsAtTheCatalogue) {
    catalogue = {"dep"};
    const std::vector<std::string> dirs = {dir_ / "none"};
    const LogCapture log;
    get(&dirs);
    expect('R', 'I', "5.0");
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "No package for dep in directories found"));
}

TEST_F(VrmGetDependency, StaysUnavailableWhenNobodyHasIt) {
    catalogue = {"other"};
    const LogCapture log;
    get();
    expect('U', '\0', nullptr);
    EXPECT_THAT(asked, ElementsAre("dep"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "No package for dep in catalogue found"));
    EXPECT_THAT(log.at(LEVEL_ERROR), IsEmpty());
}

TEST_F(VrmGetDependency, LooksForNothingWithoutMemoryForTheNames) {
    catalogue = {"dep"};
    for (const int copies : {0, 1}) {
        strdups_left = copies;
        get();
        strdups_left = -1;
        EXPECT_TRUE(!record_.name || !record_.cand);
        EXPECT_EQ(record_.status, 'U');
        EXPECT_EQ(record_.info, nullptr);
        EXPECT_THAT(asked, IsEmpty());
    }
}

TEST_F(VrmGetDependency, TheEntryOfAnotherPackageIsNotTheDependency) {
    repo_.install(package("dep", "1.0"));
    repo_.install(package("victim", "1.0"));
    std::filesystem::copy_file(repo_.in("installed/victim/desc.txt"),
                               repo_.in("installed/dep/desc.txt"),
                               std::filesystem::copy_options::overwrite_existing);
    catalogue = {"dep"};
    get();
    expect('R', 'I', "5.0");
}

// ---- What a caller gives besides ----

TEST_F(VrmGetDependency, WhatIsInstalledBeforeCountsAsInstalled) {
    const own_vri coming = given_file(package("dep", "2.0"), dir_ / "dep.vrk");
    ASSERT_TRUE(coming);
    const given_packages given = {.coming = {{"dep", coming.get()}}};
    catalogue = {"dep"};
    get(nullptr, &given);
    expect('I', 'N', "2.0");
    EXPECT_THAT(asked, IsEmpty());
    get();
    expect('R', 'I', "5.0");
}

TEST_F(VrmGetDependency, AGivenFileIsTakenAheadOfDirectoriesAndCatalogueButNotOfTheInstalled) {
    make_package(package("dep", "9.0"), dir_ / "dep.vrk");
    TempDir elsewhere;
    const own_vri file = given_file(package("dep", "2.0"), elsewhere / "x.vrk");
    ASSERT_TRUE(file);
    const given_packages given = {.files = {{"dep", file.get()}}};
    const std::vector<std::string> dirs = {dir_.path()};
    get(&dirs, &given);
    expect('L', 'I', "2.0");
    EXPECT_STREQ(record_.info->absolute_uri, file->absolute_uri);
    repo_.install(package("dep", "1.0"));
    get(&dirs, &given);
    expect('I', 'N', "1.0");
}

TEST_F(VrmGetDependency, AGivenFileOfAForeignArchitectureIsPassedOver) {
    const own_vri file = given_file(package("dep", "2.0"), dir_ / "x.vrk");
    ASSERT_TRUE(file);
    file->arch = repo_.handle()->arch + 1;
    const given_packages given = {.files = {{"dep", file.get()}}};
    get(nullptr, &given);
    expect('U', 0, nullptr);
}
