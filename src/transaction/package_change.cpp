#include "transaction/package_change.h"

#include <unistd.h>

#include <cstdlib>
#include <utility>

#include "package/fileops.h"
#include "package/signed_record.h"
#include "package/vrf.h"
#include "repository/hooks.h"
#include "support/event.h"
#include "support/log.h"
#include "transaction/scripts.h"

int unpack_staged(package_change *change) {
    const stage_paths &stage = change->stage;
    if (!make_stage_directory(change->who, change->handle, stage, {stage.fresh, stage.old})) {
        return -1;
    }
    // What an earlier attempt unpacked must not vouch for a payload that brings no description.
    unlink((stage.fresh + "/" + signed_description_path).c_str());
    log_say(LEVEL_DEBUG, "%s: Will unpack %s to %s", change->who, stage.file.c_str(),
            stage.fresh.c_str());
    if (change->verbose) {
        report({.kind = event_kind::unpacking, .package = stage.puname});
    }
    vri *head = nullptr;
    const int rc = vrm_vrf_extract_with_head(change->handle, stage.file.c_str(),
                                             stage.fresh.c_str(), 1, &head);
    change->file_head.reset(head);
    if (rc != 0) {
        report({.kind = event_kind::unpacking_failed,
                .who = change->who,
                .path = stage.file,
                .other = stage.fresh});
    }
    return rc;
}

int verify_unpacked(package_change *change) {
    if (change->verbose) {
        report({.kind = event_kind::verifying, .package = change->stage.puname});
    }
    return verify_forks(change->stage.fresh, &change->forks);
}

// The record of the signed description. It bears the signature that the payload was verified with,
// whatever the description says of one.
static own_vri signed_record_of(const package_change &change, std::string *why) {
    static constexpr char ours[] = "its signed description";
    own_vri record = read_signed_record(change.stage.fresh, why);
    if (!record) {
        return nullptr;
    }
    vri *head = change.file_head.get();
    // Unlisted it would have failed the verification: it came between that and now.
    *why = !fork_has(change.forks.info, signed_description_file)
               ? "its signed description is not in its list of info files"
               : difference_in_words("its head", head, ours, record.get());
    if (why->empty()) {
        *why = plan_difference(change.transaction, change.package, record.get());
    }
    if (!why->empty()) {
        return nullptr;
    }
    std::swap(record->rsa_sig_subj, head->rsa_sig_subj);
    std::swap(record->rsa_sig_data, head->rsa_sig_data);
    std::swap(record->rsa_sig_len, head->rsa_sig_len);
    record->sig_status = head->sig_status;
    return record;
}

int believe_signed_record(package_change *change) {
    std::string why;
    change->signed_record = signed_record_of(*change, &why);
    if (!change->signed_record) {
        report({.kind = event_kind::package_not_believed,
                .who = change->who,
                .package = change->stage.puname,
                .path = file_name_of(change->package),
                .other = why});
        return -1;
    }
    change->package = change->signed_record.get();
    return 0;
}

static int run_script(const package_change &change, const vri *old_package,
                      const add_script &script) {
    if (!fork_has(change.forks.init, (std::string("/") + script.file).c_str())) {
        return 0;
    }
    log_say(LEVEL_DEBUG, "%s: Found %s-install script, will execute", change.who, script.moment);
    const own_string command(vrm_add_script_command(change.handle, script.file,
                                                    old_package ? "UPDATE" : "INSTALL",
                                                    change.stage.fresh.c_str()));
    if (!command) {
        return -1;
    }
    char **environment = vrm_scriptenv_add(old_package, change.package);
    if (!environment) {
        return -1;
    }
    if (change.verbose) {
        report({.kind = script.running, .package = change.stage.puname});
    }
    const int rc = vrm_system(script.file, command.get());
    vrm_scriptenv_del(environment);
    return rc;
}

int run_add_script(const package_change &change, const vri *old_package, const add_script &script,
                   event_kind failed) {
    const int rc = run_script(change, old_package, script);
    if (rc != 0) {
        report(
            {.kind = failed, .package = change.stage.puname, .other = script.file, .status = rc});
    }
    return rc;
}

std::string unpacked_path(const package_change &change, const char *fork, const char *path) {
    return change.stage.fresh + "/" + fork + path;
}

bool place_file(const package_change &change, const char *fork, const char *path) {
    static constexpr char live_root[] = "";  // stands ahead of every target
    const std::string target = std::string(live_root) + path;
    const std::string source = unpacked_path(change, fork, path);
    const bool tell = log_wants(LEVEL_DEBUG);
    if (tell) {
        log_say(LEVEL_DEBUG, "%s: copying %s to %s with backup of %s", change.who, source.c_str(),
                target.c_str(), target.c_str());
    }
    const int32_t bytes = vrm_vrf_copy(target.c_str(), source.c_str(), change.stage.old.c_str(), 1);
    if (bytes >= 0 && tell) {
        log_say(LEVEL_DEBUG, "%s: Copied %d bytes from %s to %s", change.who, bytes, source.c_str(),
                target.c_str());
    }
    return bytes >= 0;
}

void remove_half_written(const char *path) {
    const own_string written(realpath(path, nullptr));
    if (written) {
        unlink(written.get());
    }
}

// Leaves a script or a command for the end of the transaction.
static void leave_for_the_end(const package_change &change, const char *what) {
    if (ekva_addval(&change.transaction->scripts, change.package->name, what, 0) < 1) {
        report({.kind = event_kind::configuration_lost,
                .who = change.who,
                .package = change.package->name,
                .other = what});
    }
}

void note_configuration(const package_change &change, int context, char *const *files) {
    if (fork_has(change.forks.init, "/99-cfg.sh")) {
        leave_for_the_end(change, "99-cfg.sh");
        log_say(LEVEL_DEBUG, "%s: Found 99-cfg, registered", change.who);
    }
    own_array commands(vrm_hooks_parse(change.handle, change.package, context, "99-cfg", files,
                                       change.forks.conf.get(), change.forks.dump.get()));
    for (char **command = commands.get(); command && *command; command++) {
        log_say(LEVEL_DEBUG, "%s: Adding hook command: <%s>", change.who, *command);
        leave_for_the_end(change, *command);
    }
}
