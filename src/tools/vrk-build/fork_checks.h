// What the files of a source tree must be beside each other, and what its lists must say.
#pragma once

#include "tools/vrk-build/source_tree.h"

// Throws a problem for files that would be in the way of others or of the package manager's own,
// and for malformed lines in info/perm.txt and info/link.txt, which an installation would pass
// over. So it does for a link in the place of a directory of the base layout, such as /lib, unless
// `makes_base_layout`. What is merely unlikely to be meant becomes a remark of the tree.
void check_forks(source_tree *tree, bool makes_base_layout);
