#include "support/text.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

#include "support/array.h"
#include "support/own.h"

static constexpr const char *blanks = " \t";

// Moves the text behind its leading blanks and tabs to the front.
static void drop_leading(char *text) {
    const char *const from = text + strspn(text, blanks);
    memmove(text, from, strlen(from) + 1);
}

// Trailing tabs stay, and so do blanks in front of them.
static void drop_trailing(char *text) {
    size_t length = strlen(text);
    while (length > 0 && text[length - 1] == ' ') {
        text[--length] = '\0';
    }
}

static bool is_quote(char c) {
    return c == '"' || c == '\'';
}

std::string lower_case(std::string_view text) {
    std::string lowered(text);
    for (char &c : lowered) {
        c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    }
    return lowered;
}

void _clean_key(char *text) {
    drop_leading(text);
    text[strcspn(text, blanks)] = '\0';
}

// `text` begins with a quote.
static void unquote(char *text) {
    char *to = text;
    for (const char *from = text + 1; *from; ++from) {
        if (!is_quote(*from)) {
            *to++ = *from;
        } else if (from[-1] == '\\') {
            to[-1] = *from;
        } else {
            break;
        }
    }
    *to = '\0';
}

void _clean_val(char *text) {
    drop_leading(text);
    if (is_quote(*text)) {
        unquote(text);
    } else {
        drop_trailing(text);
    }
}

void _trim_val(char *text) {
    drop_leading(text);
    drop_trailing(text);
}

void _split_line(const char *line, char *key, char *val) {
    *key = '\0';
    *val = '\0';
    const char *const equals = strchr(line, '=');
    if (!equals) {
        return;
    }
    const size_t length = static_cast<size_t>(equals - line);
    memcpy(key, line, length);
    key[length] = '\0';
    _clean_key(key);
    strcpy(val, equals + 1);
    _clean_val(val);
}

int strallpos(const char *text, char c, int **positions) {
    *positions = nullptr;
    size_t count = 0;
    for (const char *at = text; at && *at; ++at) {
        count += *at == c;
    }
    own_heap<int> found(static_cast<int *>(calloc(count + 1, sizeof(int))));
    if (!found) {
        return 0;
    }
    int *to = found.get();
    for (const char *at = text; at && *at; ++at) {
        if (*at == c) {
            *to++ = static_cast<int>(at - text);
        }
    }
    *positions = found.release();
    return static_cast<int>(count);
}

const char *_get_filename_ext(const char *name) {
    const char *const dot = strrchr(name, '.');
    return dot && dot != name ? dot + 1 : "";
}

int isip4str(const char *text) {
    int dots = 0;
    int value = 0;
    bool digit = false;
    for (; text && *text; ++text) {
        if (*text >= '0' && *text <= '9') {
            value = value * 10 + (*text - '0');
            digit = true;
            if (value > 255) {
                return 0;
            }
        } else if (*text == '.' && digit && dots < 3) {
            ++dots;
            value = 0;
            digit = false;
        } else {
            return 0;
        }
    }
    return dots == 3 && digit;
}

// Cuts the line end and a comment off; false when nothing is left to split.
static bool strip_line(char *line) {
    size_t length = strlen(line);
    if (length > 0 && line[length - 1] == '\n') {
        line[--length] = '\0';
    }
    if (length > 0 && line[length - 1] == '\r') {
        line[--length] = '\0';
    }
    line[strcspn(line, "#")] = '\0';
    return *line != '\0';
}

char **fgets_words(FILE *stream) {
    char *buffer = nullptr;
    size_t size = 0;
    const ssize_t length = getline(&buffer, &size, stream);
    const own_string line(buffer);
    if (length < 1 || !strip_line(line.get())) {
        return nullptr;
    }
    char **words = nullptr;
    int count = 0;
    int capacity = 10;
    for (char *from = line.get(); from;) {
        char *const end = from + strcspn(from, blanks);
        char *const next = *end ? end + strspn(end, blanks) : nullptr;
        *end = '\0';
        const int now = arr_t21_add(&words, from, count, &capacity);
        if (now == count) {
            arr_free(words);
            return nullptr;
        }
        count = now;
        from = next;
    }
    return words;
}

char *bin2hex(const unsigned char *bytes, size_t length) {
    static constexpr char digits[] = "0123456789ABCDEF";
    if (!bytes || length == 0) {
        return nullptr;
    }
    char *const text = static_cast<char *>(malloc(2 * length + 1));
    if (!text) {
        return nullptr;
    }
    for (size_t i = 0; i < length; ++i) {
        text[2 * i] = digits[bytes[i] >> 4];
        text[2 * i + 1] = digits[bytes[i] & 15];
    }
    text[2 * length] = '\0';
    return text;
}

int hexchr2bin(char c, unsigned char *value) {
    int digit = 0;
    if (c >= '0' && c <= '9') {
        digit = c - '0';
    } else if (c >= 'A' && c <= 'F') {
        digit = c - 'A' + 10;
    } else if (c >= 'a' && c <= 'f') {
        digit = c - 'a' + 10;
    } else {
        return 0;
    }
    *value = static_cast<unsigned char>(digit);
    return 1;
}

size_t hexs2bin(const char *text, unsigned char **out) {
    const size_t length = text ? strlen(text) : 0;
    if (length == 0 || length % 2 != 0) {
        return 0;
    }
    const size_t count = length / 2;
    unsigned char *const bytes = static_cast<unsigned char *>(malloc(count));
    if (!bytes) {
        return 0;
    }
    memset(bytes, 0x41, count);
    *out = bytes;
    for (size_t i = 0; i < count; ++i) {
        unsigned char high = 0;
        unsigned char low = 0;
        if (!hexchr2bin(text[2 * i], &high) || !hexchr2bin(text[2 * i + 1], &low)) {
            return 0;
        }
        bytes[i] = static_cast<unsigned char>(high << 4 | low);
    }
    return count;
}
