#include "gui/model/tool_action.h"

#include <gtest/gtest.h>

#include "gui/actions.h"

namespace {

void expect_texts(int action, const char *box, const char *word, const char *first_line,
                  const char *name, const char *failure_line) {
    const tool_action *row = find_tool_action(action);
    ASSERT_TRUE(row);
    EXPECT_EQ(row->action, action);
    EXPECT_STREQ(row->box, box);
    EXPECT_STREQ(row->word, word);
    EXPECT_STREQ(row->first_line, first_line);
    EXPECT_STREQ(row->name, name);
    EXPECT_STREQ(row->failure_line, failure_line);
}

}  // namespace

TEST(ToolAction, UpdateAll) {
    expect_texts(7, "Action: update all packages", "upgrade", "updating all packages...",
                 "update all packages", "failed to updated");
    EXPECT_FALSE(find_tool_action(7)->takes_names);
    EXPECT_TRUE(find_tool_action(7)->blocks_buttons);
}

TEST(ToolAction, UpdateSelected) {
    expect_texts(8, "Action: Perform selected updates", "upgrade", "updating selected packages...",
                 "update selected packages", "failed to updated");
    EXPECT_TRUE(find_tool_action(8)->takes_names);
    EXPECT_TRUE(find_tool_action(8)->blocks_buttons);
}

TEST(ToolAction, InstallSelected) {
    expect_texts(9, "Action: install selected packages", "install", "install selected packages...",
                 "install selected packages", "failed to install");
    EXPECT_TRUE(find_tool_action(9)->takes_names);
    EXPECT_TRUE(find_tool_action(9)->blocks_buttons);
}

TEST(ToolAction, CleanupLeavesTheButtonsActive) {
    expect_texts(12, "Action: cleanup reository", "cleanup", "cleanup repository...",
                 "cleanup repository", "failed to cleanup");
    EXPECT_FALSE(find_tool_action(12)->takes_names);
    EXPECT_FALSE(find_tool_action(12)->blocks_buttons);
}

TEST(ToolAction, TheOtherActionsRunNoTool) {
    for (const int action : {-1, 0, 1, 2, 3, 4, 5, 6, 10, 11, 13}) {
        EXPECT_FALSE(find_tool_action(action)) << action;
    }
}
