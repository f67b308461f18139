#include "faults/strict_judge.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "faults/cases.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

const std::string file_p = live_data + "/p/file", fresh_p = live_data + "/p/fresh/file";
const std::string file_q = live_data + "/q", conf_p = live_conf + "/p.conf";
const std::string staged = stagearea + "/p_any_2.0.vrk";

node regular(const std::string &content, unsigned mode = 0644) {
    return {'f', mode, content};
}

const node directory = {'d', 0755, ""};

// An update of p, with q as a new dependency.
class StrictJudge : public testing::Test {
 protected:
    StrictJudge() {
        scene_.packages = {{"p", {file_p, fresh_p}, {conf_p}, {}, {}}, {"q", {file_q}, {}, {}, {}}};
        scene_.before = {
            {live_data, directory},
            {live_data + "/p", directory},
            {file_p, regular("file 1")},
            {conf_p, regular("conf 1")},
            {live_data + "/nobodys", regular("of nobody")},
            {installed + "p", directory},
            {installed + "p/desc.txt", regular("desc 1")},
            {fileindex + "p", regular(file_p + "\n")},
            {action_log, regular("2001-01-01 00:00:00: installed p_any_1.0 as requested\n")},
        };
        only_p_ = scene_.before;
        only_p_[file_p] = regular("file 2");
        only_p_[live_data + "/p/fresh"] = directory;
        only_p_[fresh_p] = regular("fresh 2");
        only_p_[conf_p] = regular("conf 2");
        only_p_[installed + "p/desc.txt"] = regular("desc 2");
        only_p_[fileindex + "p"] = regular(file_p + "\n" + fresh_p + "\n");
        only_p_[action_log].content += "2001-01-01 00:00:02: updated p_any_1.0 to p_any_2.0 as\n";
        only_p_[marks + "/p.99-cfg"] = regular("");
        scene_.after = only_p_;
        scene_.after[file_q] = regular("q");
        scene_.after[installed + "q"] = directory;
        scene_.after[installed + "q/desc.txt"] = regular("desc of q");
        scene_.after[fileindex + "q"] = regular(file_q + "\n");
        scene_.after[action_log].content += "2001-01-01 00:00:01: installed q_any_1.0 as\n";
        scene_.after[staged] = regular("a package file");
        now_ = scene_.before;
    }

    static std::vector<std::string> names_of(const std::vector<strict_finding> &findings) {
        std::vector<std::string> names;
        names.reserve(findings.size());
        for (const strict_finding &finding : findings) {
            names.push_back(std::string(name_of(finding.sort)) + " " + finding.path);
        }
        return names;
    }
    std::vector<std::string> judge() const {
        return names_of(judge_strictly(scene_, now_));
    }
    std::vector<std::string> losses(const std::string &disturbed = "") const {
        return names_of(losses_among(judge_strictly(scene_, now_), scene_.before, disturbed));
    }

    strict_scene scene_;
    tree only_p_, now_;
};

}  // namespace

TEST_F(StrictJudge, FindsNothingBeforeAndAfterAndPackageByPackage) {
    EXPECT_THAT(judge(), IsEmpty());
    now_ = scene_.after;
    EXPECT_THAT(judge(), IsEmpty());
    now_ = only_p_;
    EXPECT_THAT(judge(), IsEmpty());
}

TEST_F(StrictJudge, FindsAFileOfNeitherVersion) {
    now_ = scene_.after;
    now_[file_p] = regular("");
    EXPECT_THAT(judge(), ElementsAre("damaged " + file_p));
}

TEST_F(StrictJudge, FindsAFileOfTheOtherVersion) {
    now_[file_p] = regular("file 2");
    EXPECT_THAT(judge(), ElementsAre("other " + file_p));
    now_ = scene_.after;
    now_[conf_p] = regular("conf 1");
    EXPECT_THAT(judge(), ElementsAre("kept " + conf_p));
}

TEST_F(StrictJudge, FindsAnotherModeOwnerOrAttribute) {
    now_[file_p].mode = 0600;
    EXPECT_THAT(judge(), ElementsAre("other " + file_p));
    now_ = scene_.before;
    now_[file_p].owner = 5;
    EXPECT_THAT(judge(), ElementsAre("other " + file_p));
    now_ = scene_.before;
    now_[file_p].attributes["security.capability"] = "raw";
    EXPECT_THAT(judge(), ElementsAre("other " + file_p));
}

TEST_F(StrictJudge, FindsWhatIsMissingAndWhatIsLeftOver) {
    now_.erase(file_p);
    EXPECT_THAT(judge(), ElementsAre("missing " + file_p));
    now_ = scene_.before;
    now_[fresh_p] = regular("fresh 2");
    now_[live_data + "/p/fresh"] = directory;
    EXPECT_THAT(judge(),
                ElementsAre("left-over " + live_data + "/p/fresh", "left-over " + fresh_p));
    now_ = scene_.before;
    now_[live_data + "/nobodys"] = regular("changed");
    EXPECT_THAT(judge(), ElementsAre("damaged " + live_data + "/nobodys"));
}

TEST_F(StrictJudge, LetsADirectoryStayOrGoThatAFailedChangeLeavesEmpty) {
    const std::string left = live_data + "/p/empty";
    now_[left] = directory;
    EXPECT_THAT(judge(), ElementsAre("left-over " + left));
    scene_.after[left] = directory;
    EXPECT_THAT(judge(), IsEmpty());
    now_.erase(left);
    EXPECT_THAT(judge(), IsEmpty());
}

TEST_F(StrictJudge, LeavesPackageFilesInTheStageAreaAndNothingMore) {
    now_[staged] = regular("a part of");
    EXPECT_THAT(judge(), IsEmpty());
    now_[stagearea + "/p_any_2.0"] = directory;
    EXPECT_THAT(judge(), ElementsAre("left-over " + stagearea + "/p_any_2.0"));
}

TEST_F(StrictJudge, FindsARecordOfAChange) {
    now_[repository + "/change"] = directory;
    EXPECT_THAT(judge(), IsEmpty());
    now_[repository + "/change/1"] = regular("a record");
    EXPECT_THAT(judge(), ElementsAre("left-over " + repository + "/change/1"));
}

TEST_F(StrictJudge, HoldsTheToolToItsReports) {
    scene_.done = {"q"};
    EXPECT_THAT(judge(), testing::Contains("unkept q"));
    now_ = only_p_;
    scene_.done = {"p"};
    EXPECT_THAT(judge(), IsEmpty());
    scene_.all_done = true;
    EXPECT_THAT(judge(), testing::Contains("unkept q"));
}

TEST_F(StrictJudge, FindsAHistoryThatDoesNotFit) {
    now_[action_log] = only_p_[action_log];
    EXPECT_THAT(judge(), ElementsAre("history " + action_log));
    now_ = only_p_;
    now_[action_log] = scene_.before[action_log];
    EXPECT_THAT(judge(), ElementsAre("history " + action_log));
}

TEST_F(StrictJudge, FindsAScriptThatDidNotRun) {
    now_ = scene_.after;
    now_.erase(marks + "/p.99-cfg");
    EXPECT_THAT(judge(), ElementsAre("not-run p"));
}

TEST_F(StrictJudge, CountsOnlyOldFilesAfterAFailureInALivingProcess) {
    now_[fresh_p] = regular("fresh 2");
    now_[live_data + "/p/fresh"] = directory;
    EXPECT_THAT(losses(), IsEmpty());
    now_.erase(conf_p);
    EXPECT_EQ(losses().size(), 1U);
}

TEST_F(StrictJudge, LetsAFileOfTheNewVersionHaveFewerPermissionsAfterAFailure) {
    now_ = scene_.after;
    now_[file_p].mode = 0600;
    EXPECT_THAT(judge(), ElementsAre("rights " + file_p));
    EXPECT_THAT(losses(), IsEmpty());
    now_[file_p].mode = 0666;
    EXPECT_THAT(judge(), ElementsAre("other " + file_p));
    EXPECT_EQ(losses().size(), 1U);
    now_ = scene_.before;
    now_[file_p].mode = 0600;
    EXPECT_EQ(losses().size(), 1U);
}

TEST_F(StrictJudge, LetsAConfigurationFileBeKeptOnlyWhereItCouldNotBeCompared) {
    now_ = scene_.after;
    now_[conf_p] = scene_.before[conf_p];
    EXPECT_THAT(judge(), ElementsAre("kept " + conf_p));
    EXPECT_EQ(losses(fresh_p).size(), 1U);
    EXPECT_THAT(losses(conf_p), IsEmpty());
    EXPECT_THAT(losses(installed + "p/conf" + conf_p), IsEmpty());
    now_[file_p] = scene_.before[file_p];
    EXPECT_THAT(losses(file_p), Contains("other " + file_p));
}

TEST_F(StrictJudge, LetsAPackageStayOnlyWhereItsEntryCouldNotBeRead) {
    now_ = only_p_;
    scene_.all_done = true;
    EXPECT_THAT(losses(installed + "p/inst.txt"), Contains("unkept q"));
    EXPECT_THAT(losses(installed + "q/inst.txt"), Not(Contains("unkept q")));
    EXPECT_THAT(losses(installed + "q"), Not(Contains("unkept q")));
    EXPECT_THAT(losses(installed + "qq/inst.txt"), Contains("unkept q"));
}

TEST(PackagesReported, ReadsTheSentencesOfTheTool) {
    EXPECT_THAT(packages_reported("pvrm: installed base_any_2.0\npvrm: upgraded to suite_any_2.0\n"
                                  "pvrm: removed fonts_any_1.0\n"
                                  "pvrm: installing other_any_1.0\n"
                                  "pvrm: removed 2 entries and freed 2.4 kB\n"),
                ElementsAre("base", "fonts", "suite"));
}
