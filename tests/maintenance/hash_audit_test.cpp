#include "maintenance/hash_audit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "kit/log_capture.h"
#include "kit/scripted_user.h"
#include "kit/test_repo.h"
#include "ui/vrmui.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// As the command sha1sum tells them.
const std::string hash_of_hello = "f572d396fae9206628714fb2ce00f72e94f2258f";  // "hello\n"
const std::string hash_of_abc = "a9993e364706816aba3e25717850c26c9cd0d89d";    // "abc"
const std::string hash_of_nothing = "da39a3ee5e6b4b0d3255bfef95601890afd80709";

class VrmChkhash : public testing::Test {
 protected:
    VrmChkhash() {
        ScriptedUser::fresh();
        PackageSpec spec;
        spec.name = "foo";
        repo_.install(spec);
    }

    std::string in_entry(const std::string &path) const {
        return repo_.in("installed/foo" + path);
    }
    // A path below a directory that stands for the root, as a hash list spells it in memory.
    std::string live(const std::string &name) const {
        return live_ / name;
    }
    // Files of the entry with the content "hello\n", and the line of a list for each.
    static std::string line(const std::string &path, const std::string &hash = hash_of_hello) {
        return hash + ":" + path.substr(1) + "\n";
    }
    void list(const std::string &fork, const std::string &lines) {
        repo_.dir().write("repo/installed/foo/hash/" + fork + ".txt", lines);
    }
    void kept(const std::string &path, const std::string &content = "hello\n") {
        repo_.dir().write("repo/installed/foo" + path, content);
    }
    void lay(const std::string &name, const std::string &content = "hello\n") {
        live_.write(name, content);
    }
    // A package with a file or two in each fork, all as delivered.
    void fill() {
        kept("/dump/usr/doc");
        kept("/dump/usr/same");
        list("dump", line("/usr/doc") + line("/usr/same"));
        kept("/init/00-add.sh", "abc");
        list("init", line("/00-add.sh", hash_of_abc));
        lay("data");
        lay("empty", "");
        list("data", line(live("data")) + line(live("empty"), hash_of_nothing));
        kept("/conf" + live("conf"));
        lay("conf");
        list("conf", line(live("conf")));
    }
    int run(unsigned verbose = 0) {
        return vrm_chkhash(repo_.handle(), "foo", verbose);
    }

    TestRepo repo_;
    TempDir live_;
    LogCapture log_;
};

constexpr char clean_summary[] = "foo summary: dump: (2/0) conf: (1/0) data: (2/0) init: (1/0)\n";

}  // namespace

TEST_F(VrmChkhash, APackageAsDeliveredHasNoErrors) {
    fill();
    EXPECT_EQ(run(), 0);
    EXPECT_STREQ(vrmui->text, clean_summary);
    EXPECT_THAT(log_.at(LEVEL_ERROR), IsEmpty());
}

TEST_F(VrmChkhash, VerboseTellsEachForkAndFileInTheOrderOfTheAudit) {
    fill();
    EXPECT_EQ(run(1), 0);
    EXPECT_EQ(std::string(vrmui->text),
              "Found 2 hashes stored for fork: dump\n" +                 //
                  in_entry("/dump/usr/doc") + " verfied ok.\n" +         //
                  in_entry("/dump/usr/same") + " verfied ok.\n" +        //
                  "Found 1 hashes stored for fork: init\n" +             //
                  in_entry("/init/00-add.sh") + " verfied ok.\n" +       //
                  "Found 2 hashes stored for fork: data\n" +             //
                  live("data") + " verfied ok.\n" +                      //
                  live("empty") + " verfied ok.\n" +                     //
                  "Found 1 hashes stored for fork: conf\n" +             //
                  in_entry("/conf" + live("conf")) + " verfied ok.\n" +  //
                  live("conf") + " verfied ok.\n" + clean_summary);
}

TEST_F(VrmChkhash, EachHashIsToldAtDebugWithAnEmptyLineBehindIt) {
    fill();
    run();
    const std::string line = "vrm_chkhash: found " + hash_of_abc + ": /00-add.sh";
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, line));
    EXPECT_TRUE(log_.has_line_end(LEVEL_DEBUG, line));
}

TEST_F(VrmChkhash, APackageWithoutListsHasNothingToBeWrong) {
    EXPECT_EQ(run(), 0);
    EXPECT_STREQ(vrmui->text, "foo summary: dump: (0/0) conf: (0/0) data: (0/0) init: (0/0)\n");
    vrmui_line_new(vrmui, "");
    EXPECT_EQ(run(1), 0);
    EXPECT_STREQ(vrmui->text,
                 "No hashes stored for fork: dump\nNo hashes stored for fork: init\n"
                 "No hashes stored for fork: data\nNo hashes stored for fork: conf\n"
                 "foo summary: dump: (0/0) conf: (0/0) data: (0/0) init: (0/0)\n");
}

TEST_F(VrmChkhash, AnEmptyListIsAListOfNothing) {
    list("data", "");
    EXPECT_EQ(run(1), 0);
    EXPECT_THAT(vrmui->text, testing::HasSubstr("Found 0 hashes stored for fork: data\n"));
}

TEST_F(VrmChkhash, AnEditedConfigurationFileIsToldAndNoError) {
    fill();
    lay("conf", "edited\n");
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(std::string(vrmui->text),
              live("conf") + " is not the same on fs, this is normal.\n" + clean_summary);
    EXPECT_THAT(log_.at(LEVEL_ERROR), IsEmpty());
}

TEST_F(VrmChkhash, AMissingConfigurationFileIsAnError) {
    fill();
    fs::remove(live("conf"));
    EXPECT_EQ(run(1), 1);
    EXPECT_THAT(log_.at(LEVEL_ERROR),
                ElementsAre(live("conf") + " was not found on fs, this can happen."));
    EXPECT_TRUE(
        log_.has_line_end(LEVEL_ERROR, live("conf") + " was not found on fs, this can happen."));
    // The pristine copy is still told.
    EXPECT_THAT(vrmui->text,
                testing::HasSubstr(in_entry("/conf" + live("conf")) +
                                   " verfied ok.\n"
                                   "foo summary: dump: (2/0) conf: (1/1) data: (2/0) init: (1/0)"));
}

TEST_F(VrmChkhash, ThePristineCopyOfAConfigurationFileMustBeAsDelivered) {
    fill();
    kept("/conf" + live("conf"), "abc");
    EXPECT_EQ(run(), 1);
    EXPECT_THAT(log_.at(LEVEL_ERROR),
                ElementsAre("vrm_chkhash: mismatch on " + in_entry("/conf" + live("conf")) +
                            ": expected: " + hash_of_hello + ", found: " + hash_of_abc));
    // Both files of one hash can be wrong, and both are looked at.
    fs::remove(in_entry("/conf" + live("conf")));
    fs::remove(live("conf"));
    log_.clear();
    EXPECT_EQ(run(), 2);
    EXPECT_THAT(log_.at(LEVEL_ERROR),
                ElementsAre("vrm_chkhash: " + in_entry("/conf" + live("conf")) + " not found",
                            live("conf") + " was not found on fs, this can happen."));
}

TEST_F(VrmChkhash, AChangedDataFileIsOnTheLogAndOnlyTheSummaryIsInTheText) {
    fill();
    lay("data", "abc");
    EXPECT_EQ(run(), 1);
    EXPECT_STREQ(vrmui->text, "foo summary: dump: (2/0) conf: (1/0) data: (2/1) init: (1/0)\n");
    EXPECT_THAT(log_.at(LEVEL_ERROR),
                ElementsAre("vrm_chkhash: mismatch on " + live("data") +
                            ": expected: " + hash_of_hello + ", found: " + hash_of_abc));
}

TEST_F(VrmChkhash, MissingFilesOfEachForkAreCountedAndTheAuditGoesOn) {
    fill();
    fs::remove(in_entry("/dump/usr/doc"));
    fs::remove(in_entry("/init/00-add.sh"));
    fs::remove(live("data"));
    fs::remove(live("empty"));
    EXPECT_EQ(run(), 4);
    EXPECT_STREQ(vrmui->text, "foo summary: dump: (2/1) conf: (1/0) data: (2/2) init: (1/1)\n");
    EXPECT_THAT(log_.at(LEVEL_ERROR),
                ElementsAre("vrm_chkhash: " + in_entry("/dump/usr/doc") + " not found",
                            "vrm_chkhash: " + in_entry("/init/00-add.sh") + " not found",
                            "vrm_chkhash: " + live("data") + " not found",
                            "vrm_chkhash: " + live("empty") + " not found"));
}

TEST_F(VrmChkhash, WhatIsNoRegularFileCanNotBeReadAndIsNotWaitedFor) {
    fill();
    fs::remove(live("data"));
    ASSERT_EQ(mkfifo(live("data").c_str(), 0600), 0);
    fs::remove(live("empty"));
    fs::create_directory(live("empty"));
    EXPECT_EQ(run(), 2);
    EXPECT_THAT(log_.at(LEVEL_ERROR), ElementsAre("vrm_chkhash: " + live("data") + " not found",
                                                  "vrm_chkhash: " + live("empty") + " not found"));
}

TEST_F(VrmChkhash, HashesAreComparedByteByByte) {
    std::string capitals = hash_of_hello;
    for (char &c : capitals) {
        c = static_cast<char>(toupper(c));
    }
    lay("data");
    list("data", line(live("data"), capitals));
    EXPECT_EQ(run(), 1);
}

TEST_F(VrmChkhash, TheListOfTheInfoForkIsNotLookedAt) {
    list("info", "too short\n");
    EXPECT_EQ(run(), 0);
}

TEST_F(VrmChkhash, AMalformedListEndsItWithoutASummary) {
    struct example {
        const char *fork, *message;
    };
    for (const auto &[fork, message] :
         {example{"dump", "vrm_chkhash: insternal error reading hases on fork: dump"},
          example{"init", "vrm_chkhash: internal error reading hases on fork: init"},
          example{"data", "vrm_chkhash: internal error reading hases on fork: data"},
          example{"conf", "vrm_chkhash: internal error reading hases on fork: conf"}}) {
        fill();
        list(fork, hash_of_hello + ":\n");  // 41 bytes
        log_.clear();
        vrmui_line_new(vrmui, "");
        EXPECT_EQ(run(), -1) << fork;
        EXPECT_THAT(log_.at(LEVEL_ERROR),
                    ElementsAre("Line is smaller than 42 bytes, bye", message));
        EXPECT_STREQ(vrmui->text, "") << fork;
    }
}

// It must not pass for a fork without files, of which none can be wrong.
TEST_F(VrmChkhash, AListThatCanNotBeReadEndsItWithoutASummary) {
    fill();
    const std::string path = in_entry("/hash/data.txt");
    fs::remove(path);
    fs::create_directory(path);
    EXPECT_EQ(run(), -1);
    EXPECT_THAT(log_.at(LEVEL_ERROR),
                ElementsAre("Failed to open " + path + " for reading: Not a regular file",
                            "vrm_chkhash: internal error reading hases on fork: data"));
    EXPECT_STREQ(vrmui->text, "");
}

TEST_F(VrmChkhash, ErrorsCountedBeforeAMalformedListAreLost) {
    fill();
    fs::remove(in_entry("/dump/usr/doc"));
    list("init", line("/00-add.sh", hash_of_abc) + "short\n");
    EXPECT_EQ(run(1), -1);
    EXPECT_TRUE(log_.has(LEVEL_ERROR, "vrm_chkhash: " + in_entry("/dump/usr/doc") + " not found"));
    // What was told before it stays told.
    EXPECT_EQ(std::string(vrmui->text), "Found 2 hashes stored for fork: dump\n" +
                                            in_entry("/dump/usr/same") + " verfied ok.\n");
}

TEST_F(VrmChkhash, WhatIsNotInstalledIsToldOnTheLogAlone) {
    for (const char *name : {"bar", "", ".foo", "../installed/foo"}) {
        log_.clear();
        EXPECT_EQ(vrm_chkhash(repo_.handle(), name, 1), -1);
        EXPECT_TRUE(
            log_.has(LEVEL_ERROR, std::string("vrm_chkhash: ") + name + " is not installed"));
        EXPECT_STREQ(vrmui->text, "");
    }
    fs::remove(in_entry("/inst.txt"));
    EXPECT_EQ(run(), -1);
    EXPECT_TRUE(log_.has(LEVEL_ERROR, "vrm_chkhash: foo is not installed"));
}

TEST_F(VrmChkhash, TheReportIsAppendedAndNeedsNoLock) {
    vrmui_line_new(vrmui, "before\n");
    EXPECT_EQ(run(), 0);
    EXPECT_STREQ(vrmui->text,
                 "before\nfoo summary: dump: (0/0) conf: (0/0) data: (0/0) init: (0/0)\n");
    EXPECT_FALSE(exists(repo_.in("lock")));
}

TEST_F(VrmChkhash, OneContentUnderManyNamesIsManyFiles) {
    lay("a");
    lay("b");
    lay("c", "abc");
    list("data", line(live("a")) + line(live("b")) + line(live("c")));
    EXPECT_EQ(run(), 1);
    EXPECT_STREQ(vrmui->text, "foo summary: dump: (0/0) conf: (0/0) data: (3/1) init: (0/0)\n");
}
