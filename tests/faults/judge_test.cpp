#include "faults/judge.h"

#include <gtest/gtest.h>

// A judge that finds no fault with anything would make every run of the harness a good one. So here
// it is shown states that no engine may leave, beside those that are told.

namespace {

const std::string file = live_data + "/p/file", fresh = live_data + "/p/fresh";
const std::string conf = live_conf + "/p.conf", link_path = live_data + "/links/p";
const std::string stage = stagearea + "/p_any_2.0";

node regular(const std::string &content, unsigned mode = 0644) {
    return {'f', mode, content};
}

tree of_version(const std::string &version, const std::string &index) {
    return {
        {live_data, {'d', 0755, ""}},
        {live_data + "/nobodys", regular("of nobody")},
        {file, regular("file of " + version)},
        {conf, regular("conf of " + version)},
        {link_path, {'l', 0, "../p/" + version}},
        {installed + "p", {'d', 0755, ""}},
        {installed + "p/desc.txt", regular("desc of " + version)},
        {installed + "p/inst.txt", regular("evrkInstallTime: 1\n")},
        {fileindex + "p", regular(index)},
        {action_log, regular("2001-01-01 00:00:00: installed p_any_1.0 as requested by user\n")},
    };
}

// The update of a package p with a file in both versions and one in the second.
class Judge : public testing::Test {
 protected:
    Judge() {
        scene_.packages = {{"p", {file, fresh}, {conf}, {link_path}, {}}};
        scene_.before = of_version("1", file + "\n");
        scene_.after = of_version("2", file + "\n" + fresh + "\n");
        scene_.after[fresh] = regular("fresh of 2");
        scene_.after[action_log].content +=
            "2001-01-01 00:00:01: updated p_any_1.0 to p_any_2.0 as requested by user\n";
        scene_.repeated = scene_.after;
        failed_.disturbed = {"write", fresh, "", true};
        failed_.now = scene_.before;
        failed_.log = "vrm_install_rollback: finished";
        killed_ = scene_.before;
    }

    // The names of what is found, in one line: "FAULT" for a fault.
    static std::string text_of(const std::vector<finding> &findings) {
        std::string text;
        for (const finding &found : findings) {
            text += (text.empty() ? "" : " ") +
                    std::string(found.reason ? name_of(*found.reason) : "FAULT");
        }
        return text;
    }
    std::string judge() {
        return text_of(judge_failure(scene_, failed_));
    }
    std::string judge_kill(const std::set<std::string> &listed) {
        return text_of(judge_killed(scene_, killed_, listed));
    }
    std::string judge_recovery_to(const tree &now) {
        return text_of(judge_recovery(scene_, killed_, now));
    }
    std::string judge_again(const tree &now) {
        return text_of(judge_repetition(scene_, killed_, now));
    }
    void disturb(const char *call, const std::string &path, const std::string &other = "") {
        failed_.disturbed = {call, path, other, true};
        failed_.trace.push_back(failed_.disturbed);
        failed_.number = failed_.trace.size() - 1;
    }

    scene scene_;
    failed_run failed_ = {};
    tree killed_;
};

TEST_F(Judge, FindsNothingWhenAllIsAsBeforeOrAllIsDone) {
    EXPECT_EQ(judge(), "");
    failed_.now = scene_.after;
    failed_.success_told = true;
    EXPECT_EQ(judge(), "");
}

TEST_F(Judge, FindsFaultWithASuccessThatIsNone) {
    failed_.success_told = true;
    EXPECT_EQ(judge(), "FAULT");
}

TEST_F(Judge, FindsFaultWithAHalfRegisteredPackage) {
    failed_.now[fileindex + "p"] = scene_.after[fileindex + "p"];
    EXPECT_EQ(judge(), "FAULT");
    failed_.now = scene_.before;
    failed_.now.erase(installed + "p/inst.txt");
    EXPECT_EQ(judge(), "FAULT");
    failed_.now = scene_.before;
    failed_.now.erase(fileindex + "p");
    EXPECT_EQ(judge(), "FAULT");
}

TEST_F(Judge, TellsTheSwapOfAnUpdateOnlyWhenItWasDisturbed) {
    disturb("rename", fileindex + ".p.new", fileindex + "p");
    failed_.now = scene_.after;
    failed_.now.erase(fileindex + "p");
    failed_.now[fileindex + ".p.new"] = scene_.after[fileindex + "p"];
    EXPECT_EQ(judge(), "swap-not-finished swap-not-finished");
    disturb("write", fileindex + ".p.new");
    EXPECT_EQ(judge(), "FAULT FAULT");
}

TEST_F(Judge, FindsFaultWithALostOrChangedFileOfTheOldVersion) {
    disturb("unlink", file);
    disturb("write", fresh);
    failed_.now.erase(file);
    EXPECT_EQ(judge(), "FAULT");
    failed_.now[file] = regular("file of 2");
    EXPECT_EQ(judge(), "FAULT");
    failed_.now[file] = regular("file of 1", 0600);
    EXPECT_EQ(judge(), "FAULT");
}

TEST_F(Judge, TellsAFileThatWasNotReached) {
    disturb("write", fresh);
    failed_.now.erase(file);
    EXPECT_EQ(judge(), "not-reached");
    failed_.log = "no rollback";
    EXPECT_EQ(judge(), "FAULT");
}

TEST_F(Judge, FindsFaultWithAFileOfTheNewVersionThatIsLeft) {
    failed_.now[fresh] = regular("fresh of 2");
    EXPECT_EQ(judge(), "FAULT");
    disturb("unlink", fresh);
    EXPECT_EQ(judge(), "new-stays");
}

TEST_F(Judge, FindsFaultWithHalfAConfigurationFile) {
    failed_.now[conf] = regular("conf");
    EXPECT_EQ(judge(), "FAULT");
    failed_.now.erase(conf);
    EXPECT_EQ(judge(), "FAULT");
}

TEST_F(Judge, TellsANewConfigurationFileOnlyWhenItIsWhole) {
    scene_.before.erase(conf);
    failed_.now = scene_.before;
    failed_.now[conf] = scene_.after[conf];
    EXPECT_EQ(judge(), "conf-stays");
    failed_.now[conf] = regular("conf");
    EXPECT_EQ(judge(), "FAULT");
}

TEST_F(Judge, TellsLinksAfterARollback) {
    failed_.now[link_path] = scene_.after[link_path];
    EXPECT_EQ(judge(), "links-stay");
    failed_.now[link_path].content = "elsewhere";
    EXPECT_EQ(judge(), "FAULT");
    failed_.now.erase(link_path);
    EXPECT_EQ(judge(), "FAULT");
    disturb("symlink", link_path);
    EXPECT_EQ(judge(), "link-not-made");
}

TEST_F(Judge, TellsPermissionsOnlyOfTheFileWhoseModeCouldNotBeSet) {
    disturb("unlink", file);
    disturb("fchmod", stage + "/old" + file);
    failed_.now[file].mode = 0600;
    EXPECT_EQ(judge(), "mode-not-set");
    disturb("fchmod", stage + "/old" + fresh);
    EXPECT_EQ(judge(), "FAULT");
    disturb("flistxattr", stage + "/old" + file);
    EXPECT_EQ(judge(), "mode-not-set");
}

TEST_F(Judge, FindsFaultWithLeftOversThatCouldHaveBeenCleared) {
    failed_.now[stage] = {'d', 0755, ""};
    EXPECT_EQ(judge(), "FAULT");
    disturb("rmdir", stage);
    EXPECT_EQ(judge(), "not-cleared");
    disturb("write", stage + "/new/data/x");
    failed_.log = "vrm_update_vrk: Failure unpacking x to y";
    EXPECT_EQ(judge(), "stage-kept");
    failed_.log = "vrm_update_vrk: cannot install p_any_2.vrk: its head says p 3";
    EXPECT_EQ(judge(), "stage-kept");
    failed_.now = scene_.before;
    failed_.now[installed + ".p.old"] = {'d', 0755, ""};
    EXPECT_EQ(judge(), "FAULT");
    failed_.now = scene_.before;
    for (const std::string &path : {lock_file, script_note, script_note + ".new"}) {
        failed_.now = scene_.before;
        failed_.now[path] = regular("1\n");
        EXPECT_EQ(judge(), "FAULT");
    }
    disturb("unlink", script_note + ".new");
    EXPECT_EQ(judge(), "not-cleared");
}

TEST_F(Judge, FindsFaultWithAFalseHistory) {
    failed_.now[action_log] = scene_.after[action_log];
    EXPECT_EQ(judge(), "FAULT");
    failed_.now = scene_.after;
    failed_.now[action_log] = scene_.before[action_log];
    EXPECT_EQ(judge(), "FAULT");
    disturb("open", action_log);
    EXPECT_EQ(judge(), "not-logged");
}

TEST_F(Judge, FindsFaultWithWhatBelongsToNobody) {
    failed_.now.erase(live_data + "/nobodys");
    EXPECT_EQ(judge(), "FAULT");
    failed_.now = scene_.before;
    failed_.now[live_data + "/stranger"] = regular("");
    EXPECT_EQ(judge(), "FAULT");
}

TEST_F(Judge, FindsNothingWhenARepetitionReachesTheEnd) {
    EXPECT_EQ(judge_again(scene_.after), "");
    tree later = scene_.after;
    later[installed + "p/inst.txt"] = regular("evrkInstallTime: 22\n");
    EXPECT_EQ(judge_again(later), "");
}

TEST_F(Judge, FindsFaultWithARepetitionThatDoesNot) {
    EXPECT_NE(judge_again(scene_.before).find("FAULT"), std::string::npos);
    tree now = scene_.after;
    now.erase(fresh);
    EXPECT_EQ(judge_again(now), "FAULT");
    now = scene_.after;
    now[conf] = scene_.before[conf];
    EXPECT_EQ(judge_again(now), "FAULT");
    now = scene_.after;
    now[lock_file] = regular("1\n");
    EXPECT_EQ(judge_again(now), "FAULT");
    now = scene_.after;
    now[script_note] = regular("1\n");
    EXPECT_EQ(judge_again(now), "FAULT");
    now = scene_.after;
    now[stage] = {'d', 0755, ""};
    EXPECT_EQ(judge_again(now), "FAULT");
    killed_ = now;
    EXPECT_EQ(judge_again(now), "killed-left-overs");
}

TEST_F(Judge, FindsFaultWithASwapThatIsNotMended) {
    killed_ = scene_.after;
    killed_[fileindex + "p"] = scene_.before[fileindex + "p"];
    EXPECT_EQ(judge_again(killed_), "FAULT");
    for (const char *path : {"p", "p/desc.txt", "p/inst.txt"}) {
        killed_.erase(installed + path);
    }
    EXPECT_EQ(judge_again(killed_), "FAULT FAULT");
}

TEST_F(Judge, TellsTheMomentsThatNoRepetitionMends) {
    killed_ = scene_.before;
    killed_[conf] = regular("co");
    tree now = scene_.after;
    now[conf] = killed_[conf];
    EXPECT_EQ(judge_again(now), "killed-conf");

    // An installation, killed ahead of the file index.
    for (const char *path : {"p", "p/desc.txt", "p/inst.txt"}) {
        scene_.before.erase(installed + path);
    }
    scene_.before.erase(fileindex + "p");
    killed_ = scene_.after;
    killed_.erase(fileindex + "p");
    EXPECT_EQ(judge_again(killed_), "killed-unindexed");
}

TEST_F(Judge, FindsNothingWithAKillWhenThePackageIsAWholeOne) {
    EXPECT_EQ(judge_kill({"p"}), "");
    killed_ = scene_.after;
    EXPECT_EQ(judge_kill({"p"}), "");
}

TEST_F(Judge, FindsFaultWithAHalfMadeEntryThatIsListed) {
    killed_.erase(installed + "p/inst.txt");
    EXPECT_EQ(judge_kill({"p"}), "FAULT");
    EXPECT_EQ(judge_kill({}), "FAULT");
    killed_ = scene_.before;
    killed_[fileindex + "p"] = scene_.after[fileindex + "p"];
    EXPECT_EQ(judge_kill({"p"}), "FAULT");
    // Of an installation it is none at all as long as it isn't listed.
    for (const char *path : {"p", "p/desc.txt", "p/inst.txt"}) {
        scene_.before.erase(installed + path);
    }
    scene_.before.erase(fileindex + "p");
    killed_ = scene_.before;
    killed_[installed + "p"] = {'d', 0755, ""};
    killed_[installed + "p/desc.txt"] = scene_.after[installed + "p/desc.txt"];
    EXPECT_EQ(judge_kill({}), "");
    EXPECT_EQ(judge_kill({"p"}), "FAULT");
    killed_[fileindex + "p"] = scene_.after[fileindex + "p"];
    EXPECT_EQ(judge_kill({}), "FAULT");
    // Once it is whole, only the end of its list of files may be lacking.
    killed_ = scene_.after;
    killed_[fileindex + "p"] = regular(file);
    EXPECT_EQ(judge_kill({"p"}), "killed-unindexed");
    killed_[fileindex + "p"] = regular("/another\n");
    EXPECT_EQ(judge_kill({"p"}), "FAULT");
}

TEST_F(Judge, TellsAKillInTheMidstOfRegistration) {
    // Of an update, with the old entry set aside.
    killed_ = scene_.after;
    killed_[fileindex + "p"] = scene_.before[fileindex + "p"];
    EXPECT_EQ(judge_kill({"p"}), "FAULT");
    for (const char *path : {"", "/desc.txt", "/inst.txt"}) {
        killed_[installed + ".p.old" + path] = scene_.before[std::string(installed + "p") + path];
    }
    EXPECT_EQ(judge_kill({"p"}), "killed-mid-swap");
    // Of a removal.
    for (const char *path : {"p", "p/desc.txt", "p/inst.txt"}) {
        scene_.after.erase(installed + path);
    }
    scene_.after.erase(fileindex + "p");
    killed_ = scene_.before;
    killed_.erase(fileindex + "p");
    EXPECT_EQ(judge_kill({"p"}), "killed-half-removed");
    killed_.erase(installed + "p/desc.txt");
    EXPECT_EQ(judge_kill({"p"}), "FAULT");
}

TEST_F(Judge, FindsFaultWithAnOldFileThatAKillLost) {
    killed_.erase(file);
    EXPECT_EQ(judge_kill({"p"}), "FAULT");
    killed_[file] = regular("file of");
    EXPECT_EQ(judge_kill({"p"}), "FAULT");
    // A backup counts when it is whole and listed.
    killed_[stage + "/old" + file] = scene_.before[file];
    EXPECT_EQ(judge_kill({"p"}), "FAULT");
    killed_[stage + "/old/index.txt"] = regular("/other\n" + file + "\n");
    EXPECT_EQ(judge_kill({"p"}), "");
    killed_[stage + "/old" + file].content = "file";
    EXPECT_EQ(judge_kill({"p"}), "FAULT");
}

TEST_F(Judge, FindsFaultWithBackupsThatBringSomethingElseBack) {
    EXPECT_EQ(judge_recovery_to(scene_.before), "");
    tree now = scene_.before;
    now[file].mode = 0600;
    EXPECT_EQ(judge_recovery_to(now), "FAULT");
    now.erase(file);
    EXPECT_EQ(judge_recovery_to(now), "FAULT");
    // The new version is in the inventory: its files are the right ones.
    killed_ = scene_.after;
    EXPECT_EQ(judge_recovery_to(scene_.after), "");
}

TEST_F(Judge, FindsFaultWithAKillThatChangedWhatBelongsToNobody) {
    killed_.erase(live_data + "/nobodys");
    EXPECT_EQ(judge_kill({"p"}), "FAULT");
}

TEST(JudgeRefusal, FindsTheStageDirectoryInTheSentence) {
    const std::string refusal = "pvrm: cannot begin with p_any_2.0: " + stage +
                                " holds backups of a change that was cut off; put them back\n";
    EXPECT_EQ(refused_stages("pvrm: getting p\n" + refusal + "pvrm: p was not upgraded\n"),
              std::set<std::string>{stage});
    EXPECT_TRUE(refused_stages("pvrm: cannot begin with p_any_2.0: it is Monday\n").empty());
}

TEST_F(Judge, FindsFaultWithBackupsThatASecondRunTouches) {
    const auto judge_second = [this](const tree &now, const std::string &output) {
        return text_of(judge_refusal(killed_, now, output));
    };
    const std::string refusal = "pvrm: cannot begin with p_any_2.0: " + stage +
                                " holds backups of a change that was cut off; put them back\n";
    killed_[stage] = {'d', 0700, ""};
    killed_[stage + "/old"] = {'d', 0755, ""};
    // There is nothing to save.
    EXPECT_EQ(judge_second(scene_.after, ""), "");
    EXPECT_EQ(judge_second(killed_, refusal), "FAULT");

    killed_[stage + "/old" + file] = scene_.before[file];
    EXPECT_EQ(judge_second(killed_, refusal), "");
    EXPECT_EQ(judge_second(scene_.after, ""), "FAULT");
    tree now = killed_;
    now[stage + "/old" + file].content = "another";
    EXPECT_EQ(judge_second(now, refusal), "FAULT");
    now = killed_;
    now[file].content = "another";
    EXPECT_EQ(judge_second(now, refusal), "FAULT") << "a refused run changes nothing";
}

TEST_F(Judge, ComparesARepetitionWithTheEndOfTheGoodPackage) {
    // The first run was to fail, the repetition is not.
    scene_.after = scene_.before;
    scene_.fails = true;
    EXPECT_EQ(judge_again(scene_.repeated), "");
    EXPECT_NE(judge_again(scene_.before).find("FAULT"), std::string::npos);
}

TEST(JudgeTold, LossesAreThoseOfFilesAndRegistrations) {
    EXPECT_TRUE(is_loss(told::not_reached));
    EXPECT_TRUE(is_loss(told::killed_unindexed));
    EXPECT_FALSE(is_loss(told::links_stay));
}

TEST(JudgeTold, EachHasANameAndASentence) {
    for (const told reason : all_told()) {
        EXPECT_NE(std::string(name_of(reason)), "");
        EXPECT_GT(std::string(sentence_of(reason)).size(), 20U);
    }
}

}  // namespace
