#include "kit/scripted_user.h"

#include <cstdio>
#include <fstream>
#include <iterator>

#include "ui/vrmui.h"

const char *const vrmui_backend = "script";

namespace {

// The next answer of the list; `otherwise` when there is none left.
std::string next_answer(ScriptedUser &user, const std::string &otherwise) {
    if (user.answers.empty()) {
        return otherwise;
    }
    std::string answer = user.answers.front();
    user.answers.pop_front();
    return answer;
}

std::vector<std::pair<std::string, std::string>> pairs_of(s_ekva *const *rec) {
    std::vector<std::pair<std::string, std::string>> pairs;
    // Slot 0 of a record is its header.
    for (int i = 1; rec && rec[0] && rec[i]; i++) {
        pairs.emplace_back(rec[i]->key, rec[i]->val ? rec[i]->val : "");
    }
    return pairs;
}

int next_table_result(ScriptedUser &user) {
    if (user.table_results.empty()) {
        return user.table_result;
    }
    const int result = user.table_results.front();
    user.table_results.pop_front();
    return result;
}

}  // namespace

ScriptedUser &ScriptedUser::instance() {
    static ScriptedUser user;
    return user;
}

ScriptedUser &ScriptedUser::fresh() {
    vrmui_free(vrmui);
    textmax = 65536;
    vote_mode = 2;
    vrmui = vrmui_init("test", 7);
    return instance() = ScriptedUser();
}

int vrmui_write(vrmui_object *, const char *text, int) {
    ScriptedUser::instance().messages.emplace_back(text);
    return 0;
}

int vrmui_write_info(vrmui_object *ui, const char *text, int ask) {
    fprintf(stderr, "vrmui_write_info (%d) called with:\n%s\n", ask, text);
    return vrmui_write(ui, text, ask);
}

int vrmui_yesno(vrmui_object *, const char *question, int default_answer) {
    if (vote_mode == 3) {
        return default_answer;
    }
    ScriptedUser &user = ScriptedUser::instance();
    user.questions.push_back({question, {}, std::to_string(default_answer)});
    if (user.answers.empty()) {
        return default_answer;
    }
    return next_answer(user, "0") == "1";
}

const char *vrmui_select(vrmui_object *, const char *prompt, s_ekva *const *choices,
                         const char *default_key, int) {
    if (vote_mode == 3) {
        return default_key;
    }
    ScriptedUser &user = ScriptedUser::instance();
    user.questions.push_back({prompt, pairs_of(choices), default_key ? default_key : ""});
    const std::string answer = next_answer(user, "");
    // The record's own string, as every implementation gives it.
    for (int i = 1; choices && choices[0] && choices[i]; i++) {
        if (answer == choices[i]->key) {
            return choices[i]->key;
        }
    }
    static std::string unoffered;
    unoffered = answer;
    return user.answers_freely && !answer.empty() ? unoffered.c_str() : nullptr;
}

int vrmui_write_form(vrmui_object *, const char *heading, s_ekva *const *rec) {
    ScriptedUser::instance().forms.push_back({heading, pairs_of(rec)});
    return 0;
}

int vrmui_write_table_new(vrmui_object *, const char *title, s_ekva *const *columns) {
    ScriptedUser &user = ScriptedUser::instance();
    user.table_title = title ? title : "";
    user.table_widths.clear();
    user.table_rows.emplace_back();
    for (const auto &[name, width] : pairs_of(columns)) {
        user.table_rows.back().push_back(name);
        user.table_widths.push_back(width);
    }
    return next_table_result(user);
}

int vrmui_write_table_add(vrmui_object *, s_ekva *const *row, int number) {
    ScriptedUser &user = ScriptedUser::instance();
    user.table_rows.emplace_back();
    user.row_numbers.push_back(number);
    for (const auto &[name, value] : pairs_of(row)) {
        user.table_rows.back().push_back(value);
    }
    return next_table_result(user);
}

int vrmui_write_table_end(vrmui_object *, const char *) {
    return next_table_result(ScriptedUser::instance());
}

int vrmui_write_file(vrmui_object *, const char *path, int) {
    ScriptedUser &user = ScriptedUser::instance();
    std::ifstream file(path, std::ios::binary);
    user.files.push_back({path, {std::istreambuf_iterator<char>(file), {}}});
    return user.table_result;
}
