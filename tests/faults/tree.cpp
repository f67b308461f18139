#include "faults/tree.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

std::string read_whole(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

static node take_node(const std::string &path, const struct stat &status) {
    const unsigned mode = status.st_mode & 07777;
    if (S_ISREG(status.st_mode)) {
        return {'f', mode, read_whole(path)};
    }
    if (S_ISLNK(status.st_mode)) {
        return {'l', 0, fs::read_symlink(path).string()};
    }
    return {S_ISDIR(status.st_mode) ? 'd' : '?', mode, {}};
}

static void take(const std::string &path, tree *all) {
    struct stat status;
    if (lstat(path.c_str(), &status) != 0) {
        return;
    }
    const node &taken = (*all)[path] = take_node(path, status);
    if (taken.type == 'd') {
        for (const auto &entry : fs::directory_iterator(path)) {
            take(entry.path().string(), all);
        }
    }
}

bool is_in(const std::vector<std::string> &places, const std::string &path) {
    return std::any_of(places.begin(), places.end(), [&path](const std::string &place) {
        if (place.ends_with('*')) {
            return path.starts_with(place.substr(0, place.size() - 1));
        }
        return path.starts_with(place) &&
               (path.size() == place.size() || path[place.size()] == '/');
    });
}

tree take_tree(const std::vector<std::string> &places) {
    tree all;
    for (const std::string &place : places) {
        if (!place.ends_with('*')) {
            take(place, &all);
            continue;
        }
        for (const auto &entry : fs::directory_iterator(fs::path(place).parent_path())) {
            if (is_in({place}, entry.path().string())) {
                take(entry.path().string(), &all);
            }
        }
    }
    return all;
}

static void make(const std::string &path, const node &wanted) {
    if (wanted.type == 'd') {
        fs::create_directories(path);
    } else if (wanted.type == 'l') {
        fs::create_symlink(wanted.content, path);
        return;
    } else {
        std::ofstream(path, std::ios::binary) << wanted.content;
    }
    if (chmod(path.c_str(), wanted.mode) != 0) {
        throw std::runtime_error("can't put back " + path);
    }
}

void put_back(const tree &wanted, const std::vector<std::string> &places) {
    const tree present = take_tree(places);
    // What lies deeper comes later by name, so it goes first and comes last.
    for (auto it = present.rbegin(); it != present.rend(); ++it) {
        fs::remove(it->first);
    }
    for (const auto &[path, what] : wanted) {
        make(path, what);
    }
}

const node *at(const tree &all, const std::string &path) {
    const auto found = all.find(path);
    return found == all.end() ? nullptr : &found->second;
}

std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

tree without_times(tree all) {
    constexpr size_t date_length = 19;
    for (auto &[path, what] : all) {
        const std::string name = path.substr(path.rfind('/') + 1);
        const bool record = name == "inst.txt", log = name == "install.log";
        if (what.type != 'f' || (!record && !log)) {
            continue;
        }
        std::string text;
        for (std::string line : lines_of(what.content)) {
            const size_t colon = line.find("Time: ");
            if (record && colon != std::string::npos) {
                line.replace(colon + 6, std::string::npos, "TIME");
            } else if (log && line.size() > date_length) {
                line.replace(0, date_length, "DATE");
            }
            text += line + "\n";
        }
        // A last line that lacks its end is another content.
        if (!what.content.ends_with('\n') && !text.empty()) {
            text.pop_back();
        }
        what.content = text;
    }
    return all;
}
