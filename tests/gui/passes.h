// Runs the loop of the window in the test's own process: steps that are taken one after the other
// while a window is shown, as a user would act.
#pragma once

#include <FL/Fl.H>
#include <FL/Fl_Double_Window.H>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "gui/loop.h"
#include "gui/model/tool_action.h"
#include "gui/state.h"
#include "kit/scripted_user.h"
#include "repository/vrc.h"

// The widgets of the window that bear this text as their label.
inline int widgets_labelled(const char *text) {
    int found = 0;
    for (int i = 0; i < win->children(); i++) {
        const char *label = win->child(i)->label();
        found += label && strcmp(label, text) == 0;
    }
    return found;
}

class Passes {
 public:
    using Step = std::function<void()>;

    // Runs the loop, taking the next step whenever the window has been shown for a moment. When all
    // are taken and the loop still runs, that is a failure, and the loop is made to end.
    static void run(std::vector<Step> steps) {
        Passes passes(std::move(steps));
        Fl::add_timeout(pause, take, &passes);
        run_loop();
        Fl::remove_timeout(take, &passes);
        EXPECT_EQ(passes.taken_, passes.steps_.size()) << "the loop ended too early";
        EXPECT_FALSE(passes.late_) << "the loop did not end by itself";
    }

 private:
    static constexpr double pause = 0.03;
    explicit Passes(std::vector<Step> steps) : steps_(std::move(steps)) {}

    static void take(void *data) {
        auto *passes = static_cast<Passes *>(data);
        Fl::repeat_timeout(pause, take, data);
        if (!win || !win->shown()) {
            return;
        }
        if (passes->taken_ < passes->steps_.size()) {
            passes->steps_[passes->taken_++]();
        } else {
            passes->late_ = true;
            update_only = 1;
            vrm_gui_action = ACTION_QUIT;
            win->hide();
        }
    }

    std::vector<Step> steps_;
    size_t taken_ = 0;
    bool late_ = false;
};

// A program that has started, as far as the loop can tell: an empty catalogue, no arguments.
class LoopTest : public testing::Test {
 protected:
    LoopTest() {
        vrm_gui_action = ACTION_IDLE;
        update_only = 0;
        gui_argc = 1;
        gui_argv = arguments_;
        asked_for_catalogue = 0;
        vrc_cache = nullptr;
        pvrm_vrc_findpkg = [](void *, const char *, const char *, const char *, int, s_ekva **,
                              vri ***) {
            asked_for_catalogue++;
            return 0;
        };
    }
    ~LoopTest() override {
        pvrm_vrc_findpkg = nullptr;
    }

    static void close_by_manager() {
        win->hide();
    }

    ScriptedUser &user = ScriptedUser::fresh();
    static inline int asked_for_catalogue = 0;

 private:
    // The toolkit keeps the name for all windows to come.
    static inline char name_[] = "fltk-vrm";
    static inline char *arguments_[] = {name_, nullptr};
};
