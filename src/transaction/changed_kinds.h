// Places where an update brings something of another kind than the old version has there: a file or
// a directory for a link, a file or a link for a directory. (A directory for a file needs nothing:
// the file goes before the files of the directory come.) Private to the library.
#pragma once

#include <string>
#include <unordered_set>
#include <vector>

struct change;

struct changed_kinds {
    std::unordered_set<std::string> links;  // of the old version, that go
    std::vector<std::string> directories;   // of the old version, that go; outer ones first
    std::vector<std::string> below_links;   // what the new version brings below links that go
};

// Finds them, once the old side is known. What they have in the way of new files is the old
// version's own.
// Result: false, with an ERROR line, when such a directory holds what is not the old version's,
// when another package has such a link too, and when a list or directory can't be read.
bool find_changed_kinds(change *change);

// Takes these links and directories away; the files in the directories are gone already. Result: 0,
// or -1 with an ERROR line.
int take_changed_kinds_away(const change &change);
