// The registration of a package: its entry of the inventory and its file index. Private to the
// library.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "package/vri.h"
#include "support/handle.h"
#include "support/own.h"

struct change;

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

// Builds the new registration: the entry with the info files, the hash lists, the scripts and the
// forks conf and dump, its install record, and the file index. The install record comes after
// everything else of the entry. The file index is the last of all. Both are built under names that
// no listing shows. Result: 0, or -1 with an ERROR line; what was built stays.
int build_registration(change *change);

// Puts the new registration in its place, and that of an update's old version aside. Nothing goes
// back from here: what can't be entered is a WARNING, and a recovery enters it. A version without
// data brings no index, and leaves the package without one. Result: 0.
int enter_registration(change *change);

// The same for a change that was cut off while or before it did so: what is done already is not
// done again. Result: false with errno when not all could be done.
bool enter_built(const inventory_places &places, bool is_update, bool has_data);

// Removes what was built of a new registration.
void drop_new_registration(const inventory_places &places);

// Removes what the swap of an update set aside.
void drop_old_registration(const inventory_places &places);

// Takes a package out of the inventory.
void drop_registration(const inventory_places &places);
