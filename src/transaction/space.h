// Room on the file systems that a change writes to, found out ahead of what it changes.
#pragma once

#include <cstddef>

#include "support/handle.h"
#include "transaction/vrt.h"

// Whether changes begin without a look at the room for them; false at first. For file systems that
// count their room in other ways than they report it.
extern bool vrm_ignore_space;

// Whether there is room for what installations and updates are going to bring: the package files
// that the stage area lacks, and the packages that are unpacked there. Where the stage area lies on
// the file system of `/` and `/usr`, it must have room for all that the packages add to the system;
// otherwise for the largest of them. The sizes are those of the catalogue and of the inventory, so
// this is a first look; each change has a second one at what it unpacked. Transactions that remove
// need nothing here.
// `transactions` are `count` plans, none of them null. Result: 1, or 0 with an ERROR line that
// names the file system, what is needed and what is free. 1 when the room can't be found out, and
// with `vrm_ignore_space`.
int vrm_has_space(vrm_handle *handle, const vrt *const *transactions, size_t count);

// ---- Private to the library ----

struct change;

// The second look: whether each file system has room for all that an unpacked package brings and
// for the copies of what can't be saved by a second name, in blocks. What the change touches must
// have been found. Result: false with an ERROR line, as above.
bool has_space(const change &change);
