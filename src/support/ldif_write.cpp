// The writing half of the LDIF module.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>

#include "support/base64.h"
#include "support/boundary.h"
#include "support/ldif.h"
#include "support/own.h"

namespace {

constexpr int64_t line_width = 78;  // a physical line with its line feed
constexpr int64_t rest_width = 76;  // what a further line holds of the value

// What a line's value looks like.
enum class form { plain, base64, reference };

const char *separator_of(form shape) {
    switch (shape) {
        case form::base64:
            return ":: ";
        case form::reference:
            return ":< ";
        case form::plain:
            break;
    }
    return ": ";
}

bool needs_base64(std::string_view value, bool keep_high) {
    if (value.starts_with(':') || value.starts_with('<') || value.starts_with(' ')) {
        return true;
    }
    return std::any_of(value.begin(), value.end(), [keep_high](char c) {
        return c == '\n' || c == '\r' || (!keep_high && static_cast<unsigned char>(c) > 127);
    });
}

// The base64 of the bytes; null when it can't be had.
own_string encode(std::string_view bytes) {
    const size_t groups = (bytes.size() + 2) / 3;
    const size_t planned = groups * 4;
    // A group more than there are has room for the terminator.
    own_string text(static_cast<char *>(reallocarray(nullptr, groups + 1, 4)));
    if (!text) {
        fputs("Failed to allocate base64 buffer\n", stderr);
        return nullptr;
    }
    const int count = lutil_b64_ntop(reinterpret_cast<const unsigned char *>(bytes.data()),
                                     bytes.size(), text.get(), planned + 1);
    if (count < 0 || static_cast<size_t>(count) != planned) {
        fprintf(stderr, "Failed to encode binary value: %d\n", count);
        return nullptr;
    }
    return text;
}

// The planned size of a line with the line ends and blanks of its folding. It is what ldif_fwrite
// reports and by what a buffer grows, and it stays as it is where it counts two bytes too many.
int64_t with_folding(int64_t planned) {
    if (planned <= line_width) {
        return planned;
    }
    const int64_t folds = planned / rest_width - (planned % rest_width == 0 ? 1 : 0);
    const int64_t total = planned + 2 * folds;
    return (total - 2) % line_width == 0 ? total - 2 : total;
}

struct attribute_line {
    std::string text;  // what is written, the terminators between its pieces included
    int64_t planned;   // by how much the buffer's length grows
};

// Writes the value over several lines. `first` are the bytes of it that the first line takes.
// Each further line stands 78 bytes behind the line before it, wherever that one ended: behind a
// stripped option the gap is filled with terminators, and a first line of 79 bytes loses its line
// feed, so that the value is one line with a blank in it.
std::string folded(const std::string &head, std::string_view value, size_t first) {
    std::string text = head;
    text.append(value.substr(0, first)).append("\n");
    size_t start = static_cast<size_t>(line_width);
    for (size_t at = first; at < value.size(); at += rest_width) {
        text.resize(start, '\0');
        text.append(" ").append(value.substr(at, rest_width)).append("\n");
        start += static_cast<size_t>(line_width);
    }
    return text;
}

// A name that alone fills the first line leaves no place for a part of the value in it.
std::string folded_behind_long_name(const std::string &head, std::string_view value) {
    std::string text = head + "\n";
    for (size_t at = 0; at < value.size(); at += rest_width) {
        text.append(" ").append(value.substr(at, rest_width)).append("\n");
    }
    return text;
}

attribute_line compose(std::string_view name, std::string_view value, form shape) {
    const int64_t name_size = static_cast<int64_t>(name.size());
    int64_t planned = with_folding(name_size + static_cast<int64_t>(value.size()) +
                                   (shape == form::base64 ? 4 : 3));
    std::string head(name);
    const auto strip_option = [&](form new_shape) {
        head.erase(head.find(';'));
        planned -= 7;  // for ";filename" too
        shape = new_shape;
    };
    if (name.find(";binary") != std::string_view::npos) {
        strip_option(form::base64);
    } else if (name.find(";filename") != std::string_view::npos) {
        strip_option(form::reference);
    }
    head += separator_of(shape);
    if (planned <= line_width) {
        return {head.append(value).append("\n"), planned};
    }
    // Counted with the full name, though its option isn't written, and with a separator of two
    // characters for a reference, though it has three.
    const int64_t first = (shape == form::base64 ? 74 : 75) - name_size;
    if (first < 0) {
        std::string text = folded_behind_long_name(head, value);
        planned = static_cast<int64_t>(text.size());
        return {std::move(text), planned};
    }
    return {folded(head, value, static_cast<size_t>(first)), planned};
}

// Appends the line to a heap buffer; null, and the buffer as it was, when there is no room.
char *append(char *buffer, int32_t *length, const attribute_line &line) {
    const int64_t before = buffer ? *length : 0;
    const int64_t after = before + line.planned;
    if (before < 0 || after >= std::numeric_limits<int32_t>::max()) {
        return nullptr;
    }
    const size_t start = static_cast<size_t>(before);
    const size_t size = std::max(line.text.size(), static_cast<size_t>(line.planned));
    char *const grown = static_cast<char *>(realloc(buffer, start + size + 1));
    if (!grown) {
        return nullptr;
    }
    std::fill_n(std::copy(line.text.begin(), line.text.end(), grown + start),
                size + 1 - line.text.size(), '\0');
    *length = static_cast<int32_t>(after);
    return grown;
}

}  // namespace

char *ldif_write(char *buffer, int32_t *length, const char *name, const char *value,
                 int32_t value_length, int32_t mode) {
    return guarded(nullptr, [&]() -> char * {
        if (!value || (mode == 1 && value_length < 0)) {
            return nullptr;
        }
        if (!name || !*name) {
            return append(buffer, length, {"\n", 1});
        }
        std::string_view bytes =
            mode == 1 ? std::string_view(value, static_cast<size_t>(value_length)) : value;
        form shape = mode == 3 ? form::reference : form::plain;
        own_string encoded;
        if (mode == 1 || (mode != 3 && needs_base64(bytes, mode == 2))) {
            encoded = encode(bytes);
            if (!encoded) {
                return nullptr;
            }
            bytes = encoded.get();
            shape = form::base64;
        }
        return append(buffer, length, compose(name, bytes, shape));
    });
}

int32_t ldif_fwrite(FILE *stream, const char *name, const char *value, int32_t value_length,
                    int32_t mode) {
    int32_t length = 0;
    const own_string line(ldif_write(nullptr, &length, name, value, value_length, mode));
    return line && fputs(line.get(), stream) >= 0 ? length : 0;
}

// Appends one line as a string: what stands behind a terminator in it is lost.
static bool append_line(std::string &text, const char *name, const char *value, int32_t mode) {
    int32_t length = 0;
    const own_string line(ldif_write(nullptr, &length, name, value, 0, mode));
    if (line) {
        text += line.get();
    }
    return line != nullptr;
}

char *ekva2ldif(s_ekva *const *rec) {
    return guarded(nullptr, [&]() -> char * {
        if (!rec) {
            return nullptr;
        }
        const auto has_text = [](const char *value) { return value && *value; };
        std::string text;
        const char *const dn = ekva_getval(rec, "dn");
        if (has_text(dn) && !append_line(text, "dn", dn, 2)) {
            return nullptr;
        }
        for (s_ekva *const *slot = ekva_first_pair(rec); *slot; ++slot) {
            const s_ekva &pair = **slot;
            const bool written = has_text(dn) && strcmp(pair.key, "dn") == 0;
            if (has_text(pair.val) && !written && !append_line(text, pair.key, pair.val, 0)) {
                return nullptr;
            }
        }
        return strdup(text.c_str());
    });
}
