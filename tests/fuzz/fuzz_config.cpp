// The configuration reader, and the cleaning of keys and values.

#include <cstring>
#include <string>
#include <vector>

#include "fuzz.h"
#include "support/own.h"
#include "support/text.h"
#include "support/vconf.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    be_quiet();
    if (size < 1) {
        return 0;
    }
    const std::string text = text_of(data + 1, size - 1);
    std::vector<char> key(text.size() + 1), value(text.size() + 1);
    _split_line(text.c_str(), key.data(), value.data());
    CHECK(strlen(key.data()) + strlen(value.data()) <= text.size());
    memcpy(value.data(), text.c_str(), text.size() + 1);
    _clean_key(value.data());
    memcpy(value.data(), text.c_str(), text.size() + 1);
    _clean_val(value.data());
    memcpy(value.data(), text.c_str(), text.size() + 1);
    _trim_val(value.data());

    // Includes would read whatever file the bytes name.
    if (!strcasestr(text.c_str(), "include")) {
        const memory_file file(data + 1, size - 1);
        own_ekva rec(vconf_read_ext(nullptr, file.path(), 1 + data[0] % 4));
        own_string line(ekva2str(rec.get(), ','));
    }
    own_ekva choices(str2ekva(text.c_str(), ','));
    return 0;
}
