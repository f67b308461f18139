// Private to the judge: what it asks of trees.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "faults/judge.h"

// Nodes as `at` gives them, null for none.
bool is_same(const node *a, const node *b);
bool is_same_content(const node *a, const node *b);
std::string description_of(const node *what);

// Whether a path is the directory or lies in it.
bool is_below(const std::string &path, const std::string &directory);
std::string directory_of(const std::string &path);

bool has(const std::vector<std::string> &list, const std::string &item);

// A directory with all that is in it.
tree part_of(const tree &all, const std::string &directory);
// The inventory entry of a package.
tree entry_of(const tree &all, const std::string &package);

// The lines of the history, sorted, and the package that one is about.
std::vector<std::string> history_of(const tree &all);
std::string package_of_line(const std::string &line);

// Adds a fault for each change of what belongs to no package: that is nobody's business.
// Directories that were made stay, and so do the marks. `judged` are the paths of packages.
void add_foreign_changes(const tree &before, const tree &now, const std::set<std::string> &judged,
                         std::vector<finding> *findings);
