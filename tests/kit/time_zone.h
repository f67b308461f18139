// Within its life texts of dates are those of a time zone; without it they depend on the machine.
#pragma once

#include <cstdlib>
#include <ctime>

class TimeZone {
 public:
    explicit TimeZone(const char *zone) {
        setenv("TZ", zone, 1);
        tzset();
    }
    ~TimeZone() {
        unsetenv("TZ");
        tzset();
    }
    TimeZone(const TimeZone &) = delete;
    TimeZone &operator=(const TimeZone &) = delete;
};
