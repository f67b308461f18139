// Tables on a terminal: the vrmui_write_table functions of the privileged tool.
//
// The heads, a rule, and the rows, in columns two blanks apart; no line ends in blanks. A table is
// as wide as it needs to be, but on a terminal no wider than that: what doesn't fit is cut then,
// and marked. Elsewhere nothing is cut, since a file or another program has no width.
#pragma once

#include <cstddef>
#include <vector>

// The widths of columns, two blanks apart, that fit into `room`. What is too much is taken from the
// columns in turn, the last one first, down to what each was asked to have (0: not at all). If that
// is not enough the widest give in, down to 1.
std::vector<size_t> fit_columns(std::vector<size_t> widths, const std::vector<size_t> &asked,
                                size_t room);
