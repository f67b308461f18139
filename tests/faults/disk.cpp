#include "faults/disk.h"

#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include "faults/tracer.h"
#include "support/own.h"

namespace {

[[noreturn]] void fail(const std::string &what) {
    throw std::system_error(errno, std::generic_category(), what);
}

constexpr off_t mebibyte = 1 << 20;
constexpr unsigned loop_major = 7, misc_major = 10, loop_control = 237;

// Configures a free loop device. It lives as long as the descriptor or a mount of it.
own_fd attach(const std::string &file, bool direct, std::string *node) {
    const own_fd backing(open(file.c_str(), O_RDWR | O_CLOEXEC | (direct ? O_DIRECT : 0)));
    make_device("/dev/loop-control", S_IFCHR, misc_major, loop_control);
    const own_fd control(open("/dev/loop-control", O_RDWR | O_CLOEXEC));
    if (!backing.valid() || !control.valid()) {
        fail("cannot open " + file + " or /dev/loop-control");
    }
    loop_config wanted = {};
    wanted.fd = static_cast<unsigned>(backing.get());
    wanted.info.lo_flags = LO_FLAGS_AUTOCLEAR | (direct ? LO_FLAGS_DIRECT_IO : 0);
    // Others take loop devices, too: one that was free can be taken when we come to it.
    for (int attempt = 0; attempt < 1000; attempt++) {
        const int number = ioctl(control.get(), LOOP_CTL_GET_FREE);
        if (number < 0) {
            fail("no free loop device");
        }
        *node = "/dev/loop" + std::to_string(number);
        make_device(*node, S_IFBLK, loop_major, static_cast<unsigned>(number));
        own_fd device(open(node->c_str(), O_RDWR | O_CLOEXEC));
        if (device.valid() && ioctl(device.get(), LOOP_CONFIGURE, &wanted) == 0) {
            return device;
        }
        if (errno != EBUSY && errno != ENXIO) {
            fail("cannot set up " + *node);
        }
    }
    fail("no free loop device");
}

}  // namespace

void make_device(const std::string &path, mode_t type, unsigned major_number,
                 unsigned minor_number) {
    if (access(path.c_str(), F_OK) != 0 &&
        mknod(path.c_str(), type | 0600, makedev(major_number, minor_number)) != 0 &&
        errno != EEXIST) {
        fail("cannot make " + path);
    }
}

const disk_format &format_named(const std::string &name) {
    static const std::vector<disk_format> formats = {
        {"ext4",
         64 * mebibyte,
         {"/sbin/mkfs.ext4", "-q", "-F", "-b", "4096", "-J", "size=4", "-E", "lazy_itable_init=0"},
         ""},
        // Smaller ones are refused.
        {"xfs", 300 * mebibyte, {"/sbin/mkfs.xfs", "-q", "-f"}, "nouuid"},
        {"btrfs", 128 * mebibyte, {"/sbin/mkfs.btrfs", "-q", "-f"}, ""},
    };
    for (const disk_format &format : formats) {
        if (format.name == name) {
            return format;
        }
    }
    throw std::runtime_error("no such file system: " + name);
}

void make_file_system(const disk_format &format, const std::string &file) {
    const own_fd made(open(file.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    if (!made.valid() || ftruncate(made.get(), format.size) != 0) {
        fail("cannot make " + file);
    }
    std::vector<std::string> command = format.maker;
    command.push_back(file);
    const watched_run run = run_alone(command);
    if (run.status != 0) {
        throw std::runtime_error(command[0] + " failed: " + run.output);
    }
}

mounted_disk::mounted_disk(const disk_format &format, const std::string &file,
                           const std::string &directory, bool direct)
    : directory_(directory) {
    std::string node;
    const own_fd device = attach(file, direct, &node);
    if (mount(node.c_str(), directory.c_str(), format.name.c_str(), MS_NOATIME,
              format.options.c_str()) != 0) {
        fail("cannot mount " + file);
    }
}

mounted_disk::~mounted_disk() {
    // A file system that something still uses goes with its last user.
    if (umount2(directory_.c_str(), 0) != 0) {
        umount2(directory_.c_str(), MNT_DETACH);
    }
}

static bool is_zero(const char *bytes, size_t length) {
    return bytes[0] == 0 && memcmp(bytes, bytes + 1, length - 1) == 0;
}

void copy_with_holes(const std::string &from, const std::string &to) {
    const own_fd source(open(from.c_str(), O_RDONLY | O_CLOEXEC));
    const own_fd target(open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    struct stat status;
    if (!source.valid() || !target.valid() || fstat(source.get(), &status) != 0 ||
        ftruncate(target.get(), status.st_size) != 0) {
        fail("cannot copy " + from + " to " + to);
    }
    std::vector<char> block(16 * 1024);
    off_t end = 0;
    for (;;) {
        const off_t start = lseek(source.get(), end, SEEK_DATA);
        if (start < 0) {
            return;  // holes up to the end
        }
        end = lseek(source.get(), start, SEEK_HOLE);
        for (off_t at = start; at < end;) {
            const size_t wanted = std::min(block.size(), static_cast<size_t>(end - at));
            const ssize_t got = pread(source.get(), block.data(), wanted, at);
            if (got > 0 && is_zero(block.data(), static_cast<size_t>(got))) {
                at += got;
                continue;
            }
            if (got <= 0 ||
                pwrite(target.get(), block.data(), static_cast<size_t>(got), at) != got) {
                fail("cannot copy " + from + " to " + to);
            }
            at += got;
        }
    }
}
