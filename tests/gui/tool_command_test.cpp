#include "gui/model/tool_command.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "gui/model/tool_action.h"
#include "kit/log_capture.h"

namespace {

// The command line for these names, "-" when there is none.
std::string command_of(int action, std::vector<std::string> names) {
    std::vector<char *> array;
    for (std::string &name : names) {
        array.push_back(name.data());
    }
    array.push_back(nullptr);
    return tool_command(*find_tool_action(action), array.data()).value_or("-");
}

}  // namespace

TEST(ToolPath, IsFixed) {
    EXPECT_STREQ(pvrm_path, "/usr/sbin/pvrm");
}

TEST(ToolWordCommand, AllowedIsMode0) {
    EXPECT_EQ(tool_word_command(0), "/usr/sbin/pvrm allowed");
}

TEST(ToolWordCommand, RefreshIsMode3) {
    EXPECT_EQ(tool_word_command(3), "/usr/sbin/pvrm refresh");
}

TEST(ToolWordCommand, NoOtherModeHasOne) {
    for (const int mode : {-1, 1, 2, 4, 12}) {
        EXPECT_FALSE(tool_word_command(mode)) << mode;
    }
}

TEST(ToolCommand, NamesAreJoinedWithBlanks) {
    EXPECT_EQ(command_of(ACTION_INSTALL_SELECTED, {"a", "libb-2.0+x", "c"}),
              "/usr/sbin/pvrm install a libb-2.0+x c 2>&1");
    EXPECT_EQ(command_of(ACTION_UPDATE_SELECTED, {"a", "b"}), "/usr/sbin/pvrm upgrade a b 2>&1");
}

TEST(ToolCommand, UpdateAllAndCleanupTakeNoNames) {
    EXPECT_EQ(tool_command(*find_tool_action(ACTION_UPDATE_ALL), nullptr),
              "/usr/sbin/pvrm upgrade 2>&1");
    EXPECT_EQ(tool_command(*find_tool_action(ACTION_CLEANUP), nullptr),
              "/usr/sbin/pvrm cleanup 2>&1");
    EXPECT_EQ(command_of(ACTION_UPDATE_ALL, {"a"}), "/usr/sbin/pvrm upgrade 2>&1");
}

// "upgrade" without names updates everything.
TEST(ToolCommand, AnActionOfNamesNeedsOne) {
    LogCapture log;
    EXPECT_EQ(command_of(ACTION_UPDATE_SELECTED, {}), "-");
    EXPECT_FALSE(tool_command(*find_tool_action(ACTION_UPDATE_SELECTED), nullptr));
    EXPECT_TRUE(log.has(LEVEL_ERROR, "cannot update selected packages: there are none"));
}

TEST(ToolCommand, AnUnsafeNameRefusesTheWholeLine) {
    for (const std::string name :
         {"",       "a;reboot", "$(reboot)", "`reboot`", "a b", "a\nb", "-f",      "--all", "../a",
          "/tmp/a", "a'b",      "a\"b",      "a|b",      "a&b", "a>b",  "a*b",     "a?b",   "a[b]",
          "a{b,c}", "a#b",      "!a",        "a\\b",     ".a",  "a\tb", "\xc3\xa9"}) {
        LogCapture log;
        EXPECT_EQ(command_of(ACTION_INSTALL_SELECTED, {"good", name, "better"}), "-") << name;
        ASSERT_EQ(log.at(LEVEL_ERROR).size(), 1U) << name;
        EXPECT_EQ(log.at(LEVEL_ERROR)[0].find("cannot install selected packages: <"), 0U) << name;
    }
}

TEST(ToolCommand, TheLogShowsAnUnsafeNameInOneLine) {
    LogCapture log;
    command_of(ACTION_UPDATE_SELECTED, {"a;b\nc"});
    EXPECT_EQ(log.at(LEVEL_ERROR),
              (std::vector<std::string>{
                  "cannot update selected packages: <a;b c> is not a safe package name"}));
}

// The shell makes a home directory of it.
TEST(ToolCommand, ALeadingTildeIsRefused) {
    LogCapture log;
    EXPECT_EQ(command_of(ACTION_INSTALL_SELECTED, {"~root"}), "-");
    EXPECT_TRUE(log.has(LEVEL_ERROR,
                        "cannot install selected packages: <~root> is not a safe package name"));
    EXPECT_EQ(command_of(ACTION_INSTALL_SELECTED, {"a~1"}), "/usr/sbin/pvrm install a~1 2>&1");
}

// The tool would take a file of that name in the working directory for what is meant.
TEST(ToolCommand, ANameOfAPackageFileIsRefused) {
    for (const int action : {ACTION_INSTALL_SELECTED, ACTION_UPDATE_SELECTED}) {
        LogCapture log;
        EXPECT_EQ(command_of(action, {"good", "evil.vrk"}), "-");
        EXPECT_EQ(
            log.at(LEVEL_ERROR),
            (std::vector<std::string>{std::string("cannot ") + find_tool_action(action)->name +
                                      ": <evil.vrk> would be taken for a package file"}));
    }
    EXPECT_EQ(command_of(ACTION_INSTALL_SELECTED, {"a.vrk.b", "a.VRK", "vrk"}),
              "/usr/sbin/pvrm install a.vrk.b a.VRK vrk 2>&1");
}

TEST(ToolCommand, TakesUpTo2047Characters) {
    LogCapture log;
    const std::string around = "/usr/sbin/pvrm install  2>&1";
    const std::string longest(2047 - around.size(), 'n');
    const std::string command = command_of(ACTION_INSTALL_SELECTED, {longest});
    EXPECT_EQ(command.size(), 2047U);
    EXPECT_EQ(command, "/usr/sbin/pvrm install " + longest + " 2>&1");
    EXPECT_TRUE(log.at(LEVEL_ERROR).empty());
}

TEST(ToolCommand, IsRefusedAndNotCutWhenItIsLonger) {
    LogCapture log;
    const std::string around = "/usr/sbin/pvrm install  2>&1";
    EXPECT_EQ(command_of(ACTION_INSTALL_SELECTED, {std::string(2048 - around.size(), 'n')}), "-");
    EXPECT_EQ(command_of(ACTION_UPDATE_SELECTED, std::vector<std::string>(5000, "name")), "-");
    EXPECT_EQ(log.at(LEVEL_ERROR),
              (std::vector<std::string>{
                  "cannot install selected packages: the command line has 2048 characters, which "
                  "is more than 2047",
                  "cannot update selected packages: the command line has 25027 characters, which "
                  "is more than 2047"}));
}
