#include "gui/model/package_rows.h"

#include <utility>

#include "maintenance/report.h"
#include "repository/choice.h"
#include "repository/inventory.h"
#include "support/log.h"

vri **vri_list;
int sel_rows;

void package_cell(int row, int column, cell_text &text) {
    if (vri_list && row >= 0 && row < sel_rows) {
        write_package_cell(*vri_list[row], package_columns, column, text);
    } else {
        write_cell(nullptr, text);
    }
}

void package_rows_free() {
    sel_rows = 0;
    vrm_vri_list_free(std::exchange(vri_list, nullptr));
}

// Takes over what a search found. It may come with an array although there is nothing in it, and
// with a failure as a count below zero: neither leaves a list.
static void show(int count, own_vri_list found) {
    if (count > 0 && found) {
        sel_rows = count;
        vri_list = found.release();
    }
}

void package_rows_list_installed(vrm_handle *handle) {
    package_rows_free();
    vri **found = nullptr;
    const int count = vrm_list_vri(handle, "*", 1, &found);
    show(count, own_vri_list(found));
}

static void begin_search(const char *label, const char *typed) {
    package_rows_free();
    log_debug("Add Callback for %s '%s'\n", label ? label : "", typed);
}

static void end_search(const char *typed) {
    log_debug("Got %d entries for %s\n", sel_rows, typed);
}

void package_rows_search_installed(vrm_handle *handle, const char *label, const char *typed) {
    begin_search(label, typed);
    vri **found = nullptr;
    const int count = vrm_list_vri(handle, typed, 1, &found);
    show(count, own_vri_list(found));
    end_search(typed);
}

// Without memory for the filter the search is by name alone.
static own_ekva described_as(const char *typed) {
    s_ekva **filter = ekva_new(1, 4);
    ekva_addval(&filter, "evrkDescription", typed, 0);
    return own_ekva(filter);
}

void package_rows_search_catalogue(vrm_handle *handle, void *connection, const char *label,
                                   const char *typed) {
    begin_search(label, typed);
    const own_ekva filter = described_as(typed);
    vri **found = nullptr;
    const int count = vrm_findpkg_new(handle, connection, typed, nullptr, filter.get(), 1, &found);
    show(count, own_vri_list(found));
    end_search(typed);
}

void package_rows_view(const std::function<bool(int row)> &selected) {
    log_debug("Somebody presssed the listloc button.");
    for (int row = 0; row < sel_rows; row++) {
        if (selected(row)) {
            vrm_vrk_info_write(vri_list[row], nullptr, 2, FORMAT_FORM, 1);
            log_debug("package %s selected", vri_list[row]->name);
            return;
        }
    }
    log_debug("No package selected");
}

int package_rows_choose(const std::function<bool(int row)> &selected, char ***names) {
    return choose_names(
        "Somebody presssed the install button.", sel_rows, selected,
        [](int row) { return vri_list[row]->name; }, names);
}
