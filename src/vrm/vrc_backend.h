// The interface between the package manager and a catalogue backend. Plain C: C99 and later, or
// C++.
//
// A backend is a shared object in /usr/lib/vrm. It exports the five functions and the number
// `vrc_abi` that are declared below, and further functions as it likes. A program loads it, asks
// for the number, and calls the functions. A backend runs with the rights of the program: the
// privileged tool is root.
//
// Include this header where the functions are defined: the compiler then compares their types with
// the declarations. The programs export nothing to a backend, so there is no library to link with.
//
// Versions. VRC_ABI is the version of the interface that this header declares. A program refuses a
// backend of a version that it does not support. Within a version nothing here changes: no field of
// a record, no argument, no result, no meaning. What may be added without a new version is what an
// older program or backend can ignore: optional functions, kinds of report, and fields at the end
// of `vrc_report`. A backend without `vrc_abi` is of version 1, which has the same records and the
// same five functions, and no optional ones.
//
// Memory. What a backend hands to a program belongs to the program, which releases it with free():
// each record, each array and each string must be a block of its own from malloc(), calloc() or
// strdup(). What a program hands to a backend belongs to the program and is valid during the call
// only, unless the function says something else.
//
// Threads. All functions are called from one thread, one after the other. A backend may use threads
// of its own, but it calls the program's functions only on the thread that called the backend, and
// before that call returns.
//
// Limits. No function may let a C++ exception out, end the process, or change its working
// directory, locale, umask or signal handlers.
#ifndef VRM_VRC_BACKEND_H
#define VRM_VRC_BACKEND_H

#include <stdint.h>
#include <stdio.h>

#define VRC_ABI 2

// Keeps a symbol visible where a backend is compiled with -fvisibility=hidden.
#define VRC_EXPORT __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

// One pair of key and value. `val` may be null, `key` never is.
//
// A record of pairs is a null-terminated array of pointers to pairs, in the order in which they
// were added; a key may repeat, and keys are compared without regard to case. Slot 0 holds a
// header, whose key begins with "#EKVA_10:"; the pairs begin at slot 1.
struct s_ekva {
    char *key;
    char *val;
};
typedef struct s_ekva s_ekva;

// What is known of one package. A string that is absent is null. The comment of a field begins with
// the attribute by which a filter, and the texts of packages, name it.
//
// In the catalogue a record has `name`, `version`, `arch` and `description`, and the exact
// `filesize`; `sig_status` and the fields of an installed package are 0 or null.
struct vri {
    char *name;             // evrkName
    char *variant;          // evrkVariant; null is the default variant, "" is not
    char *version;          // evrkVersion; compared as strverscmp(3) does
    char *creator;          // evrkCreator: who built the package
    int32_t arch;           // evrkArchitecture: 1 any, 2 i686, 4 x86_64, 8 mips
    char *description;      // evrkDescription
    char **deps;            // evrkDependency: names in order, null-terminated; null when none
    int32_t flag;           // 1 in a parsed record; for backends, the programs don't read it
    uint64_t datasize;      // evrkDataSize: bytes of the unpacked payload; 0 when unknown
    uint64_t filesize;      // evrkFileSize: bytes of the package file
    char *filehash;         // evrkFileHash: SHA-1 of the whole file, 40 lower-case hex digits
    char *absolute_uri;     // evrkAbsoluteURI: where the file is, in full
    char *relative_uri;     // evrkRelativeURI: relative to a repository, or as the user gave it
    int64_t install_time;   // evrkInstallTime: seconds since the epoch
    char install_type;      // evrkInstallType: 'X' in its own right, 'D' as a dependency
    char *install_head;     // evrkInstallHead: for 'D', the package that it was installed for
    int64_t *update_times;  // evrkUpdateTime: ends with 0, oldest first; null when never
    char *rsa_sig_subj;     // evrkRsaSigSubj: the signer's subject in one line
    unsigned char *rsa_sig_data;  // evrkRsaSigData: the raw signature
    int32_t rsa_sig_len;          // bytes in rsa_sig_data
    int32_t sig_status;           // outcome of verification: 1 verified, 0 not checked, -1 missing,
                                  // -2 untrusted, -3 invalid, -4 expired, -5 not yet valid
    s_ekva **ekva;  // further attributes of a backend; freed with the record, not copied
};
typedef struct vri vri;

// ---- What every backend exports

// The version that the backend was built for. Define it with external linkage:
//
//     const uint32_t vrc_abi = VRC_ABI;
//
// It is an object and not a function, so that a program can read it before it calls anything of a
// backend whose functions it may not know.
extern VRC_EXPORT const uint32_t vrc_abi;

// Starts the backend.
//
// `sys_conf` is the record of the system configuration, /etc/vrm.conf; it is valid until the
// process ends. `log` is the program's log object or null; it has no interface for backends. The
// result is the connection, any pointer but null, which the programs only hand back; or null on
// failure. A program may search without a refresh, so what the last refresh found is loaded here.
VRC_EXPORT void *vrc_connect(s_ekva **sys_conf, void *log);

// Brings the backend's view of the catalogue up to date, and keeps it for later processes. After a
// failure the view stays as it was. The result is 0 on success, any other number on failure. A
// refresh that could not read everything may succeed; it reports what it could not read.
VRC_EXPORT int vrc_refresh(void *connection);

// Searches the catalogue. Each of `name`, `variant`, `version` and `filter` may be null, for no
// restriction; all null asks for the whole catalogue. `five` is always 5 and has no meaning. A
// record matches when all of these hold:
//
//   name      is equal to the record's, or fits it as a pattern of fnmatch() with flags 0, or one
//             pair of `filter` fits: the record has an attribute of the pair's key, and one value
//             of it is equal to the pair's value or fits it as such a pattern
//   version   is equal to the record's
//   variant   is equal to the record's; "" and "default" ask for a record without a variant
//
// The result is the number of records in `*out`, a new null-terminated array of new records. Their
// order counts: of equal versions the first one is chosen. Without a match, and on failure, the
// result is 0 and `*out` is left alone.
VRC_EXPORT int vrc_findpkg(void *connection, const char *name, const char *variant,
                           const char *version, int five, s_ekva **filter, vri ***out);

// Writes the package file of a record to `out`, which stays open. `package` is a record that a
// search returned, or a copy of one without its `ekva`. The result is the number of bytes written;
// anything but the record's `filesize` is a failure, so a file of 2 GiB or more can't be fetched.
VRC_EXPORT int vrc_readpkg(void *connection, vri *package, FILE *out);

// Ends a connection. It must be there; the programs keep their connection until they end.
VRC_EXPORT void vrc_release(void *connection);

// ---- Reports: what the user should know

// What a report is about. A program ignores kinds that it does not know.
enum vrc_report_kind {
    // The directory `path` can't be read. The catalogue lacks what is in there: `pvrm refresh` ends
    // with status 1.
    VRC_REPORT_DIRECTORY = 1,
    // The same of a part of the directory.
    VRC_REPORT_DIRECTORY_PART = 2,
    // The file `path` is left out: it is not a package file, or it is damaged.
    VRC_REPORT_DAMAGED = 3,
    // The package file `path` is left out for another reason.
    VRC_REPORT_SKIPPED = 4,
    // Something else that does not stop the call. `text` says what.
    VRC_REPORT_WARNING = 5,
    // Why the call fails. `text` says what.
    VRC_REPORT_ERROR = 6
};

// One report. `text` is plain text without a line end and without the backend's name. `error` is an
// errno value, or 0. The reason is `text`, or the system's text for `error`, or both ("TEXT:
// ERROR"). Fill what is not used with zeros.
struct vrc_report {
    uint32_t size;        // sizeof(vrc_report), as the backend was built
    uint32_t kind;        // one of vrc_report_kind
    int32_t error;        // an errno value, or 0
    uint32_t reserved;    // 0
    const char *path;     // the file or directory, or null
    const char *text;     // or null, where `error` says enough
    const char *package;  // the name of the package, or null
};
typedef struct vrc_report vrc_report;

// Takes one report. The record and its strings need to be valid during the call only. It returns to
// its caller in any case, and does not call the backend.
typedef void (*vrc_report_function)(const vrc_report *report, void *context);

// ---- What a backend may export

// Has the backend call `report` with `context` for what it has to report, from now until the next
// call of this function; null ends that. It is called after vrc_connect: what vrc_connect had to
// report is reported now.
VRC_EXPORT void vrc_set_report(void *connection, vrc_report_function report, void *context);

// The number of records that the catalogue has now; 0 when nothing is known.
//
// A backend that exports this function finds an exact name, one without wildcards and filter, about
// as fast in a large catalogue as in a small one. A program that looks up many names then asks for
// each of them, and does not read the whole catalogue to search it itself.
VRC_EXPORT uint32_t vrc_count(void *connection);

// ---- The types of these functions

typedef void *(*vrc_connect_function)(s_ekva **sys_conf, void *log);
typedef int (*vrc_refresh_function)(void *connection);
typedef int (*vrc_findpkg_function)(void *connection, const char *name, const char *variant,
                                    const char *version, int five, s_ekva **filter, vri ***out);
typedef int (*vrc_readpkg_function)(void *connection, vri *package, FILE *out);
typedef void (*vrc_release_function)(void *connection);
typedef void (*vrc_set_report_function)(void *connection, vrc_report_function report,
                                        void *context);
typedef uint32_t (*vrc_count_function)(void *connection);

#ifdef __cplusplus
}
#endif

#endif
