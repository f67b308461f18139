// Private to the transactions: the registration of an update, which is built beside the old one and
// takes its place by renames.
#pragma once

#include <string>

#include "support/handle.h"

// The places of a package in the inventory. What begins with a dot is passed over by all listings.
struct inventory_places {
    std::string entry, new_entry, old_entry;
    std::string index, new_index, old_index;
};

inventory_places places_of(const vrm_handle *handle, const char *package_name);

// Removes what an update that died left of its new registration.
void drop_new_registration(const inventory_places &places);

// Puts the new registration in the place of the old one. There is no way back from here, so the
// results don't matter. A version without data brings no index, and leaves the package without one.
void swap_in(const inventory_places &places, bool with_index);

// Removes what the swap set aside.
void drop_old_registration(const inventory_places &places);
