// A repository of a test's own: its directories, a configuration and an open handle, with the
// standard signer trusted.
#pragma once

#include <string>
#include <vector>

#include "kit/package_maker.h"
#include "kit/temp_dir.h"
#include "repository/repository.h"

class TestRepo {
 public:
    explicit TestRepo(const std::string &arch = "x86_64");
    ~TestRepo();

    vrm_handle *handle() const {
        return handle_;
    }
    const TempDir &dir() const {
        return dir_;
    }
    std::string root() const;                             // the repository's root
    std::string in(const std::string &below_root) const;  // a path below the root

    // Writes an inventory entry (desc.txt, inst.txt, and a file index when `files` is not empty) by
    // hand, as an installation would have left it. `inst` replaces the text of inst.txt.
    void install(const PackageSpec &spec, const std::vector<std::string> &files = {},
                 const std::string &inst = "evrkInstallTime: 1700000000\nevrkInstallType: X\n");

 private:
    TempDir dir_;
    vrm_handle *handle_;
};
