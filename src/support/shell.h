// Running command lines.
#pragma once

#include <sys/types.h>

#include <optional>

// Whether what is written to a descriptor can reach nobody any more: a pipe whose reader is gone, a
// terminal that went away.
bool nobody_reads(int fd);

// Runs a command line by /bin/sh and waits for its end, as `system` does. Result: the raw wait
// status, which is that of an exit with 127 when there is no shell; nothing, with the reason in
// `errno`, when no process could be made or waited for. Unlike there, an interruption (SIGINT) that
// the program handles arrives while the command runs, too; and a command whose stdout or stderr can
// reach nobody writes to /dev/null instead: with SIGPIPE ignored, as a program ignores it that must
// go on, it would else fail at what it writes.
std::optional<int> run_shell(const char *line);

// Is called for each shell that run_shell starts while the object exists. Of several objects only
// the newest is called. Neither function may throw.
class shell_watcher {
 public:
    shell_watcher();
    virtual ~shell_watcher();
    shell_watcher(const shell_watcher &) = delete;
    shell_watcher &operator=(const shell_watcher &) = delete;

    // The process is there and does nothing before this returns. If the program dies first, the
    // process ends without running the command.
    virtual void begins(pid_t shell) = 0;

    // The shell ended; what it started in the background may still run.
    virtual void ended() = 0;

 private:
    shell_watcher *const before_;
};
