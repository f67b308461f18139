// The tree of what a package needs, as lines of text.
#pragma once

#include <string>
#include <vector>

#include "transaction/vrt.h"

// The top package and, each level two blanks further in, what it needs, in the order in which the
// packages name it. A package whose own needs were shown before is marked instead of shown again,
// which also ends circles. `walk` is a transaction of vrm_walk. The lines are safe for a terminal.
std::vector<std::string> dependency_tree(const vrt &walk);
