// The way to the user. The engine talks to the user only through these functions; which
// implementation answers is chosen by linking: windows, a terminal, or a script in tests.
//
// Output is collected in the object's text and shown in one go:
//
//     vrmui_say_new("Package %s\n", name);
//     vrmui_say("owns %d files\n", count);
//     vrmui_write(vrmui, vrmui->text, 0);
#pragma once

#include <cstdint>

#include "support/ekva.h"

struct vrmui_object {
    int first;       // 1, read by nothing
    int second;      // 3, read by nothing
    int level;       // kept, not acted on
    char *backend;   // name of the implementation
    char *title;     // title of the forms
    char *line;      // scratch pointer for one formatted message
    char *text;      // the collected text; its block has one byte more than text_size
    int text_limit;  // bound for writing into text
    int text_size;   // size of text
    void *last;      // null, read by nothing
};

// The object of the process; null until the program has made it.
extern vrmui_object *vrmui;

// Size of the text of the next object, and of this one at its next growth; it doubles as needed and
// never shrinks.
extern int textmax;

// How questions are answered. 1: the user is asked each one. 3: nothing is asked, each question
// takes its default at once. 2, the start value, lies between them on purpose: the functions here
// test for 3 and so ask, the engine's audits test for 1 and so run unattended.
extern int vote_mode;

// Name of the linked implementation, which defines it: "FLTK" in the window program.
extern const char *const vrmui_backend;

// ---- The same in every implementation ----

// A new object with an empty text of `textmax` bytes. A null title means "vrm". Null when memory
// fails. The caller frees it with vrmui_free, or leaves it to the end of the process.
vrmui_object *vrmui_init(const char *title, int level);

// Frees the object with its strings. Null is accepted. The global is not touched.
void vrmui_free(vrmui_object *ui);

// Stores the level; returns the object.
vrmui_object *vrmui_level(vrmui_object *ui, int level);

// The collected text becomes this text (`new`), or gets it appended (`add`). A text that gets too
// small doubles first, once for each call: of a piece that needs more than that, what doesn't fit
// is cut. So it is when memory fails. A cut is logged at ERROR, once for each text. The piece may
// be part of the collected text itself; null counts as empty. Both return the object's text, which
// a later call may move, and null for a null object.
char *vrmui_line_new(vrmui_object *ui, const char *text);
char *vrmui_line_add(vrmui_object *ui, const char *text);

// Adds an attribute line in LDIF to the text of the global object, whose absence makes the call do
// nothing. Unless `binary` is set the length is that of the string; a binary value is written as
// base64 of `length` bytes. Returns the count that ldif_write reports, 0 when nothing was written;
// that memory failed is logged at ERROR.
int32_t ldif_uiwrite(const char *key, const char *value, unsigned length, unsigned binary);

// Formats a message, bounded by the object's text_limit, and hands it to vrmui_line_new or
// vrmui_line_add of the global object; does nothing while that is null. What the bound cuts is
// logged as any other cut.
void vrmui_say_new(const char *format, ...) __attribute__((format(printf, 1, 2)));
void vrmui_say(const char *format, ...) __attribute__((format(printf, 1, 2)));

// ---- Of each implementation ----

// Shows a text. With `ask` the windows offer "No" and "Yes", and the result is 1 for "Yes"; it is 0
// otherwise, and always where there are no windows. With `ask` the windows take the text as a
// format, so it must not hold a stray percent sign.
int vrmui_write(vrmui_object *ui, const char *text, int ask);

// The same; the windows leave a copy of the text on stderr before.
int vrmui_write_info(vrmui_object *ui, const char *text, int ask);

// Asks a question that is answered by yes (1) or no (0). With vote_mode 3 the default is the
// answer.
int vrmui_yesno(vrmui_object *ui, const char *question, int default_answer);

// Offers the choices of a record (a letter as key, the text shown as value, as str2ekva makes it)
// and returns the key of the one chosen, the record's own string. Null means no answer, which
// callers take as abort. With vote_mode 3 the result is `default_key`. The flag is not used.
const char *vrmui_select(vrmui_object *ui, const char *prompt, s_ekva *const *choices,
                         const char *default_key, int flag);

// Shows a record as a read-only form: keys as labels, a key that repeats the one before it labelled
// once. Every value must be non-null. 0 on success.
int vrmui_write_form(vrmui_object *ui, const char *heading, s_ekva *const *rec);

// A table: its title and its columns (a record of column name and width as text), then its rows
// (records with the column names as keys; a missing or null value is an empty cell) with their
// numbers from 1, then its end. -1 where the implementation offers none or no table was begun,
// 0 on success. The records stay the caller's.
int vrmui_write_table_new(vrmui_object *ui, const char *title, s_ekva *const *columns);
int vrmui_write_table_add(vrmui_object *ui, s_ekva *const *row, int number);
int vrmui_write_table_end(vrmui_object *ui, const char *title);

// Shows the content of a file. -1 where the implementation offers none or the file cannot be read.
int vrmui_write_file(vrmui_object *ui, const char *path, int flag);
