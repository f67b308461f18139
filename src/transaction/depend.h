// Where one dependency is to be had: inventory, directories, catalogue.
#pragma once

#include "repository/snapshot.h"
#include "support/handle.h"
#include "transaction/vrt.h"

// Looks up one dependency of a candidate and fills in `**out`, a record of the caller's whose
// former content is not freed. The first place that has it decides, whichever version another
// offers:
//
//   status   action   where
//   I        N        installed, nothing to do
//   L        I        a package file in one of `dirs`, to be installed
//   R        I        the catalogue, to be fetched and installed
//   U        0        nowhere; `info` is null
//
// `candidate` and `dependency` are package names, `vrc` is the catalogue's connection, `dirs` a
// null-terminated array or null for none. Returns `*out`; vrd_free releases what it was filled
// with. When memory fails for the names nothing is looked up, and one of them is null.
vrd *vrm_get_dependency(vrm_handle *handle, const char *candidate, const char *dependency,
                        void *vrc, char *const *dirs, vrd **out);

// The same, with what is installed as the view has it. Private to the library.
vrd *find_dependency(const installed_view &installed, const char *candidate, const char *dependency,
                     void *vrc, char *const *dirs, vrd **out);
