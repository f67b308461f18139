// Package files: the head, the description in it, and the listing of the payload.

#include <string>

#include "fuzz.h"
#include "package/safe_name.h"
#include "package/vrf.h"
#include "package/vri.h"
#include "support/array.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    be_quiet();
    const memory_file file(data, size);
    own_vri info(vrm_vrf_info(nullptr, file.path(), 0));
    if (info) {
        CHECK(info->name && info->version && info->description && info->filehash);
        own_vri copy(vrk_info_copy(info.get()));
        for (const int mode : {1, 2, 3}) {
            own_ekva rec(vrk_info_ekva(copy.get(), mode));
        }
        vrk_info_unsafe_part(info.get());
        own_ekva decoded(vrk_puname_decode(vrk_puname(info.get())));
        vrm_vri_match(info.get(), 1, "*", nullptr, nullptr, 5, nullptr);
    }
    own_array members(vrm_vrf_index(nullptr, file.path()));
    return 0;
}
