// Hash lists, as they come in the payload of a package.

#include <sys/stat.h>

#include <cstring>
#include <fstream>
#include <string>

#include "fuzz.h"
#include "package/hashlist.h"
#include "support/own.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    be_quiet();
    static const std::string dir = [] {
        std::string path = "/tmp/vrm-fuzz-XXXXXX";
        CHECK(mkdtemp(path.data()));
        CHECK(mkdir((path + "/hash").c_str(), 0700) == 0);
        static std::string at_end = path;
        atexit([] {
            unlink((at_end + "/hash/data.txt").c_str());
            rmdir((at_end + "/hash").c_str());
            rmdir(at_end.c_str());
        });
        return path;
    }();
    std::ofstream(dir + "/hash/data.txt", std::ios::binary)
        .write(reinterpret_cast<const char *>(data), static_cast<std::streamsize>(size));
    s_ekva **hashes = nullptr;
    const int rc = vrm_vrf_vrk_hashes(dir.c_str(), "data", &hashes);
    own_ekva owner(hashes);
    CHECK(rc == 0 || rc == -1);
    for (s_ekva **pair = hashes ? hashes + 1 : nullptr; pair && *pair; pair++) {
        CHECK(strlen((*pair)->key) == 40 && (*pair)->val[0] == '/');
    }
    return 0;
}
