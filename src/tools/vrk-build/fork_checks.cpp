#include "tools/vrk-build/fork_checks.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <string_view>

#include "tools/vrk-build/problem.h"

namespace {

constexpr size_t longest_line = 4095, longest_field = 2063;

constexpr const char *scripts[] = {"00-add.sh", "99-add.sh", "00-del.sh", "99-del.sh", "99-cfg.sh"};

// Names of the info fork land beside what the package manager itself keeps of the package.
constexpr const char *taken_names[] = {"desc.txt", "inst.txt", "hash", "init", "conf", "dump"};

// What the package manager keeps of all packages. Certificates and the scripts' shell lie beside it
// and may well come in a package.
constexpr const char *own_paths[] = {
    "/var/lib/vrm/installed", "/var/lib/vrm/fileindex",   "/var/lib/vrm/stagearea",
    "/var/lib/vrm/lock",      "/var/lib/vrm/install.log", "/var/lib/vrm/saved",
};

// The directories that every machine has, or has links for. A link of a package in the place of one
// goes with the package, and with it all programs.
constexpr const char *base_layout[] = {
    "/bin", "/boot", "/dev",     "/etc",     "/home",     "/lib",  "/lib64", "/media",
    "/mnt", "/opt",  "/proc",    "/root",    "/run",      "/sbin", "/srv",   "/sys",
    "/tmp", "/usr",  "/usr/bin", "/usr/lib", "/usr/sbin", "/var",
};

}  // namespace

// The path on the machine of a member that goes there; else empty.
static std::string live_path(const std::string &member) {
    const bool goes_there = member.starts_with("data/") || member.starts_with("conf/");
    return goes_there ? member.substr(4) : "";
}

static bool is_at_or_below(std::string_view path, std::string_view top) {
    return path.starts_with(top) && (path.size() == top.size() || path[top.size()] == '/');
}

static problem not_ours(const std::string &member, const std::string &owned) {
    return problem(member + " can't be packed: " + owned + " is the package manager's own");
}

static void check_own_names(const source_tree &tree) {
    for (const auto &[member, file] : tree.files) {
        const std::string path = live_path(member);
        for (const char *own : own_paths) {
            if (is_at_or_below(path, own)) {
                throw not_ours(member, own);
            }
        }
        if (!member.starts_with("info/")) {
            continue;
        }
        const std::string first = member.substr(5, member.find('/', 5) - 5);
        for (const char *taken : taken_names) {
            if (first == taken) {
                throw not_ours(member, "that name");
            }
        }
    }
}

static problem needs_directory(const std::string &member, const std::string &file) {
    return problem(file + " is a file, but " + member + " needs a directory there");
}

// Files of the folders data and conf go to the same places, where one path can't be two files, nor
// a file and a directory.
static void check_collisions(const source_tree &tree) {
    for (const auto &[member, file] : tree.files) {
        const std::string path = live_path(member);
        if (path.empty()) {
            continue;
        }
        const std::string other_fork = member.starts_with("data/") ? "conf" : "data";
        if (tree.files.contains(other_fork + path)) {
            throw problem("conf" + path +
                          " is in the folder data too: a file is either data or configuration");
        }
        for (size_t slash = path.rfind('/'); slash > 0; slash = path.rfind('/', slash - 1)) {
            std::string above = other_fork;
            above.append(path, 0, slash);
            if (tree.files.contains(above)) {
                throw needs_directory(member, above);
            }
        }
    }
}

static std::vector<std::string> fields_of(const std::string &line) {
    std::vector<std::string> fields(1);
    for (const char c : line) {
        if (c == '|') {
            fields.emplace_back();
        } else {
            fields.back() += c;
        }
    }
    return fields;
}

static std::vector<std::string> checked_fields(const std::string &line) {
    if (std::any_of(line.begin(), line.end(),
                    [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; })) {
        throw problem("it holds a control character; lines end in LF alone");
    }
    std::vector<std::string> fields = fields_of(line);
    if (line.size() > longest_line ||
        std::any_of(fields.begin(), fields.end(),
                    [](const std::string &field) { return field.size() > longest_field; })) {
        throw problem("it is too long");
    }
    return fields;
}

// Calls `take` with the fields of each line that is not empty; it throws what is wrong.
template <typename Take>
static void read_list(const source_tree &tree, const std::string &member, Take take) {
    const auto file = tree.files.find(member);
    if (file == tree.files.end()) {
        return;
    }
    const std::string text = read_text(file->second.path);
    int number = 0;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        const std::string line = text.substr(at, end - at);
        at = end + 1;
        number++;
        if (line.empty()) {
            continue;
        }
        try {
            take(checked_fields(line));
        } catch (const problem &wrong) {
            throw problem(member + ", line " + std::to_string(number) + ": " + wrong.what());
        }
    }
}

// The paths whose modes info/perm.txt tells.
static std::set<std::string> read_permissions(const source_tree &tree) {
    std::set<std::string> paths;
    read_list(tree, "info/perm.txt", [&paths](const std::vector<std::string> &fields) {
        const bool closed = fields.size() == 3 && fields[2].empty();
        if (fields.size() != 2 && !closed) {
            throw problem("it must read path|mode");
        }
        if (!fields[0].starts_with('/')) {
            throw problem("the path must begin with a slash");
        }
        const std::string &mode = fields[1];
        if (mode.empty() || mode.find_first_not_of("01234567") != std::string::npos ||
            mode.size() > 6 || std::stoul(mode, nullptr, 8) > 07777) {
            throw problem("the mode must be octal digits, 7777 at most");
        }
        paths.insert(fields[0]);
    });
    return paths;
}

static void check_base_layout(const std::string &directory, const std::string &name) {
    // As text: a path that consists of slashes alone keeps all of them otherwise.
    const std::string text = name.starts_with('/') ? name : directory + "/" + name;
    const std::string path = std::filesystem::path(text).lexically_normal().string();
    for (const char *base : base_layout) {
        if (path == base) {
            throw problem("the link " + path +
                          " would take the place of a directory of the base layout; only a package "
                          "that makes this layout may do so, with --base");
        }
    }
}

static void check_links(const source_tree &tree, bool makes_base_layout) {
    std::string current;  // the directory that counts for a line
    read_list(tree, "info/link.txt", [&](const std::vector<std::string> &fields) {
        if (fields.size() > 3) {
            throw problem("it must read directory|target|name");
        }
        const std::string &directory = fields[0];
        const std::string target = fields.size() > 1 ? fields[1] : "";
        const std::string name = fields.size() > 2 ? fields[2] : "";
        if (!directory.empty() && !directory.starts_with('/')) {
            throw problem("the directory must begin with a slash");
        }
        current = directory.empty() ? current : directory;
        if (current.empty()) {
            throw problem("the first line must name a directory");
        }
        if (target.empty() != name.empty() || (directory.empty() && target.empty())) {
            throw problem("target and name must both be given");
        }
        if (name == "." || name == ".." || name.ends_with('/') || name.ends_with("/.") ||
            name.ends_with("/..")) {
            throw problem("\"" + name + "\" is no name for a link");
        }
        if (!name.empty() && !makes_base_layout) {
            check_base_layout(current, name);
        }
    });
}

static void remark_scripts(source_tree *tree) {
    for (const auto &[member, file] : tree->files) {
        if (member.starts_with("init/") && std::find(std::begin(scripts), std::end(scripts),
                                                     member.substr(5)) == std::end(scripts)) {
            tree->remarks.push_back(member + " is kept, but is none of the scripts that are run");
        }
    }
}

static void remark_permissions(source_tree *tree, const std::set<std::string> &told) {
    for (const auto &[member, file] : tree->files) {
        const std::string path = live_path(member);
        if (file.special && !path.empty() && !told.contains(path)) {
            tree->remarks.push_back(member +
                                    " loses its special mode bits; give them in info/perm.txt, as "
                                    "path|mode");
        }
    }
}

void check_forks(source_tree *tree, bool makes_base_layout) {
    check_own_names(*tree);
    check_collisions(*tree);
    const std::set<std::string> told = read_permissions(*tree);
    check_links(*tree, makes_base_layout);
    remark_scripts(tree);
    remark_permissions(tree, told);
}
