#include "maintenance/inventory_audit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "kit/capture.h"
#include "kit/event_receiver.h"
#include "kit/failing_closedir.h"
#include "kit/failing_reads.h"
#include "kit/log_capture.h"
#include "kit/lower_limit.h"
#include "kit/scripted_user.h"
#include "kit/test_repo.h"
#include "maintenance/locked_repo.h"
#include "maintenance/upkeep.h"
#include "repository/inventory.h"
#include "transaction/interrupt.h"
#include "ui/vrmui.h"

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
using testing::UnorderedElementsAre;

namespace {

class InventoryAudit : public LockedRepo {
 protected:
    // An installed package; with a head it came as that one's dependency.
    void add(const std::string &name, std::vector<std::string> deps = {},
             const std::string &head = "") {
        PackageSpec spec;
        spec.name = name;
        spec.deps = std::move(deps);
        repo_.install(spec, {},
                      "evrkInstallTime: 1700000000\nevrkInstallType: " +
                          (head.empty() ? "X\n" : "D\nevrkInstallHead: " + head + "\n"));
    }
    // An entry that is no package, as it has no inst.txt.
    void damage(const std::string &name) {
        repo_.dir().write("repo/installed/" + name + "/desc.txt", "evrkName: " + name + "\n");
    }
    bool has(const std::string &entry) const {
        return exists(repo_.in("installed/" + entry));
    }
    // Everything below the repository with its time, to see that nothing was touched.
    std::vector<std::string> snapshot() const {
        std::vector<std::string> all;
        for (const auto &entry : fs::recursive_directory_iterator(repo_.root())) {
            all.push_back(entry.path().string() + " " +
                          std::to_string(entry.last_write_time().time_since_epoch().count()));
        }
        std::sort(all.begin(), all.end());
        return all;
    }

    int chkhead() {
        int result = -2;
        told_on_stderr_ = stderr_of([&] { result = vrm_chkhead(repo_.handle()); });
        return result;
    }
    int chkinst(unsigned report = 0) {
        int result = -2;
        told_on_stderr_ = stderr_of([&] { result = vrm_chkinst(repo_.handle(), report); });
        return result;
    }
    const std::vector<std::string> &told() const {
        return user_.messages;
    }

    std::string told_on_stderr_;
};

using VrmChkhead = InventoryAudit;
using VrmChkinst = InventoryAudit;
using VrmFixinstVrk = InventoryAudit;

// The log without what reading a record tells at DEBUG.
std::vector<std::string> lines_of(const LogCapture &log, uint32_t level, const std::string &with) {
    std::vector<std::string> found;
    for (const std::string &line : log.at(level)) {
        if (line.find(with) != std::string::npos) {
            found.push_back(line);
        }
    }
    return found;
}

}  // namespace

// ---- vrm_chkhead ----

TEST_F(VrmChkhead, NeedsTheLock) {
    add("orphan", {}, "gone");
    expect_lock_needed("vrm_chkhead", [this] { return chkhead(); });
    EXPECT_THAT(told(), IsEmpty());
}

TEST_F(VrmChkhead, ADryRunNeedsNoLockAsksNothingAndChangesNothing) {
    ASSERT_EQ(vrm_unlock(repo_.handle()), 0);
    dry_run = true;
    vote_mode = 1;
    add("orphan", {}, "gone");
    const auto before = snapshot();
    EXPECT_EQ(chkhead(), 1);
    EXPECT_THAT(told(), ElementsAre("orphan was installed as a dependency of gone, but gone is no "
                                    "longer installed\n"));
    EXPECT_THAT(user_.questions, IsEmpty());
    EXPECT_EQ(snapshot(), before);
    EXPECT_THAT(log_.at(LEVEL_INFO), IsEmpty());
}

TEST_F(VrmChkhead, WhatWasAskedForIsNoOrphan) {
    add("lonely");
    EXPECT_EQ(chkhead(), 0);
    EXPECT_THAT(told(), IsEmpty());
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Found 1 packages"));
}

TEST_F(VrmChkhead, WhatItsHeadWantsIsFine) {
    add("top", {"other", "lib"});
    add("lib", {}, "top");
    EXPECT_EQ(chkhead(), 0);
    EXPECT_THAT(told(), IsEmpty());
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "vrm_chkhead: top has 2 dependencies"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "vrm_chkhead: lib is still needed by top"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Found 2 packages"));
}

TEST_F(VrmChkhead, WhatItsHeadNoLongerWantsIsAnOrphan) {
    add("top");
    add("lib", {}, "top");
    EXPECT_EQ(chkhead(), 1);
    EXPECT_THAT(told(), ElementsAre("lib was installed as a dependency of top, but top no longer "
                                    "needs it\n"));
    // A head without dependencies is not counted out.
    EXPECT_THAT(lines_of(log_, LEVEL_DEBUG, "dependencies"), IsEmpty());
    EXPECT_EQ(
        told_on_stderr_,
        "vrmui_write_info (0) called with:\nlib was installed as a dependency of top, but top "
        "no longer needs it\n\n");
    EXPECT_STREQ(vrmui->text, told()[0].c_str());
}

TEST_F(VrmChkhead, NamesAreComparedAsTheyAre) {
    add("top", {"LIB", "lib2"});
    add("lib", {}, "top");
    EXPECT_EQ(chkhead(), 1);
}

TEST_F(VrmChkhead, AThirdPackageThatNeedsItIsToldAndItStaysAnOrphan) {
    add("top");
    add("lib", {}, "top");
    add("zeta", {"lib"});
    add("alpha", {"x", "lib", "lib"});
    EXPECT_EQ(chkhead(), 1);
    EXPECT_THAT(told(), ElementsAre("lib was installed as a dependency of top, but top no longer "
                                    "needs it\n",
                                    "vrm_chkhead: lib is still needed by alpha\n",
                                    "vrm_chkhead: lib is still needed by zeta\n"));
}

TEST_F(VrmChkhead, ADamagedHeadCountsAsGone) {
    damage("top");
    add("lib", {}, "top");
    EXPECT_EQ(chkhead(), 1);
    EXPECT_THAT(told(), ElementsAre("lib was installed as a dependency of top, but top is no "
                                    "longer installed\n"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "top is not a valid package, skipping"));
}

TEST_F(VrmChkhead, PassesOverWhatIsNoEntry) {
    add(".foo.old", {}, "gone");
    repo_.dir().write("repo/installed/file", "");
    fs::create_directory_symlink(repo_.in("installed/.foo.old"), repo_.in("installed/link"));
    EXPECT_EQ(chkhead(), 0);
    EXPECT_THAT(log_.lines(),
                UnorderedElementsAre(LogCapture::Line{"DEBUG", "Omitting non-directory file"},
                                     LogCapture::Line{"DEBUG", "Omitting non-directory link"},
                                     LogCapture::Line{"DEBUG", "Found 0 packages"}));
}

TEST_F(VrmChkhead, AnInventoryThatCanNotBeOpenedHasNoOrphans) {
    fs::remove_all(repo_.in("installed"));
    EXPECT_EQ(chkhead(), 0);
    EXPECT_THAT(log_.lines(), ElementsAre(LogCapture::Line{
                                  "WARNING", "Failure opening <" + repo_.in("installed") +
                                                 "> for reading: No such file or "
                                                 "directory"}));
}

TEST_F(VrmChkhead, LeavesAllUnlessTheUserIsToBeAsked) {
    for (const int mode : {2, 3, 0}) {
        vote_mode = mode;
        add("a", {}, "gone");
        add("b", {}, "gone");
        log_.clear();
        const auto before = snapshot();
        EXPECT_EQ(chkhead(), 2);
        EXPECT_THAT(user_.questions, IsEmpty());
        EXPECT_THAT(log_.at(LEVEL_INFO), UnorderedElementsAre("leaving a", "leaving b"));
        EXPECT_EQ(snapshot(), before);
    }
}

TEST_F(VrmChkhead, AsksAboutEachOrphan) {
    vote_mode = 1;
    add("a", {}, "gone");
    user_.answers = {"L"};
    EXPECT_EQ(chkhead(), 1);
    ASSERT_THAT(user_.questions, SizeIs(1));
    EXPECT_EQ(user_.questions[0].text, "fix install info");
    EXPECT_THAT(
        user_.questions[0].choices,
        ElementsAre(Pair("k", "keep entry"), Pair("L", "Leave all entries"), Pair("f", "fix entry"),
                    Pair("F", "Fix all entries"), Pair("a", "abort chkhead")));
    EXPECT_EQ(user_.questions[0].default_answer, "l");
    EXPECT_THAT(log_.at(LEVEL_INFO), ElementsAre("leaving a"));
}

TEST_F(VrmChkhead, NoLetterChangesAnything) {
    vote_mode = 1;
    add("a", {}, "gone");
    user_.answers_freely = true;  // such as the proposed letter, which is none of those offered
    const auto before = snapshot();
    struct example {
        const char *letter;
        std::vector<std::string> info;
    };
    for (const example &given :
         {example{"k", {}}, example{"f", {}}, example{"F", {}}, example{"x", {}},
          example{"l", {"leaving a"}}, example{"L", {"leaving a"}},
          example{"d", {"fixing a not yet implemented"}}}) {
        user_.answers = {given.letter};
        log_.clear();
        EXPECT_EQ(chkhead(), 1) << given.letter;
        EXPECT_EQ(log_.at(LEVEL_INFO), given.info) << given.letter;
        EXPECT_EQ(snapshot(), before) << given.letter;
    }
}

TEST_F(VrmChkhead, LeaveAllAsksNoMore) {
    vote_mode = 1;
    for (const char *name : {"a", "b", "c"}) {
        add(name, {}, "gone");
    }
    user_.answers = {"k", "L"};
    EXPECT_EQ(chkhead(), 3);
    EXPECT_THAT(user_.questions, SizeIs(2));
    EXPECT_THAT(log_.at(LEVEL_INFO), SizeIs(2));
    // The answer was for that walk.
    user_.answers = {"k", "k", "k"};
    EXPECT_EQ(chkhead(), 3);
    EXPECT_THAT(user_.questions, SizeIs(5));
}

TEST_F(VrmChkhead, FixAllChangesNothingAndAsksNoMore) {
    vote_mode = 1;
    for (const char *name : {"a", "b", "c"}) {
        add(name, {}, "gone");
    }
    const auto before = snapshot();
    user_.answers = {"F"};
    EXPECT_EQ(chkhead(), 3);
    EXPECT_THAT(user_.questions, SizeIs(1));
    EXPECT_THAT(log_.at(LEVEL_INFO), IsEmpty());
    EXPECT_EQ(snapshot(), before);
}

TEST_F(VrmChkhead, AnAbortEndsIt) {
    vote_mode = 1;
    add("a", {}, "gone");
    add("b", {}, "gone");
    user_.answers = {"a"};
    EXPECT_EQ(chkhead(), -1);
    EXPECT_THAT(user_.questions, SizeIs(1));
    EXPECT_THAT(log_.at(LEVEL_ERROR), ElementsAre("aborting chkhead"));
    EXPECT_EQ(log_.lines().back(), (LogCapture::Line{"ERROR", "aborting chkhead"}));
}

TEST_F(VrmChkhead, StillCountsWhenTheDirectoryCannotBeClosed) {
    add("lib", {}, "gone");
    dry_run = true;
    int result = 0;
    {
        const FailingClosedir failing;
        result = chkhead();
    }
    EXPECT_EQ(result, 1);
    EXPECT_THAT(log_.at(LEVEL_WARNING),
                Contains("Failure closing <" + repo_.in("installed") + ">: Input/output error"));
}

TEST_F(VrmChkhead, NoAnswerIsAnAbort) {
    vote_mode = 1;
    add("a", {}, "gone");
    EXPECT_EQ(chkhead(), -1);
    EXPECT_THAT(log_.at(LEVEL_ERROR), ElementsAre("aborting chkhead"));
}

TEST_F(VrmChkhead, EndsBeforeTheNextEntryWhenAskedToStop) {
    add("a", {}, "gone");
    add("b", {}, "gone");
    const EventReceiver receiver([](const event &happened) {
        if (event_level(happened.kind) == LEVEL_INFO) {
            vrm_stop_requested = 1;
        }
    });
    EXPECT_EQ(chkhead(), -1);
    EXPECT_THAT(told(), SizeIs(1));
    EXPECT_THAT(log_.at(LEVEL_ERROR), ElementsAre("aborting chkhead"));
}

// With and without DEBUG the second look is made in different ways, which must not show.
TEST_F(VrmChkhead, TellsTheSameWhateverTheLogTakes) {
    add("top", {"lib3"});
    for (int i = 0; i < 9; i++) {
        add("lib" + std::to_string(i), {"lib" + std::to_string((i + 1) % 9), "lib0", "lib1"},
            i % 2 ? "top" : "gone");
    }
    damage("bad1");
    damage("bad2");
    const int orphans = chkhead();
    EXPECT_EQ(orphans, 8);
    const std::vector<std::string> messages = told(), warnings = log_.at(LEVEL_WARNING),
                                   infos = log_.at(LEVEL_INFO);
    // Each look passes over both entries that are no packages.
    EXPECT_THAT(warnings, SizeIs(16));
    EXPECT_THAT(warnings, Contains("Failure parsing info for <bad1>, skipping entry"));
    EXPECT_THAT(messages, Contains("vrm_chkhead: lib0 is still needed by lib8\n"));
    llog->file_levels &= ~LEVEL_DEBUG;
    user_.messages.clear();
    log_.clear();
    EXPECT_EQ(chkhead(), orphans);
    EXPECT_EQ(told(), messages);
    EXPECT_EQ(log_.at(LEVEL_WARNING), warnings);
    EXPECT_EQ(log_.at(LEVEL_INFO), infos);
    EXPECT_THAT(log_.at(LEVEL_DEBUG), IsEmpty());
}

// ---- vrm_chkinst ----

TEST_F(VrmChkinst, NeedsTheLock) {
    damage("bad");
    expect_lock_needed("vrm_chkinst", [this] { return chkinst(1); });
    EXPECT_THAT(told(), IsEmpty());
}

TEST_F(VrmChkinst, ADryRunNeedsNoLockAsksNothingAndChangesNothing) {
    ASSERT_EQ(vrm_unlock(repo_.handle()), 0);
    dry_run = true;
    vote_mode = 1;
    damage("bad");
    add("good");
    EXPECT_EQ(chkinst(1), 1);
    EXPECT_THAT(told(), ElementsAre("bad is not a valid package dir\n",
                                    "checked 2 entries, 1 valid , 1 invalid\n"));
    EXPECT_THAT(user_.questions, IsEmpty());
    EXPECT_THAT(log_.at(LEVEL_INFO), IsEmpty());
    EXPECT_TRUE(has("bad/desc.txt"));
}

TEST_F(VrmChkinst, ACleanInventoryIsZero) {
    add("a");
    add("b", {}, "gone");
    EXPECT_EQ(chkinst(), 0);
    EXPECT_THAT(told(), IsEmpty());
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "a is a valid package dir"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Found 2 packages"));
    EXPECT_EQ(chkinst(1), 0);
    EXPECT_THAT(told(), ElementsAre("checked 2 entries, 2 valid , 0 invalid\n"));
    EXPECT_EQ(told_on_stderr_,
              "vrmui_write_info (0) called with:\nchecked 2 entries, 2 valid , 0 invalid\n\n");
}

TEST_F(VrmChkinst, EveryKindOfDamageIsFound) {
    add("good");
    add("no-inst");
    fs::remove(repo_.in("installed/no-inst/inst.txt"));
    add("no-desc");
    fs::remove(repo_.in("installed/no-desc/desc.txt"));
    fs::create_directory(repo_.in("installed/empty"));
    repo_.dir().write("repo/installed/garbage/desc.txt", std::string("\0\xff\n:::", 6));
    repo_.dir().write("repo/installed/garbage/inst.txt", "evrkInstallTime: soon\n");
    add("no-type");
    repo_.dir().write("repo/installed/no-type/inst.txt", "evrkInstallTime: 1\n");
    add("no-head");
    repo_.dir().write("repo/installed/no-head/inst.txt",
                      "evrkInstallTime: 1\nevrkInstallType: D\n");
    add("cut-short");
    repo_.dir().write("repo/installed/cut-short/inst.txt", "");
    add("directory");
    fs::remove(repo_.in("installed/directory/inst.txt"));
    fs::create_directory(repo_.in("installed/directory/inst.txt"));
    EXPECT_EQ(chkinst(1), 8);
    EXPECT_EQ(told().back(), "checked 9 entries, 1 valid , 8 invalid\n");
    for (const char *name : {"no-inst", "no-desc", "empty", "garbage", "no-type", "no-head",
                             "cut-short", "directory"}) {
        EXPECT_THAT(told(), Contains(std::string(name) + " is not a valid package dir\n"));
        EXPECT_TRUE(has(name));
    }
}

TEST_F(VrmChkinst, PassesOverWhatIsNoEntry) {
    damage(".foo.old");
    damage(".foo.new");
    repo_.dir().write("repo/installed/file", "");
    fs::create_directory_symlink(repo_.in("installed/.foo.old"), repo_.in("installed/link"));
    EXPECT_EQ(chkinst(1), 0);
    EXPECT_THAT(told(), ElementsAre("checked 0 entries, 0 valid , 0 invalid\n"));
    EXPECT_THAT(log_.lines(),
                UnorderedElementsAre(LogCapture::Line{"DEBUG", "Omitting non-directory file"},
                                     LogCapture::Line{"DEBUG", "Omitting non-directory link"},
                                     LogCapture::Line{"DEBUG", "Found 0 packages"}));
}

TEST_F(VrmChkinst, AnInventoryThatCanNotBeOpenedHasNothingInvalid) {
    fs::remove_all(repo_.in("installed"));
    EXPECT_EQ(chkinst(1), 0);
    EXPECT_THAT(log_.lines(), ElementsAre(LogCapture::Line{
                                  "WARNING", "Failure opening <" + repo_.in("installed") +
                                                 "> for reading: No such file or "
                                                 "directory"}));
    EXPECT_THAT(told(), IsEmpty());
}

TEST_F(VrmChkinst, KeepsAllUnlessTheUserIsToBeAsked) {
    for (const int mode : {2, 3, 0}) {
        vote_mode = mode;
        damage("a");
        damage("b");
        log_.clear();
        EXPECT_EQ(chkinst(), 2);
        EXPECT_THAT(user_.questions, IsEmpty());
        EXPECT_THAT(log_.at(LEVEL_INFO), UnorderedElementsAre("keeping a", "keeping b"));
        EXPECT_TRUE(has("a") && has("b"));
    }
}

TEST_F(VrmChkinst, AsksAboutEachInvalidEntry) {
    vote_mode = 1;
    damage("bad");
    add("good");
    user_.answers = {"k"};
    EXPECT_EQ(chkinst(), 1);
    ASSERT_THAT(user_.questions, SizeIs(1));
    EXPECT_EQ(user_.questions[0].text, "remove directory " + repo_.in("installed/bad"));
    EXPECT_THAT(user_.questions[0].choices,
                ElementsAre(Pair("k", "keep entry"), Pair("L", "Leave all entries"),
                            Pair("d", "delete entry"), Pair("R", "Remove all entries"),
                            Pair("a", "abort chkinst")));
    EXPECT_EQ(user_.questions[0].default_answer, "k");
    EXPECT_THAT(log_.at(LEVEL_INFO), ElementsAre("keeping bad"));
    EXPECT_TRUE(has("bad"));
}

TEST_F(VrmChkinst, RemovesAnEntryWithAllBelowIt) {
    vote_mode = 1;
    damage("bad");
    repo_.dir().write("repo/installed/bad/conf/etc/deep/file", "x");
    add("good");
    user_.answers = {"d"};
    EXPECT_EQ(chkinst(1), 1);  // counted although it is gone now
    EXPECT_THAT(log_.at(LEVEL_INFO), ElementsAre("removing bad"));
    EXPECT_FALSE(has("bad"));
    EXPECT_TRUE(has("good/inst.txt"));
    EXPECT_EQ(told().back(), "checked 2 entries, 1 valid , 1 invalid\n");
}

// Neither of the two could be removed or upgraded through such an entry.
TEST_F(VrmChkinst, AnEntryWithTheRecordOfAnotherPackageIsFoundAndRemovedWithItsIndex) {
    PackageSpec other;
    other.name = "other";
    repo_.install(other, {"/srv/other"});
    fs::copy(repo_.in("installed/other"), repo_.in("installed/bash"), fs::copy_options::recursive);
    repo_.dir().write("repo/fileindex/bash", "/srv/other\n");
    const auto before = snapshot();
    EXPECT_EQ(chkinst(1), 1);
    EXPECT_THAT(told(), ElementsAre("bash holds the entry of another package, other\n",
                                    "checked 2 entries, 1 valid , 1 invalid\n"));
    EXPECT_THAT(log_.at(LEVEL_INFO), ElementsAre("keeping bash"));
    EXPECT_EQ(snapshot(), before);

    vote_mode = 1;
    user_.answers = {"d"};
    EXPECT_EQ(chkinst(), 1);
    EXPECT_EQ(user_.questions[0].text, "remove directory " + repo_.in("installed/bash"));
    EXPECT_FALSE(has("bash"));
    EXPECT_FALSE(exists(repo_.in("fileindex/bash")));
    EXPECT_TRUE(has("other/inst.txt"));
    EXPECT_TRUE(exists(repo_.in("fileindex/other")));
    EXPECT_EQ(chkinst(), 0);
}

TEST_F(VrmChkinst, AnyOtherLetterDoesNothing) {
    vote_mode = 1;
    damage("bad");
    user_.answers = {"x"};
    user_.answers_freely = true;
    EXPECT_EQ(chkinst(), 1);
    EXPECT_THAT(log_.at(LEVEL_INFO), IsEmpty());
    EXPECT_TRUE(has("bad"));
}

TEST_F(VrmChkinst, LeaveAllKeepsTheRestWithoutAnotherQuestion) {
    vote_mode = 1;
    for (const char *name : {"a", "b", "c"}) {
        damage(name);
    }
    user_.answers = {"d", "L"};
    EXPECT_EQ(chkinst(), 3);
    EXPECT_THAT(user_.questions, SizeIs(2));
    const std::vector<std::string> info = log_.at(LEVEL_INFO);
    ASSERT_THAT(info, SizeIs(3));
    EXPECT_EQ(info[0].substr(0, 9), "removing ");
    EXPECT_EQ(info[1].substr(0, 8), "keeping ");
    EXPECT_EQ(info[2].substr(0, 8), "keeping ");
    EXPECT_EQ(has("a") + has("b") + has("c"), 2);
}

TEST_F(VrmChkinst, RemoveAllRemovesTheRestWithoutAnotherQuestion) {
    vote_mode = 1;
    for (int i = 0; i < 50; i++) {
        damage("bad" + std::to_string(i));
        add("good" + std::to_string(i));
    }
    user_.answers = {"R"};
    EXPECT_EQ(chkinst(1), 50);
    EXPECT_THAT(user_.questions, SizeIs(1));
    EXPECT_EQ(told().back(), "checked 100 entries, 50 valid , 50 invalid\n");
    EXPECT_EQ(std::distance(fs::directory_iterator(repo_.in("installed")), {}), 50);
    EXPECT_THAT(log_.at(LEVEL_INFO), SizeIs(50));
}

TEST_F(VrmChkinst, AnAbortEndsItAndWhatWasRemovedIsGone) {
    vote_mode = 1;
    for (const char *name : {"a", "b", "c"}) {
        damage(name);
    }
    user_.answers = {"d", "a"};
    EXPECT_EQ(chkinst(1), -1);
    EXPECT_EQ(has("a") + has("b") + has("c"), 2);
    EXPECT_THAT(log_.at(LEVEL_ERROR), ElementsAre("aborting chkinst"));
    EXPECT_THAT(told(), SizeIs(2));  // and no sums
}

TEST_F(VrmChkinst, FailsWhenTheInventoryCannotBeReadToItsEnd) {
    add("a");
    int result = 0;
    {
        const FailingReaddir failing(2);
        result = chkinst(1);
    }
    EXPECT_EQ(result, -1);
    EXPECT_THAT(log_.at(LEVEL_WARNING),
                ElementsAre("Failure reading <" + repo_.in("installed") + ">: Input/output error"));
    EXPECT_THAT(log_.at(LEVEL_ERROR), ElementsAre("aborting chkinst"));
    EXPECT_THAT(told(), IsEmpty());  // no sums
}

TEST_F(VrmChkinst, StillCountsWhenTheDirectoryCannotBeClosed) {
    damage("bad");
    int result = 0;
    {
        const FailingClosedir failing;
        result = chkinst(1);
    }
    EXPECT_EQ(result, 1);
    EXPECT_THAT(log_.at(LEVEL_WARNING),
                ElementsAre("Failure closing <" + repo_.in("installed") + ">: Input/output error"));
    EXPECT_THAT(told(), ElementsAre("bad is not a valid package dir\n",
                                    "checked 1 entries, 0 valid , 1 invalid\n"));
}

TEST_F(VrmChkinst, NoAnswerIsAnAbort) {
    vote_mode = 1;
    damage("a");
    EXPECT_EQ(chkinst(), -1);
    EXPECT_THAT(log_.at(LEVEL_ERROR), ElementsAre("aborting chkinst"));
    EXPECT_TRUE(has("a"));
}

TEST_F(VrmChkinst, EndsBeforeTheNextEntryWhenAskedToStop) {
    damage("a");
    damage("b");
    const EventReceiver receiver([](const event &happened) {
        if (event_level(happened.kind) == LEVEL_INFO) {
            vrm_stop_requested = 1;
        }
    });
    EXPECT_EQ(chkinst(), -1);
    EXPECT_THAT(log_.at(LEVEL_INFO), SizeIs(1));
    EXPECT_THAT(log_.at(LEVEL_ERROR), ElementsAre("aborting chkinst"));
}

TEST_F(VrmChkinst, AnEntryThatCanNotBeRemovedIsToldAndTheWalkGoesOn) {
    vote_mode = 1;
    for (const char *name : {"a", "b"}) {
        repo_.dir().write(std::string("repo/installed/") + name + "/deep/file", "x");
    }
    user_.answers = {"R"};
    std::optional<LowerLimit> limit;
    const EventReceiver receiver([&](const event &happened) {
        // Enough for the entry, not for what is in it.
        if (event_level(happened.kind) == LEVEL_INFO && !limit) {
            limit.emplace(RLIMIT_NOFILE, limit_with(1));
        }
    });
    EXPECT_EQ(vrm_chkinst(repo_.handle(), 0), 2);
    ASSERT_TRUE(limit);
    limit.reset();
    EXPECT_THAT(lines_of(log_, LEVEL_ERROR, "failed to remove"),
                UnorderedElementsAre("failed to remove " + repo_.in("installed/a"),
                                     "failed to remove " + repo_.in("installed/b")));
    EXPECT_THAT(user_.questions, SizeIs(1));
    EXPECT_TRUE(has("a/deep/file") && has("b/deep/file"));
}

// ---- vrm_fixinst_vrk ----

TEST_F(VrmFixinstVrk, WritesTheRecordAnewAndKeepsNothingElse) {
    add("foo");
    repo_.dir().write("repo/installed/foo/inst.txt",
                      "evrkInstallTime: 1700000000\nevrkInstallType: D\nevrkInstallHead: top\n"
                      "evrkUpdateTime: 1700000100\nevrkUpdateTime: 1700000200\n");
    const own_vri package(vrm_vrl_info(repo_.handle(), "foo"));
    ASSERT_TRUE(package);
    log_.clear();
    const time_t before = time(nullptr);
    EXPECT_EQ(vrm_fixinst_vrk(repo_.handle(), package.get(), 'D', "other"), 0);
    const time_t after = time(nullptr);
    const std::string record = read_all(repo_.in("installed/foo/inst.txt"));
    const std::string fixed =
        "evrkInstallTime: 1700000000\nevrkInstallType: D\nevrkInstallHead: other\n"
        "evrkUpdateTime: 1700000100\nevrkUpdateTime: 1700000200\nevrkUpdateTime: ";
    ASSERT_EQ(record.substr(0, fixed.size()), fixed);
    const long long now = std::stoll(record.substr(fixed.size()));
    EXPECT_TRUE(now >= before && now <= after);
    EXPECT_EQ(record.back(), '\n');
    EXPECT_THAT(log_.lines(),
                ElementsAre(LogCapture::Line{"DEBUG", "fixing installation info for foo "}));
    // The rest of the entry is gone, and with it the package.
    EXPECT_FALSE(has("foo/desc.txt"));
    EXPECT_FALSE(own_vri(vrm_vrl_info(repo_.handle(), "foo")));
    EXPECT_FALSE(has(".foo.old") || has(".foo.new"));
    EXPECT_EQ(fs::status(repo_.in("installed/foo")).permissions(), fs::perms(0755));
}

TEST_F(VrmFixinstVrk, AChangeOfTheTypeIsToldAndAHeadMayBeDropped) {
    add("foo", {}, "top");
    const own_vri package(vrm_vrl_info(repo_.handle(), "foo"));
    EXPECT_EQ(vrm_fixinst_vrk(repo_.handle(), package.get(), 'X', nullptr), 0);
    EXPECT_THAT(log_.at(LEVEL_ERROR),
                ElementsAre("vrm_fixinst_vrk: change install_type from D to X for package foo"));
    const std::string record = read_all(repo_.in("installed/foo/inst.txt"));
    const std::string fixed = "evrkInstallTime: 1700000000\nevrkInstallType: X\nevrkUpdateTime: ";
    EXPECT_EQ(record.substr(0, fixed.size()), fixed);
}

TEST_F(VrmFixinstVrk, WhatTheCallerPutIntoTheNewEntrySurvives) {
    add("foo");
    fs::create_directory(repo_.in("installed/.foo.new"));
    fs::copy(repo_.in("installed/foo/desc.txt"), repo_.in("installed/.foo.new/desc.txt"));
    // Left by an update that died.
    repo_.dir().write("repo/installed/.foo.old/desc.txt", "old");
    const own_vri package(vrm_vrl_info(repo_.handle(), "foo"));
    EXPECT_EQ(vrm_fixinst_vrk(repo_.handle(), package.get(), 'D', "top"), 0);
    const own_vri fixed(vrm_vrl_info(repo_.handle(), "foo"));
    ASSERT_TRUE(fixed);
    EXPECT_EQ(fixed->install_type, 'D');
    EXPECT_STREQ(fixed->install_head, "top");
    EXPECT_FALSE(has(".foo.old") || has(".foo.new"));
}

TEST_F(VrmFixinstVrk, ARecordThatCanNotBeWrittenLeavesTheEntryAsItIs) {
    add("foo", {}, "top");
    fs::create_directories(repo_.in("installed/.foo.new/inst.txt"));
    const own_vri package(vrm_vrl_info(repo_.handle(), "foo"));
    EXPECT_EQ(vrm_fixinst_vrk(repo_.handle(), package.get(), 'X', nullptr), -1);
    EXPECT_THAT(log_.at(LEVEL_ERROR),
                ElementsAre("vrm_fixinst_vrk: Failed to write new install info for package foo"));
    EXPECT_FALSE(has(".foo.new"));
    EXPECT_TRUE(own_vri(vrm_vrl_info(repo_.handle(), "foo")));
}

TEST_F(VrmFixinstVrk, AFullDiskLeavesTheEntryAsItIs) {
    add("foo");
    fs::create_directory(repo_.in("installed/.foo.new"));
    fs::create_symlink("/dev/full", repo_.in("installed/.foo.new/inst.txt"));
    const own_vri package(vrm_vrl_info(repo_.handle(), "foo"));
    EXPECT_EQ(vrm_fixinst_vrk(repo_.handle(), package.get(), 'X', nullptr), -1);
    EXPECT_TRUE(
        log_.has(LEVEL_ERROR, "vrm_fixinst_vrk: Failed to write new install info for package foo"));
    EXPECT_TRUE(own_vri(vrm_vrl_info(repo_.handle(), "foo")));
    EXPECT_FALSE(has(".foo.new"));
}

TEST_F(VrmFixinstVrk, ANameThatLeadsElsewhereIsRefused) {
    add("foo");
    const own_vri package(vrm_vrl_info(repo_.handle(), "foo"));
    free(package->name);
    package->name = strdup("../stagearea/x");
    EXPECT_EQ(vrm_fixinst_vrk(repo_.handle(), package.get(), 'X', nullptr), -1);
    EXPECT_THAT(log_.at(LEVEL_ERROR),
                ElementsAre("vrm_fixinst_vrk: refusing package <../stagearea/x>: its name is not "
                            "allowed"));
    EXPECT_TRUE(fs::is_empty(repo_.in("stagearea")));
}
