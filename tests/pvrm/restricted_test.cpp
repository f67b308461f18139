#include "pvrm/restricted.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "kit/temp_dir.h"

TEST(RestrictedRefusal, PermitsWhatItsListNames) {
    EXPECT_EQ(restricted_refusal("refresh", {}), "");
    EXPECT_EQ(restricted_refusal(
                  "install",
                  {{"--restricted", {"true"}}, {"--yes", {"true"}}, {"NAME|FILE", {"foo", "bar"}}}),
              "");
    EXPECT_EQ(restricted_refusal("remove", {{"NAME", {"foo"}}, {"--keep-deps", {"true"}}}), "");
}

TEST(RestrictedRefusal, RefusesEveryOtherWordAndOption) {
    EXPECT_EQ(restricted_refusal("trust", {}), "the word trust is not permitted with --restricted");
    EXPECT_EQ(restricted_refusal("new-word", {}),
              "the word new-word is not permitted with --restricted");
    EXPECT_EQ(restricted_refusal("", {}), "the word  is not permitted with --restricted");
    EXPECT_EQ(restricted_refusal("install", {{"NAME|FILE", {"foo"}}, {"--dir", {"/tmp"}}}),
              "--dir of the word install is not permitted with --restricted");
    EXPECT_EQ(restricted_refusal("install", {{"--new-option", {"x"}}}),
              "--new-option of the word install is not permitted with --restricted");
    // Another variant can be an old version.
    EXPECT_EQ(restricted_refusal("install", {{"NAME|FILE", {"foo"}}, {"--variant", {"small"}}}),
              "--variant of the word install is not permitted with --restricted");
    // An option that another word may have.
    EXPECT_EQ(restricted_refusal("install", {{"--keep-deps", {"true"}}}),
              "--keep-deps of the word install is not permitted with --restricted");
}

TEST(RestrictedRefusal, RefusesPackageFiles) {
    for (const char *word : {"install", "upgrade", "info", "files", "depends"}) {
        for (const std::string file : {"./foo", "/foo", "foo.vrk", "a/b", "/none/foo.vrk"}) {
            EXPECT_EQ(restricted_refusal(word, {{"NAME|FILE", {"good", file}}}),
                      "the package file " + file +
                          " is not permitted with --restricted; name a package of the catalogue")
                << word;
        }
    }
    EXPECT_EQ(restricted_refusal("search", {{"PATTERN", {"a/b*"}}}), "") << "no file is read";
}

static std::string variable(const char *name) {
    const char *value = getenv(name);
    return value ? value : "";
}

static std::string killing_order() {
    std::string value;
    std::ifstream("/proc/self/oom_score_adj") >> value;
    return value;
}

// What is left of the caller; empty for nothing.
static std::string left_of_caller() {
    if (variable("PATH") != "/usr/sbin:/usr/bin:/sbin:/bin" || variable("HOME") != "/root" ||
        environ[2] != nullptr) {
        return "environment";
    }
    if (std::filesystem::current_path() != "/") {
        return "directory";
    }
    struct rlimit limit = {};
    getrlimit(RLIMIT_FSIZE, &limit);
    if (limit.rlim_cur != RLIM_INFINITY) {
        return "limit";
    }
    sigset_t blocked;
    sigprocmask(SIG_SETMASK, nullptr, &blocked);
    if (sigismember(&blocked, SIGTERM) == 1 || signal(SIGCHLD, SIG_DFL) != SIG_DFL) {
        return "signals";
    }
    for (const int stop : {SIGTSTP, SIGTTIN, SIGTTOU}) {
        if (signal(stop, SIG_DFL) != SIG_IGN) {
            return "stop " + std::to_string(stop);
        }
    }
    for (const auto timer : {ITIMER_REAL, ITIMER_VIRTUAL, ITIMER_PROF}) {
        struct itimerval left = {};
        getitimer(timer, &left);
        if (left.it_value.tv_sec != 0 || left.it_interval.tv_sec != 0) {
            return "timer " + std::to_string(static_cast<int>(timer));
        }
    }
    return killing_order() == "0" ? "" : "killing order " + killing_order();
}

// What a process of root would find after a caller set everything against it, in a child, as it
// can't be taken back.
TEST(ForgetCaller, LeavesNothingOfTheCaller) {
    const TempDir dir;
    const std::string found = dir / "found";
    const pid_t child = fork();
    if (child == 0) {
        clearenv();
        setenv("PATH", dir.path().c_str(), 1);
        setenv("VRM_SHOWLOG_DEBUG_LOGFILE", "/etc/shadow", 1);
        setenv("SUDO_UID", "1000", 1);
        std::filesystem::current_path(dir.path());
        const struct rlimit low = {4096, RLIM_INFINITY};
        setrlimit(RLIMIT_FSIZE, &low);
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_SETMASK, &all, nullptr);
        signal(SIGCHLD, SIG_IGN);
        for (const auto timer : {ITIMER_REAL, ITIMER_VIRTUAL, ITIMER_PROF}) {
            const struct itimerval soon = {{1000, 0}, {1000, 0}};
            setitimer(timer, &soon, nullptr);
        }
        std::ofstream("/proc/self/oom_score_adj") << "500";

        const std::string failure = forget_caller();
        std::ofstream(found) << failure << left_of_caller();
        _exit(0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    ASSERT_TRUE(exists(found));
    EXPECT_EQ(read_all(found), "");
}

// Where root can't raise it either, the caller could end a change with it.
TEST(ForgetCaller, LiftsAHardLimitOrFails) {
    const pid_t child = fork();
    if (child == 0) {
        struct rlimit low = {4096, 4096};
        setrlimit(RLIMIT_FSIZE, &low);
        const std::string failure = forget_caller();
        getrlimit(RLIMIT_FSIZE, &low);
        const bool lifted = low.rlim_cur == RLIM_INFINITY;
        const bool refused =
            failure == "cannot raise the limit of file sizes: Operation not permitted";
        _exit(lifted == failure.empty() && (lifted || refused) ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}
