// The LDIF reader: lines, entries, look-ups, and what comes back from the writer.

#include <cstring>
#include <string>

#include "fuzz.h"
#include "support/array.h"
#include "support/ldif.h"
#include "support/own.h"

static void walk_lines(const std::string &text) {
    const char *rest = text.c_str();
    for (int lines = 0; rest && *rest && lines < 10000; lines++) {
        char *name = nullptr, *value = nullptr;
        int32_t length = 0, binary = 0;
        const char *next = ldif_parse(rest, 0, &name, &value, &length, &binary);
        if (next) {
            CHECK(name && value && length >= 0);
            CHECK(next > rest);
            free(name);
            free(value);
        }
        // Text without a closing line end is not to be parsed on: the next line would begin behind
        // the terminator.
        rest = next && next <= text.c_str() + text.size() ? next : nullptr;
    }
}

static void walk_entries(const std::string &text) {
    const char *rest = text.c_str();
    while (rest && *rest) {
        char *entry = nullptr;
        int32_t length = 0;
        const char *next =
            ldif_get_entry(rest, static_cast<int32_t>(strlen(rest)), &entry, &length);
        CHECK(!next || (next > rest && next <= text.c_str() + text.size()));
        CHECK(!entry || length > 0);
        free(entry);
        rest = next;
    }
}

// What was written and read again says the same, for a record of plain text that no rule of the
// writer touches.
static void check_round_trip(const std::string &text) {
    own_ekva rec(ekva_new(1, 3));
    s_ekva **pairs = rec.release();
    ekva_addval(&pairs, "evrkDescription", text.c_str(), 0);
    rec.reset(pairs);
    own_string written(ekva2ldif(rec.get()));
    CHECK(written);
    char *value = nullptr;
    const int32_t length = ldif_entry_get_attr(
        written.get(), static_cast<int32_t>(strlen(written.get())), "evrkDescription", &value, 1);
    own_string owner(value);
    CHECK(static_cast<size_t>(length) == text.size());
    CHECK(text.empty() || memcmp(value, text.data(), text.size()) == 0);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    be_quiet();
    const std::string text = text_of(data, size);
    walk_lines(text);
    walk_entries(text);
    check_round_trip(text);

    const auto length = static_cast<int32_t>(text.size());
    own_ekva rec(ldif2ekva(text.c_str(), length));
    if (rec) {
        own_string again(ekva2ldif(rec.get()));
        CHECK(again);
    }
    s_ekva ***list = nullptr;
    ldif2ekva_list(&list, text.c_str(), "evrkPackage");
    ekva_list_free(list);
    char **values = nullptr;
    ldif_entry_get_vals(text.c_str(), length, "cn", &values);
    arr_free(values);
    ldif_entry_count_attr(text.c_str(), length, "evrkDependency");

    own_file stream(size ? fmemopen(const_cast<uint8_t *>(data), size, "r") : nullptr);
    while (stream) {
        own_string entry(ldif_fget_entry(stream.get()));
        if (!entry) {
            break;
        }
    }
    return 0;
}
