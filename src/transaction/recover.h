// Bringing back what a change that died left half done.
#pragma once

#include "support/handle.h"

// Brings the inventory back to what it was before an update that died, by a kill or a crash, amidst
// the renames that enter the new version: one package then has no entry under its name, or a file
// index that isn't its entry's. The old version is registered again, over files that are the new
// one's already, and the same update does all of its steps anew. An update that died before the
// renames has its old registration in place, one that died after them the new one: those are left
// alone, and so is the retired registration of the second, which a cleanup takes.
// `handle` must hold the repository lock. Result: how many packages were brought back, each with a
// WARNING; -1 without the lock and when memory fails.
int vrm_undo_broken_swaps(vrm_handle *handle);

// The packages that vrm_undo_broken_swaps would bring back, sorted by bytes. Only looks, and needs
// no lock: while another process holds it there are none, as the swap of an update that runs looks
// the same. A new array for arr_free; null when there are none and when memory fails.
char **vrm_broken_swaps(vrm_handle *handle);
