#include "transaction/space.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <map>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "support/event.h"
#include "support/file.h"
#include "support/vdef.h"
#include "transaction/change.h"
#include "transaction/place.h"
#include "transaction/stage_area.h"

bool vrm_ignore_space = false;

namespace {

constexpr uint64_t block = 512;  // the unit of st_blocks

uint64_t sum_of(uint64_t one, uint64_t other) {
    return one > UINT64_MAX - other ? UINT64_MAX : one + other;
}

// The directory in which a file system is mounted, by one that is on it.
std::string mount_point_of(std::string directory, dev_t device) {
    struct stat status;
    while (directory != "/") {
        const std::string above = directory_of(directory);
        if (stat(above.c_str(), &status) != 0 || status.st_dev != device) {
            break;
        }
        directory = above;
    }
    return directory;
}

std::string in_words(uint64_t bytes) {
    char text[64];
    return vdef_nice_byte(text, static_cast<double>(bytes));
}

// What is needed of each file system.
class needed_space {
 public:
    // For something that comes into a directory, which need not exist yet.
    void add(const std::string &directory, uint64_t bytes) {
        uint64_t &needed = systems_[device_of(directory)].needed;
        needed = sum_of(needed, bytes);
    }

    // The device of a directory, or of the nearest one above it that exists; 0 for none.
    dev_t device_of(const std::string &directory) {
        if (const auto found = devices_.find(directory); found != devices_.end()) {
            return found->second;
        }
        struct stat status;
        dev_t device = 0;
        if (stat(directory.c_str(), &status) == 0) {
            device = status.st_dev;
            systems_.try_emplace(device, file_system{directory});
        } else if (directory != "/") {
            device = device_of(directory_of(directory));
        }
        devices_[directory] = device;
        return device;
    }

    // Reports the first file system with too little room.
    bool is_there(const char *who) const {
        for (const auto &[device, system] : systems_) {
            struct statvfs room;
            // What has no blocks, as some file systems of other machines, does not count them.
            if (system.needed == 0 || statvfs(system.directory.c_str(), &room) != 0 ||
                room.f_blocks == 0) {
                continue;
            }
            const uint64_t unit = room.f_frsize ? room.f_frsize : room.f_bsize;
            const uint64_t available = static_cast<uint64_t>(room.f_bavail) * unit;
            if (system.needed > available) {
                report({.kind = event_kind::space_lacking,
                        .who = who,
                        .path = mount_point_of(system.directory, device),
                        .other = in_words(system.needed),
                        .found = in_words(available)});
                return false;
            }
        }
        return true;
    }

 private:
    struct file_system {
        std::string directory;  // one that is on it
        uint64_t needed = 0;
    };

    std::unordered_map<std::string, dev_t> devices_;
    std::map<dev_t, file_system> systems_;
};

// ---- By the sizes that are known of packages ----

// What the packages of plans need.
struct known_sizes {
    uint64_t fetched = 0;  // package files
    uint64_t largest = 0;  // of the unpacked packages
    uint64_t added = 0;    // by all of them to what is installed
};

void add_package(inventory_snapshot *installed, const vri *package, bool is_staged_first,
                 known_sizes *sizes) {
    stage_paths paths;
    struct stat status;
    if (is_staged_first && stage_paths_of("has_space_for", installed->handle(), package, &paths)) {
        const bool is_staged = stat(paths.file.c_str(), &status) == 0 &&
                               static_cast<uint64_t>(status.st_size) == package->filesize;
        sizes->fetched = sum_of(sizes->fetched, is_staged ? 0 : package->filesize);
    }
    const vri *const old = installed->find_own(package->name);
    const uint64_t replaced = old ? old->datasize : 0;
    sizes->largest = std::max<uint64_t>(sizes->largest, package->datasize);
    sizes->added = sum_of(sizes->added, package->datasize - std::min(package->datasize, replaced));
}

known_sizes sizes_of(inventory_snapshot *installed, const std::vector<const vrt *> &plans) {
    known_sizes sizes;
    std::unordered_set<std::string> seen;
    const auto add = [&](const vri *package, bool is_staged_first) {
        if (package && seen.insert(package->name).second) {
            add_package(installed, package, is_staged_first, &sizes);
        }
    };
    for (const vrt *plan : plans) {
        if (plan->action == 'D') {
            continue;
        }
        for (int32_t i = 0; plan->deps && i < plan->num_deps; i++) {
            const vrd *dep = plan->deps[i];
            if (dep->action == 'I' || dep->action == 'U') {
                add(dep->info, dep->status == 'R' || dep->status == 'L');
            }
        }
        add(plan->info, true);
    }
    return sizes;
}

// ---- By what was unpacked ----

uint64_t blocks_of(const std::string &path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0 ? static_cast<uint64_t>(status.st_blocks) * block : 0;
}

// The files that come to their places, those that only move from the stage area left out.
void add_placed(const change &change, const std::string &stage, needed_space *space) {
    const dev_t stage_device = space->device_of(stage);
    const bool may_move = data_may_move(change);
    for (char **path = change.forks.data.get(); path && *path; path++) {
        const std::string directory = directory_of(*path);
        if (!may_move || space->device_of(directory) != stage_device) {
            space->add(directory, blocks_of(stage + "/data" + *path));
        }
    }
    for (char **path = change.forks.conf.get(); path && *path; path++) {
        space->add(directory_of(*path), blocks_of(stage + "/conf" + *path));
    }
}

void add_registration(const change &change, const std::string &stage, needed_space *space) {
    const std::string inventory = directory_of(change.places.entry),
                      indexes = directory_of(change.places.index);
    const struct {
        const char *name;
        const own_array &files;
    } kept_forks[] = {{"/info", change.forks.info},
                      {"/init", change.forks.init},
                      {"/conf", change.forks.conf},
                      {"/dump", change.forks.dump}};
    for (const auto &fork : kept_forks) {
        for (char **path = fork.files.get(); path && *path; path++) {
            space->add(inventory, blocks_of(stage + fork.name + *path));
        }
    }
    for (const char *list : {"data", "info", "init", "conf", "dump"}) {
        space->add(inventory, blocks_of(stage + "/hash/" + list + ".txt"));
    }
    uint64_t index = 0;
    for (char **path = change.forks.data.get(); path && *path; path++) {
        index += std::char_traits<char>::length(*path) + 1;
    }
    space->add(indexes, index);
}

// A file on another file system than the stage area has no second name there: it is copied, for the
// journal and for the backups of the change.
void add_saved(const change &change, needed_space *space) {
    const std::string &stage = change.stage.base;
    const dev_t stage_device = space->device_of(stage);
    for (const kept_path &kept : change.touched.kept) {
        // The directory's device counts: on some file systems that of a file is another one.
        if (S_ISREG(kept.mode) && space->device_of(directory_of(kept.path)) != stage_device) {
            space->add(stage, 2 * blocks_of(kept.path));
        }
    }
}

}  // namespace

bool has_space_for(inventory_snapshot *installed, const std::vector<const vrt *> &plans) {
    if (vrm_ignore_space) {
        return true;
    }
    const std::string area = dir_of(installed->handle(), "stagearea");
    const known_sizes sizes = sizes_of(installed, plans);
    needed_space space;
    const dev_t device = space.device_of(area);
    const bool is_all_there = space.device_of("/") == device && space.device_of("/usr") == device;
    space.add(area, sum_of(sizes.fetched,
                           is_all_there ? std::max(sizes.largest, sizes.added) : sizes.largest));
    return space.is_there("has_space_for");
}

int look_at_space(change *change) {
    if (vrm_ignore_space) {
        return 0;
    }
    needed_space space;
    add_placed(*change, change->stage.fresh, &space);
    add_registration(*change, change->stage.fresh, &space);
    return space.is_there(change->by->who) ? 0 : -1;
}

bool has_space_to_save(const change &change) {
    if (vrm_ignore_space) {
        return true;
    }
    needed_space space;
    add_saved(change, &space);
    return space.is_there(change.by->who);
}
