#include "package/preserved_copy.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "kit/log_capture.h"
#include "kit/temp_dir.h"

namespace fs = std::filesystem;

namespace {

class PreservedCopy : public testing::Test {
 protected:
    bool copy(const std::string &source, const std::string &target) {
        return copy_preserved((dir / source).c_str(), (dir / target).c_str());
    }
    struct stat status_of(const std::string &name) {
        struct stat status = {};
        EXPECT_EQ(lstat((dir / name).c_str(), &status), 0) << name;
        return status;
    }
    void expect_same(const std::string &a, const std::string &b) {
        const struct stat first = status_of(a), second = status_of(b);
        EXPECT_EQ(first.st_mode, second.st_mode);
        EXPECT_EQ(first.st_uid, second.st_uid);
        EXPECT_EQ(first.st_gid, second.st_gid);
        EXPECT_EQ(first.st_rdev, second.st_rdev);
        EXPECT_EQ(first.st_mtim.tv_sec, second.st_mtim.tv_sec);
        EXPECT_EQ(first.st_mtim.tv_nsec, second.st_mtim.tv_nsec);
    }
    void age(const std::string &name) {
        const timespec times[2] = {{1000, 7}, {1234567890, 123456789}};
        ASSERT_EQ(utimensat(AT_FDCWD, (dir / name).c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
    }
    TempDir dir;
    LogCapture log;
};

}  // namespace

TEST_F(PreservedCopy, AFileKeepsContentModeAndTimes) {
    dir.write("a", std::string(200000, 'x'), 06751);
    ASSERT_EQ(chmod((dir / "a").c_str(), 06751), 0);
    age("a");
    ASSERT_TRUE(copy("a", "b")) << strerror(errno);
    expect_same("a", "b");
    EXPECT_EQ(status_of("b").st_atim.tv_sec, 1000);
    EXPECT_EQ(read_all(dir / "b"), std::string(200000, 'x'));
}

TEST_F(PreservedCopy, OwnersAndSetIdBitsAreKept) {
    if (geteuid() != 0) {
        FAIL() << "needs root";
    }
    dir.write("a", "x");
    ASSERT_EQ(chown((dir / "a").c_str(), 65534, 12), 0);
    ASSERT_EQ(chmod((dir / "a").c_str(), 06755), 0);
    ASSERT_TRUE(copy("a", "b")) << strerror(errno);
    expect_same("a", "b");
    EXPECT_EQ(status_of("b").st_mode & 07777, 06755u);
}

TEST_F(PreservedCopy, ExtendedAttributesAreKept) {
    const std::string a = dir.write("a", "x"), b = dir / "b";
    const std::string large(3000, 'v');
    ASSERT_EQ(setxattr(a.c_str(), "user.empty", "", 0, 0), 0) << strerror(errno);
    ASSERT_EQ(setxattr(a.c_str(), "user.large", large.data(), large.size(), 0), 0);
    ASSERT_TRUE(copy("a", "b")) << strerror(errno);
    char value[4000];
    EXPECT_EQ(getxattr(b.c_str(), "user.empty", value, sizeof value), 0);
    ASSERT_EQ(getxattr(b.c_str(), "user.large", value, sizeof value), 3000);
    EXPECT_EQ(std::string(value, 3000), large);
}

TEST_F(PreservedCopy, ALinkIsCopiedAsItself) {
    fs::create_symlink("/nowhere/at/all", dir / "a");
    age("a");
    ASSERT_TRUE(copy("a", "b")) << strerror(errno);
    EXPECT_EQ(fs::read_symlink(dir / "b"), "/nowhere/at/all");
    expect_same("a", "b");
}

TEST_F(PreservedCopy, APipeIsMadeAnew) {
    ASSERT_EQ(mkfifo((dir / "a").c_str(), 0640), 0);
    ASSERT_TRUE(copy("a", "b")) << strerror(errno);
    expect_same("a", "b");
}

TEST_F(PreservedCopy, FailuresHaveAReason) {
    EXPECT_FALSE(copy("none", "b"));
    EXPECT_EQ(errno, ENOENT);
    fs::create_directory(dir / "directory");
    EXPECT_FALSE(copy("directory", "b"));
    EXPECT_EQ(errno, EISDIR);
    dir.write("a", "new");
    dir.write("b", "old");
    EXPECT_FALSE(copy("a", "b"));
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(read_all(dir / "b"), "old");
    fs::create_symlink(dir / "c", dir / "link");
    EXPECT_FALSE(copy("a", "link"));
    EXPECT_FALSE(exists(dir / "c"));
}
