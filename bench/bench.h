// What the benchmarks share.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "support/handle.h"

// Where generated data goes.
extern const std::string bench_dir;

// A handle of a repository at this root, which may hold an inventory; lives to the end.
vrm_handle *open_repository(const std::string &root);

// One with nothing installed.
vrm_handle *bench_repository();

// Connects the default backend to a directory of package files, with its index in `index`, and
// refreshes it.
void *connect_backend(const std::string &dir, const std::string &index);

// Figures that are not times of a function.
void measure_cache_memory();
void measure_changes();
void measure_commands();
void measure_audits();

// What the tool costs on a disk; see scripts/bench --disk. Arguments: a directory for images, the
// number of runs, and the groups of rows to measure (many, small, words; none: all). Result: the
// exit status, which no figure changes.
int measure_disk(int argc, char **argv);

// The global cache, filled from a generated catalogue of this size. Result: its connection.
void *with_cache_of(int64_t size);

void set_catalogue_bounds();
void set_update_bounds();
void set_inventory_bounds();
void set_history_bounds();
