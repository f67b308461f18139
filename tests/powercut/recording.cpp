#include "powercut/recording.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "powercut/machine.h"
#include "support/own.h"

namespace fs = std::filesystem;

namespace {

[[noreturn]] void fail(const std::string &what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// The recording program, with its two files in a directory.
class running_recorder {
 public:
    running_recorder(const std::string &program, const std::string &image,
                     const std::string &record, const std::string &directory)
        : directory_(directory) {
        constexpr unsigned misc_major = 10, fuse_minor = 229;
        make_device("/dev/fuse", S_IFCHR, misc_major, fuse_minor);
        child_ = fork();
        if (child_ < 0) {
            fail("fork");
        }
        if (child_ == 0) {
            execl(program.c_str(), program.c_str(), image.c_str(), record.c_str(),
                  directory.c_str(), nullptr);
            _exit(127);
        }
        // Nothing says when a file system is mounted: look for its files.
        while (access(disk().c_str(), F_OK) != 0) {
            if (waitpid(child_, nullptr, WNOHANG) != 0) {
                child_ = -1;
                throw std::runtime_error("the recorder " + program + " does not run");
            }
            usleep(2000);
        }
        marks_ = own_fd(open((directory + "/marks").c_str(), O_WRONLY | O_CLOEXEC));
        if (!marks_.valid()) {
            fail("cannot open the marks of the record");
        }
    }
    ~running_recorder() {
        marks_ = own_fd();
        umount2(directory_.c_str(), MNT_DETACH);
        if (child_ > 0) {
            kill(child_, SIGTERM);
            waitpid(child_, nullptr, 0);
        }
    }
    running_recorder(const running_recorder &) = delete;
    running_recorder &operator=(const running_recorder &) = delete;

    std::string disk() const {
        return directory_ + "/disk";
    }
    int marks() const {
        return marks_.get();
    }
    void mark(const std::string &name) const {
        if (write(marks_.get(), name.data(), name.size()) != static_cast<ssize_t>(name.size())) {
            fail("cannot write a mark");
        }
    }

 private:
    std::string directory_;
    pid_t child_ = -1;
    own_fd marks_;
};

// The other program.
class bystander {
 public:
    explicit bystander(const std::string &root)
        : file_(open((root + "/var/tmp/bystander").c_str(),
                     O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)) {}

    void sync() const {
        if (write(file_.get(), "x", 1) != 1 || fsync(file_.get()) != 0) {
            fail("cannot sync a file of another program");
        }
    }

 private:
    own_fd file_;
};

tree make_base(const subject &what, const disk_format &format, const std::string &file,
               const std::string &mount_point) {
    make_file_system(format, file);
    const mounted_disk disk(format, file, mount_point);
    furnish(disk.root());
    const running_machine machine(disk.root());
    const watched_run run = machine.run([&what] {
        what.prepare();
        return 0;
    });
    if (run.status != 0) {
        throw std::runtime_error(what.name + ": cannot make the state before: " + run.output);
    }
    // It comes into being with the machine, so that all file systems commit it early.
    bystander(disk.root()).sync();
    return take_machine(disk.root());
}

}  // namespace

recording record_change(const subject &what, const disk_format &format,
                        const std::string &directory, const std::string &recorder_program,
                        const recording_wishes &wishes, size_t operations) {
    const std::string mount_point = directory + "/machine", front = directory + "/front";
    const std::string live = directory + "/live";
    fs::create_directories(mount_point);
    fs::create_directories(front);
    recording made;
    made.base = directory + "/base";
    made.record = directory + "/record";
    made.before = make_base(what, format, live, mount_point);
    copy_with_holes(live, made.base);

    {
        const running_recorder recorder(recorder_program, live, made.record, front);
        const mounted_disk disk(format, recorder.disk(), mount_point, true);
        const running_machine machine(disk.root());
        const bystander other(disk.root());
        const auto take_point = [&] {
            other.sync();
            recorder.mark(mark_of_point);
        };
        const auto observe = [&](size_t number, const operation & /*op*/) {
            // Evenly spread; each of them where there are fewer operations than points.
            const size_t all = std::max(operations, wishes.points);
            if (wishes.points > 0 &&
                (number + 1) * wishes.points / all != number * wishes.points / all) {
                take_point();
            }
        };
        const watched_run run = machine.run_observed(what.change, recorder.marks(), observe);
        if (run.status != 0) {
            throw std::runtime_error(what.name + ": the change fails: " + run.output);
        }
        recorder.mark(mark_of_success);
        made.operations = run.trace.size();
        made.after = take_machine(disk.root());
        for (unsigned second = 0; second <= wishes.seconds_after; second++) {
            if (wishes.points > 0) {
                take_point();
            }
            if (second < wishes.seconds_after) {
                sleep(1);
            }
        }
        recorder.mark(mark_of_end);
    }
    fs::remove(live);
    return made;
}
