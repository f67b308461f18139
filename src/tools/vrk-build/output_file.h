// A file that appears under its name whole or not at all.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "support/atomic_file.h"

// Bytes gather in a hidden file beside the target. It is gone when the object is, and also when
// HUP, INT or TERM ends the program; so there can be one such object at a time. Problems are
// thrown.
class output_file {
 public:
    explicit output_file(const std::string &target);
    ~output_file();
    output_file(const output_file &) = delete;
    output_file &operator=(const output_file &) = delete;

    void append(std::string_view bytes);
    // Writes over what stands at the start.
    void replace_start(const std::string &bytes);
    // Gives the file its name, in place of what bore it before. Nothing may follow.
    void finish();

 private:
    std::string target_;
    std::optional<atomic_file> file_;
};
