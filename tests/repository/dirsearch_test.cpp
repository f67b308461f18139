#include "repository/dirsearch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "kit/capture.h"
#include "kit/failing_reads.h"
#include "kit/log_capture.h"
#include "kit/package_maker.h"
#include "kit/temp_dir.h"
#include "kit/test_repo.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

PackageSpec package(const std::string &name, const std::string &version,
                    const std::string &variant = "", const std::string &arch = "any") {
    PackageSpec spec;
    spec.name = name;
    spec.version = version;
    spec.variant = variant;
    spec.arch = arch;
    spec.sign = false;
    return spec;
}

// A package file that has a head and no payload, which is all that a search reads.
std::string head_only(const TempDir &dir, const std::string &file, const PackageSpec &spec) {
    const std::string text = description_of(spec);
    std::string size = std::to_string(text.size());
    size.insert(0, 5 - size.size(), '0');
    return dir.write(file, "EVRM20" + size + text);
}

std::vector<char *> array(const std::vector<std::string> &dirs) {
    std::vector<char *> result;
    for (const std::string &dir : dirs) {
        result.push_back(const_cast<char *>(dir.c_str()));
    }
    result.push_back(nullptr);
    return result;
}

class DirSearch : public testing::Test {
 protected:
    own_vri_list find_all(const char *name, const char *variant,
                          const std::vector<std::string> &dirs) {
        own_vri_list list;
        diagnostics_ = stderr_of([&] {
            list.reset(vrm_findall_dirs(repo_.handle(), name, variant, array(dirs).data()));
        });
        return list;
    }

    // What was found, as "<file name> <version>".
    std::vector<std::string> find(const char *name, const char *variant,
                                  const std::vector<std::string> &dirs) {
        std::vector<std::string> files;
        const own_vri_list list = find_all(name, variant, dirs);
        for (vri **at = list.get(); at && *at; ++at) {
            files.push_back(fs::path((*at)->relative_uri).filename().string() + " " +
                            (*at)->version);
        }
        return files;
    }

    own_vri find_one(const char *name, const char *variant, const char *version,
                     const std::vector<std::string> &dirs) {
        own_vri info;
        diagnostics_ = stderr_of([&] {
            info.reset(
                vrm_findone_dirs(repo_.handle(), name, variant, version, array(dirs).data()));
        });
        return info;
    }

    TestRepo repo_;
    TempDir dir_;
    std::string diagnostics_;
};

class VrmFindallDirs : public DirSearch {};
class VrmFindoneDirs : public DirSearch {};

}  // namespace

TEST_F(VrmFindallDirs, FindsPackagesByWhatTheFilesSay) {
    make_package(package("foo", "1.0"), dir_ / "anything.vrk");
    head_only(dir_, "foo.vrk", package("bar", "1.0"));
    head_only(dir_, "sub/foo.vrk", package("foo", "9.0"));
    const LogCapture log;
    EXPECT_THAT(find("foo", nullptr, {dir_.path()}), ElementsAre("anything.vrk 1.0"));
    EXPECT_EQ(diagnostics_, "Stored 1 vris\n");
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "Looking for package foo"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "Scanning directory " + dir_.path()));
    EXPECT_TRUE(log.has(LEVEL_DEBUG,
                        "Storing " + (dir_ / "anything.vrk") + ", package name foo matches foo"));
    EXPECT_THAT(log.at(LEVEL_ERROR), IsEmpty());
}

TEST_F(VrmFindallDirs, GivesRecordsWithBothUris) {
    head_only(dir_, "real/foo.vrk", package("foo", "1.0"));
    fs::create_directory_symlink(dir_ / "real", dir_ / "link");
    const own_vri_list owner = find_all("foo", nullptr, {dir_ / "link/"});
    vri *const *list = owner.get();
    ASSERT_NE(list, nullptr);
    ASSERT_NE(list[0], nullptr);
    EXPECT_EQ(list[1], nullptr);
    EXPECT_STREQ(list[0]->relative_uri, (dir_ / "link//foo.vrk").c_str());
    EXPECT_STREQ(list[0]->absolute_uri, fs::canonical(dir_ / "real/foo.vrk").c_str());
    EXPECT_EQ(list[0]->filesize, fs::file_size(dir_ / "real/foo.vrk"));
    EXPECT_STREQ(list[0]->filehash, sha1_of(dir_ / "real/foo.vrk").c_str());
    EXPECT_EQ(list[0]->sig_status, 0);
}

TEST_F(VrmFindallDirs, WithoutDirectoriesSearchesNothing) {
    const LogCapture log;
    vri **list = nullptr;
    const std::string diagnostics =
        stderr_of([&] { list = vrm_findall_dirs(repo_.handle(), "foo", "tiny", nullptr); });
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(diagnostics, "");
    EXPECT_THAT(log.at(LEVEL_DEBUG), ElementsAre("Looking for package foo, variant tiny"));
}

TEST_F(VrmFindallDirs, TellsTheNumberAlsoOfNothing) {
    EXPECT_EQ(find_all("foo", nullptr, {dir_.path()}), nullptr);
    EXPECT_EQ(diagnostics_, "Stored 0 vris\n");
    EXPECT_EQ(find_all("foo", nullptr, {}), nullptr);
    EXPECT_EQ(diagnostics_, "Stored 0 vris\n");
}

TEST_F(VrmFindallDirs, GoesThroughTheDirectoriesInOrderAndPassesOverTheOnesItCannotOpen) {
    head_only(dir_, "one/b.vrk", package("foo", "1.0"));
    head_only(dir_, "one/a.vrk", package("foo", "2.0"));
    head_only(dir_, "two/a.vrk", package("foo", "3.0"));
    const LogCapture log;
    EXPECT_THAT(find("foo", nullptr, {dir_ / "two", dir_ / "none", dir_ / "one"}),
                ElementsAre("a.vrk 3.0", "a.vrk 2.0", "b.vrk 1.0"));
    EXPECT_EQ(diagnostics_, "Stored 3 vris\n");
    EXPECT_THAT(log.at(LEVEL_INFO), ElementsAre("Failure opening <" + (dir_ / "none") +
                                                "> for reading: " + strerror(ENOENT)));
}

TEST_F(VrmFindallDirs, PassesOverADirectoryThatBreaksOff) {
    head_only(dir_, "a.vrk", package("foo", "1.0"));
    head_only(dir_, "b.vrk", package("foo", "2.0"));
    const LogCapture log;
    own_vri_list found;
    {
        const FailingReaddir failing(3);  // with the dots, so at least one file is there
        found = find_all("foo", nullptr, {dir_.path()});
    }
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(diagnostics_, "Stored 0 vris\n");
    EXPECT_THAT(log.at(LEVEL_WARNING),
                ElementsAre("Failure reading <" + dir_.path() + ">: Input/output error"));
}

TEST_F(VrmFindallDirs, PassesOverWhatIsNoRegularFile) {
    const std::string file = head_only(dir_, "away/foo.vrk", package("foo", "1.0"));
    fs::create_directories(dir_ / "here/directory.vrk");
    fs::create_symlink(file, dir_ / "here/link.vrk");
    ASSERT_EQ(mkfifo((dir_ / "here/fifo.vrk").c_str(), 0600), 0);
    const LogCapture log;
    EXPECT_THAT(find("foo", nullptr, {dir_ / "here"}), IsEmpty());
    EXPECT_THAT(log.at(LEVEL_DEBUG),
                ElementsAre("Looking for package foo", "Scanning directory " + (dir_ / "here")));
}

TEST_F(VrmFindallDirs, SaysWhyItSkipsAFile) {
    head_only(dir_, "foo.txt", package("foo", "1.0"));
    dir_.write("broken.vrk", "no package");
    const LogCapture log;
    EXPECT_THAT(find("foo", nullptr, {dir_.path()}), IsEmpty());
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "Found file " + (dir_ / "foo.txt") + ", skipping"));
    EXPECT_TRUE(
        log.has(LEVEL_DEBUG, "Skipping " + (dir_ / "broken.vrk") + ", failed to read info"));
}

TEST_F(VrmFindallDirs, SkipsFilesWithTooLongAPath) {
    head_only(dir_, "foo.vrk", package("foo", "1.0"));
    head_only(dir_, "foo_2.vrk", package("foo", "2.0"));
    // With foo.vrk the longest path that the kernel takes, with foo_2.vrk 4,097 characters.
    std::string directory = dir_.path();
    directory.append(4095 - directory.size() - strlen("/foo.vrk"), '/');
    const LogCapture log;
    EXPECT_THAT(find("foo", nullptr, {directory}), ElementsAre("foo.vrk 1.0"));
    const std::string message = "Filename <" + directory + "/foo_2.vrk> too long, skipping entry";
    const std::vector<std::string> debug = log.at(LEVEL_DEBUG);
    // The log keeps only the beginning of so long a message.
    EXPECT_TRUE(std::any_of(debug.begin(), debug.end(), [&](const std::string &line) {
        return line.size() > 1800 && message.compare(0, line.size(), line) == 0;
    }));
}

TEST_F(VrmFindallDirs, TakesOnlyArchitecturesThatThisMachineRuns) {
    head_only(dir_, "any.vrk", package("foo", "1.0", "", "any"));
    head_only(dir_, "mips.vrk", package("foo", "2.0", "", "mips"));
    head_only(dir_, "own.vrk", package("foo", "3.0", "", "x86_64"));
    const LogCapture log;
    EXPECT_THAT(find("foo", nullptr, {dir_.path()}), ElementsAre("any.vrk 1.0", "own.vrk 3.0"));
    EXPECT_TRUE(
        log.has(LEVEL_DEBUG, "Package arch mips doesn't match local arch x86_64, skipping"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "Package arch x86_64 matches local arch x86_64"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "Package arch any matches local arch x86_64"));
}

TEST_F(VrmFindallDirs, FiltersByVariant) {
    head_only(dir_, "a.vrk", package("foo", "1.0"));
    head_only(dir_, "b.vrk", package("foo", "1.0", "tiny"));
    head_only(dir_, "c.vrk", package("foo", "1.0", "full"));
    const std::vector<std::string> dirs = {dir_.path()};
    EXPECT_THAT(find("foo", nullptr, dirs), ElementsAre("a.vrk 1.0", "b.vrk 1.0", "c.vrk 1.0"));
    EXPECT_THAT(find("foo", "", dirs), ElementsAre("a.vrk 1.0"));
    EXPECT_THAT(find("foo", "default", dirs), ElementsAre("a.vrk 1.0"));
    EXPECT_THAT(find("foo", "tiny", dirs), ElementsAre("b.vrk 1.0"));
    EXPECT_THAT(find("foo", "other", dirs), IsEmpty());
}

TEST_F(VrmFindallDirs, TakesAtMost461FilesOfAName) {
    for (int i = 0; i < 470; ++i) {
        head_only(dir_, "foo" + std::to_string(1000 + i) + ".vrk", package("foo", "1.0"));
    }
    head_only(dir_, "zzz.vrk", package("bar", "1.0"));
    const LogCapture log;
    EXPECT_EQ(find("foo", nullptr, {dir_.path()}).size(), 461u);
    EXPECT_EQ(diagnostics_, "Stored 461 vris\n");
    EXPECT_THAT(
        log.at(LEVEL_WARNING),
        ElementsAre("More than 461 package files of foo, passing over " + (dir_ / "foo1461.vrk")));
}

TEST_F(VrmFindoneDirs, ChoosesTheNewestOfTheVariant) {
    head_only(dir_, "a.vrk", package("foo", "1.9"));
    head_only(dir_, "b.vrk", package("foo", "1.10"));
    head_only(dir_, "c.vrk", package("foo", "1.2"));
    head_only(dir_, "d.vrk", package("foo", "7.0", "tiny"));
    const std::vector<std::string> dirs = {dir_.path()};
    own_vri info = find_one("foo", nullptr, nullptr, dirs);
    ASSERT_NE(info, nullptr);
    EXPECT_STREQ(info->version, "1.10");
    EXPECT_EQ(diagnostics_, "Stored 4 vris\n");
    info = find_one("foo", "tiny", nullptr, dirs);
    ASSERT_NE(info, nullptr);
    EXPECT_STREQ(info->version, "7.0");
    EXPECT_EQ(diagnostics_, "Stored 1 vris\n");
}

TEST_F(VrmFindoneDirs, DoesNotCareForTheVersion) {
    head_only(dir_, "a.vrk", package("foo", "1.0"));
    head_only(dir_, "b.vrk", package("foo", "2.0"));
    const own_vri info = find_one("foo", nullptr, "1.0", {dir_.path()});
    ASSERT_NE(info, nullptr);
    EXPECT_STREQ(info->version, "2.0");
}

TEST_F(VrmFindoneDirs, FindsNothingWhereNothingIs) {
    EXPECT_EQ(find_one("foo", nullptr, nullptr, {dir_.path()}), nullptr);
    EXPECT_EQ(vrm_findone_dirs(repo_.handle(), "foo", nullptr, nullptr, nullptr), nullptr);
}

namespace {

class VrmStageHaveVrk : public testing::Test {
 protected:
    VrmStageHaveVrk() : file_(dir_.write("foo.vrk", "abc")) {
        info_.filesize = 3;
        info_.filehash = hash_;
    }
    TempDir dir_;
    std::string file_;
    char hash_[41] = "a9993e364706816aba3e25717850c26c9cd0d89d";
    vri info_ = {};
};

}  // namespace

TEST_F(VrmStageHaveVrk, KnowsTheVeryFile) {
    EXPECT_EQ(vrm_stage_have_vrk(file_.c_str(), &info_), 1);
}

TEST_F(VrmStageHaveVrk, NeedsAHashAndASizeInTheRecord) {
    info_.filehash = nullptr;
    EXPECT_EQ(vrm_stage_have_vrk(file_.c_str(), &info_), 0);
    char of_nothing[] = "da39a3ee5e6b4b0d3255bfef95601890afd80709";
    info_.filehash = of_nothing;
    info_.filesize = 0;
    EXPECT_EQ(vrm_stage_have_vrk(dir_.write("empty.vrk", "").c_str(), &info_), 0);
}

TEST_F(VrmStageHaveVrk, RefusesAnotherFile) {
    EXPECT_EQ(vrm_stage_have_vrk((dir_ / "none").c_str(), &info_), 0);
    EXPECT_EQ(vrm_stage_have_vrk(dir_.write("longer", "abcd").c_str(), &info_), 0);
    EXPECT_EQ(vrm_stage_have_vrk(dir_.write("other", "abd").c_str(), &info_), 0);
    hash_[0] = 'A';  // digits count as they are spelled
    EXPECT_EQ(vrm_stage_have_vrk(file_.c_str(), &info_), 0);
}

TEST_F(VrmStageHaveVrk, RefusesWhatCannotBeRead) {
    struct stat status;
    ASSERT_EQ(stat(dir_.path().c_str(), &status), 0);
    info_.filesize = static_cast<uint64_t>(status.st_size);
    EXPECT_EQ(vrm_stage_have_vrk(dir_.path().c_str(), &info_), 0);
}
