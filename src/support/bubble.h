// Sorting of string arrays and record lists by a caller's compare function. Private to the library.
//
// The order that is promised is that of a bubble sort. Where the function is a strict order any
// stable sort gives the same one, in far less time; where it isn't (list_cmp_num holds 1.0 and 1.9
// equal, 1.9 and 2.8 too, but not 1.0 and 2.8) only the bubble sort's own steps do.
#pragma once

#include <strings.h>

#include <cstddef>
#include <cstring>
#include <utility>

#include "support/array.h"

using text_compare = int (*)(const char *, const char *);

// Whether the compare function is known to be a strict order.
inline bool is_strict_order(text_compare compare) {
    return compare == strcmp || compare == strcasecmp || compare == list_cmp_addr;
}

// Exchanges neighbours for which `swaps(left, right)` holds, in passes each one slot shorter than
// the one before. It ends early with a pass that finds nothing.
template <typename T, typename Swaps>
void bubble_sort(T *items, size_t count, Swaps swaps) {
    for (size_t length = count; length > 1; --length) {
        bool swapped = false;
        for (size_t i = 0; i + 1 < length; ++i) {
            if (swaps(items[i], items[i + 1])) {
                std::swap(items[i], items[i + 1]);
                swapped = true;
            }
        }
        if (!swapped) {
            return;
        }
    }
}
