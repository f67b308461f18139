#include "gui/model/tool_action.h"

#include <gtest/gtest.h>

namespace {

void expect_row(int action, const char *box, const char *word, const char *first_line,
                const char *name, const char *failure_line, bool takes_names, bool blocks_buttons) {
    const tool_action *row = find_tool_action(action);
    ASSERT_TRUE(row);
    EXPECT_EQ(row->action, action);
    EXPECT_STREQ(row->box, box);
    EXPECT_STREQ(row->word, word);
    EXPECT_STREQ(row->first_line, first_line);
    EXPECT_STREQ(row->name, name);
    EXPECT_STREQ(row->failure_line, failure_line);
    EXPECT_EQ(row->takes_names, takes_names);
    EXPECT_EQ(row->blocks_buttons, blocks_buttons);
}

}  // namespace

TEST(ToolAction, UpdateAll) {
    expect_row(7, "Action: update all packages", "upgrade", "updating all packages...",
               "update all packages", "failed to updated", false, true);
}

TEST(ToolAction, UpdateSelected) {
    expect_row(8, "Action: Perform selected updates", "upgrade", "updating selected packages...",
               "update selected packages", "failed to updated", true, true);
}

TEST(ToolAction, InstallSelected) {
    expect_row(9, "Action: install selected packages", "install", "install selected packages...",
               "install selected packages", "failed to install", true, true);
}

TEST(ToolAction, CleanupLeavesTheButtonsActive) {
    expect_row(12, "Action: cleanup reository", "cleanup", "cleanup repository...",
               "cleanup repository", "failed to cleanup", false, false);
}

TEST(ToolAction, TheOtherActionsRunNoTool) {
    for (const int action : {-1, 0, 1, 2, 3, 4, 5, 6, 10, 11, 13}) {
        EXPECT_FALSE(find_tool_action(action)) << action;
    }
}
