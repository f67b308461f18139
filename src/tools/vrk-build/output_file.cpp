#include "tools/vrk-build/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <utility>

#include "tools/vrk-build/problem.h"

// What a signal's handler finds, which may use neither strings nor objects.
static char unfinished[PATH_MAX];
static constexpr int ending_signals[] = {SIGHUP, SIGINT, SIGTERM};

static void remove_unfinished(int signal_number) {
    unlink(unfinished);
    signal(signal_number, SIG_DFL);
    raise(signal_number);
}

static void handle_signals(void (*handler)(int)) {
    for (const int signal_number : ending_signals) {
        struct sigaction before;
        // Who is told to go on after a hangup goes on.
        if (sigaction(signal_number, nullptr, &before) == 0 && before.sa_handler != SIG_IGN) {
            struct sigaction action = {};
            action.sa_handler = handler;
            sigaction(signal_number, &action, nullptr);
        }
    }
}

output_file::output_file(const std::string &target) : target_(target) {
    const std::filesystem::path parent = std::filesystem::path(target).parent_path();
    path_ = (parent.empty() ? "." : parent.string()) + "/.vrk-build-XXXXXX";
    if (path_.size() >= sizeof unfinished) {
        throw problem(target + ": " + strerror(ENAMETOOLONG));
    }
    // At a limit for sizes of files writing is to fail, not to end the program.
    signal(SIGXFSZ, SIG_IGN);
    sigset_t ending, before;
    sigemptyset(&ending);
    for (const int signal_number : ending_signals) {
        sigaddset(&ending, signal_number);
    }
    // No signal between the making of the file and the handler's knowing of it.
    sigprocmask(SIG_BLOCK, &ending, &before);
    fd_ = mkostemp(path_.data(), O_CLOEXEC);
    const int reason = errno;
    if (fd_ >= 0) {
        strcpy(unfinished, path_.c_str());
        handle_signals(remove_unfinished);
    }
    sigprocmask(SIG_SETMASK, &before, nullptr);
    if (fd_ < 0) {
        errno = reason;
        throw system_problem("no file can be made in " + (parent.empty() ? "." : parent.string()));
    }
}

output_file::~output_file() {
    if (fd_ >= 0) {
        close(fd_);
    }
    if (!path_.empty()) {
        unlink(path_.c_str());
    }
    handle_signals(SIG_DFL);
}

static void write_all(int fd, const void *bytes, size_t count, const std::string &target) {
    const auto *from = static_cast<const char *>(bytes);
    while (count > 0) {
        const ssize_t written = write(fd, from, count);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written < 0) {
            throw system_problem(target + " can't be written");
        }
        from += written;
        count -= static_cast<size_t>(written);
    }
}

void output_file::append(const void *bytes, size_t count) {
    write_all(fd_, bytes, count, target_);
}

void output_file::replace_start(const std::string &bytes) {
    if (lseek(fd_, 0, SEEK_SET) != 0) {
        throw system_problem(target_ + " can't be written");
    }
    write_all(fd_, bytes.data(), bytes.size(), target_);
}

void output_file::finish() {
    const mode_t mask = umask(0);
    umask(mask);
    bool good = fchmod(fd_, 0666 & ~mask) == 0 && fsync(fd_) == 0;
    good = close(std::exchange(fd_, -1)) == 0 && good;
    if (!good || rename(path_.c_str(), target_.c_str()) != 0) {
        throw system_problem(target_ + " can't be written");
    }
    path_.clear();
}
