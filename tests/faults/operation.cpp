#include "faults/operation.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>

namespace {

// Where a call has its path: the arguments by their places, -1 for none.
struct shape {
    const char *name;
    int directory;  // a descriptor to which a relative path refers
    int path;
    int descriptor;  // instead of a path
    int other_directory;
    int other;
    enum { reads, changes, by_flags } effect;
    int flags;  // of an open
};

shape by_path(const char *name, decltype(shape::effect) effect, int path = 0, int directory = -1) {
    return {name, directory, path, -1, -1, -1, effect, -1};
}

shape by_descriptor(const char *name, decltype(shape::effect) effect, int descriptor = 0) {
    return {name, -1, -1, descriptor, -1, -1, effect, -1};
}

// Architectures that came later lack the older calls.
const std::map<int, shape> &shapes() {
    static const std::map<int, shape> all = {
#ifdef SYS_open
        {SYS_open, {"open", -1, 0, -1, -1, -1, shape::by_flags, 1}},
        {SYS_creat, by_path("creat", shape::changes)},
        {SYS_rename, {"rename", -1, 0, -1, -1, 1, shape::changes, -1}},
        {SYS_unlink, by_path("unlink", shape::changes)},
        {SYS_mkdir, by_path("mkdir", shape::changes)},
        {SYS_rmdir, by_path("rmdir", shape::changes)},
        {SYS_link, {"link", -1, 0, -1, -1, 1, shape::changes, -1}},
        {SYS_symlink, by_path("symlink", shape::changes, 1)},
        {SYS_chmod, by_path("chmod", shape::changes)},
        {SYS_chown, by_path("chown", shape::changes)},
        {SYS_lchown, by_path("lchown", shape::changes)},
        {SYS_access, by_path("access", shape::reads)},
        {SYS_readlink, by_path("readlink", shape::reads)},
        {SYS_stat, by_path("stat", shape::reads)},
        {SYS_lstat, by_path("lstat", shape::reads)},
#endif
#ifdef SYS_utime
        {SYS_utime, by_path("utimens", shape::changes)},
        {SYS_utimes, by_path("utimens", shape::changes)},
        {SYS_chown, by_path("chown", shape::changes)},
        {SYS_mknod, by_path("mknod", shape::changes)},
#endif
#ifdef SYS_stat64
        {SYS_stat64, by_path("stat", shape::reads)},
        {SYS_lstat64, by_path("lstat", shape::reads)},
#endif
#ifdef SYS_fstatat64
        {SYS_fstatat64, by_path("stat", shape::reads, 1, 0)},
#endif
#ifdef SYS_newfstatat
        {SYS_newfstatat, by_path("stat", shape::reads, 1, 0)},
#endif
#ifdef SYS_statx
        {SYS_statx, by_path("stat", shape::reads, 1, 0)},
#endif
#ifdef SYS_renameat
        {SYS_renameat, {"rename", 0, 1, -1, 2, 3, shape::changes, -1}},
#endif
#ifdef SYS_ftruncate64
        {SYS_ftruncate64, by_descriptor("ftruncate", shape::changes)},
        {SYS_truncate64, by_path("truncate", shape::changes)},
#endif
#ifdef SYS_sendfile64
        {SYS_sendfile64, by_descriptor("sendfile", shape::changes)},
#endif
#ifdef SYS_fchmodat2
        {SYS_fchmodat2, by_path("chmod", shape::changes, 1, 0)},
#endif
#ifdef SYS_faccessat2
        {SYS_faccessat2, by_path("access", shape::reads, 1, 0)},
#endif
        {SYS_openat, {"open", 0, 1, -1, -1, -1, shape::by_flags, 2}},
        {SYS_renameat2, {"rename", 0, 1, -1, 2, 3, shape::changes, -1}},
        {SYS_unlinkat, by_path("unlink", shape::changes, 1, 0)},
        {SYS_mkdirat, by_path("mkdir", shape::changes, 1, 0)},
        {SYS_linkat, {"link", 0, 1, -1, 2, 3, shape::changes, -1}},
        {SYS_symlinkat, by_path("symlink", shape::changes, 2, 1)},
        {SYS_fchmodat, by_path("chmod", shape::changes, 1, 0)},
        {SYS_fchownat, by_path("chown", shape::changes, 1, 0)},
        {SYS_utimensat, by_path("utimens", shape::changes, 1, 0)},
        {SYS_faccessat, by_path("access", shape::reads, 1, 0)},
        {SYS_readlinkat, by_path("readlink", shape::reads, 1, 0)},
        {SYS_truncate, by_path("truncate", shape::changes)},
        {SYS_ftruncate, by_descriptor("ftruncate", shape::changes)},
        {SYS_fallocate, by_descriptor("fallocate", shape::changes)},
        {SYS_write, by_descriptor("write", shape::changes)},
        {SYS_writev, by_descriptor("write", shape::changes)},
        {SYS_pwrite64, by_descriptor("write", shape::changes)},
        {SYS_pwritev, by_descriptor("write", shape::changes)},
        {SYS_copy_file_range, by_descriptor("copy_file_range", shape::changes, 2)},
        {SYS_sendfile, by_descriptor("sendfile", shape::changes)},
        {SYS_fchmod, by_descriptor("fchmod", shape::changes)},
        {SYS_fchown, by_descriptor("fchown", shape::changes)},
        {SYS_fsetxattr, by_descriptor("fsetxattr", shape::changes)},
        {SYS_fremovexattr, by_descriptor("fremovexattr", shape::changes)},
        {SYS_setxattr, by_path("setxattr", shape::changes)},
        {SYS_lsetxattr, by_path("setxattr", shape::changes)},
        {SYS_removexattr, by_path("removexattr", shape::changes)},
        {SYS_lremovexattr, by_path("removexattr", shape::changes)},
        {SYS_mknodat, by_path("mknod", shape::changes, 1, 0)},
        {SYS_pwritev2, by_descriptor("write", shape::changes)},
        {SYS_syncfs, by_descriptor("syncfs", shape::changes)},
        {SYS_flistxattr, by_descriptor("flistxattr", shape::reads)},
        {SYS_fgetxattr, by_descriptor("fgetxattr", shape::reads)},
        {SYS_fsync, by_descriptor("fsync", shape::changes)},
        {SYS_fdatasync, by_descriptor("fsync", shape::changes)},
        {SYS_close, by_descriptor("close", shape::by_flags)},
        {SYS_read, by_descriptor("read", shape::reads)},
        {SYS_readv, by_descriptor("read", shape::reads)},
        {SYS_pread64, by_descriptor("read", shape::reads)},
        {SYS_getdents64, by_descriptor("readdir", shape::reads)},
    };
    return all;
}

// The process stands still while it is asked about, so what is read here is what the call will see.
std::string text_at(pid_t pid, uint64_t address) {
    std::string text;
    while (address != 0 && text.size() < PATH_MAX) {
        char block[256];
        // Up to the next boundary: what lies behind it may not be there.
        const size_t length = sizeof block - address % sizeof block;
        iovec here = {block, length};
        // NOLINTNEXTLINE(performance-no-int-to-ptr): an address of the other process
        iovec there = {reinterpret_cast<void *>(static_cast<uintptr_t>(address)), length};
        const ssize_t got = process_vm_readv(pid, &here, 1, &there, 1, 0);
        if (got <= 0) {
            break;
        }
        const std::string part(block, strnlen(block, static_cast<size_t>(got)));
        text += part;
        if (part.size() < static_cast<size_t>(got)) {
            break;
        }
        address += static_cast<uint64_t>(got);
    }
    return text;
}

std::string in_proc(pid_t pid, const std::string &what) {
    return "/proc/" + std::to_string(pid) + "/" + what;
}

std::string link_of(const std::string &path) {
    char target[PATH_MAX];
    const ssize_t length = readlink(path.c_str(), target, sizeof target);
    return length < 0 ? "" : std::string(target, static_cast<size_t>(length));
}

// Empty for a pipe, a socket, and the like.
std::string path_of_descriptor(pid_t pid, int descriptor) {
    std::string path = link_of(in_proc(pid, "fd/" + std::to_string(descriptor)));
    return path.starts_with('/') ? path : "";
}

bool is_for_writing(int flags) {
    return (flags & O_ACCMODE) != O_RDONLY || (flags & (O_CREAT | O_TRUNC)) != 0;
}

bool is_open_for_writing(pid_t pid, int descriptor) {
    std::ifstream info(in_proc(pid, "fdinfo/" + std::to_string(descriptor)));
    for (std::string word; info >> word;) {
        if (word == "flags:" && info >> word) {
            return (strtol(word.c_str(), nullptr, 8) & O_ACCMODE) != O_RDONLY;
        }
    }
    return false;
}

class request_reader {
 public:
    explicit request_reader(const seccomp_notif &request)
        : pid_(static_cast<pid_t>(request.pid)), data_(request.data) {}

    std::string path(int directory, int path) const {
        std::string text = text_at(pid_, argument(path));
        if (text.empty() || text.starts_with('/')) {
            return text;
        }
        const int base = directory < 0 ? AT_FDCWD : static_cast<int>(argument(directory));
        const std::string from =
            base == AT_FDCWD ? link_of(in_proc(pid_, "cwd")) : path_of_descriptor(pid_, base);
        return text == "." ? from : from + "/" + text;
    }
    std::string descriptor(int place) const {
        return path_of_descriptor(pid_, static_cast<int>(argument(place)));
    }
    uint64_t argument(int place) const {
        return data_.args[place];
    }
    bool closes_what_it_wrote() const {
        return is_open_for_writing(pid_, static_cast<int>(argument(0)));
    }

 private:
    pid_t pid_;
    const seccomp_data &data_;
};

}  // namespace

std::string text_of(const operation &op) {
    return op.call + " " + op.path + (op.other.empty() ? "" : " -> " + op.other);
}

const std::vector<int> &watched_calls() {
    static const std::vector<int> calls = [] {
        std::vector<int> numbers;
        for (const auto &[number, form] : shapes()) {
            numbers.push_back(number);
        }
        return numbers;
    }();
    return calls;
}

std::optional<operation> operation_of(const seccomp_notif &request) {
    const auto found = shapes().find(request.data.nr);
    if (found == shapes().end()) {
        return std::nullopt;
    }
    const shape &form = found->second;
    const request_reader reader(request);
    operation op = {form.name, {}, {}, form.effect == shape::changes};
    op.path = form.path >= 0 ? reader.path(form.directory, form.path)
                             : reader.descriptor(form.descriptor);
    if (op.path.empty()) {
        return std::nullopt;
    }
    if (form.other >= 0) {
        op.other = reader.path(form.other_directory, form.other);
    }
    if (form.flags >= 0) {
        const int flags = static_cast<int>(reader.argument(form.flags));
        if ((flags & O_PATH) != 0) {
            return std::nullopt;
        }
        op.changes = is_for_writing(flags);
        if (!op.changes) {
            op.call = "look into";
        }
    } else if (form.effect == shape::by_flags) {
        if (!reader.closes_what_it_wrote()) {
            return std::nullopt;
        }
        op.changes = true;
    }
    if (request.data.nr == SYS_unlinkat && (reader.argument(2) & AT_REMOVEDIR) != 0) {
        op.call = "rmdir";
    }
    return op;
}
