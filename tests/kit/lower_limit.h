// Within its life a limit of the process is lower than usual. A write beyond the largest file size
// then fails with EFBIG and raises no signal.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <vector>

class LowerLimit {
 public:
    LowerLimit(__rlimit_resource what, rlim_t limit) : what_(what) {
        signal(SIGXFSZ, SIG_IGN);
        getrlimit(what_, &before_);
        const rlimit lower{limit, before_.rlim_max};
        EXPECT_EQ(setrlimit(what_, &lower), 0);
    }
    ~LowerLimit() {
        setrlimit(what_, &before_);
    }
    LowerLimit(const LowerLimit &) = delete;
    LowerLimit &operator=(const LowerLimit &) = delete;

 private:
    __rlimit_resource what_;
    rlimit before_;
};

// Files and directories beyond a limit of open files can't be opened. This one leaves `spare` more
// than there are now.
inline rlim_t limit_with(int spare) {
    std::vector<int> taken;
    for (int i = 0; i <= spare; i++) {
        taken.push_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
    }
    for (const int fd : taken) {
        close(fd);
    }
    return static_cast<rlim_t>(taken.back());
}
