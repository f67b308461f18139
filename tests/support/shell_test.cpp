#include "support/shell.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>

#include "kit/capture.h"
#include "kit/lower_limit.h"
#include "kit/temp_dir.h"
#include "support/own.h"

namespace {

volatile sig_atomic_t interruptions = 0;

void count_interruption(int) {
    interruptions = interruptions + 1;
}

int wake_up = -1;  // the writing end of a pipe at which a command waits

void count_and_wake(int signal) {
    count_interruption(signal);
    EXPECT_EQ(write(wake_up, "\n", 1), 1);
}

// Within its life a signal is handled in this way.
class SignalSet {
 public:
    SignalSet(int signal, void (*handler)(int)) : signal_(signal) {
        struct sigaction action = {};
        sigemptyset(&action.sa_mask);
        action.sa_handler = handler;
        sigaction(signal_, &action, &before_);
    }
    ~SignalSet() {
        sigaction(signal_, &before_, nullptr);
    }
    SignalSet(const SignalSet &) = delete;
    SignalSet &operator=(const SignalSet &) = delete;

 private:
    int signal_;
    struct sigaction before_;
};

void (*handler_of(int signal))(int) {
    struct sigaction action = {};
    sigaction(signal, nullptr, &action);
    return action.sa_handler;
}

// Within its life a standard stream is the writing end of a pipe.
class StreamIntoPipe {
 public:
    explicit StreamIntoPipe(int fd) : fd_(fd), before_(fcntl(fd, F_DUPFD_CLOEXEC, 10)) {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        reader_ = own_fd(ends[0]);
        dup2(ends[1], fd_);
        close(ends[1]);
    }
    ~StreamIntoPipe() {
        dup2(before_.get(), fd_);
    }
    StreamIntoPipe(const StreamIntoPipe &) = delete;
    StreamIntoPipe &operator=(const StreamIntoPipe &) = delete;

    void end_reader() {
        reader_ = own_fd();
    }
    std::string read_text() {
        char text[100];
        const ssize_t got = read(reader_.get(), text, sizeof text);
        return {text, got > 0 ? static_cast<size_t>(got) : 0};
    }

 private:
    int fd_;
    own_fd before_, reader_;
};

}  // namespace

TEST(RunShell, ReturnsTheRawWaitStatus) {
    EXPECT_EQ(run_shell("true"), 0);
    EXPECT_EQ(run_shell("exit 3"), 3 << 8);
    EXPECT_EQ(run_shell("/nowhere/command 2>/dev/null"), 127 << 8);
    const int killed = run_shell("kill -KILL $$").value_or(-1);
    EXPECT_TRUE(WIFSIGNALED(killed));
    EXPECT_EQ(WTERMSIG(killed), SIGKILL);
}

TEST(RunShell, TakesALineThatLooksLikeAnOption) {
    EXPECT_EQ(run_shell("-x 2>/dev/null"), 127 << 8);
}

TEST(RunShell, HandsTheEnvironmentOn) {
    setenv("SHELL_TEST", "a b", 1);
    EXPECT_EQ(run_shell("test \"$SHELL_TEST\" = 'a b'"), 0);
    unsetenv("SHELL_TEST");
}

TEST(RunShell, TellsThatNobodyCouldWait) {
    const SignalSet ignored(SIGCHLD, SIG_IGN);
    EXPECT_EQ(run_shell("true"), std::nullopt);
    EXPECT_EQ(errno, ECHILD);
}

TEST(RunShell, AnInterruptionReachesTheHandlerAndLeavesTheCommand) {
    // The command ends only when the handler has run, beside it.
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const own_fd reader(ends[0]), writer(ends[1]);
    wake_up = writer.get();
    const SignalSet handled(SIGINT, count_and_wake);
    interruptions = 0;
    const std::string wait = "timeout 60 head -c 1 /dev/fd/" + std::to_string(reader.get());
    EXPECT_EQ(run_shell(("kill -INT $PPID; " + wait + " >/dev/null && exit 5").c_str()), 5 << 8);
    EXPECT_EQ(interruptions, 1);
    EXPECT_EQ(handler_of(SIGINT), count_and_wake);
}

TEST(RunShell, ACommandDiesOfAnInterruptionThatTheProgramHandles) {
    const SignalSet handled(SIGINT, count_interruption);
    const int status = run_shell("kill -INT $$; sleep 5").value_or(-1);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
}

TEST(RunShell, AProgramWithoutHandlersOutlivesTheKeys) {
    const SignalSet interrupt(SIGINT, SIG_DFL), quit(SIGQUIT, SIG_DFL);
    EXPECT_EQ(run_shell("kill -INT $PPID; kill -QUIT $PPID"), 0);
    EXPECT_EQ(handler_of(SIGINT), SIG_DFL);
    EXPECT_EQ(handler_of(SIGQUIT), SIG_DFL);
    const int status = run_shell("ulimit -c 0; kill -QUIT $$; sleep 5").value_or(-1);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGQUIT) << status;
}

TEST(RunShell, ACommandIgnoresWhatTheProgramIgnores) {
    const SignalSet interrupt(SIGINT, SIG_IGN), quit(SIGQUIT, SIG_IGN);
    EXPECT_EQ(run_shell("kill -INT $$; kill -QUIT $$; exit 6"), 6 << 8);
}

TEST(RunShell, ACommandWritesToWhoReads) {
    StreamIntoPipe out(STDOUT_FILENO);
    EXPECT_FALSE(nobody_reads(STDOUT_FILENO));
    EXPECT_EQ(run_shell("echo text"), 0);
    EXPECT_EQ(out.read_text(), "text\n");
}

TEST(RunShell, ACommandThatNobodyReadsDoesNotFailOfIt) {
    const SignalSet outlived(SIGPIPE, SIG_IGN);
    for (const int fd : {STDOUT_FILENO, STDERR_FILENO}) {
        StreamIntoPipe stream(fd);
        stream.end_reader();
        EXPECT_TRUE(nobody_reads(fd)) << fd;
        EXPECT_EQ(run_shell(("set -e; echo text >&" + std::to_string(fd) + "; exit 7").c_str()),
                  7 << 8)
            << fd;
    }
}

namespace {

// Notes the calls in their order, and does something at the start.
class Watcher final : public shell_watcher {
 public:
    explicit Watcher(std::function<void(pid_t)> at_start = {}) : at_start_(std::move(at_start)) {}
    void begins(pid_t shell) override {
        calls += "begins ";
        process = shell;
        if (at_start_) {
            at_start_(shell);
        }
    }
    void ended() override {
        calls += "ended ";
    }

    std::string calls;
    pid_t process = 0;

 private:
    std::function<void(pid_t)> at_start_;
};

}  // namespace

TEST(RunShell, ShowsTheShellBeforeTheCommandDoesAnything) {
    const TempDir dir;
    const std::string mark = dir / "mark";
    bool too_early = false;
    Watcher watcher([&](pid_t) {
        usleep(200'000);
        too_early = exists(mark);
    });
    EXPECT_EQ(run_shell(("echo $$ >" + mark + "; exit 4").c_str()), 4 << 8);
    EXPECT_FALSE(too_early);
    EXPECT_EQ(watcher.calls, "begins ended ");
    EXPECT_EQ(read_all(mark), std::to_string(watcher.process) + "\n");
}

TEST(RunShell, ShowsAShellToTheNewestWatcher) {
    Watcher older;
    {
        Watcher newer;
        run_shell("true");
        EXPECT_EQ(newer.calls, "begins ended ");
        EXPECT_EQ(older.calls, "");
    }
    run_shell("true");
    EXPECT_EQ(older.calls, "begins ended ");
}

TEST(RunShell, RunsNoCommandOfAProgramThatDiedAtItsStart) {
    const TempDir dir;
    const std::string mark = dir / "mark";
    int ends[2];
    // The command has a writer too, so the end of the pipe is the end of both.
    ASSERT_EQ(pipe(ends), 0);
    own_fd reader(ends[0]), writer(ends[1]);
    const pid_t program = fork();
    if (program == 0) {
        Watcher watcher([](pid_t) { kill(getpid(), SIGKILL); });
        _exit(run_shell(("echo >" + mark).c_str()).value_or(-1));
    }
    writer = own_fd();
    char byte;
    EXPECT_EQ(read(reader.get(), &byte, 1), 0);
    int status = 0;
    EXPECT_EQ(waitpid(program, &status, 0), program);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
    EXPECT_FALSE(exists(mark));
}

TEST(RunShell, GivesTheEndOfAShellThatWasKilledAtItsStart) {
    const SignalSet by_default(SIGPIPE, SIG_DFL);
    const Watcher watcher([](pid_t shell) { kill(shell, SIGTERM); });
    const int status = run_shell("sleep 5").value_or(-1);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
}

TEST(RunShell, HandsNoDescriptorOfItsOwnOn) {
    // Those of the test program itself are not for the command either.
    const ShellResult before = shell("ls /proc/self/fd | wc -l");
    StreamIntoPipe out(STDOUT_FILENO);
    EXPECT_EQ(run_shell("ls /proc/self/fd | wc -l"), 0);
    EXPECT_EQ(out.read_text(), before.out);
}

TEST(RunShell, TellsThatNoPipeCouldBeMade) {
    const LowerLimit limit(RLIMIT_NOFILE, 0);
    EXPECT_EQ(run_shell("true"), std::nullopt);
    EXPECT_EQ(errno, EMFILE);
}

TEST(NobodyReads, OfATerminalThatWentAway) {
    own_fd keyboard(posix_openpt(O_RDWR | O_NOCTTY));
    ASSERT_TRUE(keyboard.valid());
    ASSERT_EQ(grantpt(keyboard.get()), 0);
    ASSERT_EQ(unlockpt(keyboard.get()), 0);
    const own_fd screen(open(ptsname(keyboard.get()), O_RDWR | O_NOCTTY));
    ASSERT_TRUE(screen.valid());
    EXPECT_FALSE(nobody_reads(screen.get()));
    keyboard = own_fd();
    EXPECT_TRUE(nobody_reads(screen.get()));
}

TEST(NobodyReads, OfAFileIsFalse) {
    const TempDir dir;
    const own_fd file(open((dir / "file").c_str(), O_WRONLY | O_CREAT, 0600));
    EXPECT_FALSE(nobody_reads(file.get()));
}
