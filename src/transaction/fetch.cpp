#include "transaction/fetch.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "package/copy_file.h"
#include "package/fileops.h"
#include "package/signed_record.h"
#include "package/vrf.h"
#include "package/vrs.h"
#include "repository/dirsearch.h"
#include "repository/vrc.h"
#include "support/file.h"
#include "support/log.h"
#include "support/own.h"
#include "transaction/change.h"
#include "transaction/interrupt.h"

// Why somebody else could exchange the content of a staged file while it is verified and unpacked,
// empty when nobody could. Who wrote to the stage area of a former time may have left such a file.
static std::string foreign_hand(const struct stat &found) {
    if (found.st_uid != geteuid()) {
        return "it belongs to user " + std::to_string(found.st_uid);
    }
    if ((found.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return "others may write to it";
    }
    return found.st_nlink != 1 ? "it has a second name (a hard link)" : "";
}

static bool is_own_regular_file(const char *path) {
    struct stat found;
    return lstat(path, &found) == 0 && S_ISREG(found.st_mode) && foreign_hand(found).empty();
}

// The place of a staged file, always a new file: somebody could hold an old one open. Nothing but a
// regular file gives way to it. Null with the reason of a failure.
static own_file open_for_fetch(const char *path, const char **why) {
    struct stat found;
    if (lstat(path, &found) == 0) {
        if (!S_ISREG(found.st_mode)) {
            *why = S_ISDIR(found.st_mode) ? strerror(EISDIR) : "Not a regular file";
            return nullptr;
        }
        if (unlink(path) != 0) {
            *why = strerror(errno);
            return nullptr;
        }
    }
    static constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    own_fd fd(open(path, flags, 0644));
    own_file file = fd.stream("w");
    *why = file ? nullptr : strerror(errno);
    return file;
}

// Whether a staged file is the one that was planned, by the SHA-1 that the plan knows. Where it
// came from it may have been exchanged since. `exchanged` is the kind of event that says so, with
// `origin` as the file that it is about.
static bool is_planned_file(const char *who, const char *staged, const vri *package,
                            event_kind exchanged, const char *origin) {
    if (!package->filehash || !*package->filehash) {
        return true;
    }
    char digest[41];
    if (!vrs_sha1_file(staged, 'x', digest)) {
        report(
            {.kind = event_kind::staged_file_not_read, .who = who, .path = staged, .error = errno});
        return false;
    }
    if (strcasecmp(digest, package->filehash) != 0) {
        report({.kind = exchanged,
                .who = who,
                .path = origin,
                .other = std::string_view(package->filehash).substr(0, 40),
                .found = digest});
        return false;
    }
    return true;
}

int stage_fetch(const char *who, std::optional<event_kind> announce, void *connection, vri *package,
                const std::string &path) {
    if (is_own_regular_file(path.c_str()) && vrm_stage_have_vrk(path.c_str(), package)) {
        return 0;
    }
    const char *why;
    own_file file = open_for_fetch(path.c_str(), &why);
    if (!file) {
        report(
            {.kind = event_kind::staged_file_not_created, .who = who, .path = path, .other = why});
        return -1;
    }
    if (announce) {
        report({.kind = *announce, .package = vrk_puname(package)});
    }
    // Without a backend there is nobody to ask.
    const int rc =
        pvrm_vrc_readpkg && connection ? pvrm_vrc_readpkg(connection, package, file.get()) : -1;
    const bool written = !ferror(file.get());
    if (fclose(file.release()) != 0 || !written) {
        report({.kind = event_kind::staged_file_not_written,
                .who = who,
                .path = path,
                .error = errno});
        return -1;
    }
    // The count is a signed 32-bit number by contract: a negative one never equals a size, nor does
    // that of a package of 2 GiB or more.
    if (static_cast<int64_t>(static_cast<int32_t>(rc)) < 0 ||
        static_cast<uint64_t>(static_cast<int64_t>(rc)) != package->filesize) {
        report({.kind = event_kind::fetched_size_wrong,
                .who = who,
                .path = path,
                .status = rc,
                .total = static_cast<int64_t>(package->filesize)});
        return -1;
    }
    // Under this name nothing may stay that is another package's.
    if (!is_planned_file(who, path.c_str(), package, event_kind::fetched_file_exchanged,
                         path.c_str())) {
        unlink(path.c_str());
        return -1;
    }
    return 0;
}

// Whether a source is the staged file itself, with its status in `*found`. A link in the place of
// the staged file is not: the copy takes it away.
static bool is_staged_file(const char *source, const char *staged, struct stat *found) {
    struct stat first;
    return stat(source, &first) == 0 && lstat(staged, found) == 0 &&
           first.st_dev == found->st_dev && first.st_ino == found->st_ino;
}

int stage_copy(const char *who, bool announce, const vri *package, const std::string &path) {
    if (announce) {
        report({.kind = event_kind::copying, .package = vrk_puname(package)});
    }
    const char *source = package->absolute_uri ? package->absolute_uri : "";
    // A user may name the staged file itself. Copying it onto itself would delete it, as a copy
    // takes its target away first.
    const auto is_planned = [&] {
        return is_planned_file(who, path.c_str(), package, event_kind::copied_file_exchanged,
                               source);
    };
    struct stat link;
    if (is_staged_file(source, path.c_str(), &link)) {
        // It may be the user's only one, so it isn't deleted.
        if (const std::string why = foreign_hand(link); !why.empty()) {
            report(
                {.kind = event_kind::staged_file_refused, .who = who, .path = path, .other = why});
            return -1;
        }
        return is_planned() ? 0 : -1;
    }
    // It takes away a link, too, but does not see one that leads nowhere: it would create what that
    // one names.
    if (is_missing(path.c_str()) && lstat(path.c_str(), &link) == 0) {
        unlink(path.c_str());
    }
    if (vrm_vrf_copy(path.c_str(), source, nullptr, 0) < 0) {
        report({.kind = event_kind::package_not_staged, .who = who, .path = path, .other = source});
        return -1;
    }
    if (!is_planned()) {
        unlink(path.c_str());
        return -1;
    }
    return 0;
}

int vrm_stage_file(vrm_handle *handle, const vri *package, int verbose) {
    static constexpr char me[] = "vrm_stage_file";
    return attempt(me, [=] {
        stage_paths paths;
        if (!identity_is_safe(me, package) || !stage_paths_of(me, handle, package, &paths) ||
            !is_stage_area_trusted(me, handle)) {
            return -1;
        }
        return stage_copy(me, verbose != 0, package, paths.file);
    });
}

// ---- All packages of a plan ----

// Stages one package from where the plan found it: `R` the catalogue, `L` the local system.
static int stage_one(plan_run *run, char from, vri *package, event_kind announce) {
    if (must_stop(package)) {
        return -1;
    }
    if (from == 'R') {
        stage_paths paths;
        if (!stage_paths_of(run->who, run->handle, package, &paths)) {
            return -1;
        }
        run->last_staged = paths.file;
        return stage_fetch(run->who, run->verbose ? std::optional(announce) : std::nullopt,
                           run->connection, package, run->last_staged);
    }
    return from == 'L' ? stage_copy(run->who, run->verbose, package, run->last_staged) : 0;
}

// Whether the staged file of a package, if there is one, is what is signed and planned.
static bool is_proven(const plan_run &run, const vri *package) {
    stage_paths paths;
    if (!stage_paths_of(run.who, run.handle, package, &paths)) {
        return false;
    }
    if (is_missing(paths.file.c_str())) {
        return true;
    }
    const own_vri head(vrm_vrf_info(run.handle, paths.file.c_str(), 1));
    if (head && head->sig_status != 1) {
        report({.kind = event_kind::signature_not_trusted, .path = paths.file});
        return false;
    }
    // The head is the signed description when they match.
    std::string why = compare_head(paths.file.c_str()).why;
    if (why.empty()) {
        why = head ? plan_difference(*run.transaction, package, head.get())
                   : "its head cannot be read";
    }
    if (!why.empty()) {
        report({.kind = event_kind::package_not_believed,
                .who = run.who,
                .package = paths.puname,
                .path = file_name_of(package),
                .other = why});
    }
    return why.empty();
}

static bool are_dependencies_proven(const plan_run &run) {
    const vrt *plan = *run.transaction;
    bool changes_one = false;
    for (int32_t i = 0; plan->deps && i < plan->num_deps; i++) {
        const vri *package = plan->deps[i]->action != 'N' ? plan->deps[i]->info : nullptr;
        // What needs nothing brings nothing in.
        if (package && package->deps && package->deps[0] && !is_proven(run, package)) {
            return false;
        }
        changes_one = changes_one || package;
    }
    return !changes_one || is_proven(run, plan->info);
}

int stage_plan(plan_run *run, const fetch_words &words) {
    vrt *plan = *run->transaction;
    stage_paths paths;
    if (!stage_paths_of(run->who, run->handle, plan->info, &paths)) {
        return -1;
    }
    run->last_staged = paths.file;
    if (stage_one(run, plan->source, plan->info, event_kind::fetching) != 0) {
        return -1;
    }
    for (int32_t i = 0; i < plan->num_deps; i++) {
        const vrd *dep = plan->deps[i];
        if (!dep->info || dep->status == 'I') {
            continue;
        }
        if (words.lists_deps) {
            log_say(LEVEL_DEBUG, "-  %-25s Status: %c, URI: %s\n", dep->name, dep->status,
                    dep->info->absolute_uri ? dep->info->absolute_uri : "");
        }
        // A dependency from a directory (`L`) is copied over the file staged before it: the path is
        // not formed anew for it. Callers that want such a dependency stage it themselves and hand
        // it over as fetched.
        if (stage_one(run, dep->status, dep->info, words.announce_dep) != 0) {
            return -1;
        }
    }
    return are_dependencies_proven(*run) ? 0 : -1;
}
