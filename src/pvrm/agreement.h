// The questions that are asked before something is changed.
#pragma once

#include <cstddef>
#include <string>

// Asks a question; `default_answer` is 1 for yes and 0 for no. False too when an end was asked for,
// before or meanwhile.
bool user_agrees(const std::string &question, int default_answer);

// Whether the packages that were shown shall be changed; `verb` begins the question, as in
// "Install".
std::string question_of_packages(const char *verb, size_t packages);
