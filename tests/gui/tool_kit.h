// A tool of the test's own in the place of the privileged one, and a window that runs it. A test
// program that includes this links the path given here instead of the fixed one.
#pragma once

#include <FL/Fl.H>
#include <FL/Fl_Button.H>
#include <FL/Fl_Double_Window.H>
#include <FL/Fl_Multi_Browser.H>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "gui/model/tool_action.h"
#include "gui/model/tool_command.h"
#include "gui/state.h"
#include "gui/window.h"
#include "kit/log_capture.h"
#include "kit/scripted_user.h"
#include "kit/temp_dir.h"
#include "support/array.h"

inline char fake_tool[250] = "";
extern const char *const pvrm_path = fake_tool;

inline std::vector<std::string> lines_of(const Fl_Browser *browser) {
    std::vector<std::string> lines;
    for (int i = 1; browser && i <= browser->size(); i++) {
        lines.emplace_back(browser->text(i));
    }
    return lines;
}

// Lets the toolkit run until the condition holds, for 60 seconds at most.
inline bool wait_until(const std::function<bool()> &condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        Fl::wait(0.02);
    }
    return true;
}

class ToolTest : public testing::Test {
 protected:
    ToolTest() {
        gui_argc = 1;
        gui_argv = arguments_;
        snprintf(fake_tool, sizeof fake_tool, "%s", (dir / "pvrm").c_str());
        log.clear();
    }
    ~ToolTest() override {
        EXPECT_TRUE(wait_until([] { return pvrm_pending == 0; }));
        leave();
        arr_free(sel_vrks);
        sel_vrks = nullptr;
    }

    // Makes the tool a shell script.
    void tool_is(const std::string &script) const {
        dir.write("pvrm", "#!/bin/sh\ndir=" + dir.path() + "\n" + script + "\n", 0755);
    }
    // A line of such a script: waits until the test lets the tool go on, which is for good.
    static constexpr char wait_for_test[] =
        "while [ ! -e $dir/go ] && [ -e $dir ]; do sleep 0.02; done\n";
    void let_go() const {
        dir.write("go", "");
    }

    // Chooses names, as a callback does.
    static void choose(std::initializer_list<const char *> names) {
        arr_free(sel_vrks);
        sel_vrks = static_cast<char **>(calloc(names.size() + 2, sizeof(char *)));
        size_t i = 0;
        for (const char *name : names) {
            sel_vrks[i++] = strdup(name);
        }
    }

    // Leaves the window, if there is one.
    static void leave() {
        if (win) {
            leave_window();
        }
    }

    static bool ended() {
        return pvrm_pending == 0;
    }
    static std::vector<std::string> status() {
        return lines_of(pvrm_status);
    }
    static std::vector<std::string> output() {
        return lines_of(pvrm_out);
    }
    static bool buttons_are_active() {
        bool active = true;
        for (const Fl_Button *button :
             {but_listloc, but_cleanup, but_install, but_quit, but_refresh, but_update}) {
            active = active && button->active();
        }
        return active;
    }
    static bool buttons_are_inactive() {
        bool inactive = true;
        for (const Fl_Button *button :
             {but_listloc, but_cleanup, but_install, but_quit, but_refresh, but_update}) {
            inactive = inactive && !button->active();
        }
        return inactive;
    }
    static const Fl_Widget *widget_labelled(const std::string &text) {
        for (int i = 0; i < win->children(); i++) {
            const char *label = win->child(i)->label();
            if (label && text == label) {
                return win->child(i);
            }
        }
        return nullptr;
    }
    static void expect_place(const Fl_Widget *widget, int x, int y, int w, int h) {
        ASSERT_TRUE(widget);
        EXPECT_EQ(widget->x(), x);
        EXPECT_EQ(widget->y(), y);
        EXPECT_EQ(widget->w(), w);
        EXPECT_EQ(widget->h(), h);
    }

    TempDir dir;
    LogCapture log;
    ScriptedUser &user = ScriptedUser::fresh();

 private:
    static inline char name_[] = "fltk-vrm";
    static inline char *arguments_[] = {name_, nullptr};
};
