// Numbers of operations, written short.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "faults/operation.h"

// Such as "12-14 (open, write, close), 20 (rename /a -> /b)", with what each range does. `numbers`
// are some of those that were tried, `tried`, both in ascending order; a range runs through all
// that were tried between its ends. `trace` are the operations by their numbers.
std::string text_of_numbers(const std::vector<size_t> &numbers, const std::vector<size_t> &tried,
                            const std::vector<operation> &trace);
