#include "pvrm/tell.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string>

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

static std::string first_noted;

void note_repeated_problem(const std::string &text) {
    if (first_noted.empty() && !text.starts_with("warning: ")) {
        first_noted = text;
    }
}

void note_problems() {
    first_noted.clear();
}

std::string first_problem() {
    return first_noted;
}

void tell_problem(const char *format, ...) {
    fflush(stdout);
    va_list arguments;
    va_start(arguments, format);
    const std::string text = text_of(format, arguments);
    va_end(arguments);
    note_repeated_problem(text);
    write_line(stderr, own_name, text);
}

void tell_detail(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    write_line(stderr, "  ", text_of(format, arguments));
    va_end(arguments);
}
