// Shell commands with their output captured, and command lines with placeholders.
#pragma once

#include <cstddef>

#include "support/ekva.h"

// Runs a command by run_shell and hands back what it wrote to stdout and to stderr. Its stdin is
// that of the process, and no time limit applies. The command is cut at 65000 characters. The
// output goes through files in /tmp, which are gone when the function returns; a redirection is put
// behind the command, so of several commands in one line only the last is caught.
// `*out` and `*err` become new blocks of `*out_length` and `*err_length` bytes with 10 spare bytes
// behind them, not null-terminated and the caller's to free; null if they could not be read.
// Result: the raw wait status, so 256 for an exit status of 1; -1 when a temporary file could not
// be made, which is told on stderr, and when memory fails.
int cmd_exec(const char *command, char **out, size_t *out_length, char **err, size_t *err_length);

// The same. `user` is not used: the command runs as the present user.
int cmd_exec_user(const char *command, const char *user, char **out, size_t *out_length, char **err,
                  size_t *err_length);

// Fills in a command mask: a command line with placeholders for the values of a record, whose keys
// are found without regard to case. In a mask
//   \c           is the character c, so \\ is a backslash and \$ a dollar sign
//   $name        is the first value of the key; the name ends at the first character that is
//                neither letter nor digit, and that one must exist: at the end of the mask the
//                placeholder vanishes
//   ${name}      is the same for any name
//   ${name[3]}   is the value of the fourth pair with this key
//   ${name[]}    is all its values, joined by commas
//   ${name[:]}   is all its values, joined by the one character, which is no digit
// A placeholder without a value vanishes, so does an unclosed one and a lone $; of ${} the closing
// brace stays. In values, and nowhere else, a single quote is escaped: a mask that puts its
// placeholders inside single quotes gives a line that is safe for the shell. With quote mode 2 it
// becomes two single quotes, with any other it closes the shell's quotes, stands in double quotes
// and opens them again.
// Result: a new string; null for a null mask and when memory fails. The record may be null.
char *cmd_mask_parse_ext(const char *mask, s_ekva *const *rec, int quote_mode);

// The same with quote mode 1.
char *cmd_mask_parse(const char *mask, s_ekva *const *rec);

// The same with the record that an LDIF text gives; null if it gives none.
char *cmd_mask_parse_ldif(const char *mask, const char *ldif);
char *cmd_mask_parse_ldif_ext(const char *mask, const char *ldif, int quote_mode);
