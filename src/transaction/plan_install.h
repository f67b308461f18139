// Planning of an installation: what it would do, without touching the disk.
//
// A planner finds the candidate, has its dependencies walked, and makes the transaction of what is
// left. The reasons of a failure are on the log (vrm_pre_install) or in the text of the user
// interface object (vrm_walk).
//
// A walk keeps its place between the levels in static data, one set for each of the two walkers, so
// two walks by the same walker can't run at the same time. A walk starts over when it finds `*deps`
// null.
#pragma once

#include "repository/snapshot.h"
#include "support/handle.h"
#include "transaction/vrt.h"

// Plans the installation of a package. `name` is a name of the catalogue, for which `variant` and
// `version` may be given or null, or the path of a package file. `vrc` is the connection to the
// catalogue; `dirs`, a null-terminated array or null, are directories with package files, which are
// searched for dependencies before the catalogue. The result is a new transaction for vrt_free,
// also stored in `*out`, or null when the candidate can't be found or is installed in any version,
// or when a dependency can't be had; `*out` is left alone then. Its `deps` are what is to be
// installed, once each, in the order of vrds_sort.
//
// A candidate of a foreign architecture gives a transaction nonetheless, without dependencies. Only
// the dependencies' architecture makes a plan fail.
vrt *vrm_pre_install(vrm_handle *handle, void *vrc, const char *name, const char *variant,
                     const char *version, char *const *dirs, vrt **out);

// The same, with what is installed as the view has it, which may be a snapshot.
vrt *plan_install(const installed_view &installed, void *vrc, const char *name, const char *variant,
                  const char *version, char *const *dirs, vrt **out);

// The whole dependency tree of a package, what is installed included, to be shown: `action`,
// `scripts` and `hookcmds` are not set, so that no executor can carry it out. The package itself
// may be installed. Arguments and result as above.
vrt *vrm_walk(vrm_handle *handle, void *vrc, const char *name, const char *variant,
              char *const *dirs, vrt **out);

// The same, with what is installed as the view has it.
vrt *plan_tree(const installed_view &installed, void *vrc, const char *name, const char *variant,
               char *const *dirs, vrt **out);
