// The rows of the update screen: what can be updated, what a cell says of it and which names a
// selection gives. Knows nothing of the toolkit.
#pragma once

#include <functional>

#include "gui/model/table_rows.h"
#include "support/handle.h"
#include "transaction/vrt.h"

// The rows on screen, null when there are none, and their number: each package that can be updated,
// and behind it what it needs and is not installed yet. What several of them need stands there
// once.
extern vra **vra_list;
extern int num_vras;

// Whether the name that the program was called by asks for this screen alone: it contains
// "-update", anywhere. Null doesn't.
bool asks_for_updates_only(const char *program_name);

inline constexpr table_columns update_columns = {{{"Action", 60, nullptr},
                                                  {"Package", 160, &vri::name},
                                                  {"Version", 60, &vri::version},
                                                  {"Description", 450, &vri::description}}};

// Writes the text of a cell of `vra_list`, as write_cell does. A cell outside the list is empty.
// The action is that of the first entry in every row, on purpose: the screen is one of updates, and
// what comes along with them is part of an update.
void update_cell(int row, int column, cell_text &text);

// Frees the list: no rows are left.
void update_rows_free();

// Fills the list, which is empty, with the updates of all installed packages, in the order of the
// inventory, and behind them those of packages whose update was cut off (vrm_broken_swaps), each
// with a WARNING. `connection` is that of the catalogue's backend, which is asked for every single
// package unless `vrc_cache` is filled.
void update_rows_plan(vrm_handle *handle, void *connection);

// Makes *names the names of the selected rows, as choose_names does.
int update_rows_choose(const std::function<bool(int row)> &selected, char ***names);
