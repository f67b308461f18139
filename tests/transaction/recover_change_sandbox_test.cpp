#include "transaction/recover_change.h"

#include "kit/marked_file.h"
#include "transaction/change_fixture.h"
#include "transaction/cut_off_fixture.h"
#include "transaction/record.h"

using testing::ElementsAre;

namespace {

// Log lines of an update, in their order; the last two are beyond the point of no return.
const std::vector<std::string> &lines_of_an_update() {
    static const std::vector<std::string> lines = {
        "vrm_update_vrk: Will unpack",
        "vrm_chk_all_files",
        "vrm_chk_local_update",
        "vrm_update_vrk: Found /srv/t/deep/in/1.0 to delete",
        "vrm_update_vrk: Processing add_files[0]",
        "vrm_update_vrk: Processing add_files[1]",
        "vrm_update_vrk: config file",
        "vrm_vrf_links: Will create symbolic link named name",
        "vrm_update_vrk: rc of vrm_vrf_perms",
        "Registering foo",
        "New fileindex name",
    };
    return lines;
}

TEST_F(CutOffChange, AnUpdateIsTakenBackFromEveryPoint) {
    put(live + "/mode", "mine\n");
    chmod((live + "/mode").c_str(), 0644);
    install_now(rich(foo1, "1.0"));
    chmod((live + "/mode").c_str(), 0644);
    const auto live_before = all_of(live), inventory = all_of(repo.in("installed"));
    const auto indexes = all_of(repo.in("fileindex"));
    const auto history_before = history();
    for (const std::string &line : lines_of_an_update()) {
        ASSERT_TRUE(cut_off(line, [&] { return update(rich(foo2, "2.0")); })) << line;
        EXPECT_EQ(recover(), 1) << line;
        EXPECT_EQ(all_of(live), live_before) << line;
        EXPECT_EQ(all_of(repo.in("installed")), inventory) << line;
        EXPECT_EQ(all_of(repo.in("fileindex")), indexes) << line;
        EXPECT_EQ(history(), history_before) << line;
        EXPECT_THAT(log.at(LEVEL_WARNING),
                    ElementsAre("the upgrade of foo_any_2.0 was cut off, and is undone"))
            << line;
        expect_nothing_left();
    }
    EXPECT_EQ(update(rich(foo2, "2.0")), 0);
}

TEST_F(CutOffChange, AnUpdateIsFinishedOnceItHasHappened) {
    PackageSpec after = rich(foo2, "2.0");
    after.init["99-cfg.sh"] = "echo ran >>/srv/t/ran\n";
    for (const std::string line :
         {"vrm_update_vrk: Found 99-cfg", "update of foo_any_2.0 succeeded",
          "vrm_scripts_exe: Found script"}) {
        fs::remove_all(live);
        fs::create_directories(live);
        fs::remove_all(repo.in("installed/foo"));
        fs::remove(repo.in("fileindex/foo"));
        fs::remove(action_log);
        install_now(rich(foo1, "1.0"));
        ASSERT_TRUE(cut_off(line, [&] { return update(after); })) << line;
        EXPECT_EQ(recover(), 1) << line;
        EXPECT_EQ(version_of("foo"), "2.0") << line;
        EXPECT_EQ(read_all(live + "/foo"), "foo 2.0\n");
        EXPECT_FALSE(exists(live + "/deep/in/1.0"));
        EXPECT_EQ(read_all(live + "/ran"), "ran\n") << line;
        EXPECT_THAT(history(),
                    ElementsAre("updated foo_any_1.0 to foo_any_2.0 as requested by user"))
            << line;
        EXPECT_TRUE(
            log.has(LEVEL_WARNING, "the upgrade of foo_any_2.0 was cut off, and is finished"));
        expect_nothing_left();
    }
}

TEST_F(CutOffChange, ARecoveryThatIsCutOffGoesOn) {
    install_now(rich(foo1, "1.0"));
    const auto live_before = all_of(live);
    ASSERT_TRUE(cut_off("New fileindex name", [&] { return update(rich(foo2, "2.0")); }));
    ASSERT_TRUE(cut_off("the upgrade of foo_any_2.0 was cut off",
                        [&] { return vrm_recover_change(repo.handle()); }));
    EXPECT_EQ(recover(), 1);
    EXPECT_EQ(all_of(live), live_before);
    expect_nothing_left();
}

TEST_F(CutOffChange, ExecutorsRefuseToGoOnAndTheRecoveryIsShown) {
    install_now(foo1);
    ASSERT_TRUE(cut_off("Registering foo", [&] { return update(foo2); }));
    EXPECT_EQ(update(foo2), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_exe_update: " + repo.in("change/record") +
                                         " is the record of a change that was cut off, not going "
                                         "on"));
    log.clear();
    EXPECT_EQ(vrm_show_recovery(repo.handle()), 1);
    EXPECT_TRUE(log.has(LEVEL_INFO, "the upgrade of foo_any_2.0 was cut off, and would be undone"));
    EXPECT_TRUE(exists(repo.in("change/record")));
    EXPECT_EQ(recover(), 1);
    EXPECT_EQ(recover(), 0);
}

TEST_F(CutOffChange, ARecordOfALaterFormatIsRefused) {
    fs::create_directories(repo.in("change"));
    put(repo.in("change/record"), "vrm-change 7\n");
    EXPECT_EQ(recover(), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "Failed to read " + repo.in("change/record") +
                                         ": it is of a version of this program that writes format "
                                         "7, and this one knows 1"));
    EXPECT_TRUE(exists(repo.in("change/record")));
}

TEST_F(CutOffChange, WhatCannotBePutBackStaysUntilItIsAbandoned) {
    install_now(foo1);
    ASSERT_TRUE(cut_off("Registering foo", [&] { return update(foo2); }));
    fs::remove(live + "/foo");
    fs::create_directory(live + "/foo");
    std::ofstream(live + "/foo/taken") << "by somebody";
    EXPECT_EQ(recover(), -1);
    const std::string saved = staged("foo_any_2.0") + "/keep/0";
    EXPECT_TRUE(log.has(LEVEL_ERROR, "Failed to put " + live + "/foo back from " + saved +
                                         ": Directory not empty"));
    EXPECT_TRUE(exists(saved));
    EXPECT_EQ(vrm_abandon_change(repo.handle()), 0);
    EXPECT_FALSE(exists(repo.in("change/record")));
    EXPECT_FALSE(exists(saved));
    bool found = false;
    for (const auto &entry : fs::recursive_directory_iterator(repo.in("saved"))) {
        found = found || entry.path().string().ends_with("_abandoned/foo_any_2.0/keep/0");
    }
    EXPECT_TRUE(found);
    EXPECT_EQ(recover(), 0);
}

TEST_F(CutOffChange, ChangesOfTheSystemAreDoneOnlyWithTheLock) {
    repo.handle()->locked = 0;
    EXPECT_EQ(vrm_recover_change(repo.handle()), -1);
    EXPECT_EQ(vrm_abandon_change(repo.handle()), -1);
    repo.handle()->locked = 1;
}

}  // namespace
