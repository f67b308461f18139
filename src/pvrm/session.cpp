#include "pvrm/session.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include "package/vri.h"
#include "pvrm/interruption.h"
#include "pvrm/left_script.h"
#include "pvrm/lock_wait.h"
#include "pvrm/tell.h"
#include "repository/vrc.h"
#include "support/log.h"
#include "support/vconf.h"
#include "transaction/recover.h"
#include "transaction/recover_change.h"
#include "transaction/space.h"
#include "transaction/stage_area.h"
#include "ui/vrmui.h"

static constexpr char log_path[] = "/var/log/pvrm.log";

// The log file's path, or null when there is none. Only root keeps a file: another user's runs only
// read, and the directory is not theirs.
static const char *usable_log() {
    if (geteuid() != 0) {
        return nullptr;
    }
    if (!own_file(fopen(log_path, "ae"))) {
        tell_warning("there is no log of this, as %s can't be written: %s", log_path,
                     strerror(errno));
        return nullptr;
    }
    return log_path;
}

session::session(const common_options &given) : options(given) {
    const bool root = geteuid() == 0;
    const uint32_t usual = LEVEL_ERROR | LEVEL_WARNING | LEVEL_INFO;
    vrm_ignore_space = options.ignore_space;
    llog = log_init(usable_log(), options.verbose ? usual | LEVEL_DEBUG : usual,
                    LEVEL_ERROR | LEVEL_WARNING, LEVEL_ERROR, root ? "pvrm" : nullptr);
    // A mask of 0 can't be given at the start, where it means the default. What the user should
    // know of the log is told in sentences, not line by line.
    llog->stderr_levels = 0;
    if (!root) {
        llog->syslog_levels = 0;
    }
    if (options.quiet) {
        tell_no_steps();
    }
    report_engine();

    vrmui = vrmui_init("pvrm", 7);
    if (!vrmui) {
        throw std::bad_alloc();
    }
    const bool on_terminal = isatty(STDIN_FILENO) && isatty(STDOUT_FILENO);
    vote_mode = on_terminal && !options.yes ? 1 : 3;
}

session::~session() {
    receive_events(nullptr, nullptr);
    report_engine_of(nullptr);
    // The connection stays in `vrc`: the backend has no word for its end, and the process ends.
    vrm_cache_free(vrc_cache);
    vrc_cache = nullptr;
    vrmui_free(vrmui);
    vrmui = nullptr;
    free(llog);
    llog = nullptr;
}

bool session::open_repository() {
    handle_.reset(vrm_open(nullptr, nullptr));
    report_engine_of(handle_.get());
    if (!handle_) {
        tell_problem(
            "the configuration %s can't be used; /usr/share/vrm/vrm.conf.sample shows a "
            "good one",
            vrm_default_conf);
        return false;
    }
    installed_.emplace(handle_.get());
    return true;
}

bool session::are_there(std::initializer_list<const char *> roles) {
    for (const char *role : roles) {
        const char *dir = ekva_getval(handle_->dirs, role);
        if (access(dir, F_OK) != 0) {
            tell_problem(
                "there is no directory %s, or it can't be reached; make what is missing with: pvrm "
                "init",
                dir);
            return false;
        }
    }
    return true;
}

bool session::has_directories(std::initializer_list<const char *> roles) {
    for (const char *role : roles) {
        if (!are_there({role})) {
            return false;
        }
        // Without this, all that is in there would pass for not installed.
        const char *dir = ekva_getval(handle_->dirs, role);
        if (access(dir, R_OK | X_OK) != 0) {
            tell_problem("the directory %s can't be read: %s", dir, strerror(errno));
            return false;
        }
    }
    return true;
}

bool session::can_write(std::initializer_list<const char *> roles) {
    for (const char *role : roles) {
        const char *dir = ekva_getval(handle_->dirs, role);
        if (access(dir, W_OK) != 0) {
            tell_problem("the directory %s can't be written to: %s", dir, strerror(errno));
            return false;
        }
    }
    return true;
}

exit_status session::lock() {
    if (!has_directories({"installed", "stagearea", "fileindex"})) {
        return EXIT_FAILED;
    }
    const wait_end until(options.wait);
    // More than once, as the other process may end between the attempt and the question who it is.
    for (int unexplained = 0; unexplained < 2;) {
        if (const exit_status refused = await_other_change(handle_.get(), until)) {
            return refused;
        }
        if (vrm_lock(handle_.get()) == 0) {
            return await_left_script(handle_.get());
        }
        unexplained += vrm_lock_holder(handle_.get()) > 0 ? 0 : 1;
    }
    tell_problem("the repository %s can't be locked", handle_->dir);
    return EXIT_FAILED;
}

bool warn_of_cut_off_change(vrm_handle *repository) {
    char *what = nullptr;
    if (vrm_cut_off_change(repository, &what) <= 0) {
        return false;
    }
    const own_string change(what);
    tell_warning("the %s was cut off; the next change, or pvrm recover, repairs that",
                 change.get());
    return true;
}

// What a dry run shows is planned without these packages.
void session::warn_of_cut_off() {
    found_cut_off_ = geteuid() == 0 ? vrm_show_recovery(handle_.get()) != 0
                                    : warn_of_cut_off_change(handle_.get());
    const own_array names(vrm_broken_swaps(handle_.get()));
    for (char *const *name = names.get(); name && *name; name++) {
        tell_warning(
            "an upgrade of %s was cut off; the next change registers it in its old "
            "version "
            "again, upgrade it once more then",
            *name);
        found_cut_off_ = true;
    }
}

exit_status session::begin_change() {
    if (!options.dry_run) {
        hold_signals();
    }
    if (!open_repository()) {
        return EXIT_FAILED;
    }
    // A dry run refuses what a real one would, as far as its user can see that, but not for want of
    // a right that only a real one needs.
    if (!has_directories({"installed"}) || !are_there({"stagearea", "fileindex"})) {
        return EXIT_FAILED;
    }
    // A stage area that others may write to is root's to judge: only root may own it.
    if (options.dry_run && geteuid() == 0 && vrm_check_stage(handle_.get()) != 0) {
        return EXIT_FAILED;
    }
    if (options.dry_run) {
        warn_of_running_script(handle_.get());
        warn_of_cut_off();
        return EXIT_DONE;
    }
    // Found out now, and not when a package has been fetched and its files are in place.
    if (!can_write({"installed", "stagearea", "fileindex"}) ||
        vrm_check_stage(handle_.get()) != 0) {
        return EXIT_FAILED;
    }
    if (const exit_status refused = lock()) {
        return refused;
    }
    // Each is told by its warning.
    if (vrm_recover_change(handle_.get()) < 0) {
        tell_problem(
            "nothing was changed; correct that and try again, or give up what was saved with: pvrm "
            "recover --abandon");
        return EXIT_FAILED;
    }
    vrm_undo_broken_swaps(handle_.get());
    return EXIT_DONE;
}

bool session::connect() {
    if (vrc) {
        return true;
    }
    config_.reset(vconf_read(nullptr, vrm_default_conf));
    if (!vrm_vrc_load_configured(config_.get())) {
        tell_problem(
            "the catalogue backend %s can't be loaded: correct vrc_backend in %s, or install the "
            "backend in %s",
            vrc_filename ? vrc_filename : "of the configuration", vrm_default_conf,
            vrm_backend_dir);
        expect_no_catalogue();
        return false;
    }
    vrc = pvrm_vrc_connect(config_.get(), llog);
    if (!vrc) {
        tell_failure("the catalogue backend %s gives no connection; its settings are in %s",
                     vrc_filename, vrm_default_conf);
        expect_no_catalogue();
        return false;
    }
    vrm_vrc_watch(vrc);
    return true;
}

bool session::refresh() {
    return vrc && pvrm_vrc_refresh(vrc) == 0;
}

bool session::learned_catalogue() {
    if (!vrc || tried_to_learn_) {
        return false;
    }
    const bool is_empty = vrm_vrc_is_empty(vrc);
    // A backend that counts is asked each time, which costs nothing: a search may find on its way
    // that all it knew is damaged.
    tried_to_learn_ = is_empty || !vrm_vrc_has_index();
    if (!is_empty) {
        return false;
    }
    if (!refresh()) {
        tell_warning("the package catalogue can't be refreshed");
        return false;
    }
    return true;
}

void session::prepare_many_lookups() {
    if (!vrc || vrc_cache) {
        return;
    }
    if (vrm_vrc_has_index()) {
        learned_catalogue();
        return;
    }
    vrc_cache = vrm_vrc_cache_fill(vrc);
    if ((!vrc_cache || !*vrc_cache) && learned_catalogue()) {
        vrm_cache_free(vrc_cache);
        vrc_cache = vrm_vrc_cache_fill(vrc);
    }
}

void *session::catalogue() const {
    return vrc;
}
