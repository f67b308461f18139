#include "support/shell.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

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

// How the command starts. What can't be had of it is left out: the command matters more.
class start_of_command {
 public:
    explicit start_of_command(const key_signals &signals) {
        posix_spawnattr_init(&attributes_);
        posix_spawnattr_setsigdefault(&attributes_, signals.for_command());
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF);
        posix_spawn_file_actions_init(&streams_);
        for (const int fd : {STDOUT_FILENO, STDERR_FILENO}) {
            if (nobody_reads(fd)) {
                write_nowhere(fd);
            }
        }
    }
    ~start_of_command() {
        posix_spawn_file_actions_destroy(&streams_);
        posix_spawnattr_destroy(&attributes_);
    }
    start_of_command(const start_of_command &) = delete;
    start_of_command &operator=(const start_of_command &) = delete;

    // 0, or the reason of a failure.
    int spawn(const char *line, pid_t *child) {
        // The words are not changed.
        char *const words[] = {const_cast<char *>("sh"), const_cast<char *>("-c"),
                               const_cast<char *>("--"), const_cast<char *>(line), nullptr};
        return posix_spawn(child, "/bin/sh", &streams_, &attributes_, words, environ);
    }

 private:
    void write_nowhere(int fd) {
        if (!nowhere_.valid()) {
            nowhere_ = own_fd(open("/dev/null", O_WRONLY | O_CLOEXEC));
        }
        if (nowhere_.valid()) {
            posix_spawn_file_actions_adddup2(&streams_, nowhere_.get(), fd);
        }
    }

    own_fd nowhere_;
    posix_spawnattr_t attributes_;
    posix_spawn_file_actions_t streams_;
};

}  // namespace

static constexpr int no_shell_status = 127 << 8;

int run_shell(const char *line) {
    const key_signals signals;
    start_of_command command(signals);
    pid_t child;
    const int failure = command.spawn(line, &child);
    if (failure == EAGAIN || failure == ENOMEM) {
        errno = failure;
        return -1;
    }
    if (failure != 0) {
        return no_shell_status;
    }
    int status;
    pid_t ended;
    do {
        ended = waitpid(child, &status, 0);
    } while (ended < 0 && errno == EINTR);
    return ended == child ? status : -1;
}
