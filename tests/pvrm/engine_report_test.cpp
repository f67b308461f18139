#include "pvrm/engine_report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "kit/capture.h"
#include "kit/log_capture.h"
#include "kit/temp_dir.h"

namespace fs = std::filesystem;

namespace {

struct example {
    uint32_t level;
    const char *line;
    engine_report::kind what;
    const char *text;
};

constexpr auto nothing = engine_report::nothing;
constexpr auto step = engine_report::step;
constexpr auto reason = engine_report::reason;
constexpr auto cause = engine_report::cause;
constexpr auto outcome = engine_report::outcome;
constexpr auto failure = engine_report::failure;

void expect_all(const std::vector<example> &examples) {
    for (const example &given : examples) {
        const engine_report report = understand(given.level, given.line);
        EXPECT_EQ(report.what, given.what) << given.line;
        EXPECT_EQ(report.text, given.text) << given.line;
    }
}

}  // namespace

TEST(EngineReport, PlanningGivesReasons) {
    expect_all({
        {LEVEL_INFO, "a.vrk is not a valid package file, skipping", reason,
         "a.vrk is not a valid package file"},
        {LEVEL_INFO, "a was not found in the package catalogue", reason,
         "a was not found in the package catalogue"},
        {LEVEL_INFO, "vrm_chk_install: Failed to resovle dependency b for a", reason,
         "a needs b, which is neither installed nor to be had from anywhere"},
        {LEVEL_INFO, "vrm_chk_walk: Failed to resovle dependency b for a", reason,
         "a needs b, which is neither installed nor to be had from anywhere"},
        {LEVEL_INFO, "Package arch mips doesn't match local arch i686, bye", cause,
         "what it needs is built for mips, and this machine is i686"},
        {LEVEL_INFO, "Failure opening </x> for reading: No such file or directory", reason,
         "the directory /x can't be searched: No such file or directory"},
        {LEVEL_WARNING, "Failure opening </x> for reading: Permission denied", reason,
         "the inventory /x can't be read: Permission denied"},
        {LEVEL_WARNING, "Failure parsing info for <a>, skipping entry", reason,
         "the inventory's entry of a is damaged, and passed over"},
        {LEVEL_WARNING, "More than 300 package files of a, passing over /d/a.vrk", reason,
         "there are more than 300 package files of a; /d/a.vrk is passed over"},
        {LEVEL_ERROR, "vrc-http: Not connected", reason,
         "there is no connection to a package catalogue"},
    });
}

TEST(EngineReport, WhatIsNoPackageFileIsACause) {
    expect_all({
        {LEVEL_ERROR, "Only 3 of 6 bytes read", cause, "it is cut short"},
        {LEVEL_ERROR, "Only 3 of 6 bytes read in /x.vrk: Success", cause, "it is cut short"},
        {LEVEL_ERROR, "Only 100 of 2000 bytes read", cause, "it is cut short"},
        {LEVEL_ERROR, "Not a valid/supported package file", cause,
         "it does not begin as a package file does"},
        {LEVEL_ERROR, "Failed to read description size", cause, "its description can't be read"},
        {LEVEL_ERROR, "Failed to parse package header", cause, "its description makes no sense"},
        {LEVEL_INFO, "vrk_info_parse: Unspecified package format", cause,
         "it does not say which format it has"},
        {LEVEL_INFO, "vrk_info_parse: Unknown package format 3.0", cause,
         "its format 3.0 is not known here"},
        {LEVEL_INFO, "vrk_info_parse: Unspecified architecture\n", cause,
         "it does not say for which machines it is built"},
        {LEVEL_INFO, "vrk_info_parse: Unsupported architecture: pdp11\n", cause,
         "its architecture pdp11 is not known here"},
        {LEVEL_ERROR, "Failed to read archive by archive_read_open_FILE: truncated", cause,
         "its content can't be read"},
        {LEVEL_ERROR, "Failed to read archive by archive_read_open_FILE", cause,
         "its content can't be read"},
        {LEVEL_ERROR, "Failed to parse archive by archive_read_open_FILE", cause,
         "its content is damaged"},
    });
}

TEST(EngineReport, WhatLiesInTheStoreIsNotCalledMissing) {
    const TempDir store;
    const std::string path = store.write("12345678.crt", "garbage\n");
    const std::string unusable = path + " holds no certificate that can be read";
    const std::string line = "Failure reading " + path + "\n";
    EXPECT_EQ(understand(LEVEL_INFO, line).text, "its signer is not trusted here, as " + unusable);
    fs::remove(path);
    EXPECT_EQ(understand(LEVEL_INFO, line).text,
              "its signer is not trusted here, as there is no certificate " + path +
                  "; pvrm trust puts one there");
    fs::create_directory(path);
    EXPECT_EQ(understand(LEVEL_INFO, line).text, "its signer is not trusted here, as " + unusable);
}

TEST(EngineReport, WhatIsWrongWithASignatureIsACause) {
    expect_all({
        {LEVEL_INFO, "Failure parsing signer nonsense", cause,
         "its signer's name nonsense makes no sense"},
        {LEVEL_INFO, "Failure reading /store/12345678.crt\n", cause,
         "its signer is not trusted here, as there is no certificate /store/12345678.crt; pvrm "
         "trust puts one there"},
        {LEVEL_INFO, "Subjects do not match", cause,
         "its signer is not the one that the stored certificate names"},
        {LEVEL_INFO, "Certificate is not yet valid", cause,
         "its signer's certificate is not valid yet"},
        {LEVEL_INFO, "Certificate has expired", cause, "its signer's certificate has expired"},
        {LEVEL_INFO, "failure loading public key", cause,
         "its signer's certificate holds no key that can be used"},
        {LEVEL_INFO, "failure loading signature", cause, "its signature can't be read"},
        {LEVEL_ERROR, "Failure verifiying package signature", cause,
         "the signature does not fit its content"},
        {LEVEL_ERROR, "No signature subject found", cause, "it is not signed"},
        {LEVEL_ERROR, "No signature data found", cause, "it is not signed"},
        {LEVEL_WARNING, "No signature subject found", cause, "it is not signed"},
        {LEVEL_WARNING, "No signature data found", cause, "it is not signed"},
        {LEVEL_ERROR, "vrm_showlogline: csv_line is empty\n", reason, "there is not enough memory"},
        {LEVEL_ERROR, "Failure verifying signature of /x.vrk", reason,
         "the signature of /x.vrk can't be trusted"},
    });
}

TEST(EngineReport, StagingGivesReasons) {
    expect_all({
        {LEVEL_ERROR, "vrm_exe_install: refusing package <../a>: its name is not allowed", reason,
         "the package ../a is refused: its name holds characters that are not allowed"},
        {LEVEL_ERROR, "vrm_exe_install: refusing dependency b of <../a>: that name is not allowed",
         reason, "the package b is refused: it is needed by ../a, a name that is not allowed"},
        {LEVEL_ERROR,
         "vrm_exe_install: Failed to get 10 bytes from vrc_readpkg into /s/a.vrk. rc = 5", reason,
         "the catalogue did not deliver all 10 bytes of /s/a.vrk"},
        {LEVEL_ERROR,
         "vrm_exe_update: Failed to get 10 bytes from vrc_readpkg into /s/a.vrk. rc = -1", reason,
         "the catalogue did not deliver all 10 bytes of /s/a.vrk"},
        {LEVEL_ERROR, "vrm_exe_install: Failed to copy /a.vrk to /s/a.vrk", reason,
         "/a.vrk can't be copied to /s/a.vrk"},
        {LEVEL_ERROR, "vrm_stage_file: Failed to copy /a.vrk to /s/a.vrk", reason,
         "/a.vrk can't be copied to /s/a.vrk"},
        {LEVEL_ERROR, "vrm_exe_install: Failed to open /s/a.vrk for writing: Not a directory",
         reason, "/s/a.vrk can't be opened for writing: Not a directory"},
        {LEVEL_ERROR, "vrm_exe_install: Failed to write /s/a.vrk: No space left on device", reason,
         "/s/a.vrk can't be written: No space left on device"},
        {LEVEL_ERROR, "interrupted, not going on with a_any_1.0", reason,
         "interrupted before a_any_1.0"},
    });
}

TEST(EngineReport, FilesGiveReasons) {
    expect_all({
        {LEVEL_ERROR, "Failed to open /x for reading", reason, "/x can't be opened for reading"},
        {LEVEL_ERROR, "Failed to open /x for reading: Permission denied\n", reason,
         "/x can't be opened for reading: Permission denied"},
        {LEVEL_ERROR, "Failed to open /x for writing: Read-only file system\n", reason,
         "/x can't be opened for writing: Read-only file system"},
        {LEVEL_INFO, "archive_write_data_block: No space left on device", cause,
         "No space left on device"},
        {LEVEL_ERROR, "Failed to copy data: Write failed", reason,
         "the package can't be unpacked: Write failed"},
        {LEVEL_ERROR, "Failed to write header by archive_write_header: Can't create 'x'", reason,
         "the package can't be unpacked: Can't create 'x'"},
        {LEVEL_ERROR, "Failed to write archive by archive_write_finish_entry: Can't restore time",
         reason, "the package can't be unpacked: Can't restore time"},
        {LEVEL_ERROR, "Failed to write /x: No space left on device\n", reason,
         "/x can't be written: No space left on device"},
        {LEVEL_ERROR, "Failed to read /x: Input/output error\n", reason,
         "/x can't be read: Input/output error"},
        {LEVEL_ERROR, "Failed to stat /x: No such file or directory\n", reason,
         "/x can't be looked at: No such file or directory"},
        {LEVEL_WARNING, "Failed to set permission on /x: Operation not permitted\n", reason,
         "the permissions of /x can't be set: Operation not permitted"},
        {LEVEL_ERROR, "/x is not a regular file, refusing to remove it", reason,
         "/x is no regular file, and is not replaced"},
    });
}

TEST(EngineReport, ChecksGiveReasons) {
    expect_all({
        {LEVEL_ERROR,
         "vrm_chk_files: verify of data/usr/x failed: file not found in data.txt or hashes do not "
         "match",
         reason, "data/usr/x of the package is damaged, or not in the package's own list"},
        {LEVEL_ERROR,
         "vrm_chk_sub_files: verify of data / /usr/x failed: file not found in data.txt", reason,
         "data/usr/x of the package is not in the package's own list"},
        {LEVEL_WARNING, "vrm_chk_sub_files: Failure hashing conf files", reason,
         "the conf files of the package can't be read"},
        {LEVEL_ERROR, "vrm_chk_sub_files: Failure reading hash values for data in package", reason,
         "the package has no list of its data files"},
        {LEVEL_ERROR, "Line is smaller than 42 bytes, bye", reason,
         "a list of the package holds a line that is too short"},
        {LEVEL_ERROR, "vrm_chk_all_files: Failure checking data files in /s/a/new", nothing, ""},
    });
}

TEST(EngineReport, ConflictsAreTold) {
    expect_all({
        {LEVEL_ERROR, "aborting installation, /x exists and belongs to package a", reason,
         "/x is on the disk already and belongs to the package a"},
        {LEVEL_ERROR, "aborting installation due to user request", reason,
         "the installation is aborted, as you asked for"},
        {LEVEL_ERROR, "vrm_install_vrk: Aborting", nothing, ""},
        {LEVEL_ERROR, "Ok, will overwrite /x", step, "replacing /x, which was on the disk already"},
        {LEVEL_ERROR, "Ok, will skip writing /x to disk", step, "leaving /x as it is on the disk"},
    });
}

TEST(EngineReport, CarryingOutGivesReasons) {
    expect_all({
        {LEVEL_ERROR, "vrm_install_vrk: Failure unpacking /s/a.vrk to /s/a/new", reason,
         "/s/a.vrk can't be unpacked"},
        {LEVEL_ERROR, "vrm_install_vrk: Failure checking info files for a in /s/a/new", reason,
         "the content of a is not what its own lists say"},
        {LEVEL_ERROR, "vrm_install_vrk: pre-install script got an error, aborting", reason,
         "the script that the package runs before its installation failed"},
        {LEVEL_ERROR, "vrm_install_vrk: post-install script got an error, aborting", reason,
         "the script that the package runs after its installation failed"},
        {LEVEL_ERROR, "vrm_install_vrk: Failed to install /s/a/new/data/x to /x", reason,
         "/x can't be installed"},
        {LEVEL_ERROR, "vrm_install_vrk: Failed to copy conf hash file for package a", reason,
         "the conf hash file of a can't be put into the inventory"},
        {LEVEL_ERROR, "vrm_install_vrk: Failed to write install info for package a", reason,
         "the inventory's entry of a can't be written"},
        {LEVEL_ERROR, "vrm_install_vrk: Failed to write fileindex for package a", reason,
         "the list of the files of a can't be written"},
        {LEVEL_ERROR,
         "vrm_install_rollback: Failure restoring /x, you're in deep shit. We still try to do the "
         "rest.",
         reason, "/x could not be put back as it was before: restore it from a backup"},
        {LEVEL_ERROR, "vrm_install_rollback: finished", nothing, ""},
        {LEVEL_ERROR, "Installation of a_any_1.0 failed with rc=-1\n", failure,
         "the installation of a_any_1.0 failed"},
        {LEVEL_ERROR, "installation of a_any_1.0 failed with rc=768\n", failure,
         "the installation of a_any_1.0 failed"},
        {LEVEL_ERROR, "vrm_log_action: failed to open /l for writing: Permission denied", reason,
         "the history /l can't be written: Permission denied"},
        {LEVEL_ERROR, "vrm_log_action: failed to write to /l: No space left on device", reason,
         "the history /l can't be written: No space left on device"},
        {LEVEL_ERROR, "vrm_hook_match_attr: parsed cond: <x> is not a valid attribute condition",
         reason, "a hook has a condition that makes no sense: x"},
    });
}

TEST(EngineReport, StepsAreTold) {
    expect_all({
        {LEVEL_INFO, "getting a_any_1.0.vrk", step, "getting a_any_1.0"},
        {LEVEL_INFO, "copying a_any_1.0.vrk", step, "copying a_any_1.0"},
        {LEVEL_INFO, "unpacking a_any_1.0.vrk", step, "unpacking a_any_1.0"},
        {LEVEL_INFO, "verifying a_any_1.0", step, "verifying a_any_1.0"},
        {LEVEL_INFO, "executing pre-install script for a_any_1.0", step,
         "executing pre-install script for a_any_1.0"},
        {LEVEL_INFO, "executing post-install script for a_any_1.0", step,
         "executing post-install script for a_any_1.0"},
        {LEVEL_INFO, "installing a_any_1.0", step, "installing a_any_1.0"},
        {LEVEL_INFO, "installing new config file /etc/a", step,
         "installing new config file /etc/a"},
        {LEVEL_INFO, "keeping existing config file /etc/a", step,
         "keeping existing config file /etc/a"},
        {LEVEL_INFO, "installation of a_any_1.0 succeeded", step, "installed a_any_1.0"},
        {LEVEL_INFO, "installation of a_any_1.0 succeeded\n", step, "installed a_any_1.0"},
        {LEVEL_INFO, "Configured a, rc = 0", step, "configured a"},
        {LEVEL_INFO, "Configured a, rc = 256", reason,
         "a configuration command of a failed; the package stays installed"},
    });
}

TEST(EngineReport, ACleanupIsTold) {
    expect_all({
        {LEVEL_INFO, "failure opening </x> for reading: Permission denied", reason,
         "the directory /x can't be read: Permission denied"},
        {LEVEL_WARNING, "failure reading </x>: Input/output error", reason,
         "the directory /x can't be read: Input/output error"},
        {LEVEL_ERROR, "failed to dudir /x/.a.old", reason,
         "/x/.a.old can't be measured, and is passed over"},
        {LEVEL_ERROR, "failed to stat /x/a.vrk", reason,
         "/x/a.vrk can't be measured, and is passed over"},
        {LEVEL_ERROR, "can't remove '/x/.a.old/b'", reason, "/x/.a.old/b can't be removed"},
        {LEVEL_ERROR, "installed: failed to remove .a.old", reason,
         "the old inventory entry .a.old is not removed, or not whole"},
        {LEVEL_ERROR, "aborting cleanup", nothing, ""},
        {LEVEL_INFO, "installed: found .a.old of size 10", step,
         "would remove the old inventory entry .a.old, 10 bytes"},
        {LEVEL_INFO, "fileindex: found .a.old of size 10", step,
         "would remove the old file index .a.old, 10 bytes"},
        {LEVEL_INFO, "stagearea: found a_any_1.0.vrk of size 10", step,
         "would remove the package file a_any_1.0.vrk, 10 bytes"},
        {LEVEL_INFO, "installed: keeping .a.old", step, "keeping the old inventory entry .a.old"},
        {LEVEL_INFO, "fileindex: keeping .a.old", step, "keeping the old file index .a.old"},
        {LEVEL_INFO, "stagearea: keeping a_any_1.0.vrk", step,
         "keeping the package file a_any_1.0.vrk"},
        {LEVEL_INFO, "installed: removing .a.old", step, "removing the old inventory entry .a.old"},
        {LEVEL_INFO, "fileindex: removing .a.old", step, "removing the old file index .a.old"},
        {LEVEL_INFO, "stagearea: removing a_any_1.0.vrk", step,
         "removing the package file a_any_1.0.vrk"},
        {LEVEL_INFO, "cleanup deleted: 1.2 kB", outcome, "1.2 kB"},
    });
}

TEST(EngineReport, UnknownLinesAreToldFromWarningOn) {
    expect_all({
        {LEVEL_ERROR, "something new", reason, "something new"},
        {LEVEL_WARNING, "something odd\n", reason, "something odd"},
        {LEVEL_INFO, "something else", nothing, ""},
        {LEVEL_DEBUG, "something deep", nothing, ""},
        {LEVEL_ERROR, "", nothing, ""},
        {LEVEL_ERROR, "\n", nothing, ""},
    });
}

TEST(EngineReport, TheNameOfAFunctionIsLeftOut) {
    expect_all({
        {LEVEL_ERROR, "vrm_vrf_perms: Failed to open perm file /x", reason,
         "Failed to open perm file /x"},
        {LEVEL_ERROR, "vrm_exe_install: no lock on local repository", reason,
         "no lock on local repository"},
        {LEVEL_ERROR, "variant: odd", reason, "variant: odd"},
        {LEVEL_ERROR, "very_odd thing: x", reason, "very_odd thing: x"},
    });
}

TEST(EngineReport, TheLevelIsPartOfTheMeaning) {
    expect_all({
        {LEVEL_DEBUG, "verifying a", nothing, ""},
        {LEVEL_ERROR, "getting a.vrk", reason, "getting a.vrk"},
    });
}

TEST(EngineReport, ALineOfAnyLengthIsUnderstood) {
    const std::string name(1 << 20, 'x');
    EXPECT_EQ(understand(LEVEL_INFO, "verifying " + name).text, "verifying " + name);
}

TEST(EngineReport, TextsThatFitAgainInTheMiddleDoNotConfuse) {
    expect_all({
        {LEVEL_INFO,
         "was not found in the package catalogue was not found in the package catalogue", reason,
         "was not found in the package catalogue was not found in the package catalogue"},
        {LEVEL_INFO, "getting .vrk.vrk", step, "getting .vrk"},
        {LEVEL_ERROR, "Failed to open  for reading", reason, " can't be opened for reading"},
    });
}

namespace {

// The watch over a log, whose lines come by log_say as the engine's do.
class Watch : public testing::Test {
 protected:
    Watch() {
        take_cause();
        report_engine();
    }
    ~Watch() override {
        log_observe(nullptr, 0, nullptr);
    }
    LogCapture log_;
};

}  // namespace

using EngineWatch = Watch;

TEST_F(EngineWatch, AReasonGoesToStderrAndAStepToStdout) {
    EXPECT_EQ(stderr_of([] { log_say(LEVEL_ERROR, "one reason"); }), "pvrm: one reason\n");
    EXPECT_EQ(stdout_of([] { log_say(LEVEL_INFO, "verifying %s", "a"); }), "pvrm: verifying a\n");
}

TEST_F(EngineWatch, ACauseWaitsForItsFailure) {
    EXPECT_EQ(stderr_of([] {
                  log_say(LEVEL_INFO, "Certificate has expired");
                  log_say(LEVEL_ERROR, "Failure verifying signature of /x");
                  log_say(LEVEL_ERROR, "another reason");
              }),
              "pvrm: the signature of /x can't be trusted: its signer's certificate has expired\n"
              "pvrm: another reason\n");
}

TEST_F(EngineWatch, AFailureOfTheToolTakesTheCauseToo) {
    EXPECT_EQ(stderr_of([] {
                  log_say(LEVEL_ERROR, "Not a valid/supported package file");
                  EXPECT_TRUE(was_explained());
                  tell_failure("%s is no package", "x");
                  EXPECT_FALSE(was_explained());
                  tell_failure("nothing else");
              }),
              "pvrm: x is no package: it does not begin as a package file does\n"
              "pvrm: nothing else\n");
}

TEST_F(EngineWatch, AStepEndsACause) {
    log_say(LEVEL_INFO, "Certificate has expired");
    stdout_of([] { log_say(LEVEL_INFO, "verifying a"); });
    EXPECT_EQ(take_cause(), "");
}

TEST_F(EngineWatch, TheSameReasonIsToldOnce) {
    EXPECT_EQ(stderr_of([] {
                  log_say(LEVEL_ERROR, "twice");
                  log_say(LEVEL_ERROR, "twice");
                  log_say(LEVEL_ERROR, "once");
                  log_say(LEVEL_ERROR, "twice");
              }),
              "pvrm: twice\npvrm: once\npvrm: twice\n");
}

TEST_F(EngineWatch, ReasonsOfAnAttemptAreKeptUntilTheyAreToldWithTheirCauses) {
    const size_t before = reasons_told();
    kept_reasons kept;
    EXPECT_EQ(stderr_of([&] {
                  keep_reasons();
                  log_say(LEVEL_INFO, "Certificate has expired");
                  log_say(LEVEL_ERROR, "Failure verifying signature of /kept");
                  log_say(LEVEL_WARNING, "a kept warning");
                  log_say(LEVEL_INFO, "Certificate is not yet valid");
                  kept = take_reasons();
              }),
              "");
    EXPECT_FALSE(was_explained());
    EXPECT_EQ(reasons_told(), before);
    EXPECT_EQ(
        stderr_of([&] {
            log_say(LEVEL_ERROR, "in between");
            tell_reasons(kept);
            tell_failure("it failed");
        }),
        "pvrm: in between\n"
        "pvrm: the signature of /kept can't be trusted: its signer's certificate has expired\n"
        "pvrm: a kept warning\n"
        "pvrm: it failed: its signer's certificate is not valid yet\n");
    EXPECT_EQ(reasons_told(), before + 3);
}

TEST_F(EngineWatch, AReasonThatWasKeptAndNotToldIsNoneThatWasTold) {
    keep_reasons();
    log_say(LEVEL_WARNING, "a warning of both attempts");
    take_reasons();
    EXPECT_EQ(stderr_of([] { log_say(LEVEL_WARNING, "a warning of both attempts"); }),
              "pvrm: a warning of both attempts\n");
}

TEST_F(EngineWatch, AnOutcomeIsKeptUntilItIsTaken) {
    EXPECT_EQ(stdout_of([] { log_say(LEVEL_INFO, "cleanup deleted: 1 bytes"); }), "");
    EXPECT_EQ(take_outcome(), "1 bytes");
    EXPECT_EQ(take_outcome(), "");
}

TEST_F(EngineWatch, AFailureTellsWhatTheRollbackMadeOfIt) {
    const char *const failed = "installation of a_any_1 failed with rc=-1\n";
    const char *const finished = "vrm_install_rollback: finished";
    const std::string not_all =
        "the installation of a_any_1 failed, and not all that it had changed could be taken back\n";
    const std::string all =
        "pvrm: the installation of a_any_1 failed, and what it had changed was taken back\n";
    EXPECT_EQ(stderr_of([=] {
                  log_say(LEVEL_ERROR, "%s", failed);
                  log_say(LEVEL_ERROR, "%s", finished);
                  log_say(LEVEL_ERROR, "another reason");
                  log_say(LEVEL_ERROR, "%s", failed);
              }),
              all + "pvrm: another reason\n" + all);
    for (const char *line :
         {"Failure restoring /x, you're in deep shit. We still try to do the rest.",
          "Failure reading /s/old/index.txt"}) {
        const std::string told = stderr_of([=] {
            log_say(LEVEL_ERROR, "vrm_install_rollback: %s", line);
            log_say(LEVEL_ERROR, "%s", finished);
            log_say(LEVEL_ERROR, "%s", failed);
        });
        EXPECT_THAT(told, testing::EndsWith("pvrm: " + not_all)) << line;
    }
    EXPECT_EQ(stderr_of([=] {
                  log_say(LEVEL_ERROR, "one more reason");
                  log_say(LEVEL_ERROR, "%s", failed);
              }),
              "pvrm: one more reason\n" + all)
        << "what another package could not put back is over";
}

TEST_F(EngineWatch, ARollbackIsKeptUntilItIsTaken) {
    EXPECT_EQ(take_rollback(), rollback::none);
    log_say(LEVEL_INFO, "vrm_install_rollback: no files to restore registered");
    EXPECT_EQ(take_rollback(), rollback::complete);
    EXPECT_EQ(take_rollback(), rollback::none);
    stderr_of([] { log_say(LEVEL_ERROR, "vrm_install_rollback: Failure reading /s/index.txt"); });
    log_say(LEVEL_ERROR, "vrm_install_rollback: finished");
    EXPECT_EQ(take_rollback(), rollback::incomplete);
}

TEST_F(EngineWatch, ReasonsAreCountedAsTheyAreTold) {
    const size_t before = reasons_told();
    stderr_of([] {
        log_say(LEVEL_ERROR, "a first reason");
        log_say(LEVEL_ERROR, "a first reason");
        log_say(LEVEL_ERROR, "aborting cleanup");
    });
    stdout_of([] { log_say(LEVEL_INFO, "verifying a"); });
    EXPECT_EQ(reasons_told(), before + 1);
}

TEST_F(EngineWatch, OutputOfScriptsIsNotTheEngines) {
    EXPECT_EQ(stderr_of([] { log_write(llog, LEVEL_ERROR, "from a script"); }), "");
}

TEST(EngineReport, RemovingGivesReasonsAndSteps) {
    expect_all({
        {LEVEL_INFO, "a is not installed, skipping\n", reason, "a is not installed"},
        {LEVEL_INFO, "a cannot be deleted, b depends on it\n", reason,
         "a can't be removed, as b needs it"},
        {LEVEL_INFO, "a can be deleted, nothing depends on it\n", nothing, ""},
        {LEVEL_INFO, "a cannot be removed", reason, "a can't be removed"},
        {LEVEL_WARNING, "dependency a has already ben deleted, this should not really happen",
         reason, "warning: a was needed, and is not installed"},
        {LEVEL_WARNING, "vrm_chk_delete_reqs: Failure closing directory /i", reason,
         "warning: the inventory /i can't be closed"},
        {LEVEL_ERROR, "vrm_one_delete: pre-delete got an error, aborting", reason,
         "the script that the package runs before its removal failed"},
        {LEVEL_ERROR, "vrm_one_delete: post-delete got an error, aborting", reason,
         "the script that the package runs after its removal failed"},
        {LEVEL_WARNING,
         "vrm_one_delete: Failed to access registered file /x: No such file or directory, skipping",
         reason, "warning: /x can't be reached, and is passed over: No such file or directory"},
        {LEVEL_WARNING, "vrm_one_delete: Failed to remove registered file /x: Busy, but we go on",
         reason, "warning: /x can't be removed, and stays: Busy"},
        {LEVEL_ERROR, "vrm_one_delete: Failed to backup /x, not good. We try a rollback and leave.",
         reason, "/x can't be saved, so it is not removed"},
        {LEVEL_ERROR, "vrm_exe_delete: Removal of a_any_1.0 failed with rc=-1\n", reason,
         "the removal of a_any_1.0 failed, and it stays installed"},
        {LEVEL_INFO, "removal of a_any_1.0 succeeded", step, "removed a_any_1.0"},
    });
}

TEST(EngineReport, TheTextOfAPlannerIsToldLineByLine) {
    EXPECT_EQ(stderr_of([] {
                  tell_engine_text(
                      "a cannot be deleted, b depends on it\na cannot be deleted, c depends on "
                      "it\n");
              }),
              "pvrm: a can't be removed, as b needs it\npvrm: a can't be removed, as c needs it\n");
}

TEST(EngineReport, UpdatesAreTold) {
    expect_all({
        {LEVEL_INFO, "retrieving a_any_1.vrk", step, "getting a_any_1"},
        {LEVEL_INFO, "updating a_any_2", step, "upgrading to a_any_2"},
        {LEVEL_INFO, "update of a_any_2 succeeded", step, "upgraded to a_any_2"},
        {LEVEL_INFO, "installing missing config file /etc/a", step,
         "installing missing config file /etc/a"},
        {LEVEL_INFO, "keeping modified config file /etc/a", step,
         "keeping modified config file /etc/a"},
        {LEVEL_INFO, "overwriting unmodified config file /etc/a", step,
         "replacing unmodified config file /etc/a"},
        {LEVEL_ERROR, "vrm_chk_local_update: /x is on disk and belongs to package b, aborting",
         reason, "/x is on the disk already and belongs to the package b"},
        {LEVEL_ERROR, "aborting installation on already existing file not belonging to any package",
         reason, "the upgrade is aborted, as you asked for"},
        {LEVEL_ERROR, "Failure processing update, rc=-1", nothing, ""},
        {LEVEL_ERROR, "vrm_update_vrk: Failure unpacking /s/a.vrk to /s/a/new", reason,
         "/s/a.vrk can't be unpacked"},
        {LEVEL_ERROR, "vrm_update_vrk: Failure checking files for a in /s", reason,
         "the content of a is not what its own lists say"},
        {LEVEL_ERROR, "Pre-Install script ended with errors, aborting update", reason,
         "the script that the package runs before its upgrade failed"},
        {LEVEL_ERROR, "Post-Install script ended with errors, aborting update", reason,
         "the script that the package runs after its upgrade failed"},
        {LEVEL_ERROR, "Failure backing up previous version of /x, will rollback and abort.", reason,
         "/x can't be saved before it is removed"},
        {LEVEL_WARNING, "Failed to remove old file /x: Device or resource busy, continuing", reason,
         "the old file /x can't be removed, and stays: Device or resource busy"},
        {LEVEL_ERROR, "Failure installing /s/x to /x", reason, "/x can't be installed"},
        {LEVEL_ERROR, "vrm_update_vrk: Failed to install /s/x to /x", reason,
         "/x can't be installed"},
        {LEVEL_ERROR, "Failed to register package a in local inventory", reason,
         "a can't be put into the inventory"},
        {LEVEL_ERROR, "vrm_update_vrk: Failed to copy init files for package a", reason,
         "the init files of a can't be put into the inventory"},
        {LEVEL_ERROR, "vrm_update_vrk: Failed to write install info for package a", reason,
         "the inventory's entry of a can't be written"},
        {LEVEL_ERROR, "vrm_update_vrk: Failed to write fileindex for package a", reason,
         "the list of the files of a can't be written"},
        {LEVEL_ERROR, "update of a_any_2 failed with rc=256\n", failure,
         "the upgrade to a_any_2 failed"},
        {LEVEL_WARNING,
         "vrm_undo_broken_swaps: the update of a was cut off while it was entered, its old entry "
         "is back",
         reason,
         "warning: an upgrade of a was cut off; it is registered in its old version again, upgrade "
         "it once more"},
    });
}

TEST(EngineReport, AuditsAreTold) {
    expect_all({
        {LEVEL_ERROR, "vrm_chkhash: a is not installed", reason, "a is not installed"},
        {LEVEL_ERROR, "vrm_chkhash: /usr/a not found", reason,
         "/usr/a is missing, or can't be read"},
        {LEVEL_ERROR, "vrm_chkhash: mismatch on /usr/a: expected: 12ab, found: 34cd", reason,
         "/usr/a was changed: its SHA-1 is 34cd, and 12ab was delivered"},
        {LEVEL_ERROR, "/etc/a was not found on fs, this can happen.\n", reason,
         "the configuration file /etc/a is missing, or can't be read"},
        {LEVEL_ERROR, "vrm_chkhash: insternal error reading hases on fork: dump", cause,
         "the list of its dump files can't be used"},
        {LEVEL_ERROR, "vrm_chkhash: internal error reading hases on fork: conf", cause,
         "the list of its conf files can't be used"},
        {LEVEL_ERROR, "aborting chkinst", nothing, ""},
        {LEVEL_ERROR, "aborting chkhead", nothing, ""},
        {LEVEL_INFO, "keeping a", step, "keeping the inventory's entry a"},
        {LEVEL_INFO, "removing a", step, "removing the inventory's entry a"},
        {LEVEL_ERROR, "failed to remove /i/a", reason, "/i/a is not removed, or not whole"},
        {LEVEL_INFO, "leaving a", step, "leaving a as it is"},
        {LEVEL_INFO, "fixing a not yet implemented", reason, "a can't be repaired yet"},
    });
}

TEST(EngineReport, AWarningIsToldOnce) {
    const LogCapture log;
    EXPECT_EQ(stderr_of([] {
                  report_engine();
                  for (int i = 0; i < 2; i++) {
                      log_say(LEVEL_WARNING, "Failure parsing info for <one>, skipping entry");
                      log_say(LEVEL_WARNING, "Failure parsing info for <two>, skipping entry");
                      log_say(LEVEL_ERROR, "failed to remove /i/a");
                  }
                  log_observe(nullptr, 0, nullptr);
              }),
              "pvrm: the inventory's entry of one is damaged, and passed over\n"
              "pvrm: the inventory's entry of two is damaged, and passed over\n"
              "pvrm: /i/a is not removed, or not whole\n");
}
