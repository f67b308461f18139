#include "maintenance/cleanup.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "kit/event_receiver.h"
#include "kit/log_capture.h"
#include "kit/lower_limit.h"
#include "kit/scripted_user.h"
#include "kit/test_repo.h"
#include "maintenance/locked_repo.h"
#include "maintenance/upkeep.h"
#include "transaction/interrupt.h"
#include "ui/vrmui.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
using testing::UnorderedElementsAre;

namespace {

class VrmCleanup : public LockedRepo {
 protected:
    void file(const std::string &below_root, size_t size = 1) {
        repo_.dir().write("repo/" + below_root, std::string(size, 'x'));
    }
    bool has(const std::string &below_root) {
        return exists(repo_.in(below_root));
    }
    int run() {
        return vrm_cleanup(repo_.handle());
    }
    // The question about an entry, with all that is asked along with it.
    void expect_question(size_t number, const std::string &text) {
        ASSERT_GT(user_.questions.size(), number);
        const ScriptedUser::Question &asked = user_.questions[number];
        EXPECT_EQ(asked.text, text);
        EXPECT_THAT(asked.choices,
                    ElementsAre(Pair("k", "keep entry"), Pair("L", "Leave all entries"),
                                Pair("d", "delete entry"), Pair("R", "Remove all entries"),
                                Pair("a", "abort cleanup")));
        EXPECT_EQ(asked.default_answer, "d");
    }
    // One of everything that goes, 30, 200 and 1000 bytes large.
    void fill() {
        file("installed/.foo.old/desc.txt", 10);
        file("installed/.foo.old/hash/data.txt", 20);
        file("fileindex/.foo.old", 200);
        file("stagearea/foo_any_1.0.vrk", 1000);
    }
};

}  // namespace

TEST_F(VrmCleanup, NeedsTheLock) {
    fill();
    expect_lock_needed("vrm_cleanup", [this] { return run(); });
    EXPECT_TRUE(has("installed/.foo.old") && has("fileindex/.foo.old") &&
                has("stagearea/foo_any_1.0.vrk"));
}

TEST_F(VrmCleanup, RemovesWhatIsLeftInAFixedOrderAndTellsItsSize) {
    fill();
    EXPECT_EQ(run(), 3);
    EXPECT_THAT(log_.lines(),
                ElementsAre(LogCapture::Line{"INFO", "installed: removing .foo.old"},
                            LogCapture::Line{"INFO", "fileindex: removing .foo.old"},
                            LogCapture::Line{"INFO", "stagearea: removing foo_any_1.0.vrk"},
                            // 30 + 200 + 1000 bytes
                            LogCapture::Line{"INFO", "cleanup deleted: 1.2 kB"}));
    EXPECT_TRUE(fs::is_empty(repo_.in("installed")));
    EXPECT_TRUE(fs::is_empty(repo_.in("fileindex")));
    EXPECT_TRUE(fs::is_empty(repo_.in("stagearea")));
}

TEST_F(VrmCleanup, OfAnEmptyRepositoryIsNothing) {
    EXPECT_EQ(run(), 0);
    EXPECT_THAT(log_.lines(), ElementsAre(LogCapture::Line{"INFO", "cleanup deleted: 0 bytes"}));
}

TEST_F(VrmCleanup, LeavesAnInstalledPackageAloneAfterACleanUpdate) {
    PackageSpec spec;
    repo_.install(spec, {"/usr/bin/foo"});
    file("stagearea/foo_any_0.9.vrk");
    file("stagearea/foo_any_1.0.vrk");
    EXPECT_EQ(run(), 2);
    EXPECT_TRUE(has("installed/foo/desc.txt"));
    EXPECT_TRUE(has("installed/foo/inst.txt"));
    EXPECT_TRUE(has("fileindex/foo"));
    EXPECT_TRUE(fs::is_empty(repo_.in("stagearea")));
}

TEST_F(VrmCleanup, KeepsWhatTheTableDoesNotNameInSilence) {
    const std::vector<std::string> files = {
        "installed/.foo.new/desc.txt",
        "installed/foo.old/desc.txt",       // no dot
        "installed/.foo.old.old/desc.txt",  // the suffix twice
        "installed/.foo.older/desc.txt",    // the suffix not at the end
        "installed/.foo/desc.txt",          // no suffix
        "installed/.foo.vrk/desc.txt",      // another directory's suffix
        "installed/.file.old",              // a file
        "fileindex/.foo.new",
        "fileindex/foo.old",
        "fileindex/.foo.old.old",
        "fileindex/.dir.old/file",  // a directory
        "fileindex/.foo.vrk",
        "stagearea/foo_any_1.0/new/data/x",
        "stagearea/foo_any_1.0/old/index.txt",
        "stagearea/dir.vrk/file",  // a directory
        "stagearea/a.vrk.vrk",
        "stagearea/a.vrk.part",
        "stagearea/.foo.old",
        "stagearea/a.VRK",
        "certstore/.a.old",
        "scriptdir/a.vrk",
        "lonely.vrk",
    };
    for (const std::string &name : files) {
        file(name);
    }
    EXPECT_EQ(run(), 0);
    for (const std::string &name : files) {
        EXPECT_TRUE(has(name)) << name;
    }
    EXPECT_THAT(log_.lines(), ElementsAre(LogCapture::Line{"INFO", "cleanup deleted: 0 bytes"}));
}

TEST_F(VrmCleanup, NeedsADotInTwoOfTheDirectoriesAndNoMoreThanTheSuffix) {
    file("stagearea/.hidden.vrk");
    file("stagearea/.vrk");
    file("fileindex/.old");
    fs::create_directory(repo_.in("installed/.old"));
    EXPECT_EQ(run(), 4);
    EXPECT_FALSE(has("stagearea/.hidden.vrk") || has("stagearea/.vrk") || has("fileindex/.old") ||
                 has("installed/.old"));
}

TEST_F(VrmCleanup, TakesNoSymbolicLinkForWhatItPointsTo) {
    file("elsewhere/kept");
    fs::create_directory_symlink(repo_.in("elsewhere"), repo_.in("installed/.link.old"));
    fs::create_symlink(repo_.in("elsewhere/kept"), repo_.in("fileindex/.link.old"));
    fs::create_symlink(repo_.in("elsewhere/kept"), repo_.in("stagearea/link.vrk"));
    EXPECT_EQ(run(), 0);
    EXPECT_TRUE(has("installed/.link.old") && has("fileindex/.link.old") &&
                has("stagearea/link.vrk"));
    // Nor does it go through one.
    fs::create_directory(repo_.in("installed/.foo.old"));
    fs::create_directory_symlink(repo_.in("elsewhere"), repo_.in("installed/.foo.old/link"));
    EXPECT_EQ(run(), 1);
    EXPECT_TRUE(has("elsewhere/kept"));
}

TEST_F(VrmCleanup, AsksNothingUnlessQuestionsAreWanted) {
    for (const int mode : {0, 2, 3}) {
        vote_mode = mode;
        fill();
        EXPECT_EQ(run(), 3) << mode;
    }
    EXPECT_THAT(user_.questions, IsEmpty());
}

TEST_F(VrmCleanup, AsksAboutEachEntry) {
    vote_mode = 1;
    fill();
    user_.answers = {"d", "d", "d"};
    EXPECT_EQ(run(), 3);
    ASSERT_THAT(user_.questions, SizeIs(3));
    expect_question(0, "installed: delete directory .foo.old with size 30");
    expect_question(1, "fileindex: delete file .foo.old with size 200");
    expect_question(2, "stagearea: delete file foo_any_1.0.vrk with size 1000");
    EXPECT_TRUE(log_.has(LEVEL_INFO, "cleanup deleted: 1.2 kB"));
}

TEST_F(VrmCleanup, KeepsWhatIsToBeKept) {
    vote_mode = 1;
    fill();
    user_.answers = {"k", "k", "k"};
    EXPECT_EQ(run(), 0);
    EXPECT_THAT(log_.lines(),
                ElementsAre(LogCapture::Line{"INFO", "installed: keeping .foo.old"},
                            LogCapture::Line{"INFO", "fileindex: keeping .foo.old"},
                            LogCapture::Line{"INFO", "stagearea: keeping foo_any_1.0.vrk"},
                            LogCapture::Line{"INFO", "cleanup deleted: 0 bytes"}));
    EXPECT_TRUE(has("installed/.foo.old/hash/data.txt") && has("fileindex/.foo.old") &&
                has("stagearea/foo_any_1.0.vrk"));
}

TEST_F(VrmCleanup, CountsOnlyWhatWasRemoved) {
    vote_mode = 1;
    fill();
    user_.answers = {"d", "k", "d"};
    EXPECT_EQ(run(), 2);
    EXPECT_TRUE(log_.has(LEVEL_INFO, "cleanup deleted: 1.0 kB"));  // 30 + 1000 bytes
}

TEST_F(VrmCleanup, LeavesTheRestOfOneDirectoryOnly) {
    vote_mode = 1;
    file("installed/.foo.old/desc.txt");
    file("installed/.bar.old/desc.txt");
    file("installed/.baz.old/desc.txt");
    file("fileindex/.foo.old");
    user_.answers = {"L", "d"};
    EXPECT_EQ(run(), 1);
    ASSERT_THAT(user_.questions, SizeIs(2));
    expect_question(1, "fileindex: delete file .foo.old with size 1");
    EXPECT_THAT(log_.at(LEVEL_INFO),
                UnorderedElementsAre("installed: keeping .foo.old", "installed: keeping .bar.old",
                                     "installed: keeping .baz.old", "fileindex: removing .foo.old",
                                     "cleanup deleted: 1 bytes"));
    EXPECT_TRUE(has("installed/.foo.old") && has("installed/.bar.old") &&
                has("installed/.baz.old"));
    EXPECT_FALSE(has("fileindex/.foo.old"));
}

TEST_F(VrmCleanup, RemovesTheRestOfOneDirectoryOnly) {
    vote_mode = 1;
    for (const char *name : {"a", "b", "c"}) {
        file(std::string("fileindex/.") + name + ".old");
        file(std::string("stagearea/") + name + ".vrk");
    }
    user_.answers = {"R", "k", "R"};
    EXPECT_EQ(run(), 5);
    EXPECT_THAT(user_.questions, SizeIs(3));
    EXPECT_TRUE(fs::is_empty(repo_.in("fileindex")));
    EXPECT_EQ(std::distance(fs::directory_iterator(repo_.in("stagearea")), {}), 1);
}

TEST_F(VrmCleanup, AbortsWhenToldAndKeepsWhatIsLeft) {
    vote_mode = 1;
    fill();
    user_.answers = {"d", "a"};
    EXPECT_EQ(run(), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(LogCapture::Line{"INFO", "installed: removing .foo.old"},
                                          LogCapture::Line{"ERROR", "aborting cleanup"}));
    EXPECT_FALSE(has("installed/.foo.old"));
    EXPECT_TRUE(has("fileindex/.foo.old"));
    EXPECT_TRUE(has("stagearea/foo_any_1.0.vrk"));
}

TEST_F(VrmCleanup, TakesNoAnswerForAnAbort) {
    vote_mode = 1;
    fill();
    EXPECT_EQ(run(), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(LogCapture::Line{"ERROR", "aborting cleanup"}));
    EXPECT_TRUE(has("installed/.foo.old"));
}

TEST_F(VrmCleanup, EndsBeforeTheNextEntryWhenAskedToStop) {
    fill();
    // The request comes while the first entry is being removed, which is finished.
    const EventReceiver receiver([](const event &happened) {
        if (happened.kind == event_kind::old_entry_removed) {
            vrm_stop_requested = 1;
        }
    });
    EXPECT_EQ(run(), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(LogCapture::Line{"INFO", "installed: removing .foo.old"},
                                          LogCapture::Line{"ERROR", "aborting cleanup"}));
    EXPECT_FALSE(has("installed/.foo.old"));
    EXPECT_TRUE(has("fileindex/.foo.old"));
}

TEST_F(VrmCleanup, OnlyTellsWithTheFlagForIt) {
    dry_run = true;
    vote_mode = 1;
    ASSERT_EQ(vrm_unlock(repo_.handle()), 0);
    fill();
    EXPECT_EQ(run(), 3);
    EXPECT_THAT(
        log_.lines(),
        ElementsAre(LogCapture::Line{"INFO", "installed: found .foo.old of size 30"},
                    LogCapture::Line{"INFO", "fileindex: found .foo.old of size 200"},
                    LogCapture::Line{"INFO", "stagearea: found foo_any_1.0.vrk of size 1000"},
                    LogCapture::Line{"INFO", "cleanup deleted: 1.2 kB"}));
    EXPECT_THAT(user_.questions, IsEmpty());
    EXPECT_TRUE(has("installed/.foo.old/hash/data.txt") && has("fileindex/.foo.old") &&
                has("stagearea/foo_any_1.0.vrk"));
    EXPECT_FALSE(has("lock"));
}

TEST_F(VrmCleanup, EndsAtADirectoryThatIsMissing) {
    for (const char *role : {"installed", "fileindex", "stagearea"}) {
        fill();
        log_.clear();
        fs::rename(repo_.in(role), repo_.in("away"));
        EXPECT_EQ(run(), -1) << role;
        const std::vector<std::string> lines = log_.at(LEVEL_INFO);
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ(lines.back(), "failure opening <" + repo_.in(role) +
                                    "> for reading: No such file or directory");
        fs::rename(repo_.in("away"), repo_.in(role));
        // What came before is done, what comes behind is not.
        EXPECT_EQ(has("installed/.foo.old"), role == std::string("installed"));
        EXPECT_EQ(has("fileindex/.foo.old"), role != std::string("stagearea"));
        EXPECT_TRUE(has("stagearea/foo_any_1.0.vrk"));
    }
}

TEST_F(VrmCleanup, PassesOverADirectoryThatCannotBeMeasured) {
    file("installed/.deep.old/1/file");
    file("fileindex/.foo.old");
    {
        // One for `installed`, one for the entry; none is left for the directory in it.
        const LowerLimit limit(RLIMIT_NOFILE, limit_with(2));
        EXPECT_EQ(run(), 1);
    }
    EXPECT_TRUE(log_.has(LEVEL_ERROR, "failed to dudir " + repo_.in("installed/.deep.old")));
    EXPECT_TRUE(has("installed/.deep.old/1/file"));
    EXPECT_FALSE(has("fileindex/.foo.old"));
}

TEST_F(VrmCleanup, DoesNotCountADirectoryThatCannotBeRemoved) {
    file("installed/.deep.old/1/file", 100);
    file("fileindex/.foo.old", 7);
    std::optional<LowerLimit> limit;
    const EventReceiver receiver([&](const event &happened) {
        // It was measured, and must not be opened again.
        if (happened.kind == event_kind::old_entry_removed && happened.path == ".deep.old") {
            limit.emplace(RLIMIT_NOFILE, limit_with(1));
        }
    });
    EXPECT_EQ(run(), 1);
    ASSERT_TRUE(limit);
    limit.reset();
    EXPECT_TRUE(log_.has(LEVEL_ERROR, "installed: failed to remove .deep.old"));
    EXPECT_TRUE(has("installed/.deep.old/1/file"));
    EXPECT_TRUE(log_.has(LEVEL_INFO, "cleanup deleted: 7 bytes"));
}

TEST_F(VrmCleanup, PassesOverAFileThatCannotBeMeasured) {
    struct example {
        std::string dir, one, two;
    };
    for (const auto &[dir, one, two] :
         {example{"fileindex", ".1.old", ".2.old"}, example{"stagearea", "1.vrk", "2.vrk"}}) {
        const std::string path = repo_.in(dir);
        file(fs::path(dir) / one, 5);
        file(fs::path(dir) / two, 5);
        log_.clear();
        // Takes away the files of a directory that was read already, when the first is about to be
        // removed.
        const EventReceiver receiver([&](const event &happened) {
            if (event_level(happened.kind) == LEVEL_INFO) {
                for (const auto &entry : fs::directory_iterator(path)) {
                    fs::remove(entry.path());
                }
            }
        });
        EXPECT_EQ(run(), 1);
        const std::vector<std::string> errors = log_.at(LEVEL_ERROR);
        ASSERT_THAT(errors, SizeIs(1));
        const std::string removed = log_.at(LEVEL_INFO)[0].substr(dir.size());
        EXPECT_TRUE(removed == ": removing " + one || removed == ": removing " + two);
        const std::string &missing = removed.ends_with(one) ? two : one;
        EXPECT_EQ(errors[0], std::string("failed to stat ").append(path).append("/" + missing));
        // The one that was gone before its removal counts as removed.
        EXPECT_TRUE(log_.has(LEVEL_INFO, "cleanup deleted: 5 bytes"));
    }
}

TEST_F(VrmCleanup, RemovesEachOfManyEntriesOnce) {
    for (int i = 0; i < 3000; i++) {
        file(std::string("stagearea/package").append(std::to_string(i)).append(".vrk"), 2);
    }
    EXPECT_EQ(run(), 3000);
    EXPECT_TRUE(fs::is_empty(repo_.in("stagearea")));
    EXPECT_TRUE(log_.has(LEVEL_INFO, "cleanup deleted: 5.9 kB"));  // 6000 / 1024
}

TEST_F(VrmCleanup, TellsTheSizeOfALargeFile) {
    file("stagearea/large.vrk");
    fs::resize_file(repo_.in("stagearea/large.vrk"), 5'000'000'000);
    dry_run = true;
    EXPECT_EQ(run(), 1);
    EXPECT_TRUE(log_.has(LEVEL_INFO, "stagearea: found large.vrk of size 5000000000"));
    EXPECT_TRUE(log_.has(LEVEL_INFO, "cleanup deleted: 4.657 GB"));
}
