#include "pvrm/engine_report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "kit/capture.h"
#include "kit/log_capture.h"
#include "pvrm/tell.h"
#include "support/log.h"

namespace {

// The receiver of the engine's events.
class EngineReport : public testing::Test {
 protected:
    EngineReport() {
        take_cause();
        report_engine();
    }
    ~EngineReport() override {
        receive_events(nullptr, nullptr);
    }
    LogCapture log_;
};

// Reasons of several texts, causes and a step, as the engine reports them.
void reason(const char *path) {
    report({.kind = event_kind::path_not_removed, .path = path});
}
void warning(const char *package) {
    report({.kind = event_kind::entry_damaged, .package = package});
}
void expired() {
    report({.kind = event_kind::certificate_expired});
}
void not_trusted(const char *path) {
    report({.kind = event_kind::signature_not_trusted, .path = path});
}
void verifying() {
    report({.kind = event_kind::verifying, .package = "a"});
}
void install_failed() {
    report({.kind = event_kind::install_failed, .package = "a_any_1", .status = -1});
}

}  // namespace

TEST_F(EngineReport, AReasonGoesToStderrAndAStepToStdout) {
    EXPECT_EQ(stderr_of([] { reason("/x"); }), "pvrm: /x can't be removed\n");
    EXPECT_EQ(stdout_of(verifying), "pvrm: verifying a\n");
}

TEST_F(EngineReport, ACauseWaitsForItsFailure) {
    EXPECT_EQ(stderr_of([] {
                  expired();
                  not_trusted("/x");
                  reason("/y");
              }),
              "pvrm: the signature of /x can't be trusted: its signer's certificate has expired\n"
              "pvrm: /y can't be removed\n");
}

TEST_F(EngineReport, AFailureOfTheToolTakesTheCauseToo) {
    EXPECT_EQ(stderr_of([] {
                  report({.kind = event_kind::package_magic_unknown});
                  EXPECT_TRUE(was_explained());
                  tell_failure("%s is no package", "x");
                  EXPECT_FALSE(was_explained());
                  tell_failure("nothing else");
              }),
              "pvrm: x is no package: it does not begin as a package file does\n"
              "pvrm: nothing else\n");
}

TEST_F(EngineReport, AStepEndsACause) {
    expired();
    stdout_of(verifying);
    EXPECT_EQ(take_cause(), "");
}

TEST_F(EngineReport, TheSameReasonIsSaidOnce) {
    EXPECT_EQ(stderr_of([] {
                  reason("/twice");
                  reason("/twice");
                  reason("/once");
                  reason("/twice");
              }),
              "pvrm: /twice can't be removed\npvrm: /once can't be removed\n"
              "pvrm: /twice can't be removed\n");
}

TEST_F(EngineReport, ReasonsOfAnAttemptAreKeptUntilTheyAreSaidWithTheirCauses) {
    const size_t before = reasons_told();
    kept_reasons kept;
    EXPECT_EQ(stderr_of([&] {
                  keep_reasons();
                  expired();
                  not_trusted("/kept");
                  warning("kept");
                  report({.kind = event_kind::certificate_not_yet_valid});
                  kept = take_reasons();
              }),
              "");
    EXPECT_FALSE(was_explained());
    EXPECT_EQ(reasons_told(), before);
    ASSERT_EQ(kept.reasons.size(), 2U);
    EXPECT_EQ(kept.reasons[0].kind, event_kind::signature_not_trusted);
    EXPECT_EQ(
        stderr_of([&] {
            reason("/between");
            tell_reasons(kept);
            tell_failure("it failed");
        }),
        "pvrm: /between can't be removed\n"
        "pvrm: the signature of /kept can't be trusted: its signer's certificate has expired\n"
        "pvrm: the inventory's entry of kept is damaged, and passed over\n"
        "pvrm: it failed: its signer's certificate is not valid yet\n");
    EXPECT_EQ(reasons_told(), before + 3);
}

TEST_F(EngineReport, AReasonThatWasKeptAndDroppedWasNotSaid) {
    keep_reasons();
    warning("both");
    take_reasons();
    EXPECT_EQ(stderr_of([] { warning("both"); }),
              "pvrm: the inventory's entry of both is damaged, and passed over\n");
}

TEST_F(EngineReport, AWarningIsSaidOnce) {
    EXPECT_EQ(stderr_of([] {
                  for (int i = 0; i < 2; i++) {
                      warning("one");
                      warning("two");
                      reason("/i/a");
                  }
              }),
              "pvrm: the inventory's entry of one is damaged, and passed over\n"
              "pvrm: the inventory's entry of two is damaged, and passed over\n"
              "pvrm: /i/a can't be removed\n");
}

TEST_F(EngineReport, AnOutcomeIsKeptUntilItIsTaken) {
    EXPECT_EQ(stdout_of([] { report({.kind = event_kind::cleanup_done, .other = "1 bytes"}); }),
              "");
    EXPECT_EQ(take_outcome(), "1 bytes");
    EXPECT_EQ(take_outcome(), "");
}

TEST_F(EngineReport, AFailureSaysWhatTheRollbackDid) {
    const std::string not_all =
        "the installation of a_any_1 failed, and not all that it had changed could be rolled "
        "back\n";
    const std::string all =
        "pvrm: the installation of a_any_1 failed, and what it had changed was rolled back\n";
    const std::string without = "pvrm: the installation of a_any_1 failed\n";
    EXPECT_EQ(stderr_of([] {
                  install_failed();
                  report({.kind = event_kind::rollback_finished});
                  reason("/x");
                  install_failed();
              }),
              without + "pvrm: /x can't be removed\n" + all);
    for (const event_kind kind : {event_kind::not_restored, event_kind::backup_list_not_read}) {
        const std::string said = stderr_of([=] {
            report({.kind = kind, .path = "/x"});
            report({.kind = event_kind::rollback_finished});
            install_failed();
        });
        EXPECT_THAT(said, testing::EndsWith("pvrm: " + not_all)) << event_name(kind);
    }
    EXPECT_EQ(stderr_of([] {
                  reason("/more");
                  install_failed();
              }),
              "pvrm: /more can't be removed\n" + without)
        << "what another package could not put back is over";
}

TEST_F(EngineReport, ARollbackIsKeptUntilItIsTaken) {
    EXPECT_EQ(take_rollback(), rollback::none);
    report({.kind = event_kind::nothing_to_restore});
    EXPECT_EQ(take_rollback(), rollback::complete);
    EXPECT_EQ(take_rollback(), rollback::none);
    stderr_of([] { report({.kind = event_kind::backup_list_not_read, .path = "/s/index.txt"}); });
    report({.kind = event_kind::rollback_finished});
    EXPECT_EQ(take_rollback(), rollback::incomplete);
}

TEST_F(EngineReport, ReasonsAreCountedAsTheyAreSaid) {
    const size_t before = reasons_told();
    stderr_of([] {
        reason("/first");
        reason("/first");
        report({.kind = event_kind::cleanup_aborted});
    });
    stdout_of(verifying);
    EXPECT_EQ(reasons_told(), before + 1);
}

TEST_F(EngineReport, NoLogLineIsTakenForAnEvent) {
    EXPECT_EQ(stderr_of([] {
                  log_write(llog, LEVEL_ERROR, "from a script");
                  log_say(LEVEL_ERROR, "Failure verifying signature of /x");
              }),
              "");
}
