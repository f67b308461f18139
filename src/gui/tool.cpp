#include "gui/tool.h"

#include <FL/Fl.H>
#include <FL/Fl_Button.H>
#include <FL/Fl_Double_Window.H>
#include <FL/Fl_Multi_Browser.H>

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

#include "gui/model/tool_command.h"
#include "gui/model/tool_output.h"
#include "gui/state.h"
#include "gui/status_line.h"
#include "gui/window.h"
#include "support/log.h"

// ---- Tools whose output no window waits for any more ----

namespace {

struct unwatched_tool {
    FILE *output;
    std::string action_name;
    bool holds_lock;
};

// The tool that was started last, until the end of its output: `pvrm_file` is not cleared there.
FILE *watched = nullptr;
const tool_action *watched_action = nullptr;

void drain(int fd, void *data) {
    auto *tool = static_cast<unwatched_tool *>(data);
    tool_line line;
    if (read_tool_line(tool->output, &line)) {
        log_debug("%s: %s", tool->action_name.c_str(), line.text);
        return;
    }
    const std::unique_ptr<unwatched_tool> owner(tool);
    Fl::remove_fd(fd);
    const int status = pclose(tool->output);
    log_say(LEVEL_INFO, "%s", tool_result_line(tool->action_name.c_str(), status).c_str());
    if (tool->holds_lock) {
        pvrm_lock = 0;
    }
    pvrm_pending--;
}

// What stdio has read ahead stays in the stream, so the handler goes on with the same stream.
void unwatch() {
    if (!watched) {
        return;
    }
    auto *tool = new unwatched_tool{watched, watched_action->name, !watched_action->blocks_buttons};
    Fl::add_fd(fileno(watched), drain, tool);
    watched = nullptr;
}

}  // namespace

// ---- The output in the window ----

// Where the output was scrolled to last, to show its newest line.
static int followed_to = 0;

// The user who has scrolled back reads, and is left in peace.
static bool follows_newest_line() {
    return pvrm_out->vposition() >= followed_to;
}

static void show_newest_line(void * /*data*/) {
    if (pvrm_out && pvrm_out->size() > 0 && follows_newest_line()) {
        pvrm_out->bottomline(pvrm_out->size());
        followed_to = pvrm_out->vposition();
    }
}

static void add_output(const char *line) {
    if (!pvrm_out) {
        return;
    }
    pvrm_out->add(line);
    // A few times a second, since to scroll costs more than to add a line.
    if (follows_newest_line() && !Fl::has_timeout(show_newest_line)) {
        Fl::add_timeout(0.05, show_newest_line);
    }
}

static void make_output() {
    pvrm_out = new Fl_Multi_Browser(10, 100, 660, 345);
    pvrm_out->textsize(11);
    show_plain_lines(pvrm_out);
    followed_to = 0;
}

// ---- Start, lines and end of a tool ----

int pvrm_exec(int mode, char * /*arg*/, s_ekva *** /*out*/) {
    const std::optional<std::string> command = tool_word_command(mode);
    if (!command) {
        return -1;
    }
    log_say(LEVEL_INFO, "executing <%s>", command->c_str());
    return system(command->c_str());
}

void start_tool(const tool_action &action, char *const *names) {
    const std::optional<std::string> command = tool_command(action, names);
    if (!command) {
        set_status(action.failure_line);
        return;
    }
    log_debug("executing <%s>\n", command->c_str());
    // Closed on exec, or a dialog program started meanwhile would hold the pipe open.
    FILE *output = popen(command->c_str(), "re");
    if (!output) {
        set_status(action.failure_line);
        return;
    }
    unwatch();
    pvrm_file = watched = output;
    watched_action = &action;
    pvrm_pending++;
    set_status(action.first_line);
    make_output();
    // The toolkit hands the name back as it came, so it must not be a copy; nobody writes to it.
    Fl::add_fd(fileno(pvrm_file), pvrm_fdh, const_cast<char *>(action.name));
    if (action.blocks_buttons) {
        all_but_deactivate();
    } else {
        pvrm_lock = 1;
    }
}

static void take_line(const char *line) {
    if (const char *status = status_of_tool_line(line)) {
        set_status(status);
    }
    log_debug("adding <%s>", line);
    add_output(line);
}

static void finish_tool() {
    Fl::remove_fd(fileno(pvrm_file));
    const bool was_watched = pvrm_file == watched;
    const int status = pclose(pvrm_file);
    log_debug("pvrm freed");
    pvrm_lock = 0;
    if (was_watched) {
        watched = nullptr;
        pvrm_pending--;
    }
    set_status(tool_result_line(cur_action, status).c_str());
    if (win) {
        win->cursor(FL_CURSOR_DEFAULT);
    }
    if (mbclose) {
        mbclose->activate();
    }
    all_but_activate();
}

void pvrm_fdh(int /*fd*/, void *name) {
    if (name) {
        copy_action_name(cur_action, static_cast<const char *>(name));
    }
    log_debug("entering pvrm_fdh");
    tool_line line;
    if (read_tool_line(pvrm_file, &line)) {
        take_line(line.text);
    } else {
        finish_tool();
    }
}
