// Private to the library: the entries of a link list and of a permission list (package/fileops.h),
// for those who have to know of links before they are made or removed, for lists that are applied
// in part, and for audits.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

struct link_entry {
    std::string directory;  // absolute; that of an earlier line where the own line has none
    std::string target;
    std::string name;  // a path in the directory
};

// A line that is left out.
struct refused_line {
    int number;  // the first line has 1
    std::string why;
};

// The links of a list in its order. Lines that are refused are left out, without a message.
// `refused`, unless null, receives them, and then more are refused: those that mean another place
// from another working directory, and those with a name that no link can have.
// Result: false with the reason in errno when the list can't be read to its end.
bool read_link_list(const std::string &path, std::vector<link_entry> *entries,
                    std::vector<refused_line> *refused = nullptr);

struct perm_entry {
    std::string path;  // absolute
    mode_t mode;       // permission and set-id bits
};

// The permissions of a list in its order, without the lines that have no effect. Lines that can't
// be applied, and relative paths, are `refused`.
// Result: false with the reason in errno when the list can't be read to its end.
bool read_perm_list(const std::string &path, std::vector<perm_entry> *entries,
                    std::vector<refused_line> *refused);

// vrm_vrf_links, with which it shares the log, but a symbolic link is only removed when
// `may_remove` allows it. With `create` the attempt to make the link is made all the same.
using link_condition = std::function<bool(const link_entry &)>;
int apply_link_list(const char *path, bool remove, bool create, const link_condition &may_remove);

// Finds out which entries mean the same link, also when directories above them are links.
class link_resolver {
 public:
    link_resolver() = default;
    // Links that are going to be directories: what is below them lies there, and not where they
    // lead.
    explicit link_resolver(const std::unordered_set<std::string> &directories_to_be)
        : directories_to_be_(directories_to_be) {}

    // Where the link of an entry lies: its directory without links, as far as it is there, and the
    // last component of its name. Empty for a name that no link can have, as "a/" or "..".
    std::string place_of(const link_entry &entry);
    std::string place_of(const std::string &path);

 private:
    std::string resolve(const std::string &directory) const;

    std::unordered_map<std::string, std::string> directories_;  // as spelled, without links
    std::unordered_set<std::string> directories_to_be_;
};
