#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "kit/capture.h"
#include "kit/event_receiver.h"
#include "kit/log_capture.h"
#include "kit/marked_file.h"
#include "kit/scripted_user.h"
#include "kit/test_repo.h"
#include "repository/inventory.h"
#include "transaction/interrupt.h"
#include "transaction/plan_removal.h"
#include "transaction/recover.h"
#include "transaction/recover_change.h"
#include "transaction/removal.h"
#include "transaction/update.h"

// These tests remove from absolute paths, below /srv/t, and append to the action log: they run in
// the throwaway root only.

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string live = "/srv/t";
const std::string action_log = "/var/lib/vrm/install.log";

// The action log without its dates.
std::vector<std::string> history() {
    std::vector<std::string> sentences;
    std::ifstream in(action_log);
    for (std::string line; std::getline(in, line);) {
        sentences.push_back(line.substr(line.find(": ") + 2));
    }
    return sentences;
}

void write(const std::string &path, const std::string &content, unsigned mode = 0644) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path) << content;
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
}

class Removal : public testing::Test {
 protected:
    Removal() {
        fs::remove_all(live);
        fs::remove(action_log);
        fs::create_directories("/var/lib/vrm");
        fs::create_directories(live);
        vrm_stop_requested = 0;
        ScriptedUser::fresh();
        for (const char *command : {"echo", "env", "cat", "ls", "pwd", "grep", "sort", "kill"}) {
            fs::copy_file("/bin/busybox", repo.in("scriptdir") + "/" + command,
                          fs::copy_options::skip_existing);
        }
        repo.handle()->locked = 1;
    }

    ~Removal() override {
        repo.handle()->locked = 0;  // the lock file is none of this handle's
        vrm_stop_requested = 0;
    }

    // An installed package with one file; with a head it came as that one's dependency.
    void add(const std::string &name, std::vector<std::string> deps = {},
             const std::string &head = "") {
        PackageSpec spec;
        spec.name = name;
        spec.deps = std::move(deps);
        write(live + "/" + name, "file of " + name + "\n");
        repo.install(spec, {live + "/" + name},
                     head.empty() ? "evrkInstallTime: 1700000000\nevrkInstallType: X\n"
                                  : "evrkInstallTime: 1700000000\nevrkInstallType: D\n"
                                    "evrkInstallHead: " +
                                        head + "\n");
    }

    std::string entry(const std::string &name) {
        return repo.in("installed/" + name);
    }

    void script(const std::string &name, const std::string &file, const std::string &text) {
        write(entry(name) + "/init/" + file, text, 0755);
    }

    own_vrt plan(const std::string &name, int mode = 0) {
        vrt *transaction = nullptr;
        vrm_pre_delete(repo.handle(), name.c_str(), mode, &transaction);
        EXPECT_TRUE(transaction) << "no plan for " << name;
        return own_vrt(transaction);
    }

    int run(const own_vrt &transaction) {
        vrt *raw = transaction.get();
        return vrm_exe_delete(repo.handle(), &raw);
    }

    int remove(const std::string &name) {
        const own_vrt transaction = plan(name);
        return transaction ? run(transaction) : -1000;
    }

    bool is_installed(const std::string &name) {
        return own_vri(vrm_vrl_info(repo.handle(), name.c_str())) != nullptr;
    }

    bool there(const std::string &path) {
        return fs::symlink_status(path).type() != fs::file_type::not_found;
    }

    std::string old(const std::string &name) {
        return repo.in("stagearea/" + name + "_any_1.0/old");
    }

    // Nothing was changed by a removal that failed.
    void expect_whole(const std::string &name) {
        EXPECT_TRUE(is_installed(name));
        EXPECT_EQ(read_all(live + "/" + name), "file of " + name + "\n");
        EXPECT_EQ(read_all(repo.in("fileindex/" + name)), live + "/" + name + "\n");
        EXPECT_TRUE(fs::is_empty(repo.in("stagearea")));
    }

    TestRepo repo;
    LogCapture log;
};

}  // namespace

TEST_F(Removal, NeedsTheLock) {
    add("foo");
    const own_vrt transaction = plan("foo");
    repo.handle()->locked = 0;
    EXPECT_EQ(run(transaction), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_exe_delete: no lock on local repository"));
    expect_whole("foo");
}

TEST_F(Removal, TakesFilesEntryAndIndexAway) {
    add("foo");
    script("foo", "99-add.sh", "exit 1\n");
    write(live + "/foo.conf", "a = 1\n");
    write(entry("foo") + "/conf/srv/t/foo.conf", "a = 0\n");
    ASSERT_EQ(remove("foo"), 0);
    EXPECT_FALSE(is_installed("foo"));
    EXPECT_FALSE(there(entry("foo")));
    EXPECT_FALSE(there(repo.in("fileindex/foo")));
    EXPECT_FALSE(there(live + "/foo"));
    EXPECT_EQ(read_all(live + "/foo.conf"), "a = 1\n") << "configuration stays";
    EXPECT_TRUE(fs::is_empty(repo.in("stagearea")));
    EXPECT_THAT(history(), ElementsAre("deleted foo_any_1.0 as requested by user"));
    EXPECT_TRUE(log.has(LEVEL_INFO, "removal of foo_any_1.0 succeeded"));
    EXPECT_FALSE(log.has_line_end(LEVEL_INFO, "removal of foo_any_1.0 succeeded"));
    EXPECT_THAT(log.at(LEVEL_ERROR), IsEmpty());
    EXPECT_THAT(log.at(LEVEL_WARNING), IsEmpty());

    const std::string pre =
        "vrm_one_delete: looking for pre-delete script " + entry("foo") + "/init/00-del.sh";
    EXPECT_TRUE(log.has(LEVEL_DEBUG, pre));
    EXPECT_TRUE(log.has_line_end(LEVEL_DEBUG, pre));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_one_delete: no pre-delete script found"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_one_delete: Found /srv/t/foo to delete"));
    const std::string index = "vrm_one_delete: processed fileindex " + repo.in("fileindex/foo");
    EXPECT_TRUE(log.has(LEVEL_DEBUG, index));
    EXPECT_TRUE(log.has_line_end(LEVEL_DEBUG, index));
    const std::string post =
        "vrm_one_delete: looking for post-delete script " + entry("foo") + "/init/99-del.sh";
    EXPECT_TRUE(log.has(LEVEL_DEBUG, post));
    EXPECT_TRUE(log.has_line_end(LEVEL_DEBUG, post));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_one_delete: no post-delete script found"));
    const std::string links =
        "vrm_one_delete: looking for link script " + entry("foo") + "/link.txt";
    EXPECT_TRUE(log.has(LEVEL_DEBUG, links));
    EXPECT_TRUE(log.has_line_end(LEVEL_DEBUG, links));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_one_delete: no link script found"));
}

TEST_F(Removal, TheTopGoesFirstAndItsOrphansAfterIt) {
    add("t", {"a"});
    add("a", {"b"}, "t");
    add("b", {}, "a");
    for (const char *name : {"t", "a", "b"}) {
        script(name, "00-del.sh", "echo $VRK_NAME >>/srv/trace\n");
    }
    ASSERT_EQ(remove("t"), 0);
    EXPECT_EQ(read_all("/srv/trace"), "t\na\nb\n");
    fs::remove("/srv/trace");
    EXPECT_THAT(history(), ElementsAre("deleted t_any_1.0 as requested by user",
                                       "deleted a_any_1.0 as dependency of t",
                                       "deleted b_any_1.0 as dependency of a"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_exe_delete: Number of deps: 2"));
    EXPECT_TRUE(log.has(LEVEL_INFO, "removal of b_any_1.0 succeeded"));
    EXPECT_TRUE(fs::is_empty(repo.in("installed")));
    EXPECT_TRUE(fs::is_empty(live));
}

TEST_F(Removal, AnExplicitDependencyStaysAndModeTwoLeavesAll) {
    add("t", {"a"});
    add("a");
    ASSERT_EQ(remove("t"), 0);
    EXPECT_TRUE(is_installed("a"));
    add("u", {"b"});
    add("b", {}, "u");
    ASSERT_EQ(run(plan("u", 2)), 0);
    EXPECT_FALSE(is_installed("u"));
    EXPECT_TRUE(is_installed("b"));
}

TEST_F(Removal, ScriptsKnowTheirPackageAndTheBackups) {
    add("foo");
    script("foo", "00-del.sh",
           "pwd >/srv/pre; ls /srv/t >>/srv/pre; env | sort | grep -e ^VRK_ -e ^VRM_MODE -e "
           "^VRM_VRKDIR >>/srv/pre\n");
    script("foo", "99-del.sh",
           "ls /srv/t >/srv/post; cat $VRK_STAGE_OLD/index.txt $VRK_STAGE_OLD/srv/t/foo "
           ">>/srv/post; env | sort | grep -e ^VRK_ -e ^VRM_MODE -e ^VRM_VRKDIR >>/srv/post\n");
    ASSERT_EQ(remove("foo"), 0);
    const std::string family =
        "VRK_ARCHITECTURE=any\nVRK_ARCHITECTURE_OLD=any\nVRK_CREATOR=Test\nVRK_CREATOR_OLD=Test\n"
        "VRK_DEPENDENCIES=(null)\nVRK_DEPENDENCIES_OLD=(null)\n"
        "VRK_DESCRIPTION=A test package\nVRK_DESCRIPTION_OLD=A test package\nVRK_NAME=foo\n";
    const std::string versions = "VRK_VERSION=1.0\nVRK_VERSION_OLD=1.0\n";
    EXPECT_EQ(read_all("/srv/pre"), repo.in("scriptdir") + "\nfoo\n" + family + versions);
    EXPECT_EQ(read_all("/srv/post"), "/srv/t/foo\nfile of foo\n" + family +
                                         "VRK_STAGE_OLD=" + old("foo") + "\n" + versions +
                                         "VRM_VRKDIR=" + entry("foo") + "\n");
    EXPECT_EQ(getenv("VRK_NAME"), nullptr);
    fs::remove("/srv/pre");
    fs::remove("/srv/post");
}

TEST_F(Removal, AFailingScriptBeforeItChangesNothing) {
    add("foo");
    script("foo", "00-del.sh", "exit 3\n");
    EXPECT_EQ(remove("foo"), 3 << 8);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_one_delete: pre-delete got an error, aborting"));
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_exe_delete: Removal of foo_any_1.0 failed with rc=768"));
    EXPECT_TRUE(
        log.has_line_end(LEVEL_ERROR, "vrm_exe_delete: Removal of foo_any_1.0 failed with rc=768"));
    EXPECT_FALSE(log.has(LEVEL_DEBUG, "vrm_one_delete: Found /srv/t/foo to delete"));
    expect_whole("foo");
    EXPECT_THAT(history(), IsEmpty());
    EXPECT_EQ(getenv("VRK_NAME"), nullptr);
}

TEST_F(Removal, AFailingScriptAfterItBringsAllBack) {
    add("foo");
    ASSERT_EQ(chmod("/srv/t/foo", 0751), 0);
    fs::create_symlink("foo", live + "/foo-link");
    write(entry("foo") + "/link.txt", "/srv/t|foo|foo-link\n");
    script("foo", "99-del.sh", "[ ! -e /srv/t/foo ] || exit 9\nexit 1\n");
    EXPECT_EQ(remove("foo"), 256);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_one_delete: post-delete got an error, aborting"));
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_install_rollback: finished"));
    expect_whole("foo");
    EXPECT_EQ(fs::status("/srv/t/foo").permissions(), fs::perms(0751));
    EXPECT_TRUE(there(live + "/foo-link")) << "links go after the script";
    EXPECT_THAT(history(), IsEmpty());
}

TEST_F(Removal, AFileThatIsGoneAlreadyIsAWarning) {
    add("foo");
    write(repo.in("fileindex/foo"), "/srv/t/gone\n\n/srv/t/foo\n");
    ASSERT_EQ(remove("foo"), 0);
    EXPECT_TRUE(log.has(LEVEL_WARNING,
                        "vrm_one_delete: Failed to access registered file /srv/t/gone: No such "
                        "file or directory, skipping"));
    EXPECT_FALSE(there(live + "/foo"));
    EXPECT_FALSE(is_installed("foo"));
}

TEST_F(Removal, APathThatIsNotAbsoluteIsLeftAlone) {
    add("foo");
    write(repo.in("fileindex/foo"), "here\n/srv/t/foo\n");
    const fs::path before = fs::current_path();
    fs::current_path(live);
    write(live + "/here", "x");
    ASSERT_EQ(remove("foo"), 0);
    fs::current_path(before);
    EXPECT_TRUE(log.has(LEVEL_WARNING,
                        "vrm_one_delete: Failed to access registered file here: Invalid argument, "
                        "skipping"));
    EXPECT_TRUE(there(live + "/here"));
}

TEST_F(Removal, ARollbackBringsBackAllThatBelongsToAFile) {
    add("foo");
    const file_facts before = write_marked_file(live + "/foo", "file of foo\n");
    script("foo", "99-del.sh", "exit 1\n");
    EXPECT_EQ(remove("foo"), 256);
    EXPECT_EQ(facts_of(live + "/foo"), before);
    EXPECT_THAT(log.at(LEVEL_WARNING), IsEmpty());
    expect_whole("foo");
}

TEST_F(Removal, AFailedBackupBringsBackWhatWentBefore) {
    add("foo");
    fs::create_directories(live + "/dir");
    write(repo.in("fileindex/foo"), "/srv/t/foo\n/srv/t/dir\n");
    EXPECT_EQ(remove("foo"), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR,
                        "vrm_one_delete: Failed to backup /srv/t/dir, not good. We try a rollback "
                        "and leave."));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_install_rollback: Found /srv/t/foo to restore"));
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_exe_delete: Removal of foo_any_1.0 failed with rc=-1"));
    EXPECT_EQ(read_all(live + "/foo"), "file of foo\n");
    EXPECT_TRUE(is_installed("foo"));
    EXPECT_TRUE(there(repo.in("fileindex/foo")));
    EXPECT_TRUE(fs::is_empty(repo.in("stagearea")));
}

TEST_F(Removal, AnIndexThatCannotBeReadEndsIt) {
    add("foo");
    fs::remove(repo.in("fileindex/foo"));
    fs::create_directories(repo.in("fileindex/foo"));
    EXPECT_EQ(remove("foo"), -1);
    EXPECT_TRUE(
        log.has(LEVEL_ERROR, "Failed to read " + repo.in("fileindex/foo") + ": Is a directory"));
    EXPECT_TRUE(is_installed("foo"));
    EXPECT_TRUE(there(live + "/foo"));
}

TEST_F(Removal, APipeInPlaceOfTheIndexIsNotWaitedFor) {
    add("foo");
    fs::remove(repo.in("fileindex/foo"));
    ASSERT_EQ(mkfifo(repo.in("fileindex/foo").c_str(), 0600), 0);
    alarm(120);  // to wait for a writer would be to wait for ever
    EXPECT_EQ(remove("foo"), -1);
    alarm(0);
    EXPECT_TRUE(
        log.has(LEVEL_ERROR, "Failed to read " + repo.in("fileindex/foo") + ": Invalid argument"));
    EXPECT_TRUE(is_installed("foo"));
    EXPECT_TRUE(there(live + "/foo"));
}

TEST_F(Removal, AFileThatCannotBeRemovedIsAWarning) {
    add("foo");
    write(live + "/dev/bound", "x");
    write(live + "/target", "y");
    // Nothing that is a mount point can be unlinked.
    must_run("mount --bind /srv/t/target /srv/t/dev/bound");
    write(repo.in("fileindex/foo"), "/srv/t/dev/bound\n/srv/t/foo\n");
    EXPECT_EQ(remove("foo"), 0);
    must_run("umount /srv/t/dev/bound");
    EXPECT_TRUE(log.has(LEVEL_WARNING,
                        "vrm_one_delete: Failed to remove registered file /srv/t/dev/bound: Device "
                        "or resource busy, but we go on"));
    EXPECT_TRUE(there(live + "/dev/bound"));
    EXPECT_FALSE(there(live + "/foo"));
    EXPECT_FALSE(is_installed("foo"));
}

TEST_F(Removal, WithoutAnIndexThereIsNothingToComplainOf) {
    add("foo");
    fs::remove(repo.in("fileindex/foo"));
    ASSERT_EQ(remove("foo"), 0);
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_one_delete: no fileindex. This is ok"));
    EXPECT_THAT(log.at(LEVEL_WARNING), IsEmpty());
    EXPECT_THAT(log.at(LEVEL_ERROR), IsEmpty());
    EXPECT_TRUE(there(live + "/foo"));
    EXPECT_FALSE(is_installed("foo"));
}

TEST_F(Removal, LinksGo) {
    add("foo");
    fs::create_symlink("foo", live + "/foo-link");
    write(entry("foo") + "/link.txt", "/srv/t|foo|foo-link\n");
    ASSERT_EQ(remove("foo"), 0);
    EXPECT_TRUE(fs::is_empty(live));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_one_delete: rc of vrm_vrf_links: 0"));
}

TEST_F(Removal, LeftOversOfAFormerRunAreNotRestored) {
    add("foo");
    write(old("foo") + "/srv/t/stale", "stale");
    write(old("foo") + "/index.txt", "/srv/t/stale\n");
    script("foo", "99-del.sh", "exit 1\n");
    EXPECT_EQ(remove("foo"), 256);
    EXPECT_FALSE(there(live + "/stale"));
    expect_whole("foo");
}

// Else its entry would be missing as that of a package whose update died amidst its swap is.
TEST_F(Removal, WhatADeadUpdateLeftDoesNotComeBack) {
    add("foo");
    for (const char *left : {"installed/.foo.new", "installed/.foo.old"}) {
        fs::copy(repo.in("installed/foo"), repo.in(left), fs::copy_options::recursive);
    }
    write(repo.in("fileindex/.foo.new"), "/srv/t/foo\n");
    EXPECT_EQ(remove("foo"), 0);
    EXPECT_FALSE(there(repo.in("installed/.foo.new")));
    EXPECT_FALSE(there(repo.in("fileindex/.foo.new")));
    EXPECT_EQ(vrm_undo_broken_swaps(repo.handle()), 0);
    EXPECT_FALSE(is_installed("foo"));
}

TEST_F(Removal, ADependencyThatFailsDoesNotBringTheTopBack) {
    add("t", {"a"});
    add("a", {"b"}, "t");
    add("b", {}, "a");
    script("a", "00-del.sh", "exit 2\n");
    EXPECT_EQ(remove("t"), 512);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_exe_delete: Removal of a_any_1.0 failed with rc=512"));
    EXPECT_FALSE(is_installed("t"));
    expect_whole("a");
    EXPECT_TRUE(is_installed("b"));
    EXPECT_THAT(history(), ElementsAre("deleted t_any_1.0 as requested by user"));
}

TEST_F(Removal, StopsBetweenPackagesWhenAsked) {
    add("t", {"a"});
    add("a", {}, "t");
    const own_vrt transaction = plan("t");
    vrm_stop_requested = 1;
    EXPECT_EQ(run(transaction), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "interrupted, not going on with t_any_1.0"));
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_exe_delete: Removal of t_any_1.0 failed with rc=-1"));
    expect_whole("t");
    expect_whole("a");
}

TEST_F(Removal, RefusesNamesThatWouldLeaveTheirPlaceBeforeTouchingAnything) {
    add("t", {"a"});
    add("a", {}, "t");
    for (const char *bad : {"../t", ".t", "-t", "t;b", "$(x)"}) {
        own_vrt transaction = plan("t");
        ASSERT_EQ(transaction->num_deps, 1);
        for (vri *package : {transaction->info, transaction->deps[0]->info}) {
            char *const good = package->name;
            package->name = strdup(bad);
            EXPECT_EQ(run(transaction), -1) << bad;
            EXPECT_TRUE(log.has(LEVEL_ERROR, std::string("vrm_exe_delete: refusing package <") +
                                                 bad + ">: its name is not allowed"));
            EXPECT_EQ(vrm_one_delete(repo.handle(), package), -1);
            EXPECT_TRUE(log.has(LEVEL_ERROR, std::string("vrm_one_delete: refusing package <") +
                                                 bad + ">: its name is not allowed"));
            log.clear();
            free(package->name);
            package->name = good;
        }
        free(transaction->deps[0]->cand);
        transaction->deps[0]->cand = strdup(bad);
        EXPECT_EQ(run(transaction), -1) << bad;
        EXPECT_TRUE(log.has(LEVEL_ERROR, std::string("vrm_exe_delete: refusing dependency a of <") +
                                             bad + ">: that name is not allowed"));
        log.clear();
    }
    expect_whole("t");
    expect_whole("a");
}

TEST_F(Removal, FinishesThePackageAtHandWhenAskedToStop) {
    add("t", {"a"});
    add("a", {}, "t");
    const own_vrt transaction = plan("t");
    // The wish comes while the first package is at work.
    const EventReceiver receiver([](const event &happened) {
        if (event_level(happened.kind) == LEVEL_INFO) {
            vrm_stop_requested = 1;
        }
    });
    EXPECT_EQ(run(transaction), -1);
    EXPECT_FALSE(is_installed("t"));
    EXPECT_TRUE(log.has(LEVEL_ERROR, "interrupted, not going on with a_any_1.0"));
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_exe_delete: Removal of a_any_1.0 failed with rc=-1"));
    expect_whole("a");
}

TEST_F(Removal, WhatCannotBeRestoredStaysInTheStageDirectory) {
    add("foo");
    write(live + "/two", "second\n");
    write(repo.in("fileindex/foo"), "/srv/t/foo\n/srv/t/two\n");
    // Something else stands in the place of the first file by the time of the rollback.
    script("foo", "99-del.sh", "mkdir /srv/t/foo; echo x >/srv/t/foo/x; exit 1\n");
    fs::copy_file("/bin/busybox", repo.in("scriptdir") + "/mkdir", fs::copy_options::skip_existing);
    EXPECT_EQ(remove("foo"), 256);
    EXPECT_TRUE(log.has(LEVEL_ERROR,
                        "vrm_install_rollback: Failure restoring /srv/t/foo, you're in deep shit. "
                        "We still try to do the rest."));
    EXPECT_EQ(read_all(live + "/two"), "second\n") << "the others come back all the same";
    EXPECT_TRUE(fs::is_directory(live + "/foo"));
    EXPECT_TRUE(is_installed("foo"));
    const std::string saved = repo.in("stagearea/foo_any_1.0/keep/0");
    EXPECT_EQ(read_all(saved), "file of foo\n");
    EXPECT_TRUE(log.has(LEVEL_ERROR,
                        "Failed to put /srv/t/foo back from " + saved + ": Directory not empty"));
    // Nothing may be changed until that is put right.
    EXPECT_EQ(remove("foo"), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_exe_delete: " + repo.in("change/record") +
                                         " is the record of a change that was cut off, not going "
                                         "on"));
    fs::remove_all(live + "/foo");
    EXPECT_EQ(vrm_recover_change(repo.handle()), 1);
    EXPECT_EQ(read_all(live + "/foo"), "file of foo\n");
    EXPECT_TRUE(fs::is_empty(repo.in("stagearea")));
    EXPECT_FALSE(there(repo.in("change/record")));
}
