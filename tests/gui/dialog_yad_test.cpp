// The dialog program is one of the test's own, found by the path, that records its arguments byte
// for byte.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "kit/log_capture.h"
#include "kit/records.h"
#include "kit/temp_dir.h"
#include "support/own.h"
#include "ui/vrmui.h"

namespace {

class Yad : public testing::Test {
 protected:
    Yad() : path_(getenv("PATH")) {
        setenv("PATH", (dir_.path() + ":" + path_).c_str(), 1);
        vrmui = vrmui_init("The title", 7);
    }
    ~Yad() override {
        setenv("PATH", path_.c_str(), 1);
        vrmui_free(vrmui);
        vrmui = nullptr;
        vote_mode = 2;
    }

    void yad_does(const std::string &script) const {
        dir_.write("yad",
                   "#!/bin/sh\nprintf '%s\\0' \"$@\" >" + dir_.path() + "/arguments\n" + script,
                   0755);
    }
    bool yad_ran() const {
        return exists(dir_ / "arguments");
    }
    std::vector<std::string> arguments() const {
        std::vector<std::string> found(1);
        for (const char c : read_all(dir_ / "arguments")) {
            if (c == '\0') {
                found.emplace_back();
            } else {
                found.back() += c;
            }
        }
        found.pop_back();
        return found;
    }
    // The key chosen, "-" for none.
    std::string select(const char *default_key = "k") const {
        const own_ekva choices(str2ekva("k=keep entry,L=Leave all entries,a=abort chkhead", ','));
        const char *key = vrmui_select(vrmui, "What now?", choices.get(), default_key, 0);
        return key ? key : "-";
    }

    TempDir dir_;
    LogCapture log_;

 private:
    std::string path_;
};

using YadForm = Yad;
using YadSelect = Yad;

std::vector<std::string> form_arguments(std::vector<std::string> fields) {
    std::vector<std::string> all = {
        "--form",           "--title=The title", "--scroll",       "--center",
        "--width=600",      "--height=400",      "--text=Heading", "--buttons-layout=center",
        "--button=yad-ok:0"};
    all.insert(all.end(), fields.begin(), fields.end());
    return all;
}

}  // namespace

TEST_F(YadForm, ShowsTheRecord) {
    yad_does("echo not for the user; echo this neither >&2\n");
    const own_ekva rec = record({{"a", "1"}, {"a", "2"}, {"b", "3"}});
    EXPECT_EQ(vrmui_write_form(vrmui, "Heading", rec.get()), 0);
    EXPECT_EQ(arguments(),
              form_arguments({"--field=a:RO", "1", "--field=:RO", "2", "--field=b:RO", "3"}));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG,
                         "Calling <yad --form --title='The title' --scroll --center --width=600 "
                         "--height=400 --text='Heading' --buttons-layout=center "
                         "--button=yad-ok:0 --field='a:RO' '1' --field=:RO '2' --field='b:RO' '3' "
                         ">/dev/null 2>&1>"));
}

TEST_F(YadForm, HandsOverEveryByte) {
    yad_does("");
    const std::string value = "it's 'quoted', \"$HOME\" `id` $(id) \\ \\n %s ! * ; & | > <\n\tend";
    const own_ekva rec = record({{"k'e y", value.c_str()}, {"none", nullptr}, {"e", ""}});
    EXPECT_EQ(vrmui_write_form(vrmui, "Heading", rec.get()), 0);
    EXPECT_EQ(arguments(), form_arguments({"--field=k'e y:RO", value, "--field=none:RO", "",
                                           "--field=e:RO", ""}));
}

TEST_F(YadForm, RunsNothingThatAValueSays) {
    yad_does("");
    const std::string value = "'; touch " + (dir_ / "harm") + "; '";
    const own_ekva rec = record({{"a", value.c_str()}, {value.c_str(), "$(touch harm)"}});
    EXPECT_EQ(vrmui_write_form(vrmui, value.c_str(), rec.get()), 0);
    EXPECT_FALSE(exists(dir_ / "harm"));
    EXPECT_EQ(arguments()[6], "--text=" + value);
}

TEST_F(YadForm, AValueIsNoOption) {
    yad_does("");
    const own_ekva rec = record({{"a", "--field=Press me:BTN"}});
    vrmui_write_form(vrmui, "Heading", rec.get());
    EXPECT_EQ(arguments(), form_arguments({"--field=a:RO", " --field=Press me:BTN"}));
}

TEST_F(YadForm, GivesTheWaitStatus) {
    yad_does("exit 3\n");
    const own_ekva rec = record({{"a", "1"}});
    EXPECT_EQ(vrmui_write_form(vrmui, "Heading", rec.get()), 768);
}

TEST_F(YadForm, FailsWithoutYad) {
    setenv("PATH", dir_.path().c_str(), 1);
    const own_ekva rec = record({{"a", "1"}});
    EXPECT_EQ(vrmui_write_form(vrmui, "Heading", rec.get()), 32512);
}

TEST_F(YadForm, IsShownWithVoteMode3Too) {
    yad_does("");
    vote_mode = 3;
    const own_ekva rec = record({{"a", "1"}});
    EXPECT_EQ(vrmui_write_form(vrmui, "Heading", rec.get()), 0);
    EXPECT_TRUE(yad_ran());
}

TEST_F(YadSelect, OffersTheValuesAndGivesTheKey) {
    yad_does("echo Leave all entries\n");
    EXPECT_EQ(select(), "L");
    EXPECT_EQ(arguments(),
              (std::vector<std::string>{"--entry", "--title=The title", "--text", "What now?",
                                        "--no-markup", "--button=yad-ok:0", "--entry-text",
                                        "keep entry", "Leave all entries", "abort chkhead"}));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG,
                         "Calling <yad --entry --title=\"The title\" --text \"What now?\" "
                         "--no-markup --button=yad-ok:0 --entry-text  \"keep entry\"  "
                         "\"Leave all entries\"  \"abort chkhead\" >"));
}

TEST_F(YadSelect, GivesTheRecordsOwnString) {
    yad_does("echo keep entry\n");
    const own_ekva choices(str2ekva("k=keep entry,a=abort", ','));
    EXPECT_EQ(vrmui_select(vrmui, "What now?", choices.get(), "a", 0), choices.get()[1]->key);
}

TEST_F(YadSelect, OnlyTheFirstLineCounts) {
    yad_does("echo abort chkhead; echo keep entry\n");
    EXPECT_EQ(select(), "a");
}

TEST_F(YadSelect, NoAnswerIsNull) {
    yad_does("exit 1\n");
    EXPECT_EQ(select(), "-");
    EXPECT_TRUE(yad_ran());
}

TEST_F(YadSelect, AnotherTextIsNull) {
    yad_does("echo something else\n");
    EXPECT_EQ(select(), "-");
    yad_does("echo\n");
    EXPECT_EQ(select(), "-");
}

// The last character of the line is taken for the newline.
TEST_F(YadSelect, ALineWithoutNewlineLosesItsLastCharacter) {
    yad_does("printf 'keep entry'\n");
    EXPECT_EQ(select(), "-");
    yad_does("printf 'keep entry!'\n");
    EXPECT_EQ(select(), "k");
}

TEST_F(YadSelect, ALongLineIsNoAnswer) {
    yad_does("printf '%05000d\\n' 0\n");
    EXPECT_EQ(select(), "-");
}

TEST_F(YadSelect, MissingYadIsNoAnswer) {
    setenv("PATH", dir_.path().c_str(), 1);
    EXPECT_EQ(select(), "-");
}

TEST_F(YadSelect, HandsOverEveryByte) {
    const std::string value = "it's \"quoted\" $HOME `id` $(id) \\ \\n %s ! *";
    yad_does("cat <<'END'\n" + value + "\nEND\n");
    const own_ekva choices = record({{"a", value.c_str()}});
    EXPECT_STREQ(vrmui_select(vrmui, (value + "\nline two").c_str(), choices.get(), "a", 0), "a");
    EXPECT_EQ(arguments()[3], value + "\nline two");
    EXPECT_EQ(arguments()[7], value);
}

TEST_F(YadSelect, IsRefusedAndNotCutWhenTheCommandIsTooLong) {
    yad_does("echo keep entry\n");
    const own_ekva choices(str2ekva("k=keep entry", ','));
    EXPECT_FALSE(vrmui_select(vrmui, std::string(9000, 'x').c_str(), choices.get(), "k", 0));
    EXPECT_FALSE(yad_ran());
}

TEST_F(YadSelect, VoteMode3GivesTheDefaultWhateverTheChoices) {
    yad_does("echo Leave all entries\n");
    vote_mode = 3;
    EXPECT_EQ(select("k"), "k");
    EXPECT_EQ(select("x"), "x");
    EXPECT_EQ(select(nullptr), "-");
    EXPECT_FALSE(yad_ran());
}
