#include "faults/tree.h"

#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
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

// Without those that only root sees: they are the file system's own.
static std::map<std::string, std::string> take_attributes(const std::string &path) {
    std::map<std::string, std::string> all;
    char names[4096], value[4096];
    const ssize_t size = llistxattr(path.c_str(), names, sizeof names);
    for (ssize_t at = 0; at < size;) {
        const std::string name = names + at;
        at += static_cast<ssize_t>(name.size()) + 1;
        const ssize_t length = lgetxattr(path.c_str(), name.c_str(), value, sizeof value);
        if (!name.starts_with("trusted.") && length >= 0) {
            all[name].assign(value, static_cast<size_t>(length));
        }
    }
    return all;
}

static node take_node(const std::string &path, const struct stat &status) {
    node taken = {'?', status.st_mode & 07777, {}, status.st_uid, status.st_gid, {}};
    if (S_ISREG(status.st_mode)) {
        taken.type = 'f';
        taken.content = read_whole(path);
    } else if (S_ISLNK(status.st_mode)) {
        taken.type = 'l';
        taken.mode = 0;
        taken.content = fs::read_symlink(path).string();
    } else if (S_ISDIR(status.st_mode)) {
        taken.type = 'd';
    }
    taken.attributes = take_attributes(path);
    return taken;
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

namespace {

struct file_system {
    std::string root;
    dev_t device;
    const std::vector<std::string> &without;
};

}  // namespace

static void take_within(const file_system &from, const std::string &name, tree *all) {
    const std::string path = from.root + name;
    struct stat status;
    if (is_in(from.without, name) || lstat(path.c_str(), &status) != 0 ||
        status.st_dev != from.device) {
        return;
    }
    const node &taken = (*all)[name.empty() ? "/" : name] = take_node(path, status);
    if (taken.type == 'd') {
        for (const auto &entry : fs::directory_iterator(path)) {
            take_within(from, name + "/" + entry.path().filename().string(), all);
        }
    }
}

tree take_file_system(const std::string &root, const std::vector<std::string> &without) {
    struct stat status;
    if (stat(root.c_str(), &status) != 0) {
        throw std::runtime_error("cannot look at " + root + ": " + strerror(errno));
    }
    tree all;
    take_within({root, status.st_dev, without}, "", &all);
    return all;
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
    } else {
        std::ofstream(path, std::ios::binary) << wanted.content;
    }
    // The mode comes after the owner, whose change takes set-id bits away, as it does the
    // capabilities.
    bool good = lchown(path.c_str(), wanted.owner, wanted.group) == 0 &&
                (wanted.type == 'l' || chmod(path.c_str(), wanted.mode) == 0);
    for (const auto &[name, value] : wanted.attributes) {
        good = good && lsetxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0) == 0;
    }
    if (!good) {
        throw std::runtime_error("can't put back " + path + ": " + strerror(errno));
    }
}

void put_back(const tree &wanted, const std::vector<std::string> &places) {
    const tree present = take_tree(places);
    // What lies deeper comes later by name, so it goes first and comes last.
    std::string kept;  // the last directory that something is mounted on
    for (auto it = present.rbegin(); it != present.rend(); ++it) {
        if (remove(it->first.c_str()) == 0) {
            continue;
        }
        if (errno == EBUSY) {
            kept = it->first;
        } else if (errno != ENOTEMPTY || !kept.starts_with(it->first + "/")) {
            throw std::runtime_error("can't remove " + it->first + ": " + strerror(errno));
        }
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
