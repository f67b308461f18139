#include "faults/judged_tree.h"

#include <algorithm>
#include <cstdio>

bool is_same(const node *a, const node *b) {
    return a == b || (a && b && *a == *b);
}

bool is_same_content(const node *a, const node *b) {
    return a && b && a->type == b->type && a->content == b->content;
}

bool is_below(const std::string &path, const std::string &directory) {
    return path == directory || path.starts_with(directory + "/");
}

std::string description_of(const node *what) {
    if (!what) {
        return "missing";
    }
    switch (what->type) {
        case 'f': {
            std::string text = what->content.substr(0, 40);
            std::replace(text.begin(), text.end(), '\n', ' ');
            char mode[8];
            snprintf(mode, sizeof mode, "%04o", what->mode);
            return "a file, mode " + std::string(mode) + ", <" + text + ">";
        }
        case 'l':
            return "a link to " + what->content;
        default:
            return what->type == 'd' ? "a directory" : "something strange";
    }
}

bool has(const std::vector<std::string> &list, const std::string &item) {
    return std::find(list.begin(), list.end(), item) != list.end();
}

tree part_of(const tree &all, const std::string &directory) {
    tree part;
    for (auto it = all.lower_bound(directory); it != all.end() && it->first.starts_with(directory);
         ++it) {
        if (is_below(it->first, directory)) {
            part.insert(*it);
        }
    }
    return part;
}

tree entry_of(const tree &all, const std::string &package) {
    return part_of(all, installed + package);
}

std::string directory_of(const std::string &path) {
    return path.substr(0, path.rfind('/'));
}

// A line of the history without its date, such as "DATE: updated app_any_1.0 to app_any_2.0 as...".
std::string package_of_line(const std::string &line) {
    const size_t verb = line.find(": ");
    const size_t name = verb == std::string::npos ? verb : line.find(' ', verb + 2);
    return name == std::string::npos ? "" : line.substr(name + 1, line.find('_', name) - name - 1);
}

std::vector<std::string> history_of(const tree &all) {
    const node *log = at(all, action_log);
    std::vector<std::string> lines = lines_of(log ? log->content : "");
    std::sort(lines.begin(), lines.end());
    return lines;
}

// What belongs to no package is nobody's business. Directories that were made stay, and so do the
// marks that scripts leave.
void add_foreign_changes(const tree &before, const tree &now, const std::set<std::string> &judged,
                         std::vector<finding> *findings) {
    for (const std::string &place : {live_data, live_conf}) {
        const tree was = part_of(before, place), is = part_of(now, place);
        for (const auto &[path, what] : was) {
            if (!judged.contains(path) && !is_below(path, marks) && !is_same(&what, at(is, path))) {
                findings->push_back(
                    {std::nullopt, path,
                     description_of(at(is, path)) + " instead of " + description_of(&what)});
            }
        }
        for (const auto &[path, what] : is) {
            if (!judged.contains(path) && !is_below(path, marks) && !at(was, path) &&
                what.type != 'd') {
                findings->push_back(
                    {std::nullopt, path, description_of(&what) + " out of nowhere"});
            }
        }
    }
}
