// Sizes, times and durations in the forms in which people read them. Buffers are the caller's and
// hold 64 bytes; each function returns the buffer that it was given.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

// A size in the largest unit that leaves more than 1 of it: the value is divided by `base` while it
// is strictly greater, so 1024 by 1024 are still "1024 bytes". The precision grows with the unit on
// purpose: no decimals for bytes, one for kB, two for MB. "YB" is the last unit.
char *vdef_nice_byte_ext(int base, char *buffer, double value);

// The same with the base 1024.
char *vdef_nice_byte(char *buffer, double value);
std::string nice_size(uint64_t bytes);

// A time in local time, by `format`:
//   2  15:04:05            6  2.1.2006 15:04
//   4  2.1.2006            7  2. Jan 2006 15:04
//   5  2. Jan 2006         any other: the database date, 2006-01-02 15:04:05
// A time beyond the calendar gives an empty text.
char *vdef_nice_utime(time_t time, char *buffer, int format);

// The database date of a time, in local time.
char *vdef_nice_dbdate(time_t time, char *buffer);
std::string nice_date(int64_t seconds_since_epoch);

// A duration in its two largest units: "1 days, 0 hours". There is no singular.
char *vdef_nice_since(int seconds, char *buffer);

// The time of a database date, read as local time with the daylight saving of now; what follows its
// 19 characters is ignored. -1 for null, a shorter text, or one that does not begin with a year.
time_t dbdate2time(const char *text);
