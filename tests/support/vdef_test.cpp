#include "support/vdef.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <limits>
#include <string>

#include "kit/time_zone.h"

// What is written into a buffer, which is handed back.
static std::string written(const std::function<const char *(char *)> &code) {
    char buffer[64];
    EXPECT_EQ(code(buffer), buffer);
    return buffer;
}

static std::string byte_text(double value) {
    return written([&](char *buffer) { return vdef_nice_byte(buffer, value); });
}

static std::string byte_text(int base, double value) {
    return written([&](char *buffer) { return vdef_nice_byte_ext(base, buffer, value); });
}

static std::string since(int seconds) {
    return written([&](char *buffer) { return vdef_nice_since(seconds, buffer); });
}

static std::string utime(time_t time, int format) {
    return written([&](char *buffer) { return vdef_nice_utime(time, buffer, format); });
}

static std::string dbdate(time_t time) {
    return written([&](char *buffer) { return vdef_nice_dbdate(time, buffer); });
}

TEST(VdefNiceByte, DividesOnlyWhatIsStrictlyGreaterThanTheBase) {
    EXPECT_EQ(byte_text(0), "0 bytes");
    EXPECT_EQ(byte_text(1), "1 bytes");
    EXPECT_EQ(byte_text(1024), "1024 bytes");
    EXPECT_EQ(byte_text(1025), "1.0 kB");
    EXPECT_EQ(byte_text(1048576), "1024.0 kB");
    EXPECT_EQ(byte_text(-5000), "-5000 bytes");
}

TEST(VdefNiceByte, GrowsInPrecisionWithTheUnit) {
    EXPECT_EQ(byte_text(1536), "1.5 kB");
    EXPECT_EQ(byte_text(1572864), "1.50 MB");
    EXPECT_EQ(byte_text(1610612736.0), "1.500 GB");
    double value = 1.5;
    const char *const units[] = {"kB", "MB", "GB", "TB", "PB", "EB", "ZB", "YB"};
    for (size_t i = 0; i < 8; i++) {
        value *= 1024;
        EXPECT_EQ(byte_text(value), "1.5" + std::string(i, '0') + " " + units[i]);
    }
}

TEST(VdefNiceByte, StaysInTheLastUnitForWhatIsLarger) {
    double value = 2;
    for (int i = 0; i < 10; i++) {
        value *= 1024;
    }
    EXPECT_EQ(byte_text(value), "2097152.00000000 YB");
    EXPECT_EQ(byte_text(std::numeric_limits<double>::infinity()), "inf YB");
    EXPECT_EQ(byte_text(std::numeric_limits<double>::max()).size(), 63u);
}

TEST(VdefNiceByteExt, TakesItsBase) {
    EXPECT_EQ(byte_text(1000, 1000), "1000 bytes");
    EXPECT_EQ(byte_text(1000, 1500), "1.5 kB");
    EXPECT_EQ(byte_text(1000, 2500000), "2.50 MB");
}

TEST(VdefNiceUtime, HasOneFormForEachFormatNumber) {
    const TimeZone zone("UTC0");
    const time_t time = 1704164645;  // 2024-01-02 03:04:05
    EXPECT_EQ(utime(time, 2), "03:04:05");
    EXPECT_EQ(utime(time, 4), "2.1.2024");
    EXPECT_EQ(utime(time, 5), "2. Jan 2024");
    EXPECT_EQ(utime(time, 6), "2.1.2024 03:04");
    EXPECT_EQ(utime(time, 7), "2. Jan 2024 03:04");
    for (const int format : {0, 1, 3, 8, -1}) {
        EXPECT_EQ(utime(time, format), "2024-01-02 03:04:05");
    }
}

TEST(VdefNiceUtime, NamesTheMonths) {
    const TimeZone zone("UTC0");
    const char *const names[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    for (int month = 0; month < 12; month++) {
        tm at = {};
        at.tm_year = 123;
        at.tm_mon = month;
        at.tm_mday = 15;
        EXPECT_EQ(utime(timegm(&at), 5), "15. " + std::string(names[month]) + " 2023");
        EXPECT_EQ(utime(timegm(&at), 4), "15." + std::to_string(month + 1) + ".2023");
    }
}

TEST(VdefNiceUtime, IsLocalTime) {
    const TimeZone zone("XXX-2");
    EXPECT_EQ(utime(0, 2), "02:00:00");
    EXPECT_EQ(dbdate(0), "1970-01-01 02:00:00");
}

TEST(VdefNiceUtime, IsEmptyBeyondTheCalendar) {
    const TimeZone zone("UTC0");
    // The year 2147483647, and the one after it, which the C library still breaks down.
    EXPECT_EQ(utime(67767976233532799, 4), "31.12.2147483647");
    EXPECT_EQ(utime(67767976233532800, 4), "");
    EXPECT_EQ(utime(std::numeric_limits<time_t>::max(), 5), "");
}

TEST(VdefNiceDbdate, HasNineteenCharacters) {
    const TimeZone zone("UTC0");
    EXPECT_EQ(dbdate(1704164645), "2024-01-02 03:04:05");
    EXPECT_EQ(dbdate(1704164645).size(), 19u);
}

TEST(VdefNiceSince, ChangesItsFormAtTheEdgesAndHasNoSingular) {
    EXPECT_EQ(since(-7), "-7 seconds");
    EXPECT_EQ(since(0), "0 seconds");
    EXPECT_EQ(since(1), "1 seconds");
    EXPECT_EQ(since(59), "59 seconds");
    EXPECT_EQ(since(60), "1 minutes, 0 seconds");
    EXPECT_EQ(since(3599), "59 minutes, 59 seconds");
    EXPECT_EQ(since(3600), "1 hours, 0 minutes");
    EXPECT_EQ(since(86399), "23 hours, 59 minutes");
    EXPECT_EQ(since(86400), "1 days, 0 hours");
    EXPECT_EQ(since(2 * 86400 + 5 * 3600 + 59), "2 days, 5 hours");
    EXPECT_EQ(since(std::numeric_limits<int>::max()), "24855 days, 3 hours");
}

TEST(Dbdate2time, ReadsADatabaseDate) {
    const TimeZone zone("UTC0");
    EXPECT_EQ(dbdate2time("2024-01-02 03:04:05"), 1704164645);
    EXPECT_EQ(dbdate2time("2024-01-02 03:04:05 and more"), 1704164645);
}

TEST(Dbdate2time, RefusesNullShortTextAndTextWithoutAYear) {
    EXPECT_EQ(dbdate2time(nullptr), -1);
    EXPECT_EQ(dbdate2time(""), -1);
    EXPECT_EQ(dbdate2time("2024-01-02"), -1);
    EXPECT_EQ(dbdate2time("2024-01-02 03:04:0"), -1);
    EXPECT_EQ(dbdate2time("no date at all, but long"), -1);
}

TEST(Dbdate2time, KeepsTheTimeOfNowForFieldsThatDoNotScan) {
    const TimeZone zone("UTC0");
    const time_t before = time(nullptr);
    const time_t parsed = dbdate2time("2024-01-02 unknown..");
    const time_t after = time(nullptr);
    const time_t midnight = 1704153600;  // 2024-01-02
    if (before / 86400 == after / 86400) {
        EXPECT_GE(parsed, midnight + before % 86400);
        EXPECT_LE(parsed, midnight + after % 86400);
    }
}

TEST(Dbdate2time, TakesTheMonthBeforeThisOneWhereItDoesNotScan) {
    const TimeZone zone("UTC0");
    const time_t before = time(nullptr);
    const time_t parsed = dbdate2time("2023 and nothing of a month");
    const time_t after = time(nullptr);
    const auto expected = [](time_t now) {
        tm at;
        gmtime_r(&now, &at);
        at.tm_year = 2023 - 1900;
        at.tm_mon -= 1;
        return timegm(&at);
    };
    EXPECT_GE(parsed, expected(before));
    EXPECT_LE(parsed, expected(after));
}

TEST(Dbdate2time, IsTheWayBackFromTheDatabaseDate) {
    for (const char *const name : {"UTC0", "XXX-5:30", "YYY8"}) {
        const TimeZone zone(name);
        for (const time_t time :
             std::initializer_list<time_t>{0, 951782399, 1704164645, 1709210096, 4102444799}) {
            EXPECT_EQ(dbdate2time(dbdate(time).c_str()), time) << name;
        }
    }
}
