#include "support/atomic_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "kit/temp_dir.h"

namespace fs = std::filesystem;
using testing::ElementsAre;

namespace {

class AtomicFile : public testing::Test {
 protected:
    std::vector<std::string> names() const {
        std::vector<std::string> found;
        for (const fs::directory_entry &entry : fs::directory_iterator(dir.path())) {
            found.push_back(entry.path().filename());
        }
        std::sort(found.begin(), found.end());
        return found;
    }
    mode_t mode(const std::string &name) const {
        struct stat status = {};
        EXPECT_EQ(stat((dir / name).c_str(), &status), 0);
        return status.st_mode & 07777;
    }

    TempDir dir;
    const std::string path = dir / "a";
};

}  // namespace

TEST_F(AtomicFile, ReplacesWhatHadTheName) {
    dir.write("a", "a text that is longer than the new one");
    ASSERT_TRUE(write_atomically(path, "new\n", 0640, durability::synced));
    EXPECT_EQ(read_all(path), "new\n");
    EXPECT_EQ(mode("a"), 0640U);
    EXPECT_THAT(names(), ElementsAre("a"));
}

TEST_F(AtomicFile, IsNotThereUntilItIsCommitted) {
    {
        atomic_file file(path, path + ".new");
        ASSERT_TRUE(file.is_open() && file.write("text"));
        EXPECT_THAT(names(), ElementsAre("a.new"));
        EXPECT_EQ(mode("a.new"), 0600U);
    }
    EXPECT_THAT(names(), testing::IsEmpty());
}

TEST_F(AtomicFile, RemovesWhatAKilledProcessLeft) {
    dir.write("a.new", "half");
    ASSERT_TRUE(write_atomically(path, "whole", 0644, durability::none));
    EXPECT_EQ(read_all(path), "whole");
    EXPECT_THAT(names(), ElementsAre("a"));
}

TEST_F(AtomicFile, DoesNotFollowALinkThatWasPutBesideIt) {
    dir.write("other", "other");
    fs::create_symlink("other", path + ".new");
    ASSERT_TRUE(write_atomically(path, "mine", 0644, durability::none));
    EXPECT_EQ(read_all(dir / "other"), "other");
    EXPECT_FALSE(fs::is_symlink(path));
}

TEST_F(AtomicFile, TakesAUniqueNameWhereItIsAskedTo) {
    const atomic_file first(path, dir / ".b.XXXXXX");
    const atomic_file second(path, dir / ".b.XXXXXX");
    EXPECT_TRUE(first.is_open() && second.is_open());
    EXPECT_NE(first.beside(), second.beside());
}

TEST_F(AtomicFile, KeepsTheOldFileAndTheReasonWhenItFails) {
    fs::create_directories(path + "/kept");
    EXPECT_FALSE(write_atomically(path, "new", 0644, durability::none));
    EXPECT_EQ(errno, EISDIR);
    EXPECT_THAT(names(), ElementsAre("a"));
    EXPECT_FALSE(write_atomically(dir / "none/a", "new", 0644, durability::none));
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(AtomicFile, SyncsADirectory) {
    EXPECT_TRUE(sync_directory(dir.path()));
    EXPECT_FALSE(sync_directory(dir / "none"));
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(AtomicFile, ANewFileIsWrittenWhole) {
    EXPECT_TRUE(write_new_file(path, "content", 0600));
    EXPECT_EQ(read_all(path), "content");
    EXPECT_EQ(mode("a"), 0600U);
    EXPECT_THAT(names(), ElementsAre("a"));
}

TEST_F(AtomicFile, ANewFileIsNeverWrittenOverAnother) {
    dir.write("a", "old");
    EXPECT_FALSE(write_new_file(path, "content", 0600));
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(read_all(path), "old");
    fs::create_symlink("nowhere", dir / "link");
    EXPECT_FALSE(write_new_file(dir / "link", "content", 0600));
    EXPECT_FALSE(fs::exists(dir / "nowhere"));
}

TEST_F(AtomicFile, ANewFileThatCannotBeWrittenWholeIsRemoved) {
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit low = {4, before.rlim_max};
    const auto handler = signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &low);
    EXPECT_FALSE(write_new_file(path, "content", 0600));
    EXPECT_EQ(errno, EFBIG);
    setrlimit(RLIMIT_FSIZE, &before);
    signal(SIGXFSZ, handler);
    EXPECT_THAT(names(), ElementsAre());
}
