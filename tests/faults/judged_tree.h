// Private to the judge: what it asks of trees.
#pragma once

#include <string>
#include <vector>

#include "faults/cases.h"
#include "faults/tree.h"

// Nodes as `at` gives them, null for none.
bool is_same(const node *a, const node *b);
bool is_same_content(const node *a, const node *b);
std::string description_of(const node *what);

// Whether a path is the directory or lies in it.
bool is_below(const std::string &path, const std::string &directory);

// The lines of the history, sorted, and the package that one is about.
std::vector<std::string> history_of(const tree &all);
std::string package_of_line(const std::string &line);
