// Private to the library: what installing, updating and repairing share of a package's
// registration.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "package/vri.h"
#include "support/handle.h"
#include "support/own.h"
#include "transaction/unpack.h"

struct settled_links;

// Applies the link list and the permission list of an unpacked package, in the order of its info
// files. Only the links that were settled replace something (link_conflicts.h). `who` begins the
// DEBUG lines that tell the results, which nobody else looks at.
void apply_links_and_perms(const char *who, const std::string &stage, const own_array &info,
                           const settled_links &links);

// Copies what the inventory keeps of an unpacked package into `entry`, which is made with its
// `hash` directory: the info files, the hash lists, the scripts, and the forks conf and dump.
// Result: null, or what could not be copied, in the words of the messages: "info files", "data hash
// file", "init files", "init hash file", and so on with conf and dump.
const char *register_forks(const std::string &stage, const std::string &entry,
                           const package_forks &forks);

// Writes the paths of a file index, one a line. Result: 0, or -1 when not all of it reached the
// disk; a half-written file is removed.
int write_fileindex(const std::string &path, char *const *files);

// Writes the install record of an entry, its inst.txt, to a stream, and closes it. `head` may be
// null; `updates` are the times of the updates, oldest first. Result: whether all of it reached the
// disk; false for no stream.
bool write_install_record(own_file out, int64_t installed, char type, const char *head,
                          const std::vector<int64_t> &updates);

// The update times of a record, with this moment as the latest.
std::vector<int64_t> updates_until_now(const vri *package);

// Runs ldconfig when the package in hand brought a shared library, and clears have_so.
void refresh_linker_cache(const char *who);

// The places of a package in the inventory. What begins with a dot is passed over by all listings.
struct inventory_places {
    std::string entry, new_entry, old_entry;
    std::string index, new_index, old_index;
};

inventory_places inventory_places_of(const vrm_handle *handle, const char *package_name);

// Removes what an update that died left of its new registration.
void drop_new_registration(const inventory_places &places);

// Puts the new registration in the place of the old one. There is no way back from here, so the
// results don't matter. A version without data brings no index, and leaves the package without one.
void swap_in(const inventory_places &places, bool with_index);

// Removes what the swap set aside.
void drop_old_registration(const inventory_places &places);
