// vrc-dirs.so, the default catalogue backend: the catalogue is what lies in directories of this
// machine.
//
// Configuration (a record of the system configuration, see the connect function):
//
//   vrc_dirs        the directories, separated by commas, blanks around each ignored. Each is an
//                   absolute path; it may be a link itself.
//   vrc_dirs_cache  the directory of the index file, an absolute path; /var/cache/vrm by default.
//                   It is made if it isn't there.
//
// What is in the catalogue. Every regular file (or link to one) named *.vrk in these directories
// and below whose head can be read. Links to directories are not followed, and names that begin
// with a dot are work files and are left out. What a package says of itself stands in the record as
// the head of the file says it, for every architecture; size, SHA-1 and the URIs are those of the
// file found: `absolute_uri` is its path, `relative_uri` the part of it below the configured
// directory. Signatures are not checked here, the engine does so when it unpacks. Two files of one
// name and version are two records. Records are ordered by name, then by path.
//
// What a refresh does. It lists the directories and asks for each file's size and time of
// modification; only a file that is new or differs in one of them is read. What can't be read as a
// package is skipped with a WARNING, a damaged file as well as one of another kind, or one whose
// description refers to another file, and is not read again before it changes; only a file whose
// bytes can't be had is tried at each refresh. A file of 2 GiB or more is skipped without being
// read, since it could not be fetched. A directory that is missing or can't be read holds nothing.
// Each refresh reports all of these, also those that an earlier one reported: they are missing in
// the catalogue still. A refresh fails only when `vrc_dirs` names no directory or none of them
// could be read; the view then stays what it was.
//
// What is known without a refresh. The last refresh leaves its view in the index file,
// "vrc-dirs.index". A connection starts with it, without a look at the directories, if it is of the
// same list of directories; else it knows nothing until its first refresh. An index is believed
// only if it belongs to root or to the caller and nobody else may write to it. Whoever may not
// write to the index's directory, such as a user whose window is opened, works from memory.
//
// Searches run on the index as it lies in the file, mapped into memory: nothing of it is read in
// advance, an exact name is a binary search, a pattern runs over the names or descriptions, which
// lie side by side, and only records that match are made. A filter on other attributes than the
// name and the description makes and tests every record.
//
// A backend owns nothing in the program but its connection: it is linked with a copy of the engine
// of its own, exports what vrm/vrc_backend.h declares alone, and shares only the log object that it
// is given. What the user should know it reports to the program, which logs it, or logs it itself.
#include "vrm/vrc_backend.h"

#include <exception>
#include <memory>
#include <string>

#include "backends/vrc-dirs/catalogue.h"
#include "backends/vrc-dirs/fetch.h"
#include "support/log.h"

using vrc_dirs::dirs_catalogue;

static void report_failure(dirs_catalogue *catalogue, const char *what,
                           const std::exception &problem) try {
    catalogue->reports().fail(std::string("failed to ") + what + ": " + problem.what());
} catch (const std::exception &) {
    // There is no memory for a sentence either.
    log_say(LEVEL_ERROR, "vrc-dirs: failed to %s: %s", what, problem.what());
}

extern "C" {

const uint32_t vrc_abi = VRC_ABI;

void *vrc_connect(s_ekva **sys_conf, void *log) {
    // This copy of the engine logs to the program's log, whichever connection came last.
    llog = static_cast<log_object *>(log);
    try {
        auto catalogue = std::make_unique<dirs_catalogue>(sys_conf);
        catalogue->load();
        return catalogue.release();
    } catch (const std::exception &problem) {
        log_say(LEVEL_ERROR, "vrc-dirs: failed to connect: %s", problem.what());
        return nullptr;
    }
}

void vrc_set_report(void *connection, vrc_report_function report, void *context) {
    if (connection) {
        static_cast<dirs_catalogue *>(connection)->reports().set_receiver(report, context);
    }
}

int vrc_refresh(void *connection) {
    auto *const catalogue = static_cast<dirs_catalogue *>(connection);
    if (!catalogue) {
        return 1;
    }
    try {
        catalogue->reports().end_waiting();
        return catalogue->refresh() ? 0 : 1;
    } catch (const std::exception &problem) {
        report_failure(catalogue, "refresh", problem);
        return 1;
    }
}

int vrc_findpkg(void *connection, const char *name, const char *variant, const char *version, int,
                s_ekva **filter, vri ***out) {
    auto *const catalogue = static_cast<dirs_catalogue *>(connection);
    if (!catalogue || !out) {
        return 0;
    }
    try {
        catalogue->reports().end_waiting();
        return catalogue->find({name, variant, version, filter}, out);
    } catch (const std::exception &problem) {
        report_failure(catalogue, "search", problem);
        return 0;
    }
}

uint32_t vrc_count(void *connection) {
    const auto *const catalogue = static_cast<dirs_catalogue *>(connection);
    return catalogue ? catalogue->records() : 0;
}

int vrc_readpkg(void *connection, vri *package, FILE *out) {
    auto *const catalogue = static_cast<dirs_catalogue *>(connection);
    if (!catalogue || !package || !out) {
        return -1;
    }
    try {
        catalogue->reports().end_waiting();
        return vrc_dirs::fetch(catalogue->settings().dirs, *package, out, &catalogue->reports());
    } catch (const std::exception &problem) {
        report_failure(catalogue, "read a package", problem);
        return -1;
    }
}

void vrc_release(void *connection) {
    delete static_cast<dirs_catalogue *>(connection);
}

}  // extern "C"
