// Small functions on text: keys, values and lines of configuration, words, addresses, hexadecimal.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

// Cuts the text, in place, down to its first word: what stands between leading blanks and tabs and
// the next blank or tab.
void _clean_key(char *text);

// Cleans a value in place. Leading blanks and tabs go. If a quote comes next, double or single, the
// value runs from behind it to the next quote of either kind, which needn't be the same, or to the
// end; a quote behind a backslash doesn't end it and takes the backslash's place. Otherwise the
// value is the rest without trailing blanks, though with trailing tabs.
void _clean_val(char *text);

// The text with its letters in lower case, as the comparison of keys (strcasecmp) sees them.
std::string lower_case(std::string_view text);

// The text, or an empty one for null.
inline const char *or_empty(const char *text) {
    return text ? text : "";
}

// The text after the last slash, which is all of it without one.
inline std::string base_name(std::string_view path) {
    return std::string(path.substr(path.rfind('/') + 1));
}

// Takes leading blanks and tabs and trailing blanks off, in place. Quotes mean nothing here.
void _trim_val(char *text);

// Splits a line at its first "=" into a key (_clean_key) and a value (_clean_val). Both are empty
// when there is no "=". Each buffer is the caller's, of the length of the line plus 1.
void _split_line(const char *line, char *key, char *val);

// Stores the positions of all occurrences of the character in a new int array, ended by a 0, which
// the caller frees; the result is their number, which alone tells a position 0 from the end. When
// memory fails the array is null and the number 0.
int strallpos(const char *text, char c, int **positions);

// The text behind the last dot, a pointer into the name; "" when there is none or it is the first
// character.
const char *_get_filename_ext(const char *name);

// 1 when the text is a dotted quad of decimal numbers up to 255, leading zeros allowed; else 0.
int isip4str(const char *text);

// The words of the stream's next line as a new string array for arr_free. A "#" ends the line; runs
// of blanks and tabs separate words, so that a line beginning (ending) with one has an empty first
// (last) word. Null at the end of the stream, and for a line that is empty or begins with "#": feof
// tells them apart.
char **fgets_words(FILE *stream);

// Upper-case hexadecimal digits, two a byte, in a new heap string; null for no bytes.
char *bin2hex(const unsigned char *bytes, size_t length);

// Stores the value of a hexadecimal digit of either case: 1, or 0 for any other character.
int hexchr2bin(char c, unsigned char *value);

// Decodes hexadecimal digits into a new block; the result is the number of bytes. Without digits,
// and with an odd number of them, it is 0 and *out is left alone. At a bad digit it is 0 and the
// block, which is the caller's to free, holds what was decoded up to there.
size_t hexs2bin(const char *text, unsigned char **out);
