// Rows of the update screen, made by a test.
#pragma once

#include <vector>

#include "gui/model/update_rows.h"
#include "gui/rows_kit.h"
#include "repository/vrc.h"
#include "transaction/vrt.h"

struct UpdateRow {
    Row package;
    char action = 'U';
};

// Puts these rows on screen, each with its own action.
inline void show_updates(const std::vector<UpdateRow> &rows) {
    update_rows_free();
    for (const UpdateRow &row : rows) {
        const own_vrt transaction(static_cast<vrt *>(calloc(1, sizeof(vrt))));
        transaction->action = row.action;
        transaction->mark = 'N';
        transaction->info = new_record(row.package);
        num_vras = vrm_vra_list_add_vrt(transaction.get(), &vra_list);
    }
}

inline std::vector<std::string> updates_on_screen() {
    std::vector<std::string> names;
    names.reserve(static_cast<size_t>(num_vras));
    for (int row = 0; row < num_vras; ++row) {
        names.emplace_back(vra_list[row]->info->name);
    }
    return names;
}

// What the catalogue has of a name, as a backend that knows only whole names.
struct Offer {
    Row package;
    std::vector<std::string> needs = {};
};
inline std::vector<Offer> offers;
inline int asked_for_package = 0;

inline int find_offer(void *, const char *name, const char *, const char *, int, s_ekva **,
                      vri ***out) {
    asked_for_package++;
    std::vector<vri *> found;
    found.reserve(offers.size() + 1);
    for (const Offer &offer : offers) {
        if (!name || offer.package.name != name) {
            continue;
        }
        vri *const record = new_record(offer.package);
        if (!offer.needs.empty()) {
            record->deps = static_cast<char **>(calloc(offer.needs.size() + 1, sizeof(char *)));
            for (size_t i = 0; i < offer.needs.size(); ++i) {
                record->deps[i] = strdup(offer.needs[i].c_str());
            }
        }
        found.push_back(record);
    }
    if (!found.empty()) {
        found.push_back(nullptr);
        *out = static_cast<vri **>(calloc(found.size(), sizeof(vri *)));
        std::copy(found.begin(), found.end(), *out);
        found.pop_back();
    }
    return static_cast<int>(found.size());
}
