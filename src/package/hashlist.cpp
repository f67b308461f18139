#include "package/hashlist.h"

#include <dirent.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "package/vrs.h"
#include "support/boundary.h"
#include "support/digest.h"
#include "support/event.h"
#include "support/file.h"
#include "support/log.h"
#include "support/own.h"

namespace {

constexpr int first_capacity = 100;
constexpr int record_mode = 3;
constexpr size_t relative_size = 4097;
constexpr size_t hash_length = 40;
// A line of a list: hash, colon, a path, and room for the line end.
constexpr size_t line_limit = 4193;

struct listed_entry {
    std::string name;
    bool is_directory;
};

}  // namespace

static bool add_hash(s_ekva ***hashes, const char *hash, const char *path) {
    log_debug("Adding hash %s for file %s", hash, path);
    return ekva_addval(hashes, hash, path, 0) > 0;
}

int vrm_vrf_vrk_hashes(const char *dir, const char *fork, s_ekva ***hashes) {
    return guarded(-1, [&] {
        const std::string path = std::string(dir) + "/hash/" + fork + ".txt";
        const own_file stream(fopen_regular(path.c_str()));
        if (!stream) {
            log_debug("vrm_vrf_vrk_hashes: no file: %s, exiting", path.c_str());
            return 0;
        }
        *hashes = ekva_new(first_capacity, record_mode);
        char line[line_limit + 1];
        while (fgets(line, sizeof line, stream.get())) {
            line[strcspn(line, "\n")] = '\0';
            const size_t length = strlen(line);
            if (length == 0) {
                continue;
            }
            if (length < hash_length + 2 || line[hash_length] != ':') {
                report({.kind = event_kind::hash_line_short});
                return -1;
            }
            const std::string hash(line, hash_length);
            // The colon's place is the slash's in memory.
            line[hash_length] = '/';
            if (!add_hash(hashes, hash.c_str(), line + hash_length)) {
                return -1;
            }
        }
        if (ferror(stream.get())) {
            report({.kind = event_kind::hash_list_not_read, .path = path});
            return -1;
        }
        return 0;
    });
}

// All entries but "." and "..", in the order of readdir. The directory is closed again before any
// entry is looked at: a deep tree must not use up the process's descriptors.
static bool list_directory(const std::string &path, std::vector<listed_entry> *entries) {
    own_dir dir(opendir(path.c_str()));
    if (!dir) {
        return false;
    }
    while (const dirent *entry = next_entry(dir)) {
        if (!is_self_or_parent(entry)) {
            entries->push_back({entry->d_name, type_of_entry(dir.get(), *entry) == DT_DIR});
        }
    }
    // A listing that broke off would let files pass that nobody hashed.
    const bool whole = errno == 0;
    if (closedir(dir.release()) != 0) {
        report({.kind = event_kind::directory_not_closed, .path = path});
        return false;
    }
    return whole;
}

// Hashes the files of a tree, unless their digests are known by the path below `base`.
struct tree_to_hash {
    std::string root;
    std::string base;
    const file_digests *known;
    s_ekva ***hashes;
};

static bool hash_file(const tree_to_hash &tree, const std::string &relative) {
    char hash[hash_length + 1];
    if (tree.known) {
        const auto found = tree.known->find(tree.base + relative);
        if (found != tree.known->end()) {
            sha1_format(found->second.data(), 'x', hash);
            return add_hash(tree.hashes, hash, relative.c_str());
        }
    }
    const std::string path = tree.root + "/" + relative;
    if (!vrs_sha1_file(path.c_str(), 'x', hash)) {
        report({.kind = event_kind::file_not_digested, .path = path});
        return false;
    }
    return add_hash(tree.hashes, hash, relative.c_str());
}

static bool hash_tree(const tree_to_hash &tree, const std::string &relative) {
    const std::string path = tree.root + relative;
    struct stat st = {};
    if (lstat(path.c_str(), &st) != 0) {
        if (errno == ENOENT) {
            log_debug("no directory %s under %s", relative.c_str(), tree.root.c_str());
            return true;
        }
        report({.kind = event_kind::path_not_found, .path = path});
        return false;
    }
    std::vector<listed_entry> entries;
    if (!S_ISDIR(st.st_mode) || !list_directory(path, &entries)) {
        return false;
    }
    if (!*tree.hashes) {
        *tree.hashes = ekva_new(first_capacity, record_mode);
    }
    for (const listed_entry &entry : entries) {
        const std::string below = relative + "/" + entry.name;
        if (!entry.is_directory) {
            if (!hash_file(tree, below)) {
                return false;
            }
            continue;
        }
        if (!hash_tree(tree, below)) {
            log_debug("vrm_vrf_hash_files on %s got rc=-1\n", below.c_str());
            return false;
        }
    }
    return true;
}

int vrm_vrf_hash_files(const char *root, char **relative, s_ekva ***hashes) {
    return guarded(-1, [&] {
        if (!*relative) {
            *relative = static_cast<char *>(calloc(relative_size, 1));
            if (!*relative) {
                return -1;
            }
        }
        return hash_tree({root, "", nullptr, hashes}, *relative) ? 0 : -1;
    });
}

int hash_fork(const char *root, const char *fork, const file_digests *known, s_ekva ***hashes) {
    return guarded(-1, [&] {
        return hash_tree({std::string(root) + "/" + fork, fork, known, hashes}, "") ? 0 : -1;
    });
}
