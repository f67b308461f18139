#include "pvrm/tell.h"

#include <gtest/gtest.h>

#include "kit/capture.h"

TEST(Problem, ReadsAsOneSentence) {
    EXPECT_EQ((problem{"foo", "is not installed"}.text()), "foo is not installed");
    EXPECT_EQ((problem{"foo", "can't be installed", "it is built for mips"}.text()),
              "foo can't be installed: it is built for mips");
    EXPECT_EQ((problem{"./x.vrk", "", "No such file or directory"}.text()),
              "./x.vrk: No such file or directory");
    EXPECT_EQ((problem{"", "the script of foo failed"}.text()), "the script of foo failed");
}

TEST(Problem, AfterItsSubjectIsTheReasonOrSaysIt) {
    EXPECT_EQ((problem{"foo", "is not installed"}.text_after("foo")), "it is not installed");
    EXPECT_EQ((problem{"foo", "can't be installed", "it is built for mips"}.text_after("foo")),
              "it is built for mips");
    EXPECT_EQ((problem{"./x.vrk", "", "No such file or directory"}.text_after("./x.vrk")),
              "No such file or directory");
}

TEST(Problem, AfterAnotherNameIsTheWholeSentence) {
    EXPECT_EQ((problem{"foobar", "is not installed"}.text_after("foo")), "foobar is not installed");
    EXPECT_EQ((problem{"", "foo is not installed"}.text_after("foo")), "foo is not installed");
}

TEST(Problems, OfManyTheFirstIsNotedAndNoWarning) {
    const std::string printed = stderr_of([] {
        note_problems();
        tell_warning("foo is %s", "odd");
        tell_problem({"foo", "is not installed"});
        tell_problem("%s failed", "bar");
    });
    EXPECT_EQ(printed, "pvrm: warning: foo is odd\npvrm: foo is not installed\npvrm: bar failed\n");
    EXPECT_EQ(first_problem().text_after("foo"), "it is not installed");
    note_problems();
    EXPECT_EQ(first_problem().text(), "");
}

TEST(Problems, ThatAreHeldBackArePrintedAndNotedLater) {
    std::vector<held_problem> held;
    EXPECT_EQ(stderr_of([&] {
                  note_problems();
                  hold_problems();
                  tell_problem({"foo", "is not installed"});
                  tell_warning("bar is odd");
                  held = take_held_problems();
              }),
              "pvrm: warning: bar is odd\n");
    EXPECT_EQ(first_problem().text(), "");
    EXPECT_EQ(stderr_of([&] { tell_held(held); }), "pvrm: foo is not installed\n");
    EXPECT_EQ(first_problem().text_after("foo"), "it is not installed");
    note_problems();
}
