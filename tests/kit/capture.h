// Runs a piece of code with one of the standard streams going to a file, and hands back the text.
#pragma once

#include <functional>
#include <string>

std::string stderr_of(const std::function<void()> &code);
std::string stdout_of(const std::function<void()> &code);

struct ShellResult {
    int status;       // exit status, -1 when it was killed
    std::string out;  // stdout and stderr together
};
// Runs a command line by sh.
ShellResult shell(const std::string &command);
// The same, and fails the test with the output unless the exit status is 0; returns the output.
std::string must_run(const std::string &command);
// A word as sh reads it literally.
std::string shell_word(const std::string &word);
