#include "repository/repository.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <new>
#include <string>

#include "kit/capture.h"
#include "kit/failing_memory.h"
#include "kit/failing_new.h"
#include "kit/temp_dir.h"
#include "support/arch.h"

namespace fs = std::filesystem;

namespace {

class VrmOpen : public testing::Test {
 protected:
    std::string conf(const std::string &content) const {
        return dir_.write("vrm.conf", content);
    }
    TempDir dir_;
    // A configuration of this content opens nothing, and this is said.
    void expect_refused(const std::string &content, const std::string &said) {
        const std::string path = conf(content);
        vrm_handle *handle = nullptr;
        EXPECT_EQ(stderr_of([&] { handle = vrm_open("/r", path.c_str()); }), said);
        EXPECT_EQ(handle, nullptr);
    }
};

// A repository with nothing in it but what the test puts there.
class VrmLock : public testing::Test {
 protected:
    own_handle open_root(const std::string &root) const {
        const std::string conf = dir_.write("vrm.conf", "arch_name = any\n");
        return own_handle(vrm_open(root.c_str(), conf.c_str()));
    }
    own_handle open_repo() const {
        return open_root(dir_.path());
    }
    std::string lock_file() const {
        return dir_ / "lock";
    }
    std::string own_pid() const {
        return std::to_string(getpid()) + "\n";
    }
    TempDir dir_;
};

// Another process with a lock of its own on the repository, which it holds until this object ends.
class OtherHolder {
 public:
    explicit OtherHolder(const std::function<own_handle()> &open) {
        int ready[2];
        if (pipe(ready) != 0 || pipe(finish_) != 0) {
            abort();
        }
        pid_ = fork();
        if (pid_ == 0) {
            close(finish_[1]);
            own_handle handle = open();
            const char result = vrm_lock(handle.get()) == 0 ? 'y' : 'n';
            char byte;
            if (write(ready[1], &result, 1) == 1 && read(finish_[0], &byte, 1) >= 0) {
                _exit(0);  // as a crash would: without vrm_close
            }
            _exit(1);
        }
        close(ready[1]);
        char result = 'n';
        locked_ = read(ready[0], &result, 1) == 1 && result == 'y';
        close(ready[0]);
    }
    ~OtherHolder() {
        end();
    }
    void end() {
        if (pid_ > 0) {
            close(finish_[1]);
            close(finish_[0]);
            waitpid(pid_, nullptr, 0);
            pid_ = 0;
        }
    }
    bool locked() const {
        return locked_;
    }
    pid_t pid() const {
        return pid_;
    }

 private:
    pid_t pid_;
    int finish_[2];
    bool locked_ = false;
};

}  // namespace

TEST_F(VrmOpen, FillsTheHandle) {
    const std::string path = conf("arch_name = x86_64\ndist_name = Toy\ndist_vers = 3.1\n");
    const own_handle handle(vrm_open("/some/root", path.c_str()));
    ASSERT_TRUE(handle);
    EXPECT_EQ(handle->arch, arch_x86_64);
    EXPECT_EQ(handle->locked, 0);
    EXPECT_STREQ(handle->dir, "/some/root");
    EXPECT_EQ(handle->conf, path);
    EXPECT_STREQ(handle->dist_name, "Toy");
    EXPECT_STREQ(handle->dist_vers, "3.1");
}

TEST_F(VrmOpen, ListsTheDirectoriesInOrder) {
    const own_handle handle(vrm_open("/r", conf("arch_name = i686\n").c_str()));
    ASSERT_TRUE(handle);
    const std::pair<const char *, const char *> expected[] = {
        {"installed", "/r/installed"}, {"stagearea", "/r/stagearea"}, {"fileindex", "/r/fileindex"},
        {"certstore", "/r/certstore"}, {"scriptdir", "/r/scriptdir"},
    };
    EXPECT_STREQ(handle->dirs[0]->key, "#EKVA_10:6:2");
    size_t slot = 1;
    for (const auto &[key, path] : expected) {
        ASSERT_TRUE(handle->dirs[slot]);
        EXPECT_STREQ(handle->dirs[slot]->key, key);
        EXPECT_STREQ(handle->dirs[slot]->val, path);
        slot++;
    }
    EXPECT_EQ(handle->dirs[slot], nullptr);
}

TEST_F(VrmOpen, MakesNoDirectory) {
    const std::string root = dir_ / "root";
    const own_handle handle(vrm_open(root.c_str(), conf("arch_name = mips\n").c_str()));
    ASSERT_TRUE(handle);
    EXPECT_EQ(handle->arch, arch_mips);
    EXPECT_FALSE(exists(root));
}

TEST_F(VrmOpen, LeavesTheDistributionNullWhenItIsNotNamed) {
    const own_handle handle(vrm_open("/r", conf("arch_name = any\n").c_str()));
    ASSERT_TRUE(handle);
    EXPECT_EQ(handle->arch, arch_any);
    EXPECT_EQ(handle->dist_name, nullptr);
    EXPECT_EQ(handle->dist_vers, nullptr);
}

TEST_F(VrmOpen, SaysThatTheConfigurationCannotBeRead) {
    const std::string path = dir_ / "none.conf";
    vrm_handle *handle = nullptr;
    const std::string told = stderr_of([&] { handle = vrm_open("/r", path.c_str()); });
    EXPECT_EQ(handle, nullptr);
    EXPECT_TRUE(told.ends_with("Failed to read vrm config " + path + "\n")) << told;
}

TEST_F(VrmOpen, NeedsTheArchitecture) {
    expect_refused("dist_name = Toy\n", "Failed to get arch_name from config\n");
}

TEST_F(VrmOpen, RefusesAnUnknownArchitecture) {
    expect_refused("arch_name = sparc\n", "Invalid architecture specified: sparc\n");
}

TEST_F(VrmOpen, TellsTheArchitecturesByTheirExactName) {
    expect_refused("arch_name = X86_64\n", "Invalid architecture specified: X86_64\n");
}

// A handle without its directories would lead to paths that begin at "/".
TEST_F(VrmOpen, GivesAWholeHandleOrNoneWhenMemoryFails) {
    // The architecture comes last: what can't be held of the configuration fails with it.
    const std::string path = conf("dist_name = Toy\ndist_vers = 3.1\narch_name = any\n");
    own_handle handle;
    int failures = 0;
    for (; !handle && failures < 100; failures++) {
        stderr_of([&] {
            strdups_left = failures;
            handle.reset(vrm_open("/r", path.c_str()));
            strdups_left = -1;
        });
    }
    ASSERT_TRUE(handle);
    EXPECT_STREQ(handle->dist_name, "Toy");
    EXPECT_STREQ(handle->dist_vers, "3.1");
    for (const char *role : {"installed", "stagearea", "fileindex", "certstore", "scriptdir"}) {
        EXPECT_STREQ(ekva_getval(handle->dirs, role), (std::string("/r/") + role).c_str());
    }
    // Two copies for each pair, and the two paths of the handle.
    EXPECT_GT(failures, 2 * 3 + 2 + 2 * 5);
}

TEST(VrmClose, AcceptsNull) {
    EXPECT_EQ(vrm_close(nullptr), 0);
}

TEST_F(VrmLock, WritesItsProcessIdAndIsHeld) {
    const own_handle handle = open_repo();
    EXPECT_EQ(stderr_of([&] { EXPECT_EQ(vrm_lock(handle.get()), 0); }), "");
    EXPECT_EQ(handle->locked, 1);
    EXPECT_EQ(read_all(lock_file()), own_pid());
}

TEST_F(VrmLock, CreatesTheFileReadableForTheGroupOnly) {
    const mode_t before = umask(0);
    const own_handle handle = open_repo();
    EXPECT_EQ(vrm_lock(handle.get()), 0);
    umask(before);
    struct stat status;
    ASSERT_EQ(stat(lock_file().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
}

TEST_F(VrmLock, FailsAtOnceWhileAnotherProcessHoldsIt) {
    OtherHolder other([&] { return open_repo(); });
    ASSERT_TRUE(other.locked());
    {
        const own_handle handle = open_repo();
        EXPECT_EQ(stderr_of([&] { EXPECT_EQ(vrm_lock(handle.get()), -1); }),
                  "Could not lock lock file " + lock_file() + "\n");
        EXPECT_EQ(handle->locked, 0);
        EXPECT_EQ(read_all(lock_file()), std::to_string(other.pid()) + "\n");
    }
    // Closing a handle without the lock leaves the other's file alone.
    EXPECT_TRUE(exists(lock_file()));
}

TEST_F(VrmLock, SucceedsAfterTheHolderCrashed) {
    OtherHolder other([&] { return open_repo(); });
    ASSERT_TRUE(other.locked());
    other.end();
    ASSERT_TRUE(exists(lock_file()));
    const own_handle handle = open_repo();
    EXPECT_EQ(vrm_lock(handle.get()), 0);
}

TEST_F(VrmLock, KeepsTheTailOfALongerContent) {
    dir_.write("lock", "123456789012345\nold\n");
    const own_handle handle = open_repo();
    ASSERT_EQ(vrm_lock(handle.get()), 0);
    const std::string pid = own_pid();
    EXPECT_EQ(read_all(lock_file()),
              pid + std::string("123456789012345\nold\n").substr(pid.size()));
}

TEST_F(VrmLock, SucceedsAgainInTheSameProcessAndStaysHeld) {
    const own_handle handle = open_repo();
    EXPECT_EQ(vrm_lock(handle.get()), 0);
    EXPECT_EQ(vrm_lock(handle.get()), 0);
    OtherHolder other([&] { return open_repo(); });
    EXPECT_FALSE(other.locked());
}

TEST_F(VrmLock, SaysThatTheFileCannotBeOpened) {
    const std::string root = dir_ / "missing";
    const own_handle handle = open_root(root);
    EXPECT_EQ(stderr_of([&] { EXPECT_EQ(vrm_lock(handle.get()), -1); }),
              "Could not open lock file " + root + "/lock\n");
    EXPECT_EQ(handle->locked, 0);
}

TEST_F(VrmLock, DoesNotFollowALinkThatWasPutInItsPlace) {
    const std::string target = dir_.write("precious", "content\n");
    fs::create_symlink(target, lock_file());
    const own_handle handle = open_repo();
    EXPECT_EQ(stderr_of([&] { EXPECT_EQ(vrm_lock(handle.get()), -1); }),
              "Could not open lock file " + lock_file() + "\n");
    EXPECT_EQ(read_all(target), "content\n");
}

TEST_F(VrmLock, SaysThatTheProcessIdCannotBeWritten) {
    const own_handle handle = open_repo();
    struct rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    // The message goes to a pipe here, as no file can be written to.
    int told[2];
    ASSERT_EQ(pipe(told), 0);
    const pid_t child = fork();
    if (child == 0) {
        dup2(told[1], STDERR_FILENO);
        signal(SIGXFSZ, SIG_IGN);
        struct rlimit none = {0, before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &none);
        const bool refused = vrm_lock(handle.get()) == -1 && handle->locked == 0;
        _exit(refused ? 0 : 1);
    }
    close(told[1]);
    std::string text(1000, '\0');
    const ssize_t got = read(told[0], text.data(), text.size());
    close(told[0]);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    ASSERT_GT(got, 0);
    EXPECT_EQ(text.substr(0, static_cast<size_t>(got)),
              "Could not write lock file " + lock_file() + ": File too large\n");
}

TEST_F(VrmLock, CutsTheRootAt245Characters) {
    const std::string cut = (dir_ / "") + std::string(245 - dir_.path().size() - 1, 'd');
    ASSERT_EQ(cut.size(), 245u);
    fs::create_directory(cut);
    const own_handle handle = open_root(cut + "-more");
    EXPECT_EQ(vrm_lock(handle.get()), 0);
    EXPECT_EQ(read_all(cut + "/lock"), own_pid());
    EXPECT_STREQ(ekva_getval(handle->dirs, "installed"), (cut + "-more/installed").c_str());
}

TEST_F(VrmLock, IsNotInheritedByScripts) {
    const own_handle handle = open_repo();
    ASSERT_EQ(vrm_lock(handle.get()), 0);
    const std::string open_files = must_run("ls -l /proc/self/fd");
    EXPECT_EQ(open_files.find(lock_file()), std::string::npos) << open_files;
}

TEST_F(VrmLock, IsLeftByClosingTheHandle) {
    {
        const own_handle handle = open_repo();
        ASSERT_EQ(vrm_lock(handle.get()), 0);
    }
    EXPECT_FALSE(exists(lock_file()));
}

TEST_F(VrmLock, UnlockRemovesTheFileAndLetsAnotherIn) {
    const own_handle handle = open_repo();
    ASSERT_EQ(vrm_lock(handle.get()), 0);
    EXPECT_EQ(vrm_unlock(handle.get()), 0);
    EXPECT_EQ(handle->locked, 0);
    EXPECT_FALSE(exists(lock_file()));
    OtherHolder other([&] { return open_repo(); });
    EXPECT_TRUE(other.locked());
}

TEST_F(VrmLock, LeavesNothingOfItWhenMemoryFails) {
    const own_handle handle = open_repo();
    {
        const FailingNew failing(0);
        EXPECT_EQ(vrm_lock(handle.get()), -1);
    }
    EXPECT_EQ(handle->locked, 0);
    EXPECT_FALSE(exists(lock_file()));
    OtherHolder other([&] { return open_repo(); });
    EXPECT_TRUE(other.locked());
}

TEST_F(VrmLock, UnlockWithoutTheLockDoesNothing) {
    dir_.write("lock", "1\n");
    const own_handle handle = open_repo();
    EXPECT_EQ(vrm_unlock(handle.get()), 0);
    EXPECT_TRUE(exists(lock_file()));
}

TEST_F(VrmLock, UnlockFailsWhenTheFileIsGone) {
    const own_handle handle = open_repo();
    ASSERT_EQ(vrm_lock(handle.get()), 0);
    fs::remove(lock_file());
    EXPECT_EQ(vrm_unlock(handle.get()), -1);
    EXPECT_EQ(handle->locked, 1);
}

TEST_F(VrmLock, HolderIsThisProcessOrAnotherOrNone) {
    const own_handle handle = open_repo();
    EXPECT_EQ(vrm_lock_holder(handle.get()), 0);
    {
        OtherHolder other([&] { return open_repo(); });
        ASSERT_TRUE(other.locked());
        EXPECT_EQ(vrm_lock_holder(handle.get()), other.pid());
    }
    EXPECT_EQ(vrm_lock_holder(handle.get()), 0);
    ASSERT_EQ(vrm_lock(handle.get()), 0);
    EXPECT_EQ(vrm_lock_holder(handle.get()), getpid());
}

TEST_F(VrmLock, AskingForTheHolderDoesNotDropTheLock) {
    const own_handle handle = open_repo();
    const own_handle second = open_repo();
    ASSERT_EQ(vrm_lock(handle.get()), 0);
    vrm_lock_holder(handle.get());
    vrm_lock_holder(second.get());
    OtherHolder other([&] { return open_repo(); });
    EXPECT_FALSE(other.locked());
}

TEST(VrmReadRc, IsNullForAUserThatDoesNotExist) {
    setenv("SUDO_UID", "3999999999", 1);
    EXPECT_EQ(vrm_read_rc(), nullptr);
    setenv("SUDO_UID", "987654", 1);
    EXPECT_EQ(vrm_read_rc(), nullptr);
    unsetenv("SUDO_UID");
}

TEST(VrmReadRc, TakesATextForNobodyAndNotForTheSuperuser) {
    setenv("SUDO_UID", "root", 1);
    EXPECT_EQ(vrm_read_rc(), nullptr);
    unsetenv("SUDO_UID");
}

namespace {

own_ekva record_of(const char *text) {
    return own_ekva(str2ekva(text, ','));
}

}  // namespace

TEST(VrmMergeOpts, MakesTheRecordAndCountsWhatItFound) {
    s_ekva **opts = nullptr;
    EXPECT_EQ(vrm_merge_opts(&opts, record_of("a=1,b=2,c=3").get(), "c,none,a"), 2);
    const own_ekva owner(opts);
    ASSERT_TRUE(opts);
    EXPECT_STREQ(opts[0]->key, "#EKVA_10:20:1");
    EXPECT_STREQ(ekva_getval(opts, "a"), "1");
    EXPECT_STREQ(ekva_getval(opts, "c"), "3");
    EXPECT_EQ(ekva_getval(opts, "b"), nullptr);
}

TEST(VrmMergeOpts, LetsTheEarlierSourceWinAndStillCountsTheKey) {
    s_ekva **opts = nullptr;
    EXPECT_EQ(vrm_merge_opts(&opts, record_of("a=first").get(), "a,b"), 1);
    EXPECT_EQ(vrm_merge_opts(&opts, record_of("a=second,b=other").get(), "a,b"), 2);
    const own_ekva owner(opts);
    EXPECT_STREQ(ekva_getval(opts, "a"), "first");
    EXPECT_STREQ(ekva_getval(opts, "b"), "other");
    EXPECT_EQ(ekva_nument(opts), 2);
}

TEST(VrmMergeOpts, GivesNothingForAnEmptyListOfKeys) {
    s_ekva **opts = nullptr;
    EXPECT_EQ(vrm_merge_opts(&opts, record_of("a=1").get(), ""), 0);
    EXPECT_EQ(vrm_merge_opts(&opts, record_of("a=1").get(), "b"), 0);
    EXPECT_EQ(vrm_merge_opts(&opts, nullptr, "a"), 0);
    EXPECT_EQ(opts, nullptr);
}
