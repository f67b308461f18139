#include "support/ekva.h"

#include <malloc.h>
#include <strings.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "support/array.h"
#include "support/boundary.h"
#include "support/own.h"
#include "support/text.h"

namespace {

constexpr const char *header_prefix = "#EKVA_10:";

// The block of the header pair of a record made here. Beyond the pair it holds the count that
// spares an addition the walk to the end. A pair that a caller put in slot 0 is smaller or lacks
// `self`.
struct own_header {
    s_ekva pair;
    own_header *self;
    s_ekva **array;  // the array that the numbers are about
    size_t end;      // index of the terminating null
    size_t slots;    // pointers that the array has room for, the null's included
};

// The array gets two words a slot, so that there is room beyond the capacity.
constexpr size_t words_a_slot = 2;

}  // namespace

// The header of a record that was made here, or null.
static own_header *header_of(s_ekva *const *rec) {
    if (!rec || !rec[0] || malloc_usable_size(rec[0]) < sizeof(own_header)) {
        return nullptr;
    }
    own_header *const header = reinterpret_cast<own_header *>(rec[0]);
    return header->self == header ? header : nullptr;
}

// A header with this key, which it takes over; null when memory fails.
static own_header *new_header(char *key) {
    own_header *const header =
        key ? static_cast<own_header *>(calloc(1, sizeof(own_header))) : nullptr;
    if (header) {
        header->pair.key = key;
        header->self = header;
    }
    return header;
}

static char *header_text(int capacity, int mode) {
    char *text = nullptr;
    return asprintf(&text, "%s%d:%d", header_prefix, capacity, mode) < 0 ? nullptr : text;
}

static void free_pair(s_ekva *pair) {
    free(pair->key);
    free(pair->val);
    free(pair);
}

static s_ekva *new_pair(const char *key, const char *val) {
    s_ekva *const pair = static_cast<s_ekva *>(calloc(1, sizeof(s_ekva)));
    if (!pair) {
        return nullptr;
    }
    pair->key = strdup(key);
    pair->val = val ? strdup(val) : nullptr;
    if (!pair->key || (val && !pair->val)) {
        free_pair(pair);
        return nullptr;
    }
    return pair;
}

// The two numbers after the prefix. Every access to a record reads them, and sscanf would be a
// quarter of what a listing of packages computes; it is left to what only it accepts, such as
// blanks.
static bool read_numbers(const char *text, int *capacity, int *mode) {
    const char *const end = text + strlen(text);
    const auto first = std::from_chars(text, end, *capacity);
    if (first.ec == std::errc() && first.ptr != end && *first.ptr == ':' &&
        std::from_chars(first.ptr + 1, end, *mode).ec == std::errc()) {
        return true;
    }
    return sscanf(text, "%d:%d", capacity, mode) == 2;
}

int _ekva_parse_header(s_ekva *const *rec, int *capacity, int *mode) {
    if (!rec || !rec[0] || !rec[0]->key) {
        return 0;
    }
    int found_capacity = 0;
    int found_mode = 0;
    if (strncmp(rec[0]->key, header_prefix, strlen(header_prefix)) != 0 ||
        !read_numbers(rec[0]->key + strlen(header_prefix), &found_capacity, &found_mode)) {
        return 0;
    }
    *capacity = found_capacity;
    *mode = found_mode;
    return 1;
}

s_ekva *const *ekva_first_pair(s_ekva *const *rec) {
    int capacity = 0;
    int mode = 0;
    return _ekva_parse_header(rec, &capacity, &mode) ? rec + 1 : rec;
}

// The index of the terminating null. The count is believed only when the slots around it agree, so
// that a record whose last pairs were taken out by hand is walked like any other.
static size_t end_of(s_ekva *const *rec) {
    const own_header *const header = header_of(rec);
    if (header && header->array == rec && !rec[header->end] && rec[header->end - 1]) {
        return header->end;
    }
    size_t end = 0;
    while (rec[end]) {
        ++end;
    }
    return end;
}

static void note_end(s_ekva **rec, size_t end) {
    own_header *const header = header_of(rec);
    if (header && header->array == rec) {
        header->end = end;
    }
}

// An array of `slots` pointers with a header in slot 0, whose key it takes over.
static s_ekva **new_array(size_t slots, char *key) {
    s_ekva **const rec = static_cast<s_ekva **>(calloc(slots, sizeof(s_ekva *)));
    own_header *const header = new_header(key);
    if (!rec || !header) {
        free(rec);
        free(header);
        free(key);
        return nullptr;
    }
    header->array = rec;
    header->end = 1;
    header->slots = slots;
    rec[0] = &header->pair;
    return rec;
}

s_ekva **ekva_new(int capacity, int mode) {
    if (capacity < 1 || mode < 1 || mode > 4) {
        return nullptr;
    }
    const size_t slots = static_cast<size_t>(capacity) + 3;
    if (slots > SIZE_MAX / words_a_slot) {
        return nullptr;
    }
    return new_array(slots * words_a_slot, header_text(capacity, mode));
}

s_ekva **ekva_init(int capacity) {
    return ekva_new(capacity, 2);
}

void ekva_free(s_ekva **rec) {
    for (size_t i = 0; rec && rec[i]; ++i) {
        free_pair(rec[i]);
    }
    free(rec);
}

int ekva_nument(s_ekva *const *rec) {
    int entries = 0;
    for (s_ekva *const *pair = ekva_first_pair(rec); pair && *pair; ++pair) {
        ++entries;
    }
    return entries;
}

// Gives the array room for `slots` pointers. A record that was made by hand gets a header of its
// own here, which knows about the room from now on.
static bool resize(s_ekva ***rec, size_t slots) {
    s_ekva **const array = static_cast<s_ekva **>(reallocarray(*rec, slots, sizeof(s_ekva *)));
    if (!array) {
        return false;
    }
    *rec = array;
    own_header *header = header_of(array);
    if (!header) {
        header = new_header(array[0]->key);
        if (!header) {
            return false;
        }
        header->pair.val = array[0]->val;
        free(array[0]);
        array[0] = &header->pair;
    }
    header->array = array;
    header->slots = slots;
    return true;
}

// Makes room for one more pair in a record with a header, whose first `end` slots are in use. A
// record that is full by its header doubles its capacity as often as it takes. False when memory
// fails.
static bool make_room(s_ekva ***rec, size_t end) {
    int capacity = 0;
    int mode = 0;
    if (!_ekva_parse_header(*rec, &capacity, &mode)) {
        return true;
    }
    size_t wanted = static_cast<size_t>(std::max(capacity, 1));
    while (end > wanted) {
        wanted *= 2;
    }
    if (end > 1 && wanted != static_cast<size_t>(capacity)) {
        if (wanted > INT_MAX / 2 || !resize(rec, (wanted + 2) * words_a_slot)) {
            return false;
        }
        note_end(*rec, end);
        free((*rec)[0]->key);
        (*rec)[0]->key = header_text(static_cast<int>(wanted), mode);
        return (*rec)[0]->key != nullptr;
    }
    // A header that was copied can promise more room than its array has.
    const own_header *const header = header_of(*rec);
    const bool promised = header && header->array == *rec && header->slots < end + 2;
    return !promised || resize(rec, (end + 2) * words_a_slot);
}

// Modes 1 and 2 on the pairs of this key. Result: their number; nothing when memory fails.
static std::optional<int> treat_present(s_ekva **rec, const char *key, const char *val, int mode) {
    int found = 0;
    for (s_ekva *const *pair = ekva_first_pair(rec); *pair; ++pair) {
        if (strcasecmp((*pair)->key, key) != 0) {
            continue;
        }
        ++found;
        if (mode == 2 && (*pair)->val) {
            char *const copy = val ? strdup(val) : nullptr;
            if (val && !copy) {
                return std::nullopt;
            }
            free((*pair)->val);
            (*pair)->val = copy;
        }
    }
    return found;
}

int ekva_addval(s_ekva ***rec, const char *key, const char *val, int mode) {
    if (!rec || !*rec || !key) {
        return 0;
    }
    // The copies come first: key and value may be strings of this very record.
    s_ekva *const pair = new_pair(key, val);
    if (!pair) {
        return 0;
    }
    const size_t end = end_of(*rec);
    if (!make_room(rec, end)) {
        free_pair(pair);
        ekva_free(*rec);
        *rec = nullptr;
        return 0;
    }
    if (mode == 1 || mode == 2) {
        const std::optional<int> found = treat_present(*rec, pair->key, pair->val, mode);
        if (found != 0) {
            free_pair(pair);
            return found ? static_cast<int>(end) : 0;
        }
    }
    (*rec)[end] = pair;
    (*rec)[end + 1] = nullptr;
    note_end(*rec, end + 1);
    return static_cast<int>(end + 1);
}

char *ekva_getval(s_ekva *const *rec, const char *key) {
    return ekva_getone(rec, key, 0);
}

char *ekva_getone(s_ekva *const *rec, const char *key, int n) {
    for (size_t i = 0; rec && key && rec[i]; ++i) {
        if (strcasecmp(rec[i]->key, key) == 0 && n-- == 0) {
            return rec[i]->val;
        }
    }
    return nullptr;
}

int ekva_cntval(s_ekva *const *rec, const char *key) {
    int count = 0;
    for (size_t i = 0; rec && key && rec[i]; ++i) {
        count += strcasecmp(rec[i]->key, key) == 0;
    }
    return count;
}

char **ekva_getvals(s_ekva *const *rec, const char *key) {
    char **values = nullptr;
    int count = 0;
    int capacity = 10;
    for (size_t i = 0; rec && key && rec[i]; ++i) {
        if (rec[i]->val && strcasecmp(rec[i]->key, key) == 0) {
            const int now = arr_t21_add(&values, rec[i]->val, count, &capacity);
            if (now == count) {
                arr_free(values);
                return nullptr;
            }
            count = now;
        }
    }
    return values;
}

char *ekva_getkey(s_ekva *const *rec, const char *value) {
    if (!rec || !rec[0] || !value) {
        return nullptr;
    }
    for (size_t i = 1; rec[i]; ++i) {
        if (rec[i]->val && strcasecmp(rec[i]->val, value) == 0) {
            return rec[i]->key;
        }
    }
    return nullptr;
}

char *ekva_getvals_str(s_ekva *const *rec, const char *key, char separator) {
    const own_array values(ekva_getvals(rec, key));
    return arr2str(values.get(), separator);
}

s_ekva **ekva_dup(s_ekva *const *rec) {
    if (!rec) {
        return nullptr;
    }
    const size_t end = end_of(rec);
    const size_t slots = (end + 3) * words_a_slot;
    const auto first = static_cast<size_t>(ekva_first_pair(rec) - rec);
    own_ekva copy(first == 1 ? new_array(slots, strdup(rec[0]->key))
                             : static_cast<s_ekva **>(calloc(slots, sizeof(s_ekva *))));
    if (!copy) {
        return nullptr;
    }
    if (first == 1 && rec[0]->val) {
        copy.get()[0]->val = strdup(rec[0]->val);
        if (!copy.get()[0]->val) {
            return nullptr;
        }
    }
    for (size_t i = first; i < end; ++i) {
        copy.get()[i] = new_pair(rec[i]->key, rec[i]->val);
        if (!copy.get()[i]) {
            return nullptr;
        }
    }
    note_end(copy.get(), end);
    return copy.release();
}

s_ekva **ekva_copy(s_ekva *const *rec) {
    int capacity = 0;
    int mode = 2;
    _ekva_parse_header(rec, &capacity, &mode);
    s_ekva **copy = ekva_new(ekva_nument(rec), mode);
    for (s_ekva *const *pair = ekva_first_pair(rec); copy && *pair; ++pair) {
        if (ekva_addval(&copy, (*pair)->key, (*pair)->val, 0) < 1) {
            ekva_free(copy);
            return nullptr;
        }
    }
    return copy;
}

int ekva_print(s_ekva *const *rec) {
    int lines = 0;
    for (s_ekva *const *pair = ekva_first_pair(rec); pair && *pair; ++pair, ++lines) {
        if ((*pair)->val) {
            printf("%s: <%s>\n", (*pair)->key, (*pair)->val);
        } else {
            printf("%s: NULL\n", (*pair)->key);
        }
    }
    return lines;
}

int ekva_fprint(s_ekva *const *rec, FILE *stream, int width) {
    int lines = 0;
    for (s_ekva *const *pair = ekva_first_pair(rec); pair && *pair; ++pair, ++lines) {
        const char *const value = (*pair)->val ? (*pair)->val : "NULL";
        fprintf(stream, "%-*s: <%s>\n", width, (*pair)->key, value);
    }
    return lines;
}

char *ekva2str(s_ekva *const *rec, char separator) {
    return guarded(nullptr, [&]() -> char * {
        std::string text;
        for (size_t i = 1; rec && rec[0] && rec[i]; ++i) {
            text.append(size_t{i > 1}, separator).append(rec[i]->key).append("=");
            text.append(rec[i]->val ? rec[i]->val : "");
        }
        return rec ? strdup(text.c_str()) : nullptr;
    });
}

s_ekva **str2ekva(const char *text, char separator) {
    const size_t length = text ? strlen(text) : 0;
    own_string field(static_cast<char *>(malloc(length + 1)));
    own_string key(static_cast<char *>(malloc(length + 1)));
    own_string val(static_cast<char *>(malloc(length + 1)));
    if (length > INT_MAX || !field || !key || !val) {
        return nullptr;
    }
    s_ekva **rec = ekva_new(static_cast<int>(length), 3);
    for (const char *from = text; rec && from && *from;) {
        const char *const to = strchrnul(from, separator);
        const size_t size = static_cast<size_t>(to - from);
        memcpy(field.get(), from, size);
        field.get()[size] = '\0';
        _split_line(field.get(), key.get(), val.get());
        if (key.get()[0] && ekva_addval(&rec, key.get(), val.get(), 4) < 1) {
            // Key first, against what the words say.
            fprintf(stderr, "failed to add value <%s> for key <%s>", key.get(), val.get());
        }
        from = *to ? to + 1 : to;
    }
    return rec;
}
