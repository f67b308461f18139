#include "faults/tracer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <csignal>

#include "faults/tree.h"
#include "kit/temp_dir.h"

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

// Two removals by a program that knows nothing of being watched.
class Tracer : public testing::Test {
 protected:
    watched_run run(const disturbance &what) {
        return run_watched(remove_both_, {dir_.path()}, &what);
    }
    static int exit_status(const watched_run &run) {
        return WIFEXITED(run.status) ? WEXITSTATUS(run.status) : -1;
    }
    // The number of the removal of a file, in the run without disturbance.
    size_t number_of_unlink(const std::string &path) {
        dir_.write("a", "first");
        dir_.write("b", "second");
        const watched_run whole = run_watched(remove_both_, {dir_.path()}, nullptr);
        EXPECT_EQ(exit_status(whole), 0) << whole.output;
        EXPECT_FALSE(exists(a_) || exists(b_));
        dir_.write("a", "first");
        dir_.write("b", "second");
        for (size_t i = 0; i < whole.trace.size(); i++) {
            if (whole.trace[i].call == "unlink" && whole.trace[i].path == path) {
                EXPECT_TRUE(whole.trace[i].changes);
                return i;
            }
        }
        ADD_FAILURE() << "no removal of " << path;
        return 0;
    }

    const TempDir dir_;
    const std::string a_ = dir_ / "a", b_ = dir_ / "b";
    const std::vector<std::string> remove_both_ = {"/bin/rm", a_, b_};
};

TEST_F(Tracer, MakesTheOperationFailAndNoOther) {
    const watched_run seen = run({disturbance::fails, number_of_unlink(a_), EIO});
    EXPECT_TRUE(seen.disturbed);
    EXPECT_EQ(exit_status(seen), 1);
    EXPECT_THAT(seen.output, HasSubstr("Input/output error"));
    EXPECT_TRUE(exists(a_));
    EXPECT_FALSE(exists(b_));
}

TEST_F(Tracer, KillsBeforeTheOperation) {
    const watched_run seen = run({disturbance::kills, number_of_unlink(b_)});
    EXPECT_TRUE(seen.disturbed);
    EXPECT_TRUE(WIFSIGNALED(seen.status) && WTERMSIG(seen.status) == SIGKILL);
    EXPECT_FALSE(exists(a_));
    EXPECT_TRUE(exists(b_));
}

TEST_F(Tracer, SkipsWhatABrokenProgramWouldNotDo) {
    const watched_run seen = run({disturbance::fails, number_of_unlink(a_), EACCES, {"unlink"}});
    EXPECT_THAT(seen.output, HasSubstr("Permission denied"));
    EXPECT_THAT(seen.output, testing::Not(HasSubstr(b_)));
    EXPECT_TRUE(exists(a_) && exists(b_));
}

TEST_F(Tracer, SaysThatThereWasNoSuchOperation) {
    number_of_unlink(a_);
    EXPECT_FALSE(run({disturbance::fails, 1000, EIO}).disturbed);
    EXPECT_FALSE(exists(a_) || exists(b_));
}

TEST_F(Tracer, HalvesAWrite) {
    const std::vector<std::string> echo = {"/bin/sh", "-c", "exec >" + a_ + "; echo abcdefghi"};
    const watched_run whole = run_watched(echo, {dir_.path()}, nullptr);
    const auto is_write = [](const operation &op) { return op.call == "write"; };
    const auto first = std::find_if(whole.trace.begin(), whole.trace.end(), is_write);
    const disturbance half = {disturbance::halves, static_cast<size_t>(first - whole.trace.begin()),
                              0};
    const watched_run seen = run_watched(echo, {dir_.path()}, &half);
    EXPECT_TRUE(seen.disturbed);
    // The shell writes the rest by another call.
    EXPECT_EQ(std::count_if(whole.trace.begin(), whole.trace.end(), is_write), 1);
    EXPECT_EQ(std::count_if(seen.trace.begin(), seen.trace.end(), is_write), 2);
    EXPECT_EQ(read_whole(a_), "abcdefghi\n");
}

TEST_F(Tracer, KeepsADiskFull) {
    const disturbance full = {disturbance::fails, 0, ENOSPC, {}, true};
    const watched_run seen =
        run_watched({"/bin/mkdir", dir_ / "c", dir_ / "d"}, {dir_.path()}, &full);
    EXPECT_EQ(exit_status(seen), 1);
    EXPECT_FALSE(exists(dir_ / "c") || exists(dir_ / "d"));
}

TEST_F(Tracer, StopsTheProgramForAnObserver) {
    number_of_unlink(a_);
    std::vector<bool> there;
    run_watched(execution_of(remove_both_), {dir_.path()}, [&](size_t number, const operation &op) {
        EXPECT_EQ(number, there.size());
        there.push_back(op.call != "unlink" || exists(op.path));
    });
    EXPECT_THAT(there, testing::Each(true));
    EXPECT_GE(there.size(), 2U);
    EXPECT_FALSE(exists(a_) || exists(b_));
}

TEST_F(Tracer, CountsNothingOutsideOfThePlaces) {
    number_of_unlink(a_);
    EXPECT_TRUE(run_watched(remove_both_, {dir_ / "elsewhere"}, nullptr).trace.empty());
}

TEST_F(Tracer, LeavesWhatTheProgramStartsAlone) {
    number_of_unlink(a_);
    const watched_run seen =
        run_watched({"/bin/sh", "-c", "/bin/rm " + a_ + "; :"}, {dir_.path()}, nullptr);
    EXPECT_TRUE(seen.trace.empty());
    EXPECT_FALSE(exists(a_));
}

TEST_F(Tracer, TellsWritesByThePathOfTheFile) {
    const watched_run seen = run_watched(
        {"/bin/sh", "-c",
         "cd " + dir_.path() + "; echo text >file; exec 3<file; " + "read -r line <&3; echo $line"},
        {dir_.path()}, nullptr);
    EXPECT_EQ(seen.output, "text\n");
    std::vector<std::string> changes, readings;
    for (const operation &op : seen.trace) {
        (op.changes ? changes : readings).push_back(text_of(op));
    }
    EXPECT_THAT(changes, Contains("open " + (dir_ / "file")));
    EXPECT_THAT(changes, Contains("write " + (dir_ / "file")));
    EXPECT_THAT(readings, Contains("look into " + (dir_ / "file")));
    EXPECT_THAT(readings, Contains("read " + (dir_ / "file")));
}

TEST_F(Tracer, TellsBothPathsOfARename) {
    dir_.write("a", "first");
    const watched_run seen = run_watched({"/bin/mv", "-T", a_, b_}, {dir_.path()}, nullptr);
    std::vector<std::string> changes;
    for (const operation &op : seen.trace) {
        if (op.changes) {
            changes.push_back(text_of(op));
        }
    }
    EXPECT_THAT(changes, ElementsAre("rename " + a_ + " -> " + b_));
}

}  // namespace
