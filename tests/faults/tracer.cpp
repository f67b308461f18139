#include "faults/tracer.h"

#include <fcntl.h>
#include <linux/filter.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <system_error>

#include "faults/tree.h"
#include "support/own.h"

namespace {

[[noreturn]] void fail(const char *what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// Asks the listener about the watched calls and lets all others pass.
std::vector<sock_filter> make_filter() {
    const std::vector<int> &calls = watched_calls();
    std::vector<sock_filter> filter;
    filter.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)));
    for (size_t i = 0; i < calls.size(); i++) {
        const auto to_the_end = static_cast<uint8_t>(calls.size() - i);
        filter.push_back(
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<uint32_t>(calls[i]), to_the_end, 0));
    }
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
    return filter;
}

// A message with room for one descriptor.
struct descriptor_message {
    char byte = 0;
    iovec data = {&byte, 1};
    alignas(cmsghdr) char room[CMSG_SPACE(sizeof(int))] = {};
    msghdr head = {};

    descriptor_message() {
        head.msg_iov = &data;
        head.msg_iovlen = 1;
        head.msg_control = room;
        head.msg_controllen = sizeof room;
    }
};

bool send_descriptor(int socket, int descriptor) {
    descriptor_message message;
    cmsghdr *control = CMSG_FIRSTHDR(&message.head);
    control->cmsg_level = SOL_SOCKET;
    control->cmsg_type = SCM_RIGHTS;
    control->cmsg_len = CMSG_LEN(sizeof descriptor);
    memcpy(CMSG_DATA(control), &descriptor, sizeof descriptor);
    return sendmsg(socket, &message.head, 0) == 1;
}

own_fd receive_descriptor(int socket) {
    descriptor_message message;
    int descriptor = -1;
    if (recvmsg(socket, &message.head, MSG_CMSG_CLOEXEC) == 1) {
        if (const cmsghdr *control = CMSG_FIRSTHDR(&message.head)) {
            memcpy(&descriptor, CMSG_DATA(control), sizeof descriptor);
        }
    }
    return own_fd(descriptor);
}

// What the child does once it is prepared. Returns an exit status.
using child_code = std::function<int()>;

// The child's part: from here on nothing may go wrong that the parent would not hear of.
[[noreturn]] void become(const child_code &code, int output, int socket, const sock_fprog *filter) {
    const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
    dup2(nothing, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    if (filter) {
        // Without it only root may have a filter.
        prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
        const auto listener = static_cast<int>(syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER,
                                                       SECCOMP_FILTER_FLAG_NEW_LISTENER, filter));
        if (listener < 0 || !send_descriptor(socket, listener)) {
            _exit(125);
        }
        // Closed with the execution: an operation of this process on it would be asked about there.
    }
    _exit(code());
}

std::string content_of(int descriptor) {
    std::string text(static_cast<size_t>(lseek(descriptor, 0, SEEK_END)), '\0');
    if (pread(descriptor, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
        fail("the output");
    }
    return text;
}

std::vector<std::string> places_without_links;

bool is_refused(const operation &op) {
    static const std::set<std::string> calls = {"link", "symlink", "mknod", "setxattr",
                                                "fsetxattr"};
    return calls.contains(op.call) &&
           (is_in(places_without_links, op.path) || is_in(places_without_links, op.other));
}

// Whether an operation can't succeed on a full disk. To open a file that exists takes no room.
bool takes_room(const operation &op) {
    static const std::set<std::string> calls = {
        "write", "copy_file_range", "sendfile", "fallocate", "mkdir", "link", "symlink", "mknod"};
    return calls.contains(op.call) ||
           (op.call == "open" && op.changes && access(op.path.c_str(), F_OK) != 0);
}

class watcher {
 public:
    watcher(pid_t child, own_fd listener, const std::vector<std::string> &places,
            const disturbance *what, const operation_observer &observer, watched_run *run)
        : child_(child),
          ended_(static_cast<int>(syscall(SYS_pidfd_open, child, 0))),
          listener_(std::move(listener)),
          places_(places),
          what_(what),
          observer_(observer),
          run_(run) {}

    // Answers until the program has ended. That what it started has ended too is its own affair.
    void answer_all() {
        if (!ended_.valid()) {
            fail("pidfd_open");
        }
        for (;;) {
            pollfd waiting[] = {{listener_.get(), POLLIN, 0}, {ended_.get(), POLLIN, 0}};
            if (poll(waiting, 2, -1) < 0 && errno != EINTR) {
                fail("poll");
            }
            if ((waiting[0].revents & POLLIN) != 0) {
                answer_one();
            } else if (waiting[1].revents != 0) {
                return;
            }
        }
    }

 private:
    void answer_one() {
        seccomp_notif request = {};
        if (ioctl(listener_.get(), SECCOMP_IOCTL_NOTIF_RECV, &request) != 0) {
            return;  // who asked is gone
        }
        seccomp_notif_resp answer = {};
        answer.id = request.id;
        answer.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
        if (static_cast<pid_t>(request.pid) == child_) {
            decide(request, &answer);
        }
        ioctl(listener_.get(), SECCOMP_IOCTL_NOTIF_SEND, &answer);
    }

    void decide(const seccomp_notif &request, seccomp_notif_resp *answer) {
        std::optional<operation> op = operation_of(request);
        if (!op || !(is_in(places_, op->path) || is_in(places_, op->other))) {
            return;
        }
        const size_t number = run_->trace.size();
        const bool skipped = what_ && run_->disturbed && what_->then_skipped.contains(op->call);
        run_->trace.push_back(std::move(*op));
        if (observer_) {
            observer_(number, run_->trace.back());
        }
        const operation &now = run_->trace.back();
        if (skipped) {
            answer->flags = 0;
        } else if (what_ && what_->stays && run_->disturbed && takes_room(now)) {
            answer->flags = 0;
            answer->error = -what_->error;
        } else if (what_ && number == what_->at) {
            run_->disturbed = true;
            if (what_->does == disturbance::halves) {
                halve(request, answer);
                return;
            }
            // The killed one gets an answer too, which it doesn't live to see: it may be let go
            // before the signal reaches it, and must not carry out the operation then.
            answer->flags = 0;
            answer->error = -EINTR;
            if (what_->does == disturbance::kills) {
                ::kill(child_, SIGKILL);
            } else {
                answer->error = -what_->error;
            }
        } else if (is_refused(now)) {
            answer->flags = 0;
            answer->error = -EPERM;
        }
    }

    // A descriptor of the process, as one of ours with the same position.
    own_fd borrow(uint64_t number) const {
        return own_fd(
            static_cast<int>(syscall(SYS_pidfd_getfd, ended_.get(), static_cast<int>(number), 0U)));
    }

    // Does half of a call in the name of the process. Leaves the answer as it is when it can't.
    void halve(const seccomp_notif &request, seccomp_notif_resp *answer) const {
        const auto &args = request.data.args;
        ssize_t done = -1;
        if (request.data.nr == SYS_write || request.data.nr == SYS_pwrite64) {
            std::vector<char> bytes(args[2] / 2);
            iovec here = {bytes.data(), bytes.size()};
            // NOLINTNEXTLINE(performance-no-int-to-ptr): an address of the other process
            iovec there = {reinterpret_cast<void *>(static_cast<uintptr_t>(args[1])), bytes.size()};
            const own_fd file = borrow(args[0]);
            if (bytes.empty() || process_vm_readv(child_, &here, 1, &there, 1, 0) !=
                                     static_cast<ssize_t>(bytes.size())) {
                return;
            }
            done = request.data.nr == SYS_write ? write(file.get(), bytes.data(), bytes.size())
                                                : pwrite(file.get(), bytes.data(), bytes.size(),
                                                         static_cast<off_t>(args[3]));
        } else if (request.data.nr == SYS_copy_file_range && args[1] == 0 && args[3] == 0) {
            const own_fd from = borrow(args[0]), to = borrow(args[2]);
            struct stat status;
            // The length that is asked for is often far more than there is.
            if (fstat(from.get(), &status) == 0 && status.st_size > 1) {
                const size_t half =
                    std::min(static_cast<size_t>(args[4]), static_cast<size_t>(status.st_size)) / 2;
                done = copy_file_range(from.get(), nullptr, to.get(), nullptr, half, 0);
            }
        }
        if (done > 0) {
            answer->flags = 0;
            answer->val = done;
        }
    }

    pid_t child_;
    own_fd ended_;
    own_fd listener_;
    const std::vector<std::string> &places_;
    const disturbance *what_;
    const operation_observer &observer_;
    watched_run *run_;
};

watched_run run(const child_code &code, const std::vector<std::string> *places,
                const disturbance *what, const operation_observer &observer = nullptr) {
    std::vector<sock_filter> steps = make_filter();
    const sock_fprog filter = {static_cast<unsigned short>(steps.size()), steps.data()};
    const own_fd output(memfd_create("output", MFD_CLOEXEC));
    int sockets[2];
    if (!output.valid() || socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0) {
        fail("a run can't be prepared");
    }
    own_fd ours(sockets[0]), childs(sockets[1]);
    const pid_t child = fork();
    if (child < 0) {
        fail("fork");
    }
    if (child == 0) {
        become(code, output.get(), childs.get(), places ? &filter : nullptr);
    }
    childs = own_fd();

    watched_run result;
    if (places) {
        own_fd listener = receive_descriptor(ours.get());
        if (listener.valid()) {
            watcher(child, std::move(listener), *places, what, observer, &result).answer_all();
        } else {
            ::kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
            throw std::runtime_error(
                "the kernel does not let a process ask about its calls (seccomp's user "
                "notification, as root)");
        }
    }
    if (waitpid(child, &result.status, 0) != child) {
        fail("waitpid");
    }
    result.output = content_of(output.get());
    return result;
}

}  // namespace

std::function<int()> execution_of(const std::vector<std::string> &command) {
    std::vector<char *> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string &argument : command) {
        arguments.push_back(const_cast<char *>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    return [arguments] {
        execv(arguments[0], arguments.data());
        return 127;
    };
}

watched_run run_watched(const std::vector<std::string> &command,
                        const std::vector<std::string> &places, const disturbance *what) {
    return run(execution_of(command), &places, what);
}

void refuse_links_below(const std::string &directory) {
    places_without_links.push_back(directory);
}

watched_run run_watched(const std::function<int()> &code, const std::vector<std::string> &places,
                        const operation_observer &observer) {
    return run(code, &places, nullptr, observer);
}

watched_run run_alone(const std::function<int()> &code) {
    return run(code, nullptr, nullptr);
}

watched_run run_alone(const std::vector<std::string> &command) {
    return run(execution_of(command), nullptr, nullptr);
}
