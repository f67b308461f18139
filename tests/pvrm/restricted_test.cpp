#include "pvrm/restricted.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "kit/temp_dir.h"

TEST(RestrictedRefusal, PermitsWhatItsListNames) {
    EXPECT_EQ(restricted_refusal("refresh", {}), "");
    EXPECT_EQ(restricted_refusal("install", {{"--restricted", {"true"}},
                                             {"--yes", {"true"}},
                                             {"NAME|FILE", {"foo", "bar"}},
                                             {"--variant", {"small"}}}),
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

// What a process of root would find after a caller set everything against it, in a child, as it
// can't be taken back.
TEST(ForgetCaller, LeavesNothingOfTheCaller) {
    const TempDir dir;
    const pid_t child = fork();
    if (child == 0) {
        clearenv();
        setenv("PATH", dir.path().c_str(), 1);
        setenv("VRM_SHOWLOG_DEBUG_LOGFILE", "/etc/shadow", 1);
        setenv("SUDO_UID", "1000", 1);
        std::filesystem::current_path(dir.path());
        struct rlimit low = {4096, RLIM_INFINITY};
        setrlimit(RLIMIT_FSIZE, &low);
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_SETMASK, &all, nullptr);
        signal(SIGCHLD, SIG_IGN);
        alarm(1000);

        int wrong = forget_caller().empty() ? 0 : 128;
        wrong |= variable("PATH") != "/usr/sbin:/usr/bin:/sbin:/bin" ? 1 : 0;
        wrong |= variable("HOME") != "/root" || environ[2] != nullptr ? 2 : 0;
        wrong |= std::filesystem::current_path() != "/" ? 4 : 0;
        getrlimit(RLIMIT_FSIZE, &low);
        wrong |= low.rlim_cur != RLIM_INFINITY ? 8 : 0;
        sigset_t blocked;
        sigprocmask(SIG_SETMASK, nullptr, &blocked);
        wrong |= sigismember(&blocked, SIGTERM) == 1 ? 16 : 0;
        wrong |= signal(SIGCHLD, SIG_DFL) != SIG_DFL ? 32 : 0;
        wrong |= alarm(0) != 0 ? 64 : 0;
        _exit(wrong);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
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
