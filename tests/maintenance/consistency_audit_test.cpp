#include "maintenance/consistency_audit.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "kit/failing_reads.h"
#include "kit/log_capture.h"
#include "kit/test_repo.h"
#include "maintenance/finding_capture.h"
#include "transaction/interrupt.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

constexpr char hash_line[] = "0123456789012345678901234567890123456789:usr/x\n";

class VrmChkconsistency : public testing::Test {
 protected:
    ~VrmChkconsistency() override {
        vrm_stop_requested = 0;
    }
    void add(const std::string &name, std::vector<std::string> deps = {},
             const std::vector<std::string> &files = {}) {
        repo.install({.name = name, .deps = std::move(deps)}, files);
    }
    void write(const std::string &below_root, const std::string &text) {
        repo.dir().write("repo/" + below_root, text);
    }
    void damage(const std::string &name) {
        fs::remove(repo.in("installed/" + name + "/inst.txt"));
    }
    std::vector<std::string> check() {
        FindingCapture found;
        result = vrm_chkconsistency(repo.handle());
        EXPECT_EQ(result, static_cast<int>(found.lines.size()));
        return found.lines;
    }
    TempDir dir;
    TestRepo repo;
    LogCapture log;
    int result = -2;
};

// Another process that holds the lock of a repository.
class LockHolder {
 public:
    explicit LockHolder(const TestRepo &repo) {
        int ready[2];
        EXPECT_EQ(pipe(ready), 0);
        process_ = fork();
        if (process_ == 0) {
            const int fd = open(repo.in("lock").c_str(), O_RDWR | O_CREAT, 0644);
            struct flock lock = {};
            lock.l_type = F_WRLCK;
            if (fcntl(fd, F_SETLK, &lock) == 0 && write(ready[1], "", 1) == 1) {
                pause();
            }
            _exit(1);
        }
        close(ready[1]);
        char byte;
        EXPECT_EQ(read(ready[0], &byte, 1), 1);
        close(ready[0]);
    }
    ~LockHolder() {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    LockHolder(const LockHolder &) = delete;
    LockHolder &operator=(const LockHolder &) = delete;

 private:
    pid_t process_;
};

using VrmChkplaces = VrmChkconsistency;

}  // namespace

TEST_F(VrmChkconsistency, AnInventoryAsItShouldBeHasNoFindingsAndNeedsNoLock) {
    EXPECT_THAT(check(), IsEmpty());
    add("app", {"lib", "lib"}, {"/usr/app"});
    add("lib", {"app"});
    write("installed/app/hash/data.txt", hash_line);
    write("installed/lib/hash/data.txt", "\n");
    write("fileindex/.app.old", "/usr/app\n");
    EXPECT_THAT(check(), IsEmpty());
    EXPECT_THAT(log.at(LEVEL_ERROR), IsEmpty());
    EXPECT_THAT(log.at(LEVEL_WARNING), IsEmpty());
}

TEST_F(VrmChkconsistency, FindsMissingDependenciesSortedByPackage) {
    add("b", {"gone", "lib", "gone"});
    add("a", {"half", "gone", "other"});
    add("lib");
    add("half");
    damage("half");
    add("misnamed");
    fs::rename(repo.in("installed/misnamed"), repo.in("installed/other"));
    EXPECT_THAT(check(), ElementsAre("a needs half, whose entry is damaged",
                                     "a needs gone, which is not installed",
                                     "a needs other, whose entry is damaged",
                                     "b needs gone, which is not installed"));
}

TEST_F(VrmChkconsistency, FindsIndexesWithoutAnEntry) {
    add("foo", {}, {"/usr/foo"});
    write("fileindex/gone", "/usr/gone\n");
    add("half", {}, {"/usr/half"});
    damage("half");
    fs::create_directory(repo.in("fileindex/directory"));
    EXPECT_THAT(check(),
                ElementsAre("the file index " + repo.in("fileindex/gone") + " has no entry"));
}

TEST_F(VrmChkconsistency, FindsEntriesWithFilesAndWithoutAnIndex) {
    add("foo");
    write("installed/foo/hash/data.txt", std::string(hash_line) + hash_line);
    add("chosen");
    write("installed/chosen/hash/data.txt", hash_line);
    write("fileindex/chosen", "");
    add("linked");
    write("installed/linked/hash/data.txt", hash_line);
    fs::create_symlink("chosen", repo.in("fileindex/linked"));
    EXPECT_THAT(check(), ElementsAre("foo has no file index (files: 2)",
                                     "linked has no file index (files: 1)"));
}

TEST_F(VrmChkconsistency, FindsLinksAndPermissionsOfAllPackages) {
    add("foo");
    add("bar");
    write("installed/foo/link.txt", dir.path() + "|t|a\n");
    write("installed/bar/perm.txt", dir.write("b", "") + "|0600\n");
    EXPECT_THAT(check(), ElementsAre("the mode of " + (dir / "b") + " of bar is 0644, and not 0600",
                                     "the link " + (dir / "a") + " of foo to t is missing"));
}

TEST_F(VrmChkconsistency, FindsLinksThatEarlierVersionsLeft) {
    for (const char *name : {"a", "b", "c", "d", "e"}) {
        fs::create_symlink("t", dir / name);
    }
    add("foo");
    add("bar");
    add("half");
    damage("half");
    const auto line = [this](const char *name) { return (dir / name) + "|t\n"; };
    write("left_links/foo", line("a") + line("b") + line("c") + line("gone"));
    write("left_links/half", line("e"));
    write("left_links/removed", line("d"));
    write("installed/bar/link.txt", dir.path() + "|t|b\n");
    write("installed/half/link.txt", dir.path() + "|t|c\n");
    EXPECT_THAT(
        check(),
        ElementsAre(
            "the link " + (dir / "a") + " to t was made by an earlier version of foo",
            "the link " + (dir / "e") + " to t was made by an earlier version of half",
            "the link " + (dir / "d") + " to t was made by removed, which is not installed"));
}

TEST_F(VrmChkconsistency, ADamagedRecordOfLinksIsNamed) {
    add("foo");
    write("left_links/foo", "nonsense\n/" + std::string(3000, 'x') + "|t\n");
    EXPECT_THAT(check(),
                ElementsAre("cannot read " + repo.in("left_links/foo") + ": Invalid argument",
                            StartsWith("cannot look at /xxx")));
    fs::remove_all(repo.in("left_links"));
    write("left_links", "");
    EXPECT_THAT(check(),
                ElementsAre("cannot read " + repo.in("left_links/") + ": Not a directory"));
}

TEST_F(VrmChkconsistency, AHashListThatCannotBeUsedIsNamedWhenThereIsNoIndex) {
    for (const char *name : {"directory", "indexed", "malformed", "none"}) {
        add(name);
    }
    fs::create_directories(repo.in("installed/directory/hash/data.txt"));
    write("installed/malformed/hash/data.txt", "short\n");
    write("installed/indexed/hash/data.txt", "short\n");
    write("fileindex/indexed", "");
    EXPECT_THAT(check(), ElementsAre("cannot read " + repo.in("installed/directory/hash/data.txt") +
                                         ": Is a directory",
                                     "cannot read " + repo.in("installed/malformed/hash/data.txt") +
                                         ": Invalid argument"));
}

TEST_F(VrmChkconsistency, WhileAnotherProcessChangesTheRepositoryNothingIsTakenForAFinding) {
    add("foo", {"gone"});
    write("installed/foo/hash/data.txt", hash_line);
    write("installed/foo/link.txt", dir.path() + "|t|a\n");
    fs::create_symlink("t", dir / "left");
    write("left_links/foo", (dir / "left") + "|t\n");
    write("fileindex/removed", "/usr/x\n");
    {
        const LockHolder holder(repo);
        EXPECT_THAT(check(),
                    ElementsAre("another process is changing the repository: dependencies, "
                                "indexes, links and permissions were not compared"));
    }
    EXPECT_EQ(check().size(), 5u);
}

TEST_F(VrmChkconsistency, WithoutAnythingFoundAnotherProcessDoesNotMatter) {
    add("foo");
    const LockHolder holder(repo);
    EXPECT_THAT(check(), IsEmpty());
}

TEST_F(VrmChkconsistency, WithoutAnInventoryThereIsNothingToFind) {
    fs::remove_all(repo.in("installed"));
    write("fileindex/foo", "/usr/foo\n");
    EXPECT_THAT(check(), IsEmpty());
    EXPECT_EQ(result, 0);
}

TEST_F(VrmChkconsistency, WithoutIndexesTheRestIsLookedAt) {
    add("foo", {"gone"});
    write("installed/foo/hash/data.txt", hash_line);
    fs::remove_all(repo.in("fileindex"));
    EXPECT_THAT(check(), ElementsAre("foo needs gone, which is not installed"));
    EXPECT_THAT(log.at(LEVEL_ERROR), ElementsAre("Failure reading <" + repo.in("fileindex") +
                                                 ">: No such file or directory"));
}

TEST_F(VrmChkconsistency, ARequestToStopEndsIt) {
    add("foo", {"gone"});
    vrm_stop_requested = 1;
    EXPECT_EQ(vrm_chkconsistency(repo.handle()), -1);
}

TEST_F(VrmChkconsistency, AnInventoryThatCannotBeReadToItsEndIsAFailure) {
    add("foo");
    add("bar");
    const FailingReaddir failing(1);
    EXPECT_EQ(vrm_chkconsistency(repo.handle()), -1);
}

TEST_F(VrmChkplaces, ComparesOnePackageWithItsFiles) {
    const std::string file = dir.write("file", "");
    chmod(file.c_str(), 0666);
    add("foo", {}, {file});
    write("installed/foo/link.txt", dir.path() + "|t|a\n");
    add("bar");
    write("installed/bar/link.txt", dir.path() + "|t|b\n");
    FindingCapture found;
    EXPECT_EQ(vrm_chkplaces(repo.handle(), "foo"), 2);
    EXPECT_THAT(found.lines,
                ElementsAre("the link " + (dir / "a") + " of foo to t is missing",
                            "everybody can write to " + file + " of foo: its mode is 0666"));
}

TEST_F(VrmChkplaces, WhileAnotherProcessChangesTheRepositoryNothingIsTakenForAFinding) {
    add("foo");
    write("installed/foo/link.txt", dir.path() + "|t|a\n");
    FindingCapture found;
    {
        const LockHolder holder(repo);
        EXPECT_EQ(vrm_chkplaces(repo.handle(), "foo"), 1);
    }
    EXPECT_EQ(vrm_chkplaces(repo.handle(), "foo"), 1);
    EXPECT_THAT(found.lines,
                ElementsAre("another process is changing the repository: the links and "
                            "permissions of foo were not compared",
                            "the link " + (dir / "a") + " of foo to t is missing"));
}

TEST_F(VrmChkplaces, ARequestToStopEndsIt) {
    add("foo");
    vrm_stop_requested = 1;
    EXPECT_EQ(vrm_chkplaces(repo.handle(), "foo"), -1);
}
