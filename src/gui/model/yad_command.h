// The command lines of the dialog program `yad`, and what its answers mean. Headings, keys and
// values come from packages and files, so what would end the quotes that they stand in is escaped.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "support/ekva.h"

// A read-only form with a field for each pair of the record. A key that repeats the one before it
// labels no field of its own, so that its values stand below one another. Null texts are empty. A
// value that begins with a dash gets a blank in front, for yad takes it as an option otherwise, and
// yad has options that run programs.
std::string yad_form_command(const char *title, const char *heading, s_ekva *const *rec);

// What a selection's command line takes at most, with its terminator.
inline constexpr size_t yad_selection_room = 8192;

// An entry with the values of the record to choose from. Nothing when the line has no room, which
// the log tells.
std::optional<std::string> yad_selection_command(const char *title, const char *prompt,
                                                 s_ekva *const *choices);

// The key, a string of the record, whose value is the line that yad wrote, without its last
// character, the newline. Null for no match.
const char *key_of_yad_answer(s_ekva *const *choices, const std::string &line);
