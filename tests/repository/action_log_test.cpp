// The reader of the history; the writer is tested in the throwaway root.
#include "repository/action_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "kit/failing_memory.h"
#include "kit/log_capture.h"
#include "kit/time_zone.h"
#include "support/own.h"

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

class ParseLog : public testing::Test {
 protected:
    static Pairs pairs_of(const std::string &line) {
        const own_ekva rec(vrm_parse_log(line.c_str()));
        Pairs pairs;
        for (s_ekva **pair = rec.get(); pair && *pair; pair++) {
            pairs.emplace_back((*pair)->key, (*pair)->val ? (*pair)->val : "(null)");
        }
        return pairs;
    }
    static std::string value_of(const std::string &line, const char *key) {
        const own_ekva rec(vrm_parse_log(line.c_str()));
        const char *value = ekva_getval(rec.get(), key);
        return value ? value : "(none)";
    }
    // That the line gives nothing, with this as the only message above DEBUG.
    void expect_refused(const std::string &line, const char *level, const std::string &message) {
        log_.clear();
        EXPECT_EQ(pairs_of(line), Pairs());
        std::vector<LogCapture::Line> told;
        for (const LogCapture::Line &one : log_.lines()) {
            if (one.level != "DEBUG") {
                told.push_back(one);
            }
        }
        EXPECT_EQ(told, (std::vector<LogCapture::Line>{{level, message}})) << line;
    }
    TimeZone zone_ = TimeZone("UTC0");
    LogCapture log_;
};

}  // namespace

TEST_F(ParseLog, InstallByTheUser) {
    EXPECT_EQ(pairs_of("2024-01-02 03:04:05: installed foo_i686_1.0 as requested by user"),
              (Pairs{{"#EKVA_10:30:4", "(null)"},
                     {"evrkLogDate", "2024-01-02 03:04:05"},
                     {"evrkLogTime", "1704164645"},
                     {"evrkLogAction", "install"},
                     {"evrkLogPkgUid", "foo_i686_1.0"},
                     {"evrkLogPkgName", "foo"},
                     {"evrkLogPkgVersion", "1.0"},
                     {"evrkLogPkgArchitecture", "i686"},
                     {"evrkLogReason", "user"}}));
}

TEST_F(ParseLog, DeletionAsADependency) {
    EXPECT_EQ(pairs_of("2024-01-02 03:04:05: deleted foo_small_x86_64_1.0 as dependency of bar"),
              (Pairs{{"#EKVA_10:30:4", "(null)"},
                     {"evrkLogDate", "2024-01-02 03:04:05"},
                     {"evrkLogTime", "1704164645"},
                     {"evrkLogAction", "remove"},
                     {"evrkLogPkgUid", "foo_small_x86_64_1.0"},
                     {"evrkLogPkgName", "foo"},
                     {"evrkLogPkgVariant", "small"},
                     {"evrkLogPkgVersion", "1.0"},
                     {"evrkLogPkgArchitecture", "x86_64"},
                     {"evrkLogReason", "dependency"},
                     {"evrkLogDependent", "bar"}}));
}

TEST_F(ParseLog, UpdateAsADependency) {
    EXPECT_EQ(pairs_of("2024-01-02 03:04:05: updated foo_small_i686_1.0 to foo_big_mips_1.1 as "
                       "dependency of bar"),
              (Pairs{{"#EKVA_10:30:4", "(null)"},
                     {"evrkLogDate", "2024-01-02 03:04:05"},
                     {"evrkLogTime", "1704164645"},
                     {"evrkLogAction", "update"},
                     {"evrkLogPkgUid", "foo_small_i686_1.0"},
                     {"evrkLogPkgName", "foo"},
                     {"evrkLogPkgVariant", "small"},
                     {"evrkLogPkgVersion", "1.0"},
                     {"evrkLogPkgArchitecture", "i686"},
                     {"evrkLogNewPkgUid", "foo_big_mips_1.1"},
                     {"evrkLogNewPkgVariant", "big"},
                     {"evrkLogNewPkgVersion", "1.1"},
                     {"evrkLogReason", "dependency"},
                     {"evrkLogDependent", "bar"}}));
}

TEST_F(ParseLog, UpdateByTheUserOfDefaultVariants) {
    EXPECT_EQ(pairs_of("2024-01-02 03:04:05: updated foo_any_1.0 to foo_any_1.1 as requested by "
                       "user"),
              (Pairs{{"#EKVA_10:30:4", "(null)"},
                     {"evrkLogDate", "2024-01-02 03:04:05"},
                     {"evrkLogTime", "1704164645"},
                     {"evrkLogAction", "update"},
                     {"evrkLogPkgUid", "foo_any_1.0"},
                     {"evrkLogPkgName", "foo"},
                     {"evrkLogPkgVersion", "1.0"},
                     {"evrkLogPkgArchitecture", "any"},
                     {"evrkLogNewPkgUid", "foo_any_1.1"},
                     {"evrkLogNewPkgVersion", "1.1"},
                     {"evrkLogReason", "user"}}));
}

TEST_F(ParseLog, TimeIsLocal) {
    const TimeZone zone("XYZ-5:30");
    EXPECT_EQ(
        value_of("2024-01-02 03:04:05: installed a_any_1 as requested by user", "evrkLogTime"),
        "1704144845");
}

TEST_F(ParseLog, StepsAreTracedAtDebug) {
    const std::string line = "2024-01-02 03:04:05: installed foo_i686_1.0 as requested by user";
    pairs_of(line);
    EXPECT_EQ(log_.at(LEVEL_DEBUG),
              (std::vector<std::string>{"vrm_parse_log: line <" + line + "> has 8 parts",
                                        "vrm_parse_log: 2024-01-02 03:04:05 is 1704164645"}));
}

TEST_F(ParseLog, NullIsNull) {
    EXPECT_EQ(vrm_parse_log(nullptr), nullptr);
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(ParseLog, LineWithoutAWordIsAnError) {
    expect_refused("", "ERROR", "vrm_parse_log: failure parsing line <>");
    expect_refused("   ", "ERROR", "vrm_parse_log: failure parsing line <   >");
}

TEST_F(ParseLog, SevenWordsAreTooFew) {
    const std::string line = "2024-01-02 03:04:05: installed foo_i686_1.0 as requested by";
    expect_refused(line, "WARNING", "vrm_parse_log: line <" + line + "> has only 7 parts skipping");
}

TEST_F(ParseLog, BlanksInARowCountAsOne) {
    EXPECT_EQ(value_of("  2024-01-02  03:04:05: installed  a_any_1 as requested by user ",
                       "evrkLogPkgUid"),
              "a_any_1");
}

TEST_F(ParseLog, UpdateTornBehindItsReasonIsLetThrough) {
    const Pairs pairs =
        pairs_of("2024-01-02 03:04:05: updated foo_any_1.0 to foo_any_1.1 as requested");
    ASSERT_FALSE(pairs.empty());
    EXPECT_EQ(pairs.back(), (std::pair<std::string, std::string>("evrkLogReason", "user")));
}

TEST_F(ParseLog, UpdateTornAheadOfItsHeadHasNone) {
    for (const char *end : {"", " of"}) {
        const std::string line =
            std::string("2024-01-02 03:04:05: updated a_any_1 to a_any_2 as dependency") + end;
        EXPECT_EQ(value_of(line, "evrkLogReason"), "dependency");
        EXPECT_EQ(value_of(line, "evrkLogDependent"), "(none)");
    }
}

TEST_F(ParseLog, OfTheActionOnlyTheFirstLetterCounts) {
    for (const auto &[word, action] : Pairs{
             {"i", "install"}, {"inspected", "install"}, {"d", "remove"}, {"dropped", "remove"}}) {
        EXPECT_EQ(value_of("2024-01-02 03:04:05: " + word + " a_any_1 as requested by user",
                           "evrkLogAction"),
                  action);
    }
    EXPECT_EQ(value_of("2024-01-02 03:04:05: u a_any_1 - a_any_2 - r - -", "evrkLogAction"),
              "update");
}

TEST_F(ParseLog, UnknownActionIsAnError) {
    expect_refused("2024-01-02 03:04:05: xnstalled a_any_1 as requested by user", "ERROR",
                   "vrm_parse_log: invalid action: x");
    expect_refused("2024-01-02 03:04:05: Installed a_any_1 as requested by user", "ERROR",
                   "vrm_parse_log: invalid action: I");
    expect_refused("a b xyz d e f g h", "ERROR", "vrm_parse_log: invalid action: x");
}

TEST_F(ParseLog, DateOfAnotherLengthIsAnError) {
    expect_refused("2024-1-02 03:04:05: installed a_any_1 as requested by user", "ERROR",
                   "vrm_parse_log: invalid date: 2024-1-02 03:04:05:");
    expect_refused("2024-01-02 03:04:05 installed a_any_1 as requested by user", "ERROR",
                   "vrm_parse_log: invalid date: 2024-01-02 03:04:05");
    expect_refused("2024-01-02 03:04:05:: installed a_any_1 as requested by user", "ERROR",
                   "vrm_parse_log: invalid date: 2024-01-02 03:04:05::");
}

TEST_F(ParseLog, ColonIsCutUnseen) {
    EXPECT_EQ(
        value_of("2024-01-02 03:04:05x installed a_any_1 as requested by user", "evrkLogDate"),
        "2024-01-02 03:04:05");
}

TEST_F(ParseLog, DateWithoutAFieldIsAnError) {
    expect_refused("xxxx-01-02 03:04:05: installed a_any_1 as requested by user", "ERROR",
                   "vrm_parse_log: falure parsing date: xxxx-01-02 03:04:05");
}

TEST_F(ParseLog, FieldsThatDoNotScanAreTodays) {
    // The month moves by one also then.
    time_t before, after;
    std::string seconds;
    tm today;
    do {
        before = time(nullptr);
        gmtime_r(&before, &today);
        seconds =
            value_of("2024/01/02 03:04:05: installed a_any_1 as requested by user", "evrkLogTime");
        after = time(nullptr);
    } while (before != after);
    today.tm_year = 2024 - 1900;
    today.tm_mon -= 1;
    EXPECT_EQ(seconds, std::to_string(timegm(&today)));
}

TEST_F(ParseLog, SecondBeforeTheEpochIsATime) {
    EXPECT_EQ(
        value_of("1969-12-31 23:59:59: installed a_any_1 as requested by user", "evrkLogTime"),
        "-1");
}

TEST_F(ParseLog, PackageThatMakesNoSenseGivesNothing) {
    EXPECT_EQ(pairs_of("2024-01-02 03:04:05: installed a_vax_1 as requested by user"), Pairs());
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "vrm_parse_log: error parsing PkgUid <a_vax_1>"));
    EXPECT_TRUE(log_.at(LEVEL_ERROR).empty());
}

TEST_F(ParseLog, UpdateToAPackageThatMakesNoSenseGivesNothing) {
    EXPECT_EQ(pairs_of("2024-01-02 03:04:05: updated a_any_1 to a_vax_2 as requested by user"),
              Pairs());
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "vrm_parse_log: error parsing PkgUid <a_vax_2>"));
    log_.clear();
    EXPECT_EQ(pairs_of("2024-01-02 03:04:05: updated a_vax_1 to a_any_2 as requested by user"),
              Pairs());
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "vrm_parse_log: error parsing PkgUid <a_vax_1>"));
}

TEST_F(ParseLog, PackageOfUnknownArchitectureHasANullOne) {
    const own_ekva rec(
        vrm_parse_log("2024-01-02 03:04:05: installed a_b_c_d_e_1 as requested by user"));
    EXPECT_STREQ(ekva_getval(rec.get(), "evrkLogPkgVersion"), "1");
    EXPECT_EQ(ekva_cntval(rec.get(), "evrkLogPkgArchitecture"), 1);
    EXPECT_EQ(ekva_getval(rec.get(), "evrkLogPkgArchitecture"), nullptr);
}

TEST_F(ParseLog, BlankInAPackageShiftsTheWords) {
    // The reason is looked for at a word that is none: the record has no reason.
    EXPECT_EQ(
        value_of("2024-01-02 03:04:05: installed a_any_1 x as requested by user", "evrkLogReason"),
        "(none)");
    EXPECT_EQ(value_of("2024-01-02 03:04:05: installed a_any_1 x as requested by user",
                       "evrkLogPkgVersion"),
              "1");
    EXPECT_EQ(pairs_of("2024-01-02 03:04:05: installed foo bar_any_1 as requested by user"),
              Pairs());
}

TEST_F(ParseLog, UnknownReasonIsNone) {
    const own_ekva rec(vrm_parse_log("2024-01-02 03:04:05: installed a_any_1 as wanted by user"));
    EXPECT_NE(rec, nullptr);
    EXPECT_EQ(ekva_cntval(rec.get(), "evrkLogReason"), 0);
    EXPECT_EQ(ekva_cntval(rec.get(), "evrkLogDependent"), 0);
}

TEST_F(ParseLog, HostileLinesDoNoHarm) {
    const std::string head = "2024-01-02 03:04:05: ";
    std::string words = head;
    for (int i = 0; i < 3000; i++) {
        words += "d ";
    }
    for (const std::string &line :
         {words, std::string(100000, 'x'),
          head + "installed " + std::string(100000, '_') + " a d c d",
          head + "installed %s%n_any_%n as d %n %s", std::string("\x80\xff\x01 ") + head + "u u u",
          std::string("99999999999 99999999: u _any_ x _any_ x d x x"),
          std::string("-999-99-99 99:99:99: i _any_ x r x x"),
          std::string("9999-99-99 99:99:99: i _any_ x r x x")}) {
        const own_ekva rec(vrm_parse_log(line.c_str()));
    }
}

TEST_F(ParseLog, GivesAWholeRecordOrNoneWhenMemoryFails) {
    const std::string line =
        "2024-01-02 03:04:05: updated foo:x_i686_1.0 to foo:x_i686_1.1 as dependency of bar";
    const Pairs whole = pairs_of(line);
    ASSERT_FALSE(whole.empty());
    int copies = 0;
    for (; copies < 1000; copies++) {
        strdups_left = copies;
        const own_ekva rec(vrm_parse_log(line.c_str()));
        strdups_left = -1;
        if (rec) {
            EXPECT_EQ(static_cast<size_t>(ekva_nument(rec.get())) + 1, whole.size()) << copies;
            break;
        }
    }
    EXPECT_GT(copies, 10);
    EXPECT_LT(copies, 1000);
}
