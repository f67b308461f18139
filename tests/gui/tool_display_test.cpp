#include "gui/tool.h"

#include <gmock/gmock.h>

#include "gui/screens.h"
#include "gui/tool_kit.h"
#include "kit/lower_limit.h"

using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class ToolScreen : public ToolTest {
 protected:
    static void show(int action) {
        new_window();
        screen_run_tool(action);
    }
    void run(int action, const std::string &script) {
        tool_is(script);
        show(action);
        ASSERT_TRUE(wait_until(ended));
    }
    bool tool_ran() const {
        return exists(dir / "ran");
    }
    // What the status is while this is the only line of the tool's output.
    void expect_status_of_line(const std::string &line, const std::string &expected) {
        tool_is("echo '" + line + "'\n" + std::string(wait_for_test));
        show(ACTION_UPDATE_ALL);
        ASSERT_TRUE(wait_until([] { return pvrm_out->size() == 1; }));
        EXPECT_THAT(status(), ElementsAre(expected));
        EXPECT_THAT(output(), ElementsAre(line + "\n"));
        let_go();
    }
    // A whole run: the label of the screen, what the tool is called with, and the status at the
    // end.
    void expect_run(int action, const char *label, const std::string &arguments,
                    const std::string &result) {
        run(action, "echo \"$@\"");
        expect_place(widget_labelled(label), 10, 35, 250, 25);
        EXPECT_THAT(output(), ElementsAre(arguments + "\n"));
        EXPECT_THAT(status(), ElementsAre(result));
    }
};
using PvrmExec = ToolTest;
using PvrmFdh = ToolTest;
using CloseButton = ToolScreen;

}  // namespace

// ---- The four actions ----

TEST_F(ToolScreen, InstallGivesTheToolTheChosenNames) {
    choose({"foo", "bar"});
    expect_run(ACTION_INSTALL_SELECTED, "Action: install selected packages", "install foo bar",
               "install selected packages was successful");
    EXPECT_FALSE(sel_vrks);
}

TEST_F(ToolScreen, UpdateSelectedGivesTheToolTheChosenNames) {
    choose({"foo", "bar"});
    expect_run(ACTION_UPDATE_SELECTED, "Action: Perform selected updates", "upgrade foo bar",
               "update selected packages was successful");
    EXPECT_FALSE(sel_vrks);
}

TEST_F(ToolScreen, UpdateAllGivesTheToolNoNames) {
    expect_run(ACTION_UPDATE_ALL, "Action: update all packages", "upgrade",
               "update all packages was successful");
}

TEST_F(ToolScreen, CleanupGivesTheToolNoNames) {
    expect_run(ACTION_CLEANUP, "Action: cleanup reository", "cleanup",
               "cleanup repository was successful");
}

TEST_F(ToolScreen, BeginsWithTheActionsFirstLine) {
    tool_is("");
    const std::vector<std::pair<int, std::string>> first_lines = {
        {7, "updating all packages..."},
        {8, "updating selected packages..."},
        {9, "install selected packages..."},
        {12, "cleanup repository..."},
    };
    for (const auto &[action, first_line] : first_lines) {
        choose({"foo"});
        show(action);
        EXPECT_THAT(status(), ElementsAre(first_line));
        EXPECT_THAT(output(), IsEmpty());
        expect_place(pvrm_out, 10, 100, 660, 345);
        EXPECT_EQ(pvrm_out->textsize(), 11);
        EXPECT_TRUE(win->shown());
        ASSERT_TRUE(wait_until(ended));
        leave();
    }
}

TEST_F(ToolScreen, LogsWhatItDoes) {
    run(ACTION_UPDATE_ALL, "echo one");
    const std::string command = "executing <" + std::string(fake_tool) + " upgrade 2>&1>";
    EXPECT_TRUE(log.has(LEVEL_DEBUG, command));
    EXPECT_TRUE(log.has_line_end(LEVEL_DEBUG, command));
    EXPECT_THAT(log.at(LEVEL_DEBUG), ElementsAre(command, "entering pvrm_fdh", "adding <one\n>",
                                                 "entering pvrm_fdh", "pvrm freed"));
}

TEST_F(ToolScreen, BlocksTheButtonsUntilTheEndButForACleanup) {
    for (const int action : {7, 8, 9}) {
        tool_is(wait_for_test);
        choose({"foo"});
        show(action);
        EXPECT_TRUE(buttons_are_inactive()) << action;
        EXPECT_FALSE(mbclose->active()) << action;
        EXPECT_EQ(pvrm_lock, 0) << action;
        EXPECT_EQ(pvrm_pending, 1) << action;
        let_go();
        ASSERT_TRUE(wait_until(ended));
        EXPECT_TRUE(buttons_are_active()) << action;
        EXPECT_TRUE(mbclose->active()) << action;
        leave();
        unlink((dir / "go").c_str());
    }
}

TEST_F(ToolScreen, ACleanupLeavesTheButtonsActiveAndSetsTheLock) {
    tool_is(wait_for_test);
    show(ACTION_CLEANUP);
    EXPECT_TRUE(buttons_are_active());
    EXPECT_FALSE(mbclose->active());
    EXPECT_EQ(pvrm_lock, 1);
    let_go();
    ASSERT_TRUE(wait_until(ended));
    EXPECT_TRUE(buttons_are_active());
    EXPECT_TRUE(mbclose->active());
    EXPECT_EQ(pvrm_lock, 0);
}

// In update-only mode there is only the one button.
TEST_F(ToolScreen, WorksWithoutMostOfTheButtons) {
    update_only = 1;
    tool_is(wait_for_test);
    show(ACTION_UPDATE_ALL);
    EXPECT_FALSE(but_update);
    EXPECT_FALSE(but_quit->active());
    let_go();
    ASSERT_TRUE(wait_until(ended));
    EXPECT_TRUE(but_quit->active());
    update_only = 0;
}

// ---- What the tool prints ----

TEST_F(ToolScreen, StatusLinesStandInTheStatusAndInTheOutput) {
    expect_status_of_line("pvrm: Installing a", "Installing a\n");
}

TEST_F(ToolScreen, AMarkerFurtherAlongTakesTheFirst6CharactersOff) {
    expect_status_of_line("x pvrm: y", ": y\n");
}

TEST_F(ToolScreen, OtherLinesLeaveTheStatus) {
    tool_is("echo 'pvrm: one'; echo two; echo\n" + std::string(wait_for_test));
    show(ACTION_UPDATE_ALL);
    ASSERT_TRUE(wait_until([] { return pvrm_out->size() >= 1; }));
    // Lines that the stream holds already wait for the next readiness of the pipe.
    let_go();
    ASSERT_TRUE(wait_until([] { return pvrm_out->size() >= 2; }));
    ASSERT_TRUE(wait_until(ended));
    EXPECT_THAT(output(), ElementsAre("pvrm: one\n", "two\n", "\n"));
}

TEST_F(ToolScreen, ErrorsArePartOfTheOutput) {
    run(ACTION_CLEANUP, "echo one; echo two >&2; echo three");
    EXPECT_THAT(output(), ElementsAre("one\n", "two\n", "three\n"));
}

TEST_F(ToolScreen, AToolThatPrintsNothingIsSuccessful) {
    run(ACTION_CLEANUP, "exit 0");
    EXPECT_THAT(output(), IsEmpty());
    EXPECT_THAT(status(), ElementsAre("cleanup repository was successful"));
    EXPECT_TRUE(mbclose->active());
}

TEST_F(ToolScreen, ALastLineWithoutNewlineIsNotLost) {
    run(ACTION_CLEANUP, "printf 'one\\ntwo'");
    EXPECT_THAT(output(), ElementsAre("one\n", "two"));
}

TEST_F(ToolScreen, LinesAreShownAsTheyAre) {
    run(ACTION_CLEANUP,
        "cat <<'END'\n@b@C1 bold? @\n@@\n100% %s %n\n@-\n a\tb & <c>\npvrm: @c%d me@home\nEND");
    EXPECT_THAT(output(), ElementsAre("@b@C1 bold? @\n", "@@\n", "100% %s %n\n", "@-\n",
                                      " a\tb & <c>\n", "pvrm: @c%d me@home\n"));
    // No character begins a format.
    EXPECT_EQ(pvrm_out->format_char(), '\0');
    EXPECT_EQ(pvrm_status->format_char(), '\0');
}

TEST_F(ToolScreen, ALineOf5000CharactersComesInPieces) {
    run(ACTION_CLEANUP, "printf '%05000d\\n' 0");
    ASSERT_THAT(output(), SizeIs(5));
    for (size_t i = 0; i < 4; i++) {
        EXPECT_EQ(output()[i], std::string(1022, '0'));
    }
    EXPECT_EQ(output()[4], std::string(912, '0') + "\n");
    EXPECT_THAT(status(), ElementsAre("cleanup repository was successful"));
}

TEST_F(ToolScreen, ManyLinesAreAllThere) {
    // As in a program whose log leaves DEBUG out: a file that is opened for each line takes long.
    llog->file_levels = LEVEL_ERROR;
    run(ACTION_UPDATE_ALL, "seq 100000");
    ASSERT_EQ(pvrm_out->size(), 100000);
    EXPECT_STREQ(pvrm_out->text(1), "1\n");
    EXPECT_STREQ(pvrm_out->text(54321), "54321\n");
    EXPECT_STREQ(pvrm_out->text(100000), "100000\n");
}

TEST_F(ToolScreen, TheOutputFollowsItsNewestLine) {
    llog->file_levels = LEVEL_ERROR;
    tool_is("seq 20000\n" + std::string(wait_for_test) + "seq 20001 40000");
    show(ACTION_UPDATE_ALL);
    // The last of these lines wait in the stream until the tool prints more.
    EXPECT_TRUE(wait_until(
        [] { return pvrm_out->size() > 10000 && pvrm_out->displayed(pvrm_out->size()); }));
    let_go();
    EXPECT_TRUE(wait_until([] { return pvrm_out->size() == 40000 && pvrm_out->displayed(40000); }));
    EXPECT_FALSE(pvrm_out->displayed(1));
}

TEST_F(ToolScreen, TheOutputStaysWhereTheUserHasScrolledTo) {
    tool_is("seq 5000\n" + std::string(wait_for_test) + "seq 5001 5100");
    show(ACTION_UPDATE_ALL);
    ASSERT_TRUE(wait_until([] { return pvrm_out->vposition() > 0; }));
    pvrm_out->topline(1);
    let_go();
    ASSERT_TRUE(wait_until(ended));
    ASSERT_EQ(pvrm_out->size(), 5100);
    for (int i = 0; i < 10; i++) {
        Fl::wait(0.02);
    }
    EXPECT_TRUE(pvrm_out->displayed(1));
    EXPECT_FALSE(pvrm_out->displayed(5100));
}

TEST_F(ToolScreen, AStatusOfOneLineStandsAtTheTop) {
    run(ACTION_UPDATE_ALL, "");
    EXPECT_EQ(pvrm_status->vposition(), 0);
    ASSERT_TRUE(wait_until([] { return pvrm_status->displayed(1) != 0; }));
    EXPECT_EQ(pvrm_status->vposition(), 0);
}

// ---- How the tool ends ----

TEST_F(ToolScreen, AFailureIsTheRawWaitStatus) {
    choose({"foo"});
    run(ACTION_INSTALL_SELECTED, "echo reason; exit 1");
    EXPECT_THAT(output(), ElementsAre("reason\n"));
    EXPECT_THAT(status(), ElementsAre("install selected packages failed with return code 256"));
    EXPECT_TRUE(mbclose->active());
    EXPECT_TRUE(buttons_are_active());
    EXPECT_THAT(user.messages, IsEmpty());
}

TEST_F(ToolScreen, AMissingToolIs32512AfterTheShellsMessage) {
    choose({"foo"});
    show(ACTION_UPDATE_SELECTED);
    ASSERT_TRUE(wait_until(ended));
    ASSERT_THAT(output(), SizeIs(1));
    EXPECT_THAT(output()[0], HasSubstr(fake_tool));
    EXPECT_THAT(status(), ElementsAre("update selected packages failed with return code 32512"));
    EXPECT_TRUE(mbclose->active());
}

// The shell that popen starts either has become the tool or tells of its death.
TEST_F(ToolScreen, AKilledToolHasFailed) {
    run(ACTION_CLEANUP, "echo one; kill -9 $$; echo two");
    EXPECT_THAT(output()[0], "one\n");
    EXPECT_THAT(status(), ElementsAre(AnyOf("cleanup repository failed with return code 9",
                                            "cleanup repository failed with return code 35072")));
    EXPECT_EQ(pvrm_lock, 0);
}

// ---- What is not started ----

TEST_F(ToolScreen, WithoutNamesNoToolRuns) {
    tool_is("touch $dir/ran");
    for (const int action : {ACTION_UPDATE_SELECTED, ACTION_INSTALL_SELECTED}) {
        show(action);
        expect_place(widget_labelled("No packages selected"), 10, 70, 250, 25);
        EXPECT_THAT(status(), IsEmpty());
        EXPECT_EQ(pvrm_pending, 0);
        EXPECT_TRUE(buttons_are_active());
        EXPECT_TRUE(win->shown());
        EXPECT_FALSE(tool_ran());
        leave();
    }
}

// The tool would update everything.
TEST_F(ToolScreen, AnEmptyListOfNamesIsNone) {
    tool_is("touch $dir/ran");
    choose({});
    show(ACTION_UPDATE_SELECTED);
    EXPECT_TRUE(widget_labelled("No packages selected"));
    EXPECT_EQ(pvrm_pending, 0);
    EXPECT_FALSE(tool_ran());
    EXPECT_FALSE(sel_vrks);
}

TEST_F(ToolScreen, AnUnsafeNameIsRefused) {
    tool_is("touch $dir/ran");
    choose({"foo", "bar;true"});
    show(ACTION_INSTALL_SELECTED);
    EXPECT_THAT(status(), ElementsAre("failed to install"));
    EXPECT_EQ(pvrm_pending, 0);
    EXPECT_FALSE(tool_ran());
    EXPECT_FALSE(sel_vrks);
    EXPECT_FALSE(mbclose->active());
    EXPECT_TRUE(buttons_are_active());
    EXPECT_TRUE(log.has(LEVEL_ERROR,
                        "cannot install selected packages: <bar;true> is not a safe "
                        "package name"));
}

TEST_F(ToolScreen, ACommandLineThatIsTooLongIsRefused) {
    tool_is("touch $dir/ran");
    const std::string name(2100, 'n');
    choose({name.c_str()});
    show(ACTION_UPDATE_SELECTED);
    EXPECT_THAT(status(), ElementsAre("failed to updated"));
    EXPECT_EQ(pvrm_pending, 0);
    EXPECT_FALSE(tool_ran());
    EXPECT_FALSE(sel_vrks);
    EXPECT_THAT(log.at(LEVEL_ERROR), SizeIs(1));
}

TEST_F(ToolScreen, APipeThatCannotBeHadIsAFailure) {
    tool_is("touch $dir/ran");
    const std::vector<std::pair<int, std::string>> failure_lines = {
        {7, "failed to updated"},
        {8, "failed to updated"},
        {9, "failed to install"},
        {12, "failed to cleanup"},
    };
    for (const auto &[action, failure_line] : failure_lines) {
        choose({"foo"});
        new_window();
        {
            const LowerLimit no_more_files(RLIMIT_NOFILE, 0);
            screen_run_tool(action);
        }
        EXPECT_THAT(status(), ElementsAre(failure_line)) << action;
        EXPECT_FALSE(pvrm_out) << action;
        EXPECT_FALSE(mbclose->active()) << action;
        EXPECT_TRUE(buttons_are_active()) << action;
        EXPECT_EQ(pvrm_lock, 0) << action;
        EXPECT_EQ(pvrm_pending, 0) << action;
        EXPECT_FALSE(tool_ran()) << action;
        leave();
    }
}

TEST_F(ToolScreen, OfAnotherActionIsTheFallback) {
    show(ACTION_REMOVE);
    EXPECT_TRUE(widget_labelled("No action selected"));
    EXPECT_EQ(vrm_gui_action, ACTION_IDLE);
}

// ---- Two at a time ----

TEST_F(ToolScreen, ACleanupFeedsItsBrowserFromBehindAnotherScreen) {
    tool_is("echo one\n" + std::string(wait_for_test) + "echo 'pvrm: two'; exit 1");
    show(ACTION_CLEANUP);
    const Fl_Multi_Browser *browser = pvrm_out;
    ASSERT_TRUE(wait_until([] { return pvrm_out->size() == 1; }));
    leave();
    new_window();
    screen_fallback();
    let_go();
    ASSERT_TRUE(wait_until(ended));
    EXPECT_EQ(pvrm_out, browser);
    EXPECT_THAT(output(), ElementsAre("one\n", "pvrm: two\n"));
    EXPECT_THAT(status(), ElementsAre("cleanup repository failed with return code 256"));
    EXPECT_EQ(pvrm_lock, 0);
}

// Without a reader the first one would be stopped when it fills the pipe, or killed.
TEST_F(ToolScreen, AToolWhoseWindowRanAnotherIsReadToItsEnd) {
    tool_is("if mkdir $dir/first 2>/dev/null; then\n" + std::string(wait_for_test) +
            "seq 50000; touch $dir/whole; exit 3\nfi\necho second");
    llog->file_levels = LEVEL_ERROR | LEVEL_INFO;
    show(ACTION_UPDATE_ALL);
    ASSERT_TRUE(wait_until([this] { return exists(dir / "first"); }));
    leave();
    show(ACTION_CLEANUP);
    EXPECT_EQ(pvrm_pending, 2);
    ASSERT_TRUE(wait_until([] { return pvrm_pending == 1; }));
    EXPECT_THAT(output(), ElementsAre("second\n"));
    EXPECT_THAT(status(), ElementsAre("cleanup repository was successful"));
    let_go();
    ASSERT_TRUE(wait_until(ended));
    EXPECT_TRUE(exists(dir / "whole"));
    EXPECT_THAT(output(), ElementsAre("second\n"));
    EXPECT_THAT(status(), ElementsAre("cleanup repository was successful"));
    EXPECT_TRUE(log.has(LEVEL_INFO, "update all packages failed with return code 768"));
}

TEST_F(ToolScreen, AnUnwatchedCleanupGivesTheLockBack) {
    tool_is("if mkdir $dir/first 2>/dev/null; then\n" + std::string(wait_for_test) + "fi");
    show(ACTION_CLEANUP);
    ASSERT_TRUE(wait_until([this] { return exists(dir / "first"); }));
    leave();
    tool_is("exit 0");
    show(ACTION_UPDATE_ALL);
    pvrm_lock = 1;  // the end of the update has set it to 0
    ASSERT_TRUE(wait_until([] { return pvrm_pending == 1; }));
    pvrm_lock = 1;
    let_go();
    ASSERT_TRUE(wait_until(ended));
    EXPECT_EQ(pvrm_lock, 0);
}

// ---- The "close" button ----

TEST_F(CloseButton, HidesTheOutputAndItself) {
    run(ACTION_UPDATE_ALL, "echo one");
    expect_place(mbclose, 10, 500, 120, 25);
    EXPECT_STREQ(mbclose->label(), "close");
    EXPECT_EQ(mbclose->labelsize(), 12);
    EXPECT_EQ(mbclose->color(), win->color());
    EXPECT_TRUE(pvrm_out->Fl_Widget::visible());
    mbclose->do_callback();
    EXPECT_THAT(output(), IsEmpty());
    EXPECT_FALSE(pvrm_out->Fl_Widget::visible());
    EXPECT_FALSE(mbclose->visible());
    EXPECT_THAT(status(), ElementsAre("update all packages was successful"));
    EXPECT_TRUE(pvrm_status->Fl_Widget::visible());
}

TEST_F(CloseButton, WithoutOutputHidesItself) {
    show(ACTION_INSTALL_SELECTED);
    mbclose->do_callback();
    EXPECT_FALSE(mbclose->visible());
}

// ---- The functions by themselves ----

TEST_F(PvrmFdh, TakesOneLineOfTheStreamWhateverTheDescriptor) {
    new_window();
    pvrm_out = new Fl_Multi_Browser(10, 100, 660, 345);
    add_close_button();
    finish_window();
    all_but_deactivate();
    pvrm_lock = 1;
    pvrm_file = popen("echo one; echo 'pvrm: two'", "r");
    char name[] = "some action";
    pvrm_fdh(-1, name);
    EXPECT_STREQ(cur_action, "some action");
    EXPECT_THAT(output(), ElementsAre("one\n"));
    EXPECT_THAT(status(), IsEmpty());
    pvrm_fdh(-1, nullptr);
    EXPECT_STREQ(cur_action, "some action");
    EXPECT_THAT(output(), ElementsAre("one\n", "pvrm: two\n"));
    EXPECT_THAT(status(), ElementsAre("two\n"));
    pvrm_fdh(-1, name);
    EXPECT_THAT(output(), SizeIs(2));
    EXPECT_THAT(status(), ElementsAre("some action was successful"));
    EXPECT_EQ(pvrm_lock, 0);
    EXPECT_EQ(pvrm_pending, 0);
    EXPECT_TRUE(mbclose->active());
    EXPECT_TRUE(buttons_are_active());
}

TEST_F(PvrmFdh, CutsTheNameOfTheActionAt254Characters) {
    new_window();
    finish_window();
    pvrm_file = popen("exit 1", "r");
    std::string name(300, 'n');
    pvrm_fdh(0, name.data());
    EXPECT_EQ(std::string(cur_action), std::string(254, 'n'));
    EXPECT_THAT(status(), ElementsAre(std::string(254, 'n') + " failed with return code 256"));
}

TEST_F(PvrmExec, RunsTheWordOfTheModeAndGivesTheWaitStatus) {
    tool_is("echo \"$@\" >>$dir/words; exit 1");
    EXPECT_EQ(pvrm_exec(0, nullptr, nullptr), 256);
    EXPECT_EQ(pvrm_exec(3, nullptr, nullptr), 256);
    EXPECT_EQ(read_all(dir / "words"), "allowed\nrefresh\n");
    tool_is("exit 0");
    EXPECT_EQ(pvrm_exec(0, nullptr, nullptr), 0);
    const std::string tool = fake_tool;
    EXPECT_THAT(log.at(LEVEL_INFO),
                ElementsAre("executing <" + tool + " allowed>", "executing <" + tool + " refresh>",
                            "executing <" + tool + " allowed>"));
}

TEST_F(PvrmExec, RunsNothingInAnotherMode) {
    tool_is("touch $dir/ran");
    for (const int mode : {-1, 1, 2, 4, 12}) {
        EXPECT_EQ(pvrm_exec(mode, nullptr, nullptr), -1) << mode;
    }
    EXPECT_FALSE(exists(dir / "ran"));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(PvrmExec, AMissingToolIsTheShells127) {
    EXPECT_EQ(pvrm_exec(0, nullptr, nullptr), 32512);
}
