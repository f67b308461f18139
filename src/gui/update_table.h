// The table of the update screen and the callbacks of its buttons.
#pragma once

#include "gui/list_table.h"

// Draws `vra_list` itself and holds no copy of it.
class VraTable : public list_table {
 public:
    // A table of the rows of this moment, several of which can be selected.
    VraTable(int x, int y, int w, int h, const char *label = nullptr);
    ~VraTable() override;

 protected:
    const char *text_of(int row, int column) override;

 private:
    static cell_text s;  // of the cell being drawn
};

// Callbacks of the buttons; the data is the table. The first has the selected packages updated: it
// leaves their names in `sel_vrks` and hides the window. With nothing selected the action stays as
// it is, so the updates are planned anew. The second has all updated, whatever is selected.
void update_sel_CB(Fl_Widget *button, void *table);
void update_all_CB(Fl_Widget *button, void *table);
