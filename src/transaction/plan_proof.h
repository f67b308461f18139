// Private to the transactions: what a plan says of a package, held against what is signed.
#pragma once

#include <string>

#include "transaction/change_run.h"

// The package file under the name by which the user or the catalogue knows it.
std::string file_name_of(const vri *package);

// What the plan says of a package that its signed record does not say, as difference_in_words;
// empty when they agree. A catalogue may know nothing of creator and data size, which play no part
// in a plan; only its records may leave them out. `package` is a record of the plan itself.
std::string plan_difference(const vrt *plan, const vri *package, const vri *signed_record);

// Makes sure, before the first package of a plan is installed, that what brings dependencies in is
// signed: a dependency that only a head or a catalogue claims would be installed, with its scripts,
// before the package that names it is refused. When the plan changes a dependency, the staged files
// of the top package, and of each dependency to be changed that has dependencies itself, must have
// a valid signature, a head that is the signed description, and the record that was planned. One
// whose own staged file isn't there is passed over, its change will fail.
// Result: 0, or -1 with an ERROR line that begins with the executor.
int prove_dependencies(const change_run &run);
