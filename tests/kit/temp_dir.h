// A directory of a test's own, removed with all below it at the end.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

class TempDir {
 public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    const std::string &path() const {
        return path_;
    }
    // "<directory>/<name>".
    std::string operator/(std::string_view name) const;

    // Writes a file below the directory, with the directories that it needs; returns its full path.
    std::string write(std::string_view name, std::string_view content, unsigned mode = 0644) const;

 private:
    std::string path_;
};

// The whole content of a file; fails the test when it cannot be read.
std::string read_all(const std::string &path);
bool exists(const std::string &path);  // of the path itself, links not followed

// Changes the working directory and goes back at the end.
class WorkingDir {
 public:
    explicit WorkingDir(const std::string &path);
    ~WorkingDir();

 private:
    std::filesystem::path before_;
};
