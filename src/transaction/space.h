// Room on the file systems that a change writes to, found out ahead of what it changes.
#pragma once

#include <vector>

#include "repository/snapshot.h"
#include "transaction/vrt.h"

// Whether changes begin without a look at the room for them; false at first. For file systems that
// count their room in other ways than they report it.
extern bool vrm_ignore_space;

// Whether there is room for what installations and updates are going to bring: the package files
// that the stage area lacks, and the packages that are unpacked there. Where the stage area lies on
// the file system of `/` and `/usr`, it must have room for all that the packages add to the system;
// otherwise for the largest of them. The sizes are those of the catalogue and of the inventory, so
// this is a first look; each change has a second one at what it unpacked. Plans of removals need
// nothing here.
// Result: false with an ERROR line that names the file system, what is needed and what is free.
// True when the room can't be found out, and with `vrm_ignore_space`.
bool has_space_for(inventory_snapshot *installed, const std::vector<const vrt *> &plans);

// ---- Private to the library ----

struct change;

// A stage of a change (transaction/change.h), once a package is unpacked: whether each file system
// has room for all that it brings, in blocks. Result: 0, or -1 with an ERROR line, as above.
int look_at_space(change *change);

// The same for the copies of what can't be saved by a second name. What the change touches must
// have been found.
bool has_space_to_save(const change &change);
