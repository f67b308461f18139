#include "support/vdef.h"

#include <climits>
#include <cstdio>
#include <cstring>
#include <iterator>

static constexpr size_t buffer_size = 64;
static constexpr size_t dbdate_length = 19;

char *vdef_nice_byte_ext(int base, char *buffer, double value) {
    static constexpr const char *units[] = {"bytes", "kB", "MB", "GB", "TB",
                                            "PB",    "EB", "ZB", "YB"};
    int divisions = 0;
    while (value > base && divisions + 1 < static_cast<int>(std::size(units))) {
        value /= base;
        divisions++;
    }
    snprintf(buffer, buffer_size, "%.*f %s", divisions, value, units[divisions]);
    return buffer;
}

char *vdef_nice_byte(char *buffer, double value) {
    return vdef_nice_byte_ext(1024, buffer, value);
}

std::string nice_size(uint64_t bytes) {
    char text[buffer_size];
    return vdef_nice_byte(text, static_cast<double>(bytes));
}

char *vdef_nice_utime(time_t time, char *buffer, int format) {
    static constexpr const char *months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                             "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    tm at;
    if (!localtime_r(&time, &at) || at.tm_year > INT_MAX - 1900) {
        *buffer = '\0';
        return buffer;
    }
    const int year = at.tm_year + 1900;
    const int month = at.tm_mon + 1;
    const char *name = months[at.tm_mon];
    switch (format) {
        case 2:
            snprintf(buffer, buffer_size, "%02d:%02d:%02d", at.tm_hour, at.tm_min, at.tm_sec);
            break;
        case 4:
            snprintf(buffer, buffer_size, "%d.%d.%d", at.tm_mday, month, year);
            break;
        case 5:
            snprintf(buffer, buffer_size, "%d. %s %d", at.tm_mday, name, year);
            break;
        case 6:
            snprintf(buffer, buffer_size, "%d.%d.%d %02d:%02d", at.tm_mday, month, year, at.tm_hour,
                     at.tm_min);
            break;
        case 7:
            snprintf(buffer, buffer_size, "%d. %s %d %02d:%02d", at.tm_mday, name, year, at.tm_hour,
                     at.tm_min);
            break;
        default:
            snprintf(buffer, buffer_size, "%4d-%02d-%02d %02d:%02d:%02d", year, month, at.tm_mday,
                     at.tm_hour, at.tm_min, at.tm_sec);
    }
    return buffer;
}

char *vdef_nice_dbdate(time_t time, char *buffer) {
    return vdef_nice_utime(time, buffer, 0);
}

std::string nice_date(int64_t seconds_since_epoch) {
    char text[buffer_size];
    return vdef_nice_dbdate(static_cast<time_t>(seconds_since_epoch), text);
}

char *vdef_nice_since(int seconds, char *buffer) {
    if (seconds >= 86400) {
        snprintf(buffer, buffer_size, "%d days, %d hours", seconds / 86400, seconds % 86400 / 3600);
    } else if (seconds >= 3600) {
        snprintf(buffer, buffer_size, "%d hours, %d minutes", seconds / 3600, seconds % 3600 / 60);
    } else if (seconds >= 60) {
        snprintf(buffer, buffer_size, "%d minutes, %d seconds", seconds / 60, seconds % 60);
    } else {
        snprintf(buffer, buffer_size, "%d seconds", seconds);
    }
    return buffer;
}

time_t dbdate2time(const char *text) {
    if (!text || strnlen(text, dbdate_length) < dbdate_length) {
        return -1;
    }
    char date[dbdate_length + 1];
    memcpy(date, text, dbdate_length);
    date[dbdate_length] = '\0';

    const time_t now = time(nullptr);
    tm at;
    if (!localtime_r(&now, &at) ||
        sscanf(date, "%04d-%02d-%02d %02d:%02d:%02d", &at.tm_year, &at.tm_mon, &at.tm_mday,
               &at.tm_hour, &at.tm_min, &at.tm_sec) < 1) {
        return -1;
    }
    // The month moves by one even where it didn't scan and still is today's.
    at.tm_mon -= 1;
    at.tm_year -= 1900;
    return mktime(&at);
}
