// What the command line asked for.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// For all words.
struct common_options {
    bool yes = false;           // take the default answer to every question
    bool dry_run = false;       // say what would be done, and do nothing
    bool quiet = false;         // no steps and no plans, only results and errors
    bool verbose = false;       // the log takes DEBUG too
    bool ignore_space = false;  // begin without a look at the room on the disks
    int64_t wait = 0;  // how many seconds to wait for another change to end; -1: however long
};

// Of a dry run the steps are its result: they are shown with --quiet too.
inline common_options with_a_dry_run_told(common_options options) {
    options.quiet = options.quiet && !options.dry_run;
    return options;
}

struct install_options {
    std::vector<std::string> requests;  // names of packages or paths of package files
    std::string variant;                // empty: whichever the engine prefers
    std::string version;                // empty: the highest
    std::vector<std::string> dirs;      // where package files of dependencies are looked for
    bool has_variant = false;           // an empty --variant asks for the default variant
};

struct config_options {
    std::string key, value;
    bool has_key = false, has_value = false;  // an empty value is a value
};

struct remove_options {
    std::vector<std::string> requests;  // names of installed packages
    bool keep_deps = false;             // what only they needed stays
};

struct trust_options {
    std::string certificate;  // the path of the certificate to trust
    bool list = false;        // show who is trusted, and trust nobody
    bool replace = false;     // also in place of another certificate of the subject
};

struct saved_options {
    int days = 0;  // how old the files must be that are deleted
    bool prune = false;
};
