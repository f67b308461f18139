#include "gui/model/tool_action.h"

static constexpr tool_action tool_actions[] = {
    {
        .action = ACTION_UPDATE_ALL,
        .box = "Action: update all packages",
        .word = "upgrade",
        .takes_names = false,
        .first_line = "updating all packages...",
        .name = "update all packages",
        .failure_line = "failed to updated",
        .blocks_buttons = true,
    },
    {
        .action = ACTION_UPDATE_SELECTED,
        .box = "Action: Perform selected updates",
        .word = "upgrade",
        .takes_names = true,
        .first_line = "updating selected packages...",
        .name = "update selected packages",
        .failure_line = "failed to updated",
        .blocks_buttons = true,
    },
    {
        .action = ACTION_INSTALL_SELECTED,
        .box = "Action: install selected packages",
        .word = "install",
        .takes_names = true,
        .first_line = "install selected packages...",
        .name = "install selected packages",
        .failure_line = "failed to install",
        .blocks_buttons = true,
    },
    {
        .action = ACTION_CLEANUP,
        .box = "Action: cleanup reository",
        .word = "cleanup",
        .takes_names = false,
        .first_line = "cleanup repository...",
        .name = "cleanup repository",
        .failure_line = "failed to cleanup",
        .blocks_buttons = false,
    },
};

const tool_action *find_tool_action(int action) {
    for (const tool_action &row : tool_actions) {
        if (row.action == action) {
            return &row;
        }
    }
    return nullptr;
}
