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
