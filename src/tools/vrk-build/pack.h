// Makes a signed package file of a source tree.
#pragma once

#include <cstdint>
#include <string>

struct pack_options {
    std::string tree;
    std::string key_file;
    std::string certificate_file;
    std::string output;  // empty: the package's unique name in the working directory; a directory:
                         // that name in it; else a file, whose name ends in .vrk
    bool base = false;   // links may take the places of the directories of the base layout
    uint64_t largest =
        INT32_MAX;  // bytes of the package file: a catalogue can't deliver a larger one
};

// The file appears whole or not at all. The same tree, key and certificate give the same bytes each
// time. Result: the path of the package file. Remarks go to stderr. Throws a problem.
std::string pack(const pack_options &options);
