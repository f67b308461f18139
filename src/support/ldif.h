// The system's dialect of LDIF: line parser, writer, entry splitters, lookups, conversion.
//
// A text is a null-terminated run of lines that end in a line feed.
// - A line that begins with one blank continues the line before it; line feed and blank vanish.
// - A line that begins with '#' is a comment. An empty line ends an entry.
// - Any other line is a name, a colon, a separator and a value:
//       name: text             the text itself, from behind the blank to the end of the line
//       name:: base64          the bytes that it encodes
//       name:< file:///path    the content of a file; the path may stand bare as well
//       name;binary: path      the same
// - An entry starts with a line of at least four characters that begins "dn:".
//
// In the keys of a record two options tell what the value is: ";binary" base64 text of binary data,
// ";filename" a reference to a file. The writer strips them. A value that came by base64 or by
// reference lives in a record as base64 under "name;binary", even when it is text.
//
// References are read from regular files only. No function here logs; the few messages go to
// stderr. Where a function takes a `length` beside a text, that is a caller's hint of how much room
// the call needs. It never limits what is read: a text ends at its terminator.
#pragma once

#include <cstdint>
#include <cstdio>

#include "support/ekva.h"

// The tail of every distinguished name: the distribution's domain.
inline constexpr char dn_suffix[] = "dc=vorathan,dc=org";

// Parses the logical line at the text's start. `*name` and `*value` become heap blocks that the
// caller frees, both terminated; `*value_length` is the length of the value, which may hold NUL
// bytes, and `*binary` 1 for a value that came by base64 or by reference, else 0. A comment has "#"
// as name and value, an empty line has both empty. A file that can't be read gives an empty value.
// A carriage return vanishes; one that ends the line takes the character before it along.
// Returns the start of the next line: one behind the terminator when the text has no closing line
// feed, so that such a text must not be parsed further. Returns null, with name and value null, for
// a null or empty text, for base64 that is malformed or empty, and when memory fails.
const char *ldif_parse(const char *text, int32_t length, char **name, char **value,
                       int32_t *value_length, int32_t *binary);

// All lines of a text in one new record of mode 3, across empty lines. Names may repeat; a comment
// gives the pair "#" and "#". A line that can't be parsed ends it silently, but as the first line,
// as an empty text does, it gives null and a message on stderr. The caller frees with ekva_free.
s_ekva **ldif2ekva(const char *text, int32_t length);

// Appends one attribute line, folded to 78 bytes with its line feed, to a heap buffer of
// `*length` bytes, or starts a new one (null and 0). `name` null or empty writes one line feed.
// Mode 0 (and 4) writes text, in base64 when it begins with a colon, '<' or a blank or holds a line
// feed, a carriage return or a byte above 127; mode 2 is the same but leaves bytes above 127 plain,
// for a dn; mode 1 writes base64 of `value_length` bytes; mode 3 writes a reference as it stands.
// `value` must not be null. Returns the buffer, possibly moved and always terminated, with
// `*length` enlarged by the planned size of the line; null on failure, and the given buffer is then
// untouched and still the caller's.
// The planned size is not always the size of the text. It counts two bytes more for some folded
// lines (planned unfolded size 1 above a multiple of 76, from 153 on), one less for a short value
// under ";binary", one more for one under ";filename"; and a folded value under these options is
// cut by a terminator behind its first line. Who gathers lines as a string therefore writes each to
// a buffer of its own, as ldif_fwrite and ekva2ldif do.
char *ldif_write(char *buffer, int32_t *length, const char *name, const char *value,
                 int32_t value_length, int32_t mode);

// A record as the text of one entry in a new heap string: the dn first, then every other pair with
// a value, in order. No empty line at the end. Null for null and when memory fails.
char *ekva2ldif(s_ekva *const *rec);

// Writes one line as ldif_write to a stream. Returns its planned size, 0 when nothing was written.
int32_t ldif_fwrite(FILE *stream, const char *name, const char *value, int32_t value_length,
                    int32_t mode);

// Takes the next entry from a text. `*entry` becomes a heap string of its lines, unfolded, without
// carriage returns at their ends, without what stood ahead of its dn and without the empty line
// behind it; null when the block up to the next empty line has no "dn:" line. `*entry_length` is
// its length. Returns the position behind the empty line, or the terminator when the text ends
// first; null for a null or empty text, so that a loop ends there, and when memory fails.
const char *ldif_get_entry(const char *text, int32_t length, char **entry, int32_t *entry_length);

// Takes the next entry from a stream, as a heap string of its lines as they stand, without the
// lines ahead of its dn; carriage returns at line ends go. A line is read in pieces of at most 510
// bytes, each of which comes out as a line; an end that is left alone behind a full piece is none.
// Null when an empty line stands ahead of any "dn:" line, when the stream ends before the empty
// line that closes the entry, and when memory fails.
char *ldif_fget_entry(FILE *stream);

// All entries of a text as records in a new list, which the caller frees with ekva_list_free; a
// list without records is an empty list. With a class given, a record whose objectClass is another
// is left out; one without objectClass stays. Returns the number of records.
int32_t ldif2ekva_list(s_ekva ****list, const char *text, const char *object_class);
// The same, appending copies to a list that has `count` records; `capacity` as for ekva_list_add.
// Returns the new count.
int32_t ldif2ekva_list_add(s_ekva ****list, const char *text, const char *object_class,
                           int32_t count, int *capacity);
// Both on the content of a file. A file that can't be read gives 0 and a null list, or the count
// and the list unchanged.
int32_t ldif2ekva_list_file(s_ekva ****list, const char *path, const char *object_class);
int32_t ldif2ekva_list_file_add(s_ekva ****list, const char *path, const char *object_class,
                                int32_t count, int *capacity);

// Lookups in the first entry of a text: they stop at the first empty line. Names compare without
// regard to case, and with their options. A first line that can't be parsed is told on stderr.

// How many lines have the name.
int32_t ldif_entry_count_attr(const char *text, int32_t length, const char *name);
// The decoded value of the n-th such line, n from 1, as a terminated heap block, and as result its
// length. Without such a line 0 and a null value; when the first line can't be parsed 0, and
// `*value` stays as it was.
int32_t ldif_entry_get_attr(const char *text, int32_t length, const char *name, char **value,
                            int32_t n);
// All values of the name as a string array, which is empty when there is none, and as result their
// number. The name "dn" is never found. Null and 0 when the entry is closed by an empty line:
// this is for a text as ldif_get_entry gives it.
int32_t ldif_entry_get_vals(const char *text, int32_t length, const char *name, char ***values);
