#include "kit/test_repo.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

namespace fs = std::filesystem;

TestRepo::TestRepo(const std::string &arch) {
    for (const char *role : {"installed", "stagearea", "fileindex", "certstore", "scriptdir"}) {
        fs::create_directories(in(role));
    }
    // Scripts run under this shell and see nothing else on their path.
    fs::create_symlink("/bin/sh", in("scriptdir/ash"));
    Signer::standard().trust_in(in("certstore"));
    const std::string conf =
        dir_.write("vrm.conf", "arch_name = " + arch + "\ndist_name = Test\ndist_vers = 1.0\n");
    handle_ = vrm_open(root().c_str(), conf.c_str());
    if (!handle_) {
        fprintf(stderr, "cannot open the repository of the test\n");
        abort();
    }
}

TestRepo::~TestRepo() {
    vrm_close(handle_);
}

std::string TestRepo::root() const {
    return dir_ / "repo";
}

std::string TestRepo::in(const std::string &below_root) const {
    return root() + "/" + below_root;
}

void TestRepo::install(const PackageSpec &spec, const std::vector<std::string> &files,
                       const std::string &inst) {
    const std::string entry = "repo/installed/" + spec.name;
    dir_.write(entry + "/desc.txt", description_of(spec));
    dir_.write(entry + "/inst.txt", inst);
    if (!files.empty()) {
        std::string index;
        for (const std::string &path : files) {
            index += path + "\n";
        }
        dir_.write("repo/fileindex/" + spec.name, index);
    }
}
