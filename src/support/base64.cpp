#include "support/base64.h"

#include <array>
#include <climits>
#include <cstdint>
#include <string_view>

static constexpr std::string_view alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
static constexpr char padding = '=';
static constexpr int8_t no_digit = -1;

static constexpr std::array<int8_t, 256> make_digits() {
    std::array<int8_t, 256> digits = {};
    digits.fill(no_digit);
    for (size_t i = 0; i < alphabet.size(); ++i) {
        digits[static_cast<unsigned char>(alphabet[i])] = static_cast<int8_t>(i);
    }
    return digits;
}

// The value of each character, or no_digit.
static constexpr std::array<int8_t, 256> digits = make_digits();

// Not isspace: what counts as base64 is no matter of the locale.
static bool is_space(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

int lutil_b64_ntop(const unsigned char *source, size_t source_length, char *target,
                   size_t target_size) {
    const size_t groups = source_length / 3 + (source_length % 3 != 0 ? 1 : 0);
    if (groups > INT_MAX / 4 || groups * 4 >= target_size) {
        return -1;
    }
    char *out = target;
    for (size_t at = 0; at < source_length; at += 3) {
        const size_t left = source_length - at;
        uint32_t bits = static_cast<uint32_t>(source[at]) << 16;
        bits |= left > 1 ? static_cast<uint32_t>(source[at + 1]) << 8 : 0;
        bits |= left > 2 ? source[at + 2] : 0;
        *out++ = alphabet[bits >> 18];
        *out++ = alphabet[bits >> 12 & 63];
        *out++ = left > 1 ? alphabet[bits >> 6 & 63] : padding;
        *out++ = left > 2 ? alphabet[bits & 63] : padding;
    }
    *out = '\0';
    return static_cast<int>(groups * 4);
}

// Whether the padding of a group that has `have` digits, of which `source` is the first '=', is
// complete and the end of the text.
static bool ends_with_padding(const char *source, int have) {
    if (have < 2) {
        return false;
    }
    int missing = 4 - have;
    for (; *source != '\0'; ++source) {
        if (*source == padding && missing > 0) {
            --missing;
        } else if (!is_space(*source)) {
            return false;
        }
    }
    return missing == 0;
}

int lutil_b64_pton(const char *source, unsigned char *target, size_t target_size) {
    size_t count = 0;
    uint32_t bits = 0;
    int have = 0;  // digits of the group so far
    for (; *source != '\0' && *source != padding; ++source) {
        if (is_space(*source)) {
            continue;
        }
        const int8_t digit = digits[static_cast<unsigned char>(*source)];
        if (digit == no_digit) {
            return -1;
        }
        // The bits of a byte are complete with the second, third and fourth digit of a group.
        bits = (bits << 6 | static_cast<uint32_t>(digit)) & 0xfff;
        if (have > 0) {
            if (count == INT_MAX || (target != nullptr && count == target_size)) {
                return -1;
            }
            if (target != nullptr) {
                target[count] = static_cast<unsigned char>(bits >> (6 - 2 * have) & 0xff);
            }
            ++count;
        }
        have = (have + 1) % 4;
    }
    if (*source == padding) {
        const uint32_t left_over = have == 2 ? bits & 15 : bits & 3;
        if (!ends_with_padding(source, have) || left_over != 0) {
            return -1;
        }
    } else if (have != 0) {
        return -1;
    }
    return static_cast<int>(count);
}
