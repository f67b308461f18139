#include "maintenance/cleanup.h"

#include <dirent.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "maintenance/upkeep.h"
#include "package/fileops.h"
#include "support/boundary.h"
#include "support/ekva.h"
#include "support/event.h"
#include "support/file.h"
#include "support/own.h"
#include "support/vdef.h"
#include "transaction/interrupt.h"
#include "transaction/recover_change.h"

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
    bool (*measure)(const char *path, uint64_t *size);
    bool (*remove)(const char *path);  // whether the entry counts as removed
    event_kind not_measured, found, kept, removed;
};

bool directory_size(const char *path, uint64_t *size) {
    return vrm_vrf_dudir(path, size) == 0;
}

bool remove_directory(const char *path) {
    return remove_retired_entry(path) == 0;
}

bool file_size(const char *path, uint64_t *size) {
    struct stat status = {};
    const bool measured = stat(path, &status) == 0;
    *size = static_cast<uint64_t>(status.st_size);
    return measured;
}

// A file counts whether it could be removed or not.
bool remove_file(const char *path) {
    remove(path);
    return true;
}

constexpr phase phases[] = {
    {"installed", "directory", DT_DIR, true, ".old", directory_size, remove_directory,
     event_kind::old_entry_not_measured, event_kind::old_entry_found, event_kind::old_entry_kept,
     event_kind::old_entry_removed},
    {"fileindex", "file", DT_REG, true, ".old", file_size, remove_file,
     event_kind::old_file_not_measured, event_kind::old_index_found, event_kind::old_index_kept,
     event_kind::old_index_removed},
    {"stagearea", "file", DT_REG, false, ".vrk", file_size, remove_file,
     event_kind::old_file_not_measured, event_kind::staged_file_found, event_kind::staged_file_kept,
     event_kind::staged_file_removed},
};

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
        report({.kind = event_kind::cleanup_directory_not_opened, .path = path, .error = errno});
        return false;
    }
    question_.begin_walk('d');
    while (const dirent *found = next_entry(dir)) {
        if (has_fitting_name(what, found->d_name) &&
            type_of_entry(dir.get(), *found) == what.type &&
            !visit({what, found->d_name, path + "/" + found->d_name, 0})) {
            report({.kind = event_kind::cleanup_aborted});
            return false;
        }
    }
    if (errno != 0) {
        report({.kind = event_kind::cleanup_directory_not_read, .path = path, .error = errno});
    }
    return true;
}

// False when the run is to be aborted.
bool cleanup::visit(entry found) {
    if (vrm_stop_requested) {
        return false;
    }
    if (!found.what.measure(found.path.c_str(), &found.size)) {
        report({.kind = found.what.not_measured, .path = found.path});
        return true;
    }
    if (dry_run) {
        report({.kind = found.what.found,
                .path = found.name,
                .number = static_cast<int64_t>(found.size)});
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
            report({.kind = found.what.kept, .path = found.name});
            return true;
        case 'd':
            remove(found);
            return true;
        default:
            return letter != 'a';
    }
}

void cleanup::remove(const entry &found) {
    report({.kind = found.what.removed, .path = found.name});
    if (!found.what.remove(found.path.c_str())) {
        report({.kind = event_kind::old_entry_not_removed, .path = found.name});
        return;
    }
    add_up(found);
}

void cleanup::add_up(const entry &found) {
    count_++;
    bytes_ += found.size;
}

int cleanup::finish() const {
    report({.kind = event_kind::cleanup_done, .other = nice_size(bytes_)});
    return count_;
}

}  // namespace

int vrm_cleanup(vrm_handle *handle) {
    return guarded("vrm_cleanup", -1, [&] {
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
    });
}
