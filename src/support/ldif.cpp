#include "support/ldif.h"

#include <strings.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "support/array.h"
#include "support/base64.h"
#include "support/boundary.h"
#include "support/file.h"
#include "support/growing_list.h"
#include "support/ldif_reader.h"
#include "support/own.h"

using line_kind = ldif_reader::kind;
using references = ldif_reader::references;

// A terminated heap block of the bytes.
static own_string to_heap(const std::string &bytes) {
    own_string block(static_cast<char *>(malloc(bytes.size() + 1)));
    if (block) {
        memcpy(block.get(), bytes.c_str(), bytes.size() + 1);
    }
    return block;
}

// "dn:" alone is no name of an entry.
static bool begins_entry(std::string_view line) {
    return line.size() >= 4 && line.starts_with("dn:");
}

const char *ldif_parse(const char *text, int32_t /*length*/, char **name, char **value,
                       int32_t *value_length, int32_t *binary) {
    return guarded(nullptr, [&]() -> const char * {
        *name = *value = nullptr;
        *value_length = *binary = 0;
        ldif_reader reader(text, references::followed);
        if (!reader.next()) {
            return nullptr;
        }
        own_string own_name = to_heap(reader.name());
        own_string own_value = to_heap(reader.value());
        if (!own_name || !own_value) {
            return nullptr;
        }
        *name = own_name.release();
        *value = own_value.release();
        *value_length = static_cast<int32_t>(reader.value().size());
        *binary = reader.binary() ? 1 : 0;
        return reader.behind();
    });
}

// The line as a pair of the record. A value that came encoded is kept encoded.
static void add_line(s_ekva ***rec, const ldif_reader &line) {
    const std::string &value = line.value();
    if (line.name().empty()) {
        return;
    }
    if (!line.binary()) {
        ekva_addval(rec, line.name().c_str(), value.c_str(), 0);
    } else if (!value.empty()) {
        // The content of a reference, encoded, is more than a std::string takes on a 32-bit
        // machine.
        const size_t size = value.size() / 3 * 4 + 5;
        const own_string encoded(static_cast<char *>(malloc(size)));
        if (encoded && lutil_b64_ntop(reinterpret_cast<const unsigned char *>(value.data()),
                                      value.size(), encoded.get(), size) >= 0) {
            ekva_addval(rec, (line.name() + ";binary").c_str(), encoded.get(), 3);
        }
    }
}

s_ekva **ldif2ekva(const char *text, int32_t /*length*/) {
    s_ekva **rec = nullptr;
    const auto drop = [&] {
        ekva_free(rec);
        return nullptr;
    };
    return guarded(drop, [&]() -> s_ekva ** {
        ldif_reader reader(text, references::followed);
        if (!reader.next()) {
            fputs("ldif2ekva: failed to parse ldif buffer\n", stderr);
            return nullptr;
        }
        rec = ekva_new(50, 3);
        do {
            add_line(&rec, reader);
        } while (rec && reader.next());
        return rec;
    });
}

const char *ldif_get_entry(const char *text, int32_t /*length*/, char **entry,
                           int32_t *entry_length) {
    return guarded(nullptr, [&]() -> const char * {
        *entry = nullptr;
        *entry_length = 0;
        if (!text || !*text) {
            return nullptr;
        }
        std::string line, lines;
        for (;;) {
            const char *const end = ldif_unfold(text, line);
            text = *end == '\0' ? end : end + 1;
            line.erase(line.find_last_not_of('\r') + 1);
            if (line.empty()) {
                break;
            }
            if (!lines.empty() || begins_entry(line)) {
                lines.append(line).append("\n");
            }
        }
        if (!lines.empty()) {
            own_string block = lines.size() < INT_MAX ? to_heap(lines) : nullptr;
            if (!block) {
                return nullptr;
            }
            *entry = block.release();
            *entry_length = static_cast<int32_t>(lines.size());
        }
        return text;
    });
}

char *ldif_fget_entry(FILE *stream) {
    return guarded(nullptr, [&]() -> char * {
        char piece[510 + 1];
        std::string lines;
        bool line_goes_on = false;
        while (fgets(piece, sizeof(piece), stream)) {
            std::string_view line = piece;
            const bool behind_full_piece = line_goes_on;
            line_goes_on = !line.ends_with('\n');
            if (!line_goes_on) {
                line.remove_suffix(1);
            }
            if (line.ends_with('\r')) {
                line.remove_suffix(1);
            }
            if (line.empty() && behind_full_piece) {
                continue;  // the line's end alone was left
            }
            if (line.empty()) {
                return lines.empty() ? nullptr : to_heap(lines).release();
            }
            if (!lines.empty() || begins_entry(line)) {
                lines.append(line).append("\n");
            }
        }
        return nullptr;
    });
}

// Hands the record of each entry of the text to `take`, but for those of another class.
template <typename Take>
static void each_record(const char *text, const char *object_class, Take take) {
    char *block = nullptr;
    int32_t length = 0;
    while ((text = ldif_get_entry(text, 0, &block, &length)) != nullptr) {
        const own_string entry(block);
        own_ekva rec(entry ? ldif2ekva(entry.get(), length) : nullptr);
        const char *const found = rec ? ekva_getval(rec.get(), "objectClass") : nullptr;
        if (rec && (!object_class || !found || strcmp(found, object_class) == 0)) {
            take(std::move(rec));
        }
    }
}

int32_t ldif2ekva_list(s_ekva ****list, const char *text, const char *object_class) {
    growing_list<s_ekva *, ekva_list_free> records(50);
    each_record(text, object_class, [&](own_ekva rec) {
        if (records.add(rec.get())) {
            rec.release();
        }
    });
    const int32_t count = records.count();
    *list = count > 0 ? records.release() : static_cast<s_ekva ***>(calloc(1, sizeof(s_ekva **)));
    return count;
}

int32_t ldif2ekva_list_add(s_ekva ****list, const char *text, const char *object_class,
                           int32_t count, int *capacity) {
    each_record(text, object_class, [&](const own_ekva &rec) {
        // What has no pair, as a dn by a reference to nothing, has no copy.
        if (ekva_nument(rec.get()) > 0) {
            count = ekva_list_add(list, rec.get(), count, capacity);
        }
    });
    return count;
}

// The content of a file as a text; null when it can't be read.
static own_string file_text(const char *path) {
    size_t length = 0;
    own_string text(_read_file(path, &length));
    if (text) {
        text.get()[length] = '\0';  // the block has room behind the content
    }
    return text;
}

int32_t ldif2ekva_list_file(s_ekva ****list, const char *path, const char *object_class) {
    *list = nullptr;
    const own_string text = file_text(path);
    return text ? ldif2ekva_list(list, text.get(), object_class) : 0;
}

int32_t ldif2ekva_list_file_add(s_ekva ****list, const char *path, const char *object_class,
                                int32_t count, int *capacity) {
    const own_string text = file_text(path);
    return text ? ldif2ekva_list_add(list, text.get(), object_class, count, capacity) : count;
}

// How a walk through the lines of an entry ended.
enum class walk_end { unparsed, empty_line, text_end, found };

// Shows each line of the name to `found`, until it returns true.
template <typename Found>
static walk_end walk_entry(const char *text, const char *name, Found found) {
    ldif_reader reader(text, references::followed);
    for (bool first = true;; first = false) {
        if (!reader.next()) {
            return first ? walk_end::unparsed : walk_end::text_end;
        }
        if (reader.line_kind() == line_kind::empty) {
            return walk_end::empty_line;
        }
        if (strcasecmp(reader.name().c_str(), name) == 0 && found(reader.value())) {
            return walk_end::found;
        }
    }
}

int32_t ldif_entry_count_attr(const char *text, int32_t /*length*/, const char *name) {
    return guarded(0, [&] {
        int32_t count = 0;
        const walk_end end = walk_entry(text, name, [&](const std::string &) {
            ++count;
            return false;
        });
        if (end == walk_end::unparsed) {
            fputs("ldif_entry_count_attr: failed to parse ldif buffer\n", stderr);
        }
        return count;
    });
}

int32_t ldif_entry_get_attr(const char *text, int32_t /*length*/, const char *name, char **value,
                            int32_t n) {
    const auto no_value = [&] {
        *value = nullptr;
        return 0;
    };
    return guarded(no_value, [&] {
        own_string found;
        int32_t length = 0;
        const walk_end end = walk_entry(text, name, [&](const std::string &bytes) {
            if (--n != 0) {
                return false;
            }
            found = to_heap(bytes);
            length = found ? static_cast<int32_t>(bytes.size()) : 0;
            return true;
        });
        if (end == walk_end::unparsed) {
            fputs("ldif_entry_get_attr: failed to parse ldif buffer\n", stderr);
            return 0;
        }
        *value = found.release();
        return length;
    });
}

int32_t ldif_entry_get_vals(const char *text, int32_t /*length*/, const char *name,
                            char ***values) {
    return guarded(0, [&] {
        *values = nullptr;
        growing_list<char, arr_free> list(255);
        const bool is_dn = strcasecmp(name, "dn") == 0;
        const walk_end end = walk_entry(text, name, [&](const std::string &bytes) {
            // Entries are strings: a value ends at its first NUL.
            own_string value = to_heap(bytes.c_str());
            if (!is_dn && value && list.add(value.get())) {
                value.release();
            }
            return false;
        });
        if (end == walk_end::unparsed) {
            fputs("ldif_entry_get_attr: failed to parse ldif buffer\n", stderr);
        }
        if (end != walk_end::text_end) {
            return 0;
        }
        const int32_t count = list.count();
        *values = count > 0 ? list.release() : static_cast<char **>(calloc(1, sizeof(char *)));
        return count;
    });
}
