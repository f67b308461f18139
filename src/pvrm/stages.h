// The stage directories of a change, seen to before it begins.
#pragma once

#include "support/handle.h"
#include "transaction/vrt.h"

// Clears what earlier attempts left in the stage directories of all packages that a transaction is
// about to change (vrm_clear_stage). False, with the reasons reported, when the transaction must
// not begin.
bool clear_stages(vrm_handle *repository, const vrt &transaction);
