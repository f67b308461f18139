#include "tools/vrk-build/source_tree.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <string_view>

#include "support/own.h"
#include "tools/vrk-build/fork_checks.h"
#include "tools/vrk-build/problem.h"

namespace {

constexpr const char *forks[] = {"conf", "data", "dump", "info", "init"};

// An archive's header tells a size in eight hexadecimal digits.
constexpr uint64_t largest_file = 0xffffffff;

// The longest path of a system is 4,095 bytes. Where a package is unpacked, up to 290 bytes come in
// front of it, and in lists 41.
constexpr size_t longest_member = 3500;

// What is replaced on a system is saved first, and a rollback finds no backup by a longer path.
constexpr size_t longest_live_path = 1000;

}  // namespace

// All names but "." and "..". Sorted, so that of two problems always the same one is told.
static std::vector<std::string> names_in(const std::string &dir) {
    own_dir stream(opendir(dir.c_str()));
    if (!stream) {
        throw system_problem(dir + " can't be read");
    }
    std::vector<std::string> names;
    while (const dirent *entry = next_entry(stream)) {
        if (!is_self_or_parent(entry)) {
            names.emplace_back(entry->d_name);
        }
    }
    if (errno != 0) {
        throw system_problem(dir + " can't be read");
    }
    std::sort(names.begin(), names.end());
    return names;
}

static std::string joined(std::string dir, const std::string &name) {
    dir += '/';
    dir += name;
    return dir;
}

static struct stat status_of(const std::string &path) {
    struct stat status;
    if (lstat(path.c_str(), &status) != 0) {
        throw system_problem(path);
    }
    return status;
}

// Lists hold a path on a line.
static void check_path(const std::string &member) {
    if (std::any_of(member.begin(), member.end(),
                    [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; })) {
        throw problem("a file name holds a control character: " + member);
    }
    if (member.size() > longest_member) {
        throw problem("a path is longer than " + std::to_string(longest_member) +
                      " bytes: " + member.substr(0, 200) + "...");
    }
    for (const std::string_view fork : {"data", "conf"}) {
        if (member.starts_with(fork) && member.size() - fork.size() > longest_live_path) {
            throw problem("a path below " + std::string(fork) + " is longer than " +
                          std::to_string(longest_live_path) + " bytes: " + member.substr(0, 200) +
                          "...");
        }
    }
}

static void add_files(source_tree *tree, const std::string &dir, const std::string &member_prefix);

static void add_entry(source_tree *tree, const std::string &path, const std::string &member) {
    check_path(member);
    const struct stat status = status_of(path);
    if (S_ISDIR(status.st_mode)) {
        add_files(tree, path, member);
    } else if (S_ISLNK(status.st_mode)) {
        throw problem(member +
                      " is a symbolic link: name it in info/link.txt instead, as "
                      "directory|target|name");
    } else if (!S_ISREG(status.st_mode)) {
        throw problem(member + " is no regular file");
    } else if (static_cast<uint64_t>(status.st_size) > largest_file) {
        throw problem(member + " is too large: a package holds files of less than 4 GiB");
    } else {
        tree->files[member] = {path, static_cast<uint64_t>(status.st_size),
                               (status.st_mode & 0111) != 0,
                               (status.st_mode & (S_ISUID | S_ISGID | S_ISVTX)) != 0};
    }
}

static void add_files(source_tree *tree, const std::string &dir, const std::string &member_prefix) {
    const std::vector<std::string> names = names_in(dir);
    if (names.empty()) {
        tree->remarks.push_back(member_prefix + " is an empty directory and is not packed");
    }
    for (const std::string &name : names) {
        add_entry(tree, joined(dir, name), joined(member_prefix, name));
    }
}

source_tree read_source_tree(const std::string &dir, bool makes_base_layout) {
    if (std::error_code failed; !std::filesystem::is_directory(dir, failed)) {
        throw problem(failed ? dir + ": " + failed.message() : dir + " is no directory");
    }
    source_tree tree;
    tree.attributes = read_attributes(std::filesystem::path(dir) / "package.ldif");
    for (const std::string &name : names_in(dir)) {
        const std::string path = joined(dir, name);
        if (name == "package.ldif") {
            continue;
        }
        if (std::find(std::begin(forks), std::end(forks), name) == std::end(forks) ||
            !S_ISDIR(status_of(path).st_mode)) {
            throw problem(path +
                          " does not belong into a source tree: beside package.ldif it holds only "
                          "the folders data, conf, dump, init and info");
        }
        add_files(&tree, path, name);
    }
    check_forks(&tree, makes_base_layout);
    return tree;
}
