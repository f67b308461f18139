// The changes that are disturbed, and the packages that they are made of.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "faults/tree.h"

// Where all that the packages touch lies, and where the engine keeps its records.
inline const std::string live_data = "/srv/faults";
inline const std::string live_conf = "/etc/faults";
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

// A version of a package.
struct package_version {
    std::string name;
    std::string version;
    std::vector<std::string> needs;
    std::map<std::string, std::string> files;  // content by "FORK/PATH", such as "data/srv/x"
    std::map<std::string, std::string> links;  // target by absolute path
    std::map<std::string, std::string> perms;  // octal digits by absolute path
};

// What all versions of a package that a case knows can put on the disk.
struct package_paths {
    std::string name;
    std::vector<std::string> data, conf, links, perms;
};

// A change, from the state that it begins with.
struct fault_case {
    std::string name;
    std::string title;
    std::vector<std::string> command;
    bool fails = false;                             // also when nobody disturbs it
    std::string catalogue;                          // directory of package files
    std::vector<std::vector<std::string>> before;   // commands that make the state
    std::map<std::string, std::string> files = {};  // written after them, by absolute path
    // Of a change that fails, what makes the same one get through: another catalogue, or files that
    // are written, by absolute path.
    std::string good_catalogue = {};
    std::map<std::string, std::string> good_files = {};
};

// What a case looks like when nobody disturbs it.
struct scene {
    std::vector<package_paths> packages;
    tree before, after;
    bool fails = false;
    tree repeated =
        {};  // after the change with the good package; for one that gets through, `after`
};

// Makes the packages and the signer, and takes the machine to the state that every case starts
// from.
void make_world();

const std::vector<fault_case> &all_cases();

// The paths of the packages that were made.
std::vector<package_paths> paths_of_all_packages();

// Takes the machine to the state in which a case begins.
void begin_case(const fault_case &what);

// Takes the machine from the package whose script fails to the good one. Nothing to do in a case
// that doesn't fail.
void mend(const fault_case &what);
// Takes it back to the failing one, but for what put_back() does.
void unmend(const fault_case &what);
