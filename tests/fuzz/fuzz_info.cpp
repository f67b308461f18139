// The texts of an inventory entry: a description in the first half, an install record in the
// second.

#include <string>

#include "fuzz.h"
#include "package/vri.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    be_quiet();
    const std::string description = text_of(data, size / 2);
    const std::string record = text_of(data + size / 2, size - size / 2);
    for (const int mode : {1, 2, 3}) {
        own_vri info(vrk_info_parse("fuzz", mode, description.c_str(), record.c_str()));
        if (info) {
            CHECK(info->name && info->version && info->description && info->arch != 99);
            CHECK(mode != 2 || info->install_type == 'X' || info->install_type == 'D');
        }
    }
    own_ekva decoded(vrk_puname_decode(description.c_str()));
    return 0;
}
