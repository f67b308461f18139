// Unpacking a staged package file, and the proof that what came out is what was signed and planned.
//
// The new stage directory holds the unpacked package (package/hashlist.h describes its forks).
#pragma once

#include <string>

#include "package/vri.h"
#include "support/own.h"
#include "transaction/vrt.h"

// 1 when the package in hand brought a shared library, so that ldconfig must run. Set by
// vrm_chk_sub_files, cleared by the executors for each package.
extern int have_so;

// Proves that the unpacked package in `stage` holds only what its hash lists say, fork by fork in
// the order data, info, init, conf, dump. The caller sets the five places to null first. On success
// (0) each holds the paths of its fork's files, relative to the fork with a slash in front, in the
// order in which the directories list them, for arr_free; null for a fork without files. At the
// first fork that fails all five are null and the result is that of vrm_chk_sub_files.
int vrm_chk_all_files(const char *stage, char ***data, char ***info, char ***init, char ***conf,
                      char ***dump);

// The same for the one fork `sub`: 0, the number of files that its list doesn't have with their
// content, or -1 when the list is missing or damaged or a file can't be read. A listed file that
// isn't there goes unnoticed. A path that matches "*.so.*" sets have_so, also when the fork fails.
int vrm_chk_sub_files(const char *stage, const char *sub, char ***list);

// ---- Private to the library ----

struct change;

// The files of an unpacked package by fork, as verified: paths relative to the fork, with a leading
// slash. A fork without files is null.
struct package_forks {
    own_array data, info, init, conf, dump;
};

// Whether a fork holds exactly this path.
bool fork_has(const own_array &fork, const char *path);

// The package file under the name by which the user or the catalogue knows it.
std::string file_name_of(const vri *package);

// What the plan says of a package that its signed record does not say, as difference_in_words;
// empty when they agree. A catalogue may know nothing of creator and data size, which play no part
// in a plan; only its records may leave them out. `package` is a record of the plan itself.
std::string plan_difference(const vrt *plan, const vri *package, const vri *signed_record);

// Unpacks the staged file to its stage directory (make_stage_directory), proves the payload by its
// hash lists, and compares the plan's record and the head of the staged file with the signed
// description of what was unpacked. From there on the signed record is the change's new package. It
// has the verified signature of the head, as hooks may ask for the signer.
// Result: 0; -1 for a stage directory that is refused, for a record that is missing or disagrees
// and for an old side of another name; or the code of the unpacking or of vrm_chk_all_files. With
// an ERROR line.
int unpack(change *change);
