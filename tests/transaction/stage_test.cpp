#include "transaction/stage.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "kit/log_capture.h"
#include "kit/package_maker.h"
#include "kit/scripted_user.h"
#include "kit/test_repo.h"
#include "support/own.h"
#include "ui/vrmui.h"

namespace {

namespace fs = std::filesystem;

std::vector<std::string> words(char *const *array) {
    std::vector<std::string> found;
    for (; array && *array; array++) {
        found.emplace_back(*array);
    }
    return found;
}

std::vector<std::string> sorted(std::vector<std::string> list) {
    std::sort(list.begin(), list.end());
    return list;
}

// The SHA-1 of nothing and of "x".
const std::string hash_of_nothing = "da39a3ee5e6b4b0d3255bfef95601890afd80709";
const std::string hash_of_x = "11f6ad8ec52a2984abaafd7c3b516503785c2072";

class SubFiles : public testing::Test {
 protected:
    SubFiles() {
        have_so = 0;
        spec_.desc_in_info = false;
    }
    ~SubFiles() override {
        have_so = 0;
    }
    int check(const char *sub = "data") {
        write_tree(spec_, dir_ / "new");
        char **list = nullptr;
        const int rc = vrm_chk_sub_files((dir_ / "new").c_str(), sub, &list);
        is_null_ = list == nullptr;
        list_ = sorted(words(list));
        arr_free(list);
        return rc;
    }
    bool logged(uint32_t level, const std::string &text) const {
        return log_.has(level, text);
    }

    PackageSpec spec_;
    TempDir dir_;
    LogCapture log_;
    std::vector<std::string> list_;
    bool is_null_ = false;
};

}  // namespace

TEST_F(SubFiles, ListedFilesPass) {
    spec_.data = {{"usr/bin/a", "x"}, {"usr/share/b", ""}};
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(list_, (std::vector<std::string>{"/usr/bin/a", "/usr/share/b"}));
    EXPECT_TRUE(logged(LEVEL_DEBUG, "vrm_chk_sub_files: checking real file </usr/bin/a>"));
    EXPECT_TRUE(logged(LEVEL_DEBUG, "vrm_chk_sub_files: verify of data/usr/bin/a succeeded: hash " +
                                        hash_of_x + " matches"));
    EXPECT_TRUE(logged(LEVEL_DEBUG, "vrm_chk_sub_files: verify of 2 files in data succeeded"));
    EXPECT_TRUE(log_.at(LEVEL_ERROR).empty());
}

TEST_F(SubFiles, OrderIsThatOfTheDirectory) {
    for (const char *name : {"c", "a", "e", "b", "d"}) {
        spec_.data[name] = name;
    }
    write_tree(spec_, dir_ / "new");
    std::vector<std::string> order;
    const own_dir opened(opendir((dir_ / "new/data").c_str()));
    while (const dirent *entry = readdir(opened.get())) {
        if (entry->d_name[0] != '.') {
            order.push_back(std::string("/") + entry->d_name);
        }
    }
    char **list = nullptr;
    ASSERT_EQ(vrm_chk_sub_files((dir_ / "new").c_str(), "data", &list), 0);
    EXPECT_EQ(words(list), order);
    arr_free(list);
}

TEST_F(SubFiles, FilesOfTheSameContentPass) {
    spec_.data = {{"a", "x"}, {"b", "x"}, {"sub/c", "x"}};
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(list_, (std::vector<std::string>{"/a", "/b", "/sub/c"}));
}

TEST_F(SubFiles, HashesCompareWithoutRegardToCase) {
    spec_.data = {{"a", "x"}};
    spec_.hash_lists["data"] = "11F6AD8EC52A2984ABAAFD7C3B516503785C2072:a\n";
    EXPECT_EQ(check(), 0);
}

TEST_F(SubFiles, FileWithAHashThatIsNotListedFails) {
    spec_.data = {{"a", "x"}, {"b", ""}};
    spec_.hash_lists["data"] = hash_of_nothing + ":b\n";
    EXPECT_EQ(check(), 1);
    EXPECT_TRUE(is_null_);
    EXPECT_EQ(log_.at(LEVEL_ERROR),
              std::vector<std::string>{"vrm_chk_files: verify of data/a failed: file not found in "
                                       "data.txt or hashes do not match"});
    EXPECT_TRUE(logged(LEVEL_DEBUG,
                       "vrm_chk_sub_files: verify of all files in data failed. 1 errors found"));
}

TEST_F(SubFiles, FileThatIsNotListedWithItsHashFails) {
    spec_.data = {{"a", "x"}, {"b", "x"}};
    spec_.hash_lists["data"] = hash_of_x + ":b\n";
    EXPECT_EQ(check(), 1);
    EXPECT_TRUE(is_null_);
    EXPECT_EQ(log_.at(LEVEL_ERROR),
              std::vector<std::string>{"vrm_chk_sub_files: verify of data / /a failed: file not "
                                       "found in data.txt"});
}

TEST_F(SubFiles, AllErrorsAreCounted) {
    spec_.data = {{"a", "x"}, {"b", "x"}, {"c", "other"}, {"d", ""}};
    spec_.hash_lists["data"] = hash_of_x + ":b\n" + hash_of_nothing + ":d\n";
    EXPECT_EQ(check(), 2);
    EXPECT_TRUE(is_null_);
    EXPECT_TRUE(logged(LEVEL_DEBUG,
                       "vrm_chk_sub_files: verify of all files in data failed. 2 errors found"));
}

TEST_F(SubFiles, ListedFileThatIsNotThereGoesUnnoticed) {
    spec_.data = {{"a", "x"}};
    spec_.hash_lists["data"] = hash_of_x + ":a\n" + hash_of_nothing + ":gone\n";
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(list_, std::vector<std::string>{"/a"});
}

TEST_F(SubFiles, ForkWithoutFilesNeedsNoList) {
    EXPECT_EQ(check("init"), 0);
    EXPECT_TRUE(is_null_);
    EXPECT_TRUE(logged(LEVEL_DEBUG, "vrm_chk_sub_files: No files were found in init"));
    log_.clear();
    fs::create_directories(dir_ / "new/init/only/directories");
    EXPECT_EQ(check("init"), 0);
    EXPECT_TRUE(is_null_);
    EXPECT_TRUE(logged(LEVEL_DEBUG, "vrm_chk_sub_files: No files were found in init"));
}

TEST_F(SubFiles, MissingListFails) {
    spec_.conf = {{"etc/a", "x"}};
    spec_.without_list = {"conf"};
    EXPECT_EQ(check("conf"), -1);
    EXPECT_TRUE(is_null_);
    EXPECT_TRUE(
        logged(LEVEL_ERROR, "vrm_chk_sub_files: Failure reading hash values for conf in package"));
}

TEST_F(SubFiles, DamagedListFails) {
    spec_.dump = {{"a", "x"}};
    spec_.hash_lists["dump"] = hash_of_x + ":a\nshort\n";
    EXPECT_EQ(check("dump"), -1);
    EXPECT_TRUE(
        logged(LEVEL_ERROR, "vrm_chk_sub_files: Failure reading hash values for dump in package"));
}

TEST_F(SubFiles, EmptyListHoldsNoFile) {
    spec_.data = {{"a", "x"}};
    spec_.hash_lists["data"] = "";
    EXPECT_EQ(check(), 1);
    EXPECT_TRUE(is_null_);
}

TEST_F(SubFiles, FileThatCannotBeHashedFails) {
    fs::create_directories(dir_ / "new/data");
    fs::create_symlink("nowhere", dir_ / "new/data/dangling");
    EXPECT_EQ(check(), -1);
    EXPECT_TRUE(is_null_);
    EXPECT_TRUE(logged(LEVEL_WARNING, "vrm_chk_sub_files: Failure hashing data files"));
}

TEST_F(SubFiles, VersionedSharedLibraryInAnyForkSetsHaveSo) {
    spec_.dump = {{"usr/lib/libz.so.1", "x"}};
    EXPECT_EQ(check("dump"), 0);
    EXPECT_EQ(have_so, 1);
}

TEST_F(SubFiles, UnversionedSharedLibraryDoesNotSetHaveSo) {
    spec_.data = {{"usr/lib/libz.so", "x"}};
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(have_so, 0);
}

TEST_F(SubFiles, HaveSoIsNotCleared) {
    have_so = 1;
    spec_.data = {{"a", "x"}};
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(have_so, 1);
}

TEST_F(SubFiles, ThousandsOfFilesOfTheSameContentPass) {
    fs::create_directories(dir_ / "new/data");
    fs::create_directories(dir_ / "new/hash");
    std::string list;
    for (int i = 0; i < 5000; i++) {
        dir_.write("new/data/" + std::to_string(i), "");
        list += hash_of_nothing + ":" + std::to_string(i) + "\n";
    }
    dir_.write("new/hash/data.txt", list);
    llog->file_levels = LEVEL_ERROR;
    char **paths = nullptr;
    EXPECT_EQ(vrm_chk_sub_files((dir_ / "new").c_str(), "data", &paths), 0);
    EXPECT_EQ(arr_count(paths), 5000);
    arr_free(paths);
}

namespace {

class AllFiles : public SubFiles {
 protected:
    int check_all() {
        write_tree(spec_, dir_ / "new");
        char **lists[5] = {};
        const int rc = vrm_chk_all_files((dir_ / "new").c_str(), &lists[0], &lists[1], &lists[2],
                                         &lists[3], &lists[4]);
        lists_.clear();
        for (char **list : lists) {
            lists_.push_back(words(list));
            nulls_ += list == nullptr;
            arr_free(list);
        }
        return rc;
    }
    std::vector<std::vector<std::string>> lists_;
    int nulls_ = 0;
};

}  // namespace

TEST_F(AllFiles, EachForkGetsItsList) {
    spec_.data = {{"a", "1"}};
    spec_.info = {{"desc.txt", "2"}};
    spec_.init = {{"00-add.sh", "3"}};
    spec_.conf = {{"etc/a", "4"}};
    spec_.dump = {{"d", "5"}};
    EXPECT_EQ(check_all(), 0);
    EXPECT_EQ(lists_, (std::vector<std::vector<std::string>>{
                          {"/a"}, {"/desc.txt"}, {"/00-add.sh"}, {"/etc/a"}, {"/d"}}));
    std::vector<std::string> steps;
    for (const std::string &line : log_.at(LEVEL_DEBUG)) {
        if (line.starts_with("vrm_chk_all_files:")) {
            steps.push_back(line);
        }
    }
    const std::string stage = dir_ / "new";
    EXPECT_EQ(steps,
              (std::vector<std::string>{"vrm_chk_all_files: checking data files in " + stage,
                                        "vrm_chk_all_files: checking info files in " + stage,
                                        "vrm_chk_all_files: checking init files in " + stage,
                                        "vrm_chk_all_files: checking conf files in " + stage,
                                        "vrm_chk_all_files: checking dump files in " + stage}));
}

TEST_F(AllFiles, ForksWithoutFilesGiveNull) {
    spec_.data = {{"a", "1"}};
    EXPECT_EQ(check_all(), 0);
    EXPECT_EQ(nulls_, 4);
}

TEST_F(AllFiles, FirstForkThatFailsEndsTheCheck) {
    for (const std::string sub : {"data", "info", "init", "conf", "dump"}) {
        log_.clear();
        fs::remove_all(dir_ / "new");
        nulls_ = 0;
        spec_.data = spec_.info = spec_.init = spec_.conf = spec_.dump = {{"a", "x"}, {"b", ""}};
        spec_.hash_lists = {{sub, hash_of_x + ":other\n"}, {"dump", ""}};
        EXPECT_EQ(check_all(), 2) << sub;
        EXPECT_EQ(nulls_, 5) << sub;
        const std::vector<std::string> errors = log_.at(LEVEL_ERROR);
        ASSERT_EQ(errors.size(), 3U) << sub;
        EXPECT_EQ(errors.back(),
                  "vrm_chk_all_files: Failure checking " + sub + " files in " + (dir_ / "new"));
    }
}

TEST_F(AllFiles, CodeOfTheForkIsHandedOn) {
    spec_.data = {{"a", "x"}};
    spec_.info = {{"desc.txt", "x"}};
    spec_.without_list = {"info"};
    EXPECT_EQ(check_all(), -1);
    EXPECT_EQ(nulls_, 5);
}

namespace {

class LocalInsert : public testing::Test {
 protected:
    ~LocalInsert() override {
        arr_free(out_);
    }
    // Hands the paths over and gives what may be written.
    int check(const std::vector<std::string> &paths) {
        std::vector<char *> files;
        for (const std::string &path : paths) {
            files.push_back(const_cast<char *>(path.c_str()));
        }
        files.push_back(nullptr);
        arr_free(out_);
        return vrm_chk_local_insert(repo_.handle(), files.data(), &out_);
    }
    std::string question(const std::string &path) const {
        return "The file " + path + " already exists on the filesystem. Choose your action";
    }

    TempDir dir_;
    TestRepo repo_;
    LogCapture log_;
    ScriptedUser &user_ = ScriptedUser::fresh();
    char **out_ = nullptr;
};

}  // namespace

TEST_F(LocalInsert, NoFilesGiveNull) {
    char *not_null = nullptr;
    char **out = &not_null;
    EXPECT_EQ(vrm_chk_local_insert(repo_.handle(), nullptr, &out), 0);
    EXPECT_EQ(out, nullptr);
}

TEST_F(LocalInsert, WhatIsNotThereMayBeWritten) {
    fs::create_symlink("nowhere", dir_ / "dangling");
    const std::vector<std::string> paths{dir_ / "new", dir_ / "dangling", dir_ / "no/such/dir"};
    EXPECT_EQ(check(paths), 0);
    EXPECT_EQ(words(out_), paths);
    EXPECT_TRUE(user_.questions.empty());
    EXPECT_TRUE(log_.has(
        LEVEL_DEBUG, "vrm_chk_local_insert: Checking for local existence of " + (dir_ / "new")));
}

TEST_F(LocalInsert, FileOfAnotherPackageStopsTheInstall) {
    PackageSpec bar;
    bar.name = "bar";
    repo_.install(bar, {dir_.write("owned", "x")});
    user_.answers = {"r"};
    EXPECT_EQ(check({dir_ / "new", dir_ / "owned"}), -1);
    EXPECT_EQ(out_, nullptr);
    EXPECT_TRUE(user_.questions.empty());
    EXPECT_TRUE(log_.has(LEVEL_ERROR, "aborting installation, " + (dir_ / "owned") +
                                          " exists and belongs to package bar"));
}

TEST_F(LocalInsert, UnownedFileIsAskedAbout) {
    EXPECT_STREQ(vrm_insert_choices,
                 "l=leave existing file,L=Leave all existing files,r=replace existing file,"
                 "R=Replace all existing files,a=abort installation");
    const std::string path = dir_.write("file", "x");
    user_.answers = {"r"};
    EXPECT_EQ(check({path}), 0);
    ASSERT_EQ(user_.questions.size(), 1U);
    EXPECT_EQ(user_.questions[0].text, question(path));
    EXPECT_EQ(user_.questions[0].default_answer, "r");
    EXPECT_EQ(user_.questions[0].choices,
              (std::vector<std::pair<std::string, std::string>>{{"l", "leave existing file"},
                                                                {"L", "Leave all existing files"},
                                                                {"r", "replace existing file"},
                                                                {"R", "Replace all existing files"},
                                                                {"a", "abort installation"}}));
    EXPECT_EQ(words(out_), std::vector<std::string>{path});
    EXPECT_TRUE(log_.has(LEVEL_ERROR, "Ok, will overwrite " + path));
}

TEST_F(LocalInsert, SmallLettersAnswerForOneFile) {
    const std::vector<std::string> paths{dir_.write("a", ""), dir_.write("b", ""), dir_ / "new",
                                         dir_.write("c", "")};
    user_.answers = {"l", "r", "l"};
    EXPECT_EQ(check(paths), 0);
    EXPECT_EQ(user_.questions.size(), 3U);
    EXPECT_EQ(words(out_), (std::vector<std::string>{dir_ / "b", dir_ / "new"}));
    EXPECT_TRUE(log_.has(LEVEL_ERROR, "Ok, will skip writing " + (dir_ / "a") + " to disk"));
}

TEST_F(LocalInsert, CapitalLAnswersForTheRestOfThePackage) {
    const std::vector<std::string> paths{dir_.write("a", ""), dir_.write("b", ""), dir_ / "new"};
    user_.answers = {"L"};
    EXPECT_EQ(check(paths), 0);
    EXPECT_EQ(user_.questions.size(), 1U);
    EXPECT_EQ(words(out_), std::vector<std::string>{dir_ / "new"});
    EXPECT_TRUE(log_.has(LEVEL_ERROR, "Ok, will skip writing " + (dir_ / "b") + " to disk"));
    // The next package asks anew.
    user_.answers = {"r"};
    EXPECT_EQ(check({dir_ / "a"}), 0);
    EXPECT_EQ(user_.questions.size(), 2U);
    EXPECT_EQ(words(out_), std::vector<std::string>{dir_ / "a"});
}

TEST_F(LocalInsert, CapitalRAnswersForTheRestOfThePackage) {
    const std::vector<std::string> paths{dir_.write("a", ""), dir_.write("b", "")};
    user_.answers = {"R"};
    EXPECT_EQ(check(paths), 0);
    EXPECT_EQ(user_.questions.size(), 1U);
    EXPECT_EQ(words(out_), paths);
    EXPECT_TRUE(log_.has(LEVEL_ERROR, "Ok, will overwrite " + (dir_ / "b")));
}

TEST_F(LocalInsert, StickyAnswerDoesNotTakeFilesOfOthers) {
    PackageSpec bar;
    bar.name = "bar";
    repo_.install(bar, {dir_.write("owned", "x")});
    user_.answers = {"R"};
    EXPECT_EQ(check({dir_.write("a", ""), dir_ / "owned"}), -1);
    EXPECT_EQ(out_, nullptr);
}

TEST_F(LocalInsert, AbortOrNoAnswerEndsThePackage) {
    for (const std::vector<std::string> &answers : {std::vector<std::string>{"a"}, {}}) {
        log_.clear();
        user_.answers = {answers.begin(), answers.end()};
        EXPECT_EQ(check({dir_ / "new", dir_.write("a", "")}), -1);
        EXPECT_EQ(out_, nullptr);
        EXPECT_EQ(log_.at(LEVEL_ERROR),
                  std::vector<std::string>{"aborting installation due to user request"});
    }
}

TEST_F(LocalInsert, AllLeftGivesAnEmptyListNotNull) {
    user_.answers = {"l"};
    EXPECT_EQ(check({dir_.write("a", "")}), 0);
    ASSERT_NE(out_, nullptr);
    EXPECT_EQ(out_[0], nullptr);
}

TEST_F(LocalInsert, UnattendedInstallReplaces) {
    vote_mode = 3;
    const std::vector<std::string> paths{dir_.write("a", ""), dir_.write("b", "")};
    EXPECT_EQ(check(paths), 0);
    EXPECT_TRUE(user_.questions.empty());
    EXPECT_EQ(words(out_), paths);
}

TEST_F(LocalInsert, ThousandsOfConflictsAmongThousandsOfIndexedFiles) {
    std::vector<std::string> others;
    for (int i = 0; i < 200000; i++) {
        others.push_back("/usr/share/others/file" + std::to_string(i));
    }
    PackageSpec bar;
    bar.name = "bar";
    repo_.install(bar, others);
    std::vector<std::string> paths;
    for (int i = 0; i < 5000; i++) {
        paths.push_back(dir_.write(std::to_string(i), ""));
    }
    llog->file_levels = LEVEL_WARNING;
    user_.answers = {"L"};
    EXPECT_EQ(check(paths), 0);
    EXPECT_EQ(words(out_).size(), 0U);
}

namespace {

class Rollback : public testing::Test {
 protected:
    // Saves a file as a change would before it is written over.
    void save(const std::string &path, const std::string &content, unsigned mode = 0644) {
        old_.write(path.substr(1), content, mode);
        index_ += path + "\n";
        old_.write("index.txt", index_);
    }
    int roll_back(const std::vector<std::string> &written) {
        std::vector<char *> files;
        for (const std::string &path : written) {
            files.push_back(const_cast<char *>(path.c_str()));
        }
        files.push_back(nullptr);
        return vrm_install_rollback(files.data(), old_.path().c_str());
    }

    TempDir dir_;
    TempDir old_;
    std::string index_;
    LogCapture log_;
};

}  // namespace

TEST_F(Rollback, NothingWrittenAndNothingSavedIsFine) {
    EXPECT_EQ(vrm_install_rollback(nullptr, old_.path().c_str()), 0);
    EXPECT_TRUE(log_.has(LEVEL_INFO, "vrm_install_rollback: no files to restore registered"));
    EXPECT_TRUE(log_.at(LEVEL_ERROR).empty());
}

TEST_F(Rollback, WhatWasWrittenIsRemoved) {
    const std::string a = dir_.write("a", "new");
    const std::string untouched = dir_.write("untouched", "was here before");
    EXPECT_EQ(roll_back({a, dir_ / "never-written", untouched}), 0);
    EXPECT_FALSE(exists(a));
    EXPECT_FALSE(exists(untouched));  // it stands in the list, reached or not
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "vrm_install_rollback: removing " + a));
}

TEST_F(Rollback, SavedFilesComeBackWithTheirModes) {
    const std::string a = dir_.write("a", "new");
    save(a, "old", 0750);
    save(dir_ / "sub/b", "old b");
    EXPECT_EQ(roll_back({a}), 0);
    EXPECT_EQ(read_all(a), "old");
    EXPECT_EQ(read_all(dir_ / "sub/b"), "old b");
    struct stat status;
    ASSERT_EQ(stat(a.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0750U);
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "vrm_install_rollback: Found " + a + " to restore"));
    EXPECT_TRUE(
        log_.has(LEVEL_DEBUG, "vrm_install_rollback: Copying " + old_.path() + a + " to " + a));
    EXPECT_EQ(log_.at(LEVEL_ERROR), std::vector<std::string>{"vrm_install_rollback: finished"});
}

TEST_F(Rollback, RestoreThatFailsDoesNotStopTheOthers) {
    save(dir_ / "a", "old a");
    save(dir_ / "b", "old b");
    save(dir_ / "c", "old c");
    fs::remove(old_.path() + (dir_ / "b"));
    EXPECT_EQ(roll_back({}), -1);
    EXPECT_EQ(read_all(dir_ / "a"), "old a");
    EXPECT_FALSE(exists(dir_ / "b"));
    EXPECT_EQ(read_all(dir_ / "c"), "old c");
    EXPECT_TRUE(log_.has(LEVEL_ERROR, "vrm_install_rollback: Failure restoring " + (dir_ / "b") +
                                          ", you're in deep shit. We still try to do the rest."));
    EXPECT_TRUE(log_.has(LEVEL_ERROR, "vrm_install_rollback: finished"));
}

TEST_F(Rollback, EmptyLinesAreSkippedAndTheLastNeedsNoEnd) {
    save(dir_ / "a", "old a");
    old_.write((dir_ / "b").substr(1), "old b");
    old_.write("index.txt", "\n" + (dir_ / "a") + "\n\n" + (dir_ / "b"));
    EXPECT_EQ(roll_back({}), 0);
    EXPECT_EQ(read_all(dir_ / "a"), "old a");
    EXPECT_EQ(read_all(dir_ / "b"), "old b");
}

TEST_F(Rollback, IndexThatCannotBeReadIsAFailure) {
    fs::create_directory(old_ / "index.txt");
    EXPECT_EQ(roll_back({}), -1);
    EXPECT_TRUE(log_.has(LEVEL_ERROR,
                         "vrm_install_rollback: Failure reading " + old_.path() + "/index.txt"));
}

TEST_F(Rollback, APipeInPlaceOfTheIndexIsNotWaitedFor) {
    ASSERT_EQ(mkfifo((old_ / "index.txt").c_str(), 0600), 0);
    alarm(120);  // to wait for a writer would be to wait for ever
    EXPECT_EQ(roll_back({}), -1);
    alarm(0);
    EXPECT_TRUE(log_.has(LEVEL_ERROR,
                         "vrm_install_rollback: Failure reading " + old_.path() + "/index.txt"));
}

TEST_F(Rollback, IndexThatCannotBeOpenedIsNotTakenForMissing) {
    fs::create_symlink("index.txt", old_ / "index.txt");
    EXPECT_EQ(roll_back({}), -1);
    EXPECT_TRUE(log_.has(LEVEL_ERROR,
                         "vrm_install_rollback: Failure reading " + old_.path() + "/index.txt"));
    EXPECT_FALSE(log_.has(LEVEL_INFO, "vrm_install_rollback: no files to restore registered"));
}
