// The catalogue: the contract of a backend, the loader, the cache and the search.
//
// A backend is a shared object in vrm_backend_dir that exports the five functions below with C
// linkage. The program exports nothing to it. Records and strings cross the boundary: what a
// backend allocates for the engine, the engine frees, so both use malloc and free of one heap and
// are built against the same declarations of `vri` and `s_ekva`. A backend is called from one
// thread only.
//
// The order of calls: vrm_vrc_load_configured, vrm_open, connect, refresh, vrm_vrc_cache_fill where
// the catalogue is to be held in memory, then searches and fetches. Release is never called.
#pragma once

#include <cstdio>

#include "package/vri.h"
#include "support/ekva.h"

inline constexpr char vrm_backend_dir[] = "/usr/lib/vrm";
inline constexpr char vrm_default_backend[] = "vrc-dirs.so";

// `vrc_connect`: starts the backend. `sys_conf` is the record of the system configuration, valid
// for the life of the process; `log` is the log object or null. The result is the connection, which
// only the backend understands, or null on failure.
using vrc_connect_function = void *(*)(s_ekva **sys_conf, void *log);

// `vrc_refresh`: brings the backend's view of the catalogue up to date. 0 on success.
using vrc_refresh_function = int (*)(void *vrc);

// `vrc_findpkg`: the records that match as vrm_vri_match in mode 1 has it. Each of `name`,
// `variant`, `version` and `filter` may be null, for no restriction; all null asks for the whole
// catalogue. `five` is always 5 and means nothing. The result is the number of records in `*out`, a
// new null-terminated array of new records (for vrm_vri_list_free); their order counts, since the
// first of equal versions wins. Without a match, and on failure, it is 0 and `*out` is left alone.
// A record has name, version, arch and description; variant null for the default variant; deps or
// null; filesize, the exact size of the package file, which a fetch is checked against; filehash,
// its SHA-1 in 40 lower-case hexadecimal digits, which saves fetching a file that is staged
// already; and the two URIs, for display.
using vrc_findpkg_function = int (*)(void *vrc, const char *name, const char *variant,
                                     const char *version, int five, s_ekva **filter, vri ***out);

// `vrc_readpkg`: writes the package file of a record to `out`, which stays open. The result is the
// number of bytes written; anything but the record's filesize is a failure.
using vrc_readpkg_function = int (*)(void *vrc, vri *package, FILE *out);

// `vrc_release`: must be there, but nothing calls it.
using vrc_release_function = void (*)(void *vrc);

// Set by a vrm_vrc_load that succeeds; null before the first one, and after one that missed a
// function.
extern vrc_connect_function pvrm_vrc_connect;
extern vrc_refresh_function pvrm_vrc_refresh;
extern vrc_findpkg_function pvrm_vrc_findpkg;
extern vrc_readpkg_function pvrm_vrc_readpkg;
extern vrc_release_function pvrm_vrc_release;

extern const char *vrc_backend;   // the configuration's value, a string of its record
extern char *vrc_filename;        // the backend's base name
extern char *vrc_fullname;        // the path that is loaded
extern void *vrc_backend_handle;  // what dlopen returned
extern void *vrc;                 // the connection
extern vri **vrc_cache;           // the whole catalogue, or null
extern vri **vri_cache;           // unused

// Loads a backend by its path and sets the five pointers. The result is the library for
// vrm_vrc_close, or null with the reason on stderr, when it can't be loaded or lacks a function. Of
// the latter no pointer is left.
void *vrm_vrc_load(const char *filename);

// Unloads a backend. The five pointers stay, and lead nowhere. 0 on success.
int vrm_vrc_close(void *library);

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
