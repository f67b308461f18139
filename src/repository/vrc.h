// The catalogue: the loader of backends, their reports, the cache and the search.
//
// What a backend is, and the contract of its functions, is in vrm/vrc_backend.h. A backend is
// called from one thread only.
//
// The order of calls: vrm_vrc_load_configured, vrm_open, connect, vrm_vrc_watch, refresh,
// vrm_vrc_cache_fill where the catalogue is to be held in memory, then searches and fetches.
// Release is never called.
#pragma once

#include "package/vri.h"
#include "support/ekva.h"
#include "vrm/vrc_backend.h"

inline constexpr char vrm_backend_dir[] = "/usr/lib/vrm";
inline constexpr char vrm_default_backend[] = "vrc-dirs.so";

// The versions of the interface that a backend may have been built for: from this one to VRC_ABI.
// One that doesn't say is of version 1.
inline constexpr uint32_t vrm_oldest_backend_abi = 1;

// Set by a vrm_vrc_load that succeeds; null before the first one, and after one that missed a
// function.
extern vrc_connect_function pvrm_vrc_connect;
extern vrc_refresh_function pvrm_vrc_refresh;
extern vrc_findpkg_function pvrm_vrc_findpkg;
extern vrc_readpkg_function pvrm_vrc_readpkg;
extern vrc_release_function pvrm_vrc_release;
// Null also when the backend does without them.
extern vrc_set_report_function pvrm_vrc_set_report;
extern vrc_count_function pvrm_vrc_count;

extern const char *vrc_backend;   // the configuration's value, a string of its record
extern char *vrc_filename;        // the backend's base name
extern char *vrc_fullname;        // the path that is loaded
extern void *vrc_backend_handle;  // what dlopen returned
extern void *vrc;                 // the connection
extern vri **vrc_cache;           // the whole catalogue, or null
extern vri **vri_cache;           // unused

// Loads a backend by its path and sets the pointers. The result is the library for vrm_vrc_close,
// or null with the reason on stderr, when it can't be loaded, was built for a version of the
// interface that isn't supported (also on the log), or lacks one of the five functions. In the last
// two cases all pointers are null.
void *vrm_vrc_load(const char *filename);

// Unloads a backend. The pointers stay, and lead nowhere. 0 on success.
int vrm_vrc_close(void *library);

// Has the loaded backend report from now on: what the connect function had to report at once, the
// rest while the other functions run. Each report becomes an event (support/event.h). The result is
// 1, or 0 when the backend doesn't report.
int vrm_vrc_watch(void *connection);

// Reports what a backend reports as an event, in the name of `backend`. A report of a kind that is
// not known here, and one that lacks a field of the first version of reports, is ignored.
void vrm_vrc_report(const vrc_report *given, const char *backend) noexcept;

// Whether the catalogue has no record: by `vrc_cache` when it is set, else by what the backend
// counts. Of a backend that does not count, the whole catalogue is asked for;
// one that fails has none.
bool vrm_vrc_is_empty(void *connection);

// Whether the backend finds exact names fast: then many of them are better looked up one by one
// than in a copy of the whole catalogue, which takes time and memory for each record.
bool vrm_vrc_has_index();

// Loads the backend that the configuration names by `vrc_backend`, else the default one. A
// directory part of the name is dropped: a backend only ever comes from vrm_backend_dir. Sets
// vrc_backend, vrc_filename, vrc_fullname and vrc_backend_handle, which is the result, null on
// failure. What the failure means is for the program to say.
void *vrm_vrc_load_configured(s_ekva *const *sys_conf);

// The whole catalogue in the backend's order, for `vrc_cache`; null when it is empty. Released with
// vrm_cache_free and nothing else, and not changed before that: an index by name goes with the
// array, which makes a search for an exact name one look-up. There is one index, of the array that
// was filled last; the search in another array walks it.
vri **vrm_vrc_cache_fill(void *connection);

// Frees a catalogue with its records. Null is accepted. It does not clear `vrc_cache`.
void vrm_cache_free(vri **cache);

// Searches the catalogue: `vrc_cache` when it is set, sorted by name, else the backend. Arguments
// and result are those of vrc_findpkg; `*out` is set to null only when `connection` is null. When
// memory fails nothing is found.
int vrm_findpkg(void *connection, const char *name, const char *variant, const char *version,
                int five, s_ekva **filter, vri ***out);
