#include "support/array.h"

#include <strings.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "support/boundary.h"
#include "support/bubble.h"
#include "support/own.h"
#include "support/t21.h"
#include "support/text.h"

// The most fields that a text is split into.
static constexpr int max_fields = 1000;

int pos_array(char *const *array, const char *text) {
    for (int i = 0; array && text && array[i]; ++i) {
        if (strcmp(array[i], text) == 0) {
            return i;
        }
    }
    return -1;
}

int in_array(char *const *array, const char *text) {
    return pos_array(array, text) >= 0;
}

int in_array_i(char *const *array, const char *text) {
    for (size_t i = 0; array && text && array[i]; ++i) {
        if (strcasecmp(array[i], text) == 0) {
            return 1;
        }
    }
    return 0;
}

int arr_count(char *const *array) {
    int count = 0;
    while (array && array[count]) {
        ++count;
    }
    return count;
}

void arr_free(char **array) {
    for (size_t i = 0; array && array[i]; ++i) {
        free(array[i]);
    }
    free(array);
}

static std::span<char *const> entries_of(char *const *array) {
    return {array, static_cast<size_t>(arr_count(array))};
}

char **arr_copy(char *const *array) {
    if (!array) {
        return nullptr;
    }
    return to_c_array<own_array>(entries_of(array), strdup).release();
}

// Moves all entries of `more`, an array of the caller's own, behind those of the array. Both are
// given up.
static char **append(own_array array, own_array more) {
    const size_t count = static_cast<size_t>(arr_count(array.get()));
    const size_t added = static_cast<size_t>(arr_count(more.get()));
    char **const room =
        static_cast<char **>(reallocarray(array.get(), count + added + 1, sizeof(char *)));
    if (!room) {
        return nullptr;
    }
    static_cast<void>(array.release());
    std::copy_n(more.get(), added + 1, room + count);
    more.get()[0] = nullptr;
    return room;
}

char **arr_tail(char **array, char *const *other) {
    if (!array || !other) {
        return array;
    }
    own_array owned(array);
    own_array more(arr_copy(other));
    return more ? append(std::move(owned), std::move(more)) : nullptr;
}

// Copies of the entries of `other` that are not in `array`, each once.
static own_array missing_from(char *const *array, char *const *other) {
    return guarded(nullptr, [&]() -> own_array {
        const auto own = entries_of(array);
        std::unordered_set<std::string_view> present(own.begin(), own.end());
        std::vector<const char *> missing;
        for (const char *entry : entries_of(other)) {
            if (present.insert(entry).second) {
                missing.push_back(entry);
            }
        }
        return to_c_array<own_array>(missing, strdup);
    });
}

char **arr_tailx(char **array, char *const *other) {
    if (!array || !other) {
        return array;
    }
    own_array owned(array);
    own_array more = missing_from(array, other);
    return more ? append(std::move(owned), std::move(more)) : nullptr;
}

char **arr_adds(char **array, int dedupe, const char *text) {
    const own_array fields(str2arr(text, ','));
    return dedupe ? arr_tailx(array, fields.get()) : arr_tail(array, fields.get());
}

char *arr2str(char *const *array, char separator) {
    return guarded(nullptr, [&]() -> char * {
        std::string text;
        for (size_t i = 0; array && array[i]; ++i) {
            text.append(size_t{i > 0}, separator).append(array[i]);
        }
        return array ? strdup(text.c_str()) : nullptr;
    });
}

char **str2arr(const char *text, char separator) {
    char **fields = nullptr;
    int count = 0;
    int capacity = 16;
    while (text && *text && count < max_fields) {
        const char *const end = strchrnul(text, separator);
        if (end != text) {
            const own_string field(strndup(text, static_cast<size_t>(end - text)));
            const int now = arr_t21_add(&fields, field.get(), count, &capacity);
            if (now == count) {
                arr_free(fields);
                return nullptr;
            }
            count = now;
        }
        text = *end ? end + 1 : end;
    }
    return fields;
}

char **str2arr_trim(const char *text, char separator) {
    char **const fields = str2arr(text, separator);
    for (size_t i = 0; fields && fields[i]; ++i) {
        _clean_key(fields[i]);
    }
    return fields;
}

int arr_t21_add(char ***array, const char *text, int count, int *capacity) {
    own_string copy(text ? strdup(text) : nullptr);
    if (!copy || !t21_room(array, count, capacity)) {
        return count;
    }
    return t21_put(*array, copy.release(), count);
}

int aarr_t21_add(char ****arrays, char *const *array, int count, int *capacity) {
    own_array copy(arr_copy(array));
    if (!copy || !t21_room(arrays, count, capacity)) {
        return count;
    }
    return t21_put(*arrays, copy.release(), count);
}

void arr_sortx(char ***array, int (*compare)(const char *, const char *)) {
    if (!array || !*array) {
        return;
    }
    if (!compare) {
        compare = strcmp;
    }
    char **const first = *array;
    const int count = arr_count(first);
    if (is_strict_order(compare)) {
        std::stable_sort(first, first + count,
                         [compare](const char *a, const char *b) { return compare(a, b) < 0; });
    } else {
        bubble_sort(first, static_cast<size_t>(count),
                    [compare](const char *a, const char *b) { return compare(a, b) > 0; });
    }
}

int list_cmp_num(const char *a, const char *b) {
    double left = 0;
    double right = 0;
    if (sscanf(a, "%lf", &left) != 1) {
        left = 0;
    }
    if (sscanf(b, "%lf", &right) != 1) {
        right = 0;
    }
    const double difference = left - right;
    if (std::isnan(difference)) {
        return 0;
    }
    return static_cast<int>(
        std::clamp(difference, static_cast<double>(INT_MIN), static_cast<double>(INT_MAX)));
}

int list_cmp_addr(const char *a, const char *b) {
    int left[4] = {};
    int right[4] = {};
    sscanf(a, "%d.%d.%d.%d", &left[0], &left[1], &left[2], &left[3]);
    sscanf(b, "%d.%d.%d.%d", &right[0], &right[1], &right[2], &right[3]);
    for (int i = 0; i < 4; ++i) {
        if (left[i] != right[i]) {
            return left[i] > right[i] ? 1 : -1;
        }
    }
    return 0;
}
