// The choice of one package among versions and variants, and the catalogue lookups built on it.
//
// A variant is a named alternative build of a package; a record without one is of the default
// variant, for which "default" and "" stand in a request. Versions compare by strverscmp and
// nothing else: 1.10 is newer than 1.9, and 1.0 than 1.00.
//
// `connection` is that of the catalogue's backend. Finding nothing is no error and is told nowhere
// but at DEBUG. Not reentrant (vrk_puname).
#pragma once

#include "package/vri.h"
#include "support/handle.h"

// The index of the chosen record in a null-terminated list, -1 when there is none. Only records of
// exactly this name count.
//
// A variant that is asked for must be met exactly, and the highest version of it wins, the first
// among equal ones. Null asks for none in particular: then the default variant wins over all
// others, whatever their versions, and without one the only other variant there is serves as a
// fallback. Records of two other variants cancel each other, and the next one starts over. That a
// later default record also replaces one that followed such a pair, whatever the versions say, is
// part of the rule.
int vrm_findone(const char *name, const char *variant, vri *const *list);

// What matches in the catalogue (vrm_findpkg) and is not installed, as copies in a new array in
// *out, in the catalogue's order. With `newest` not 0 only the newest version of each variant of a
// name. The result is their number, with an empty array when all that matches is installed. When
// nothing matches it is what the catalogue said, less than 1, and *out is left alone. The caller
// frees the array with vrm_vri_list_free. When memory fails it is 0, and *out is left alone.
int vrm_findpkg_new(vrm_handle *handle, void *connection, const char *name, const char *variant,
                    s_ekva **filter, int newest, vri ***out);

// The best catalogue record of a name, by vrm_findone, for the caller to free with vrk_info_free;
// null when there is none. `variant` and `version` may be null. The handle isn't used.
vri *vrm_findone_vrc(vrm_handle *handle, const char *name, const char *variant, const char *version,
                     void *connection);
