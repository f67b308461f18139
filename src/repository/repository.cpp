#include "repository/repository.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "repository/hooks.h"
#include "repository/running_script.h"
#include "support/arch.h"
#include "support/array.h"
#include "support/boundary.h"
#include "support/vconf.h"

static constexpr const char *directory_roles[] = {"installed", "stagearea", "fileindex",
                                                  "certstore", "scriptdir"};

// Each fills a field of the handle and is false when memory fails.

static bool copy_optional(const char *text, char **copy) {
    *copy = text ? strdup(text) : nullptr;
    return *copy || !text;
}

// All of the directories or no handle: the paths below one that is missing would begin at "/".
static bool list_directories(const std::string &root, s_ekva ***dirs) {
    *dirs = ekva_new(6, 2);
    for (const char *role : directory_roles) {
        if (ekva_addval(dirs, role, (root + "/" + role).c_str(), 2) < 1) {
            return false;
        }
    }
    return true;
}

vrm_handle *vrm_open(const char *root, const char *conf) {
    return guarded(nullptr, [&]() -> vrm_handle * {
        const char *conf_path = conf ? conf : vrm_default_conf;
        const own_ekva config(vconf_read(nullptr, conf_path));
        if (!config) {
            fprintf(stderr, "Failed to read vrm config %s\n", conf_path);
            return nullptr;
        }
        own_handle handle(static_cast<vrm_handle *>(calloc(1, sizeof(vrm_handle))));
        if (!handle) {
            return nullptr;
        }
        handle->dir = strdup(root ? root : vrm_default_root);
        handle->conf = strdup(conf_path);
        if (!handle->dir || !handle->conf) {
            return nullptr;
        }

        const char *arch_name = ekva_getval(config.get(), "arch_name");
        if (!arch_name) {
            fprintf(stderr, "Failed to get arch_name from config\n");
            return nullptr;
        }
        handle->arch = vrm_arch_getid(arch_name);
        if (handle->arch == arch_unknown) {
            fprintf(stderr, "Invalid architecture specified: %s\n", arch_name);
            return nullptr;
        }
        if (!copy_optional(ekva_getval(config.get(), "dist_name"), &handle->dist_name) ||
            !copy_optional(ekva_getval(config.get(), "dist_vers"), &handle->dist_vers) ||
            !list_directories(handle->dir, &handle->dirs)) {
            return nullptr;
        }
        handle->hooks = vrm_hooks_read(vrm_hooks_dir);
        return handle.release();
    });
}

// The root is cut here, and only here, so that the path always fits the systems' smallest limit.
struct lock_path {
    char text[256];

    explicit lock_path(const vrm_handle *handle) {
        snprintf(text, sizeof text, "%.245s/lock", handle->dir);
    }
};

int vrm_close(vrm_handle *handle) {
    if (!handle) {
        return 0;
    }
    if (handle->locked == 1) {
        note_scripts_of(nullptr);
        remove(lock_path(handle).text);
    }
    free(handle->conf);
    free(handle->dir);
    free(handle->dist_name);
    free(handle->dist_vers);
    ekva_free(handle->dirs);
    ekva_list_free(handle->hooks);
    free(handle);
    return 0;
}

// Whether this process took a lock on any repository. Record locks go with the first close of any
// descriptor of the file, so from then on a lock file that was opened only to look stays open.
static bool lock_taken = false;

static bool is_file_at(int fd, const char *path) {
    struct stat opened, named;
    return fstat(fd, &opened) == 0 && stat(path, &named) == 0 && opened.st_dev == named.st_dev &&
           opened.st_ino == named.st_ino;
}

// Opens and locks the file. The previous holder may unlink it between the two; the lock would then
// be on a file that nobody else can find, so the work starts over with the file that has the name.
static own_fd open_and_lock(const char *path) {
    for (;;) {
        // A link that was put at this place must not make us write somewhere else.
        own_fd file(open(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0640));
        if (!file.valid()) {
            fprintf(stderr, "Could not open lock file %s\n", path);
            return file;
        }
        if (lockf(file.get(), F_TLOCK, 0) != 0) {
            fprintf(stderr, "Could not lock lock file %s\n", path);
            return own_fd();
        }
        if (is_file_at(file.get(), path)) {
            return file;
        }
    }
}

int vrm_lock(vrm_handle *handle) {
    return guarded(-1, [&] {
        const lock_path path(handle);
        own_fd file = open_and_lock(path.text);
        if (!file.valid()) {
            return -1;
        }
        // A lock that this process holds already ends with any descriptor of the file that is
        // closed.
        const int fd = lock_taken ? file.release() : file.get();
        const std::string pid = std::to_string(getpid()) + "\n";
        errno = 0;
        if (pwrite(fd, pid.data(), pid.size(), 0) != static_cast<ssize_t>(pid.size())) {
            fprintf(stderr, "Could not write lock file %s: %s\n", path.text,
                    strerror(errno ? errno : ENOSPC));
            return -1;
        }
        const auto give_up = [&] {
            // Nothing of a lock that is not reported as taken may be left.
            if (handle->locked != 1) {
                unlink(path.text);
            }
            return -1;
        };
        return guarded(give_up, [&] {
            note_scripts_of(handle);
            file.release();
            lock_taken = true;
            handle->locked = 1;
            return 0;
        });
    });
}

int vrm_unlock(vrm_handle *handle) {
    if (handle->locked != 1) {
        return 0;
    }
    if (unlink(lock_path(handle).text) != 0) {
        return -1;
    }
    note_scripts_of(nullptr);
    handle->locked = 0;
    return 0;
}

pid_t vrm_lock_holder(vrm_handle *handle) {
    // One's own locks are no answer of F_GETLK.
    if (handle->locked == 1) {
        return getpid();
    }
    const int fd = open(lock_path(handle).text, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0) {
        return 0;
    }
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    const bool held = fcntl(fd, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
    if (!lock_taken) {
        close(fd);
    }
    return held ? lock.l_pid : 0;
}

static const passwd *calling_user() {
    const char *sudo_uid = getenv("SUDO_UID");
    if (!sudo_uid) {
        return getpwuid(getuid());
    }
    // A text that is no number names nobody. It must not end as the user 0.
    int uid;
    return sscanf(sudo_uid, "%d", &uid) == 1 ? getpwuid(static_cast<uid_t>(uid)) : nullptr;
}

s_ekva **vrm_read_rc() {
    return guarded(nullptr, [&]() -> s_ekva ** {
        const passwd *user = calling_user();
        if (!user || !user->pw_dir) {
            return nullptr;
        }
        return vconf_read(nullptr, (std::string(user->pw_dir) + "/.vrmrc").c_str());
    });
}

int vrm_merge_opts(s_ekva ***opts, s_ekva *const *source, const char *keys) {
    const own_array names(str2arr(keys ? keys : "", ','));
    int found = 0;
    for (char *const *name = names.get(); name && *name; name++) {
        const char *value = ekva_getval(source, *name);
        if (!value) {
            continue;
        }
        if (!*opts) {
            *opts = ekva_new(20, 1);
        }
        ekva_addval(opts, *name, value, 1);
        found++;
    }
    return found;
}
