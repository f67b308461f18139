// The rows of the package tables: what is on screen, what a cell of it says, which search fills it
// and which names a selection gives. Knows nothing of the toolkit.
//
// There is one list at a time, which the screens and their callbacks replace. It is freed before
// the next one is made, so that two long lists never stand in memory together.
#pragma once

#include <functional>

#include "gui/model/table_rows.h"
#include "package/vri.h"
#include "support/handle.h"

// The rows on screen, null when there are none, and their number.
extern vri **vri_list;
extern int sel_rows;

inline constexpr table_columns package_columns = {{{"Name", 160, &vri::name},
                                                   {"Variant", 60, &vri::variant},
                                                   {"Version", 60, &vri::version},
                                                   {"Description", 450, &vri::description}}};

// Writes the text of a cell of `vri_list`, as write_cell does. A cell outside the list is empty.
void package_cell(int row, int column, cell_text &text);

// Frees the list: no rows are left.
void package_rows_free();

// Replaces the list by all installed packages, by name.
void package_rows_list_installed(vrm_handle *handle);

// Replaces the list by the installed packages whose name or description matches what was typed, as
// vrm_list_vri has it. `label` is that of the field, for the log.
void package_rows_search_installed(vrm_handle *handle, const char *label, const char *typed);

// Replaces the list by the packages of the catalogue that aren't installed and whose name or
// description matches what was typed, the newest version of each variant (vrm_findpkg_new).
// `connection` is that of the catalogue's backend.
void package_rows_search_catalogue(vrm_handle *handle, void *connection, const char *label,
                                   const char *typed);

// Shows the details of the first selected row in a form, and waits for its end; with none selected
// only the log tells so. What is on screen is taken for installed.
void package_rows_view(const std::function<bool(int row)> &selected);

// Makes *names the names of the selected rows, as choose_names does.
int package_rows_choose(const std::function<bool(int row)> &selected, char ***names);
