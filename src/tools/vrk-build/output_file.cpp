#include "tools/vrk-build/output_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <filesystem>

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
    const std::string beside = (parent.empty() ? "." : parent.string()) + "/.vrk-build-XXXXXX";
    if (beside.size() >= sizeof unfinished) {
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
    file_.emplace(target, beside);
    const int reason = errno;
    if (file_->is_open()) {
        strcpy(unfinished, file_->beside().c_str());
        handle_signals(remove_unfinished);
    }
    sigprocmask(SIG_SETMASK, &before, nullptr);
    if (!file_->is_open()) {
        errno = reason;
        throw system_problem("no file can be made in " + (parent.empty() ? "." : parent.string()));
    }
}

output_file::~output_file() {
    file_.reset();
    handle_signals(SIG_DFL);
}

void output_file::append(std::string_view bytes) {
    if (!file_->write(bytes)) {
        throw system_problem(target_ + " can't be written");
    }
}

void output_file::replace_start(const std::string &bytes) {
    if (lseek(file_->fd(), 0, SEEK_SET) != 0) {
        throw system_problem(target_ + " can't be written");
    }
    append(bytes);
}

void output_file::finish() {
    const mode_t mask = umask(0);
    umask(mask);
    if (!file_->commit(0666 & ~mask, durability::synced)) {
        throw system_problem(target_ + " can't be written");
    }
}
