#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

#include "pvrm/interruption.h"
#include "pvrm/tell.h"
#include "pvrm/words.h"
#include "repository/hooks.h"
#include "repository/repository.h"
#include "support/atomic_file.h"
#include "support/file.h"
#include "support/own.h"

namespace fs = std::filesystem;

namespace {

// What scripts of packages may count on. The shell is ash; everything is busybox under another
// name.
constexpr const char *commands[] = {
    "ash",       "[",        "awk",    "basename", "cat",    "chgrp",    "chmod",  "chown",
    "cmp",       "cp",       "cut",    "date",     "dd",     "df",       "diff",   "dirname",
    "du",        "echo",     "egrep",  "env",      "expr",   "false",    "fgrep",  "find",
    "getopt",    "grep",     "gunzip", "gzip",     "head",   "hostname", "id",     "install",
    "kill",      "ln",       "logger", "ls",       "md5sum", "mkdir",    "mkfifo", "mknod",
    "mktemp",    "mv",       "od",     "paste",    "pidof",  "printf",   "ps",     "pwd",
    "readlink",  "realpath", "rm",     "rmdir",    "sed",    "seq",      "sh",     "sha1sum",
    "sha256sum", "sleep",    "sort",   "stat",     "sync",   "tail",     "tar",    "tee",
    "test",      "touch",    "tr",     "true",     "uname",  "uniq",     "wc",     "which",
    "xargs",     "zcat",
};

class repository_maker {
 public:
    explicit repository_maker(bool dry_run) : dry_run_(dry_run) {}

    bool directory(const std::string &path, mode_t mode);
    bool copy(const std::string &path, const std::string &source);
    bool link(const std::string &path, const char *target);

    bool made_something = false;

 private:
    bool step(const std::string &path, bool done);
    bool dry_run_;
};

}  // namespace

bool repository_maker::step(const std::string &path, bool done) {
    if (!done) {
        tell_problem("%s can't be made: %s", path.c_str(), strerror(errno));
    }
    return done;
}

bool repository_maker::directory(const std::string &path, mode_t mode) {
    struct stat status;
    if (stat(path.c_str(), &status) == 0) {
        if (S_ISDIR(status.st_mode)) {
            return true;
        }
        tell_problem("%s stands where a directory of the repository should be", path.c_str());
        return false;
    }
    made_something = true;
    if (dry_run_) {
        tell_step("would make directory %s", path.c_str());
        return true;
    }
    tell_step("making directory %s", path.c_str());
    return step(path, mkdir(path.c_str(), mode) == 0 && chmod(path.c_str(), mode) == 0);
}

bool repository_maker::copy(const std::string &path, const std::string &source) {
    if (path_exists(path)) {
        return true;
    }
    made_something = true;
    if (dry_run_) {
        tell_step("would copy %s to %s", source.c_str(), path.c_str());
        return true;
    }
    tell_step("copying %s to %s", source.c_str(), path.c_str());
    size_t size = 0;
    const own_string content(_read_file(source.c_str(), &size));
    return step(path,
                content && write_atomically(path, {content.get(), size}, 0755, durability::synced));
}

bool repository_maker::link(const std::string &path, const char *target) {
    if (path_exists(path)) {
        return true;
    }
    made_something = true;
    return dry_run_ || step(path, symlink(target, path.c_str()) == 0);
}

static bool make_scriptdir(repository_maker &maker, const std::string &dir) {
    static constexpr const char *places[] = {"/bin/busybox", "/usr/bin/busybox", "/sbin/busybox"};
    if (!maker.directory(dir, 0755)) {
        return false;
    }
    for (const char *place : places) {
        if (access(place, X_OK) != 0) {
            continue;
        }
        bool good = maker.copy(dir + "/busybox", place);
        for (const char *command : commands) {
            good = good && maker.link(dir + "/" + command, "busybox");
        }
        return good;
    }
    if (path_exists(dir + "/ash")) {
        return true;
    }
    tell_problem(
        "there is no busybox to take the scripts' shell from: install one (a static one is "
        "best), or put a shell named ash and its commands into %s",
        dir.c_str());
    return false;
}

exit_status word_init(const common_options &options) {
    outlive_watchers();
    if (options.quiet) {
        tell_no_steps();
    }
    const std::string root = vrm_default_root;
    repository_maker maker(options.dry_run);
    std::error_code ignored;
    if (!options.dry_run) {
        fs::create_directories(fs::path(root).parent_path(), ignored);
    }
    bool good = maker.directory(root, 0755);
    for (const char *dir : {"installed", "stagearea", "fileindex", "certstore"}) {
        good = good && maker.directory(root + "/" + dir, 0755);
    }
    good = good && make_scriptdir(maker, root + "/scriptdir");
    for (const char *dir : {"/etc/vrm", vrm_hooks_dir, "/var/cache/vrm"}) {
        good = good && maker.directory(dir, 0755);
    }
    if (!good) {
        return EXIT_FAILED;
    }
    if (!maker.made_something) {
        tell_step("the repository %s is complete already", root.c_str());
    } else if (!options.dry_run) {
        tell_step("the repository %s is ready", root.c_str());
    }
    if (!path_exists(vrm_default_conf)) {
        tell_step("there is no %s yet: copy /usr/share/vrm/vrm.conf.sample to it and edit it",
                  vrm_default_conf);
    }
    return EXIT_DONE;
}
