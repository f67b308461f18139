// One reading of the inventory for all questions of a command.
//
// The functions of repository/inventory.h read the tree anew for each question. A snapshot reads
// each entry once, at the first question about it, and the list of entries once, at the first
// question about all of them. It notes by what it can see whether what it read was changed since:
// the inode and the change time, in nanoseconds, of the entry's directory and of its two texts, and
// the list of entries.
//
// A program makes one for a command and hands it to the planners. Before it carries a plan out it
// takes the lock and calls refresh(): what was changed by then is forgotten, and when that is
// anything, the plan has to be made anew. After each change of its own it calls forget() with the
// packages that it changed.
#pragma once

#include <sys/stat.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "package/vri.h"
#include "support/handle.h"

// Records and lists that are returned belong to the snapshot and are valid until the next call of
// refresh() or forget(). Functions may throw std::bad_alloc.
class inventory_snapshot {
 public:
    // Reads nothing yet. The handle must outlive the snapshot.
    explicit inventory_snapshot(vrm_handle *handle) : handle_(handle) {}
    inventory_snapshot(const inventory_snapshot &) = delete;
    inventory_snapshot &operator=(const inventory_snapshot &) = delete;

    vrm_handle *handle() const {
        return handle_;
    }

    // The directory of entries.
    std::string directory() const;

    // ---- One package ----

    // The record of an installed package, as vrm_vrl_info finds it; null when it isn't installed.
    // An entry that is no valid package is read again each time, so that the reason is reported
    // again; the answer is null nonetheless until it is forgotten.
    const vri *find(const std::string &name);

    // The same, but null when the record has another name than the entry, as vrm_vrl_own_info.
    const vri *find_own(const std::string &name);

    // ---- All packages ----

    // An entry of the directory `installed`. What is not a directory and what is not a valid
    // package has no record.
    struct listed_entry {
        std::string name;
        bool is_directory;
        const vri *info;
    };
    // All entries in the order of the directory, without the directories of an update in progress.
    // An inventory that can't be read to its end gives what could be read; the errors are below.
    const std::vector<listed_entry> &entries();

    // The errno of opening the directory, of reading it to its end and of closing it, 0 for none.
    struct list_errors {
        int open = 0, read = 0, close = 0;

        bool operator==(const list_errors &) const = default;
    };
    list_errors errors();

    // All installed packages sorted by name, as vrm_list_vri lists them without a pattern. Damaged
    // entries are reported as there, but each once. None when the inventory can't be read to its
    // end, which is reported.
    const std::vector<const vri *> &packages();

    // Their names, sorted, as vrm_list_arr lists them: damaged entries are passed over in silence.
    std::vector<std::string> names();

    // ---- Who needs whom ----

    // The places in entries() of the packages that list exactly this name among their dependencies,
    // each once, in ascending order.
    const std::vector<size_t> &places_of_dependents(const std::string &name);

    // The same packages sorted by name, as vrm_dependson names them.
    std::vector<const vri *> dependents(const std::string &name);

    // ---- Changes ----

    // Forgets what has changed, so that the next question about it reads it anew. Result: whether
    // there was anything. Costs three look-ups of a file for each entry that was read, and opens
    // nothing but the directory of entries, and that only when it was changed. Without the lock,
    // what was changed within a tick of the system's clock before it was read counts as changed: a
    // further change may have left the same time.
    bool refresh();

    // The same for one entry, as far as it was read, and not for the list of entries.
    bool refresh(const std::string &name);

    // Forgets the entry of a package and the list of entries, for a change of the caller's own.
    void forget(const std::string &name);

    // How many times an entry was read so far.
    size_t readings() const {
        return readings_;
    }

 private:
    // What identifies a state of a file; `error` is the errno of looking at it.
    struct stamp {
        int error = 0;
        dev_t device = 0;
        ino_t inode = 0;
        int64_t seconds = 0;
        int64_t nanoseconds = 0;

        bool operator==(const stamp &) const = default;
    };
    struct entry_stamp {
        stamp directory, description, install_record;

        bool operator==(const entry_stamp &) const = default;
    };
    struct known {
        bool is_settled = false;   // a later change can't have the same change time
        bool is_reported = false;  // as damaged
        entry_stamp seen;
        own_vri info;

        bool is_there() const {
            return seen.directory.error != ENOENT;
        }
    };
    struct listed {
        std::string name;
        bool is_directory;

        bool operator==(const listed &) const = default;
    };
    struct listing {
        std::vector<listed> names;
        list_errors errors;
    };

    static stamp stamp_of(const std::string &path, bool follow);
    entry_stamp stamps_of(const std::string &name) const;
    template <class... Stamps>
    bool is_settled(const timespec &before, const Stamps &...stamps) const;
    known &look_at(const std::string &name);
    void read_record(const std::string &name, known *entry);
    bool has_changed(const std::string &name, const known &entry) const;

    listing read_names() const;
    bool is_list_changed() const;
    void need_list();
    void need_entries();
    void report_list_errors() const;
    void drop_views();

    vrm_handle *handle_;
    size_t readings_ = 0;
    std::unordered_map<std::string, known> known_;

    bool has_list_ = false;
    bool is_list_settled_ = false;
    stamp list_seen_;
    listing list_;

    // Made of the above at the first question.
    bool has_entries_ = false, has_packages_ = false, has_dependents_ = false;
    std::vector<listed_entry> entries_;
    std::vector<const vri *> packages_;
    std::unordered_map<std::string, std::vector<size_t>> dependents_;
};

// Packages that a planner takes into account beside the inventory, the directories and the
// catalogue, for a caller that plans several requests of one command. Both are by name, and the
// records belong to the caller. What this machine can't run plays no part.
struct given_packages {
    // Are installed before what is being planned: as a dependency they count as installed.
    std::unordered_map<std::string, const vri *> coming = {};
    // Package files, with their absolute_uri: as a dependency they are taken ahead of the
    // directories and the catalogue.
    std::unordered_map<std::string, const vri *> files = {};
};

// Where a planner asks what is installed: a snapshot, or, as a function that is called on its own
// does, the tree itself at each question. The given packages must outlive the view.
class installed_view {
 public:
    installed_view(vrm_handle *handle) : handle_(handle) {}  // NOLINT
    installed_view(inventory_snapshot &snapshot)             // NOLINT
        : handle_(snapshot.handle()), snapshot_(&snapshot) {}
    installed_view(const installed_view &base, const given_packages &given) : installed_view(base) {
        given_ = &given;
    }

    vrm_handle *handle() const {
        return handle_;
    }
    // Null for the tree.
    inventory_snapshot *snapshot() const {
        return snapshot_;
    }
    // Null for none.
    const given_packages *given() const {
        return given_;
    }
    // As vrm_vrl_info and vrm_vrl_own_info. Throw std::bad_alloc.
    own_vri info(const char *name) const;
    own_vri own_info(const char *name) const;
    bool has(const char *name) const;
    bool has_own(const char *name) const;

 private:
    vrm_handle *handle_;
    inventory_snapshot *snapshot_ = nullptr;
    const given_packages *given_ = nullptr;
};
