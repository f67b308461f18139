// Reports: what is known of one package, a list of packages, and what a list of actions would do,
// each in several forms. The same data serves people and programs.
//
//   list_format   vrm_vrk_info_write        vrm_vrk_list_write           vrm_vra_list_write
//   1 text        labelled lines            aligned columns              table
//   2 LDIF        one entry                 one entry a package          one entry an action
//   4 delimited   one line, fields by ":"   header and rows, by ","      table
//   5 table       nothing                   table                        table
//   6 form        form                      aligned columns              table
//   others        nothing                   aligned columns              table
//
// Tables and forms are drawn by the user interface (ui/vrmui.h). The DN of a package is
// "evrkUid=<puname>," and the dn_suffix of support/ldif.h. Values stand as they are in the records:
// to make them safe for a terminal is up to the user interface.
//
// The rows of the delimited list don't fit its header. The header names the keys of a mode, one
// each; a row has what its record has: evrkSignature when a signature was checked, evrkDataSize,
// all dependencies in one field and none for an empty array, and no signature's subject for an
// installed package. Readers take the LDIF, or a row by itself.
#pragma once

#include <cstdio>
#include <string>

#include "package/vri.h"
#include "support/ldif.h"
#include "transaction/vrt.h"

// The name of a package in LDIF.
inline std::string package_dn(const vri *package) {
    return std::string("evrkUid=") + vrk_puname(package) + "," + dn_suffix;
}

// How a report is to be written.
enum list_format : int {
    FORMAT_TEXT = 1,
    FORMAT_LDIF = 2,
    FORMAT_DELIMITED = 4,
    FORMAT_TABLE = 5,
    FORMAT_FORM = 6,
    FORMAT_RAW = 7,  // lines of the history as they are, see maintenance/show_log.h
};

// Reports one package. `mode` is that of vrk_info_parse and says where it is from: 1 the catalogue,
// 2 the inventory, 3 a package file; only the form asks for it. `out` is where the report goes, and
// stays open; null means the user interface, whose text is replaced. With `out`, too, the text of
// the user interface is emptied and then shown, by vrmui_write_info for the text and by vrmui_write
// for the others; the form knows no `out`. The last argument is not used. Result: 0; for the form
// that of vrmui_write_form; -1 when memory fails. Times are local and read
// "YYYY-MM-DD hh:mm:ss" here, also in the LDIF.
int vrm_vrk_info_write(const vri *package, FILE *out, unsigned mode, unsigned list_format,
                       int unused);

// Reports the first `count` records of a list. `mode` is that of vrk_info_ekva, whose pairs are
// what LDIF and delimited lines show. `out` takes the report and stays open; null means a
// temporary file, which vrmui_write_file shows and which is gone afterwards. A table goes to the
// user interface in either case; `deps` set gives it a column of dependencies. Result: 0, or -1
// when the table or the temporary file failed or memory does, as the log tells at ERROR. What
// becomes of `out` is for its owner to see (ferror).
int vrm_vrk_list_write(FILE *out, vri *const *list, int count, int mode, int list_format, int deps);

// Reports what a list of actions, null or ended by a null, would do. LDIF goes to stdout, and asks
// nothing of the user interface; every other form is a table under `title`, a string, with the
// sizes in kB when `sizes` is set. The second argument is not used. Result: 0; for a table the
// result of vrmui_write_table_end, or -1 when one of the calls before it failed; -1 when memory
// fails.
int vrm_vra_list_write(vra *const *list, int unused, const void *title, int list_format, int sizes);

// The writer that carries a list to a stream.
struct vrm_ftable {
    int deps;  // whether dependencies are to be shown; no form of the stream does
    int mode;
    int format;
    FILE *stream;
    int rows;  // written so far
};

// A new writer, whose header is written at once: the keys of `columns` for delimited lines, nothing
// for LDIF, the heads of the text for every other format. `title` is not printed. The stream stays
// the caller's. Result: null when memory fails, which is logged at ERROR. The caller frees it with
// free.
vrm_ftable *vrm_ftable_new(FILE *stream, const void *title, s_ekva *const *columns, int mode,
                           int format, int deps);

// Writes one record, as vrk_info_ekva makes it; for LDIF the dn stands first in it. Always 0.
int vrm_ftable_add(vrm_ftable *table, s_ekva *const *record);

// Whether the format is one of aligned columns, and a record in it, which shows so little of the
// package that the whole record of pairs need not be made.
bool ftable_has_columns(const vrm_ftable *table);
void ftable_add_columns(vrm_ftable *table, const vri *package);

// Writes the newline that ends the list. The second argument is not used. Always 0.
int vrm_ftable_end(vrm_ftable *table, const void *unused);
