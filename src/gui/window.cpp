#include "gui/window.h"

#include <FL/Fl.H>
#include <FL/Fl_Box.H>
#include <FL/Fl_Button.H>
#include <FL/Fl_Double_Window.H>
#include <FL/Fl_Multi_Browser.H>
#include <FL/Fl_PNG_Image.H>

#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "gui/callbacks.h"
#include "gui/state.h"

static constexpr char logo_path[] = "/opt/X11/share/pixmaps/xvrm-logo.png";

namespace {

struct position {
    int x, y;
};
std::optional<position> last_position;

// The present one, and those of before that still wait for output. A window takes its widgets along
// when it is deleted.
std::vector<std::unique_ptr<Fl_Double_Window>> windows;

// Of the present pass. It must outlive the box that shows it, and so is let go with the window.
std::unique_ptr<Fl_PNG_Image> logo;

Fl_Color window_colour() {
    return fl_rgb_color(234, 234, 234);
}

constexpr int window_width = 800;
constexpr int window_height = 600;

Fl_Double_Window *make_window() {
    static constexpr char title[] = "Vorathan Package Manager";
    Fl_Group::current(nullptr);  // else it could become part of a window that wasn't finished
    auto made = last_position
                    ? std::make_unique<Fl_Double_Window>(last_position->x, last_position->y,
                                                         window_width, window_height, title)
                    : std::make_unique<Fl_Double_Window>(window_width, window_height, title);
    made->color(window_colour());
    return windows.emplace_back(std::move(made)).get();
}

void add_top_row() {
    int x = 10;
    const auto add = [&x](const char *label, widget_callback callback) {
        constexpr int width = 120;
        Fl_Button *button = add_button(x, 10, width, 25, label, callback);
        x += width;
        return button;
    };
    if (!update_only) {
        but_listloc = add("List Packages", vrm_listloc_cb);
        but_install = add("Install Packages", vrm_install_cb);
        but_update = add("Update Packages", vrm_update_cb);
        but_refresh = add("Refresh", vrm_refresh_cb);
        but_cleanup = add("Cleanup", vrm_cleanup_cb);
    }
    but_quit = add("Quit", vrm_quit_cb);
}

// Whether the tool that is running writes to widgets of this window.
bool waits_for_output(const Fl_Double_Window &window) {
    return pvrm_pending > 0 &&
           ((pvrm_out && window.contains(pvrm_out)) || (mbclose && window.contains(mbclose)));
}

void forget_present_window() {
    win = nullptr;
    but_listloc = but_install = but_update = but_refresh = but_cleanup = but_quit = nullptr;
    pvrm_status = nullptr;
    xvrm_image = nullptr;
}

void forget_widgets_of(const Fl_Double_Window &window) {
    if (pvrm_out && window.contains(pvrm_out)) {
        pvrm_out = nullptr;
    }
    if (mbclose && window.contains(mbclose)) {
        mbclose = nullptr;
    }
}

}  // namespace

Fl_Box *add_label(const char *text, int x, int y, int w, int h) {
    return new Fl_Box(x, y, w, h, text);
}

Fl_Button *add_button(int x, int y, int w, int h, const char *label, widget_callback callback,
                      void *data) {
    auto *button = new Fl_Button(x, y, w, h, label);
    button->labelsize(12);
    button->color(window_colour());
    button->callback(callback, data);
    return button;
}

void new_window() {
    win = make_window();
    add_top_row();
    pvrm_status = new Fl_Multi_Browser(10, 70, 660, 25);
    pvrm_status->textsize(11);
    // One line has no room for a scrollbar below it, which would cover the text. It counts as
    // shown, and takes its part of the height, until the first drawing finds otherwise.
    pvrm_status->has_scrollbar(Fl_Browser_::VERTICAL);
    pvrm_status->hscrollbar.hide();
    xvrm_image = new Fl_Box(10, 130, 660, 315);
    logo = std::make_unique<Fl_PNG_Image>(logo_path);
    xvrm_image->image(logo.get());
    if (logo->fail() == 0) {
        Fl_Window::default_icon(logo.get());  // keeps a copy
    } else {
        xvrm_image->hide();  // it has no size, and the display refuses to draw that
    }
}

void finish_window() {
    win->end();
    // This show also fetches the colours of the desktop; what is selected keeps our own.
    const Fl_Color selection = Fl::get_color(FL_SELECTION_COLOR);
    win->show(gui_argc, gui_argv);
    Fl::set_color(FL_SELECTION_COLOR, selection);
}

void leave_window() {
    last_position = {win->x_root(), win->y_root()};
    win->hide();
    xvrm_image->image(nullptr);
    logo.reset();
    std::erase_if(windows, [](const auto &window) {
        if (waits_for_output(*window)) {
            return false;
        }
        forget_widgets_of(*window);
        return true;
    });
    // The output of a tool may still come, and a dialog, while there is no window.
    forget_present_window();
}

void all_but_deactivate() {
    for (Fl_Button *button :
         {but_listloc, but_cleanup, but_install, but_quit, but_refresh, but_update}) {
        if (button) {
            button->deactivate();
        }
    }
}

void all_but_activate() {
    for (Fl_Button *button :
         {but_listloc, but_cleanup, but_install, but_quit, but_refresh, but_update}) {
        if (button) {
            button->activate();
        }
    }
}

void add_close_button() {
    mbclose = add_button(10, 500, 120, 25, "close", mbclose_CB);
    mbclose->deactivate();
}

void mbclose_CB(Fl_Widget * /*widget*/, void * /*data*/) {
    if (pvrm_out) {
        pvrm_out->clear();
        pvrm_out->hide();
    }
    if (mbclose) {
        mbclose->hide();
    }
}
