// The note of a package's script or hook command that runs.
//
// A program that changes the system may be killed while a script runs. The script goes on, and the
// next change must not begin beside it. So the shell that runs it is noted in a file,
// `script.running` below the repository's root, before it does anything, and the file is removed
// when the shell has ended. Only the shell counts: what a script starts in the background may run
// on.
//
// The file has a line for each of these, a word and a value: the shell's `process` id, when it
// `started` in ticks since the machine's start (field 22 of /proc/ID/stat), the `boot` id of the
// kernel, and the `package` and `command` for messages. Where /proc is not mounted, 0 is the time
// and the boot id is missing.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

#include "support/handle.h"
#include "support/shell.h"

struct running_script {
    pid_t process;
    uint64_t started;  // 0: not known
    std::string boot;  // empty: not known
    std::string package;
    std::string command;  // "99-add.sh", or the command line of a hook
};

// The path of a repository's note.
std::string running_script_path(const vrm_handle *handle);

// Sets the repository whose scripts run from here on; null for none. vrm_lock and the end of the
// lock call it. Throws when memory fails.
void note_scripts_of(const vrm_handle *handle);

// Notes the shell that runs while the object exists, when a repository is set. A note that can't be
// written is a warning on the log, and the script runs all the same.
class script_note final : public shell_watcher {
 public:
    // `package` may be null. Both texts must stay while the object exists.
    script_note(const char *package, const char *command);

    void begins(pid_t shell) override;
    void ended() override;

 private:
    const char *const package_;
    const char *const command_;
    bool written_ = false;
};

// Reads the note, whether or not that script still runs. Nothing when there is none. `why` then
// receives the reason, for a message, if something that is not a note, or that others could have
// written, has its name; else it is made empty.
std::optional<running_script> read_running_script(const vrm_handle *handle, std::string *why);

// The same of another file that has the form of such a note.
std::optional<running_script> read_note(const std::string &path, std::string *why);

// What a note says of a process, and its text. Throws when memory fails.
running_script describe_process(pid_t process, const char *package, const char *command);
std::string text_of_note(const running_script &script);

// Whether the shell of a note is still there. False for a process that only got its id later, and
// for one that ended and waits for its parent. Where /proc is not mounted, the id alone decides.
bool still_runs(const running_script &script);

// Removes a note of which the script has ended, and whatever else has its name but for a directory.
// Only for the holder of the lock.
void drop_running_script(const vrm_handle *handle);
