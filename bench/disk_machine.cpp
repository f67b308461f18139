#include "bench/disk_machine.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "bench/bench.h"
#include "bench/many_files.h"

namespace fs = std::filesystem;

namespace {

const std::string root = "/var/tmp/vrm-bench/disk";

// The file system is complete before it is mounted (no lazy initialization in the background), and
// its blocks are allocated below, so that the first write of a block costs what later ones do.
std::string making(const std::string &image) {
    return "set -e\n"
           "image=" +
           image + " root=" + root +
           "\n"
           "fallocate -l 2G \"$image\"\n"
           "mkfs.ext4 -q -F -N 400000 -E nodiscard,lazy_itable_init=0,lazy_journal_init=0 "
           "\"$image\"\n"
           "mkdir -p \"$root\"\n"
           "mount -o loop \"$image\" \"$root\"\n"
           "rm \"$image\"\n"
           "cd \"$root\"\n"
           "mkdir -p dev proc root run srv sys tmp usr/share var/cache var/lib var/log "
           "var/tmp/vrm-bench\n"
           "chmod 1777 tmp var/tmp\n"
           "cp -a /etc .\n"
           "cp -a /var/lib/vrm var/lib\n"
           "for dir in bin sbin lib lib32 lib64; do\n"
           "    [ ! -L /$dir ] || cp -a /$dir .\n"
           "    for path in /$dir /usr/$dir; do\n"
           "        [ -d $path ] && [ ! -L $path ] || continue\n"
           "        mkdir -p .$path\n"
           "        mount --bind $path .$path\n"
           "    done\n"
           "done\n"
           "mount --rbind /dev dev\n"
           "mount --rbind /proc proc\n"
           "[ ! -d " +
           changes_dir + " ] || cp -a " + changes_dir + " var/tmp/vrm-bench\n";
}

void must_shell(const std::string &line, const char *what) {
    const std::string log = bench_dir + "/disk.log";
    const process_cost cost = cost_of_shell("exec 2>" + log + "\n" + line);
    if (cost.status != 0) {
        if (system(("cat " + log + " >&2").c_str()) != 0) {
            fprintf(stderr, "bench: cannot read %s\n", log.c_str());
        }
    }
    must(cost, what);
}

void must_do(int result, const char *what) {
    if (result != 0) {
        perror((std::string("bench: ") + what).c_str());
        exit(1);
    }
}

double since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

void make_loop_devices() {
    const auto make = [](const std::string &path, mode_t type, unsigned major, unsigned minor) {
        if (!fs::exists(path)) {
            must_do(mknod(path.c_str(), type | 0600, makedev(major, minor)), path.c_str());
        }
    };
    make("/dev/loop-control", S_IFCHR, 10, 237);
    for (unsigned number = 0; number < 64; number++) {
        make("/dev/loop" + std::to_string(number), S_IFBLK, 7, number);
    }
}

disk_machine::disk_machine(const std::string &image_dir) {
    must_shell(making(image_dir + "/vrm-bench." + std::to_string(getpid()) + ".image"),
               "making an ext4 image");
    outside_ = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    inside_ = open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (outside_ < 0 || inside_ < 0) {
        must_do(-1, "opening the root directories");
    }
}

disk_machine::~disk_machine() {
    close(inside_);
    close(outside_);
    // The loop device goes with its last mount.
    must_shell("umount -R " + root, "unmounting the image");
}

void disk_machine::enter() {
    must_do(fchdir(inside_), "entering the machine");
    must_do(chroot("."), "entering the machine");
}

void disk_machine::leave() {
    must_do(fchdir(outside_), "leaving the machine");
    must_do(chroot("."), "leaving the machine");
}

void disk_machine::settle() const {
    must_do(syncfs(inside_), "syncfs");
}

disk_cost disk_machine::change(const std::vector<std::string> &command) {
    settle();
    enter();
    const process_cost cost = cost_of(command, 1);
    const auto ended = std::chrono::steady_clock::now();
    settle();
    const double sync = since(ended);
    leave();
    std::string words;
    for (const std::string &word : command) {
        words += words.size() < 60 ? word + " " : "";
    }
    must(cost, words);
    return {cost.seconds, sync, cost.cpu_seconds, cost.peak_megabytes};
}
