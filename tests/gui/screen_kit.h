// A window in the looks of the program, to which a test adds a screen.
#pragma once

#include <FL/Fl_Double_Window.H>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "gui/drawing.h"
#include "gui/model/tool_action.h"
#include "gui/state.h"
#include "gui/theme.h"
#include "gui/window.h"
#include "kit/scripted_user.h"
#include "kit/test_repo.h"
#include "repository/vrc.h"
#include "support/array.h"

class ScreenTest : public testing::Test {
 protected:
    ScreenTest() {
        static const bool themed = (init_theme(), true);
        (void)themed;
        gui_argc = 1;
        gui_argv = arguments_;
        vrm = repo.handle();
        vrc = &connection_;
        new_window();
    }
    ~ScreenTest() override {
        leave_window();
        arr_free(sel_vrks);
        sel_vrks = nullptr;
        vrm = nullptr;
        vrc = nullptr;
        pvrm_vrc_findpkg = nullptr;
        vrm_gui_action = ACTION_IDLE;
    }

    // The widget of this label, null when there is none.
    template <typename T = Fl_Widget>
    static T *labelled(const char *label) {
        for (int i = 0; i < win->children(); ++i) {
            auto *const widget = dynamic_cast<T *>(win->child(i));
            if (widget && widget->label() && std::string(widget->label()) == label) {
                return widget;
            }
        }
        return nullptr;
    }
    // The first widget of a kind.
    template <typename T>
    static T *first() {
        for (int i = 0; i < win->children(); ++i) {
            if (auto *const found = dynamic_cast<T *>(win->child(i))) {
                return found;
            }
        }
        return nullptr;
    }
    static std::vector<int> place(const Fl_Widget *widget) {
        return {widget->x(), widget->y(), widget->w(), widget->h()};
    }
    void install(const std::string &name) {
        PackageSpec spec;
        spec.name = name;
        repo.install(spec);
    }
    // What the window shows.
    static Picture picture() {
        return {800, 600,
                [](Fl_Image_Surface &surface) {
                    for (int i = 0; i < win->children(); ++i) {
                        if (win->child(i)->Fl_Widget::visible()) {
                            surface.draw(win->child(i), win->child(i)->x(), win->child(i)->y());
                        }
                    }
                },
                win->color()};
    }
    static void save_picture(const std::string &name) {
        picture().save(std::string(VRM_BINARY_DIR) + "/" + name + ".png");
    }

    TestRepo repo;
    ScriptedUser &user = ScriptedUser::fresh();

 private:
    // The toolkit keeps the name for all windows to come.
    static inline char name_[] = "fltk-vrm";
    static inline char *arguments_[] = {name_, nullptr};
    int connection_ = 0;
};
