#include "kit/temp_dir.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

TempDir::TempDir() : path_((fs::temp_directory_path() / "vrm-test-XXXXXX").string()) {
    if (!mkdtemp(path_.data())) {
        std::perror("mkdtemp");
        std::abort();
    }
}

TempDir::~TempDir() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::string TempDir::operator/(std::string_view name) const {
    return path_ + "/" + std::string(name);
}

std::string TempDir::write(std::string_view name, std::string_view content, unsigned mode) const {
    const std::string path = *this / name;
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << content;
    chmod(path.c_str(), mode);
    return path;
}

std::string read_all(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    EXPECT_TRUE(in.is_open()) << "cannot read " << path;
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

bool exists(const std::string &path) {
    return fs::exists(fs::symlink_status(path));
}

WorkingDir::WorkingDir(const std::string &path) : before_(fs::current_path()) {
    fs::current_path(path);
}

WorkingDir::~WorkingDir() {
    fs::current_path(before_);
}
