// A catalogue backend for the tests of the loader. Its connection holds what it was connected with.
// By the macros it is built with one function missing, with a number in vrc_abi,
// with reports, and with a count.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "vrm/vrc_backend.h"

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

#ifdef REPORTS
vrc_report_function reporter;
void *reporter_context;

void report(const vrc_report &what) {
    if (reporter) {
        reporter(&what, reporter_context);
    }
}

// A report of a later version of the interface, which has another field at its end.
struct later_report {
    vrc_report known;
    uint64_t more;
};
#endif

}  // namespace

extern "C" {

#ifdef ABI
const uint32_t vrc_abi = ABI;
#endif

#ifdef REPORTS
void vrc_set_report(void *opaque, vrc_report_function function, void *context) {
    reporter = function;
    reporter_context = context;
    if (opaque == &the_connection) {
        report(
            {sizeof(vrc_report), VRC_REPORT_WARNING, 0, 0, nullptr, "found by connect", nullptr});
    }
}
#endif

#ifdef COUNTS
uint32_t vrc_count(void *opaque) {
    return opaque == &the_connection ? 2 : 0;
}
#endif

#ifndef WITHOUT_connect
void *vrc_connect(s_ekva **sys_conf, void *log) {
    the_connection = {sys_conf, log, 0};
    return &the_connection;
}
#endif

#ifndef WITHOUT_refresh
// The number of refreshes before this one, so that only the first one succeeds.
int vrc_refresh(void *opaque) {
#ifdef REPORTS
    report({sizeof(vrc_report), VRC_REPORT_DIRECTORY, ENOENT, 0, "/none", nullptr, nullptr});
    report({sizeof(vrc_report), VRC_REPORT_DIRECTORY_PART, 0, 0, nullptr, nullptr, nullptr});
    report({sizeof(vrc_report), VRC_REPORT_DAMAGED, 0, 0, "/a.vrk", "it is cut", "a"});
    report({sizeof(vrc_report), VRC_REPORT_SKIPPED, EACCES, 0, "/b.vrk", nullptr, nullptr});
    // What a program must not believe or can't know: one that is too short, and kinds of a later
    // version.
    report({sizeof(vrc_report) - 1, VRC_REPORT_ERROR, 0, 0, nullptr, "short", nullptr});
    report({sizeof(vrc_report), 0, 0, 0, nullptr, "no kind", nullptr});
    report({sizeof(vrc_report), 1000, 0, 0, nullptr, "a later kind", nullptr});
    const later_report later = {
        {sizeof later, VRC_REPORT_ERROR, EIO, 0, nullptr, "of a later version", nullptr}, 1};
    report(later.known);
#endif
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
