#include "transaction/register.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <ctime>

#include "package/fileops.h"
#include "support/ekva.h"
#include "support/ldif.h"
#include "support/log.h"
#include "support/shell.h"
#include "transaction/link_conflicts.h"

void apply_links_and_perms(const char *who, const std::string &stage, const own_array &info,
                           const settled_links &links) {
    for (char **path = info.get(); path && *path; path++) {
        const std::string list = stage + "/info" + *path;
        if (strcmp(*path, "/link.txt") == 0) {
            const int rc = make_links(list, links);
            log_say(LEVEL_DEBUG, "%s: rc of vrm_vrf_links: %d", who, rc);
        } else if (strcmp(*path, "/perm.txt") == 0) {
            const int rc = vrm_vrf_perms(list.c_str());
            log_say(LEVEL_DEBUG, "%s: rc of vrm_vrf_perms: %d", who, rc);
        }
    }
}

static bool copy_all(const std::string &source, const std::string &target, char *const *paths,
                     int mode) {
    for (; paths && *paths; paths++) {
        if (vrm_vrf_copy((target + *paths).c_str(), (source + *paths).c_str(), nullptr, mode) < 0) {
            return false;
        }
    }
    return true;
}

const char *register_forks(const std::string &stage, const std::string &entry,
                           const package_forks &forks) {
    static constexpr int keep_mode = 1;
    static constexpr struct {
        const char *name;
        own_array package_forks::*files;
        bool kept;  // the files too, not just their hash list
        int mode;
        const char *files_words;
        const char *hash_words;
    } kept_forks[] = {
        {"data", &package_forks::data, false, 0, nullptr, "data hash file"},
        {"init", &package_forks::init, true, 0755, "init files", "init hash file"},
        {"conf", &package_forks::conf, true, keep_mode, "conf files", "conf hash file"},
        {"dump", &package_forks::dump, true, keep_mode, "dump files", "dump hash file"},
    };

    std::string dir = entry;
    vrm_vrf_mkdir(dir.data(), 0755);
    dir = entry + "/hash";
    vrm_vrf_mkdir(dir.data(), 0755);
    if (!copy_all(stage + "/info", entry, forks.info.get(), 0755)) {
        return "info files";
    }
    for (const auto &fork : kept_forks) {
        char *const *files = (forks.*fork.files).get();
        if (!files) {
            continue;
        }
        const std::string name = std::string("/") + fork.name;
        if (fork.kept) {
            dir = entry + name;
            vrm_vrf_mkdir(dir.data(), 0755);
            if (!copy_all(stage + name, entry + name, files, fork.mode)) {
                return fork.files_words;
            }
        }
        const std::string list = "/hash" + name + ".txt";
        if (vrm_vrf_copy((entry + list).c_str(), (stage + list).c_str(), nullptr, 0755) < 0) {
            return fork.hash_words;
        }
    }
    return nullptr;
}

int write_fileindex(const std::string &path, char *const *files) {
    FILE *out = fopen(path.c_str(), "we");
    if (!out) {
        return -1;
    }
    bool good = true;
    for (; *files && good; files++) {
        good = fprintf(out, "%s\n", *files) > 0;
    }
    if (fclose(out) != 0 || !good) {
        unlink(path.c_str());
        return -1;
    }
    return 0;
}

bool write_install_record(own_file out, int64_t installed, char type, const char *head,
                          const std::vector<int64_t> &updates) {
    if (!out) {
        return false;
    }
    const auto write = [&out](const char *key, const std::string &value) {
        return ldif_fwrite(out.get(), key, value.c_str(), 0, 0) > 0;
    };
    bool good = write("evrkInstallTime", std::to_string(installed)) &&
                write("evrkInstallType", std::string(1, type));
    if (head) {
        good = good && write("evrkInstallHead", head);
    }
    for (const int64_t update : updates) {
        good = good && write("evrkUpdateTime", std::to_string(update));
    }
    good = good && !ferror(out.get());
    return fclose(out.release()) == 0 && good;
}

std::vector<int64_t> updates_until_now(const vri *package) {
    std::vector<int64_t> times;
    for (const int64_t *update = package->update_times; update && *update; update++) {
        times.push_back(*update);
    }
    times.push_back(static_cast<int64_t>(time(nullptr)));
    return times;
}

void refresh_linker_cache(const char *who) {
    if (have_so) {
        log_say(LEVEL_DEBUG, "%s: calling ldconfig", who);
        // Nothing depends on the outcome: a root without ldconfig is none of the package's faults.
        if (run_shell("/sbin/ldconfig 2>/dev/null") != 0) {
            log_say(LEVEL_DEBUG, "%s: ldconfig failed", who);
        }
        have_so = 0;
    }
}

// ---- The swap of an update ----

static std::string dir_of(const vrm_handle *handle, const char *role) {
    const char *dir = ekva_getval(handle->dirs, role);
    return dir ? dir : "";
}

inventory_places inventory_places_of(const vrm_handle *handle, const char *package_name) {
    const std::string installed = dir_of(handle, "installed").substr(0, 1000);
    const std::string index = dir_of(handle, "fileindex");
    const std::string name = std::string(package_name).substr(0, 1000);
    return {installed + "/" + name,
            installed + "/." + name + ".new",
            installed + "/." + name + ".old",
            index + "/" + package_name,
            index + "/." + package_name + ".new",
            index + "/." + package_name + ".old"};
}

void drop_new_registration(const inventory_places &places) {
    vrm_vrf_rmdir(places.new_entry.c_str());
    unlink(places.new_index.c_str());
}

void swap_in(const inventory_places &places, bool with_index) {
    vrm_vrf_rmdir(places.old_entry.c_str());
    rename(places.entry.c_str(), places.old_entry.c_str());
    rename(places.new_entry.c_str(), places.entry.c_str());
    remove(places.old_index.c_str());
    rename(places.index.c_str(), places.old_index.c_str());
    if (with_index) {
        rename(places.new_index.c_str(), places.index.c_str());
    }
}

void drop_old_registration(const inventory_places &places) {
    vrm_vrf_rmdir(places.old_entry.c_str());
    remove(places.old_index.c_str());
}
