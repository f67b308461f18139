// Reading and rewriting of configuration files, and the values of options in them.
//
// A line is "key = value" in any spacing (see _split_line), so that the value may stand in quotes.
// Empty lines and lines that begin with "#" are skipped; a "#" elsewhere means nothing. A line
// without a key that begins with "include ", case aside, names a file that is read at this point
// into the same record; its path may stand in quotes, and a relative one is taken from the working
// directory. Any other line without a key is ignored.
//
// Includes nest without a limit. A file that would include itself, directly or through others, is
// not read again where it would, and stderr says so.
//
// The three functions that read into a record return the record, a new one if it was null and there
// was something to read, for the caller to free. Nothing is logged: configuration is read before
// the log stands.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string_view>

#include "support/ekva.h"
#include "support/own.h"

// A later line for a key replaces its value.
s_ekva **vconf_read(s_ekva **rec, const char *path);

// Every line stays as a pair of its own.
s_ekva **vconf_read_dups(s_ekva **rec, const char *path);

// Adds each line with the mode of ekva_addval. A file that cannot be opened gives the record as it
// is, silently: with a null record the caller sees null and reports for itself. A null path and an
// empty file (what is no regular file counts as one) are told on stderr, and so are a pair that
// cannot be added and a file that breaks off in reading, of which nothing is taken. A line is at
// most one byte shorter than the file; the single line of a file without a line end thus arrives as
// two.
s_ekva **vconf_read_ext(s_ekva **rec, const char *path, int mode);

// Reads a configuration in the same way, and shows each pair in the order of the lines, with the
// path of its file, as given or as the include line has it, and the number of its line from 1. What
// is shown is valid during the call. False when the file cannot be read or is empty or memory
// fails.
using vconf_visitor = void (*)(const char *key, const char *value, const char *path, int line,
                               void *context);
bool vconf_walk(const char *path, vconf_visitor visit, void *context);

// Gives the keys of a file the values that a record has for them, and leaves everything else in it
// as it is, byte by byte. A line whose key has no value in the record (compared without regard to
// case) stays; one whose key has becomes "key=value", without the blanks, quotes and remarks that
// it had. A key that the file lacks is not added, and included files are not looked at. A value is
// written as it is: what the reader would not read back in the same form is for the caller to keep
// away.
//
// The new text is made as "<path>.next", with the permissions and, as far as the caller may, the
// owner of the old file. Only when it is complete the old file goes: to "<path>.prev" with `keep`
// set, and for good without. An older "<path>.prev" goes in either case. This is no atomic
// exchange: for a moment there is no file, and the result tells nothing of these last steps.
// Returns 0, or -1 with the reason on stderr, the old file untouched and the next one gone.
int vconf_replace(const char *path, s_ekva *const *rec, int keep);

// An entry of a value map: a word that an option may have as its value, and the number that it
// stands for. A map is a null-terminated array of these.
struct vconf_valnum {
    char *name;
    int num;
};

// Makes a map of a text such as "true=1,false=0,yes=1,no=0". A field without a number has that of
// the field before it, the first one 0; a field without "=" has an empty name too. At most 1000
// fields are taken. The caller frees the map by vconf_valnum_list_free. Null for null, for a text
// without a field, and when memory fails.
vconf_valnum **vconf_gen_vnlist(const char *text);

// The number of the first entry of this name, with regard to case, or -1. Null for either gives -1.
int vconf_getvalnum(vconf_valnum *const *map, const char *name);

// The name of the first entry with this number, or null; the string is the map's. A null map gives
// null.
const char *vconf_getnumval(vconf_valnum *const *map, int number);

// Free an entry with its name, and a map with its entries. Null is accepted.
void vconf_valnum_free(vconf_valnum *entry);
void vconf_valnum_list_free(vconf_valnum **map);

// The number that the value of a key stands for. `override_value` is the result when it is a number
// of the map: what a command line says outranks the file. `default_value` is the result without a
// map, without a value, and for a value that is no name of the map or has the number -1.
int vconf_get_optval_vl(const char *key, vconf_valnum *const *map, s_ekva *const *rec,
                        int default_value, int override_value);

// The same with the map "true=1,false=0,yes=1,no=0,1=1,0=0".
int vconf_get_bool(const char *key, s_ekva *const *rec, int default_value, int override_value);

using own_valnum_list = std::unique_ptr<vconf_valnum *, release_with<vconf_valnum_list_free>>;

// Private to the reader and the rewriter: the line of a file's content that begins at `at`, with
// its newline if it has one. A line holds at most one byte less than the file, which only a file of
// a single line can exceed: that line comes in two pieces.
inline std::string_view vconf_line_at(std::string_view content, size_t at) {
    const size_t limit = std::min(std::max<size_t>(content.size() - 1, 1), content.size() - at);
    const std::string_view line = content.substr(at, limit);
    return line.substr(0, line.find('\n') == line.npos ? line.npos : line.find('\n') + 1);
}
