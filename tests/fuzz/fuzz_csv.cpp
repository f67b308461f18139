// The reader of separated text.

#include <cstring>
#include <string>

#include "fuzz.h"
#include "support/array.h"
#include "support/csv.h"
#include "support/own.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    be_quiet();
    if (size < 1) {
        return 0;
    }
    const char separator = ",;|\t"[data[0] % 4];
    const std::string text = text_of(data + 1, size - 1);

    own_array fields(lgetcsv(text.c_str(), separator));
    CHECK(fields && fields.get()[0]);
    own_string line(arr2csv(fields.get(), separator, 1));
    CHECK(line && !strchr(line.get(), '\n'));
    // Quoted fields are read back as they were, but for what the dialect can't tell apart: the
    // characters backslash and n in a field, and a quote next to the end of one.
    if (text.find('\\') == std::string::npos && text.find('"') == std::string::npos) {
        own_array again(lgetcsv(line.get(), separator));
        CHECK(arr_count(again.get()) == arr_count(fields.get()));
        for (int i = 0; fields.get()[i]; i++) {
            CHECK(strcmp(fields.get()[i], again.get()[i]) == 0);
        }
    }

    const char *rest = text.c_str();
    while (rest && rest < text.c_str() + text.size()) {
        char **array = nullptr;
        const char *next = sgetcsv(rest, strlen(rest), separator, &array);
        arr_free(array);
        CHECK(!next || next > rest);
        rest = next;
    }
    own_file stream(fmemopen(const_cast<uint8_t *>(data), size, "r"));
    while (stream && !feof(stream.get())) {
        own_array row(fgetcsv(stream.get(), separator, data[0] & 1));
    }
    own_array words(csv2arr(text.c_str(), separator));
    return 0;
}
