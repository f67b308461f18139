// Transactions of a change, as a job makes and trims them.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "pvrm/removal_plan.h"
#include "support/handle.h"
#include "transaction/vrt.h"

// The names of all packages that a transaction changes, with the top package first.
std::vector<std::string> names_of(const vrt &transaction);

// Removes the dependencies that a caller does not want, and takes their sizes off the totals.
void drop_deps(vrt *transaction, const std::function<bool(const vrd &)> &is_unwanted);

// The transaction of a planned removal; `installed` is the list that the plan was made of. Null
// when memory fails.
own_vrt removal_transaction(const removal_plan::removal &planned,
                            const std::vector<const vri *> &installed);

// Clears what earlier attempts left in the stage directories of all packages that a transaction is
// about to change (vrm_clear_stage). False, with the reasons reported, when the transaction must
// not begin.
bool clear_stages(vrm_handle *repository, const vrt &transaction);
