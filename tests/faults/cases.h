// The changes that are disturbed.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "faults/packages.h"
#include "faults/tree.h"

// Where the engine keeps its records.
inline const std::string repository = "/var/lib/vrm";
inline const std::string installed = repository + "/installed/";
inline const std::string fileindex = repository + "/fileindex/";
inline const std::string stagearea = repository + "/stagearea";
inline const std::string action_log = repository + "/install.log";
inline const std::string lock_file = repository + "/lock";
inline const std::string script_note = repository + "/script.running";
inline const std::string engine_log = "/var/log/pvrm.log";

// Directories whose content a change may touch: what is put back between runs and compared.
const std::vector<std::string> &compared_places();
// Those and what a change reads: where operations are disturbed.
const std::vector<std::string> &watched_places();

// A change, from the state that it begins with.
struct fault_case {
    std::string name;
    std::string title;
    std::vector<std::string> command;
    std::string catalogue;                          // directory of package files
    std::vector<std::vector<std::string>> before;   // commands that make the state
    std::map<std::string, std::string> files = {};  // written after them, by absolute path
    bool fails = false;                             // also when nobody disturbs it
    // Makes what neither the commands nor the files can, such as another owner, at the end.
    void (*prepare)() = nullptr;
    bool keeps_stage = false;  // the package files that `before` has fetched stay staged
};

// Makes the packages and the signer, and takes the machine to the state that every case starts
// from.
void make_world();

const std::vector<fault_case> &strict_cases();
// The command that repairs what a change left that was cut off; empty when the tool has none.
std::vector<std::string> recovery_of_tool();
// Throws std::runtime_error for a name that is not in the list.
const fault_case &case_named(const std::string &name);

// A package file that make_world() has put into a directory of its own.
std::string made_package(const std::string &directory, const std::string &id);
// Writes a file with its directories. Throws std::runtime_error.
void write_file(const std::string &path, const std::string &content);

// Takes the machine to the state in which a case begins.
void begin_case(const fault_case &what);
