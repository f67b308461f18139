#include "package/fileops.h"
#include "kit/mode.h"
#include "package/copy_file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "kit/failing_closedir.h"
#include "kit/log_capture.h"
#include "kit/lower_limit.h"
#include "kit/temp_dir.h"
#include "support/own.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

ino_t inode_of(const std::string &path) {
    struct stat info;
    return lstat(path.c_str(), &info) == 0 ? info.st_ino : 0;
}

std::string link_text(const std::string &path) {
    return fs::read_symlink(path).string();
}

// Within its life this process has no privilege, so that permissions count. The directory and the
// log are opened to it.
class WithoutPrivilege {
 public:
    explicit WithoutPrivilege(const TempDir &dir) {
        chmod(dir.path().c_str(), 0777);
        if (llog) {
            const std::string log = llog->file;
            close(open(log.c_str(), O_CREAT | O_WRONLY, 0666));
            chmod(log.c_str(), 0666);
            chmod(fs::path(log).parent_path().c_str(), 0777);
        }
        if (getuid() == 0) {
            EXPECT_EQ(seteuid(65534), 0);
        }
    }
    ~WithoutPrivilege() {
        if (getuid() == 0) {
            EXPECT_EQ(seteuid(0), 0);
        }
    }
};

// A chain of directories below a directory, each of that name, with a file in the innermost.
void make_chain(const std::string &top, const std::string &name, int depth) {
    int fd = open(top.c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_GE(fd, 0);
    for (int i = 0; i < depth; ++i) {
        ASSERT_EQ(mkdirat(fd, name.c_str(), 0755), 0);
        const int next = openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY);
        close(fd);
        fd = next;
    }
    const int file = openat(fd, "file", O_CREAT | O_WRONLY, 0644);
    ASSERT_EQ(write(file, "12345", 5), 5);
    close(file);
    close(fd);
}

}  // namespace

TEST(LastCharIs, PointsToTheLastCharacterIfItIsThat) {
    const char *text = "/a/b/";
    EXPECT_EQ(last_char_is(text, '/'), text + 4);
    EXPECT_EQ(last_char_is("/a/b", '/'), nullptr);
    EXPECT_EQ(last_char_is("", '/'), nullptr);
    EXPECT_EQ(last_char_is(nullptr, '/'), nullptr);
}

// ---- rmdir

TEST(VrfRmdir, OfAMissingPathSucceedsInSilence) {
    const TempDir dir;
    const LogCapture log;
    EXPECT_EQ(vrm_vrf_rmdir((dir / "none").c_str()), 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(VrfRmdir, RemovesAPlainFile) {
    const TempDir dir;
    const std::string file = dir.write("file", "x");
    EXPECT_EQ(vrm_vrf_rmdir(file.c_str()), 0);
    EXPECT_FALSE(exists(file));
}

TEST(VrfRmdir, RemovesATreeAlsoWithASlashBehindThePath) {
    const TempDir dir;
    for (const char *slash : {"", "/", "//"}) {
        dir.write("tree/a/b/c", "x");
        dir.write("tree/.hidden/..x", "x");
        fs::create_directories(dir / "tree/empty");
        EXPECT_EQ(vrm_vrf_rmdir((dir / "tree" + slash).c_str()), 0);
        EXPECT_FALSE(exists(dir / "tree"));
    }
}

TEST(VrfRmdir, RemovesALinkAndNotWhatItPointsTo) {
    const TempDir dir;
    dir.write("kept/file", "x");
    fs::create_directory_symlink(dir / "kept", dir / "link");
    EXPECT_EQ(vrm_vrf_rmdir((dir / "link").c_str()), 0);
    EXPECT_FALSE(exists(dir / "link"));

    fs::create_directories(dir / "tree");
    fs::create_directory_symlink(dir / "kept", dir / "tree/link");
    fs::create_symlink("nowhere", dir / "tree/dangling");
    EXPECT_EQ(vrm_vrf_rmdir((dir / "tree").c_str()), 0);
    EXPECT_FALSE(exists(dir / "tree"));
    EXPECT_TRUE(exists(dir / "kept/file"));
}

TEST(VrfRmdir, DoesNotFollowALinkThatIsGivenWithASlash) {
    const TempDir dir;
    const LogCapture log;
    dir.write("kept/file", "x");
    fs::create_directory_symlink(dir / "kept", dir / "link");
    EXPECT_EQ(vrm_vrf_rmdir((dir / "link/").c_str()), -1);
    EXPECT_TRUE(exists(dir / "kept/file"));
    EXPECT_TRUE(log.has(LEVEL_ERROR, "can't remove '" + (dir / "link/") + "'"));
}

TEST(VrfRmdir, ReportsWhatItCannotStat) {
    const TempDir dir;
    const LogCapture log;
    const std::string below_a_file = dir.write("file", "x") + "/x";
    EXPECT_EQ(vrm_vrf_rmdir(below_a_file.c_str()), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "can't stat '" + below_a_file + "'"));
}

TEST(VrfRmdir, RemovesAllThatCanGoAndReportsTheRest) {
    const TempDir dir;
    const LogCapture log;
    int result;
    {
        const WithoutPrivilege user(dir);
        dir.write("tree/locked/inner", "x");
        for (const char *name : {"a", "m", "z"})
            dir.write(std::string("tree/") + name, "x");
        chmod((dir / "tree/locked").c_str(), 0555);
        result = vrm_vrf_rmdir((dir / "tree").c_str());
    }
    EXPECT_EQ(result, -1);
    for (const char *name : {"a", "m", "z"})
        EXPECT_FALSE(exists(dir / "tree/" + name));
    EXPECT_THAT(log.at(LEVEL_ERROR),
                ElementsAre("can't remove '" + (dir / "tree/locked/inner") + "'",
                            "can't remove '" + (dir / "tree/locked") + "'",
                            "can't remove '" + (dir / "tree") + "'"));
}

TEST(VrfRmdir, SaysNothingOfADirectoryThatItCannotOpen) {
    const TempDir dir;
    const LogCapture log;
    int result;
    {
        const WithoutPrivilege user(dir);
        fs::create_directories(dir / "closed");
        chmod((dir / "closed").c_str(), 0);
        result = vrm_vrf_rmdir((dir / "closed").c_str());
    }
    EXPECT_EQ(result, -1);
    EXPECT_TRUE(exists(dir / "closed"));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(VrfRmdir, KeepsADirectoryThatItCannotClose) {
    const TempDir dir;
    dir.write("tree/file", "x");
    const LogCapture log;
    {
        const FailingClosedir failing;
        EXPECT_EQ(vrm_vrf_rmdir((dir / "tree").c_str()), -1);
    }
    EXPECT_THAT(log.at(LEVEL_ERROR), ElementsAre("can't close '" + (dir / "tree") + "'"));
    EXPECT_TRUE(fs::is_empty(dir / "tree"));
}

TEST(VrfRmdir, RemovesTreesDeeperThanAnyPathWithFewOpenFiles) {
    const TempDir dir;
    const LogCapture log;
    fs::create_directories(dir / "tree");
    const std::string name(50, 'd');
    make_chain(dir / "tree", name, 300);
    dir.write("tree/" + name + "/" + name + "/beside", "x");
    uint64_t total = 0;
    {
        const LowerLimit files(RLIMIT_NOFILE, 100);
        EXPECT_EQ(vrm_vrf_dudir((dir / "tree").c_str(), &total), 0);
        EXPECT_EQ(vrm_vrf_rmdir((dir / "tree").c_str()), 0);
    }
    EXPECT_EQ(total, 6u);
    EXPECT_FALSE(exists(dir / "tree"));
    EXPECT_THAT(log.lines(), IsEmpty());
}

// ---- dudir

TEST(VrfDudir, AddsTheLengthsOfFilesAndLinksToTheTotal) {
    const TempDir dir;
    dir.write("tree/one", std::string(1000, 'x'));
    dir.write("tree/below/two", std::string(234, 'x'));
    fs::create_symlink("seven77", dir / "tree/link");
    uint64_t total = 5;
    EXPECT_EQ(vrm_vrf_dudir((dir / "tree").c_str(), &total), 0);
    EXPECT_EQ(total, 5u + 1000 + 234 + 7);
    EXPECT_EQ(vrm_vrf_dudir((dir / "tree/one").c_str(), &total), 0);
    EXPECT_EQ(total, 5u + 1000 + 234 + 7 + 1000);
}

TEST(VrfDudir, CountsLengthsAndNotBlocks) {
    const TempDir dir;
    const std::string file = dir.write("sparse", "");
    fs::resize_file(file, uint64_t{5} << 30);
    uint64_t total = 0;
    EXPECT_EQ(vrm_vrf_dudir(dir.path().c_str(), &total), 0);
    EXPECT_EQ(total, uint64_t{5} << 30);
}

TEST(VrfDudir, OfAMissingPathAddsNothing) {
    const TempDir dir;
    uint64_t total = 7;
    EXPECT_EQ(vrm_vrf_dudir((dir / "none").c_str(), &total), 0);
    EXPECT_EQ(total, 7u);
}

TEST(VrfDudir, GoesOnOverAFailure) {
    const TempDir dir;
    const LogCapture log;
    uint64_t total = 0;
    const std::string below_a_file = dir.write("tree/file", "123") + "/x";
    EXPECT_EQ(vrm_vrf_dudir(below_a_file.c_str(), &total), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "can't stat '" + below_a_file + "'"));
    int result;
    {
        const WithoutPrivilege user(dir);
        chmod((dir / "tree").c_str(), 0755);
        fs::create_directories(dir / "own/closed");
        dir.write("own/a", "1234");
        dir.write("own/z", "12345");
        chmod((dir / "own/closed").c_str(), 0);
        result = vrm_vrf_dudir((dir / "own").c_str(), &total);
    }
    EXPECT_EQ(result, -1);
    EXPECT_EQ(total, 9u);
}

// ---- mkdir

TEST(VrfDudir, ReportsADirectoryThatItCannotClose) {
    const TempDir dir;
    dir.write("tree/file", "12345");
    const LogCapture log;
    uint64_t total = 0;
    {
        const FailingClosedir failing;
        EXPECT_EQ(vrm_vrf_dudir((dir / "tree").c_str(), &total), -1);
    }
    EXPECT_EQ(total, 5u);
    EXPECT_THAT(log.at(LEVEL_ERROR), ElementsAre("can't close '" + (dir / "tree") + "'"));
}

TEST(VrfMkdir, MakesParentsWith0755AndTheLastWithTheMode) {
    const TempDir dir;
    std::string path = dir / "a/b/c/";
    vrm_vrf_mkdir(path.data(), 0700);
    EXPECT_EQ(mode_of(dir / "a"), 0755u);
    EXPECT_EQ(mode_of(dir / "a/b"), 0755u);
    EXPECT_EQ(mode_of(dir / "a/b/c"), 0700u);
    EXPECT_STREQ(path.c_str(), (dir / "a/b/c").c_str());
}

TEST(VrfMkdir, LeavesADirectoryThatExistsAlone) {
    const TempDir dir;
    const LogCapture log;
    fs::create_directories(dir / "a");
    chmod((dir / "a").c_str(), 0750);
    std::string path = dir / "a";
    vrm_vrf_mkdir(path.data(), 0700);
    EXPECT_EQ(mode_of(dir / "a"), 0750u);
    EXPECT_EQ(path, dir / "a");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(VrfMkdir, WorksOnRelativePathsAndRepeatedSlashes) {
    const TempDir dir;
    const WorkingDir there(dir.path());
    std::string path = "x//y///z";
    vrm_vrf_mkdir(path.data(), 0711);
    EXPECT_EQ(path, "x//y///z");
    EXPECT_EQ(mode_of(dir / "x/y/z"), 0711u);
    std::string single = "single";
    vrm_vrf_mkdir(single.data(), 0755);
    EXPECT_TRUE(fs::is_directory(dir / "single"));
}

TEST(VrfMkdir, FailsInSilence) {
    const TempDir dir;
    const LogCapture log;
    dir.write("file", "x");
    std::string path = dir / "file/a/b";
    vrm_vrf_mkdir(path.data(), 0755);
    EXPECT_EQ(read_all(dir / "file"), "x");
    std::string empty;
    vrm_vrf_mkdir(empty.data(), 0755);
    std::string root = "/";
    vrm_vrf_mkdir(root.data(), 0755);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(VrfMkdir, TakesPathsOfAnyLength) {
    const TempDir dir;
    std::string deep = dir / "deep";
    for (int i = 0; i < 200; ++i)
        deep += "/d";
    std::string path = deep;
    vrm_vrf_mkdir(path.data(), 0755);
    EXPECT_TRUE(fs::is_directory(deep));

    // Below a file, so that the disk need not make all these directories.
    std::string hostile = dir.write("hostile", "");
    for (int i = 0; i < 500000; ++i)
        hostile += "/d";
    vrm_vrf_mkdir(hostile.data(), 0755);
    EXPECT_TRUE(fs::is_regular_file(dir / "hostile"));
}

// ---- perms

TEST(VrfPerms, AppliesEachLine) {
    const TempDir dir;
    const LogCapture log;
    const std::string a = dir.write("a", ""), b = dir.write("b", ""), c = dir.write("c", "");
    const std::string d = dir.write("d", "");
    const std::string list =
        dir.write("perm.txt", a + "|0600\n" + b + "|4755|\n" + c + "|100640\n" + d + "|711");
    EXPECT_EQ(vrm_vrf_perms(list.c_str()), 0);
    EXPECT_EQ(mode_of(a), 0600u);
    EXPECT_EQ(mode_of(b), 04755u);
    EXPECT_EQ(mode_of(c), 0640u);
    EXPECT_EQ(mode_of(d), 0711u);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(VrfPerms, WritesTextBehindTheModeOverTheMode) {
    const TempDir dir;
    const std::string a = dir.write("a", ""), b = dir.write("b", "");
    const std::string list = dir.write("perm.txt", a + "|0600|0755\n" + b + "|644|7\n");
    EXPECT_EQ(vrm_vrf_perms(list.c_str()), 0);
    EXPECT_EQ(mode_of(a), 0755u);
    EXPECT_EQ(mode_of(b), 0744u);
}

TEST(VrfPerms, SkipsEmptyAndIncompleteLines) {
    const TempDir dir;
    const LogCapture log;
    const std::string a = dir.write("a", "");
    chmod(a.c_str(), 0640);
    const std::string list = dir.write("perm.txt", "\n" + a + "\n" + a + "|\n|0600\n\n");
    EXPECT_EQ(vrm_vrf_perms(list.c_str()), 0);
    EXPECT_EQ(mode_of(a), 0640u);
    const std::string skipped =
        "vrm_vrf_perms: Skipping entry, file or mode not properly specified";
    EXPECT_THAT(log.at(LEVEL_DEBUG),
                ElementsAre("vrm_vrf_perms: Skipping empty line no 1 in " + list, skipped, skipped,
                            skipped, "vrm_vrf_perms: Skipping empty line no 5 in " + list));
    EXPECT_THAT(log.at(LEVEL_ERROR), IsEmpty());
}

TEST(VrfPerms, PassesOverAModeThatIsNoNumber) {
    const TempDir dir;
    const LogCapture log;
    const std::string a = dir.write("a", "");
    const std::string list =
        dir.write("perm.txt", a + "|9\n" + a + "|64x\n" + a + "|77777777777\n" + a + "|600\n");
    EXPECT_EQ(vrm_vrf_perms(list.c_str()), 0);
    EXPECT_EQ(mode_of(a), 0600u);
    const std::string head = "vrm_vrf_perms: Failed to convert mode ";
    const std::string middle = " for " + a + " to something meaningful: ";
    EXPECT_THAT(log.at(LEVEL_ERROR), ElementsAre(head + "9" + middle + strerror(EINVAL),
                                                 head + "64x" + middle + strerror(EINVAL),
                                                 head + "77777777777" + middle + strerror(ERANGE)));
}

TEST(VrfPerms, ResultIsTheOutcomeOfTheLastChmod) {
    const TempDir dir;
    const LogCapture log;
    const std::string a = dir.write("a", "");
    const std::string none = dir / "none";
    EXPECT_EQ(vrm_vrf_perms(dir.write("1", none + "|600\n" + a + "|600\n").c_str()), 0);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_vrf_perms: Failed to set mode of " + none +
                                         " to 600: " + strerror(ENOENT)));
    EXPECT_EQ(vrm_vrf_perms(dir.write("2", a + "|600\n" + none + "|600\n").c_str()), -1);
    // A line that doesn't convert leaves the outcome as it was.
    EXPECT_EQ(vrm_vrf_perms(dir.write("3", none + "|600\n" + a + "|9\n").c_str()), -1);
    EXPECT_EQ(vrm_vrf_perms(dir.write("4", "").c_str()), 0);
}

TEST(VrfPerms, FailsWithoutAList) {
    const TempDir dir;
    const LogCapture log;
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    for (const char *name : {"none", "fifo", "."}) {
        EXPECT_EQ(vrm_vrf_perms((dir / name).c_str()), -1);
        EXPECT_TRUE(
            log.has(LEVEL_ERROR, "vrm_vrf_perms: Failed to open perm file " + (dir / name)));
    }
}

TEST(VrfPerms, FailsOnAListThatBreaksOff) {
    // A regular file that opens, and whose first byte can't be read.
    const std::string memory = "/proc/self/mem";
    const LogCapture log;
    EXPECT_EQ(vrm_vrf_perms(memory.c_str()), -1);
    EXPECT_THAT(log.at(LEVEL_ERROR),
                ElementsAre("vrm_vrf_perms: Failed to read " + memory + ": " + strerror(EIO)));
}

TEST(VrfPerms, RefusesLinesAndFieldsBeyondTheirLimits) {
    const TempDir dir;
    const LogCapture log;
    const std::string a = dir.write("a", "");
    chmod(a.c_str(), 0644);
    const std::string in_limit = a + "|" + std::string(2060, '0') + "600";
    const std::string list = dir.write("perm.txt", a + "|" + std::string(2061, '0') + "700\n" + a +
                                                       "|" + std::string(4096, '0') + "\n" +
                                                       std::string("a\0b|600\n", 8) + in_limit);
    EXPECT_EQ(vrm_vrf_perms(list.c_str()), 0);
    EXPECT_EQ(mode_of(a), 0600u);
    const std::string head = "vrm_vrf_perms: Refusing line no ";
    EXPECT_THAT(log.at(LEVEL_ERROR),
                ElementsAre(head + "1 in " + list + ": a field is longer than 2063 bytes",
                            head + "2 in " + list + ": it is longer than 4095 bytes",
                            head + "3 in " + list + ": it holds a zero byte"));
}

// ---- links

TEST(VrfLinks, MakesLinksInTheDirectoryOfTheLineOrOfTheOneBefore) {
    const TempDir dir;
    const LogCapture log;
    const WorkingDir here("/");
    fs::create_directories(dir / "there");
    const std::string list =
        dir.write("link.txt", (dir / "there") + "|target|one\n|../other|two\n" + (dir / "new/er") +
                                  "\n|x|three\n" + (dir / "there") + "|y|sub|\n");
    EXPECT_EQ(vrm_vrf_links(list.c_str(), 1, 1), 0);
    EXPECT_EQ(link_text(dir / "there/one"), "target");
    EXPECT_EQ(link_text(dir / "there/two"), "../other");
    EXPECT_EQ(link_text(dir / "new/er/three"), "x");
    EXPECT_EQ(link_text(dir / "there/sub"), "y");
    EXPECT_EQ(mode_of(dir / "new/er"), 0755u);
    EXPECT_EQ(fs::current_path(), "/");
    EXPECT_THAT(log.at(LEVEL_ERROR), IsEmpty());
    EXPECT_TRUE(
        log.has(LEVEL_DEBUG, "vrm_vrf_links: Changed to directory " + (dir / "new/er") + "."));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_vrf_links: Will remove symbolic link named one"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_vrf_links: one does not exist, or is not accessible: " +
                                         std::string(strerror(ENOENT))));
    EXPECT_TRUE(log.has(LEVEL_DEBUG,
                        "vrm_vrf_links: Will create symbolic link named one pointing to target"));
}

TEST(VrfLinks, WritesTextBehindTheNameOverTheName) {
    const TempDir dir;
    const std::string list = dir.write("link.txt", dir.path() + "|t|name|xy\n");
    EXPECT_EQ(vrm_vrf_links(list.c_str(), 0, 1), 0);
    EXPECT_EQ(link_text(dir / "xyme"), "t");
}

TEST(VrfLinks, ReplacesAnOldLinkWithBothFlags) {
    const TempDir dir;
    fs::create_symlink("old", dir / "link");
    const std::string list = dir.write("link.txt", dir.path() + "|new|link\n");
    EXPECT_EQ(vrm_vrf_links(list.c_str(), 1, 1), 0);
    EXPECT_EQ(link_text(dir / "link"), "new");
}

TEST(VrfLinks, OnlyRemovesWithTheRemoveFlagAlone) {
    const TempDir dir;
    const LogCapture log;
    fs::create_symlink("old", dir / "link");
    const std::string list = dir.write("link.txt", dir.path() + "|new|link\n");
    EXPECT_EQ(vrm_vrf_links(list.c_str(), 1, 0), 0);
    EXPECT_FALSE(exists(dir / "link"));
    // Nothing there: the last outcome is that of the lstat.
    EXPECT_EQ(vrm_vrf_links(list.c_str(), 1, 0), -1);
    EXPECT_THAT(log.at(LEVEL_ERROR), IsEmpty());
}

TEST(VrfLinks, NeverTouchesWhatIsNoLink) {
    const TempDir dir;
    const LogCapture log;
    dir.write("name", "content");
    const std::string list = dir.write("link.txt", dir.path() + "|target|name\n");
    EXPECT_EQ(vrm_vrf_links(list.c_str(), 1, 0), 0);
    EXPECT_TRUE(log.has(
        LEVEL_DEBUG, "vrm_vrf_links: name exists, but is not a symbolic link, refusing to delete"));
    EXPECT_THAT(log.at(LEVEL_ERROR), IsEmpty());
    EXPECT_EQ(vrm_vrf_links(list.c_str(), 1, 1), -1);
    EXPECT_THAT(log.at(LEVEL_ERROR),
                ElementsAre("vrm_vrf_links: Failed to create symbolic link named name pointing to "
                            "target: " +
                            std::string(strerror(EEXIST))));
    EXPECT_EQ(read_all(dir / "name"), "content");
}

TEST(VrfLinks, ReportsALinkThatCannotGoAtDebug) {
    const TempDir dir;
    const LogCapture log;
    const std::string list = dir.write("link.txt", (dir / "locked") + "|t|link\n");
    int result;
    {
        const WithoutPrivilege user(dir);
        chmod(list.c_str(), 0644);
        fs::create_directories(dir / "locked");
        fs::create_symlink("t", dir / "locked/link");
        chmod((dir / "locked").c_str(), 0555);
        result = vrm_vrf_links(list.c_str(), 1, 0);
    }
    EXPECT_EQ(result, -1);
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_vrf_links: Failed to remove symbolic link named link: " +
                                         std::string(strerror(EACCES))));
    EXPECT_THAT(log.at(LEVEL_ERROR), IsEmpty());
}

TEST(VrfLinks, SkipsAllUntilADirectoryThatCanBeReached) {
    const TempDir dir;
    const LogCapture log;
    const WorkingDir here(dir.path());
    const std::string file = dir.write("file", "");
    const std::string list = dir.write("link.txt", file + "/x|t|first\n|t|second\n\n" + file +
                                                       "/y\n" + (dir / "ok") + "|t|third\n");
    EXPECT_EQ(vrm_vrf_links(list.c_str(), 1, 1), 0);
    EXPECT_FALSE(exists(dir / "first"));
    EXPECT_FALSE(exists(dir / "second"));
    EXPECT_EQ(link_text(dir / "ok/third"), "t");
    const auto unreachable = [](const std::string &path) {
        return "vrm_vrf_links: Failed to change to directory " + path +
               ", skipping everything until the next directory entry";
    };
    EXPECT_THAT(log.at(LEVEL_ERROR),
                ElementsAre(unreachable(file + "/x"), unreachable(file + "/y")));
    const std::string skipped = "vrm_vrf_links: Skipping entry, as directory could not be reached";
    const std::vector<std::string> debug = log.at(LEVEL_DEBUG);
    EXPECT_EQ(std::count(debug.begin(), debug.end(), skipped), 2);
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_vrf_links: Skipping empty line no 3 in " + list));
}

TEST(VrfLinks, ResultIsTheLastTestOrChange) {
    const TempDir dir;
    // The directory is made, but the stat before it had failed and nothing came after.
    EXPECT_EQ(vrm_vrf_links(dir.write("1", (dir / "made") + "\n").c_str(), 1, 1), -1);
    EXPECT_TRUE(fs::is_directory(dir / "made"));
    EXPECT_EQ(vrm_vrf_links(dir.write("2", (dir / "made") + "\n").c_str(), 1, 1), 0);
    EXPECT_EQ(vrm_vrf_links(dir.write("3", "").c_str(), 1, 1), 0);
}

TEST(VrfLinks, FailsWithoutAList) {
    const TempDir dir;
    const LogCapture log;
    EXPECT_EQ(vrm_vrf_links((dir / "none").c_str(), 1, 1), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_vrf_links: Failed to open link file " + (dir / "none")));
}

TEST(VrfLinks, FailsWhereTheWorkingDirectoryIsGone) {
    const TempDir dir;
    const LogCapture log;
    const std::string list = dir.write("link.txt", dir.path() + "|t|link\n");
    fs::create_directories(dir / "gone");
    const WorkingDir here(dir / "gone");
    fs::remove(dir / "gone");
    EXPECT_EQ(vrm_vrf_links(list.c_str(), 1, 1), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_vrf_links: Failed to read pwd"));
    EXPECT_FALSE(exists(dir / "link"));
}

TEST(VrfLinks, FailsWhenThereIsNoWayBack) {
    const TempDir dir;
    const LogCapture log;
    const std::string list = dir.write("link.txt", dir.path() + "|t|link\n");
    const WorkingDir here(dir.path());
    const std::string name(200, 'd');
    for (int i = 0; i < 25; ++i) {  // deeper than a path can tell to the kernel
        ASSERT_EQ(mkdir(name.c_str(), 0755), 0);
        ASSERT_EQ(chdir(name.c_str()), 0);
    }
    EXPECT_EQ(vrm_vrf_links(list.c_str(), 1, 1), -1);
    EXPECT_EQ(link_text(dir / "link"), "t");
    EXPECT_THAT(log.at(LEVEL_ERROR),
                ElementsAre(StartsWith("Failed to change to initial directory " + dir.path())));
}

TEST(VrfLinks, FailsOnAListThatBreaksOff) {
    // A regular file that opens, and whose first byte can't be read.
    const std::string memory = "/proc/self/mem";
    const LogCapture log;
    EXPECT_EQ(vrm_vrf_links(memory.c_str(), 1, 1), -1);
    EXPECT_THAT(log.at(LEVEL_ERROR),
                ElementsAre("vrm_vrf_links: Failed to read " + memory + ": " + strerror(EIO)));
}

TEST(VrfLinks, RefusesOverlongLinesAndDoesNotWorkInTheWrongDirectory) {
    const TempDir dir;
    const LogCapture log;
    const std::string overlong(2064, 'x');
    const std::string list =
        dir.write("link.txt", dir.path() + "\n|" + overlong + "|one\n|t|two\n" + overlong +
                                  "|t|three\n|t|four\n" + dir.path() + "|t|five\n" +
                                  std::string(5000, 'x') + "\n|t|six\n");
    EXPECT_EQ(vrm_vrf_links(list.c_str(), 0, 1), 0);
    EXPECT_FALSE(exists(dir / "one"));
    EXPECT_EQ(link_text(dir / "two"), "t");
    EXPECT_FALSE(exists(dir / "three"));
    EXPECT_FALSE(exists(dir / "four"));
    EXPECT_EQ(link_text(dir / "five"), "t");
    EXPECT_FALSE(exists(dir / "six"));
    const std::string head = "vrm_vrf_links: Refusing line no ";
    EXPECT_THAT(log.at(LEVEL_ERROR),
                ElementsAre(head + "2 in " + list + ": a field is longer than 2063 bytes",
                            head + "4 in " + list + ": a field is longer than 2063 bytes",
                            head + "7 in " + list + ": it is longer than 4095 bytes"));
}

// ---- copy

TEST(VrfCopy, MakesTheTargetWithItsParents) {
    const TempDir dir;
    const LogCapture log;
    const std::string source = dir.write("source", "content");
    const std::string target = dir / "new/er/target";
    EXPECT_EQ(vrm_vrf_copy(target.c_str(), source.c_str(), nullptr, 0755), 7);
    EXPECT_EQ(read_all(target), "content");
    EXPECT_EQ(mode_of(target), 0755u);
    EXPECT_EQ(mode_of(dir / "new/er"), 0755u);
    EXPECT_THAT(log.at(LEVEL_DEBUG),
                ElementsAre("vrm_vrf_copy: backup base is NULL, will not backup target",
                            "vrm_vrf_copy: checking existence of " + target,
                            "vrm_vrf_copy: " + target + " does not exist, no backup necessary",
                            "Copying " + source + " to " + target, "Wrote 7 bytes to " + target));
}

TEST(VrfCopy, OfAnEmptySourceGives0) {
    const TempDir dir;
    const std::string source = dir.write("source", "");
    dir.write("target", "old");
    EXPECT_EQ(vrm_vrf_copy((dir / "target").c_str(), source.c_str(), nullptr, 1), 0);
    EXPECT_EQ(read_all(dir / "target"), "");
}

TEST(VrfCopy, CopiesLargeFilesWhole) {
    const TempDir dir;
    std::string content;
    for (int i = 0; content.size() < 3000000; ++i)
        content += std::to_string(i) + '\n';
    const std::string source = dir.write("source", content);
    EXPECT_EQ(vrm_vrf_copy((dir / "target").c_str(), source.c_str(), nullptr, 1),
              static_cast<int32_t>(content.size()));
    EXPECT_EQ(read_all(dir / "target"), content);
}

TEST(VrfCopy, CopiesFilesThatTellNoSize) {
    const TempDir dir;
    const int32_t bytes = vrm_vrf_copy((dir / "target").c_str(), "/proc/self/status", nullptr, 0);
    EXPECT_GT(bytes, 0);
    EXPECT_EQ(read_all(dir / "target").size(), static_cast<size_t>(bytes));
}

TEST(VrfCopy, SetsTheModeThatTheArgumentAsksFor) {
    const TempDir dir;
    const std::string source = dir.write("source", "x");
    chmod(source.c_str(), 04751);
    const mode_t before = umask(027);
    vrm_vrf_copy((dir / "none").c_str(), source.c_str(), nullptr, 0);
    vrm_vrf_copy((dir / "negative").c_str(), source.c_str(), nullptr, -1);
    vrm_vrf_copy((dir / "source's").c_str(), source.c_str(), nullptr, 1);
    vrm_vrf_copy((dir / "own").c_str(), source.c_str(), nullptr, 0644);
    umask(before);
    EXPECT_EQ(mode_of(dir / "none"), 0640u);
    EXPECT_EQ(mode_of(dir / "negative"), 0640u);
    EXPECT_EQ(mode_of(dir / "source's"), 04751u);
    EXPECT_EQ(mode_of(dir / "own"), 0644u);
}

TEST(VrfCopy, ReplacesTheOldFileByANewInode) {
    const TempDir dir;
    const std::string source = dir.write("source", "new");
    const std::string target = dir.write("target", "old");
    fs::create_hard_link(target, dir / "other name");
    const ino_t before = inode_of(target);
    EXPECT_EQ(vrm_vrf_copy(target.c_str(), source.c_str(), nullptr, 1), 3);
    EXPECT_NE(inode_of(target), before);
    EXPECT_EQ(read_all(dir / "other name"), "old");
}

TEST(VrfCopy, SavesTheOldFileToTheBackupTree) {
    const TempDir dir;
    const LogCapture log;
    const std::string source = dir.write("source", "new");
    const std::string one = dir.write("live/one", "old one"),
                      two = dir.write("live/two", "old two");
    chmod(one.c_str(), 04711);
    chmod(two.c_str(), 0640);
    const std::string base = dir / "backup";
    EXPECT_EQ(vrm_vrf_copy(one.c_str(), source.c_str(), base.c_str(), 0755), 3);
    const std::string saved = base + one;
    EXPECT_THAT(log.at(LEVEL_DEBUG),
                ElementsAre("vrm_vrf_copy: backup base is " + base + ", will backup target",
                            "vrm_vrf_copy: checking existence of " + one,
                            "vrm_vrf_copy: " + one + " exists",
                            "Backing up " + one + " to " + saved, "Wrote 7 bytes to " + saved,
                            "Copying " + source + " to " + one, "Wrote 3 bytes to " + one));
    EXPECT_EQ(vrm_vrf_copy(two.c_str(), source.c_str(), base.c_str(), 0755), 3);
    EXPECT_EQ(read_all(one), "new");
    EXPECT_EQ(read_all(saved), "old one");
    EXPECT_EQ(mode_of(saved), 04711u);
    EXPECT_EQ(read_all(base + two), "old two");
    EXPECT_EQ(mode_of(base + two), 0640u);
    EXPECT_EQ(read_all(base + "/index.txt"), one + "\n" + two + "\n");
}

TEST(VrfCopy, SavesNothingWhereNothingWas) {
    const TempDir dir;
    const std::string source = dir.write("source", "new");
    EXPECT_EQ(vrm_vrf_copy((dir / "target").c_str(), source.c_str(), (dir / "backup").c_str(), 1),
              3);
    EXPECT_FALSE(exists(dir / "backup"));
}

TEST(VrfCopy, TreatsALinkToAFileAsTheFile) {
    const TempDir dir;
    const LogCapture log;
    const std::string source = dir.write("source", "new");
    dir.write("pointed to", "old");
    fs::create_symlink("pointed to", dir / "link");
    const std::string base = dir / "backup";
    EXPECT_EQ(vrm_vrf_copy((dir / "link").c_str(), source.c_str(), base.c_str(), 1), 3);
    EXPECT_FALSE(fs::is_symlink(dir / "link"));
    EXPECT_EQ(read_all(dir / "link"), "new");
    EXPECT_EQ(read_all(dir / "pointed to"), "old");
    EXPECT_EQ(read_all(base + (dir / "link")), "old");
    EXPECT_THAT(log.at(LEVEL_INFO), IsEmpty());
}

TEST(VrfCopy, WritesThroughADanglingLink) {
    const TempDir dir;
    const LogCapture log;
    const std::string source = dir.write("source", "new");
    fs::create_symlink("pointed to", dir / "link");
    EXPECT_EQ(vrm_vrf_copy((dir / "link").c_str(), source.c_str(), (dir / "backup").c_str(), 1), 3);
    EXPECT_TRUE(fs::is_symlink(dir / "link"));
    EXPECT_EQ(read_all(dir / "pointed to"), "new");
    EXPECT_TRUE(log.has(
        LEVEL_DEBUG, "vrm_vrf_copy: " + (dir / "link") + " does not exist, no backup necessary"));
}

TEST(VrfCopy, RefusesATargetThatIsNoFile) {
    const TempDir dir;
    const LogCapture log;
    const std::string source = dir.write("source", "new");
    dir.write("directory/inner", "x");
    EXPECT_EQ(
        vrm_vrf_copy((dir / "directory").c_str(), source.c_str(), (dir / "backup").c_str(), 1), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR,
                        (dir / "directory") + " is not a regular file, refusing to remove it"));
    EXPECT_TRUE(exists(dir / "directory/inner"));
    EXPECT_FALSE(exists(dir / "backup"));
}

TEST(VrfCopy, ReportsASourceThatIsMissing) {
    const TempDir dir;
    const LogCapture log;
    const std::string target = dir.write("target", "old");
    EXPECT_EQ(vrm_vrf_copy(target.c_str(), (dir / "none").c_str(), nullptr, 1), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "Failed to stat " + (dir / "none") + ": " + strerror(ENOENT)));
    EXPECT_EQ(read_all(target), "old");
}

TEST(VrfCopy, RefusesAFifoOrADirectoryAsSourceAndLeavesTheTarget) {
    const TempDir dir;
    const LogCapture log;
    const std::string target = dir.write("target", "old");
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    for (const std::string &source : {dir / "fifo", dir.path(), std::string("/dev/zero")}) {
        EXPECT_EQ(vrm_vrf_copy(target.c_str(), source.c_str(), nullptr, 1), -1);
        EXPECT_TRUE(
            log.has(LEVEL_ERROR, "Failed to open " + source + " for reading: Not a regular file"));
        EXPECT_EQ(read_all(target), "old");
    }
}

TEST(VrfCopy, ReportsFilesThatItMayNotOpen) {
    const TempDir dir;
    const LogCapture log;
    int of_source, of_target, of_old;
    {
        const WithoutPrivilege user(dir);
        dir.write("source", "new");
        dir.write("secret", "new");
        dir.write("old", "old");
        fs::create_directories(dir / "locked");
        chmod((dir / "secret").c_str(), 0);
        chmod((dir / "old").c_str(), 0);
        chmod((dir / "locked").c_str(), 0555);
        of_source = vrm_vrf_copy((dir / "a").c_str(), (dir / "secret").c_str(), nullptr, 1);
        of_target = vrm_vrf_copy((dir / "locked/b").c_str(), (dir / "source").c_str(), nullptr, 1);
        of_old = vrm_vrf_copy((dir / "old").c_str(), (dir / "source").c_str(),
                              (dir / "backup").c_str(), 1);
    }
    EXPECT_EQ(of_source, -1);
    EXPECT_EQ(of_target, -1);
    EXPECT_EQ(of_old, -1);
    const std::string why = strerror(EACCES);
    EXPECT_THAT(log.at(LEVEL_ERROR),
                ElementsAre("Failed to open " + (dir / "secret") + " for reading: " + why,
                            "Failed to open " + (dir / "locked/b") + " for writing: " + why,
                            "Failed to open " + (dir / "old") + " for reading: " + why));
    EXPECT_TRUE(exists(dir / "old"));
}

TEST(VrfCopy, ReportsABackupThatCannotBeMade) {
    const TempDir dir;
    const LogCapture log;
    const std::string source = dir.write("source", "new"), target = dir.write("target", "old");
    const std::string base = dir.write("not a directory", "");
    EXPECT_EQ(vrm_vrf_copy(target.c_str(), source.c_str(), base.c_str(), 1), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR,
                        "Failed to open " + base + target + " for writing: " + strerror(ENOTDIR)));
    EXPECT_EQ(read_all(target), "old");
}

TEST(VrfCopy, AShortWriteIsAFailure) {
    const TempDir dir;
    const LogCapture log;
    const std::string large(300000, 'x');
    const std::string source = dir.write("source", large), small = dir.write("small", "s");
    const std::string target = dir.write("target", large);
    const std::string base = dir / "backup";
    const std::string why = strerror(EFBIG);
    {
        const LowerLimit size(RLIMIT_FSIZE, 100000);
        EXPECT_EQ(vrm_vrf_copy((dir / "other").c_str(), source.c_str(), nullptr, 1), -1);
        EXPECT_EQ(vrm_vrf_copy(target.c_str(), small.c_str(), base.c_str(), 1), -1);
    }
    EXPECT_THAT(log.at(LEVEL_ERROR), ElementsAre("Failed to write " + (dir / "other") + ": " + why,
                                                 "Failed to write " + base + target + ": " + why));
    EXPECT_EQ(read_all(target), large);
    EXPECT_FALSE(exists(base + "/index.txt"));
    // What is not whole has no mode yet, and nobody else may read it.
    EXPECT_EQ(mode_of(dir / "other"), 0600u);
    EXPECT_EQ(mode_of(base + target), 0600u);
}

TEST(VrfCopy, LeavesPartOfAFileThatDoesNotFit) {
    const TempDir dir;
    const std::string source = dir.write("source", std::string(300000, 'x'));
    const std::string target = dir.write("target", "old");
    const std::string base = dir / "backup";
    {
        const LowerLimit size(RLIMIT_FSIZE, 100000);
        EXPECT_EQ(vrm_vrf_copy(target.c_str(), source.c_str(), base.c_str(), 0644), -1);
    }
    EXPECT_EQ(read_all(target), std::string(100000, 'x'));
    EXPECT_EQ(read_all(base + target), "old");
    EXPECT_EQ(read_all(base + "/index.txt"), target + "\n");
}

TEST(VrfCopy, HasSavedAndRemovedTheTargetWhenTheSourceCannotBeOpened) {
    const TempDir dir;
    const LogCapture log;
    const std::string source = dir / "secret", target = dir / "target", base = dir / "backup";
    int result;
    {
        const WithoutPrivilege user(dir);
        dir.write("secret", "new");
        dir.write("target", "old");
        chmod(source.c_str(), 0);
        result = vrm_vrf_copy(target.c_str(), source.c_str(), base.c_str(), 1);
    }
    EXPECT_EQ(result, -1);
    EXPECT_THAT(log.at(LEVEL_ERROR),
                ElementsAre("Failed to open " + source + " for reading: " + strerror(EACCES)));
    EXPECT_FALSE(exists(target));
    EXPECT_EQ(read_all(base + target), "old");
    EXPECT_EQ(read_all(base + "/index.txt"), target + "\n");
}

TEST(VrfCopy, ReportsASourceThatBreaksOff) {
    // A regular file that opens, and whose first byte can't be read.
    const std::string memory = "/proc/self/mem";
    const TempDir dir;
    const LogCapture log;
    const std::string target = dir.write("target", "old");
    EXPECT_EQ(vrm_vrf_copy(target.c_str(), memory.c_str(), nullptr, 1), -1);
    EXPECT_THAT(log.at(LEVEL_ERROR),
                ElementsAre("Failed to read " + memory + ": " + strerror(EIO)));
    EXPECT_TRUE(log.has_line_end(LEVEL_ERROR, "Failed to read " + memory + ": " + strerror(EIO)));
}

TEST(VrfCopy, WarnsOfAModeThatCannotBeSet) {
    // A regular file that can neither be removed nor get another mode: the thread's name.
    const std::string name = "/proc/self/comm";
    const TempDir dir;
    const LogCapture log;
    const std::string before = read_all(name);
    const std::string warning = "Failed to set permission on " + name + ": " + strerror(EPERM);
    EXPECT_EQ(vrm_vrf_copy(name.c_str(), dir.write("source", "renamed").c_str(), nullptr, 0755), 7);
    EXPECT_EQ(read_all(name), "renamed\n");
    EXPECT_EQ(log.at(LEVEL_WARNING), std::vector<std::string>{warning});
    EXPECT_TRUE(log.has_line_end(LEVEL_WARNING, warning));
    EXPECT_THAT(log.at(LEVEL_ERROR), IsEmpty());
    EXPECT_EQ(vrm_vrf_copy(name.c_str(), dir.write("source", before).c_str(), nullptr, 0),
              static_cast<int32_t>(before.size()));
    EXPECT_EQ(log.at(LEVEL_WARNING).size(), 1u) << "no mode was asked for";
}

TEST(VrfCopy, CopiesNeitherOwnerNorTimes) {
    const TempDir dir;
    const std::string source = dir.write("source", "x"), target = dir / "target";
    const timespec long_ago[2] = {{1000000000, 0}, {1000000000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, source.c_str(), long_ago, 0), 0);
    if (getuid() == 0) {
        ASSERT_EQ(chown(source.c_str(), 65534, 65534), 0);
    }
    EXPECT_EQ(vrm_vrf_copy(target.c_str(), source.c_str(), nullptr, 1), 1);
    struct stat info;
    ASSERT_EQ(stat(target.c_str(), &info), 0);
    EXPECT_EQ(info.st_uid, geteuid());
    EXPECT_EQ(info.st_gid, getegid());
    EXPECT_GT(info.st_mtime, 1000000000);
}

TEST(VrfCopy, EndsItsMessagesWithALineEnd) {
    const TempDir dir;
    const LogCapture log;
    const std::string source = dir.write("source", "new"), target = dir.write("target", "old");
    const std::string base = dir / "backup", none = dir / "none";
    EXPECT_EQ(vrm_vrf_copy(target.c_str(), source.c_str(), base.c_str(), 1), 3);
    EXPECT_EQ(vrm_vrf_copy(target.c_str(), none.c_str(), nullptr, 1), -1);
    EXPECT_EQ(vrm_vrf_copy(target.c_str(), dir.path().c_str(), nullptr, 1), -1);
    EXPECT_EQ(vrm_vrf_copy((source + "/below").c_str(), source.c_str(), nullptr, 1), -1);
    const std::vector<std::string> debug = {
        "Backing up " + target + " to " + base + target, "Wrote 3 bytes to " + base + target,
        "Copying " + source + " to " + target, "Wrote 3 bytes to " + target};
    for (const std::string &message : debug)
        EXPECT_TRUE(log.has_line_end(LEVEL_DEBUG, message)) << message;
    const std::vector<std::string> errors = {
        "Failed to stat " + none + ": " + strerror(ENOENT),
        "Failed to open " + dir.path() + " for reading: Not a regular file",
        "Failed to open " + source + "/below for writing: " + strerror(ENOTDIR)};
    for (const std::string &message : errors)
        EXPECT_TRUE(log.has_line_end(LEVEL_ERROR, message)) << message;
    EXPECT_FALSE(log.has_line_end(LEVEL_DEBUG, "vrm_vrf_copy: " + target + " exists"));
}

TEST(VrfCopy, AnIndexLineThatCannotBeWrittenIsAFailure) {
    const TempDir dir;
    const LogCapture log;
    const std::string source = dir.write("source", "new");
    const std::string target = dir.write("target", "old", 0640);
    const std::string index = dir.write("backup/index.txt", std::string(100000, 'x'));
    {
        const LowerLimit size(RLIMIT_FSIZE, 100000);
        EXPECT_EQ(vrm_vrf_copy(target.c_str(), source.c_str(), (dir / "backup").c_str(), 1), -1);
    }
    EXPECT_THAT(log.at(LEVEL_ERROR),
                ElementsAre("Failed to write " + index + ": " + strerror(EFBIG)));
    EXPECT_EQ(read_all(target), "old");
    EXPECT_EQ(mode_of(dir / "backup" + target), 0640u);
}

TEST(VrfCopy, ListsABackupThatIsWholeAndHasItsMode) {
    const TempDir dir;
    const std::string source = dir.write("source", "new");
    const std::string target = dir.write("target", "old", 0640);
    const std::string base = dir / "backup";
    fs::create_directories(base + dir.path());
    const own_fd events(inotify_init1(IN_NONBLOCK));
    inotify_add_watch(events.get(), base.c_str(), IN_CLOSE_WRITE);
    inotify_add_watch(events.get(), (base + dir.path()).c_str(), IN_CLOSE_WRITE | IN_ATTRIB);
    EXPECT_EQ(vrm_vrf_copy(target.c_str(), source.c_str(), base.c_str(), 1), 3);

    std::vector<std::string> order;
    alignas(inotify_event) char buffer[4096];
    const ssize_t length = read(events.get(), buffer, sizeof buffer);
    for (ssize_t at = 0; at < length;) {
        const auto *event = reinterpret_cast<const inotify_event *>(buffer + at);
        order.push_back(std::string(event->name) + (event->mask & IN_ATTRIB ? " mode" : " closed"));
        at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
    }
    // Equal events in a row are one: owner, mode and times.
    EXPECT_THAT(order, ElementsAre("target mode", "target closed", "index.txt closed"));
}

TEST(VrfCopy, OntoItselfKeepsTheContent) {
    const TempDir dir;
    const std::string file = dir.write("file", "content");
    EXPECT_EQ(vrm_vrf_copy(file.c_str(), file.c_str(), nullptr, 1), 7);
    EXPECT_EQ(read_all(file), "content");
}
