#include "support/log.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "kit/temp_dir.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

// What the process sends to syslog lands here in place of the machine's journal.
static std::vector<std::string> syslog_lines;
static std::vector<int> syslog_priorities;
static std::string syslog_ident;
static int syslog_option, syslog_facility;

[[gnu::format(printf, 2, 0)]] static void keep_syslog_line(int priority, const char *format,
                                                           va_list arguments) {
    char line[4096];
    vsnprintf(line, sizeof(line), format, arguments);
    syslog_lines.push_back(line);
    syslog_priorities.push_back(priority);
}

extern "C" {
void syslog(int priority, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    keep_syslog_line(priority, format, arguments);
    va_end(arguments);
}

// The name under which a hardened build calls it.
[[gnu::format(printf, 3, 4)]] void __syslog_chk(int priority, int, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    keep_syslog_line(priority, format, arguments);
    va_end(arguments);
}

void openlog(const char *ident, int option, int facility) {
    syslog_ident = ident;
    syslog_option = option;
    syslog_facility = facility;
}
}

namespace {

// The objects live as long as the process by design; the tests give them back.
struct log_release {
    void operator()(log_object *log) const {
        std::free(log);
    }
};
using own_log = std::unique_ptr<log_object, log_release>;

class Log : public testing::Test {
 public:
    Log() {
        syslog_lines.clear();
        syslog_priorities.clear();
        syslog_ident.clear();
    }
    ~Log() override {
        llog = nullptr;
    }

    own_log start(uint32_t file_levels, uint32_t syslog_levels, uint32_t stderr_levels) {
        return own_log(log_init(path.c_str(), file_levels, syslog_levels, stderr_levels, nullptr));
    }

    // A log with its file, started, and the lines of the start taken away.
    own_log quiet(uint32_t file_levels, uint32_t syslog_levels, uint32_t stderr_levels) {
        own_log log = start(file_levels, syslog_levels, stderr_levels);
        std::filesystem::resize_file(path, 0);
        return log;
    }

    template <typename Code>
    std::string told(Code code) {
        testing::internal::CaptureStderr();
        code();
        return testing::internal::GetCapturedStderr();
    }

    // The file's lines with the time stamps, once tested, replaced by "T".
    std::vector<std::string> file_lines() const {
        static const std::regex stamp("^[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} ");
        std::vector<std::string> lines;
        std::string text = read_all(path);
        for (size_t end; (end = text.find('\n')) != std::string::npos; text.erase(0, end + 1)) {
            const std::string line = text.substr(0, end);
            EXPECT_TRUE(std::regex_search(line, stamp)) << line;
            lines.push_back(std::regex_replace(line, stamp, "T "));
        }
        EXPECT_EQ(text, "");
        return lines;
    }

    TempDir dir;
    std::string path = dir / "test.log";
};

using LogInit = Log;
using LogWrite = Log;
using LogFileNew = Log;
using LogLevelNew = Log;
using LogSay = Log;

TEST_F(Log, NamesOfTheLevelsStandAtTheirValues) {
    const std::vector<std::string> names(level_string, level_string + 9);
    EXPECT_THAT(names, ElementsAre("ALL", "ERROR", "WARNING", "", "INFO", "", "", "", "DEBUG"));
}

TEST_F(LogInit, TellsItsMasksInTheFile) {
    const own_log log = start(15, 3, 1);
    EXPECT_EQ(log->file_levels, 15U);
    EXPECT_EQ(log->syslog_levels, 3U);
    EXPECT_EQ(log->stderr_levels, 1U);
    EXPECT_EQ(log->ready, 1U);
    EXPECT_EQ(log->file_enabled, 1U);
    EXPECT_EQ(log->level_names, level_string);
    EXPECT_STREQ(log->buffer, "");
    EXPECT_THAT(file_lines(),
                ElementsAre("T [INIT] Setting log level 15", "T [INIT] Setting syslog level 3"));
}

TEST_F(LogInit, MasksOfZeroMeanTheDefaultAndNotSilence) {
    const own_log log = start(0, 0, 0);
    EXPECT_EQ(log->file_levels, 7U);
    EXPECT_EQ(log->syslog_levels, 7U);
    EXPECT_EQ(log->stderr_levels, 7U);
    EXPECT_THAT(file_lines(), ElementsAre("T [INIT] Setting default log level 7",
                                          "T [INIT] Setting default syslog level 7"));
}

TEST_F(LogInit, MasksWithoutAnyOfTheFourBitsMeanTheDefault) {
    const own_log log = start(16, 0, 16);
    EXPECT_EQ(log->file_levels, 7U);
    EXPECT_EQ(log->stderr_levels, 7U);
}

TEST_F(LogInit, MasksAreKeptWithTheirFurtherBits) {
    const own_log log = start(17, 0, 18);
    EXPECT_EQ(log->file_levels, 17U);
    EXPECT_EQ(log->stderr_levels, 18U);
}

TEST_F(LogInit, SyslogMaskAboveSevenLosesEight) {
    EXPECT_EQ(start(7, 11, 1)->syslog_levels, 3U);
    EXPECT_EQ(start(7, 15, 1)->syslog_levels, 7U);
    EXPECT_EQ(start(7, 9, 1)->syslog_levels, 1U);
}

TEST_F(LogInit, SyslogMaskOfDebugAloneIsTheDefault) {
    EXPECT_EQ(start(7, 8, 1)->syslog_levels, 7U);
    EXPECT_EQ(file_lines().back(), "T [INIT] Setting default syslog level 7");
}

TEST_F(LogInit, AppendsToTheFile) {
    dir.write("test.log", "2020-01-01 00:00:00 [INFO] before\n");
    start(7, 7, 7);
    EXPECT_EQ(file_lines().front(), "T [INFO] before");
    EXPECT_EQ(file_lines().size(), 3U);
}

TEST_F(LogInit, RelativePathStaysValidAfterAChangeOfDirectory) {
    own_log log;
    {
        const WorkingDir here(dir.path());
        log.reset(log_init("test.log", 7, 4, 4, nullptr));
    }
    EXPECT_EQ(log->file, std::filesystem::canonical(path).string());
    log_write(log.get(), LEVEL_WARNING, "elsewhere");
    EXPECT_EQ(file_lines().back(), "T [WARNING] elsewhere");
}

TEST_F(LogInit, NoPathSwitchesTheFileOffSilently) {
    for (const char *none : {static_cast<const char *>(nullptr), ""}) {
        own_log log;
        EXPECT_EQ(told([&] { log.reset(log_init(none, 1, 1, 1, nullptr)); }), "");
        EXPECT_EQ(log->file_enabled, 0U);
        EXPECT_EQ(log->file_levels, 7U);
    }
}

TEST_F(LogInit, PathThatIsTooLongIsRefused) {
    const std::string too_long(2000, 'x');
    own_log log;
    EXPECT_EQ(told([&] { log.reset(log_init(too_long.c_str(), 1, 1, 1, nullptr)); }),
              "log file specified too long\n. Logging disabled.\n");
    EXPECT_EQ(log->file_enabled, 0U);
    EXPECT_EQ(log->file_levels, 7U);
    EXPECT_EQ(log->syslog_levels, 1U);
}

TEST_F(LogInit, PathOf1999CharactersIsTried) {
    const std::string longest = dir / std::string(1999 - dir.path().size() - 1, 'x');
    ASSERT_EQ(longest.size(), 1999U);
    EXPECT_EQ(told([&] { own_log(log_init(longest.c_str(), 1, 1, 1, nullptr)); }),
              "Unable to open file: " + longest + "\n. Logging disabled.");
}

TEST_F(LogInit, FileThatCannotBeOpenedIsTold) {
    const std::string missing = dir / "missing/test.log";
    own_log log;
    EXPECT_EQ(told([&] { log.reset(log_init(missing.c_str(), 1, 3, 1, nullptr)); }),
              "Unable to open file: " + missing + "\n. Logging disabled.");
    EXPECT_EQ(log->file_enabled, 0U);
    EXPECT_EQ(log->file_levels, 7U);
    EXPECT_EQ(log->ready, 1U);
}

TEST_F(LogInit, FileWithoutAPathIsTold) {
    // A file that is open but gone can be opened again by its descriptor, and has no path.
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT, 0600);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(unlink(path.c_str()), 0);
    const std::string gone = "/proc/self/fd/" + std::to_string(fd);
    own_log log;
    EXPECT_EQ(told([&] { log = own_log(log_init(gone.c_str(), 15, 1, 1, nullptr)); }),
              "Unable to get path of " + gone + "\n. Logging disabled.");
    EXPECT_EQ(log->file_enabled, 0u);
    EXPECT_EQ(log->file_levels, 7u);
    struct stat status;
    ASSERT_EQ(fstat(fd, &status), 0);
    EXPECT_EQ(status.st_size, 0);
    close(fd);
}

TEST_F(LogInit, NamesItselfToSyslog) {
    const own_log log(log_init(nullptr, 7, 3, 1, "fltk-vrm"));
    EXPECT_EQ(syslog_ident, "fltk-vrm");
    EXPECT_EQ(syslog_option, LOG_PID);
    EXPECT_EQ(syslog_facility, LOG_USER);
}

TEST_F(LogInit, WithoutANameSyslogIsLeftAsItIs) {
    start(7, 7, 7);
    EXPECT_EQ(syslog_ident, "");
}

TEST_F(LogWrite, SendsAMessageToEachSinkWithItsLevel) {
    const own_log log = quiet(7, 7, 7);
    EXPECT_EQ(told([&] { EXPECT_EQ(log_write(log.get(), LEVEL_INFO, "text"), 0); }), "text\n");
    EXPECT_THAT(file_lines(), ElementsAre("T [INFO] text"));
    EXPECT_THAT(syslog_lines, ElementsAre("[INFO] text\n"));
    EXPECT_THAT(syslog_priorities, ElementsAre(LOG_NOTICE));
}

TEST_F(LogWrite, TakesTheBufferWithoutAText) {
    const own_log log = quiet(15, 2, 2);
    snprintf(log->buffer, 2000, "from the buffer");
    EXPECT_EQ(log_write(log.get(), LEVEL_DEBUG, nullptr), 0);
    EXPECT_THAT(file_lines(), ElementsAre("T [DEBUG] from the buffer"));
}

TEST_F(LogWrite, EachSinkTakesOnlyTheLevelsOfItsMask) {
    const own_log log = quiet(LEVEL_INFO, LEVEL_ERROR, LEVEL_WARNING);
    EXPECT_EQ(
        told([&] {
            for (const uint32_t level : {LEVEL_ERROR, LEVEL_WARNING, LEVEL_INFO, LEVEL_DEBUG}) {
                log_write(log.get(), level, level_string[level]);
            }
        }),
        "WARNING\n");
    EXPECT_THAT(file_lines(), ElementsAre("T [INFO] INFO"));
    EXPECT_THAT(syslog_lines, ElementsAre("[ERROR] ERROR\n"));
}

TEST_F(LogWrite, DebugReachesNoSinkThatDoesNotAskForIt) {
    const own_log log = quiet(7, 7, 7);
    snprintf(log->buffer, 2000, "formatted all the same");
    EXPECT_EQ(told([&] { EXPECT_EQ(log_write(log.get(), LEVEL_DEBUG, nullptr), 0); }), "");
    EXPECT_THAT(file_lines(), IsEmpty());
    EXPECT_THAT(syslog_lines, IsEmpty());
    EXPECT_STREQ(log->buffer, "formatted all the same");
}

TEST_F(LogWrite, NullLogIsRefused) {
    EXPECT_EQ(log_write(nullptr, 1, nullptr), -1);
}

TEST_F(LogWrite, MakesADeletedFileAnew) {
    const own_log log = quiet(7, 1, 1);
    std::filesystem::remove(path);
    log_write(log.get(), LEVEL_INFO, "again");
    EXPECT_THAT(file_lines(), ElementsAre("T [INFO] again"));
    EXPECT_THAT(syslog_lines, IsEmpty());
}

TEST_F(LogWrite, FileThatCannotBeOpenedSendsTheLineToSyslog) {
    // A directory that is gone stands for one without permission: root may write everywhere.
    const own_log log = quiet(7, 1, 1);
    std::filesystem::remove_all(dir.path());
    log_write(log.get(), LEVEL_INFO, "no file");
    EXPECT_THAT(syslog_lines, ElementsAre("[INFO] no file\n"));
}

TEST_F(LogWrite, LineThatFileAndSyslogTakeMayReachSyslogTwice) {
    const own_log log = quiet(7, 7, 1);
    std::filesystem::remove_all(dir.path());
    log_write(log.get(), LEVEL_INFO, "twice");
    EXPECT_THAT(syslog_lines, ElementsAre("[INFO] twice\n", "[INFO] twice\n"));
}

TEST_F(LogWrite, WhileTheLogIsNotReadyTheLineGoesToSyslog) {
    const own_log log = quiet(7, 1, 1);
    log->ready = 0;
    log_write(log.get(), LEVEL_INFO, "early");
    EXPECT_THAT(file_lines(), IsEmpty());
    EXPECT_THAT(syslog_lines, ElementsAre("[INFO] early\n"));
}

TEST_F(LogWrite, LongMessageIsCutInTheFileAndInSyslogAndStandsWholeOnStderr) {
    const own_log log = quiet(7, 7, 7);
    const std::string message = std::string(1900, 'a') + std::string(1100, 'b');
    EXPECT_EQ(told([&] { log_write(log.get(), LEVEL_ERROR, message.c_str()); }), message + "\n");
    EXPECT_THAT(file_lines(), ElementsAre("T [ERROR] " + std::string(1900, 'a')));
    EXPECT_THAT(syslog_lines, ElementsAre("[ERROR] " + std::string(1900, 'a') + "\n"));
}

TEST_F(LogWrite, MessageIsNoFormat) {
    const own_log log = quiet(7, 7, 7);
    EXPECT_EQ(told([&] { log_write(log.get(), LEVEL_ERROR, "100%s %n"); }), "100%s %n\n");
    EXPECT_THAT(file_lines(), ElementsAre("T [ERROR] 100%s %n"));
    EXPECT_THAT(syslog_lines, ElementsAre("[ERROR] 100%s %n\n"));
}

TEST_F(LogWrite, TimeStampIsTheLocalTime) {
    const own_log log = quiet(7, 1, 1);
    const auto stamp = [] {
        const time_t now = time(nullptr);
        char text[32];
        strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", localtime(&now));
        return std::string(text);
    };
    const std::string before = stamp();
    log_write(log.get(), LEVEL_INFO, "now");
    const std::string line = read_all(path);
    EXPECT_GE(line.substr(0, 19), before);
    EXPECT_LE(line.substr(0, 19), stamp());
}

TEST_F(LogWrite, ValueThatIsNoLevelHasNoName) {
    const own_log log = quiet(~0U, 1, 16);
    log->stderr_levels = 0;
    log->syslog_levels = 0;
    log_write(log.get(), 1024, "odd");
    log_write(log.get(), 3, "two bits");
    EXPECT_THAT(file_lines(), ElementsAre("T [] odd", "T [] two bits"));
}

TEST_F(LogWrite, KeepsErrno) {
    const own_log log = quiet(7, 7, 1);
    std::filesystem::remove_all(dir.path());
    errno = EXDEV;
    log_write(log.get(), LEVEL_INFO, "no file");
    EXPECT_EQ(errno, EXDEV);
}

TEST_F(LogFileNew, TakesThePathAsGiven) {
    const own_log log = quiet(7, 1, 1);
    const WorkingDir here(dir.path());
    EXPECT_EQ(log_file_new(log.get(), "other.log"), 1);
    EXPECT_STREQ(log->file, "other.log");
    EXPECT_EQ(log->file_enabled, 1U);
    log_write(log.get(), LEVEL_INFO, "moved");
    EXPECT_THAT(file_lines(), IsEmpty());
    EXPECT_THAT(read_all(dir / "other.log"), MatchesRegex(".* \\[INFO\\] moved\n"));
}

TEST_F(LogFileNew, SwitchesAFileOnThatWasOff) {
    const own_log log(log_init(nullptr, 1, 1, 1, nullptr));
    EXPECT_EQ(log_file_new(log.get(), path.c_str()), 1);
    log_write(log.get(), LEVEL_INFO, "on");
    EXPECT_THAT(file_lines(), ElementsAre("T [INFO] on"));
}

TEST_F(LogFileNew, TakesThePathThatTheObjectHolds) {
    const own_log log = quiet(1, 1, 1);
    EXPECT_EQ(log_file_new(log.get(), log->file), 1);
    EXPECT_EQ(std::string(log->file), std::filesystem::canonical(path).string());
}

TEST_F(LogFileNew, NoPathIsRefused) {
    const own_log log = quiet(7, 1, 1);
    for (const char *none : {static_cast<const char *>(nullptr), ""}) {
        log->file_enabled = 1;
        EXPECT_EQ(told([&] { EXPECT_EQ(log_file_new(log.get(), none), 0); }),
                  "No log file specified\n.Logging disabled.\n");
        EXPECT_EQ(log->file_enabled, 0U);
    }
}

TEST_F(LogFileNew, PathThatIsTooLongIsRefused) {
    const own_log log = quiet(7, 1, 1);
    const std::string too_long(2000, 'x');
    EXPECT_EQ(told([&] { EXPECT_EQ(log_file_new(log.get(), too_long.c_str()), 0); }),
              "log file specified too long\n. Logging disabled.\n");
    EXPECT_EQ(log->file_enabled, 0U);
}

TEST_F(LogFileNew, FileThatCannotBeOpenedIsTold) {
    const own_log log = quiet(7, 1, 1);
    const std::string missing = dir / "missing/test.log";
    EXPECT_EQ(told([&] { EXPECT_EQ(log_file_new(log.get(), missing.c_str()), 0); }),
              "Unable to open file: " + missing + "\n. Logging disabled.");
    EXPECT_EQ(log->file_enabled, 0U);
    EXPECT_EQ(log->file, missing);
}

TEST_F(LogFileNew, NullLogIsRefused) {
    EXPECT_EQ(log_file_new(nullptr, path.c_str()), -1);
    EXPECT_FALSE(exists(path));
}

TEST_F(LogLevelNew, SetsTheMasksWithTheSameDefaults) {
    const own_log log = quiet(1, 1, 1);
    log->file_enabled = 0;
    EXPECT_EQ(log_level_new(log.get(), 15, 11, 2), 0);
    EXPECT_EQ(log->file_levels, 15U);
    EXPECT_EQ(log->syslog_levels, 3U);
    EXPECT_EQ(log->stderr_levels, 2U);
    EXPECT_EQ(log->file_enabled, 1U);
    EXPECT_EQ(log_level_new(log.get(), 16, 0, 0), 0);
    EXPECT_EQ(log->file_levels, 7U);
    EXPECT_EQ(log->syslog_levels, 7U);
    EXPECT_EQ(log->stderr_levels, 7U);
    EXPECT_THAT(file_lines(), IsEmpty());
}

TEST_F(LogLevelNew, NullLogIsRefused) {
    EXPECT_EQ(log_level_new(nullptr, 1, 1, 1), -1);
}

TEST_F(LogSay, DoesNothingWithoutALog) {
    EXPECT_EQ(told([] { log_say(LEVEL_ERROR, "lost %d", 1); }), "");
    EXPECT_THAT(syslog_lines, IsEmpty());
}

TEST_F(LogSay, FormatsIntoTheBufferAndWrites) {
    const own_log log = quiet(7, 1, 1);
    llog = log.get();
    log_say(LEVEL_WARNING, "%s: %d", "count", 3);
    EXPECT_STREQ(log->buffer, "count: 3");
    EXPECT_THAT(file_lines(), ElementsAre("T [WARNING] count: 3"));
}

TEST_F(LogSay, CutsAt1999Bytes) {
    const own_log log = quiet(7, 1, 7);
    llog = log.get();
    const std::string message(2500, 'x');
    EXPECT_EQ(told([&] { log_say(LEVEL_INFO, "%s", message.c_str()); }),
              std::string(1999, 'x') + "\n");
}

TEST_F(LogSay, KeepsErrno) {
    const own_log log = quiet(7, 1, 1);
    llog = log.get();
    errno = ENOENT;
    log_say(LEVEL_INFO, "%s", strerror(errno));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_THAT(file_lines(), ElementsAre("T [INFO] No such file or directory"));
}

TEST_F(Log, WantsALevelThatAnySinkTakes) {
    EXPECT_FALSE(log_wants(LEVEL_ERROR));
    const own_log log = quiet(LEVEL_DEBUG, LEVEL_ERROR, LEVEL_WARNING);
    llog = log.get();
    EXPECT_TRUE(log_wants(LEVEL_DEBUG));
    EXPECT_TRUE(log_wants(LEVEL_ERROR));
    EXPECT_TRUE(log_wants(LEVEL_WARNING));
    EXPECT_FALSE(log_wants(LEVEL_INFO));
    log->file_enabled = 0;
    EXPECT_FALSE(log_wants(LEVEL_DEBUG));
}

}  // namespace
