#include "support/file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>
#include <vector>

#include "kit/capture.h"
#include "kit/failing_memory.h"
#include "kit/failing_reads.h"
#include "kit/mode.h"
#include "kit/temp_dir.h"
#include "support/array.h"
#include "support/own.h"

namespace fs = std::filesystem;

static std::vector<std::string> lines_of(const std::string &content) {
    const TempDir dir;
    int count = -1;
    const own_array lines(read_file_lines(dir.write("file", content).c_str(), &count));
    EXPECT_EQ(count, arr_count(lines.get()));
    std::vector<std::string> result;
    for (int i = 0; i < count; i++) {
        result.emplace_back(lines.get()[i]);
    }
    return result;
}

using Lines = std::vector<std::string>;

// Lets no file of the process grow beyond a size, as a full disk would.
class FileLimit {
 public:
    explicit FileLimit(rlim_t bytes) {
        signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &before_);
        rlimit limit = before_;
        limit.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileLimit() {
        setrlimit(RLIMIT_FSIZE, &before_);
        signal(SIGXFSZ, SIG_DFL);
    }

 private:
    rlimit before_;
};

TEST(ReadFile, GivesTheBytesAndRoomForTenMore) {
    const TempDir dir;
    const std::string content("a\0b\nc", 5);
    size_t length = 99;
    const own_string block(_read_file(dir.write("file", content).c_str(), &length));
    ASSERT_TRUE(block);
    EXPECT_EQ(std::string(block.get(), length), content);
    memset(block.get() + length, '!', 10);  // the address sanitizer tells if this is no room
}

TEST(ReadFile, GivesAnEmptyBlockForAFileWithoutSize) {
    const TempDir dir;
    size_t length = 99;
    const own_string block(_read_file(dir.write("empty", "").c_str(), &length));
    ASSERT_TRUE(block);
    EXPECT_EQ(length, 0u);
    memset(block.get(), '!', 10);
    const own_string proc(_read_file("/proc/self/status", &length));
    EXPECT_TRUE(proc);
    EXPECT_EQ(length, 0u);
}

TEST(ReadFile, GivesNullAndLengthZeroForWhatIsNoFile) {
    const TempDir dir;
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
    for (const std::string &path :
         {dir / "missing", dir.path(), dir / "pipe", std::string("/dev/zero")}) {
        size_t length = 99;
        EXPECT_EQ(_read_file(path.c_str(), &length), nullptr) << path;
        EXPECT_EQ(length, 0u);
    }
}

TEST(ReadFileAt, ReadsBelowAnOpenDirectory) {
    const TempDir dir;
    ASSERT_EQ(mkdir((dir / "below").c_str(), 0755), 0);
    dir.write("below/file", "text");
    const own_fd here(open(dir.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    size_t length = 99;
    struct stat status = {};
    const own_string block(read_file_at(here.get(), "below/file", &length, &status));
    ASSERT_TRUE(block);
    EXPECT_EQ(std::string(block.get(), length), "text");
    memset(block.get() + length, '!', 10);
    EXPECT_EQ(status.st_size, 4);
    const own_string same(read_file_at(AT_FDCWD, (dir / "below/file").c_str(), &length));
    EXPECT_TRUE(same);
}

TEST(ReadFileAt, GivesNullAndLengthZeroForWhatIsNoFile) {
    const TempDir dir;
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
    ASSERT_EQ(mkdir((dir / "below").c_str(), 0755), 0);
    const own_fd here(open(dir.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (const char *path : {"missing", "below", "pipe", "/dev/zero"}) {
        size_t length = 99;
        EXPECT_EQ(read_file_at(here.get(), path, &length), nullptr) << path;
        EXPECT_EQ(length, 0u) << path;
    }
}

TEST(ReadFileLines, KeepsEmptyLinesAndDropsNewlines) {
    EXPECT_EQ(lines_of("one\n\nthree\n"), (Lines{"one", "", "three"}));
    EXPECT_EQ(lines_of("one\nlast without"), (Lines{"one", "last without"}));
    EXPECT_EQ(lines_of("\n\n"), (Lines{"", ""}));
    EXPECT_EQ(lines_of("carriage\r\nreturn\r\n"), (Lines{"carriage\r", "return\r"}));
}

TEST(ReadFileLines, GivesALoneLineInTwoPieces) {
    EXPECT_EQ(lines_of("abc"), (Lines{"ab", "c"}));
    EXPECT_EQ(lines_of("ab"), (Lines{"a", "b"}));
    EXPECT_EQ(lines_of("ab\n"), (Lines{"ab", ""}));
}

TEST(ReadFileLines, EndsOnAFileOfOneByte) {
    EXPECT_EQ(lines_of("a"), Lines{"a"});
    EXPECT_EQ(lines_of("\n"), Lines{""});
}

TEST(ReadFileLines, GrowsBeyondItsFirstHundred) {
    std::string content;
    Lines expected;
    for (int i = 0; i < 1001; i++) {
        expected.push_back("line " + std::to_string(i));
        content += expected.back() + "\n";
    }
    EXPECT_EQ(lines_of(content), expected);
}

TEST(ReadFileLines, GivesNullAndCountZeroForEmptyAndMissingFiles) {
    const TempDir dir;
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
    for (const std::string &path :
         {dir.write("empty", ""), dir / "missing", dir.path(), dir / "pipe"}) {
        int count = 99;
        EXPECT_EQ(read_file_lines(path.c_str(), &count), nullptr) << path;
        EXPECT_EQ(count, 0);
        EXPECT_EQ(errno == 0, path.ends_with("empty")) << path;
    }
}

TEST(ReadFileLines, GivesAllLinesOrNoneWhenMemoryFails) {
    const TempDir dir;
    std::string content;
    for (int i = 0; i < 150; i++) {
        content += "line\n";
    }
    const std::string path = dir.write("file", content);
    int count = 99;
    for (const int copies : {0, 1, 149}) {
        strdups_left = copies;
        char **const lines = read_file_lines(path.c_str(), &count);
        strdups_left = -1;
        EXPECT_EQ(lines, nullptr) << copies;
        EXPECT_EQ(count, 0) << copies;
        EXPECT_EQ(errno, ENOMEM);
    }
    growing_fails = true;
    EXPECT_EQ(read_file_lines(path.c_str(), &count), nullptr);
    growing_fails = false;
    strdups_left = 150;
    const own_array lines(read_file_lines(path.c_str(), &count));
    strdups_left = -1;
    EXPECT_EQ(count, 150);
}

TEST(ReadFileLines, GivesNoneOfAFileThatBreaksOff) {
    const TempDir dir;
    const std::string path = dir.write("file", "one\ntwo\nthree\n");
    for (const int bytes : {0, 1, 4, 5, 14}) {
        int count = 99;
        const FailingStream failing(bytes);
        EXPECT_EQ(read_file_lines(path.c_str(), &count), nullptr) << bytes;
        EXPECT_EQ(errno, EIO);
        EXPECT_EQ(count, 0);
    }
}

TEST(FopenRegular, TellsWhatItOpened) {
    const TempDir dir;
    const std::string path = dir.write("file", "12345", 0640);
    struct stat status;
    const own_file file(fopen_regular(path.c_str(), &status));
    ASSERT_TRUE(file);
    EXPECT_EQ(status.st_size, 5);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    EXPECT_EQ(fopen_regular(dir.path().c_str(), nullptr), nullptr);
    EXPECT_EQ(errno, EISDIR);
}

TEST(OpenRegular, TellsWhyNot) {
    const TempDir dir;
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
    const char *why = nullptr;
    struct stat status;
    for (const std::string &path : {dir / "pipe", dir.path(), std::string("/dev/null")}) {
        EXPECT_FALSE(open_regular(path.c_str(), &status, &why).valid()) << path;
        EXPECT_STREQ(why, "Not a regular file");
        EXPECT_NE(status.st_mode, 0u);
    }
    EXPECT_FALSE(open_regular((dir / "missing").c_str(), &status, &why).valid());
    EXPECT_STREQ(why, "No such file or directory");
    EXPECT_EQ(status.st_mode, 0u);
    EXPECT_EQ(errno, ENOENT);
}

TEST(OpenRegular, FollowsLinks) {
    const TempDir dir;
    dir.write("file", "text");
    ASSERT_EQ(symlink("file", (dir / "link").c_str()), 0);
    EXPECT_TRUE(open_regular((dir / "link").c_str()).valid());
}

TEST(ToldBytes, StopAtTheLargestNumber) {
    EXPECT_EQ(told_bytes(0), 0);
    EXPECT_EQ(told_bytes(2147483647), 2147483647);
    EXPECT_EQ(told_bytes(2147483648), 2147483647);
    EXPECT_EQ(told_bytes(uint64_t{1} << 33), 2147483647);
}

TEST(FileCopy, CopiesEveryByteAndCountsThem) {
    const TempDir dir;
    for (const size_t size : std::initializer_list<size_t>{0, 1, 1023, 1024, 1025, 65536, 200001}) {
        std::string content(size, '\0');
        for (size_t i = 0; i < size; i++) {
            content[i] = static_cast<char>(i * 31);
        }
        const std::string source = dir.write("source", content);
        const std::string target = dir / "target";
        EXPECT_EQ(file_copy(target.c_str(), source.c_str(), 0), static_cast<int32_t>(size));
        EXPECT_EQ(read_all(target), content);
    }
}

TEST(FileCopy, OverwritesALongerTarget) {
    const TempDir dir;
    const std::string target = dir.write("target", "a much longer text", 0604);
    EXPECT_EQ(file_copy(target.c_str(), dir.write("source", "short").c_str(), 0), 5);
    EXPECT_EQ(read_all(target), "short");
    EXPECT_EQ(mode_of(target), 0604u);
}

TEST(FileCopy, SetsPermissionsByItsMode) {
    const TempDir dir;
    const std::string source = dir.write("source", "x", 04751);
    file_copy((dir / "same").c_str(), source.c_str(), 1);
    EXPECT_EQ(mode_of(dir / "same"), 04751u);
    file_copy((dir / "given").c_str(), source.c_str(), 0642);
    EXPECT_EQ(mode_of(dir / "given"), 0642u);
    const mode_t before = umask(027);
    file_copy((dir / "zero").c_str(), source.c_str(), 0);
    file_copy((dir / "negative").c_str(), source.c_str(), -1);
    umask(before);
    EXPECT_EQ(mode_of(dir / "zero"), 0640u);
    EXPECT_EQ(mode_of(dir / "negative"), 0640u);
}

TEST(FileCopy, FailsOnWhatCannotBeOpened) {
    const TempDir dir;
    const std::string source = dir.write("source", "x");
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(file_copy((dir / "target").c_str(), (dir / "missing").c_str(), 0), -1);
    EXPECT_FALSE(exists(dir / "target"));
    EXPECT_EQ(file_copy((dir / "no/target").c_str(), source.c_str(), 0), -1);
    EXPECT_EQ(file_copy((dir / "target").c_str(), dir.path().c_str(), 0), -1);
    EXPECT_EQ(file_copy(dir.path().c_str(), source.c_str(), 0), -1);
    EXPECT_EQ(file_copy((dir / "target").c_str(), (dir / "pipe").c_str(), 0), -1);
    EXPECT_EQ(file_copy((dir / "pipe").c_str(), source.c_str(), 0), -1);
    EXPECT_EQ(file_copy("/dev/null", source.c_str(), 0), -1);
}

TEST(FileCopy, LeavesAFileAloneThatIsItsOwnSource) {
    const TempDir dir;
    const std::string path = dir.write("file", "precious");
    fs::create_hard_link(path, dir / "other name");
    EXPECT_EQ(file_copy(path.c_str(), path.c_str(), 1), -1);
    EXPECT_EQ(file_copy((dir / "other name").c_str(), path.c_str(), 1), -1);
    EXPECT_EQ(read_all(path), "precious");
}

TEST(FileCopy, FailsWhenNotEveryByteIsWritten) {
    const TempDir dir;
    const std::string source = dir.write("source", std::string(100000, 'x'));
    const FileLimit limit(70000);
    EXPECT_EQ(file_copy((dir / "target").c_str(), source.c_str(), 0), -1);
}

TEST(FileCopyBack, PutsAFileWhereNoneStands) {
    const TempDir dir;
    const std::string source = dir.write("source", "new", 0751);
    EXPECT_EQ(stderr_of([&] {
                  EXPECT_EQ(file_copy_back((dir / "target").c_str(), source.c_str(),
                                           (dir / "backup").c_str(), 1),
                            3);
              }),
              "");
    EXPECT_EQ(read_all(dir / "target"), "new");
    EXPECT_EQ(mode_of(dir / "target"), 0751u);
    EXPECT_FALSE(exists(dir / "backup"));
}

TEST(FileCopyBack, BacksUpWhatStandsThereWithItsPermissions) {
    const TempDir dir;
    const std::string target = dir.write("target", "old text", 0604);
    const std::string source = dir.write("source", "new", 0640);
    EXPECT_EQ(file_copy_back(target.c_str(), source.c_str(), (dir / "backup").c_str(), 0600), 3);
    EXPECT_EQ(read_all(target), "new");
    EXPECT_EQ(mode_of(target), 0600u);
    EXPECT_EQ(read_all(dir / "backup"), "old text");
    EXPECT_EQ(mode_of(dir / "backup"), 0604u);
}

TEST(FileCopyBack, LeavesTheOldFileToThoseWhoHaveItOpen) {
    const TempDir dir;
    const std::string target = dir.write("target", "old");
    const own_file reader(fopen(target.c_str(), "r"));
    EXPECT_EQ(file_copy_back(target.c_str(), dir.write("source", "new").c_str(), nullptr, 0), 3);
    EXPECT_EQ(fgetc(reader.get()), 'o');
    EXPECT_EQ(read_all(target), "new");
}

TEST(FileCopyBack, SetsNoPermissionsBelowOne) {
    const TempDir dir;
    const std::string source = dir.write("source", "x", 0751);
    const mode_t before = umask(027);
    EXPECT_EQ(file_copy_back((dir / "zero").c_str(), source.c_str(), nullptr, 0), 1);
    EXPECT_EQ(file_copy_back((dir / "negative").c_str(), source.c_str(), nullptr, -1), 1);
    umask(before);
    EXPECT_EQ(mode_of(dir / "zero"), 0640u);
    EXPECT_EQ(mode_of(dir / "negative"), 0640u);
}

TEST(FileCopyBack, ReplacesALinkAndNotTheFileBehindIt) {
    const TempDir dir;
    const std::string behind = dir.write("behind", "kept");
    fs::create_symlink(behind, dir / "link");
    EXPECT_EQ(file_copy_back((dir / "link").c_str(), dir.write("source", "new").c_str(),
                             (dir / "backup").c_str(), 0),
              3);
    EXPECT_FALSE(fs::is_symlink(dir / "link"));
    EXPECT_EQ(read_all(dir / "link"), "new");
    EXPECT_EQ(read_all(behind), "kept");
    EXPECT_EQ(read_all(dir / "backup"), "kept");
}

TEST(FileCopyBack, TellsEachFailureOnStderr) {
    const TempDir dir;
    const std::string source = dir.write("source", "new");
    const std::string target = dir.write("target", "old");
    fs::create_directory(dir / "directory");
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
    const auto message = [&](const std::string &to, const std::string &from,
                             const char *backup = nullptr) {
        return stderr_of(
            [&] { EXPECT_EQ(file_copy_back(to.c_str(), from.c_str(), backup, 0), -1); });
    };
    EXPECT_EQ(message(target, dir / "missing"),
              "Failed to stat " + dir / "missing" + ": No such file or directory\n");
    EXPECT_EQ(message(dir / "directory", source),
              dir / "directory" + " is not a regular file, refusing to remove it\n");
    EXPECT_EQ(message(dir / "pipe", source),
              dir / "pipe" + " is not a regular file, refusing to remove it\n");
    EXPECT_EQ(message(target, source, (dir / "no/backup").c_str()),
              "Failed to open " + dir / "no/backup" + " for writing: No such file or directory\n");
    EXPECT_EQ(message(dir / "no/target", source),
              "Failed to open " + dir / "no/target" + " for writing: No such file or directory\n");
    EXPECT_EQ(message(target, dir / "directory"),
              "Failed to open " + dir / "directory" + " for reading: Not a regular file\n");
    EXPECT_EQ(message(target, dir / "pipe"),
              "Failed to open " + dir / "pipe" + " for reading: Not a regular file\n");
    EXPECT_EQ(read_all(target), "old");
    EXPECT_TRUE(fs::is_directory(dir / "directory"));
}

TEST(FileCopyBack, KeepsTheTargetWhenTheBackupIsNotComplete) {
    const TempDir dir;
    const std::string target = dir.write("target", std::string(100000, 'o'));
    const std::string source = dir.write("source", "new");
    const std::string backup = dir / "backup";
    const std::string told = stderr_of([&] {
        const FileLimit limit(70000);
        EXPECT_EQ(file_copy_back(target.c_str(), source.c_str(), backup.c_str(), 0), -1);
    });
    EXPECT_EQ(told, "Failed to write " + backup + ": File too large\n");
    EXPECT_EQ(read_all(target), std::string(100000, 'o'));
}

TEST(FileCopyBack, RefusesTheTargetItselfAsBackup) {
    const TempDir dir;
    const std::string target = dir.write("target", "old");
    EXPECT_EQ(stderr_of([&] {
                  EXPECT_EQ(file_copy_back(target.c_str(), dir.write("source", "new").c_str(),
                                           target.c_str(), 0),
                            -1);
              }),
              "Failed to open " + target + " for writing: Invalid argument\n");
    EXPECT_EQ(read_all(target), "old");
}

TEST(FileCopyBack, TellsOfPermissionsThatCannotBeSetAndGoesOn) {
    // The kernel lets a process write its own name there and refuses to change the permissions.
    const TempDir dir;
    const std::string name = read_all("/proc/self/comm");
    EXPECT_EQ(stderr_of([&] {
                  EXPECT_EQ(file_copy_back("/proc/self/comm", dir.write("source", "copied").c_str(),
                                           nullptr, 1),
                            6);
              }),
              "Failed to set permission on /proc/self/comm: Operation not permitted\n");
    EXPECT_EQ(read_all("/proc/self/comm"), "copied\n");
    EXPECT_EQ(file_copy("/proc/self/comm", dir.write("source", name).c_str(), 1),
              static_cast<int32_t>(name.size()));
}

TEST(FileIsMissing, OnlyWhereNothingIs) {
    const TempDir dir;
    const std::string file = dir.write("file", "text");
    EXPECT_FALSE(is_missing(file.c_str()));
    EXPECT_FALSE(is_missing(dir.path().c_str()));
    EXPECT_TRUE(is_missing((dir / "nothing").c_str()));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_TRUE(is_missing((dir / "file/below").c_str()));
    EXPECT_TRUE(is_missing((dir / "no/such/directory").c_str()));
}

TEST(FileIsMissing, ADanglingLinkIsAndALoopIsNot) {
    const TempDir dir;
    fs::create_symlink("nothing", dir / "dangling");
    fs::create_symlink("loop", dir / "loop");
    EXPECT_TRUE(is_missing((dir / "dangling").c_str()));
    EXPECT_FALSE(is_missing((dir / "loop").c_str()));
    EXPECT_EQ(errno, ELOOP);
}

TEST(PathExists, CountsALinkThatLeadsNowhere) {
    const TempDir dir;
    dir.write("file", "");
    std::filesystem::create_symlink("nothing", dir / "link");
    EXPECT_TRUE(path_exists(dir / "file"));
    EXPECT_TRUE(path_exists(dir / "link"));
    EXPECT_FALSE(path_exists(dir / "nothing"));
}

TEST(WriteAll, WritesEveryByteOrFailsWithTheReason) {
    const TempDir dir;
    const std::string bytes(100000, 'x');
    own_fd file(open((dir / "file").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    EXPECT_TRUE(write_all(file.get(), bytes));
    EXPECT_EQ(file.close(), 0);
    EXPECT_EQ(read_all(dir / "file"), bytes);
    const own_fd full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    EXPECT_FALSE(write_all(full.get(), "x"));
    EXPECT_EQ(errno, ENOSPC);
}
