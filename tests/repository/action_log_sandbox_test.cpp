#include "repository/action_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>

#include "kit/log_capture.h"
#include "kit/temp_dir.h"
#include "kit/time_zone.h"

namespace {

namespace fs = std::filesystem;
const char *const path = "/var/lib/vrm/install.log";

// An empty history.
class ActionLog : public testing::Test {
 protected:
    ActionLog() {
        fs::create_directories("/var/lib/vrm");
        fs::remove_all(path);
    }
    // What was appended, with the date taken off after a look at its form.
    static std::string sentence() {
        std::string line = read_all(path);
        EXPECT_THAT(line, testing::MatchesRegex(
                              "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}: .*\n"));
        return line.size() < 21 ? line : line.substr(21);
    }
    LogCapture log_;
};

}  // namespace

TEST_F(ActionLog, EachActionIsNotedWithItsReason) {
    const char *const one = "foo_i686_1.0", *const other = "foo_i686_1.1";
    const struct {
        int action;
        const char *before, *now, *head;
        std::string sentence;
    } rows[] = {
        {1, nullptr, one, nullptr, "installed foo_i686_1.0 as requested by user\n"},
        {1, nullptr, one, "bar", "installed foo_i686_1.0 as dependency of bar\n"},
        {2, one, other, nullptr, "updated foo_i686_1.0 to foo_i686_1.1 as requested by user\n"},
        {2, one, other, "bar", "updated foo_i686_1.0 to foo_i686_1.1 as dependency of bar\n"},
        {3, nullptr, one, nullptr, "deleted foo_i686_1.0 as requested by user\n"},
        {3, nullptr, one, "bar", "deleted foo_i686_1.0 as dependency of bar\n"},
    };
    for (const auto &row : rows) {
        fs::remove(path);
        vrm_log_action(row.action, row.before, row.now, row.head);
        EXPECT_EQ(sentence(), row.sentence);
    }
}

TEST_F(ActionLog, DateIsLocalTime) {
    const TimeZone zone("XYZ-5:30");
    const time_t before = time(nullptr);
    vrm_log_action(1, nullptr, "foo_i686_1.0", nullptr);
    const time_t after = time(nullptr);
    struct tm shown = {};
    ASSERT_TRUE(strptime(read_all(path).c_str(), "%Y-%m-%d %H:%M:%S", &shown));
    const time_t noted = timegm(&shown) - (5 * 60 + 30) * 60;
    EXPECT_GE(noted, before);
    EXPECT_LE(noted, after);
}

TEST_F(ActionLog, LinesAreAppended) {
    vrm_log_action(1, nullptr, "foo_i686_1.0", nullptr);
    const std::string first = read_all(path);
    vrm_log_action(3, nullptr, "foo_i686_1.0", nullptr);
    const std::string both = read_all(path);
    EXPECT_EQ(both.substr(0, first.size()), first);
    EXPECT_EQ(both.substr(first.size() + 21), "deleted foo_i686_1.0 as requested by user\n");
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(ActionLog, FileIsMadeWithTheDefaultMode) {
    const mode_t before = umask(022);
    vrm_log_action(1, nullptr, "foo_i686_1.0", nullptr);
    umask(before);
    struct stat status;
    ASSERT_EQ(stat(path, &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0644U);
}

TEST_F(ActionLog, TheReadersVariableDoesNotMoveIt) {
    const TempDir dir;
    setenv("VRM_SHOWLOG_DEBUG_LOGFILE", (dir / "other").c_str(), 1);
    vrm_log_action(1, nullptr, "foo_i686_1.0", nullptr);
    unsetenv("VRM_SHOWLOG_DEBUG_LOGFILE");
    EXPECT_EQ(sentence(), "installed foo_i686_1.0 as requested by user\n");
    EXPECT_FALSE(exists(dir / "other"));
}

TEST_F(ActionLog, MissingNewNameIsRefused) {
    vrm_log_action(1, "foo_i686_1.0", nullptr, nullptr);
    EXPECT_TRUE(log_.has(LEVEL_ERROR, "vrm_log_action: No vrk_puname_new specified"));
    EXPECT_FALSE(exists(path));
}

TEST_F(ActionLog, UpdateWithoutTheOldNameIsRefused) {
    vrm_log_action(2, nullptr, "foo_i686_1.0", nullptr);
    EXPECT_TRUE(log_.has(LEVEL_ERROR, "vrm_log_action: No vrk_puname_old specified"));
    EXPECT_FALSE(exists(path));
}

TEST_F(ActionLog, UnknownActionIsRefused) {
    for (const int action : {0, 4, -1}) {
        log_.clear();
        vrm_log_action(action, "foo_i686_1.0", "foo_i686_1.1", nullptr);
        EXPECT_TRUE(log_.has(LEVEL_ERROR, "vrm_log_action: invalid action specified"));
    }
    EXPECT_FALSE(exists(path));
}

TEST_F(ActionLog, FailureToOpenIsLogged) {
    fs::create_directory(path);
    vrm_log_action(1, nullptr, "foo_i686_1.0", nullptr);
    EXPECT_TRUE(log_.has(LEVEL_ERROR,
                         "vrm_log_action: failed to open /var/lib/vrm/install.log for writing: "
                         "Is a directory"));
}

TEST_F(ActionLog, FailureToWriteIsLogged) {
    fs::create_symlink("/dev/full", path);
    vrm_log_action(1, nullptr, "foo_i686_1.0", nullptr);
    EXPECT_TRUE(log_.has(LEVEL_ERROR,
                         "vrm_log_action: failed to write to /var/lib/vrm/install.log: "
                         "No space left on device"));
}

TEST_F(ActionLog, LineEndInANameForgesNoLine) {
    vrm_log_action(1, nullptr, "foo\n2024-01-01 00:00:00: deleted x_any_1", "a\r\nb");
    EXPECT_EQ(sentence(),
              "installed foo?2024-01-01 00:00:00: deleted x_any_1 as dependency of a??b\n");
}

TEST_F(ActionLog, TornLineSwallowsNoOther) {
    std::ofstream(path) << "2024-01-02 03:04:05: installed fo";
    vrm_log_action(1, nullptr, "foo_i686_1.0", nullptr);
    vrm_log_action(3, nullptr, "foo_i686_1.0", nullptr);
    const std::string torn = "2024-01-02 03:04:05: installed fo\n";
    const std::string all = read_all(path);
    EXPECT_EQ(all.substr(0, torn.size()), torn);
    EXPECT_THAT(all.substr(torn.size()),
                testing::MatchesRegex(".*: installed foo_i686_1.0 as requested by user\n"
                                      ".*: deleted foo_i686_1.0 as requested by user\n"));
}
