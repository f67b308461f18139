// A walk through a directory tree, children before their directory. Private to the file operations.
//
// The walk goes by descriptors and names relative to them: a directory that someone replaces by a
// symbolic link meanwhile doesn't lead it elsewhere, and no depth is beyond the longest path. Of a
// deep tree only the innermost directories are held open; an outer one is opened again through
// ".." and must then be the one that it was.
#pragma once

#include <sys/stat.h>

#include <string>

class tree_visitor {
 public:
    virtual ~tree_visitor() = default;
    // Meets something that is no directory: `name` in the open directory `parent`. `path` is its
    // full path, for messages. False when it fails.
    virtual bool leaf(int parent, const char *name, const struct stat &info,
                      const std::string &path) = 0;
    // Leaves a directory, after all of its entries. False when it fails.
    virtual bool leave(int parent, const char *name, const std::string &path) = 0;
};

// Walks a path and all below it. A failure is remembered and the walk goes on. Result: whether
// nothing failed; a path that doesn't exist does not count.
bool walk_tree(const char *path, tree_visitor &visitor);
