// Lines of separated text, in the system's own dialect.
//
// A line is fields with a separator between them. A field is plain and runs to the next separator,
// or begins with a double quote and may then hold separators; a quote in it is doubled. In both
// kinds backslash and n stand for a newline, unless the backslash is the first character of the
// line or another one stands before it. So no field spans lines.
//
// What the writers give is not in every case what the parsers read: a text with a quote but without
// the separator is written with the quote doubled but not quoted, and two backslashes and n stay
// three characters.
#pragma once

#include <cstddef>
#include <cstdio>

#include "support/ekva.h"

// A record as one line without its end, in a new heap string; null for null and without memory.
// Keys that contain ";binary" are left out, value and all; a line of which the first pair is left
// out begins with a separator. With `header` set the fields are the keys, one a pair. Else they are
// the values: a null value is an empty field, and of a key that occurs more than once all values
// stand in one field, joined by "|", where a run of the same key ends up as one field. So the two
// lines can have different numbers of fields. `quote` set quotes each field but those of null
// values.
char *ekva2csv(s_ekva *const *rec, char separator, int quote, int header);

// The text as one field, in a new heap string: quoted if it contains the separator or `always` is
// set. Null for null and when memory fails.
char *csv_quote(const char *text, char separator, int always);

// The entries as one line, in a new heap string. Null for null and when memory fails, "" for an
// empty array.
char *arr2csv(char *const *array, char separator, int always);

// The fields of a line in a new string array: at least one, which is empty for an empty line. Null
// for null and when memory fails.
char **lgetcsv(const char *line, char separator);

// Takes the first line of a text, which ends at its newline (a carriage return before it goes too)
// or at the end of the text. `*array`, null on entry, becomes its fields; an empty line has none
// and leaves it as it is. `length` is how much room the caller expects a line to need; it limits
// nothing. Returns the text behind the line: one behind the terminator when there was no newline,
// so that who walks a text to its end ends it in one. Null for a null or empty text and when memory
// fails.
const char *sgetcsv(const char *text, size_t length, char separator, char ***array);

// Reads one line of any length from a stream; `bom` set skips a byte order mark that begins it,
// if more follows. Returns its fields in a new string array. Null at the end of the stream, for an
// empty line (feof tells them apart), and when memory fails. The carriage return of a last line
// without a newline stays.
char **fgetcsv(FILE *stream, char separator, int bom);

// str2arr under another name: no quoting, empty fields dropped, at most 1000 fields.
char **csv2arr(const char *text, char separator);
