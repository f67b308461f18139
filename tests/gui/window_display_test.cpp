#include "gui/window.h"

#include <FL/Fl.H>
#include <FL/Fl_Box.H>
#include <FL/Fl_Button.H>
#include <FL/Fl_Double_Window.H>
#include <FL/Fl_Image.H>
#include <FL/Fl_Multi_Browser.H>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "gui/callbacks.h"
#include "gui/state.h"

using testing::ElementsAre;

namespace {

struct Place {
    int x, y, w, h;
    bool operator==(const Place &) const = default;
};

Place place_of(const Fl_Widget *widget) {
    return {widget->x(), widget->y(), widget->w(), widget->h()};
}

// One pass at a time, without the loop.
class Window : public testing::Test {
 protected:
    Window() {
        update_only = 0;
        pvrm_pending = 0;
        gui_argc = 1;
        gui_argv = arguments_;
        new_window();
    }
    ~Window() override {
        pvrm_pending = 0;
        if (win) {
            leave_window();
        }
    }

    static void next_window() {
        finish_window();
        Fl::check();
        leave_window();
        new_window();
    }

 private:
    // The toolkit keeps the name for all windows to come.
    static inline char name_[] = "fltk-vrm";
    static inline char *arguments_[] = {name_, nullptr};
};

}  // namespace

TEST_F(Window, HasItsSizeTitleAndColour) {
    EXPECT_EQ(win->w(), 800);
    EXPECT_EQ(win->h(), 600);
    EXPECT_STREQ(win->label(), "Vorathan Package Manager");
    EXPECT_EQ(win->color(), fl_rgb_color(234, 234, 234));
}

TEST_F(Window, HasSixButtonsInItsTopRow) {
    const struct {
        Fl_Button *button;
        const char *label;
        Fl_Callback *callback;
    } row[] = {
        {but_listloc, "List Packages", vrm_listloc_cb},
        {but_install, "Install Packages", vrm_install_cb},
        {but_update, "Update Packages", vrm_update_cb},
        {but_refresh, "Refresh", vrm_refresh_cb},
        {but_cleanup, "Cleanup", vrm_cleanup_cb},
        {but_quit, "Quit", vrm_quit_cb},
    };
    int x = 10;
    for (const auto &[button, label, callback] : row) {
        ASSERT_TRUE(button);
        EXPECT_STREQ(button->label(), label);
        EXPECT_EQ(place_of(button), (Place{x, 10, 120, 25})) << label;
        EXPECT_EQ(button->labelsize(), 12);
        EXPECT_EQ(button->color(), win->color());
        EXPECT_EQ(button->callback(), callback) << label;
        EXPECT_EQ(button->parent(), win);
        x += 120;
    }
}

TEST_F(Window, HasQuitAloneInUpdateOnlyMode) {
    update_only = 1;
    next_window();
    EXPECT_EQ(place_of(but_quit), (Place{10, 10, 120, 25}));
    EXPECT_STREQ(but_quit->label(), "Quit");
    EXPECT_EQ(but_quit->callback(), static_cast<Fl_Callback *>(vrm_quit_cb));
    for (const Fl_Button *other :
         {but_listloc, but_install, but_update, but_refresh, but_cleanup}) {
        EXPECT_FALSE(other);
    }
    EXPECT_EQ(win->children(), 3);
}

TEST_F(Window, HasTheStatusLineAndTheLogoBehindTheRest) {
    EXPECT_EQ(place_of(pvrm_status), (Place{10, 70, 660, 25}));
    EXPECT_EQ(pvrm_status->textsize(), 11);
    EXPECT_EQ(pvrm_status->size(), 0);
    EXPECT_EQ(place_of(xvrm_image), (Place{10, 130, 660, 315}));
    EXPECT_FALSE(xvrm_image->label());
    Fl_Box *label = add_label("Action: test");
    EXPECT_LT(win->find(xvrm_image), win->find(label));
}

TEST_F(Window, ShowsTheWholeLastLineOfTheStatus) {
    const std::string wide(300, 'W');
    for (const char *text : {"first", wide.c_str(), "last"}) {
        pvrm_status->add(text);
        pvrm_status->bottomline(pvrm_status->size());
    }
    // The area is 21 points high, and not less for a scrollbar.
    EXPECT_EQ(pvrm_status->vposition(), 3 * 14 - 21);
    finish_window();
    win->wait_for_expose();
    Fl::check();
    EXPECT_FALSE(pvrm_status->hscrollbar.visible());
    EXPECT_TRUE(pvrm_status->displayed(3));
}

TEST_F(Window, PutsALabelWhereScreensTellTheirAction) {
    const Fl_Box *label = add_label("Action: test");
    EXPECT_EQ(place_of(label), (Place{10, 35, 250, 25}));
    EXPECT_STREQ(label->label(), "Action: test");
    EXPECT_EQ(place_of(add_label("there", 10, 100, 250, 25)), (Place{10, 100, 250, 25}));
}

TEST_F(Window, DeactivatesAndActivatesTheWholeTopRow) {
    const auto active = [] {
        std::vector<bool> result;
        for (const Fl_Button *button :
             {but_listloc, but_install, but_update, but_refresh, but_cleanup, but_quit}) {
            result.push_back(button->active() != 0);
        }
        return result;
    };
    all_but_deactivate();
    EXPECT_THAT(active(), ElementsAre(false, false, false, false, false, false));
    all_but_activate();
    EXPECT_THAT(active(), ElementsAre(true, true, true, true, true, true));
}

TEST_F(Window, DeactivatesWhatIsThereInUpdateOnlyMode) {
    update_only = 1;
    next_window();
    all_but_deactivate();
    EXPECT_FALSE(but_quit->active());
    all_but_activate();
    EXPECT_TRUE(but_quit->active());
}

TEST_F(Window, OpensWhereTheOneBeforeStood) {
    finish_window();
    win->position(123, 45);
    Fl::check();
    leave_window();
    new_window();
    EXPECT_EQ(win->x(), 123);
    EXPECT_EQ(win->y(), 45);
    finish_window();
    win->wait_for_expose();
    EXPECT_EQ(win->x_root(), 123);
    EXPECT_EQ(win->y_root(), 45);
}

TEST_F(Window, KeepsTheSelectionColourOfTheTheme) {
    Fl::set_color(FL_SELECTION_COLOR, 53, 132, 228);
    finish_window();
    uchar red, green, blue;
    Fl::get_color(FL_SELECTION_COLOR, red, green, blue);
    EXPECT_THAT((std::vector<int>{red, green, blue}), ElementsAre(53, 132, 228));
}

TEST_F(Window, IsDeletedWithItsWidgetsWhenItIsLeft) {
    for (int i = 0; i < 3; i++) {
        Fl_Widget_Tracker window(win);
        Fl_Widget_Tracker status(pvrm_status);
        next_window();
        EXPECT_TRUE(window.deleted());
        EXPECT_TRUE(status.deleted());
    }
}

TEST_F(Window, IsKeptWhileTheOutputOfAToolIsStillToCome) {
    Fl_Widget_Tracker first(win);
    pvrm_out = new Fl_Multi_Browser(10, 100, 660, 345);
    add_close_button();
    pvrm_pending = 1;
    next_window();
    ASSERT_FALSE(first.deleted());
    EXPECT_FALSE(win->contains(pvrm_out));
    pvrm_out->add("a line that came late");

    Fl_Widget_Tracker second(win);
    next_window();
    EXPECT_FALSE(first.deleted());
    EXPECT_TRUE(second.deleted()) << "nothing is written to this one";

    pvrm_pending = 0;
    EXPECT_TRUE(pvrm_out && mbclose);
    next_window();
    EXPECT_TRUE(first.deleted());
    EXPECT_FALSE(pvrm_out);
    EXPECT_FALSE(mbclose);
}

TEST_F(Window, HasACloseButtonThatWaitsForTheEndOfTheOutput) {
    add_close_button();
    EXPECT_STREQ(mbclose->label(), "close");
    EXPECT_EQ(place_of(mbclose), (Place{10, 500, 120, 25}));
    EXPECT_EQ(mbclose->labelsize(), 12);
    EXPECT_EQ(mbclose->color(), win->color());
    EXPECT_EQ(mbclose->callback(), static_cast<Fl_Callback *>(mbclose_CB));
    EXPECT_FALSE(mbclose->active());
}

TEST_F(Window, ShowsTheLogoAgainWhenTheOutputIsClosed) {
    pvrm_status->add("cleanup repository was successful");
    pvrm_out = new Fl_Multi_Browser(10, 100, 660, 345);
    pvrm_out->add("a line");
    add_close_button();
    finish_window();
    mbclose->do_callback();
    EXPECT_EQ(pvrm_out->size(), 0);
    EXPECT_FALSE(pvrm_out->Fl_Widget::visible());
    EXPECT_FALSE(mbclose->visible());
    // Without its file there is nothing to show.
    EXPECT_EQ(xvrm_image->visible() != 0, xvrm_image->image()->fail() == 0);
    EXPECT_TRUE(pvrm_status->Fl_Widget::visible());
    EXPECT_EQ(pvrm_status->size(), 1);
}

// As after a refresh during a cleanup whose window is gone.
TEST_F(Window, ClosesWithoutAnOutput) {
    pvrm_out = nullptr;
    add_close_button();
    mbclose->do_callback();
    EXPECT_FALSE(mbclose->visible());
}
