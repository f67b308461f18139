// Lists of records.

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "support/bubble.h"
#include "support/ekva.h"
#include "support/own.h"
#include "support/t21.h"

int ekva_list_add(s_ekva ****list, s_ekva *const *rec, int count, int *capacity) {
    own_ekva copy(ekva_copy(rec));
    if (!copy || !t21_room(list, count, capacity)) {
        return count;
    }
    return t21_put(*list, copy.release(), count);
}

void ekva_list_free(s_ekva ***list) {
    for (size_t i = 0; list && list[i]; ++i) {
        ekva_free(list[i]);
    }
    free(list);
}

// Calls `visit(record)` for each pair of the list with this key and, unless it is null, this value,
// until it returns false.
template <typename Visit>
static void each_match(s_ekva **const *list, const char *key, const char *value, Visit visit) {
    for (size_t i = 0; list && key && list[i]; ++i) {
        for (s_ekva *const *pair = list[i]; *pair; ++pair) {
            if (strcmp((*pair)->key, key) != 0) {
                continue;
            }
            if (value && (!(*pair)->val || strcmp((*pair)->val, value) != 0)) {
                continue;
            }
            if (!visit(list[i])) {
                return;
            }
        }
    }
}

s_ekva **ekva_list_get_ekva(s_ekva **const *list, const char *key, const char *value) {
    return ekva_list_get_ekva_seq(list, key, value, 0);
}

s_ekva **ekva_list_get_ekva_seq(s_ekva **const *list, const char *key, const char *value, int n) {
    s_ekva **found = nullptr;
    if (value) {
        each_match(list, key, value, [&](s_ekva **rec) {
            if (n-- == 0) {
                found = rec;
            }
            return !found;
        });
    }
    return found;
}

int ekva_list_cnt_ekva(s_ekva **const *list, const char *key, const char *value) {
    int count = 0;
    each_match(list, key, value, [&](s_ekva **) {
        ++count;
        return true;
    });
    return count;
}

void ekva_list_sort(s_ekva ****list, const char *key) {
    ekva_list_sortx(list, key, nullptr);
}

namespace {

struct keyed_record {
    s_ekva **rec;
    const char *value;
};

}  // namespace

// A record without a value never moves, so that the runs between such records are sorted each for
// itself.
static void sort_runs(keyed_record *items, size_t count, text_compare compare) {
    const auto has_value = [](const keyed_record &item) { return item.value != nullptr; };
    for (keyed_record *from = items, *const end = items + count; from != end;) {
        from = std::find_if(from, end, has_value);
        keyed_record *const to = std::find_if_not(from, end, has_value);
        std::stable_sort(from, to, [compare](const keyed_record &a, const keyed_record &b) {
            return compare(a.value, b.value) < 0;
        });
        from = to;
    }
}

void ekva_list_sortx(s_ekva ****list, const char *key, int (*compare)(const char *, const char *)) {
    if (!list || !*list || !key) {
        return;
    }
    if (!compare) {
        compare = strcmp;
    }
    size_t count = 0;
    while ((*list)[count]) {
        ++count;
    }
    own_heap<keyed_record> items(
        static_cast<keyed_record *>(reallocarray(nullptr, count + 1, sizeof(keyed_record))));
    if (!items) {
        return;
    }
    for (size_t i = 0; i < count; ++i) {
        items.get()[i] = {(*list)[i], ekva_getval((*list)[i], key)};
    }
    if (is_strict_order(compare)) {
        sort_runs(items.get(), count, compare);
    } else {
        bubble_sort(items.get(), count, [compare](const keyed_record &a, const keyed_record &b) {
            return a.value && b.value && compare(a.value, b.value) > 0;
        });
    }
    for (size_t i = 0; i < count; ++i) {
        (*list)[i] = items.get()[i].rec;
    }
}
