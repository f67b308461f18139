#include "gui/model/update_rows.h"

#include <cstring>
#include <string>
#include <utility>

#include "repository/snapshot.h"
#include "support/log.h"
#include "support/own.h"
#include "transaction/plan_update.h"
#include "transaction/recover.h"

vra **vra_list;
int num_vras;

// The transaction under construction. Declared in no header, as the name hides the type's.
extern struct vrt *vrt;
struct vrt *vrt;

bool asks_for_updates_only(const char *program_name) {
    return program_name && strstr(program_name, "-update");
}

void update_cell(int row, int column, cell_text &text) {
    if (!vra_list || row < 0 || row >= num_vras) {
        write_cell(nullptr, text);
    } else if (column == 0) {
        write_cell(vra_action_word(vra_list[0]->action), text);
    } else {
        write_package_cell(*vra_list[row]->info, update_columns, column, text);
    }
}

void update_rows_free() {
    num_vras = 0;
    vrm_vra_list_free(std::exchange(vra_list, nullptr));
}

static void take_plan(const char *name) {
    if (!vrt) {
        log_debug("no update for %s", name);
        return;
    }
    num_vras = vrm_vra_list_add_vrt(vrt, &vra_list);
    log_debug("Transaction for %s added to vra_list, which now contains %d entries", name,
              num_vras);
    vrt_free(std::exchange(vrt, nullptr));
}

void update_rows_plan(vrm_handle *handle, void *connection) {
    const own_array cut_off(vrm_broken_swaps(handle));
    inventory_snapshot installed(handle);
    for (const std::string &name : installed.names()) {
        if (cut_off && in_array(cut_off.get(), name.c_str())) {
            continue;  // what is entered is to be taken back
        }
        vrt = nullptr;
        vrt = plan_update(installed, connection, name.c_str(), nullptr, nullptr, nullptr, &vrt);
        take_plan(name.c_str());
    }
    // The tool takes them back ahead of whatever it is told to do. This program changes nothing.
    for (char **name = cut_off.get(); name && *name; name++) {
        log_say(LEVEL_WARNING, "the update of %s was cut off while it was entered", *name);
        vrt = nullptr;
        vrt = vrm_pre_update_again(handle, connection, *name, &vrt);
        take_plan(*name);
    }
}

int update_rows_choose(const std::function<bool(int row)> &selected, char ***names) {
    return choose_names(
        "Somebody presssed the update_sel button", num_vras, selected,
        [](int row) { return vra_list[row]->info->name; }, names);
}
