// Command masks: a mask in the first half, the value that it is filled in with in the second.

#include <cstring>
#include <string>

#include "fuzz.h"
#include "support/cmd.h"
#include "support/own.h"

// Whether a shell takes the text as one word, reading from within single quotes.
static bool stays_quoted(const std::string &word) {
    bool single_quotes = true, double_quotes = false;
    for (const char c : word) {
        if (c == '\'' && !double_quotes) {
            single_quotes = !single_quotes;
        } else if (c == '"' && !single_quotes) {
            double_quotes = !double_quotes;
        } else if (!single_quotes && !double_quotes) {
            return false;
        } else if (double_quotes && c != '\'') {
            return false;
        }
    }
    return single_quotes && !double_quotes;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    be_quiet();
    const std::string mask = text_of(data, size / 2);
    const std::string value = text_of(data + size / 2, size - size / 2);
    s_ekva **pairs = ekva_new(4, 4);
    ekva_addval(&pairs, "evrkName", value.c_str(), 0);
    ekva_addval(&pairs, "a", value.c_str(), 0);
    ekva_addval(&pairs, "a", "second", 0);
    ekva_addval(&pairs, "b", nullptr, 0);
    own_ekva rec(pairs);

    for (const int mode : {1, 2}) {
        own_string filled(cmd_mask_parse_ext(mask.c_str(), rec.get(), mode));
        CHECK(filled);
    }
    own_string empty(cmd_mask_parse(mask.c_str(), nullptr));
    own_string quoted(cmd_mask_parse("'${evrkName}'", rec.get()));
    const std::string word = quoted.get();
    CHECK(word.size() >= 2 && word.front() == '\'' && word.back() == '\'');
    CHECK(stays_quoted(word.substr(1, word.size() - 2)));
    return 0;
}
