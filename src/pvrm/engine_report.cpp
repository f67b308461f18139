#include "pvrm/engine_report.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <set>
#include <utility>

#include "pvrm/interruption.h"
#include "pvrm/tell.h"
#include "support/file.h"
#include "support/log.h"

namespace {

bool is_there(std::string_view path) {
    return !is_missing(std::string(path).c_str());
}

constexpr auto nothing = engine_report::nothing;
constexpr auto step = engine_report::step;
constexpr auto reason = engine_report::reason;
constexpr auto cause = engine_report::cause;
constexpr auto outcome = engine_report::outcome;
constexpr auto failure = engine_report::failure;

// A log line, with * for any text, and the sentence that it becomes, in which $1 is what stands for
// the first *, and so on. The first row that fits counts. A line that is in no row is told as it
// stands when it is an ERROR or a WARNING, and not at all otherwise.
//
// No regular expressions: the lines are simple, a table of expressions takes its time to compile,
// and the standard ones go as deep into the stack as the line is long.
struct row {
    uint32_t level;
    engine_report::kind what;
    std::string_view pattern;
    std::string_view sentence;
    // What must hold of $1, where the line alone does not tell.
    bool (*condition)(std::string_view first) = nullptr;
};

constexpr row rows[] = {
    // Planning.
    {LEVEL_INFO, reason, "* is not a valid package file, skipping",
     "$1 is not a valid package file"},
    {LEVEL_INFO, reason, "* was not found in the package catalogue",
     "$1 was not found in the package catalogue"},
    {LEVEL_INFO, reason, "vrm_chk_install: Failed to resovle dependency * for *",
     "$2 needs $1, which is neither installed nor to be had from anywhere"},
    {LEVEL_INFO, reason, "vrm_chk_walk: Failed to resovle dependency * for *",
     "$2 needs $1, which is neither installed nor to be had from anywhere"},
    {LEVEL_INFO, cause, "Package arch * doesn't match local arch *, bye",
     "what it needs is built for $1, and this machine is $2"},
    {LEVEL_INFO, reason, "Failure opening <*> for reading: *",
     "the directory $1 can't be searched: $2"},
    {LEVEL_WARNING, reason, "Failure opening <*> for reading: *",
     "the inventory $1 can't be read: $2"},
    {LEVEL_WARNING, reason, "Failure reading <*>: *", "the directory $1 can't be read: $2"},
    {LEVEL_WARNING, reason, "Failure parsing info for <*>, skipping entry",
     "the inventory's entry of $1 is damaged, and passed over"},
    {LEVEL_WARNING, reason, "More than * package files of *, passing over *",
     "there are more than $1 package files of $2; $3 is passed over"},
    {LEVEL_ERROR, reason, "vrc-http: Not connected",
     "there is no connection to a package catalogue"},

    // Reports.
    {LEVEL_ERROR, reason, "Error creating tempfile for list: *",
     "the list can't be kept in a temporary file: $1"},
    {LEVEL_ERROR, reason, "vrm_showlogline: csv_line is empty", "there is not enough memory"},

    // What makes a file no package file.
    {LEVEL_ERROR, cause, "Only * of * bytes read*", "it is cut short"},
    {LEVEL_ERROR, cause, "Not a valid/supported package file",
     "it does not begin as a package file does"},
    {LEVEL_ERROR, cause, "Failed to read description size", "its description can't be read"},
    {LEVEL_ERROR, cause, "Failed to parse package header", "its description makes no sense"},
    {LEVEL_INFO, cause, "vrk_info_parse: Unspecified package format",
     "it does not say which format it has"},
    {LEVEL_INFO, cause, "vrk_info_parse: Unknown package format *",
     "its format $1 is not known here"},
    {LEVEL_INFO, cause, "vrk_info_parse: Unspecified architecture",
     "it does not say for which machines it is built"},
    {LEVEL_INFO, cause, "vrk_info_parse: Unsupported architecture: *",
     "its architecture $1 is not known here"},
    {LEVEL_ERROR, cause, "Failed to read archive by archive_read_open_FILE*",
     "its content can't be read"},
    {LEVEL_ERROR, cause, "Failed to parse archive by archive_read_open_FILE",
     "its content is damaged"},

    // What stands behind a signature that does not hold.
    {LEVEL_INFO, cause, "Failure parsing signer *", "its signer's name $1 makes no sense"},
    {LEVEL_INFO, cause, "Failure reading *",
     "its signer is not trusted here, as $1 holds no certificate that can be read", is_there},
    {LEVEL_INFO, cause, "Failure reading *",
     "its signer is not trusted here, as there is no certificate $1; pvrm trust puts one there"},
    {LEVEL_INFO, cause, "Subjects do not match",
     "its signer is not the one that the stored certificate names"},
    {LEVEL_INFO, cause, "Certificate is not yet valid",
     "its signer's certificate is not valid yet"},
    {LEVEL_INFO, cause, "Certificate has expired", "its signer's certificate has expired"},
    {LEVEL_INFO, cause, "failure loading public key",
     "its signer's certificate holds no key that can be used"},
    {LEVEL_INFO, cause, "failure loading signature", "its signature can't be read"},
    {LEVEL_ERROR, cause, "Failure verifiying package signature",
     "the signature does not fit its content"},
    {LEVEL_ERROR, cause, "No signature subject found", "it is not signed"},
    {LEVEL_ERROR, cause, "No signature data found", "it is not signed"},
    {LEVEL_WARNING, cause, "No signature subject found", "it is not signed"},
    {LEVEL_WARNING, cause, "No signature data found", "it is not signed"},
    {LEVEL_ERROR, reason, "Failure verifying signature of *",
     "the signature of $1 can't be trusted"},

    // Staging.
    {LEVEL_ERROR, reason, "*: refusing package <*>: its * is not allowed",
     "the package $2 is refused: its $3 holds characters that are not allowed"},
    {LEVEL_ERROR, reason, "*: refusing dependency * of <*>: that name is not allowed",
     "the package $2 is refused: it is needed by $3, a name that is not allowed"},
    {LEVEL_ERROR, reason, "vrm_exe_*: Failed to get * bytes from vrc_readpkg into *. rc = *",
     "the catalogue did not deliver all $2 bytes of $3"},
    {LEVEL_ERROR, reason, "vrm_exe_*: Failed to copy * to *", "$2 can't be copied to $3"},
    {LEVEL_ERROR, reason, "vrm_stage_file: Failed to copy * to *", "$1 can't be copied to $2"},
    {LEVEL_ERROR, reason, "vrm_exe_*: Failed to open * for writing: *",
     "$2 can't be opened for writing: $3"},
    {LEVEL_ERROR, reason, "vrm_exe_*: Failed to write *: *", "$2 can't be written: $3"},
    {LEVEL_ERROR, reason, "interrupted, not going on with *", "interrupted before $1"},

    // Files.
    {LEVEL_ERROR, reason, "Failed to open * for reading", "$1 can't be opened for reading"},
    {LEVEL_ERROR, reason, "Failed to open * for reading: *", "$1 can't be opened for reading: $2"},
    {LEVEL_ERROR, reason, "Failed to open * for writing: *", "$1 can't be opened for writing: $2"},
    {LEVEL_INFO, cause, "archive_write_data_block: *", "$1"},
    {LEVEL_ERROR, reason, "Failed to copy data: *", "the package can't be unpacked: $1"},
    {LEVEL_ERROR, reason, "Failed to write header by archive_write_header: *",
     "the package can't be unpacked: $1"},
    {LEVEL_ERROR, reason, "Failed to write archive by archive_write_finish_entry: *",
     "the package can't be unpacked: $1"},
    {LEVEL_ERROR, reason, "Failed to write *: *", "$1 can't be written: $2"},
    {LEVEL_ERROR, reason, "Failed to read *: *", "$1 can't be read: $2"},
    {LEVEL_ERROR, reason, "Failed to stat *: *", "$1 can't be looked at: $2"},
    {LEVEL_WARNING, reason, "Failed to set permission on *: *",
     "the permissions of $1 can't be set: $2"},
    {LEVEL_ERROR, reason, "* is not a regular file, refusing to remove it",
     "$1 is no regular file, and is not replaced"},

    // Checking what was unpacked.
    {LEVEL_ERROR, reason,
     "vrm_chk_files: verify of * failed: file not found in *.txt or hashes do not match",
     "$1 of the package is damaged, or not in the package's own list"},
    {LEVEL_ERROR, reason, "vrm_chk_sub_files: verify of * / * failed: file not found in *.txt",
     "$1$2 of the package is not in the package's own list"},
    {LEVEL_WARNING, reason, "vrm_chk_sub_files: Failure hashing * files",
     "the $1 files of the package can't be read"},
    {LEVEL_ERROR, reason, "vrm_chk_sub_files: Failure reading hash values for * in package",
     "the package has no list of its $1 files"},
    {LEVEL_ERROR, reason, "Line is smaller than 42 bytes, bye",
     "a list of the package holds a line that is too short"},
    {LEVEL_ERROR, nothing, "vrm_chk_all_files: Failure checking * files in *", ""},

    // Conflicts with files on the disk.
    {LEVEL_ERROR, reason, "aborting installation, * exists and belongs to package *",
     "$1 is on the disk already and belongs to the package $2"},
    {LEVEL_ERROR, reason, "aborting installation due to user request",
     "the installation is aborted, as you asked for"},
    {LEVEL_ERROR, nothing, "vrm_install_vrk: Aborting", ""},
    {LEVEL_ERROR, step, "Ok, will overwrite *", "replacing $1, which was on the disk already"},
    {LEVEL_ERROR, step, "Ok, will skip writing * to disk", "leaving $1 as it is on the disk"},

    // Carrying out.
    {LEVEL_ERROR, reason, "vrm_install_vrk: Failure unpacking * to *", "$1 can't be unpacked"},
    {LEVEL_ERROR, reason, "vrm_install_vrk: Failure checking info files for * in *",
     "the content of $1 is not what its own lists say"},
    {LEVEL_ERROR, reason, "vrm_install_vrk: pre-install script got an error, aborting",
     "the script that the package runs before its installation failed"},
    {LEVEL_ERROR, reason, "vrm_install_vrk: post-install script got an error, aborting",
     "the script that the package runs after its installation failed"},
    {LEVEL_ERROR, reason, "vrm_install_vrk: Failed to install * to *", "$2 can't be installed"},
    {LEVEL_ERROR, reason, "vrm_install_vrk: Failed to copy * for package *",
     "the $1 of $2 can't be put into the inventory"},
    {LEVEL_ERROR, reason, "vrm_install_vrk: Failed to write install info for package *",
     "the inventory's entry of $1 can't be written"},
    {LEVEL_ERROR, reason, "vrm_install_vrk: Failed to write fileindex for package *",
     "the list of the files of $1 can't be written"},
    {LEVEL_ERROR, reason,
     "vrm_install_rollback: Failure restoring *, you're in deep shit. We still try to do the "
     "rest.",
     "$1 could not be put back as it was before: restore it from a backup"},
    {LEVEL_ERROR, nothing, "vrm_install_rollback: finished", ""},
    {LEVEL_ERROR, failure, "Installation of * failed with rc=*", "the installation of $1 failed"},
    {LEVEL_ERROR, failure, "installation of * failed with rc=*", "the installation of $1 failed"},
    {LEVEL_ERROR, reason, "vrm_log_action: failed to open * for writing: *",
     "the history $1 can't be written: $2"},
    {LEVEL_ERROR, reason, "vrm_log_action: failed to write to *: *",
     "the history $1 can't be written: $2"},
    {LEVEL_ERROR, reason,
     "vrm_hook_match_attr: parsed cond: <*> is not a valid attribute condition",
     "a hook has a condition that makes no sense: $1"},

    // Removing. The first three are no log lines: the planner leaves them for the user.
    {LEVEL_INFO, reason, "* is not installed, skipping", "$1 is not installed"},
    {LEVEL_INFO, reason, "* cannot be deleted, * depends on it",
     "$1 can't be removed, as $2 needs it"},
    {LEVEL_INFO, nothing, "* can be deleted, nothing depends on it", ""},
    {LEVEL_INFO, reason, "* cannot be removed", "$1 can't be removed"},
    {LEVEL_WARNING, reason, "dependency * has already ben deleted, this should not really happen",
     "warning: $1 was needed, and is not installed"},
    {LEVEL_WARNING, reason, "vrm_chk_delete_reqs: Failure closing directory *",
     "warning: the inventory $1 can't be closed"},
    {LEVEL_ERROR, reason, "vrm_one_delete: pre-delete got an error, aborting",
     "the script that the package runs before its removal failed"},
    {LEVEL_ERROR, reason, "vrm_one_delete: post-delete got an error, aborting",
     "the script that the package runs after its removal failed"},
    {LEVEL_WARNING, reason, "vrm_one_delete: Failed to access registered file *: *, skipping",
     "warning: $1 can't be reached, and is passed over: $2"},
    {LEVEL_WARNING, reason, "vrm_one_delete: Failed to remove registered file *: *, but we go on",
     "warning: $1 can't be removed, and stays: $2"},
    {LEVEL_ERROR, reason,
     "vrm_one_delete: Failed to backup *, not good. We try a rollback and leave.",
     "$1 can't be saved, so it is not removed"},
    {LEVEL_ERROR, reason, "vrm_exe_delete: Removal of * failed with rc=*",
     "the removal of $1 failed, and it stays installed"},
    {LEVEL_INFO, step, "removal of * succeeded", "removed $1"},

    // Updating.
    {LEVEL_ERROR, reason, "vrm_chk_local_update: * is on disk and belongs to package *, aborting",
     "$1 is on the disk already and belongs to the package $2"},
    {LEVEL_ERROR, reason,
     "aborting installation on already existing file not belonging to any package",
     "the upgrade is aborted, as you asked for"},
    {LEVEL_ERROR, nothing, "Failure processing update, rc=*", ""},
    {LEVEL_ERROR, reason, "vrm_update_vrk: Failure unpacking * to *", "$1 can't be unpacked"},
    {LEVEL_ERROR, reason, "vrm_update_vrk: Failure checking files for * in *",
     "the content of $1 is not what its own lists say"},
    {LEVEL_ERROR, reason, "Pre-Install script ended with errors, aborting update",
     "the script that the package runs before its upgrade failed"},
    {LEVEL_ERROR, reason, "Post-Install script ended with errors, aborting update",
     "the script that the package runs after its upgrade failed"},
    {LEVEL_ERROR, reason, "Failure backing up previous version of *, will rollback and abort.",
     "$1 can't be saved before it is removed"},
    {LEVEL_WARNING, reason, "Failed to remove old file *: *, continuing",
     "the old file $1 can't be removed, and stays: $2"},
    {LEVEL_ERROR, reason, "Failure installing * to *", "$2 can't be installed"},
    {LEVEL_ERROR, reason, "vrm_update_vrk: Failed to install * to *", "$2 can't be installed"},
    {LEVEL_ERROR, reason, "Failed to register package * in local inventory",
     "$1 can't be put into the inventory"},
    {LEVEL_ERROR, reason, "vrm_update_vrk: Failed to copy * for package *",
     "the $1 of $2 can't be put into the inventory"},
    {LEVEL_ERROR, reason, "vrm_update_vrk: Failed to write install info for package *",
     "the inventory's entry of $1 can't be written"},
    {LEVEL_ERROR, reason, "vrm_update_vrk: Failed to write fileindex for package *",
     "the list of the files of $1 can't be written"},
    {LEVEL_ERROR, failure, "update of * failed with rc=*", "the upgrade to $1 failed"},

    {LEVEL_WARNING, reason,
     "vrm_undo_broken_swaps: the update of * was cut off while it was entered, its old entry is "
     "back",
     "warning: an upgrade of $1 was cut off; it is registered in its old version again, upgrade it "
     "once more"},

    // Cleaning up.
    {LEVEL_INFO, reason, "failure opening <*> for reading: *",
     "the directory $1 can't be read: $2"},
    {LEVEL_WARNING, reason, "failure reading <*>: *", "the directory $1 can't be read: $2"},
    {LEVEL_ERROR, reason, "failed to dudir *", "$1 can't be measured, and is passed over"},
    {LEVEL_ERROR, reason, "failed to stat *", "$1 can't be measured, and is passed over"},
    {LEVEL_ERROR, reason, "can't remove '*'", "$1 can't be removed"},
    {LEVEL_ERROR, reason, "installed: failed to remove *",
     "the old inventory entry $1 is not removed, or not whole"},
    {LEVEL_ERROR, nothing, "aborting cleanup", ""},
    {LEVEL_INFO, step, "installed: found * of size *",
     "would remove the old inventory entry $1, $2 bytes"},
    {LEVEL_INFO, step, "fileindex: found * of size *",
     "would remove the old file index $1, $2 bytes"},
    {LEVEL_INFO, step, "stagearea: found * of size *",
     "would remove the package file $1, $2 bytes"},
    {LEVEL_INFO, step, "installed: keeping *", "keeping the old inventory entry $1"},
    {LEVEL_INFO, step, "fileindex: keeping *", "keeping the old file index $1"},
    {LEVEL_INFO, step, "stagearea: keeping *", "keeping the package file $1"},
    {LEVEL_INFO, step, "installed: removing *", "removing the old inventory entry $1"},
    {LEVEL_INFO, step, "fileindex: removing *", "removing the old file index $1"},
    {LEVEL_INFO, step, "stagearea: removing *", "removing the package file $1"},
    {LEVEL_INFO, outcome, "cleanup deleted: *", "$1"},

    // Audits.
    {LEVEL_ERROR, reason, "vrm_chkhash: * is not installed", "$1 is not installed"},
    {LEVEL_ERROR, reason, "vrm_chkhash: * not found", "$1 is missing, or can't be read"},
    {LEVEL_ERROR, reason, "vrm_chkhash: mismatch on *: expected: *, found: *",
     "$1 was changed: its SHA-1 is $3, and $2 was delivered"},
    {LEVEL_ERROR, reason, "* was not found on fs, this can happen.",
     "the configuration file $1 is missing, or can't be read"},
    {LEVEL_ERROR, cause, "vrm_chkhash: insternal error reading hases on fork: *",
     "the list of its $1 files can't be used"},
    {LEVEL_ERROR, cause, "vrm_chkhash: internal error reading hases on fork: *",
     "the list of its $1 files can't be used"},
    {LEVEL_ERROR, nothing, "aborting chkinst", ""},
    {LEVEL_ERROR, nothing, "aborting chkhead", ""},
    {LEVEL_ERROR, reason, "failed to remove *", "$1 is not removed, or not whole"},
    {LEVEL_INFO, reason, "fixing * not yet implemented", "$1 can't be repaired yet"},
    {LEVEL_INFO, step, "leaving *", "leaving $1 as it is"},

    // Steps.
    {LEVEL_INFO, step, "getting *.vrk", "getting $1"},
    {LEVEL_INFO, step, "copying *.vrk", "copying $1"},
    {LEVEL_INFO, step, "unpacking *.vrk", "unpacking $1"},
    {LEVEL_INFO, step, "verifying *", "verifying $1"},
    {LEVEL_INFO, step, "executing pre-install script for *", "executing pre-install script for $1"},
    {LEVEL_INFO, step, "executing post-install script for *",
     "executing post-install script for $1"},
    {LEVEL_INFO, step, "installing new config file *", "installing new config file $1"},
    {LEVEL_INFO, step, "keeping existing config file *", "keeping existing config file $1"},
    {LEVEL_INFO, step, "installing missing config file *", "installing missing config file $1"},
    {LEVEL_INFO, step, "keeping modified config file *", "keeping modified config file $1"},
    {LEVEL_INFO, step, "overwriting unmodified config file *",
     "replacing unmodified config file $1"},
    {LEVEL_INFO, step, "retrieving *.vrk", "getting $1"},
    {LEVEL_INFO, step, "updating *", "upgrading to $1"},
    {LEVEL_INFO, step, "update of * succeeded", "upgraded to $1"},
    {LEVEL_INFO, step, "installing *", "installing $1"},
    {LEVEL_INFO, step, "keeping *", "keeping the inventory's entry $1"},
    {LEVEL_INFO, step, "removing *", "removing the inventory's entry $1"},
    {LEVEL_INFO, step, "installation of * succeeded", "installed $1"},
    {LEVEL_INFO, step, "Configured *, rc = 0", "configured $1"},
    {LEVEL_INFO, reason, "Configured *, rc = *",
     "a configuration command of $1 failed; the package stays installed"},
};

constexpr size_t most_stars = 4;

struct found_texts {
    std::array<std::string_view, most_stars> texts;
    size_t count = 0;
};

// What the stars of a pattern stand for in a line that fits it. Each is as short as it can be, but
// for the last one when the pattern ends with it.
std::optional<found_texts> match(std::string_view pattern, std::string_view line) {
    found_texts found;
    size_t star = pattern.find('*');
    if (line.substr(0, star) != pattern.substr(0, star)) {
        return std::nullopt;
    }
    while (star != std::string_view::npos) {
        line.remove_prefix(std::min(star, line.size()));
        pattern.remove_prefix(star + 1);
        star = pattern.find('*');
        const std::string_view piece = pattern.substr(0, star);
        const bool last = star == std::string_view::npos;
        size_t at = last ? line.size() - std::min(piece.size(), line.size()) : line.find(piece);
        if (at == std::string_view::npos || line.substr(at, piece.size()) != piece) {
            return std::nullopt;
        }
        found.texts[found.count++] = line.substr(0, at);
        line.remove_prefix(at);
    }
    return found;
}

std::string fill_in(std::string_view sentence, const found_texts &found) {
    std::string text;
    for (size_t i = 0; i < sentence.size(); i++) {
        if (sentence[i] == '$') {
            text += found.texts[static_cast<size_t>(sentence[++i] - '1')];
        } else {
            text += sentence[i];
        }
    }
    return text;
}

// "vrm_install_vrk: Failed to ..." tells a developer where; a user is told what.
std::string_view without_function(std::string_view line) {
    const size_t colon = line.find(": ");
    const std::string_view name = line.substr(0, colon);
    const bool is_function =
        colon != std::string_view::npos && name.starts_with('v') &&
        name.find('_') != std::string_view::npos &&
        name.find_first_not_of("abcdefghijklmnopqrstuvwxyz_0123456789") == std::string_view::npos;
    return is_function ? line.substr(colon + 2) : line;
}

}  // namespace

engine_report understand(uint32_t level, std::string_view message) {
    const std::string_view line = message.substr(0, message.find_last_not_of('\n') + 1);
    if (line.empty()) {
        return {};
    }
    for (const row &candidate : rows) {
        if (candidate.level != level) {
            continue;
        }
        const auto found = match(candidate.pattern, line);
        if (found && (!candidate.condition || candidate.condition(found->texts[0]))) {
            return {candidate.what, fill_in(candidate.sentence, *found)};
        }
    }
    if (level == LEVEL_ERROR || level == LEVEL_WARNING) {
        return {reason, std::string(without_function(line))};
    }
    return {};
}

static std::string last_cause, last_reason, last_outcome;
// Each reading of the inventory warns of the same entries again.
static std::set<std::string> told_warnings;
static size_t reasons = 0;
static rollback undone = rollback::none;
static std::optional<kept_reasons> kept;

bool was_explained() {
    return !last_cause.empty();
}

std::string take_cause() {
    return std::exchange(last_cause, {});
}

std::string take_outcome() {
    return std::exchange(last_outcome, {});
}

size_t reasons_told() {
    return reasons;
}

static void tell_with_cause(const std::string &text) {
    const std::string why = take_cause();
    tell_problem("%s%s%s", text.c_str(), why.empty() ? "" : ": ", why.c_str());
}

void tell_failure(const char *format, ...) {
    char text[3000];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    tell_with_cause(text);
}

// An interruption may be sent to a configuration command alone, and nobody but this line tells how
// the command ended.
static void note_end_of_command(std::string_view line) {
    static constexpr std::string_view before_status = ", rc = ";
    const size_t at = line.rfind(before_status);
    if (line.starts_with("Configured ") && at != std::string_view::npos) {
        was_interrupted(atoi(std::string(line.substr(at + before_status.size())).c_str()));
    }
}

rollback take_rollback() {
    return std::exchange(undone, rollback::none);
}

std::string with_rollback(const std::string &failed, rollback how) {
    return failed + (how == rollback::incomplete
                         ? ", and not all that it had changed could be taken back"
                         : ", and what it had changed was taken back");
}

static void note_rollback(std::string_view line) {
    if (line.starts_with("vrm_install_rollback: Failure ")) {
        undone = rollback::incomplete;
    } else if (line.starts_with("vrm_install_rollback: ") && undone == rollback::none) {
        undone = rollback::complete;
    }
}

static void take_reason(uint32_t level, std::string text) {
    if (kept) {
        kept->reasons.push_back({level, std::move(text), take_cause()});
        return;
    }
    if (text == last_reason || (level == LEVEL_WARNING && !told_warnings.insert(text).second)) {
        last_cause.clear();
        return;
    }
    tell_with_cause(text);
    reasons++;
    last_reason = std::move(text);
}

void keep_reasons() {
    kept.emplace();
}

kept_reasons take_reasons() {
    kept_reasons taken = kept ? std::move(*kept) : kept_reasons();
    kept.reset();
    taken.cause = take_cause();
    return taken;
}

void tell_reasons(kept_reasons given) {
    for (kept_reasons::given &one : given.reasons) {
        last_cause = std::move(one.cause);
        take_reason(one.level, std::move(one.text));
    }
    last_cause = std::move(given.cause);
}

static void take(uint32_t level, std::string_view message) {
    note_end_of_command(message);
    note_rollback(message);
    engine_report report = understand(level, message);
    switch (report.what) {
        case nothing:
            break;
        case step:
            last_cause.clear();
            tell_step("%s", report.text.c_str());
            break;
        case cause:
            last_cause = std::move(report.text);
            break;
        case outcome:
            last_outcome = std::move(report.text);
            break;
        case failure:
            report.text = with_rollback(report.text, take_rollback());
            [[fallthrough]];
        case reason:
            take_reason(level, std::move(report.text));
            break;
    }
}

void tell_engine_text(std::string_view text) {
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        take(LEVEL_INFO, text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

static void watch(uint32_t level, const char *message, void *) {
    // The output of a script goes along the log too, not by its buffer. The engine shows it, and it
    // must not be taken for what the engine says.
    if (message != llog->buffer) {
        return;
    }
    try {
        take(level, message);
    } catch (const std::exception &) {
        // Without memory for a sentence the line itself has to do. The engine goes on in any case.
        if (level == LEVEL_ERROR) {
            fputs(message, stderr);
        }
    }
}

void report_engine() {
    log_observe(watch, LEVEL_ERROR | LEVEL_WARNING | LEVEL_INFO, nullptr);
}
