#include "transaction/unpack.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "kit/log_capture.h"
#include "kit/package_maker.h"
#include "kit/temp_dir.h"
#include "support/own.h"

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
