// Whole processes and their cost.
#pragma once

#include <string>
#include <vector>

struct process_cost {
    double seconds;
    double peak_megabytes;
    int status;          // exit status
    double cpu_seconds;  // user and system, with the processes that it waited for
};

// Runs a program with its output thrown away: the fastest of some runs.
process_cost cost_of(const std::vector<std::string> &command, int runs = 7);

// Ends the benchmarks when a process failed; `what` names it.
void must(const process_cost &cost, const std::string &what);

// A time as it stands beside another one: "WHAT: 1.23 ms".
std::string told(const char *what, double seconds);

// The same for a line of the shell.
process_cost cost_of_shell(const std::string &line, int runs = 1);
