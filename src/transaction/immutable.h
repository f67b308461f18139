// Private to the library: files and directories that nobody may change, as their attributes say
// (chattr +i, +a). A change is refused on their account before it touches anything.
#pragma once

#include <string>

struct change;

// Whether the directories in which a change makes, replaces or removes files can be changed.
// Result: false, with an ERROR line that names the first one that can't.
bool are_directories_changeable(const change &change);

// Whether a file that a change replaces or removes can be. True also for one that the change leaves
// alone, such as edited configuration. Result: false, with an ERROR line.
bool is_file_changeable(const change &change, const std::string &path);
