// The actions that run the privileged tool, as far as they differ.
#pragma once

struct tool_action {
    int action;                // see gui/actions.h
    const char *box;           // what the window says it does
    const char *word;          // what the tool is told to do
    bool takes_names;          // whether the chosen names follow the word
    const char *first_line;    // status line once the tool has been started
    const char *name;          // what the result line says it was
    const char *failure_line;  // status line when the tool was not started
    bool blocks_buttons;       // whether the top row is inactive while the tool runs; a cleanup
                               // leaves it active on purpose
};

// The row of an action; null for the actions that run no tool.
const tool_action *find_tool_action(int action);
