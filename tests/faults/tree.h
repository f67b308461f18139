// Directory trees as values: taken from the disk, compared, and put back.
#pragma once

#include <map>
#include <string>
#include <vector>

struct node {
    char type;  // 'f' a file, 'd' a directory, 'l' a symbolic link, '?' something else
    unsigned mode;
    std::string content;  // of a file, or the target of a link
    unsigned owner = 0, group = 0;
    std::map<std::string, std::string> attributes = {};  // the extended ones, such as capabilities

    bool operator==(const node &) const = default;
};

// By absolute path.
using tree = std::map<std::string, node>;

// Places are absolute paths. One that ends in a star stands for all entries of its directory whose
// names begin with what is in front of the star.

// Whether a path is one of the places or lies below one.
bool is_in(const std::vector<std::string> &places, const std::string &path);

// All that is in and below the places; a place that isn't there adds nothing.
tree take_tree(const std::vector<std::string> &places);

// All of one file system below its root directory, which is mounted there; what is mounted in it is
// left out, with the directory that it is mounted on, and so is what is in one of the places. The
// paths, of the places too, are those in it: "/etc/passwd".
tree take_file_system(const std::string &root, const std::vector<std::string> &without = {});

// Makes the places again what they were when the tree was taken. All is made anew, one entry after
// the other, so that directories list their entries in the same order each time.
void put_back(const tree &wanted, const std::vector<std::string> &places);

// The node at a path, null for none.
const node *at(const tree &all, const std::string &path);

// The same tree with the times of the repository's records taken out, which differ from run to run:
// in inst.txt and in install.log.
tree without_times(tree all);

// What is in a file; empty when it can't be read.
std::string read_whole(const std::string &path);

// The lines of a text, without their ends.
std::vector<std::string> lines_of(const std::string &text);
