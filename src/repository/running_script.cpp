#include "repository/running_script.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <string_view>

#include "support/atomic_file.h"
#include "support/boundary.h"
#include "support/event.h"
#include "support/file.h"
#include "support/own.h"

namespace {

// Far above what is written, and so a file of more is not a note.
constexpr size_t most_bytes = 4096;
constexpr size_t most_of_a_text = 300;

// The beginning of a file; nothing, with `errno`, when it can't be read. A file of /proc has no
// size to go by.
std::optional<std::string> read_start(int fd) {
    std::string text(most_bytes, '\0');
    size_t length = 0;
    while (length < text.size()) {
        const ssize_t got = read_some(fd, text.data() + length, text.size() - length);
        if (got < 0) {
            return std::nullopt;
        }
        if (got == 0) {
            break;
        }
        length += static_cast<size_t>(got);
    }
    text.resize(length);
    return text;
}

std::optional<std::string> read_proc(const std::string &path) {
    const own_fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    return file.valid() ? read_start(file.get()) : std::nullopt;
}

template <class number>
bool parse(std::string_view text, number *value) {
    const char *const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, *value);
    return result.ec == std::errc() && result.ptr == end;
}

// Takes the text up to a character, and that character, off the front.
std::string_view take_until(std::string_view *text, char end) {
    const std::string_view taken = text->substr(0, text->find(end));
    text->remove_prefix(std::min(taken.size() + 1, text->size()));
    return taken;
}

std::string boot_id() {
    std::string id = read_proc("/proc/sys/kernel/random/boot_id").value_or("");
    id.erase(std::min(id.find('\n'), id.size()));
    return id;
}

struct process_state {
    char state = '?';
    uint64_t started = 0;
};

// Nothing when there is no such process, or /proc does not show it.
std::optional<process_state> look_at(pid_t process) {
    const auto text = read_proc("/proc/" + std::to_string(process) + "/stat");
    // The name in the second field may hold blanks and brackets; the last bracket is its end.
    const size_t name_end = text ? text->rfind(") ") : std::string::npos;
    if (name_end == std::string::npos) {
        return std::nullopt;
    }
    std::string_view rest = std::string_view(*text).substr(name_end + 2);
    process_state found;
    constexpr int state_field = 3, start_field = 22;
    for (int field = state_field; field <= start_field; field++) {
        const std::string_view value = take_until(&rest, ' ');
        if (field == state_field && !value.empty()) {
            found.state = value[0];
        } else if (field == start_field && !parse(value, &found.started)) {
            return std::nullopt;
        }
    }
    return found;
}

// As the value of a line.
std::string one_line(const char *text) {
    std::string line(text ? text : "", text ? strnlen(text, most_of_a_text) : 0);
    for (char &c : line) {
        if (iscntrl(static_cast<unsigned char>(c))) {
            c = ' ';
        }
    }
    return line;
}

std::optional<running_script> parse_note(std::string_view text) {
    running_script script = {};
    bool has_start = false;
    while (!text.empty()) {
        // The last line too has its end, else the note is cut.
        if (text.find('\n') == std::string_view::npos) {
            return std::nullopt;
        }
        std::string_view value = take_until(&text, '\n');
        const std::string_view word = take_until(&value, ' ');
        if ((word == "process" && !parse(value, &script.process)) ||
            (word == "started" && !parse(value, &script.started))) {
            return std::nullopt;
        }
        has_start = has_start || word == "started";
        if (word == "boot") {
            script.boot = value;
        } else if (word == "package") {
            script.package = value;
        } else if (word == "command") {
            script.command = value;
        }
    }
    if (script.process <= 0 || !has_start || script.command.empty()) {
        return std::nullopt;
    }
    return script;
}

// Why a file can't be a note of this program; empty when it can.
const char *reason_against(const struct stat &status) {
    if (!S_ISREG(status.st_mode)) {
        return "it is not a regular file";
    }
    if (status.st_uid != 0 && status.st_uid != geteuid()) {
        return "it belongs to another user";
    }
    if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return "others may write to it";
    }
    return status.st_size > static_cast<off_t>(most_bytes) ? "it is too long" : "";
}

// Empty while no repository is locked.
std::string path_of_notes;

}  // namespace

std::string running_script_path(const vrm_handle *handle) {
    return std::string(handle->dir) + "/script.running";
}

void note_scripts_of(const vrm_handle *handle) {
    path_of_notes = handle ? running_script_path(handle) : "";
}

running_script describe_process(pid_t process, const char *package, const char *command) {
    return {process, look_at(process).value_or(process_state()).started, boot_id(),
            one_line(package), one_line(command)};
}

std::string text_of_note(const running_script &script) {
    return "process " + std::to_string(script.process) + "\nstarted " +
           std::to_string(script.started) + "\nboot " + script.boot + "\npackage " +
           script.package + "\ncommand " + script.command + "\n";
}

script_note::script_note(const char *package, const char *command)
    : package_(package), command_(command) {}

void script_note::begins(pid_t shell) {
    const auto not_noted = [&] {
        report({.kind = event_kind::script_not_noted,
                .path = path_of_notes,
                .other = command_,
                .error = errno});
    };
    guarded(not_noted, [&] {
        if (path_of_notes.empty()) {
            return;
        }
        const running_script script = describe_process(shell, package_, command_);
        // Readable for dry runs of other users. Not synced: after a crash of the machine no script
        // runs any more.
        written_ = write_atomically(path_of_notes, text_of_note(script), 0644, durability::none);
        if (!written_) {
            report({.kind = event_kind::script_not_noted,
                    .path = path_of_notes,
                    .other = script.command,
                    .error = errno});
        }
    });
}

void script_note::ended() {
    if (written_) {
        unlink(path_of_notes.c_str());
        written_ = false;
    }
}

std::optional<running_script> read_running_script(const vrm_handle *handle, std::string *why) {
    return read_note(running_script_path(handle), why);
}

std::optional<running_script> read_note(const std::string &path, std::string *why) {
    why->clear();
    // Neither a link to another file nor a pipe without a writer may be waited for.
    const own_fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (!file.valid()) {
        if (errno != ENOENT) {
            *why = errno == ELOOP ? "it is a link" : strerror(errno);
        }
        return std::nullopt;
    }
    struct stat status;
    *why = fstat(file.get(), &status) == 0 ? reason_against(status) : strerror(errno);
    if (!why->empty()) {
        return std::nullopt;
    }
    const auto text = read_start(file.get());
    auto script = text ? parse_note(*text) : std::nullopt;
    // An empty file is what a crash of the machine makes of one that was not synced.
    if (!text) {
        *why = strerror(errno);
    } else if (!script && !text->empty()) {
        *why = "it is not a note of a running script";
    }
    return script;
}

bool still_runs(const running_script &script) {
    // Ours can't be the one that was left running, whatever the note says.
    if (script.process == getpid()) {
        return false;
    }
    const std::string boot = boot_id();
    if (!boot.empty() && !script.boot.empty() && boot != script.boot) {
        return false;
    }
    const auto present = look_at(script.process);
    if (!present) {
        return kill(script.process, 0) == 0 || errno == EPERM;
    }
    const bool ended = present->state == 'Z' || present->state == 'X';
    return !ended && (script.started == 0 || script.started == present->started);
}

void drop_running_script(const vrm_handle *handle) {
    unlink(running_script_path(handle).c_str());
}
