// Package records of a test's own, for the tables of packages.
#pragma once

#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "gui/model/package_rows.h"
#include "package/vri.h"
#include "support/arch.h"

struct Row {
    std::string name;
    const char *variant = nullptr;
    std::string version = "1.0";
    std::string description = "A package";
};

inline vri *new_record(const Row &row) {
    vri *const record = static_cast<vri *>(calloc(1, sizeof(vri)));
    record->name = strdup(row.name.c_str());
    record->variant = row.variant ? strdup(row.variant) : nullptr;
    record->version = strdup(row.version.c_str());
    record->description = strdup(row.description.c_str());
    record->arch = arch_any;
    return record;
}

inline vri **new_list(const std::vector<Row> &rows) {
    vri **const list = static_cast<vri **>(calloc(rows.size() + 1, sizeof(vri *)));
    for (size_t i = 0; i < rows.size(); ++i) {
        list[i] = new_record(rows[i]);
    }
    return list;
}

// Puts these rows on screen.
inline void show_rows(const std::vector<Row> &rows) {
    package_rows_free();
    if (!rows.empty()) {
        vri_list = new_list(rows);
        sel_rows = static_cast<int>(rows.size());
    }
}

inline std::vector<std::string> names_on_screen() {
    std::vector<std::string> names;
    for (int row = 0; row < sel_rows; ++row) {
        names.emplace_back(vri_list[row]->name);
    }
    return names;
}

inline std::vector<Row> numbered_rows(int count) {
    std::vector<Row> rows;
    for (int i = 0; i < count; ++i) {
        const std::string number = std::to_string(100000 + i).substr(1);
        rows.push_back({"package" + number, i % 7 == 0 ? "small" : nullptr, "1." + number,
                        "Package number " + number + " of a large catalogue"});
    }
    return rows;
}

// The text of a cell, by the function of its table. What was in the buffer doesn't show.
inline std::string cell_by(void (*write)(int, int, cell_text &), int row, int column) {
    cell_text text;
    memset(text, 'x', sizeof text);
    write(row, column, text);
    return text;
}
