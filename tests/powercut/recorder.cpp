// A file system of two files, in front of a disk image. `disk` is the image; a loop device on it
// makes a disk of which each write and each flush goes into a record, in the order in which they
// arrive. What is written to `marks` goes into the record too, before the write returns, so that
// the output of a program has its place between the writes of the disk.
//
// One thread serves all: the record has one order.
#define FUSE_USE_VERSION 35

#include <fcntl.h>
#include <fuse3/fuse_lowlevel.h>
#include <linux/falloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "powercut/record.h"
#include "support/own.h"

namespace {

constexpr fuse_ino_t disk_inode = 2, marks_inode = 3;
// Attributes that the kernel may keep: nobody but us changes the files.
constexpr double for_ever = 86'400;

struct recorder {
    own_fd image, record;
    off_t size = 0;
};

recorder *recorder_of(fuse_req_t request) {
    return static_cast<recorder *>(fuse_req_userdata(request));
}

struct stat attributes_of(const recorder &us, fuse_ino_t inode) {
    struct stat status = {};
    status.st_ino = inode;
    status.st_nlink = 1;
    status.st_mode = inode == FUSE_ROOT_ID ? S_IFDIR | 0700 : S_IFREG | 0600;
    status.st_size = inode == disk_inode ? us.size : 0;
    status.st_blksize = 4096;
    return status;
}

// Answers with 0 or the reason why the record could not take an entry.
int append(const recorder &us, entry_kind kind, off_t offset, std::string_view bytes,
           uint64_t zeros = 0) {
    try {
        append_entry(us.record.get(), kind, static_cast<uint64_t>(offset), bytes, zeros);
        return 0;
    } catch (const std::exception &problem) {
        fprintf(stderr, "recorder: %s\n", problem.what());
        return EIO;
    }
}

void look_up(fuse_req_t request, fuse_ino_t parent, const char *name) {
    fuse_entry_param entry = {};
    const std::string wanted = name;
    entry.ino = wanted == "disk" ? disk_inode : wanted == "marks" ? marks_inode : 0;
    if (parent != FUSE_ROOT_ID || entry.ino == 0) {
        fuse_reply_err(request, ENOENT);
        return;
    }
    entry.attr = attributes_of(*recorder_of(request), entry.ino);
    entry.attr_timeout = for_ever;
    entry.entry_timeout = for_ever;
    fuse_reply_entry(request, &entry);
}

void get_attributes(fuse_req_t request, fuse_ino_t inode, fuse_file_info * /*file*/) {
    const struct stat status = attributes_of(*recorder_of(request), inode);
    fuse_reply_attr(request, &status, for_ever);
}

void set_attributes(fuse_req_t request, fuse_ino_t inode, struct stat * /*wanted*/, int /*which*/,
                    fuse_file_info *file) {
    get_attributes(request, inode, file);
}

void open_file(fuse_req_t request, fuse_ino_t /*inode*/, fuse_file_info *file) {
    // Nothing of the files stays in the kernel's memory: a write arrives when it is made.
    file->direct_io = 1;
    fuse_reply_open(request, file);
}

void read_file(fuse_req_t request, fuse_ino_t inode, size_t size, off_t offset,
               fuse_file_info * /*file*/) {
    std::vector<char> bytes(inode == disk_inode ? size : 0);
    const ssize_t got =
        pread(recorder_of(request)->image.get(), bytes.data(), bytes.size(), offset);
    if (got < 0) {
        fuse_reply_err(request, errno);
        return;
    }
    fuse_reply_buf(request, bytes.data(), static_cast<size_t>(got));
}

void write_file(fuse_req_t request, fuse_ino_t inode, const char *bytes, size_t size, off_t offset,
                fuse_file_info * /*file*/) {
    const recorder &us = *recorder_of(request);
    const bool is_disk = inode == disk_inode;
    if (is_disk && pwrite(us.image.get(), bytes, size, offset) != static_cast<ssize_t>(size)) {
        fuse_reply_err(request, EIO);
        return;
    }
    const int problem =
        append(us, is_disk ? entry_kind::write : entry_kind::mark, offset, {bytes, size});
    if (problem != 0) {
        fuse_reply_err(request, problem);
        return;
    }
    fuse_reply_write(request, size);
}

void sync_file(fuse_req_t request, fuse_ino_t inode, int /*data_only*/, fuse_file_info * /*file*/) {
    const recorder &us = *recorder_of(request);
    fuse_reply_err(request, inode == disk_inode ? append(us, entry_kind::flush, 0, {}) : 0);
}

// A discard of the disk, or a range of zeros.
void allocate(fuse_req_t request, fuse_ino_t inode, int mode, off_t offset, off_t length,
              fuse_file_info * /*file*/) {
    const recorder &us = *recorder_of(request);
    constexpr int holes = FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE;
    if (inode != disk_inode || (mode & (FALLOC_FL_PUNCH_HOLE | FALLOC_FL_ZERO_RANGE)) == 0) {
        fuse_reply_err(request, EOPNOTSUPP);
        return;
    }
    if (fallocate(us.image.get(), holes, offset, length) != 0) {
        fuse_reply_err(request, errno);
        return;
    }
    fuse_reply_err(request,
                   append(us, entry_kind::zero, offset, {}, static_cast<uint64_t>(length)));
}

int serve(recorder *us, const char *mount_point) {
    fuse_lowlevel_ops operations = {};
    operations.lookup = look_up;
    operations.getattr = get_attributes;
    operations.setattr = set_attributes;
    operations.open = open_file;
    operations.read = read_file;
    operations.write = write_file;
    operations.fsync = sync_file;
    operations.fallocate = allocate;

    char name[] = "recorder", option[] = "-o", value[] = "fsname=recorder";
    char *words[] = {name, option, value, nullptr};
    fuse_args arguments = {3, words, 0};
    fuse_session *session = fuse_session_new(&arguments, &operations, sizeof operations, us);
    if (!session) {
        return 1;
    }
    int status = 1;
    if (fuse_set_signal_handlers(session) == 0) {
        if (fuse_session_mount(session, mount_point) == 0) {
            status = fuse_session_loop(session) == 0 ? 0 : 1;
            fuse_session_unmount(session);
        }
        fuse_remove_signal_handlers(session);
    }
    fuse_session_destroy(session);
    fuse_opt_free_args(&arguments);
    return status;
}

}  // namespace

int main(int count, char **arguments) {
    if (count != 4) {
        fputs("Usage: vrm_recorder IMAGE RECORD MOUNT_POINT\n", stderr);
        return 2;
    }
    recorder us;
    us.image = own_fd(open(arguments[1], O_RDWR | O_CLOEXEC));
    us.record =
        own_fd(open(arguments[2], O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600));
    struct stat status;
    if (!us.image.valid() || !us.record.valid() || fstat(us.image.get(), &status) != 0) {
        fprintf(stderr, "recorder: cannot open %s or %s: %s\n", arguments[1], arguments[2],
                strerror(errno));
        return 1;
    }
    us.size = status.st_size;
    return serve(&us, arguments[3]);
}
