// The scripted user: the implementation of the vrmui functions for tests. It records what it was
// told and asked, and answers from lists that the test fills.
#pragma once

#include <deque>
#include <string>
#include <utility>
#include <vector>

struct ScriptedUser {
    // What it was told.
    std::vector<std::string> messages;  // vrmui_write and vrmui_write_info, which give 0
    struct Question {
        std::string text;
        std::vector<std::pair<std::string, std::string>> choices;  // empty for yes and no
        std::string default_answer;                                // a key, or "0" and "1"
    };
    std::vector<Question> questions;
    struct Form {
        std::string heading;
        std::vector<std::pair<std::string, std::string>> fields;
    };
    std::vector<Form> forms;
    std::string table_title;
    std::vector<std::string> table_widths;             // of the columns, as given
    std::vector<std::vector<std::string>> table_rows;  // the heads, then each row's values
    std::vector<int> row_numbers;
    struct File {
        std::string path;
        std::string content;  // when it was shown
    };
    std::vector<File> files;  // vrmui_write_file

    // What it answers, first one first. A question without an answer left gets none: null from
    // vrmui_select, the default from vrmui_yesno.
    std::deque<std::string> answers;  // keys for vrmui_select, "0" and "1" for yes and no
    bool answers_freely = false;      // a key that is not offered is an answer all the same
    std::deque<int> table_results;    // what the table functions give, and then
    int table_result = -1;            // what they and the file function give

    // The scripted user of this process, as new: nothing told, no answers, a new global object
    // `vrmui`, textmax 65536, vote_mode 2.
    static ScriptedUser &fresh();
    static ScriptedUser &instance();
};
