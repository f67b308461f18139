#include "pvrm/terminal_ui.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <memory>
#include <string>
#include <utility>

#include "kit/capture.h"
#include "kit/records.h"
#include "kit/results.h"
#include "kit/temp_dir.h"
#include "pvrm/interruption.h"
#include "support/own.h"
#include "transaction/interrupt.h"
#include "ui/vrmui.h"

namespace {

const char *const conflict_choices =
    "l=leave existing file,L=Leave all existing files,r=replace existing file";

// A terminal of files: what is typed, and what came out.
class Terminal : public testing::Test {
 protected:
    Terminal() {
        out_ = fopen((dir_ / "out").c_str(), "w");
        terminal_out = out_;
        type("");
        vrmui = vrmui_init(nullptr, 7);
        vote_mode = 1;
    }
    ~Terminal() override {
        fclose(out_);
        fclose(in_);
        terminal_in = terminal_out = nullptr;
        vrmui_free(vrmui);
        vrmui = nullptr;
        vote_mode = 2;
    }
    void type(const std::string &lines) {
        if (in_) {
            fclose(in_);
        }
        in_ = fopen(dir_.write("in", lines).c_str(), "r");
        terminal_in = in_;
    }
    std::string shown() const {
        return read_all(dir_ / "out");
    }
    // The key chosen, "-" for none.
    std::string choose(const std::string &lines, const char *default_key = "r") {
        type(lines);
        const own_ekva choices(str2ekva(conflict_choices, ','));
        const char *key = vrmui_select(vrmui, "Which?", choices.get(), default_key, 0);
        return key ? key : "-";
    }

    TempDir dir_;

 private:
    FILE *in_ = nullptr;
    FILE *out_ = nullptr;
};

}  // namespace

using TerminalWrite = Terminal;
using TerminalYesno = Terminal;
using TerminalSelect = Terminal;
using TerminalForm = Terminal;
using TerminalInterruption = Terminal;
using TerminalFile = Terminal;

TEST_F(TerminalWrite, ShowsTheTextAsLines) {
    EXPECT_EQ(vrmui_write(vrmui, "one", 0), 0);
    EXPECT_EQ(vrmui_write(vrmui, "two\n", 0), 0);
    EXPECT_EQ(shown(), "one\ntwo\n");
}

TEST_F(TerminalWrite, EmptyTextShowsNothing) {
    EXPECT_EQ(vrmui_write(vrmui, "", 0), 0);
    EXPECT_EQ(shown(), "");
}

TEST_F(TerminalWrite, TheAskFlagAsksNothing) {
    type("y\n");
    EXPECT_EQ(vrmui_write(vrmui, "50% done", 1), 0);
    EXPECT_EQ(shown(), "50% done\n");
}

TEST_F(TerminalWrite, InfoIsShownOnce) {
    int result = -1;
    EXPECT_EQ(stderr_of([&] { result = vrmui_write_info(vrmui, "report", 1); }), "");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(shown(), "report\n");
}

TEST_F(TerminalWrite, ControlCharactersDoNotReachTheTerminal) {
    vrmui_write_info(vrmui, "a\x1b[31mb", 0);
    EXPECT_EQ(shown(), "a\\x1B[31mb\n");
}

TEST_F(TerminalWrite, ProgramsGetTheBytesThatAreThere) {
    terminal_verbatim = true;
    vrmui_write(vrmui, "a\x1b\xe9", 0);
    terminal_verbatim = false;
    EXPECT_EQ(shown(), "a\x1b\xe9");
}

TEST_F(TerminalYesno, LettersAndWordsAnswer) {
    for (const char *yes : {"y\n", "Y\n", "yes\n", " YES \n", "y\r\n", "y"}) {
        type(yes);
        EXPECT_EQ(vrmui_yesno(vrmui, "Sure?", 0), 1) << yes;
    }
    for (const char *no : {"n\n", "N\n", "no\n", "No\n"}) {
        type(no);
        EXPECT_EQ(vrmui_yesno(vrmui, "Sure?", 1), 0) << no;
    }
}

TEST_F(TerminalYesno, EmptyLineTakesTheDefaultThatIsShown) {
    type("\n\n");
    EXPECT_EQ(vrmui_yesno(vrmui, "Sure?", 1), 1);
    EXPECT_EQ(vrmui_yesno(vrmui, "Sure?", 0), 0);
    EXPECT_EQ(shown(), "Sure? [Y/n] Sure? [y/N] ");
}

TEST_F(TerminalYesno, AnythingElseAsksAgain) {
    type("maybe\nyes\n");
    EXPECT_EQ(vrmui_yesno(vrmui, "Sure?", 0), 1);
    EXPECT_EQ(shown(), "Sure? [y/N] Please answer y or n.\nSure? [y/N] ");
}

TEST_F(TerminalYesno, EndOfInputIsNo) {
    EXPECT_EQ(vrmui_yesno(vrmui, "Sure?", 1), 0);
    EXPECT_EQ(shown(), "Sure? [Y/n] \n");
}

TEST_F(TerminalYesno, VoteMode3TakesTheDefaultAndShowsNothing) {
    vote_mode = 3;
    type("n\n");
    EXPECT_EQ(vrmui_yesno(vrmui, "Sure?", 1), 1);
    EXPECT_EQ(shown(), "");
}

TEST_F(TerminalSelect, ShowsTheChoicesAndTheDefault) {
    EXPECT_EQ(choose("l\n"), "l");
    EXPECT_EQ(shown(),
              "Which?\n"
              "  l  leave existing file\n"
              "  L  Leave all existing files\n"
              "  r  replace existing file (default)\n"
              "Your choice: ");
}

TEST_F(TerminalSelect, LetterOrWholeTextAnswers) {
    expect_results([this](const char *answer) { return choose(answer); },
                   {{"L\n", "L"},
                    {"  r  \n", "r"},
                    {"Leave all existing files\n", "L"},
                    {"leave ALL existing files\n", "L"},
                    {"leave existing file", "l"}});
}

TEST_F(TerminalSelect, TheKeyIsTheRecordsOwn) {
    const own_ekva choices(str2ekva(conflict_choices, ','));
    type("l\n\n");
    EXPECT_EQ(vrmui_select(vrmui, "Which?", choices.get(), "r", 0), choices.get()[1]->key);
    EXPECT_EQ(vrmui_select(vrmui, "Which?", choices.get(), "r", 0), choices.get()[3]->key);
}

TEST_F(TerminalSelect, EmptyLineTakesTheDefault) {
    EXPECT_EQ(choose("\n"), "r");
}

TEST_F(TerminalSelect, EmptyLineWithoutADefaultAsksAgain) {
    EXPECT_EQ(choose("\nl\n", nullptr), "l");
}

TEST_F(TerminalSelect, ADefaultThatIsNotOfferedIsProposedAndTaken) {
    EXPECT_EQ(choose("\n", "k"), "k");
    EXPECT_EQ(shown(),
              "Which?\n"
              "  l  leave existing file\n"
              "  L  Leave all existing files\n"
              "  r  replace existing file\n"
              "Your choice [k]: ");
    EXPECT_EQ(choose("k\n", "k"), "k");
    EXPECT_EQ(choose("x\nL\n", "k"), "L");
}

TEST_F(TerminalSelect, AnythingElseAsksAgain) {
    EXPECT_EQ(choose("x\nleave\nL\n"), "L");
    const std::string again = "Please answer with one of l, L, r.\nYour choice: ";
    const std::string all = shown();
    ASSERT_GE(all.size(), 2 * again.size());
    EXPECT_EQ(all.substr(all.size() - 2 * again.size()), again + again);
}

TEST_F(TerminalSelect, EndOfInputIsNoAnswer) {
    EXPECT_EQ(choose(""), "-");
    EXPECT_EQ(choose("x\n"), "-");
}

TEST_F(TerminalSelect, NothingToChooseFromIsNoAnswer) {
    type("x\n");
    EXPECT_EQ(vrmui_select(vrmui, "Which?", nullptr, "r", 0), nullptr);
    EXPECT_EQ(vrmui_select(vrmui, "Which?", record({}).get(), "r", 0), nullptr);
}

TEST_F(TerminalSelect, VoteMode3TakesTheDefaultAndShowsNothing) {
    vote_mode = 3;
    EXPECT_EQ(choose("l\n"), "r");
    EXPECT_EQ(choose("l\n", nullptr), "-");
    EXPECT_EQ(choose("l\n", "unknown"), "unknown");
    EXPECT_EQ(shown(), "");
}

TEST_F(TerminalSelect, HostileFileNameIsShownNotObeyed) {
    type("\n");
    const own_ekva choices = record({{"a", "\x1b]0;x\a"}});
    EXPECT_STREQ(vrmui_select(vrmui, "The file /\x1b[2J exists", choices.get(), "a", 0), "a");
    EXPECT_EQ(shown(), "The file /\\x1B[2J exists\n  a  \\x1B]0;x\\x07 (default)\nYour choice: ");
}

TEST_F(TerminalForm, RepeatedKeyIsLabelledOnce) {
    const own_ekva rec =
        record({{"Name", "foo"}, {"Dependency", "bar"}, {"Dependency", "baz"}, {"Name", "x"}});
    EXPECT_EQ(vrmui_write_form(vrmui, "Package details", rec.get()), 0);
    EXPECT_EQ(shown(),
              "Package details\n"
              "  Name:       foo\n"
              "  Dependency: bar\n"
              "              baz\n"
              "  Name:       x\n");
}

TEST_F(TerminalForm, LinesOfAValueStandBelowOneAnother) {
    const own_ekva rec = record({{"A", "one\ntwo\n"}, {"B", ""}});
    EXPECT_EQ(vrmui_write_form(vrmui, "", rec.get()), 0);
    EXPECT_EQ(shown(), "  A: one\n     two\n  B:\n");
}

TEST_F(TerminalFile, ShowsTheContent) {
    const std::string path = dir_.write("list", "one\n\x1b two");
    EXPECT_EQ(vrmui_write_file(vrmui, path.c_str(), 1), 0);
    EXPECT_EQ(shown(), "one\n\\x1B two\n");
}

TEST_F(TerminalFile, UnreadableFileFails) {
    EXPECT_EQ(vrmui_write_file(vrmui, (dir_ / "missing").c_str(), 1), -1);
    EXPECT_EQ(vrmui_write_file(vrmui, dir_.path().c_str(), 1), -1);
    ASSERT_EQ(mkfifo((dir_ / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(vrmui_write_file(vrmui, (dir_ / "pipe").c_str(), 1), -1);
    EXPECT_EQ(shown(), "");
}

TEST(TerminalName, IsItsOwn) {
    EXPECT_STREQ(vrmui_backend, "terminal");
}

// ---- An end is asked for ----

// A terminal on which nobody types, and on which a signal comes as soon as the question is written:
// before the wait for the answer has begun.
TEST_F(TerminalInterruption, ASignalBetweenTheQuestionAndTheWaitIsNotMissed) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const own_file keys(fdopen(ends[0], "r"));
    const cookie_io_functions_t screen = {
        .read = nullptr,
        .write = [](void *, const char *, size_t size) -> ssize_t {
            if (!vrm_stop_requested) {
                raise(SIGTERM);
            }
            return static_cast<ssize_t>(size);
        },
        .seek = nullptr,
        .close = nullptr,
    };
    const own_file shown_on(fopencookie(nullptr, "w", screen));
    FILE *const in = std::exchange(terminal_in, keys.get());
    FILE *const out = std::exchange(terminal_out, shown_on.get());
    hold_signals();
    alarm(30);  // a wait that goes on ends the test
    EXPECT_EQ(vrmui_yesno(vrmui, "Go on?", 1), 0);
    EXPECT_TRUE(was_interrupted());
    alarm(0);
    for (const int ended : {SIGINT, SIGTERM, SIGQUIT, SIGHUP, SIGPIPE}) {
        signal(ended, SIG_DFL);
    }
    vrm_stop_requested = 0;
    terminal_in = in;
    terminal_out = out;
    close(ends[1]);
}
