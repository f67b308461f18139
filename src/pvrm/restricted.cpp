#include "pvrm/restricted.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "package/vrf.h"
#include "pvrm/request.h"
#include "support/own.h"

namespace {

// What a word may be given, besides what every word may be. An argument whose name holds "NAME"
// takes names only, and no package file: one of the caller's choice can be an old package, signed
// by a trusted signer, with a hole that is known since.
//
// Left out on purpose are --dir, for the same reason; --version, which asks for an old package of
// the catalogue, and --variant, whose other variant can be an old one; `trust`, `distrust` and
// `init`, which decide whose packages are believed; `check`, whose repairs change the inventory;
// `recover --abandon`, which leaves packages half changed; `saved`, which lists and deletes what
// only root may read; `config`, as the configuration may hold passwords; `verify` and `owner`,
// which look at files that the caller may not look at.
struct permitted_word {
    std::string_view word;
    std::initializer_list<std::string_view> arguments;
};

const permitted_word permitted_words[] = {
    {"allowed", {}},
    {"refresh", {}},
    {"install", {"NAME|FILE"}},
    {"upgrade", {"NAME|FILE"}},
    {"remove", {"NAME", "--keep-deps"}},
    {"cleanup", {}},
    {"recover", {}},
    // These change nothing, and read the inventory, the catalogue and the history only.
    {"list", {"PATTERN", "--format"}},
    {"search", {"PATTERN", "--format"}},
    {"info", {"NAME|FILE", "--format"}},
    {"files", {"NAME|FILE"}},
    {"depends", {"NAME|FILE"}},
    {"orphans", {}},
    {"why", {"NAME"}},
    {"log", {"--format", "--oldest-first"}},
};

constexpr std::string_view permitted_everywhere[] = {"--restricted", "--yes",     "--dry-run",
                                                     "--quiet",      "--verbose", "--wait"};

struct least_limit {
    int resource;
    rlim_t least;
    const char *what;
};

// A limit that is reached in the middle of a change would end it there.
constexpr least_limit least_limits[] = {
    {RLIMIT_AS, RLIM_INFINITY, "address space"},  {RLIMIT_CPU, RLIM_INFINITY, "processor time"},
    {RLIMIT_DATA, RLIM_INFINITY, "memory"},       {RLIMIT_FSIZE, RLIM_INFINITY, "file sizes"},
    {RLIMIT_STACK, rlim_t{8} << 20, "the stack"}, {RLIMIT_NOFILE, 1024, "open files"},
};

}  // namespace

static bool is_permitted(const permitted_word &word, std::string_view argument) {
    return std::find(std::begin(permitted_everywhere), std::end(permitted_everywhere), argument) !=
               std::end(permitted_everywhere) ||
           std::find(word.arguments.begin(), word.arguments.end(), argument) !=
               word.arguments.end();
}

std::string restricted_refusal(std::string_view word,
                               const std::vector<given_argument> &arguments) {
    const auto *const row =
        std::find_if(std::begin(permitted_words), std::end(permitted_words),
                     [word](const permitted_word &candidate) { return candidate.word == word; });
    if (row == std::end(permitted_words)) {
        return "the word " + std::string(word) + " is not permitted with --restricted";
    }
    for (const given_argument &argument : arguments) {
        if (!is_permitted(*row, argument.name)) {
            return argument.name + " of the word " + std::string(word) +
                   " is not permitted with --restricted";
        }
        if (argument.name.find("NAME") == std::string::npos) {
            continue;
        }
        for (const std::string &value : argument.values) {
            if (looks_like_file(value) || vrk_file_is_vrk(value.c_str())) {
                return "the package file " + value +
                       " is not permitted with --restricted; name a package of the catalogue";
            }
        }
    }
    return "";
}

// Empty, or why the limit can't be had.
static std::string lift(const least_limit &limit) {
    struct rlimit found;
    const auto resource = static_cast<__rlimit_resource>(limit.resource);
    if (getrlimit(resource, &found) == 0 && found.rlim_cur >= limit.least) {
        return "";
    }
    found = {limit.least, std::max(found.rlim_max, limit.least)};
    if (setrlimit(resource, &found) == 0) {
        return "";
    }
    return "cannot raise the limit of " + std::string(limit.what) + ": " + strerror(errno);
}

// Takes back what the caller said of who is to be killed first when memory runs out. Best effort:
// not every container lets it be written.
static void take_back_killing_order() {
    const own_fd file(open("/proc/self/oom_score_adj", O_WRONLY | O_CLOEXEC));
    if (file.valid()) {
        [[maybe_unused]] const ssize_t written = write(file.get(), "0", 1);
    }
}

std::string forget_caller() {
    clearenv();
    setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1);
    setenv("HOME", "/root", 1);
    if (chdir("/") != 0) {
        return std::string("cannot change to the directory /: ") + strerror(errno);
    }
    for (const least_limit &limit : least_limits) {
        if (std::string failure = lift(limit); !failure.empty()) {
            return failure;
        }
    }
    for (const auto timer : {ITIMER_REAL, ITIMER_VIRTUAL, ITIMER_PROF}) {
        const struct itimerval never = {};
        setitimer(timer, &never, nullptr);
    }
    take_back_killing_order();
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    // Whoever ignores the ends of children can't learn how a script ended.
    signal(SIGCHLD, SIG_DFL);
    // The keys of the caller's terminal must not stop a change that holds the lock.
    for (const int stop : {SIGTSTP, SIGTTIN, SIGTTOU}) {
        signal(stop, SIG_IGN);
    }
    return "";
}
