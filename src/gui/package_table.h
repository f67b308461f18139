// The table of packages of the search and the list screen, and the callbacks that fill and read it.
#pragma once

#include <FL/Fl_Input.H>

#include "gui/list_table.h"

// Draws `vri_list` itself and holds no copy of it.
class MyTable : public list_table {
 public:
    // A table of the rows of this moment, several of which can be selected.
    MyTable(int x, int y, int w, int h, const char *label = nullptr);
    ~MyTable() override;

    // Takes over the rows of this moment, none of them selected.
    void rebuild();

 protected:
    const char *text_of(int row, int column) override;

 private:
    static cell_text s;  // of the cell being drawn
};

// The table and the search field of a screen, at their places in the open group. The field searches
// on the Enter key and when it is left, if its text has changed.
MyTable *add_package_table();
Fl_Input *add_search_field(Fl_Callback *search, MyTable *table);

// Callbacks; the data is the table. The first two are of an input and search for its text: in the
// catalogue, and among what is installed. The third is of the button that installs what is
// selected: it leaves the names in `sel_vrks` and hides the window. With nothing selected the
// action stays as it is, so the screen is made anew. The fourth is of the button that shows the
// details of what is selected; the screen stays.
void vrk_add_cb(Fl_Widget *input, void *table);
void vrk_lst_cb(Fl_Widget *input, void *table);
void install_CB(Fl_Widget *button, void *table);
void listloc_CB(Fl_Widget *button, void *table);
