// How the tool's functions tell that they can't go on, and what they tell when they can.
#pragma once

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

// Thrown with a sentence for the user, without the program's name and without a line end; main
// prints it and ends with status 1. File names stand in it as they are: main makes it safe.
class problem : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

// The same with the reason that errno holds.
inline problem system_problem(const std::string &what) {
    return problem(what + ": " + strerror(errno));
}
