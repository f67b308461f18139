// The file operations of a process, as the kernel is asked for them.
#pragma once

#include <linux/seccomp.h>

#include <optional>
#include <string>
#include <vector>

struct operation {
    std::string call;   // the system call, such as "rename"
    std::string path;   // absolute
    std::string other;  // the second path of a rename or a hard link, else empty
    bool changes;       // whether it changes a file, or only reads
};

// "rename /a/b -> /a/c"
std::string text_of(const operation &op);

// The numbers of all calls that `operation_of` can tell.
const std::vector<int> &watched_calls();

// What a process is asking for. None when it is no operation on a file that has a path: an
// operation on a pipe, one by a descriptor that is only looked at, a flag that is only tested.
std::optional<operation> operation_of(const seccomp_notif &request);
