#include "support/shell.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <utility>

#include "support/own.h"

bool nobody_reads(int fd) {
    pollfd writer = {fd, POLLOUT, 0};
    return poll(&writer, 1, 0) == 1 && (writer.revents & (POLLERR | POLLHUP)) != 0;
}

namespace {

// The signals of a terminal's keys during a command, and what the command is to get of them. The
// keys reach the command and us alike. A program without a handler must outlive them to see how the
// command ended; one with a handler for SIGINT wants to know, also of one that was sent to it
// alone.
class key_signals {
 public:
    key_signals() {
        sigemptyset(&for_command_);
        sigaction(SIGINT, nullptr, &interrupt_);
        if (interrupt_.sa_handler == SIG_DFL) {
            ignore(SIGINT);
        }
        sigaction(SIGQUIT, nullptr, &quit_);
        ignore(SIGQUIT);
        // What was ignored before is ignored by the command as well.
        if (interrupt_.sa_handler != SIG_IGN) {
            sigaddset(&for_command_, SIGINT);
        }
        if (quit_.sa_handler != SIG_IGN) {
            sigaddset(&for_command_, SIGQUIT);
        }
    }
    ~key_signals() {
        if (interrupt_.sa_handler == SIG_DFL) {
            sigaction(SIGINT, &interrupt_, nullptr);
        }
        sigaction(SIGQUIT, &quit_, nullptr);
    }
    key_signals(const key_signals &) = delete;
    key_signals &operator=(const key_signals &) = delete;

    // Those that the command takes as a process does that was told nothing of them.
    const sigset_t *for_command() const {
        return &for_command_;
    }

 private:
    static void ignore(int signal) {
        struct sigaction action = {};
        sigemptyset(&action.sa_mask);
        action.sa_handler = SIG_IGN;
        sigaction(signal, &action, nullptr);
    }

    struct sigaction interrupt_ = {}, quit_ = {};
    sigset_t for_command_;
};

// Where a command writes. What nobody reads any more goes to /dev/null, if that can be opened: the
// command matters more.
class output_of_command {
 public:
    output_of_command() {
        for (const int fd : {STDOUT_FILENO, STDERR_FILENO}) {
            unread_[fd] = nobody_reads(fd);
            if (unread_[fd] && !nowhere_.valid()) {
                nowhere_ = own_fd(open("/dev/null", O_WRONLY | O_CLOEXEC));
            }
        }
    }

    // In the new process.
    void set() const {
        for (const int fd : {STDOUT_FILENO, STDERR_FILENO}) {
            if (unread_[fd] && nowhere_.valid()) {
                dup2(nowhere_.get(), fd);
            }
        }
    }

 private:
    bool unread_[STDERR_FILENO + 1] = {};
    own_fd nowhere_;
};

// Holds a new process back until the program lets it go on.
class start_gate {
 public:
    bool make() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            return false;
        }
        reader_ = own_fd(ends[0]);
        writer_ = own_fd(ends[1]);
        return true;
    }

    // In the program. Its own reader keeps the write from failing with SIGPIPE when the process was
    // killed meanwhile.
    void open_for_process() {
        while (write(writer_.get(), "", 1) < 0 && errno == EINTR) {
        }
    }

    // In the new process: false when the program died instead, which closes the last writer.
    bool wait_until_open() {
        writer_.close();
        char byte;
        ssize_t got;
        do {
            got = read(reader_.get(), &byte, 1);
        } while (got < 0 && errno == EINTR);
        return got == 1;
    }

 private:
    own_fd reader_, writer_;
};

// A forked copy of the program must not run the program's signal handlers, so signals are blocked
// until it has reset them.
class blocked_signals {
 public:
    blocked_signals() {
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_BLOCK, &all, &before_);
    }
    ~blocked_signals() {
        restore();
    }
    blocked_signals(const blocked_signals &) = delete;
    blocked_signals &operator=(const blocked_signals &) = delete;

    void restore() const {
        sigprocmask(SIG_SETMASK, &before_, nullptr);
    }

 private:
    sigset_t before_;
};

void reset_handlers(const sigset_t *to_default) {
    struct sigaction by_default = {};
    sigemptyset(&by_default.sa_mask);
    by_default.sa_handler = SIG_DFL;
    for (int signal = 1; signal < NSIG; signal++) {
        struct sigaction present;
        if (sigaction(signal, nullptr, &present) == 0 &&
            (sigismember(to_default, signal) == 1 || present.sa_handler != SIG_IGN)) {
            sigaction(signal, &by_default, nullptr);
        }
    }
}

constexpr int no_shell = 127;

// Makes a process of the command, which waits at the gate. Result: its id, or -1 with `errno`.
//
// Not by posix_spawn: what it starts can't be made to wait, and so could not be noted in time.
pid_t start_command(const char *line, const key_signals &signals, start_gate *gate) {
    const output_of_command output;
    const blocked_signals blocked;
    const pid_t child = fork();
    if (child != 0) {
        return child;
    }
    // From here on only what is safe after a fork.
    reset_handlers(signals.for_command());
    blocked.restore();
    if (gate->wait_until_open()) {
        output.set();
        execl("/bin/sh", "sh", "-c", "--", line, nullptr);
    }
    _exit(no_shell);
}

shell_watcher *newest_watcher = nullptr;

}  // namespace

shell_watcher::shell_watcher() : before_(std::exchange(newest_watcher, this)) {}

shell_watcher::~shell_watcher() {
    newest_watcher = before_;
}

std::optional<int> run_shell(const char *line) {
    const key_signals signals;
    start_gate gate;
    if (!gate.make()) {
        return std::nullopt;
    }
    const pid_t child = start_command(line, signals, &gate);
    if (child < 0) {
        return std::nullopt;
    }
    if (newest_watcher) {
        newest_watcher->begins(child);
    }
    gate.open_for_process();
    int status;
    pid_t ended;
    do {
        ended = waitpid(child, &status, 0);
    } while (ended < 0 && errno == EINTR);
    const int reason = errno;
    if (newest_watcher) {
        newest_watcher->ended();
    }
    errno = reason;
    return ended == child ? std::optional(status) : std::nullopt;
}
