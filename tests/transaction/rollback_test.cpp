#include "transaction/rollback.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "kit/log_capture.h"
#include "kit/temp_dir.h"

namespace fs = std::filesystem;

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
