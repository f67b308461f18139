// The tool within the loop: what closing the window and leaving the screen mean while it runs.
#include <gmock/gmock.h>

#include "gui/passes.h"
#include "gui/tool_kit.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class ToolLoop : public ToolTest {
 protected:
    ToolLoop() {
        vrc_cache = nullptr;
        pvrm_vrc_findpkg = [](void *, const char *, const char *, const char *, int, s_ekva **,
                              vri ***) { return 0; };
        user.answers = {"1"};
    }
    ~ToolLoop() override {
        pvrm_vrc_findpkg = nullptr;
        vrm_gui_action = ACTION_IDLE;
    }
    // Counts its starts, one line for each.
    void tool_counts(const std::string &rest = "") const {
        tool_is("echo \"$@\" >>$dir/starts\n" + rest);
    }
    std::string starts() const {
        return exists(dir / "starts") ? read_all(dir / "starts") : "";
    }
    static void close_by_manager() {
        win->hide();
    }
    static void quit() {
        but_quit->do_callback();
    }
};

}  // namespace

TEST_F(ToolLoop, ClosingTheWindowOfUpdateAllStartsItAgain) {
    tool_counts();
    vrm_gui_action = ACTION_UPDATE_ALL;
    Passes::run({[] { EXPECT_TRUE(wait_until(ended)); }, close_by_manager,
                 [this] {
                     EXPECT_TRUE(wait_until(ended));
                     EXPECT_EQ(starts(), "upgrade\nupgrade\n");
                     EXPECT_THAT(status(), ElementsAre("update all packages was successful"));
                 },
                 quit});
}

TEST_F(ToolLoop, ClosingTheWindowOfARunningUpdateStartsASecondOne) {
    tool_counts("mkdir $dir/first 2>/dev/null || exit 0\n" + std::string(wait_for_test) +
                "touch $dir/whole");
    vrm_gui_action = ACTION_UPDATE_ALL;
    Passes::run({[this] { EXPECT_TRUE(wait_until([this] { return exists(dir / "first"); })); },
                 close_by_manager,
                 [this] {
                     EXPECT_TRUE(wait_until([] { return pvrm_pending == 1; }));
                     EXPECT_THAT(status(), ElementsAre("update all packages was successful"));
                     let_go();
                     EXPECT_TRUE(wait_until(ended));
                     EXPECT_TRUE(exists(dir / "whole"));
                     EXPECT_EQ(starts(), "upgrade\nupgrade\n");
                 },
                 quit});
}

TEST_F(ToolLoop, ClosingTheWindowOfChosenPackagesLeavesNothingChosen) {
    for (const int action : {ACTION_UPDATE_SELECTED, ACTION_INSTALL_SELECTED}) {
        unlink((dir / "starts").c_str());
        user.answers = {"1"};
        tool_counts();
        choose({"foo"});
        vrm_gui_action = action;
        Passes::run({[] { EXPECT_TRUE(wait_until(ended)); }, close_by_manager,
                     [this] {
                         EXPECT_TRUE(widget_labelled("No packages selected"));
                         EXPECT_EQ(pvrm_pending, 0);
                         EXPECT_THAT(status(), IsEmpty());
                         EXPECT_NE(starts().find("foo\n"), std::string::npos);
                         EXPECT_EQ(starts().find('\n'), starts().size() - 1);
                     },
                     quit});
    }
}

TEST_F(ToolLoop, ACleanupGoesOnBehindTheOtherScreens) {
    tool_counts("echo one\n" + std::string(wait_for_test) + "echo two");
    static const Fl_Multi_Browser *browser;
    vrm_gui_action = ACTION_CLEANUP;
    Passes::run({[] {
                     EXPECT_TRUE(wait_until([] { return pvrm_out->size() == 1; }));
                     browser = pvrm_out;
                     vrm_gui_action = ACTION_REMOVE;
                     win->hide();
                 },
                 [] {
                     vrm_gui_action = ACTION_REMOVE;
                     win->hide();
                 },
                 [this] {
                     let_go();
                     EXPECT_TRUE(wait_until(ended));
                     EXPECT_EQ(pvrm_out, browser);
                     EXPECT_THAT(output(), ElementsAre("one\n", "two\n"));
                     EXPECT_THAT(status(), ElementsAre("cleanup repository was successful"));
                     EXPECT_EQ(pvrm_lock, 0);
                 },
                 [] {
                     vrm_gui_action = ACTION_REMOVE;
                     win->hide();
                 },
                 [] {
                     // With its output at its end the old window could go.
                     EXPECT_FALSE(pvrm_out);
                     EXPECT_FALSE(mbclose);
                 },
                 quit});
    EXPECT_EQ(starts(), "cleanup\n");
}

TEST_F(ToolLoop, QuitDuringACleanupEndsTheLoop) {
    tool_counts(wait_for_test);
    vrm_gui_action = ACTION_CLEANUP;
    Passes::run({[] { EXPECT_TRUE(but_quit->active()); }, quit});
    EXPECT_EQ(pvrm_pending, 1);
    let_go();
}
