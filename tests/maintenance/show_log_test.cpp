#include "maintenance/show_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>

#include "kit/failing_memory.h"
#include "kit/failing_reads.h"
#include "kit/log_capture.h"
#include "kit/scripted_user.h"
#include "kit/temp_dir.h"
#include "kit/time_zone.h"
#include "repository/action_log.h"
#include "support/ldif.h"
#include "support/own.h"
#include "ui/vrmui.h"

namespace {

constexpr int newest_first = 0, oldest_first = 1;
constexpr unsigned text = 1, ldif = 2, csv = 4, raw = 7;

constexpr char history[] =
    "2024-01-02 03:04:05: installed foo_i686_1.0 as requested by user\n"
    "torn\n"
    "2024-01-03 03:04:05: updated foo_i686_1.0 to foo_small_x86_64_1.1 as dependency of bar\n"
    "2024-01-04 03:04:05: deleted foo_small_x86_64_1.1 as unwanted by user\n";

// The first two entries, which the tests of the program expect too. Each ends with an empty line.
const std::string history_as_text =
    read_all(VRM_SOURCE_DIR "/tests/maintenance/reports/history.text");
const std::string first_as_text = history_as_text.substr(0, history_as_text.find("\n\n") + 2);
const std::string third_as_text = history_as_text.substr(first_as_text.size());
constexpr char fourth_as_text[] = R"(Date          : 2024-01-04 03:04:05
Action        : remove
Package       : foo
Variant       : small
Version       : 1.1
Architecture  : x86_64
Reason        : 

)";

constexpr char csv_head[] =
    "evrkLogLine;evrkLogDate;evrkLogTime;evrkLogAction;evrkLogPkgName;evrkLogPkgVariant;"
    "evrkLogPkgVersion;evrkLogPkgArchitecture;evrkLogNewPkgVariant;evrkLogNewPkgVersion;"
    "evrkLogReason;evrkLogDependent\n";
constexpr char first_as_csv[] = "1;2024-01-02 03:04:05;1704164645;install;foo;;1.0;i686;;;user;\n";
constexpr char third_as_csv[] =
    "3;2024-01-03 03:04:05;1704251045;update;foo;;1.0;i686;small;1.1;dependency;bar\n";
constexpr char fourth_as_csv[] =
    "4;2024-01-04 03:04:05;1704337445;remove;foo;small;1.1;x86_64;;;;\n";

std::string entry(const std::string &number, const std::string &rest) {
    return "dn: evrkLogLine=" + number + "," + dn_suffix + "\nevrkLogLine: " + number +
           "\nobjectClass: evrkLog\n" + rest + "\n";
}
const std::string first_as_ldif = entry("1", R"(evrkLogDate: 2024-01-02 03:04:05
evrkLogTime: 1704164645
evrkLogAction: install
evrkLogPkgUid: foo_i686_1.0
evrkLogPkgName: foo
evrkLogPkgVersion: 1.0
evrkLogPkgArchitecture: i686
evrkLogReason: user
)");
const std::string third_as_ldif = entry("3", R"(evrkLogDate: 2024-01-03 03:04:05
evrkLogTime: 1704251045
evrkLogAction: update
evrkLogPkgUid: foo_i686_1.0
evrkLogPkgName: foo
evrkLogPkgVersion: 1.0
evrkLogPkgArchitecture: i686
evrkLogNewPkgUid: foo_small_x86_64_1.1
evrkLogNewPkgVariant: small
evrkLogNewPkgVersion: 1.1
evrkLogReason: dependency
evrkLogDependent: bar
)");
const std::string fourth_as_ldif = entry("4", R"(evrkLogDate: 2024-01-04 03:04:05
evrkLogTime: 1704337445
evrkLogAction: remove
evrkLogPkgUid: foo_small_x86_64_1.1
evrkLogPkgName: foo
evrkLogPkgVariant: small
evrkLogPkgVersion: 1.1
evrkLogPkgArchitecture: x86_64
)");

class ShowLog : public testing::Test {
 protected:
    ShowLog() : user_(ScriptedUser::fresh()), path_(dir_.write("history", history)) {
        setenv("VRM_SHOWLOG_DEBUG_LOGFILE", path_.c_str(), 1);
    }
    ~ShowLog() override {
        unsetenv("VRM_SHOWLOG_DEBUG_LOGFILE");
    }
    // The one text that is shown.
    std::string shown(unsigned format, int order, int lines = 4) {
        user_.messages.clear();
        EXPECT_EQ(vrm_showlog(nullptr, format, order), lines);
        EXPECT_EQ(user_.messages.size(), 1U);
        return user_.messages.empty() ? "" : user_.messages[0];
    }
    void write(const std::string &content) {
        dir_.write("history", content);
    }
    TimeZone zone_ = TimeZone("UTC0");
    ScriptedUser &user_;
    TempDir dir_;
    std::string path_;
    LogCapture log_;
};

}  // namespace

TEST_F(ShowLog, TextOldestFirst) {
    EXPECT_EQ(shown(text, oldest_first),
              std::string(first_as_text) + third_as_text + fourth_as_text);
}

TEST_F(ShowLog, TextNewestFirst) {
    EXPECT_EQ(shown(text, newest_first),
              std::string(fourth_as_text) + third_as_text + first_as_text);
}

TEST_F(ShowLog, LdifOldestFirst) {
    EXPECT_EQ(shown(ldif, oldest_first), first_as_ldif + third_as_ldif + fourth_as_ldif);
}

TEST_F(ShowLog, LdifNewestFirst) {
    EXPECT_EQ(shown(ldif, newest_first), fourth_as_ldif + third_as_ldif + first_as_ldif);
}

TEST_F(ShowLog, LdifIsReadBack) {
    s_ekva ***list = nullptr;
    const std::string all = shown(ldif, oldest_first);
    EXPECT_EQ(ldif2ekva_list(&list, all.c_str(), "evrkLog"), 3);
    const own_ekva_list owner(list);
    EXPECT_STREQ(ekva_getval(list[1], "evrkLogLine"), "3");
}

TEST_F(ShowLog, CsvOldestFirst) {
    EXPECT_EQ(shown(csv, oldest_first),
              std::string(csv_head) + first_as_csv + third_as_csv + fourth_as_csv);
}

TEST_F(ShowLog, CsvNewestFirstHasItsHeadFirst) {
    EXPECT_EQ(shown(csv, newest_first),
              std::string(csv_head) + fourth_as_csv + third_as_csv + first_as_csv);
}

TEST_F(ShowLog, RawOldestFirst) {
    EXPECT_EQ(shown(raw, oldest_first), history);
    EXPECT_TRUE(log_.at(LEVEL_ERROR).empty());
}

TEST_F(ShowLog, RawNewestFirst) {
    EXPECT_EQ(shown(raw, newest_first),
              "2024-01-04 03:04:05: deleted foo_small_x86_64_1.1 as unwanted by user\n"
              "2024-01-03 03:04:05: updated foo_i686_1.0 to foo_small_x86_64_1.1 as dependency of "
              "bar\n"
              "torn\n"
              "2024-01-02 03:04:05: installed foo_i686_1.0 as requested by user\n");
}

TEST_F(ShowLog, OtherFormatsReadAndPrintNothing) {
    for (const unsigned format : {0U, 3U, 5U, 6U, 8U, 4000000000U}) {
        log_.clear();
        EXPECT_EQ(shown(format, oldest_first), "");
        EXPECT_TRUE(log_.has(LEVEL_ERROR, "skipping invalid line 2: <torn>")) << format;
    }
}

TEST_F(ShowLog, EveryOrderButOneIsNewestFirst) {
    for (const int order : {0, 2, -1}) {
        EXPECT_EQ(shown(csv, order),
                  std::string(csv_head) + fourth_as_csv + third_as_csv + first_as_csv);
    }
}

TEST_F(ShowLog, FileAndSkippedLinesAreLogged) {
    shown(text, newest_first);
    EXPECT_EQ(log_.at(LEVEL_INFO), std::vector<std::string>{"log file <" + path_ + ">"});
    EXPECT_TRUE(log_.has_line_end(LEVEL_INFO, "log file <" + path_ + ">"));
    EXPECT_EQ(log_.at(LEVEL_ERROR), std::vector<std::string>{"skipping invalid line 2: <torn>"});
    EXPECT_TRUE(log_.has_line_end(LEVEL_ERROR, "skipping invalid line 2: <torn>"));
    EXPECT_EQ(log_.at(LEVEL_WARNING),
              std::vector<std::string>{"vrm_parse_log: line <torn> has only 1 parts skipping"});
}

TEST_F(ShowLog, EmptyLinesAreSkippedAndCounted) {
    write("\n" + std::string(history) + "\n");
    EXPECT_EQ(shown(csv, oldest_first, 6).substr(0, sizeof csv_head), std::string(csv_head) + "2");
    EXPECT_TRUE(log_.has(LEVEL_ERROR, "skipping invalid line 1: <>"));
    EXPECT_TRUE(log_.has(LEVEL_ERROR, "skipping invalid line 6: <>"));
}

TEST_F(ShowLog, MissingAndEmptyFilesAreTheSame) {
    const std::string none = dir_ / "none";
    const std::string empty = dir_.write("empty", "");
    for (const std::string &path : {none, empty, dir_.path()}) {
        log_.clear();
        setenv("VRM_SHOWLOG_DEBUG_LOGFILE", path.c_str(), 1);
        EXPECT_EQ(vrm_showlog(nullptr, csv, oldest_first), 0);
        EXPECT_TRUE(log_.has(LEVEL_ERROR, "failure reading log file <" + path + ">"));
        EXPECT_TRUE(log_.has_line_end(LEVEL_ERROR, "failure reading log file <" + path + ">"));
        EXPECT_TRUE(user_.messages.empty());
    }
}

TEST_F(ShowLog, ReasonOfAFailureIsInErrno) {
    const auto reason = [this](const std::string &path) {
        setenv("VRM_SHOWLOG_DEBUG_LOGFILE", path.c_str(), 1);
        errno = EBUSY;
        EXPECT_EQ(vrm_showlog(nullptr, raw, oldest_first), 0);
        EXPECT_TRUE(log_.has(LEVEL_ERROR, "failure reading log file <" + path + ">"));
        log_.clear();
        return errno;
    };
    EXPECT_EQ(reason(dir_.write("empty", "")), 0);
    EXPECT_EQ(reason(dir_ / "none"), ENOENT);
    {
        const FailingStream failing(100);
        EXPECT_EQ(reason(path_), EIO);
    }
    strdups_left = 3;
    EXPECT_EQ(reason(path_), ENOMEM);
    strdups_left = -1;
    EXPECT_TRUE(user_.messages.empty());
}

TEST_F(ShowLog, EachShortageOfMemoryIsLogged) {
    for (const unsigned format : {text, ldif, csv}) {
        const std::string whole = shown(format, oldest_first);
        int copies = 4;  // those of the file's lines
        for (; copies < 1000; copies++) {
            log_.clear();
            strdups_left = copies;
            const std::string seen = shown(format, oldest_first);
            strdups_left = -1;
            if (log_.at(LEVEL_ERROR) ==
                std::vector<std::string>{"skipping invalid line 2: <torn>"}) {
                EXPECT_EQ(seen, whole) << copies;
                break;
            }
            EXPECT_NE(seen, whole) << copies;
        }
        EXPECT_GT(copies, 50);
        EXPECT_LT(copies, 1000);
    }
}

TEST_F(ShowLog, CutTextIsLogged) {
    vrmui_line_new(vrmui, "");
    const own_ekva record(
        vrm_parse_log("2024-01-02 03:04:05: installed foo_i686_1.0 as requested by user"));
    growing_fails = true;
    for (int i = 0; i < 1500; i++) {
        vrm_showlogline("1", record.get(), csv);
    }
    growing_fails = false;
    EXPECT_EQ(strlen(vrmui->text), 65536U);
    EXPECT_EQ(log_.at(LEVEL_ERROR),
              std::vector<std::string>{
                  "vrmui_line_add: there is no room for all of the text, it is cut"});
}

TEST_F(ShowLog, FileIsTheSystemsOwnWithoutTheVariable) {
    unsetenv("VRM_SHOWLOG_DEBUG_LOGFILE");
    vrm_showlog(nullptr, 0, oldest_first);
    EXPECT_EQ(log_.at(LEVEL_INFO), std::vector<std::string>{"log file </var/lib/vrm/install.log>"});
}

TEST_F(ShowLog, WhatWasCollectedBeforeIsNotShown) {
    vrmui_say("before\n");
    EXPECT_EQ(shown(raw, oldest_first), history);
    EXPECT_EQ(shown(raw, oldest_first), history);
}

TEST_F(ShowLog, WithoutAUserNothingIsShownAndTheLinesAreCounted) {
    vrmui_object *const before = vrmui;
    vrmui = nullptr;
    for (const unsigned format : {text, ldif, csv, raw}) {
        EXPECT_EQ(vrm_showlog(nullptr, format, oldest_first), 4);
    }
    vrmui = before;
    EXPECT_TRUE(user_.messages.empty());
}

TEST_F(ShowLog, TenThousandDamagedLinesHideNothingOfTheRest) {
    std::string content, expected = csv_head;
    for (int i = 0; i < 10000; i++) {
        content += std::string("2024-01-02 03:0") + static_cast<char>('!' + i % 90) + "\n";
        if (i % 1000 == 999) {
            content += "2024-01-02 03:04:05: installed foo_i686_1.0 as requested by user\n";
            expected += std::to_string(i + 1 + (i + 1) / 1000) +
                        ";2024-01-02 03:04:05;1704164645;install;foo;;1.0;i686;;;user;\n";
        }
    }
    write(content);
    EXPECT_EQ(shown(csv, oldest_first, 10010), expected);
    EXPECT_EQ(log_.at(LEVEL_ERROR).size(), 10000U);
    EXPECT_EQ(log_.at(LEVEL_ERROR).front(), "skipping invalid line 1: <2024-01-02 03:0!>");
}

TEST_F(ShowLog, HostileLinesDoNoHarm) {
    const std::string line = "2024-01-02 03:04:05: installed ";
    write(std::string("\0\x01\xff%s%n\n", 8) + line + "\x80\"_any_%n as d ; \"x;\n" + line +
          std::string(70000, 'n') + "_any_1 as requested by user\n" + line + "a_b_c_d_1 as d of\n" +
          line + "a_b_c_d_e_1 as dependency of x\n");
    for (const unsigned format : {text, ldif, csv, raw}) {
        for (const int order : {newest_first, oldest_first}) {
            EXPECT_NE(shown(format, order, 5), "");
        }
    }
}

TEST_F(ShowLog, MissingArchitectureIsEmpty) {
    write("2024-01-02 03:04:05: installed a_b_c_d_e_1 as requested by user\n\n");
    EXPECT_EQ(shown(text, oldest_first, 2),
              "Date          : 2024-01-02 03:04:05\nAction        : install\n"
              "Package       : a\nVersion       : 1\nArchitecture  : \nReason        : user\n\n");
    EXPECT_EQ(shown(csv, oldest_first, 2),
              std::string(csv_head) + "1;2024-01-02 03:04:05;1704164645;install;a;;1;;;;user;\n");
}

TEST_F(ShowLog, SingleLineHasAnEmptyOneBehindIt) {
    // The reader of lines takes a line to be shorter than its file.
    const std::string line = "2024-01-02 03:04:05: installed foo_i686_1.0 as requested by user\n";
    write(line);
    EXPECT_EQ(shown(text, newest_first, 2), first_as_text);
    EXPECT_TRUE(log_.has(LEVEL_ERROR, "skipping invalid line 2: <>"));
    EXPECT_EQ(shown(raw, oldest_first, 2), line + "\n");
}

TEST_F(ShowLog, TextLongerThanTheObjectsIsShownWhole) {
    std::string content;
    for (int i = 0; i < 5000; i++) {
        content += "2024-01-02 03:04:05: installed foo_i686_1.0 as requested by user\n";
    }
    write(content);
    EXPECT_EQ(shown(raw, newest_first, 5000), content);
    EXPECT_GT(textmax, 65536);
}

TEST_F(ShowLog, OneLineIsAddedToTheText) {
    vrmui_line_new(vrmui, "before\n");
    const own_ekva record(
        vrm_parse_log("2024-01-02 03:04:05: installed foo_i686_1.0 as requested by user"));
    EXPECT_EQ(vrm_showlogline("17", record.get(), csv), 0);
    EXPECT_STREQ(vrmui->text,
                 "before\n17;2024-01-02 03:04:05;1704164645;install;foo;;1.0;i686;;;user;\n");
    EXPECT_EQ(vrm_showlogline("17", record.get(), raw), 0);
    EXPECT_EQ(vrm_showlogline("17", record.get(), 3), 0);
    vrmui_line_new(vrmui, "");
    EXPECT_EQ(vrm_showlogline("17", nullptr, ldif), 0);
    EXPECT_STREQ(vrmui->text, (std::string("dn: evrkLogLine=17,") + dn_suffix +
                               "\nevrkLogLine: 17\nobjectClass: evrkLog\n")
                                  .c_str());
    vrmui_line_new(vrmui, "");
    EXPECT_EQ(vrm_showlogline("", nullptr, csv), 0);
    EXPECT_STREQ(vrmui->text, csv_head);
    EXPECT_TRUE(user_.messages.empty());
}

TEST_F(ShowLog, CsvIsTracedAtDebug) {
    const own_ekva record(vrm_parse_log(
        "2024-01-03 03:04:05: updated foo_i686_1.0 to foo_small_x86_64_1.1 as dependency of b;r"));
    log_.clear();
    vrm_showlogline("3", record.get(), csv);
    const std::string traced =
        "vrm_showlogline: csv_line: "
        "<3;2024-01-03 03:04:05;1704251045;update;foo;;1.0;i686;small;1.1;dependency;\"b;r\">";
    EXPECT_EQ(
        log_.at(LEVEL_DEBUG),
        (std::vector<std::string>{
            "vrm_showlogline: before arr2csv, num=12", "vrm_showlogline: csv_arr[0]: <3>",
            "vrm_showlogline: csv_arr[1]: <2024-01-03 03:04:05>",
            "vrm_showlogline: csv_arr[2]: <1704251045>", "vrm_showlogline: csv_arr[3]: <update>",
            "vrm_showlogline: csv_arr[4]: <foo>", "vrm_showlogline: csv_arr[5]: <>",
            "vrm_showlogline: csv_arr[6]: <1.0>", "vrm_showlogline: csv_arr[7]: <i686>",
            "vrm_showlogline: csv_arr[8]: <small>", "vrm_showlogline: csv_arr[9]: <1.1>",
            "vrm_showlogline: csv_arr[10]: <dependency>", "vrm_showlogline: csv_arr[11]: <b;r>",
            traced}));
    EXPECT_TRUE(log_.has_line_end(LEVEL_DEBUG, "vrm_showlogline: before arr2csv, num=12"));
}

TEST_F(ShowLog, LineWithoutMemoryIsLeftOut) {
    strdups_left = 0;
    EXPECT_EQ(vrm_showlogline("", nullptr, csv), 0);
    strdups_left = -1;
    EXPECT_STREQ(vrmui->text, "");
    EXPECT_EQ(log_.at(LEVEL_ERROR), std::vector<std::string>{"vrm_showlogline: csv_line is empty"});
    EXPECT_TRUE(log_.has_line_end(LEVEL_ERROR, "vrm_showlogline: csv_line is empty"));
}
