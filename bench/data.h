// Generated data: a catalogue and an inventory with names, versions, descriptions and numbers of
// dependencies like those of a big distribution. The same call makes the same data.
#pragma once

#include <string>
#include <vector>

struct bench_package {
    std::string name;
    std::string version;
    std::string description;
    std::vector<std::string> dependencies;
    std::string head = {};  // for whose sake it is installed; empty for a package asked for
};

// Packages with names of their own.
std::vector<bench_package> make_packages(size_t count);

// A package that needs 300 others, over two levels, and these; the first is the top one.
std::vector<bench_package> make_package_with_300_dependencies();

// Makes a catalogue of this size, with the package that needs 300 others in it, unless it is there:
// the package files in `dir`, and `dir`.txt as write_as_text has it. A process of its own does the
// work, so that its memory is none of the caller's.
void make_catalogue(const std::string &dir, size_t size);

// Writes one package file for each into a directory, with a few folders below it. They have a head
// and an empty payload, and no signature: a catalogue doesn't look at those.
void write_catalogue(const std::string &dir, const std::vector<bench_package> &packages);

// The records of a catalogue as text, one a line with its name and description, for grep.
void write_as_text(const std::string &path, const std::vector<bench_package> &packages);

// Makes dependencies of most of the packages, as they are in an inventory that has grown: many came
// for one that needs them, some for one that no longer does, and some for one that is gone.
void give_heads(std::vector<bench_package> *packages);

// Writes inventory entries and file indexes of `files` paths each below a repository root.
void write_inventory(const std::string &root, const std::vector<bench_package> &packages,
                     size_t files);

// The last path of the last index that was written.
std::string path_of(const std::string &package, size_t number);

// A source tree for vrk-build with this many data files of some kilobytes below `live`. In a second
// version every other file has another name, and all have other content.
void write_source_tree(const std::string &dir, const std::string &name, const std::string &live,
                       size_t files, int version = 1);
