// The log: one global object that sends each message, by level, to a file, to syslog and to stderr.
//
// A line of the file is "%s [%s] %.1900s\n" of the local time ("YYYY-MM-DD hh:mm:ss"), the level's
// name and the message. The file is opened anew for each line, so it may be moved or removed at any
// time. A message may hold newlines; they stand in the file as they are.
#pragma once

#include <cstdint>

// A level is one bit; a message has exactly one, a sink has a mask of them.
enum log_level : uint32_t {
    LEVEL_ERROR = 1,
    LEVEL_WARNING = 2,
    LEVEL_INFO = 4,
    LEVEL_DEBUG = 8,
};

// Names of the levels, indexed by the level's value; "" where no level has the value.
extern const char *const level_string[9];

// The object is never released: it lives as long as the process.
struct log_object {
    char file[2000];                 // absolute path of the log file
    uint32_t file_levels;            // mask of levels for the file,
    uint32_t syslog_levels;          // for syslog
    uint32_t stderr_levels;          // and for stderr
    uint32_t ready;                  // 0 while log_init runs, then 1
    uint32_t file_enabled;           // 1 when the file can be used
    const char *const *level_names;  // level_string
    char buffer[2008];               // where a caller formats its message, bounded by 2000
};

// The log of the process; null means no logging.
extern log_object *llog;

// Makes a log object. `file` is the path of the log file, relative to the working directory of this
// moment or absolute; null or empty means no file. The masks are sums of levels. A mask without any
// of the four bits means the default, ERROR, WARNING and INFO. From a syslog mask above 7 the value
// 8 is taken off first, so that 8 to 15 don't bring DEBUG to syslog. `ident` is the name in
// syslog, null leaves syslog as it is; the string must stay valid. A sink that can't be used is
// told on stderr and left out; the result is never null. The caller stores it in `llog`.
log_object *log_init(const char *file, uint32_t file_levels, uint32_t syslog_levels,
                     uint32_t stderr_levels, const char *ident);

// Sends one message to the sinks whose masks hold `level`, then to the observer. `text` null means
// the object's buffer. The message is cut at 1900 bytes in the file and in syslog, never on stderr.
// A line that can't go to the file goes to syslog. Keeps errno. Returns 0, or -1 for a null log.
int log_write(log_object *log, uint32_t level, const char *text);

// Sets another path for the file, kept as given. Returns 1 with a file that can be opened; 0 when
// not, which is told on stderr and switches the file off; -1 for a null log.
int log_file_new(log_object *log, const char *path);

// Sets the three masks, with the defaults of log_init, and switches the file on. Returns 0, or -1
// for a null log.
int log_level_new(log_object *log, uint32_t file_levels, uint32_t syslog_levels,
                  uint32_t stderr_levels);

// Formats a message into the buffer of `llog`, bounded by 2000, and writes it. Does nothing while
// `llog` is null. No argument may point into that buffer.
void log_say(uint32_t level, const char *format, ...) __attribute__((format(printf, 2, 3)));

// Whether a message of this level would reach a sink.
bool log_wants(uint32_t level);

// A DEBUG line, of a format and its arguments as log_say takes them. Neither is evaluated unless
// the line is wanted.
#define log_debug(...) (log_wants(LEVEL_DEBUG) ? log_say(LEVEL_DEBUG, __VA_ARGS__) : void())
