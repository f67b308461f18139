#include "transaction/scripts.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "repository/hooks.h"
#include "repository/running_script.h"
#include "support/arch.h"
#include "support/boundary.h"
#include "support/cmd.h"
#include "support/event.h"
#include "support/file.h"
#include "support/log.h"
#include "support/own.h"
#include "support/shell.h"
#include "transaction/change.h"
#include "transaction/journal.h"

// ---- Environment ----

namespace {

// The strings of the environment, in the order in which they are set. They leave it again with this
// object unless they were handed out.
class environment {
 public:
    environment() : list_(static_cast<char **>(calloc(capacity, sizeof(char *)))) {
        if (!list_) {
            throw std::bad_alloc();
        }
    }
    ~environment() {
        vrm_scriptenv_del(list_);
    }
    environment(const environment &) = delete;
    environment &operator=(const environment &) = delete;

    void set(const std::string &name, const char *value) {
        const char *const text = value ? value : "(null)";
        const std::string line = name + "=" + std::string(text, strnlen(text, value_limit));
        if (name == "VRK_NAME") {
            log_say(LEVEL_DEBUG, "vrm_scriptenv_add: putting %s to environment", line.c_str());
        } else {
            log_say(LEVEL_DEBUG, "vrm_scriptenv_add: set %s in env", line.c_str());
        }
        own_string entry(strdup(line.c_str()));
        if (!entry || count_ + 1 >= capacity || putenv(entry.get()) != 0) {
            throw std::bad_alloc();
        }
        list_[count_++] = entry.release();
    }

    char **release() {
        return std::exchange(list_, nullptr);
    }

 private:
    static constexpr size_t capacity = 30;
    static constexpr size_t value_limit = 1950;

    char **list_;
    size_t count_ = 0;
};

// A variable as one side of a change has it.
struct side {
    bool present;
    const char *value;
};

}  // namespace

// Sets the variable with the endings _OLD, none and _NEW.
static void set_family(environment *env, const std::string &name, const side &before,
                       const side &after, bool have_new) {
    const side &plain = have_new ? after : before;
    if (before.present) {
        env->set(name + "_OLD", before.value);
    }
    if (plain.present) {
        env->set(name, plain.value);
    }
    if (after.present) {
        env->set(name + "_NEW", after.value);
    }
}

char **vrm_scriptenv_add(const vri *old_package, const vri *new_package) {
    return guarded(nullptr, [&]() -> char ** {
        if (!old_package && !new_package) {
            return nullptr;
        }
        environment env;
        const auto family = [&](const char *name, const auto &side_of) {
            set_family(&env, name, side_of(old_package), side_of(new_package),
                       new_package != nullptr);
        };
        const auto optional = [&](const char *name, char *vri::*field) {
            family(name, [field](const vri *package) {
                const char *const value = package ? package->*field : nullptr;
                return side{value != nullptr, value};
            });
        };
        env.set("VRK_NAME", (old_package ? old_package : new_package)->name);
        optional("VRK_VARIANT", &vri::variant);
        family("VRK_VERSION", [](const vri *package) {
            return side{package != nullptr, package ? package->version : nullptr};
        });
        family("VRK_ARCHITECTURE", [](const vri *package) {
            return side{package != nullptr, package ? vrm_arch_getname(package->arch) : nullptr};
        });
        optional("VRK_CREATOR", &vri::creator);
        optional("VRK_DESCRIPTION", &vri::description);
        // Scripts in the field rely on these being there, and only there, where a description is.
        const auto joined = [](const vri *package) {
            return own_string(package ? arr2str(package->deps, ' ') : nullptr);
        };
        const own_string before = joined(old_package), after = joined(new_package);
        set_family(&env, "VRK_DEPENDENCIES",
                   {old_package && old_package->description, before.get()},
                   {new_package && new_package->description, after.get()}, new_package != nullptr);
        return env.release();
    });
}

void vrm_scriptenv_del(char **list) {
    static constexpr size_t name_limit = 32;
    for (int i = 0; list && list[i]; i++) {
        const void *const equals = memchr(list[i], '=', strnlen(list[i], name_limit + 1));
        if (!equals) {
            report({.kind = event_kind::variable_name_long, .number = static_cast<int64_t>(i)});
        }
        char name[name_limit + 1];
        snprintf(name, sizeof name, "%.*s",
                 equals ? static_cast<int>(static_cast<const char *>(equals) - list[i])
                        : static_cast<int>(name_limit),
                 list[i]);
        log_say(LEVEL_DEBUG, "vrm_scriptenv_del: removing %s from env", name);
        // The environment holds the very string, so it must go before the string does.
        unsetenv(name);
        free(list[i]);
    }
    free(list);
}

// ---- Command lines ----

// The frame of each line: ash of the scripts' directory, in it and with nothing else on its path.
static std::string script_line(const vrm_handle *handle, const std::string &variables,
                               const std::string &script) {
    const std::string dir = dir_of(handle, "scriptdir");
    return "cd " + dir + " && PATH=" + dir + " " + variables + dir + "/ash " + script;
}

std::string add_script_line(const vrm_handle *handle, const std::string &script,
                            const std::string &mode, const std::string &stage) {
    std::string variables = "VRM_MODE=" + mode + " ";
    if (mode == "UPDATE" && script == "99-add.sh") {
        variables += "VRM_VRKDIR=" + stage + " ";
    }
    variables += "VRK_STAGE_NEW=" + stage + " ";
    return script_line(handle, variables, stage + "/init/" + script);
}

std::string del_script_line(const vrm_handle *handle, const std::string &script,
                            const std::string &name, const std::string &old_stage) {
    const std::string dir = dir_of(handle, "installed") + "/" + name;
    std::string variables;
    if (script == "99-del.sh") {
        variables = "VRK_STAGE_OLD=" + old_stage + " VRM_VRKDIR=" + dir + " ";
    }
    return script_line(handle, variables, dir + "/init/" + script);
}

// The line of a configuration script. It is bounded by what the paths need and room for a name:
// a text that is not the name of a script, such as a hook command without its slash, is cut.
static std::string cfg_script_line(const vrm_handle *handle, const std::string &package_dir,
                                   const char *script) {
    const size_t bound = 3 * dir_of(handle, "scriptdir").size() + 2 * package_dir.size() + 100;
    return script_line(handle, "VRM_VRKDIR=" + package_dir + " ", package_dir + "/init/" + script)
        .substr(0, bound - 1);
}

// ---- Running ----

// Terminates what a command wrote, and logs it.
static void log_output(char *text, size_t length) {
    if (text && length > 0) {
        text[length] = '\0';
        log_write(llog, LEVEL_INFO, text);
    }
}

static void show(const char *text, size_t length, FILE *stream) {
    if (text) {
        fwrite(text, 1, length, stream);
    }
    fflush(stream);
}

int vrm_script_status = 0;

int vrm_system(const char *label, const char *command) {
    char *out, *err;
    size_t out_length, err_length;
    const script_note note(getenv("VRK_NAME"), label ? label : "vrm_system");
    const int status = vrm_script_status = cmd_exec(command, &out, &out_length, &err, &err_length);
    const own_string own_out(out), own_err(err);
    if (llog && llog->ready && llog->file_enabled) {
        log_output(out, out_length);
        log_output(err, err_length);
    }
    show(out, out_length, stdout);
    show(err, err_length, stderr);
    return status;
}

// ---- The scripts of a change ----

// Whether the package has the script.
static bool has_script(const change &change, const change_script &script) {
    const char *who = change.by->who;
    if (change.new_package) {
        const bool found = fork_has(change.forks.init, (std::string("/") + script.file).c_str());
        if (found) {
            log_say(LEVEL_DEBUG, "%s: Found %s-install script, will execute", who, script.moment);
        }
        return found;
    }
    const std::string path = change.places.entry + "/init/" + script.file;
    log_say(LEVEL_DEBUG, "%s: looking for %s-delete script %s\n", who, script.moment, path.c_str());
    const bool missing = is_missing(path.c_str());
    if (missing) {
        log_say(LEVEL_DEBUG, "%s: no %s-delete script found", who, script.moment);
    }
    return !missing;
}

static int run_found_script(const change &change, const change_script &script) {
    const std::string line =
        change.new_package
            ? add_script_line(change.handle, script.file, change.by->added.mode, change.stage.fresh)
            : del_script_line(change.handle, script.file, change.old_package->name,
                              change.stage.old);
    char **environment = vrm_scriptenv_add(change.old_package, change.new_package);
    if (!environment) {
        return -1;
    }
    if (change.verbose) {
        report({.kind = script.running, .package = change.stage.puname});
    }
    note_script(change, script.file);
    const int status = vrm_system(script.file, line.c_str());
    vrm_scriptenv_del(environment);
    return status;
}

int run_script(const change &change, const change_script &script) {
    const int status = has_script(change, script) ? run_found_script(change, script) : 0;
    if (status != 0) {
        report({.kind = script.failed,
                .package = change.stage.puname,
                .other = script.file,
                .status = status});
    }
    return status;
}

// Leaves a script or a command for the end of the transaction.
static void leave_for_the_end(const change &change, const char *what) {
    if (ekva_addval(&change.transaction->scripts, change.new_package->name, what, 0) < 1) {
        report({.kind = event_kind::configuration_lost,
                .who = change.by->who,
                .package = change.new_package->name,
                .other = what});
    }
}

int find_due(change *change) {
    const package_forks &forks = change->forks;
    std::vector<std::string> due;
    if (fork_has(forks.init, "/99-cfg.sh")) {
        due.emplace_back("99-cfg.sh");
    }
    const own_array commands(
        vrm_hooks_parse(change->handle, change->new_package, change->by->added.hook_context,
                        "99-cfg", change->written.get(), forks.conf.get(), forks.dump.get()));
    for (char *const *command = commands.get(); command && *command; command++) {
        due.emplace_back(*command);
    }
    change->due = to_c_array(due);
    if (!change->due) {
        throw std::bad_alloc();
    }
    return 0;
}

void note_configuration(const change &change) {
    const char *who = change.by->who;
    for (char **what = change.due.get(); what && *what; what++) {
        if (strcmp(*what, "99-cfg.sh") == 0) {
            leave_for_the_end(change, *what);
            log_say(LEVEL_DEBUG, "%s: Found 99-cfg, registered", who);
            continue;
        }
        log_say(LEVEL_DEBUG, "%s: Adding hook command: <%s>", who, *what);
        leave_for_the_end(change, *what);
    }
}

// ---- The end of a transaction ----

// Runs a command of a package whose output goes straight to ours. `name` is what its note says.
static int run_visibly(const char *package, const char *name, const char *line) {
    fflush(stdout);
    const script_note note(package, name);
    return run_shell(line).value_or(-1);
}

// `failed` is the kind of event that reports a failure.
static void report_end(const char *package, const char *command, int status, event_kind failed) {
    report({.kind = status == 0 ? event_kind::configured : failed,
            .package = package,
            .other = command,
            .status = status});
}

// The package as its description in the inventory has it, or null with a warning.
static vri *described(const std::string &installed, const char *package) {
    const std::string path = installed + "/" + package + "/desc.txt";
    size_t length;
    const own_string text(_read_file(path.c_str(), &length));
    if (!text) {
        report({.kind = event_kind::script_description_not_read, .package = package});
        return nullptr;
    }
    text.get()[length] = '\0';
    vri *const info = vrk_info_parse(package, 3, text.get(), nullptr);
    if (!info) {
        report({.kind = event_kind::script_description_unparsable, .package = package});
    }
    return info;
}

static void configure(const vrm_handle *handle, const char *package, const char *script) {
    guarded([] { report({.kind = event_kind::memory_exhausted, .who = "vrm_scripts_exe"}); },
            [&] {
                log_say(LEVEL_DEBUG, "vrm_scripts_exe: Found script %s for vrk %s to execute",
                        script, package);
                const std::string installed = dir_of(handle, "installed");
                const std::string package_dir =
                    installed.substr(0, 900) + "/" + std::string(package, strnlen(package, 900));
                const std::string line = cfg_script_line(handle, package_dir, script);
                const own_vri info(described(installed, package));
                char **const variables = vrm_scriptenv_add(nullptr, info.get());
                if (info && !variables) {
                    throw std::bad_alloc();
                }
                log_say(LEVEL_DEBUG, "vrm_scripts_exe: cmdline: %s", line.c_str());
                const int status = run_visibly(package, script, line.c_str());
                note_done(package, script);
                report_end(package, script, status, event_kind::configuration_failed);
                vrm_scriptenv_del(variables);
            });
}

static void keep_hook_command(vrt *transaction, const char *package, const char *command) {
    log_say(LEVEL_DEBUG, "vrm_scripts_exe: Found hook command %s for vrk %s to execute", command,
            package);
    if (!transaction->hookcmds) {
        transaction->hookcmds = ekva_new(transaction->num_deps + 1, 1);
    }
    if (ekva_addval(&transaction->hookcmds, package, command, 0) < 1) {
        report({.kind = event_kind::hook_lost, .package = package, .other = command});
        return;
    }
    log_say(LEVEL_DEBUG, "vrm_scripts_exe: Added hook command to vrm_hookcmds");
}

int vrm_scripts_exe(vrm_handle *handle, vrt **transaction) {
    s_ekva *const *const scripts = (*transaction)->scripts;
    if (!scripts) {
        log_say(LEVEL_DEBUG, "vrm_scripts_exe: no scripts to configure");
        return 0;
    }
    log_say(LEVEL_DEBUG, "vrm_scripts_exe: found %d scripts to configure", ekva_nument(scripts));
    // The first slot is the record's header.
    for (s_ekva *const *pair = scripts + 1; *pair; pair++) {
        const char *const value = (*pair)->val;
        if (value && *value == '/') {
            keep_hook_command(*transaction, (*pair)->key, value);
        } else if (value) {
            configure(handle, (*pair)->key, value);
        }
    }
    return 0;
}

int vrm_exe_hooks(s_ekva *const *commands) {
    if (!commands) {
        log_say(LEVEL_DEBUG, "vrm_exe_hooks: no hooks to execute");
        return 0;
    }
    log_say(LEVEL_DEBUG, "vrm_exe_hooks: found %d hooks to execute", ekva_nument(commands));
    for (s_ekva *const *pair = commands + 1; *pair; pair++) {
        const char *const package = (*pair)->key;
        const char *const command = (*pair)->val;
        if (!command) {
            continue;
        }
        log_say(LEVEL_DEBUG, "vrm_exe_hooks: Found hook command %s for vrk %s to execute", command,
                package);
        log_say(LEVEL_DEBUG, "vrm_exe_hooks: cmdline: %s", command);
        const int status = run_visibly(package, command, command);
        note_done(package, command);
        report_end(package, command, status, event_kind::hook_failed);
    }
    return 0;
}

int vrm_hookcmds_del(vrm_handle *, vrt **transaction) {
    s_ekva **&commands = (*transaction)->hookcmds;
    log_say(LEVEL_DEBUG, "vrm_hookcmds_del: found %d scripts to delete", ekva_nument(commands));
    ekva_free(commands);
    commands = nullptr;
    drop_due();
    return 0;
}
