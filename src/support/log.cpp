#include "support/log.h"

#include <syslog.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "support/own.h"

const char *const level_string[9] = {"ALL", "ERROR", "WARNING", "", "INFO", "", "", "", "DEBUG"};

log_object *llog = nullptr;

namespace {

constexpr uint32_t default_levels = LEVEL_ERROR | LEVEL_WARNING | LEVEL_INFO;
constexpr uint32_t all_levels = default_levels | LEVEL_DEBUG;
constexpr size_t message_bound = 2000;

struct time_stamp {
    char text[72];  // room for any int in each of the six fields

    time_stamp() {
        const time_t now = time(nullptr);
        struct tm local = {};
        localtime_r(&now, &local);
        snprintf(text, sizeof(text), "%4d-%02d-%02d %02d:%02d:%02d", local.tm_year + 1900,
                 local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    }
};

// Whether a mask that was asked for is taken; if not the default stands.
bool says_something(uint32_t levels) {
    return (levels & all_levels) != 0;
}

uint32_t mask_or_default(uint32_t levels) {
    return says_something(levels) ? levels : default_levels;
}

// 8 to 15 are 0 to 7 for syslog: the system's journal is not to be flooded with DEBUG.
uint32_t syslog_request(uint32_t levels) {
    return levels > 7 ? levels - 8 : levels;
}

// Opens the file of log_init and resolves its path, so that a relative one stays valid after a
// change of directory. Null switches the file off.
own_file open_first(log_object *log, const char *path) {
    log->file_enabled = 0;
    if (path == nullptr || *path == '\0') {
        return nullptr;
    }
    if (strlen(path) >= sizeof(log->file)) {
        fputs("log file specified too long\n. Logging disabled.\n", stderr);
        return nullptr;
    }
    own_file file(fopen(path, "ae"));
    if (!file) {
        fprintf(stderr, "Unable to open file: %s\n. Logging disabled.", path);
        return nullptr;
    }
    const own_string resolved(realpath(path, nullptr));
    if (!resolved) {
        fprintf(stderr, "Unable to get path of %s\n. Logging disabled.", path);
        return nullptr;
    }
    snprintf(log->file, sizeof(log->file), "%.1999s", resolved.get());
    log->file_enabled = 1;
    return file;
}

void init_line(FILE *file, const time_stamp &now, const char *what, uint32_t levels) {
    if (file != nullptr) {
        fprintf(file, "%s [INIT] Setting %s %d\n", now.text, what, static_cast<int>(levels));
    }
}

void to_syslog(const char *name, const char *message) {
    syslog(LOG_NOTICE, "[%s] %.1900s\n", name, message);
}

void to_file(const log_object *log, const char *name, const char *message) {
    const time_stamp now;
    const own_file file(log->ready != 0 ? fopen(log->file, "ae") : nullptr);
    if (!file) {
        to_syslog(name, message);
        return;
    }
    fprintf(file.get(), "%s [%s] %.1900s\n", now.text, name, message);
    fflush(file.get());
}

}  // namespace

log_object *log_init(const char *path, uint32_t file_levels, uint32_t syslog_levels,
                     uint32_t stderr_levels, const char *ident) {
    auto *log = static_cast<log_object *>(calloc(1, sizeof(log_object)));
    if (log == nullptr) {
        abort();  // a program that has no room for this at its start can do nothing else either
    }
    log->file_levels = log->syslog_levels = log->stderr_levels = default_levels;
    log->level_names = level_string;
    const time_stamp now;

    own_file file = open_first(log, path);
    if (file) {
        log->file_levels = mask_or_default(file_levels);
        init_line(file.get(), now, says_something(file_levels) ? "log level" : "default log level",
                  log->file_levels);
    }

    const uint32_t for_syslog = syslog_request(syslog_levels);
    log->syslog_levels = mask_or_default(for_syslog);
    init_line(file.get(), now, says_something(for_syslog) ? "syslog level" : "default syslog level",
              log->syslog_levels);

    log->stderr_levels = mask_or_default(stderr_levels);

    file.reset();
    log->ready = 1;
    if (ident != nullptr) {
        openlog(ident, LOG_PID, LOG_USER);
    }
    return log;
}

int log_write(log_object *log, uint32_t level, const char *text) {
    if (log == nullptr) {
        return -1;
    }
    const int saved_errno = errno;
    const char *message = text != nullptr ? text : log->buffer;
    const char *name = level <= LEVEL_DEBUG ? log->level_names[level] : "";

    if (log->file_enabled != 0 && (log->file_levels & level) != 0) {
        to_file(log, name, message);
    }
    if ((log->syslog_levels & level) != 0) {
        to_syslog(name, message);
    }
    if ((log->stderr_levels & level) != 0) {
        fprintf(stderr, "%s\n", message);
    }
    errno = saved_errno;
    return 0;
}

int log_file_new(log_object *log, const char *path) {
    if (log == nullptr) {
        return -1;
    }
    log->file_enabled = 0;
    if (path == nullptr || *path == '\0') {
        fputs("No log file specified\n.Logging disabled.\n", stderr);
        return 0;
    }
    if (strlen(path) >= sizeof(log->file)) {
        fputs("log file specified too long\n. Logging disabled.\n", stderr);
        return 0;
    }
    memmove(log->file, path, strlen(path) + 1);  // it may be the object's own
    if (!own_file(fopen(path, "ae"))) {
        fprintf(stderr, "Unable to open file: %s\n. Logging disabled.", path);
        return 0;
    }
    log->file_enabled = 1;
    return 1;
}

int log_level_new(log_object *log, uint32_t file_levels, uint32_t syslog_levels,
                  uint32_t stderr_levels) {
    if (log == nullptr) {
        return -1;
    }
    log->file_levels = mask_or_default(file_levels);
    log->syslog_levels = mask_or_default(syslog_request(syslog_levels));
    log->stderr_levels = mask_or_default(stderr_levels);
    log->file_enabled = 1;
    return 0;
}

void log_say(uint32_t level, const char *format, ...) {
    if (llog == nullptr) {
        return;
    }
    const int saved_errno = errno;
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(llog->buffer, message_bound, format, arguments);
    va_end(arguments);
    errno = saved_errno;
    log_write(llog, level, nullptr);
}

bool log_wants(uint32_t level) {
    if (llog == nullptr) {
        return false;
    }
    uint32_t taken = llog->syslog_levels | llog->stderr_levels;
    if (llog->file_enabled != 0) {
        taken |= llog->file_levels;
    }
    return (taken & level) != 0;
}
