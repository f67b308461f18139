#include "support/terminal_text.h"

#include <gtest/gtest.h>

#include "kit/results.h"

TEST(TerminalSafe, OrdinaryTextStaysAsItIs) {
    expect_results(terminal_safe, {{"", ""},
                                   {"two\nlines\tand a tab\n", "two\nlines\tand a tab\n"},
                                   {"Größe 12 € 漢字 😀", "Größe 12 € 漢字 😀"}});
}

TEST(TerminalSafe, EscapeSequencesAndControlsAreShown) {
    expect_results(terminal_safe, {{"\x1b[2Jgone", "\\x1B[2Jgone"},
                                   {"real\rfake", "real\\x0Dfake"},
                                   {"\a\b\x7f", "\\x07\\x08\\x7F"}});
    EXPECT_EQ(terminal_safe(std::string_view("a\0b", 3)), "a\\x00b");
    EXPECT_EQ(terminal_safe("\xc2\x9b"
                            "31m"),
              "\\xC2\\x9B31m");  // the eight-bit form of escape and bracket
}

TEST(TerminalSafe, DirectionOverridesAreShown) {
    EXPECT_EQ(terminal_safe("a\xe2\x80\xae"
                            "b"),
              "a\\xE2\\x80\\xAEb");
    EXPECT_EQ(terminal_safe("\xe2\x81\xa6"), "\\xE2\\x81\\xA6");
}

TEST(TerminalSafe, BytesThatAreNoUtf8AreShown) {
    expect_results(terminal_safe, {{"\xff", "\\xFF"},
                                   {"caf\xe9", "caf\\xE9"},              // Latin-1
                                   {"\xe2\x82", "\\xE2\\x82"},           // cut short
                                   {"\xc0\x9b", "\\xC0\\x9B"},           // overlong
                                   {"\xe0\x82\x9b", "\\xE0\\x82\\x9B"},  // overlong
                                   {"\xed\xa0\x80", "\\xED\\xA0\\x80"},  // a surrogate
                                   {"\xf4\x90\x80\x80", "\\xF4\\x90\\x80\\x80"}});
    EXPECT_EQ(terminal_safe("\x9b"
                            "2J"),
              "\\x9B2J");
}

TEST(TerminalCell, IsOneLine) {
    EXPECT_EQ(terminal_safe_cell("two\nlines\tand \x1b"), "two lines and \\x1B");
}

TEST(TerminalWidth, CountsCharactersNotBytes) {
    EXPECT_EQ(terminal_width("Größe"), 5U);
    EXPECT_EQ(terminal_padding("Größe", 8), "   ");
    EXPECT_EQ(terminal_padding("longer", 3), "");
}

TEST(TerminalWidth, IsThatOnTheScreen) {
    EXPECT_EQ(terminal_width("漢字"), 4U);     // wide
    EXPECT_EQ(terminal_width("😀"), 2U);        // a picture
    EXPECT_EQ(terminal_width("e\u0301"), 1U);  // an accent of its own stands above
    EXPECT_EQ(terminal_width("\u200b"), 0U);   // nothing to see
    EXPECT_EQ(terminal_width("caf\xe9"), 4U);  // no UTF-8
    EXPECT_EQ(terminal_padding("漢字", 5), " ");
}

TEST(TerminalCut, LeavesWhatFits) {
    EXPECT_EQ(terminal_cut("", 0), "");
    EXPECT_EQ(terminal_cut("abc", 3), "abc");
    EXPECT_EQ(terminal_cut("漢字", 4), "漢字");
    EXPECT_EQ(terminal_cut("Größe", 5), "Größe");
}

TEST(TerminalCut, MarksWhatIsGoneWithinTheWidth) {
    EXPECT_EQ(terminal_cut("abcd", 3), "ab…");
    EXPECT_EQ(terminal_cut("Größer", 4), "Grö…");
    EXPECT_EQ(terminal_cut("漢字漢", 5), "漢字…");
    EXPECT_EQ(terminal_cut("漢字漢", 4), "漢…");  // half a character is none
    EXPECT_EQ(terminal_cut("abc", 1), "…");
    EXPECT_EQ(terminal_cut("漢", 1), "…");
    EXPECT_EQ(terminal_cut("abc", 0), "");
    EXPECT_EQ(terminal_cut("caf\xe9s", 4), "caf…");
}

TEST(TerminalCut, KeepsAccentsWithTheirLetters) {
    EXPECT_EQ(terminal_cut("ae\u0301bc", 3), "ae\u0301…");
}
