// What the tests of the executors share: a repository, a catalogue behind the backend's entry
// points, and the directory of the live system that packages go to. They install to absolute paths,
// below /srv/t, and append to the action log: they run in the throwaway root only.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>

#include "kit/capture.h"
#include "kit/log_capture.h"
#include "kit/package_maker.h"
#include "kit/scripted_user.h"
#include "kit/test_repo.h"
#include "package/vrf.h"
#include "repository/inventory.h"
#include "repository/vrc.h"
#include "transaction/install.h"
#include "transaction/interrupt.h"
#include "transaction/plan_install.h"

namespace fs = std::filesystem;

inline const std::string live = "/srv/t";
inline const std::string action_log = "/var/lib/vrm/install.log";

inline unsigned mode_of(const std::string &path) {
    struct stat status = {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

// Paths below a directory, sorted, directories with a slash behind.
inline std::vector<std::string> tree(const std::string &dir) {
    std::vector<std::string> found;
    for (const auto &entry : fs::recursive_directory_iterator(dir)) {
        std::string path = fs::relative(entry.path(), dir).string();
        found.push_back(entry.is_directory() && !entry.is_symlink() ? path + "/" : path);
    }
    std::sort(found.begin(), found.end());
    return found;
}

// The action log without its dates.
inline std::vector<std::string> history() {
    std::vector<std::string> sentences;
    std::ifstream in(action_log);
    for (std::string line; std::getline(in, line);) {
        sentences.push_back(line.substr(line.find(": ") + 2));
    }
    return sentences;
}

// A catalogue of package files, by name, behind the backend's entry points.
struct FakeCatalogue {
    std::map<std::string, std::string> files;  // name to path
    vrm_handle *handle = nullptr;
    int fetches = 0;
    int short_by = 0;    // how many bytes fewer the next fetches report
    size_t lost = 0;     // how many bytes the next fetches leave out, and report all the same
    int stop_after = 0;  // the user asks to stop during this fetch, counted from 1
};
inline FakeCatalogue catalogue;

inline int fake_find(void *, const char *name, const char *, const char *, int, s_ekva **,
                     vri ***out) {
    const auto found = catalogue.files.find(name ? name : "");
    if (found == catalogue.files.end()) {
        return 0;
    }
    *out = static_cast<vri **>(calloc(2, sizeof(vri *)));
    (*out)[0] = vrm_vrf_info(catalogue.handle, found->second.c_str(), 0);
    return 1;
}

inline int fake_read(void *, vri *package, FILE *out) {
    if (++catalogue.fetches == catalogue.stop_after) {
        vrm_stop_requested = 1;
    }
    const std::string bytes = read_all(catalogue.files.at(package->name));
    const size_t written = fwrite(bytes.data(), 1, bytes.size() - catalogue.lost, out);
    return static_cast<int>(written + catalogue.lost) - catalogue.short_by;
}

class ExecutorTest : public testing::Test {
 protected:
    ExecutorTest() {
        fs::remove_all(live);
        fs::remove(action_log);
        fs::create_directories("/var/lib/vrm");
        fs::create_directories(live);
        catalogue = {};
        catalogue.handle = repo.handle();
        pvrm_vrc_findpkg = fake_find;
        pvrm_vrc_readpkg = fake_read;
        vrc_cache = nullptr;
        vrm_stop_requested = 0;
        ScriptedUser::fresh();
        fs::create_directories(repo.in("scriptdir"));
        for (const char *command : {"ash", "echo", "env", "cat", "ls", "pwd", "grep", "sort"}) {
            fs::copy_file("/bin/busybox", repo.in("scriptdir") + "/" + command,
                          fs::copy_options::skip_existing);
        }
        repo.handle()->locked = 1;
    }

    ~ExecutorTest() override {
        repo.handle()->locked = 0;  // the lock file is none of this handle's
    }

    // Puts a package into the catalogue; returns its file.
    std::string offer(const PackageSpec &spec) {
        const std::string path = files / (spec.name + ".vrk");
        make_package(spec, path);
        catalogue.files[spec.name] = path;
        return path;
    }

    own_vrt plan(const std::string &request, char **dirs = nullptr) {
        vrt *transaction = nullptr;
        vrm_pre_install(repo.handle(), &catalogue, request.c_str(), nullptr, nullptr, dirs,
                        &transaction);
        EXPECT_TRUE(transaction) << "no plan for " << request;
        return own_vrt(transaction);
    }

    int run(own_vrt &transaction, int verbose = 0, int rmpkg = 0) {
        vrt *raw = transaction.get();
        return vrm_exe_install(repo.handle(), &raw, &catalogue, verbose, rmpkg);
    }

    int install(const std::string &request, int verbose = 0, int rmpkg = 0) {
        own_vrt transaction = plan(request);
        return transaction ? run(transaction, verbose, rmpkg) : -1000;
    }

    // Adds a hook behind those that the repository has.
    void hook(const char *condition, const char *command) {
        s_ekva **record = ekva_new(5, 3);
        ekva_addval(&record, "evrhType", "99-cfg", 0);
        ekva_addval(&record, "evrhCond", condition, 0);
        ekva_addval(&record, "evrhExec", command, 0);
        hooks_ = ekva_list_add(&repo.handle()->hooks, record, hooks_, &hooks_room_);
        ekva_free(record);
    }

    bool is_installed(const std::string &name) {
        return own_vri(vrm_vrl_info(repo.handle(), name.c_str())) != nullptr;
    }

    std::string staged(const std::string &puname) {
        return repo.in("stagearea") + "/" + puname;
    }

    TestRepo repo;
    TempDir files;
    LogCapture log;

 private:
    int hooks_ = 0;
    int hooks_room_ = 10;
};

inline PackageSpec simple(const std::string &name, std::vector<std::string> deps = {}) {
    PackageSpec spec;
    spec.name = name;
    spec.deps = std::move(deps);
    spec.data["srv/t/" + name] = "file of " + name + "\n";
    return spec;
}

// A file system of 64 KiB on a directory.
class SmallDisk {
 public:
    explicit SmallDisk(std::string dir) : dir_(std::move(dir)) {
        fs::create_directories(dir_);
        mounted_ = mount("small", dir_.c_str(), "tmpfs", 0, "size=64k,mode=755") == 0;
        EXPECT_TRUE(mounted_) << strerror(errno);
    }
    ~SmallDisk() {
        if (mounted_) {
            umount(dir_.c_str());
        }
    }
    SmallDisk(const SmallDisk &) = delete;
    SmallDisk &operator=(const SmallDisk &) = delete;

 private:
    std::string dir_;
    bool mounted_;
};
