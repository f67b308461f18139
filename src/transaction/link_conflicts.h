// Private to the transactions: what is in the places of a package's links, and whose it is.
//
// Two packages may list the same link with the same target; each then leaves it to the other. A
// link is known by where it lies, however a list spells the directory.
#pragma once

#include <map>
#include <string>
#include <unordered_set>
#include <vector>

struct change;
class link_resolver;

// The targets of links by where they lie.
using link_targets = std::map<std::string, std::string>;

// What the links of a package may replace.
struct settled_links {
    std::unordered_set<std::string> places;  // of all links of the package
    std::vector<std::string> unowned;        // links and files there that belong to nobody,
    std::vector<std::string> files;          // and which of them are files
};

// Looks at the links of an unpacked package before anything is written. Another package that lists
// one of them with another target, or that owns a file in the place of one, is a conflict. Without
// a link list nothing is read. Of other kinds than files and links nothing is replaced here.
// The links of what is replaced are the package's own.
// Result: false, with an ERROR line, for a conflict and when a list can't be read.
bool settle_links(const change &change, settled_links *links);

// For an update: the links of the old version that are on the disk as it lists them.
// Result: false, with an ERROR line, when the list can't be read.
bool read_links_in_place(const change &change, link_resolver *resolver, link_targets *links);

// The links that the new side lists. Result as above.
bool read_new_links(const change &change, link_resolver *resolver, link_targets *links);

// Whether no other package lists one of these links. Result: false, with an ERROR line, when one
// does, and when a list can't be read.
bool no_other_lists(const change &change, const link_targets &links, link_resolver *resolver);

// Removes the files that are in the way of links, and applies the link list. Result: as of
// vrm_vrf_links.
int make_links(const std::string &list, const settled_links &links);

// For a removal: the links of the package that other installed packages list too.
// Result: false, with an ERROR line, when a list can't be read.
bool find_shared_links(const change &change, std::unordered_set<std::string> *shared);

// Removes the links of a list that still have the target that is listed and are not shared. Result:
// as of vrm_vrf_links.
int remove_links(const std::string &list, const std::unordered_set<std::string> &shared);
