// Planning of an update: whether an installed package is to be updated, and to what.
#pragma once

#include "repository/snapshot.h"
#include "support/handle.h"
#include "transaction/vrt.h"

// Plans the update of an installed package, without touching the disk. `name` is the package's name
// or the path of a package file. `vrc` is the connection to the catalogue; `dirs`, a
// null-terminated array or null, are directories with package files, which are searched for
// dependencies before the catalogue.
//
// `variant` may be null: a package stays in its variant unless another is asked for. `version` may
// be null: then a name is only updated to a newer version, while a version that is asked for may be
// older as well. A package file may be older in any case, as the user chose that very file.
//
// The result is a new transaction for vrt_free, also stored in `*out`, or null when there is
// nothing to do, when the package is not installed or not to be had, or when one of its
// dependencies can't be had; `*out` is left alone then, and the log has the reason. Its `deps` are
// what the walk of vrm_chk_install found, in that order, with what is installed and with repeats,
// and all of them count in the totals. A candidate of a foreign architecture gives a transaction
// nonetheless, without dependencies.
//
// Searches of the catalogue are answered by `vrc_cache` where that is filled (repository/vrc.h),
// which is what a caller wants who plans the updates of all packages.
vrt *vrm_pre_update(vrm_handle *handle, void *vrc, const char *name, const char *variant,
                    const char *version, char *const *dirs, vrt **out);

// The same, with what is installed as the view has it, which may be a snapshot.
vrt *plan_update(const installed_view &installed, void *vrc, const char *name, const char *variant,
                 const char *version, char *const *dirs, vrt **out);

// Plans the update of a package of vrm_broken_swaps (transaction/update.h) from its old version, as
// vrm_pre_update does once that is registered again, so that what a user is offered holds when the
// next change has brought it back. Arguments and result are those of vrm_pre_update.
vrt *vrm_pre_update_again(vrm_handle *handle, void *vrc, const char *name, vrt **out);

// What stands behind the null of a vrm_pre_update, as far as the package itself goes.
enum update_outlook {
    UPDATE_WANTED,         // there is something to do; what can still fail are the dependencies
    UPDATE_NOT_NEEDED,     // what is installed is as good or better
    UPDATE_NOT_OFFERED,    // the catalogue has no package of that name, variant and version
    UPDATE_NOT_INSTALLED,  // there is nothing that could be updated
    UPDATE_NO_PACKAGE,     // the file is no package file
};

// Judges a request as vrm_pre_update does, with the same arguments and the same lines on the log,
// but looks at no dependency and plans nothing. A caller who has many packages to look at plans
// only those that are wanted.
update_outlook vrm_update_outlook(vrm_handle *handle, void *vrc, const char *name,
                                  const char *variant, const char *version);

// The same, with what is installed as the view has it.
update_outlook outlook_of_update(const installed_view &installed, void *vrc, const char *name,
                                 const char *variant, const char *version);
