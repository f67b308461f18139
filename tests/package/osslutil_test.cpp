#include "package/osslutil.h"

#include <gtest/gtest.h>
#include <openssl/err.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "kit/capture.h"
#include "kit/time_zone.h"
#include "package/ossl_own.h"

namespace {

time_t time_of(int type, const std::string &text) {
    ASN1_TIME *date = ASN1_STRING_type_new(type);
    ASN1_STRING_set(date, text.data(), static_cast<int>(text.size()));
    const time_t result = asn1_utc_time(date);
    ASN1_STRING_free(date);
    return result;
}

// Seconds since the epoch of a moment in UTC.
time_t moment(int year, int month, int day, int hour, int minute, int second) {
    struct tm parts = {};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    return timegm(&parts);
}

struct Parsed {
    bool made;
    std::string line;         // "/<type>=<value>" of each entry, the value as it stands
    int entries, sets;        // entries, and elements: a multi-valued one has several entries
    std::string diagnostics;  // what came on stderr
};

std::string line_of(const X509_NAME *name) {
    std::string line;
    for (int i = 0; i < X509_NAME_entry_count(name); ++i) {
        const X509_NAME_ENTRY *entry = X509_NAME_get_entry(name, i);
        const ASN1_STRING *value = X509_NAME_ENTRY_get_data(entry);
        const unsigned char *bytes = ASN1_STRING_get0_data(value);
        line += std::string("/") + OBJ_nid2sn(OBJ_obj2nid(X509_NAME_ENTRY_get_object(entry))) + '=';
        line.append(bytes, bytes + ASN1_STRING_length(value));
    }
    return line;
}

Parsed parse(const char *text, int multi_value = 0) {
    Parsed result{};
    result.diagnostics = stderr_of([&] {
        const own_x509_name name(x509_str2subj(text, MBSTRING_ASC, multi_value));
        if (!name)
            return;
        result.made = true;
        result.line = line_of(name.get());
        result.entries = X509_NAME_entry_count(name.get());
        if (result.entries > 0)
            result.sets =
                X509_NAME_ENTRY_set(X509_NAME_get_entry(name.get(), result.entries - 1)) + 1;
    });
    EXPECT_EQ(ERR_peek_error(), 0u);
    return result;
}

}  // namespace

TEST(Asn1UtcTime, ReadsUtcTimesOfBothCenturies) {
    const TimeZone zone("UTC0");
    EXPECT_EQ(time_of(V_ASN1_UTCTIME, "240229123456Z"), moment(2024, 2, 29, 12, 34, 56));
    EXPECT_EQ(time_of(V_ASN1_UTCTIME, "490101000000Z"), moment(2049, 1, 1, 0, 0, 0));
    EXPECT_EQ(time_of(V_ASN1_UTCTIME, "691231235959Z"), moment(2069, 12, 31, 23, 59, 59));
    EXPECT_EQ(time_of(V_ASN1_UTCTIME, "700101000000Z"), 0);
    EXPECT_EQ(time_of(V_ASN1_UTCTIME, "991231235959Z"), moment(1999, 12, 31, 23, 59, 59));
}

TEST(Asn1UtcTime, TakesLocalTimeOff) {
    for (const char *name : {"EAST-5:30", "WEST8"}) {
        const TimeZone zone(name);
        EXPECT_EQ(time_of(V_ASN1_UTCTIME, "240229123456Z"), moment(2024, 2, 29, 12, 34, 56));
    }
}

TEST(Asn1UtcTime, UsesTheOffsetOfThisMoment) {
    const TimeZone zone("STD0DST,M3.5.0,M10.5.0");
    for (const time_t date : {moment(2024, 1, 15, 12, 0, 0), moment(2024, 7, 15, 12, 0, 0)}) {
        struct tm local, utc;
        localtime_r(&date, &local);
        gmtime_r(&date, &utc);
        char text[16];
        strftime(text, sizeof text, "%Y%m%d%H%M%SZ", &utc);
        EXPECT_EQ(time_of(V_ASN1_UTCTIME, text + 2), date - local.tm_gmtoff + utc_offset());
    }
}

TEST(Asn1UtcTime, TakesAGeneralizedTimeForADateOfAntiquity) {
    const TimeZone zone("UTC0");
    // "2060 01 02 03 04 05" is read as 20-60-01 02:03:04, month 60 being four years and 11 months
    // on.
    EXPECT_EQ(time_of(V_ASN1_GENERALIZEDTIME, "20600102030405Z"), moment(24, 12, 1, 2, 3, 4));
    EXPECT_LT(time_of(V_ASN1_GENERALIZEDTIME, "99991231235959Z"), 0);
}

TEST(Asn1UtcTime, GivesNothingForShortTexts) {
    EXPECT_EQ(time_of(V_ASN1_UTCTIME, "2402291234Z"), 0);
    EXPECT_EQ(time_of(V_ASN1_UTCTIME, ""), 0);
    EXPECT_NE(time_of(V_ASN1_UTCTIME, "240229123456"), 0);
    EXPECT_EQ(asn1_utc_time(nullptr), 0);
}

TEST(UtcOffset, IsPositiveEastOfGreenwich) {
    {
        const TimeZone zone("UTC0");
        EXPECT_EQ(utc_offset(), 0);
    }
    {
        const TimeZone zone("EAST-5:30");
        EXPECT_EQ(utc_offset(), 19800);
    }
    {
        const TimeZone zone("WEST8");
        EXPECT_EQ(utc_offset(), -28800);
    }
}

TEST(X509Str2subj, MakesANameOfEachElementInOrder) {
    const Parsed name = parse("/C=AT/O=Test Org/OU=a/CN=Some One");
    EXPECT_TRUE(name.made);
    EXPECT_EQ(name.line, "/C=AT/O=Test Org/OU=a/CN=Some One");
    EXPECT_EQ(name.entries, 4);
    EXPECT_EQ(name.diagnostics, "");
    EXPECT_EQ(parse("/CN=b/O=a").line, "/CN=b/O=a");
    EXPECT_EQ(parse("/O=Test/").line, "/O=Test");
}

TEST(X509Str2subj, ASlashAloneIsAnEmptyName) {
    const Parsed name = parse("/");
    EXPECT_TRUE(name.made);
    EXPECT_EQ(name.entries, 0);
    EXPECT_EQ(name.diagnostics, "");
}

TEST(X509Str2subj, ABackslashTakesTheNextCharacterLiterally) {
    EXPECT_EQ(parse("/O=a\\/b\\\\c/CN=x").line, "/O=a/b\\c/CN=x");
    EXPECT_EQ(parse("/O=a\\/b\\\\c/CN=x").entries, 2);
    EXPECT_EQ(parse("/\\O=a").line, "/O=a");
    EXPECT_EQ(parse("/O=\\xC3").line, "/O=xC3");
}

TEST(X509Str2subj, APlusJoinsOnlyWithTheFlag) {
    const Parsed plain = parse("/O=a+CN=b/OU=c");
    EXPECT_EQ(plain.line, "/O=a+CN=b/OU=c");
    EXPECT_EQ(plain.entries, 2);
    EXPECT_EQ(plain.sets, 2);
    const Parsed joined = parse("/O=a+CN=b/OU=c", 1);
    EXPECT_EQ(joined.entries, 3);
    EXPECT_EQ(joined.sets, 2);
    EXPECT_EQ(parse("/O=a\\+CN", 1).line, "/O=a+CN");
}

TEST(X509Str2subj, RefusesATextWithoutLeadingSlash) {
    for (const char *text : {"O=Test", ""}) {
        const Parsed name = parse(text);
        EXPECT_FALSE(name.made);
        EXPECT_EQ(name.diagnostics, "Subject does not start with '/'.\n");
    }
}

TEST(X509Str2subj, RefusesABackslashAtTheEnd) {
    for (const char *text : {"/O=Test\\", "/O\\"}) {
        const Parsed name = parse(text);
        EXPECT_FALSE(name.made);
        EXPECT_EQ(name.diagnostics, "escape character at end of string\n");
    }
}

TEST(X509Str2subj, RefusesATextThatEndsWithinAType) {
    const Parsed first = parse("/O");
    EXPECT_FALSE(first.made);
    EXPECT_EQ(first.diagnostics,
              "end of string encountered while processing type of subject name element #0\n");
    EXPECT_EQ(parse("/O=a/b").diagnostics,
              "end of string encountered while processing type of subject name element #1\n");
}

TEST(X509Str2subj, LeavesOutElementsWithoutNidOrValue) {
    const Parsed unknown = parse("/O=a/bogusType=x/CN=b");
    EXPECT_EQ(unknown.line, "/O=a/CN=b");
    EXPECT_EQ(unknown.diagnostics, "Subject Attribute bogusType has no known NID, skipped\n");
    const Parsed empty = parse("/O=/CN=b");
    EXPECT_EQ(empty.line, "/CN=b");
    EXPECT_EQ(empty.diagnostics, "No value provided for Subject Attribute O, skipped\n");
}

TEST(X509Str2subj, FailsOnAValueThatDoesNotSuitItsType) {
    const Parsed name = parse("/O=a/C=three");  // a country has two letters
    EXPECT_FALSE(name.made);
    EXPECT_EQ(name.diagnostics, "");
}
