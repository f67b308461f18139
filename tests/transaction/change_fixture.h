// What the tests of the stages of a change share: a change of the package foo by each executor.
#pragma once

#include <map>
#include <string>
#include <utility>

#include "kit/at_log_line.h"
#include "transaction/plan_removal.h"
#include "transaction/removal.h"
#include "transaction/scripts.h"
#include "transaction/update_fixture.h"

enum class operation { install, update, removal };

inline const char *name_of(operation what) {
    return what == operation::install  ? "install"
           : what == operation::update ? "update"
                                       : "removal";
}

// All of a directory: each path with its type, mode and content.
inline std::map<std::string, std::string> all_of(const std::string &dir) {
    std::map<std::string, std::string> all;
    for (const auto &entry : fs::recursive_directory_iterator(dir)) {
        const std::string path = entry.path();
        all[path] = entry.is_symlink()     ? "link " + fs::read_symlink(path).string()
                    : entry.is_directory() ? "dir"
                                           : std::to_string(mode_of(path)) + read_all(path);
    }
    return all;
}

// What is in some directories, to be there again later.
class Snapshot {
 public:
    explicit Snapshot(std::vector<std::string> directories) : directories_(std::move(directories)) {
        for (size_t i = 0; i < directories_.size(); i++) {
            if (exists(directories_[i])) {
                fs::copy(directories_[i], kept(i), how);
            }
        }
    }
    void restore() const {
        for (size_t i = 0; i < directories_.size(); i++) {
            fs::remove_all(directories_[i]);
            if (exists(kept(i))) {
                fs::copy(kept(i), directories_[i], how);
            }
        }
    }

 private:
    static constexpr auto how = fs::copy_options::recursive | fs::copy_options::copy_symlinks;
    std::string kept(size_t i) const {
        return dir_ / std::to_string(i);
    }

    const std::vector<std::string> directories_;
    TempDir dir_;
};

class ChangeOfFoo : public Update {
 protected:
    ChangeOfFoo() {
        // The machine's own takes its time.
        put("/sbin/ldconfig.new", "#!/bin/sh\nexit 0\n");
        chmod("/sbin/ldconfig.new", 0755);
        fs::rename("/sbin/ldconfig.new", "/sbin/ldconfig");
    }

    // Makes foo 1.0 be there or not, as the change needs it, and plans the change. `before` is
    // what is replaced or removed, `after` what comes.
    void prepare(operation what, const PackageSpec &before, const PackageSpec &after) {
        what_ = what;
        if (what != operation::install) {
            install_now(before);
        }
        if (what != operation::removal) {
            offer(after);
        }
        plan_anew();
    }

    // The plan for what is there now.
    void plan_anew() {
        if (what_ == operation::removal) {
            vrt *transaction = nullptr;
            vrm_pre_delete(repo.handle(), "foo", 0, &transaction);
            plan_.reset(transaction);
        } else {
            plan_ = what_ == operation::install ? plan("foo") : plan_update("foo");
        }
        ASSERT_TRUE(plan_);
        log.clear();
    }

    // Carries the planned change out; the log is that of this alone.
    int change(int rmpkg = 0) {
        vrt *raw = plan_.get();
        switch (what_) {
            case operation::install:
                return vrm_exe_install(repo.handle(), &raw, &catalogue, 1, rmpkg);
            case operation::update:
                return vrm_exe_update(repo.handle(), &raw, &catalogue, 1, rmpkg);
            default:
                return vrm_exe_delete(repo.handle(), &raw);
        }
    }

    // All that a change of foo changes.
    std::vector<std::string> changed_directories() {
        return {live, repo.in("installed"), repo.in("fileindex"), repo.in("stagearea"),
                repo.in("change")};
    }

    // Whether the journal is left to a recovery.
    bool is_record_left() {
        return exists(repo.in("change/record"));
    }

    // Hooks are the caller's to run; until then the journal is open.
    void forget_hooks() {
        vrt *raw = plan_.get();
        vrm_hookcmds_del(repo.handle(), &raw);
    }

    operation what_ = operation::install;
    own_vrt plan_;
};
