// The library's arrays of texts as a test compares them.
#pragma once

#include <string>
#include <vector>

// The texts of a null-terminated array; none of a null array.
inline std::vector<std::string> strings(char *const *array) {
    std::vector<std::string> texts;
    for (; array && *array; array++) {
        texts.emplace_back(*array);
    }
    return texts;
}
