#include "support/file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "support/array.h"
#include "support/own.h"

// What is missing behind the file's bytes for callers that terminate the text or append to it.
static constexpr size_t spare_bytes = 10;

// False with a reason in errno.
static bool expect_regular(const struct stat &status) {
    if (!S_ISREG(status.st_mode)) {
        errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
        return false;
    }
    return true;
}

static bool same_file(const struct stat &a, const struct stat &b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

own_fd open_regular(const char *path, struct stat *status, const char **why) {
    struct stat own;
    struct stat *const found = status ? status : &own;
    *found = {};
    // What is no regular file isn't even opened: that rewinds a tape and sets off a watchdog. Nor
    // does it help to exchange the file after this look at it: without O_NONBLOCK the open of a
    // pipe would wait for a writer.
    own_fd file;
    if (stat(path, found) == 0 && expect_regular(*found)) {
        file = own_fd(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
        if (file.valid() && (fstat(file.get(), found) != 0 || !expect_regular(*found))) {
            file = own_fd();
        }
    }
    if (!file.valid() && why) {
        const bool other = found->st_mode != 0 && !S_ISREG(found->st_mode);
        *why = other ? "Not a regular file" : strerror(errno);
    }
    return file;
}

bool is_missing(const char *path) {
    struct stat status;
    return stat(path, &status) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

bool path_exists(const std::string &path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0;
}

std::string directory_of(std::string_view path) {
    const size_t slash = path.rfind('/');
    return slash == 0 || slash == std::string_view::npos ? "/" : std::string(path.substr(0, slash));
}

unsigned char type_of_entry(DIR *dir, const dirent &entry) {
    struct stat status;
    if (entry.d_type != DT_UNKNOWN ||
        fstatat(dirfd(dir), entry.d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return entry.d_type;
    }
    return static_cast<unsigned char>(IFTODT(status.st_mode));
}

ssize_t read_some(int fd, void *to, size_t size) {
    ssize_t got;
    do {
        got = read(fd, to, size);
    } while (got < 0 && errno == EINTR);
    return got;
}

bool write_all(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        errno = ENOSPC;  // for a write of nothing
        const ssize_t written = write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

// The kernel copies by itself where it can: no bytes pass through here, and some file systems share
// the blocks. It stops at the first refusal; whatever is left is for the caller to copy.
static uint64_t copy_in_kernel(int from, int to) {
    constexpr size_t at_once = size_t{1} << 30;
    uint64_t total = 0;
    ssize_t done;
    while ((done = copy_file_range(from, nullptr, to, nullptr, at_once, 0)) > 0) {
        total += static_cast<uint64_t>(done);
    }
    return total;
}

copy_end copy_open_file(int from, int to, uint64_t *copied) {
    *copied = copy_in_kernel(from, to);
    // Only a read tells the end: files of /proc and the like look empty to the kernel's copy.
    std::vector<char> block(size_t{128} * 1024);
    for (;;) {
        const ssize_t got = read_some(from, block.data(), block.size());
        if (got <= 0) {
            return got == 0 ? copy_end::complete : copy_end::not_read;
        }
        if (!write_all(to, {block.data(), static_cast<size_t>(got)})) {
            return copy_end::not_written;
        }
        *copied += static_cast<uint64_t>(got);
    }
}

FILE *fopen_regular(const char *path, struct stat *status, const char **why) {
    own_file file = open_regular(path, status, why).stream("r");
    return file.release();
}

// Opens the target of a copy and empties it, unless it is the very file that is being read.
static own_file open_target(const char *path, const struct stat &source, mode_t permissions) {
    own_fd fd(open(path, O_WRONLY | O_CREAT | O_NONBLOCK | O_CLOEXEC | O_NOCTTY, permissions));
    struct stat status;
    if (!fd.valid() || fstat(fd.get(), &status) != 0 || !expect_regular(status)) {
        return nullptr;
    }
    if (same_file(status, source)) {
        errno = EINVAL;
        return nullptr;
    }
    if (ftruncate(fd.get(), 0) != 0) {
        return nullptr;
    }
    return fd.stream("w");
}

// A file that gets its permissions after the copy is nobody else's to read until then.
static mode_t creation_mode(bool set_later) {
    return set_later ? 0600 : 0666;
}

// The bytes from one stream to the other; false unless all of them arrived.
static bool copy_bytes(FILE *from, FILE *to, uint64_t *copied) {
    std::array<char, 65536> block;
    *copied = 0;
    for (;;) {
        const size_t got = fread(block.data(), 1, block.size(), from);
        if (fwrite(block.data(), 1, got, to) != got) {
            return false;
        }
        *copied += got;
        if (got < block.size()) {
            return !ferror(from) && fflush(to) == 0;
        }
    }
}

// A block for a file's bytes and some more; null with a reason in errno.
static own_string block_for(const struct stat &status) {
    if (static_cast<uintmax_t>(status.st_size) > PTRDIFF_MAX - spare_bytes) {
        errno = EFBIG;
        return nullptr;
    }
    return own_string(
        static_cast<char *>(malloc(static_cast<size_t>(status.st_size) + spare_bytes)));
}

// The content of an open file that is known to be regular. No stream: its buffer and the system
// calls that set it up would cost as much as the reading of a small file, and an inventory has
// thousands of them.
static char *read_content(const own_fd &file, const struct stat &status, size_t *length) {
    const auto size = static_cast<size_t>(status.st_size);
    own_string block = block_for(status);
    if (!block) {
        return nullptr;
    }
    for (size_t done = 0; done < size;) {
        const ssize_t got = read_some(file.get(), block.get() + done, size - done);
        if (got <= 0) {
            return nullptr;
        }
        done += static_cast<size_t>(got);
    }
    *length = size;
    return block.release();
}

char *_read_file(const char *path, size_t *length) {
    *length = 0;
    struct stat status;
    const own_fd file = open_regular(path, &status);
    return file.valid() ? read_content(file, status, length) : nullptr;
}

char *read_file_at(int dir, const char *path, size_t *length, struct stat *status) {
    *length = 0;
    struct stat own;
    struct stat *const found = status ? status : &own;
    const own_fd file(openat(dir, path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    if (!file.valid() || fstat(file.get(), found) != 0 || !expect_regular(*found)) {
        return nullptr;
    }
    return read_content(file, *found, length);
}

char **read_file_lines(const char *path, int *count) {
    *count = 0;
    struct stat status;
    own_file file(fopen_regular(path, &status));
    if (!file) {
        return nullptr;
    }
    if (status.st_size == 0) {
        errno = 0;
        return nullptr;
    }
    const auto size = static_cast<size_t>(status.st_size);
    const own_string line = block_for(status);
    if (!line) {
        return nullptr;
    }
    // A limit of 1 would read nothing for ever.
    const int limit = static_cast<int>(std::clamp<size_t>(size, 2, INT_MAX));
    own_array lines;
    int found = 0, capacity = 100;
    while (fgets(line.get(), limit, file.get())) {
        const size_t end = strlen(line.get());
        if (end > 0 && line.get()[end - 1] == '\n') {
            line.get()[end - 1] = '\0';
        }
        char **grown = lines.release();
        const int now = arr_t21_add(&grown, line.get(), found, &capacity);
        lines.reset(grown);
        if (now == found) {
            errno = ENOMEM;
            return nullptr;
        }
        found = now;
    }
    if (ferror(file.get())) {
        return nullptr;
    }
    if (found == 0) {
        errno = 0;  // it was emptied meanwhile
    }
    *count = found;
    return lines.release();
}

int32_t file_copy(const char *target, const char *source, int mode) {
    struct stat status;
    own_file from(fopen_regular(source, &status));
    if (!from) {
        return -1;
    }
    own_file to = open_target(target, status, creation_mode(mode > 0));
    uint64_t copied;
    if (!to || !copy_bytes(from.get(), to.get(), &copied)) {
        return -1;
    }
    if (mode > 0) {
        const mode_t permissions = mode == 1 ? status.st_mode : static_cast<mode_t>(mode);
        // A file system without permissions is no reason to fail.
        (void)!fchmod(fileno(to.get()), permissions & 07777);
    }
    return fclose(to.release()) == 0 ? told_bytes(copied) : -1;
}

// One copy of file_copy_back, with its messages and its result. `permissions` null leaves those of
// a new file.
static int32_t copy_loudly(FILE *from, const struct stat &status, const char *target,
                           const mode_t *permissions) {
    own_file to = open_target(target, status, creation_mode(permissions != nullptr));
    if (!to) {
        fprintf(stderr, "Failed to open %s for writing: %s\n", target, strerror(errno));
        return -1;
    }
    uint64_t copied;
    bool complete = copy_bytes(from, to.get(), &copied);
    if (complete && permissions && fchmod(fileno(to.get()), *permissions & 07777) != 0) {
        fprintf(stderr, "Failed to set permission on %s: %s\n", target, strerror(errno));
    }
    complete = fclose(to.release()) == 0 && complete;
    if (!complete) {
        fprintf(stderr, "Failed to write %s: %s\n", target, strerror(errno));
        return -1;
    }
    return told_bytes(copied);
}

static own_file open_loudly(const char *path, struct stat *status) {
    const char *why = nullptr;
    own_file file = open_regular(path, status, &why).stream("r");
    if (!file) {
        fprintf(stderr, "Failed to open %s for reading: %s\n", path, why ? why : strerror(errno));
    }
    return file;
}

static bool back_up(const char *path, const char *backup) {
    struct stat status;
    const own_file from = open_loudly(path, &status);
    return from && copy_loudly(from.get(), status, backup, &status.st_mode) >= 0;
}

int32_t file_copy_back(const char *target, const char *source, const char *backup, int mode) {
    struct stat status;
    if (stat(source, &status) != 0) {
        fprintf(stderr, "Failed to stat %s: %s\n", source, strerror(errno));
        return -1;
    }
    struct stat present;
    const bool stands = stat(target, &present) == 0;
    if (stands && !S_ISREG(present.st_mode)) {
        fprintf(stderr, "%s is not a regular file, refusing to remove it\n", target);
        return -1;
    }
    if (stands && backup && !back_up(target, backup)) {
        return -1;
    }
    const own_file from = open_loudly(source, &status);
    if (!from) {
        return -1;
    }
    if (stands) {
        unlink(target);
    }
    const mode_t permissions = mode == 1 ? status.st_mode : static_cast<mode_t>(mode);
    return copy_loudly(from.get(), status, target, mode >= 1 ? &permissions : nullptr);
}
