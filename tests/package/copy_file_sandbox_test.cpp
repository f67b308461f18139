#include "package/copy_file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "kit/log_capture.h"
#include "kit/marked_file.h"
#include "kit/temp_dir.h"
#include "package/fileops.h"

// Files of other users, with capabilities: only root can make them, as it is in the throwaway root.

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

// --- What the library asks the kernel for
// ---------------------------------------------------------

static constexpr uid_t owner = 65534;
static std::vector<std::string> calls;
static bool chown_fails = false, removal_fails = false;
static std::string failing_attribute;
// Moments at which a file had a set-id bit and an owner that is not to have it.
static int set_id_of_another = 0;

static void note_call(const char *name, int file) {
    calls.emplace_back(name);
    struct stat status = {};
    if (fstat(file, &status) == 0 && (status.st_mode & 06000) != 0 && status.st_uid != owner) {
        set_id_of_another++;
    }
}

extern "C" int fchown(int file, uid_t user, gid_t group) noexcept {
    errno = EPERM;
    const long result = chown_fails ? -1 : syscall(SYS_fchown, file, user, group);
    note_call("fchown", file);
    return static_cast<int>(result);
}

extern "C" int fsetxattr(int file, const char *name, const void *value, size_t size,
                         int flags) noexcept {
    errno = ENOSPC;
    const long result =
        name == failing_attribute ? -1 : syscall(SYS_fsetxattr, file, name, value, size, flags);
    note_call("fsetxattr", file);
    return static_cast<int>(result);
}

extern "C" int fremovexattr(int file, const char *name) noexcept {
    errno = EIO;
    return removal_fails ? -1 : static_cast<int>(syscall(SYS_fremovexattr, file, name));
}

extern "C" int fchmod(int file, mode_t mode) noexcept {
    const long result = syscall(SYS_fchmod, file, mode);
    note_call("fchmod", file);
    return static_cast<int>(result);
}

extern "C" int futimens(int file, const timespec times[2]) noexcept {
    const long result = syscall(SYS_utimensat, file, nullptr, times, 0);
    note_call("futimens", file);
    return static_cast<int>(result);
}

// --------------------------------------------------------------------------------------------------

namespace {

class BackupJournal : public testing::Test {
 protected:
    BackupJournal() : before(write_marked_file(file, "a program\n")) {
        calls.clear();
        chown_fails = false;
        removal_fails = false;
        failing_attribute.clear();
        set_id_of_another = 0;
    }

    // As a removal and an upgrade do it.
    void take_away() {
        ASSERT_TRUE(save_backup(base.c_str(), file.c_str()));
        ASSERT_EQ(unlink(file.c_str()), 0);
    }
    // The default access control list, which each file that is made in it gets.
    void give_directory_a_list() {
        const std::string list = before.attributes.at("system.posix_acl_access");
        ASSERT_EQ(setxattr((dir / "live").c_str(), "system.posix_acl_default", list.data(),
                           list.size(), 0),
                  0)
            << strerror(errno);
    }

    TempDir dir;
    const std::string file = dir / "live/program", base = dir / "old", backup = base + file;
    const file_facts before;
    LogCapture log;
};

}  // namespace

TEST_F(BackupJournal, ASavedFileComesBackWithAllThatBelongsToIt) {
    take_away();
    EXPECT_EQ(facts_of(backup), before);
    EXPECT_EQ(read_all(base + "/index.txt"), file + "\n");
    ASSERT_TRUE(restore_backup(file.c_str(), backup.c_str()));
    EXPECT_EQ(facts_of(file), before);
    EXPECT_EQ(facts_of(backup), before) << "the backup stays";
    EXPECT_THAT(log.at(LEVEL_WARNING), IsEmpty());
}

TEST_F(BackupJournal, AReplacedFileComesBackWithAllThatBelongsToIt) {
    const std::string next = dir.write("next", "the next program\n", 0755);
    ASSERT_EQ(vrm_vrf_copy(file.c_str(), next.c_str(), base.c_str(), 1), 17);
    EXPECT_EQ(facts_of(backup), before);
    EXPECT_EQ(facts_of(file).uid, 0U) << "a copy doesn't take the owner";
    EXPECT_THAT(facts_of(file).attributes, IsEmpty());
    ASSERT_TRUE(restore_backup(file.c_str(), backup.c_str()));
    EXPECT_EQ(facts_of(file), before);
}

TEST_F(BackupJournal, TheLastAccessComesBackToo) {
    // After the facts were read.
    const timespec times[] = {{1'111'111'111, 5}, {0, UTIME_OMIT}};
    ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
    take_away();
    ASSERT_TRUE(restore_backup(file.c_str(), backup.c_str()));
    struct stat status;
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_atim.tv_sec, 1'111'111'111);
    EXPECT_EQ(status.st_atim.tv_nsec, 5);
}

TEST_F(BackupJournal, TheOwnerComesFirstAndTheTimesLast) {
    take_away();
    const auto order =
        ElementsAre("fchown", "fsetxattr", "fsetxattr", "fsetxattr", "fchmod", "futimens");
    EXPECT_THAT(calls, order);
    calls.clear();
    ASSERT_TRUE(restore_backup(file.c_str(), backup.c_str()));
    EXPECT_THAT(calls, order);
    EXPECT_EQ(set_id_of_another, 0);
}

TEST_F(BackupJournal, WithoutItsOwnerAFileGetsNoSetIdBits) {
    take_away();
    chown_fails = true;
    EXPECT_TRUE(restore_backup(file.c_str(), backup.c_str()));
    EXPECT_EQ(facts_of(file).uid, 0U);
    EXPECT_EQ(facts_of(file).mode & 07777, 0705U);
    EXPECT_EQ(read_all(file), "a program\n");
    EXPECT_EQ(set_id_of_another, 0);
    EXPECT_THAT(log.at(LEVEL_WARNING),
                ElementsAre("Failed to set owner of " + file + ": " + strerror(EPERM),
                            "Failed to keep set-id and group bits of " + file +
                                ", as its owner is another"));
}

TEST_F(BackupJournal, NorDoesItsBackup) {
    chown_fails = true;
    EXPECT_TRUE(save_backup(base.c_str(), file.c_str()));
    EXPECT_EQ(facts_of(backup).mode & 07777, 0705U);
    const std::string next = dir.write("next", "the next program\n", 0755);
    EXPECT_EQ(vrm_vrf_copy(file.c_str(), next.c_str(), (dir / "older").c_str(), 1), 17);
    EXPECT_EQ(facts_of((dir / "older") + file).mode & 07777, 0705U);
    EXPECT_EQ(set_id_of_another, 0);
    chown_fails = false;
    EXPECT_TRUE(restore_backup(file.c_str(), backup.c_str()));
    EXPECT_EQ(facts_of(file).mode & 07777, 0705U) << "a program of root's by now";
}

TEST_F(BackupJournal, AFileOfRootsNeedsNoOwnerSet) {
    const std::string plain = dir.write("live/plain", "x", 0664);
    chown_fails = true;
    ASSERT_TRUE(save_backup(base.c_str(), plain.c_str()));
    EXPECT_EQ(facts_of(base + plain).mode & 07777, 0664U);
    EXPECT_THAT(log.at(LEVEL_WARNING), IsEmpty());
}

// The group bits of its mode are those of the list's mask, and meant for others than the group; an
// entry of the list can deny what others may.
TEST_F(BackupJournal, WithoutItsAccessControlListAFileIsItsOwnersAlone) {
    take_away();
    failing_attribute = "system.posix_acl_access";
    EXPECT_TRUE(restore_backup(file.c_str(), backup.c_str()));
    EXPECT_EQ(facts_of(file).mode & 07777, 0700U);
    EXPECT_THAT(log.at(LEVEL_WARNING),
                ElementsAre("Failed to set attribute system.posix_acl_access of " + file + ": " +
                            strerror(ENOSPC)));
}

TEST_F(BackupJournal, AnAttributeThatCannotBeSetIsAWarning) {
    take_away();
    failing_attribute = "trusted.vrm-test";
    EXPECT_TRUE(restore_backup(file.c_str(), backup.c_str()));
    file_facts after = facts_of(file);
    EXPECT_EQ(after.attributes.count("trusted.vrm-test"), 0U);
    after.attributes = before.attributes;
    EXPECT_EQ(after, before);
    EXPECT_THAT(log.at(LEVEL_WARNING), ElementsAre("Failed to set attribute trusted.vrm-test of " +
                                                   file + ": " + strerror(ENOSPC)));
}

// A directory's default list becomes that of each file that is made in it.
TEST_F(BackupJournal, ARestoredFileGetsNoListFromItsDirectory) {
    const std::string plain = dir.write("live/plain", "x", 0640);
    ASSERT_TRUE(save_backup(base.c_str(), plain.c_str()));
    ASSERT_EQ(unlink(plain.c_str()), 0);
    give_directory_a_list();
    ASSERT_TRUE(restore_backup(plain.c_str(), (base + plain).c_str()));
    EXPECT_THAT(facts_of(plain).attributes, IsEmpty());
    EXPECT_EQ(facts_of(plain).mode & 07777, 0640U);
}

TEST_F(BackupJournal, WithAListThatCannotBeRemovedAFileIsItsOwnersAlone) {
    const std::string plain = dir.write("live/plain", "x", 0644);
    removal_fails = true;
    ASSERT_TRUE(save_backup(base.c_str(), plain.c_str()));
    EXPECT_EQ(facts_of(base + plain).mode & 07777, 0644U) << "it has no list to be removed";
    EXPECT_THAT(log.at(LEVEL_WARNING), IsEmpty());

    give_directory_a_list();
    ASSERT_EQ(unlink(plain.c_str()), 0);
    ASSERT_TRUE(restore_backup(plain.c_str(), (base + plain).c_str()));
    EXPECT_EQ(facts_of(plain).mode & 07777, 0600U);
    EXPECT_THAT(log.at(LEVEL_WARNING),
                ElementsAre("Failed to set attribute system.posix_acl_access of " + plain + ": " +
                            strerror(EIO)));
}

// What a change made there while the file was away may lead anywhere.
TEST_F(BackupJournal, ALinkInPlaceOfTheFileIsNotWrittenThrough) {
    take_away();
    const std::string elsewhere = dir / "elsewhere";
    fs::create_symlink(elsewhere, file);
    ASSERT_TRUE(restore_backup(file.c_str(), backup.c_str()));
    EXPECT_FALSE(exists(elsewhere));
    EXPECT_EQ(facts_of(file), before);
    dir.write("elsewhere", "of somebody");
    fs::remove(file);
    fs::create_symlink(elsewhere, file);
    ASSERT_TRUE(restore_backup(file.c_str(), backup.c_str()));
    EXPECT_EQ(read_all(elsewhere), "of somebody");
    EXPECT_EQ(facts_of(file), before);
    fs::remove(file);
    fs::create_symlink(dir.path(), file);
    ASSERT_TRUE(restore_backup(file.c_str(), backup.c_str())) << "one to a directory";
    EXPECT_EQ(facts_of(file), before);
}

TEST_F(BackupJournal, ABackupThatIsNotCompleteIsRootsAlone) {
    const std::string next = dir.write("next", "x");
    // Written over, as it can't be taken away: another program's mode must not stay on it.
    dir.write("old" + file, "a longer text of another file\n", 04755);
    ASSERT_EQ(vrm_vrf_copy(file.c_str(), next.c_str(), base.c_str(), 1), 1);
    EXPECT_THAT(calls, ElementsAre("fchmod", "fchown", "fsetxattr", "fsetxattr", "fsetxattr",
                                   "fchmod", "futimens", "fchmod"));
    EXPECT_EQ(set_id_of_another, 0);
    EXPECT_EQ(facts_of(backup), before);
}

TEST_F(BackupJournal, AFileThatCannotBeRemovedIsWrittenOver) {
    take_away();
    dir.write("live/program", "a longer text of another program\n", 04755);
    ASSERT_EQ(mount(file.c_str(), file.c_str(), nullptr, MS_BIND, nullptr), 0) << strerror(errno);
    const bool restored = restore_backup(file.c_str(), backup.c_str());
    const file_facts after = facts_of(file);
    umount(file.c_str());
    EXPECT_TRUE(restored);
    EXPECT_EQ(after, before);
    EXPECT_EQ(set_id_of_another, 0);
}

TEST_F(BackupJournal, AFileSystemWithoutAttributesIsFine) {
    // Those of /proc have neither attributes nor, by their size, a content.
    ASSERT_TRUE(save_backup(base.c_str(), "/proc/self/limits"));
    EXPECT_THAT(log.at(LEVEL_WARNING), IsEmpty());
    EXPECT_EQ(facts_of(base + "/proc/self/limits").mode & 07777, 0444U);
}
