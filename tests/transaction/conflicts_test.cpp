#include "transaction/conflicts.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "kit/log_capture.h"
#include "kit/scripted_user.h"
#include "kit/temp_dir.h"
#include "kit/test_repo.h"
#include "support/array.h"
#include "support/own.h"
#include "ui/vrmui.h"

namespace fs = std::filesystem;

namespace {

std::vector<std::string> words(char *const *array) {
    std::vector<std::string> found;
    for (; array && *array; array++) {
        found.emplace_back(*array);
    }
    return found;
}

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
