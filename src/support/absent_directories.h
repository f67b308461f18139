// Private to the library: which directories are not there, for many looks at files of few
// directories. What is found holds as long as nobody makes a directory: one of these serves one
// pass over a list.
#pragma once

#include <string>
#include <unordered_map>

class absent_directories {
 public:
    // Whether the directory of an absolute path is not there, and so the path isn't either.
    bool hold(const std::string &path);
    // The topmost directory above an absolute path that is not there; empty for none.
    const std::string &topmost_above(const std::string &path);

 private:
    const std::string &topmost(const std::string &directory);

    std::unordered_map<std::string, std::string> known_;  // the topmost one, by directory
};
