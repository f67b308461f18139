#include "pvrm/tell.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>

#include "support/shell.h"
#include "support/terminal_text.h"

static constexpr char own_name[] = "pvrm: ";
static bool steps_are_told = true;

void tell_no_steps() {
    steps_are_told = false;
}

// When nobody reads any more, what comes goes nowhere: the commands of packages, which write to the
// same place, would else fail.
static void stop_writing_to(FILE *stream) {
    // A pipe, or a terminal that went away: that one fails as a broken disk does.
    if (errno != EPIPE && !nobody_reads(fileno(stream))) {
        return;
    }
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere >= 0) {
        dup2(nowhere, fileno(stream));
        close(nowhere);
    }
    clearerr(stream);
}

[[gnu::format(printf, 1, 0)]] static std::string text_of(const char *format, va_list arguments) {
    char text[4000];
    vsnprintf(text, sizeof text, format, arguments);
    return text;
}

static void write_line(FILE *stream, const char *begin, const std::string &text) {
    // One call a line, so that lines of stdout and stderr don't mix when both go to one pipe.
    const std::string line = begin + terminal_safe_cell(text) + "\n";
    if (fputs(line.c_str(), stream) < 0 || fflush(stream) != 0) {
        stop_writing_to(stream);
    }
}

void tell_step(const char *format, ...) {
    if (steps_are_told) {
        va_list arguments;
        va_start(arguments, format);
        write_line(stdout, own_name, text_of(format, arguments));
        va_end(arguments);
    }
}

// ---- Problems ----

std::string problem::text() const {
    const std::string begin = subject + (subject.empty() || what.empty() ? "" : " ") + what;
    return begin + (why.empty() ? "" : ": " + why);
}

std::string problem::text_after(const std::string &name) const {
    if (subject.empty() || subject != name) {
        return text();
    }
    return why.empty() ? "it " + what : why;
}

static problem first_noted;
static std::optional<std::vector<held_problem>> held_back;

void hold_problems() {
    held_back.emplace();
}

std::vector<held_problem> take_held_problems() {
    std::vector<held_problem> taken;
    if (held_back) {
        taken = std::move(*held_back);
    }
    held_back.reset();
    return taken;
}

void tell_held(const std::vector<held_problem> &held) {
    for (const held_problem &one : held) {
        if (one.is_printed) {
            note_repeated_problem(one.what);
        } else {
            tell_problem(one.what);
        }
    }
}

void note_repeated_problem(const problem &found) {
    if (held_back) {
        held_back->push_back({found, true});
        return;
    }
    if (first_noted.text().empty()) {
        first_noted = found;
    }
}

void note_problems() {
    first_noted = {};
}

problem first_problem() {
    return first_noted;
}

void tell_problem(const problem &found) {
    if (held_back) {
        held_back->push_back({found, false});
        return;
    }
    note_repeated_problem(found);
    tell_warning_text(found.text());
}

void tell_problem(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    tell_problem(problem{"", text_of(format, arguments)});
    va_end(arguments);
}

void tell_warning(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    tell_warning_text("warning: " + text_of(format, arguments));
    va_end(arguments);
}

void tell_warning_text(const std::string &text) {
    fflush(stdout);
    write_line(stderr, own_name, text);
}

void tell_detail(const char *format, ...) {
    fflush(stdout);
    va_list arguments;
    va_start(arguments, format);
    write_line(stderr, "  ", text_of(format, arguments));
    va_end(arguments);
}
