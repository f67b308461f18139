#include "gui/model/tool_output.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kit/results.h"
#include "kit/temp_dir.h"
#include "support/own.h"

namespace {

std::vector<std::string> lines_of(const std::string &output) {
    TempDir dir;
    const own_file file(fopen(dir.write("output", output).c_str(), "r"));
    std::vector<std::string> lines;
    tool_line line;
    while (read_tool_line(file.get(), &line)) {
        lines.emplace_back(line.text);
    }
    return lines;
}

std::string status_of(const std::string &line) {
    const char *status = status_of_tool_line(line.c_str());
    return status ? status : "(none)";
}

}  // namespace

TEST(ToolLine, KeepsItsNewline) {
    EXPECT_EQ(lines_of("a\n\n b \nlast"), (std::vector<std::string>{"a\n", "\n", " b \n", "last"}));
    EXPECT_TRUE(lines_of("").empty());
}

TEST(ToolLine, OfMoreThan1022CharactersComesInPieces) {
    EXPECT_EQ(lines_of(std::string(1021, 'x') + "\n"),
              (std::vector<std::string>{std::string(1021, 'x') + "\n"}));
    EXPECT_EQ(lines_of(std::string(1022, 'x') + "\n"),
              (std::vector<std::string>{std::string(1022, 'x'), "\n"}));
    const auto lines = lines_of(std::string(5000, 'x') + "\nnext\n");
    ASSERT_EQ(lines.size(), 6U);
    for (size_t i = 0; i < 4; i++) {
        EXPECT_EQ(lines[i], std::string(1022, 'x'));
    }
    EXPECT_EQ(lines[4], std::string(5000 - 4 * 1022, 'x') + "\n");
    EXPECT_EQ(lines[5], "next\n");
}

TEST(StatusOfToolLine, IsWhatFollowsTheMarkerNewlineIncluded) {
    expect_results(status_of, {{"pvrm: Installing a\n", "Installing a\n"}, {"pvrm: ", ""}});
}

TEST(StatusOfToolLine, LosesItsFirst6CharactersWhereverTheMarkerStands) {
    expect_results(status_of,
                   {{"x pvrm: y", ": y"}, {"a long line, pvrm: y\n", " line, pvrm: y\n"}});
}

TEST(StatusOfToolLine, IsThereOnlyWithTheWholeMarker) {
    expect_results(
        status_of,
        {{"pvrm:\n", "(none)"}, {"pvrm :a\n", "(none)"}, {"Pvrm: a\n", "(none)"}, {"", "(none)"}});
}

TEST(CopyActionName, CutsAt254Characters) {
    char name[256];
    copy_action_name(name, "cleanup repository");
    EXPECT_STREQ(name, "cleanup repository");
    copy_action_name(name, std::string(254, 'n').c_str());
    EXPECT_EQ(std::string(name), std::string(254, 'n'));
    copy_action_name(name, std::string(300, 'n').c_str());
    EXPECT_EQ(std::string(name), std::string(254, 'n'));
    copy_action_name(name, "");
    EXPECT_STREQ(name, "");
}

TEST(ToolResultLine, OfSuccess) {
    EXPECT_EQ(tool_result_line("cleanup repository", 0), "cleanup repository was successful");
}

TEST(ToolResultLine, OfFailureHoldsTheRawWaitStatus) {
    EXPECT_EQ(tool_result_line("install selected packages", 256),
              "install selected packages failed with return code 256");
    EXPECT_EQ(tool_result_line("update all packages", 32512),
              "update all packages failed with return code 32512");
    EXPECT_EQ(tool_result_line("update all packages", 9),
              "update all packages failed with return code 9");
    EXPECT_EQ(tool_result_line("update all packages", -1),
              "update all packages failed with return code -1");
}
