#include "maintenance/cleanup.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include "maintenance/dry_run.h"
#include "maintenance/upkeep.h"
#include "package/fileops.h"
#include "support/ekva.h"
#include "support/log.h"
#include "support/own.h"
#include "support/vdef.h"
#include "transaction/interrupt.h"

namespace {

constexpr char answers[] =
    "k=keep entry,L=Leave all entries,d=delete entry,R=Remove all entries,a=abort cleanup";

// One directory of the repository and what goes from it.
struct phase {
    const char *role;  // which directory of the handle; its messages begin with it
    const char *noun;  // what the question calls an entry
    unsigned char type;
    bool begins_with_dot;
    const char *suffix;
    const char *measuring;                         // as the message of a failure calls it
    int (*measure)(const char *path, uint64_t *);  // 0, or -1 when that failed
    int (*remove)(const char *path);               // 0 when the entry counts as removed
};

int file_size(const char *path, uint64_t *size) {
    struct stat status = {};
    if (stat(path, &status) != 0) {
        return -1;
    }
    *size = static_cast<uint64_t>(status.st_size);
    return 0;
}

// A file counts whether it could be removed or not.
int remove_file(const char *path) {
    remove(path);
    return 0;
}

constexpr phase phases[] = {
    {"installed", "directory", DT_DIR, true, ".old", "dudir", vrm_vrf_dudir, vrm_vrf_rmdir},
    {"fileindex", "file", DT_REG, true, ".old", "stat", file_size, remove_file},
    {"stagearea", "file", DT_REG, false, ".vrk", "stat", file_size, remove_file},
};

// The type of an entry, links not followed. Not every file system gives it along with the name.
unsigned char type_of(DIR *dir, const dirent &entry) {
    struct stat status = {};
    if (entry.d_type != DT_UNKNOWN ||
        fstatat(dirfd(dir), entry.d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return entry.d_type;
    }
    return static_cast<unsigned char>(IFTODT(status.st_mode));
}

// The first place of the suffix has to be the end of the name: one that comes twice is none of the
// names that the engine gives, and whoever gave it may want to keep it.
bool has_fitting_name(const phase &what, const char *name) {
    if (what.begins_with_dot && name[0] != '.') {
        return false;
    }
    const char *rest = strstr(name, what.suffix);
    return rest && strcmp(rest, what.suffix) == 0;
}

class cleanup {
 public:
    explicit cleanup(vrm_handle *handle) : handle_(handle), question_(answers, "d") {}

    // Goes through one directory. False when the run is over.
    bool run(const phase &what);
    int finish() const;

 private:
    struct entry {
        const phase &what;
        const char *name;
        std::string path;
        uint64_t size;
    };

    bool visit(entry found);
    bool act(const entry &found, char letter);
    void remove(const entry &found);
    void add_up(const entry &found);

    vrm_handle *handle_;
    recurring_question question_;
    int count_ = 0;
    uint64_t bytes_ = 0;
};

bool cleanup::run(const phase &what) {
    const std::string path = ekva_getval(handle_->dirs, what.role);
    const own_dir dir(opendir(path.c_str()));
    if (!dir) {
        log_say(LEVEL_INFO, "failure opening <%s> for reading: %s", path.c_str(), strerror(errno));
        return false;
    }
    question_.begin_walk('d');
    errno = 0;
    while (const dirent *found = readdir(dir.get())) {
        if (has_fitting_name(what, found->d_name) && type_of(dir.get(), *found) == what.type &&
            !visit({what, found->d_name, path + "/" + found->d_name, 0})) {
            log_say(LEVEL_ERROR, "aborting cleanup");
            return false;
        }
        errno = 0;
    }
    if (errno != 0) {
        log_say(LEVEL_WARNING, "failure reading <%s>: %s", path.c_str(), strerror(errno));
    }
    return true;
}

// False when the run is to be aborted.
bool cleanup::visit(entry found) {
    if (vrm_stop_requested) {
        return false;
    }
    if (found.what.measure(found.path.c_str(), &found.size) != 0) {
        log_say(LEVEL_ERROR, "failed to %s %s", found.what.measuring, found.path.c_str());
        return true;
    }
    if (dry_run) {
        log_say(LEVEL_INFO, "%s: found %s of size %" PRIu64, found.what.role, found.name,
                found.size);
        add_up(found);
        return true;
    }
    const std::string text = std::string(found.what.role) + ": delete " + found.what.noun + " " +
                             found.name + " with size " + std::to_string(found.size);
    return act(found, question_.letter_of_removal(text));
}

bool cleanup::act(const entry &found, char letter) {
    switch (letter) {
        case 'k':
            log_say(LEVEL_INFO, "%s: keeping %s", found.what.role, found.name);
            return true;
        case 'd':
            remove(found);
            return true;
        default:
            return letter != 'a';
    }
}

void cleanup::remove(const entry &found) {
    log_say(LEVEL_INFO, "%s: removing %s", found.what.role, found.name);
    if (found.what.remove(found.path.c_str()) != 0) {
        log_say(LEVEL_ERROR, "%s: failed to remove %s", found.what.role, found.name);
        return;
    }
    add_up(found);
}

void cleanup::add_up(const entry &found) {
    count_++;
    bytes_ += found.size;
}

int cleanup::finish() const {
    char sum[64];
    log_say(LEVEL_INFO, "cleanup deleted: %s", vdef_nice_byte(sum, static_cast<double>(bytes_)));
    return count_;
}

}  // namespace

int vrm_cleanup(vrm_handle *handle) try {
    if (!may_begin("vrm_cleanup", handle)) {
        return -1;
    }
    cleanup job(handle);
    for (const phase &what : phases) {
        if (!job.run(what)) {
            return -1;
        }
    }
    return job.finish();
} catch (const std::bad_alloc &) {
    log_say(LEVEL_ERROR, "vrm_cleanup: there is not enough memory");
    return -1;
}
