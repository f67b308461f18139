#include "powercut/machine.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace fs = std::filesystem;

void furnish(const std::string &root) {
    for (const char *name : {"dev", "etc", "proc", "root", "run", "srv", "tmp", "usr", "var/cache",
                             "var/lib", "var/log", "var/tmp"}) {
        fs::create_directories(root + "/" + name);
    }
    for (const char *name : {"bin", "sbin", "lib", "lib64"}) {
        if (fs::is_directory(std::string("/usr/") + name)) {
            fs::create_directory_symlink(std::string("usr/") + name, root + "/" + name);
        }
    }
    for (const char *name : {"passwd", "group", "ld.so.conf", "ld.so.conf.d", "ld.so.cache",
                             "ssl/openssl.cnf", "vrm", "vrm.conf"}) {
        const std::string path = std::string("/etc/") + name;
        if (fs::exists(path)) {
            fs::create_directories(fs::path(root + path).parent_path());
            fs::copy(path, root + path,
                     fs::copy_options::recursive | fs::copy_options::copy_symlinks);
        }
    }
    fs::copy("/var/lib/vrm", root + "/var/lib/vrm",
             fs::copy_options::recursive | fs::copy_options::copy_symlinks);
}

tree take_machine(const std::string &root) {
    return take_file_system(root,
                            {"/dev", "/proc", "/usr", "/var/lib/vrm/scriptdir", "/var/tmp/faults"});
}

running_machine::running_machine(const std::string &root) : root_(root) {
    for (const char *name : {"/usr", "/dev", "/proc"}) {
        const std::string target = root + name;
        if (mount(name, target.c_str(), nullptr, MS_BIND, nullptr) != 0) {
            throw std::system_error(errno, std::generic_category(),
                                    std::string("cannot show ") + name + " in a machine");
        }
        mounts_.push_back(target);
    }
    if (mount(nullptr, (root + "/usr").c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY,
              nullptr) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot make /usr read only");
    }
}

running_machine::~running_machine() {
    for (const std::string &target : mounts_) {
        umount2(target.c_str(), MNT_DETACH);
    }
}

static std::function<int()> inside(const std::string &root, const std::function<int()> &code) {
    return [root, code] {
        if (chroot(root.c_str()) != 0 || chdir("/") != 0) {
            perror("chroot");
            return 125;
        }
        umask(022);
        try {
            return code();
        } catch (const std::exception &problem) {
            fprintf(stderr, "%s\n", problem.what());
            return 125;
        }
    };
}

watched_run running_machine::run(const std::function<int()> &code) const {
    return run_alone(inside(root_, code));
}

watched_run running_machine::run(const std::vector<std::string> &command) const {
    return run(execution_of(command));
}

watched_run running_machine::run_observed(const std::function<int()> &code, int output,
                                          const operation_observer &observer) const {
    const auto with_output = [code, output] {
        return dup2(output, STDOUT_FILENO) < 0 ? 125 : code();
    };
    return run_watched(inside(root_, with_output), {"/*"}, observer);
}
