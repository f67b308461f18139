// The one rule by which null-terminated lists grow whose count and capacity the caller keeps.
// Private to the library.
#pragma once

#include <climits>
#include <cstddef>
#include <cstdlib>

// Makes room in *list for an entry at index `count` and a null behind it. With a count of 0 the
// list is allocated for the capacity, whatever *list was; a full list doubles. False when memory
// fails: an existing list is then as it was, a new one is null.
template <typename T>
bool t21_room(T **list, int count, int *capacity) {
    if (*capacity < 1) {
        *capacity = 1;
    }
    if (count > 0 && count < *capacity) {
        return true;
    }
    int wanted = *capacity;
    while (count > 0 && wanted <= count) {
        if (wanted > INT_MAX / 2) {
            return false;
        }
        wanted *= 2;
    }
    T *const room = static_cast<T *>(
        reallocarray(count > 0 ? *list : nullptr, static_cast<size_t>(wanted) + 1, sizeof(T)));
    if (!room) {
        if (count == 0) {
            *list = nullptr;
        }
        return false;
    }
    if (count == 0) {
        room[0] = nullptr;
    }
    *list = room;
    *capacity = wanted;
    return true;
}

// Puts the entry there; the result is the new count.
template <typename T>
int t21_put(T *list, T entry, int count) {
    list[count] = entry;
    list[count + 1] = nullptr;
    return count + 1;
}
