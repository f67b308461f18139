// A catalogue backend for the tests of the loader. Its connection tells what it was connected with.
// Built as it is and, by the macros, with one function missing.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "repository/vrc.h"

namespace {

struct connection {
    s_ekva **sys_conf;
    void *log;
    int refreshed;
};

[[maybe_unused]] connection the_connection;

[[maybe_unused]] vri *new_record(const char *name, const char *version) {
    auto *record = static_cast<vri *>(calloc(1, sizeof(vri)));
    record->name = strdup(name);
    record->version = strdup(version);
    record->description = strdup("From the test's backend");
    record->arch = 1;
    return record;
}

}  // namespace

extern "C" {

#ifndef WITHOUT_connect
void *vrc_connect(s_ekva **sys_conf, void *log) {
    the_connection = {sys_conf, log, 0};
    return &the_connection;
}
#endif

#ifndef WITHOUT_refresh
// The number of refreshes before this one, so that only the first one succeeds.
int vrc_refresh(void *opaque) {
    return static_cast<connection *>(opaque)->refreshed++;
}
#endif

#ifndef WITHOUT_findpkg
int vrc_findpkg(void *, const char *, const char *, const char *, int, s_ekva **, vri ***out) {
    *out = static_cast<vri **>(calloc(3, sizeof(vri *)));
    (*out)[0] = new_record("two", "1.0");
    (*out)[1] = new_record("one", "2.0");
    return 2;
}
#endif

#ifndef WITHOUT_readpkg
int vrc_readpkg(void *, vri *package, FILE *out) {
    return fprintf(out, "%s", package->name);
}
#endif

#ifndef WITHOUT_release
void vrc_release(void *) {}
#endif

}  // extern "C"
