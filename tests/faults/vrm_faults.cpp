// Disturbs changes of the system, one file operation after the other, and judges what is left.
// scripts/faults runs it in a throwaway root.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include "faults/cases.h"
#include "faults/strict_run.h"

// What other programs of the machine leave in /tmp meanwhile shows through the throwaway root, and
// would be taken for the tool's. All paths from here on are absolute: the working directory may lie
// below the one that is hidden.
static void have_own_tmp() {
    if (chdir("/") != 0 || unshare(CLONE_NEWNS) != 0 ||
        mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("faults", "/tmp", "tmpfs", 0, "mode=1777") != 0) {
        throw std::runtime_error(std::string("no /tmp of its own: ") + strerror(errno));
    }
}

static int usage(FILE *to, int status) {
    fputs(
        "Usage: vrm_faults [OPTION]...\n"
        "Disturbs changes of the system; to be run in a throwaway root.\n\n"
        "  --every N      only each N-th operation\n"
        "  --sample N     only N operations for each kind, at random\n"
        "  --case NAME    only this case; --list prints the names\n"
        "  --kind KIND    only this kind: kill, ENOSPC, full, EIO, EROFS, EDQUOT, EACCES, EMFILE,\n"
        "                 short\n"
        "  --at NUMBER    only this operation\n"
        "  --operations   list the operations with their numbers, and disturb none\n"
        "  --layout NAME  where the files lie: overlay, other-disk, no-links\n"
        "  --seed N       of what is random\n"
        "  --thorough N   in how many runs of a case the recovery is killed at each of its "
        "points,\n"
        "                 and not at one of them (20)\n"
        "  --verbose      print every fault in full\n"
        "  --self-check   see whether broken engines are found to be broken\n",
        to);
    return status;
}

int main(int count, char **arguments) try {
    bool checks_itself = false;
    strict_options what;
    for (int i = 1; i < count; i++) {
        const std::string word = arguments[i];
        if (word == "--self-check") {
            checks_itself = true;
        } else if (word == "--verbose") {
            what.verbose = true;
        } else if (word == "--operations") {
            what.lists_operations = true;
        } else if (word == "--seed" && i + 1 < count) {
            what.seed = strtoul(arguments[++i], nullptr, 10);
        } else if (word == "--sample" && i + 1 < count) {
            what.sample = strtoul(arguments[++i], nullptr, 10);
        } else if (word == "--thorough" && i + 1 < count) {
            what.thorough = strtoul(arguments[++i], nullptr, 10);
        } else if (word == "--layout" && i + 1 < count) {
            what.layout = arguments[++i];
        } else if (word == "--list") {
            for (const fault_case &which : strict_cases()) {
                printf("%s\n", which.name.c_str());
            }
            return 0;
        } else if (word == "--case" && i + 1 < count) {
            what.only_case = arguments[++i];
        } else if (word == "--kind" && i + 1 < count) {
            what.only_kind = arguments[++i];
        } else if (word == "--every" && i + 1 < count) {
            what.every = strtoul(arguments[++i], nullptr, 10);
        } else if (word == "--at" && i + 1 < count) {
            what.only_at = atol(arguments[++i]);
        } else {
            return usage(word == "--help" ? stdout : stderr, word == "--help" ? 0 : 2);
        }
    }
    have_own_tmp();
    make_world();
    if (checks_itself) {
        return find_broken_engines() ? 0 : 1;
    }
    const size_t faults = run_strictly(what);
    if (faults > 0) {
        printf("%zu runs ended in a fault\n", faults);
    }
    return faults > 0 ? 1 : 0;
} catch (const std::exception &problem) {
    fprintf(stderr, "vrm_faults: %s\n", problem.what());
    return 2;
}
