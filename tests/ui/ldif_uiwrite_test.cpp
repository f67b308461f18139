#include <gtest/gtest.h>

#include "kit/scripted_user.h"
#include "ui/vrmui.h"

TEST(LdifUiwrite, AddsALineToTheText) {
    ScriptedUser::fresh();
    vrmui_line_new(vrmui, "dn: evrkUid=foo\n");
    EXPECT_EQ(ldif_uiwrite("evrkName", "foo", 0, 0), 14);
    ldif_uiwrite("evrkVersion", "1.0", 99, 0);  // the length of a text is its own
    EXPECT_STREQ(vrmui->text, "dn: evrkUid=foo\nevrkName: foo\nevrkVersion: 1.0\n");
}

TEST(LdifUiwrite, BinaryValueStandsAsBase64OfItsBytes) {
    ScriptedUser::fresh();
    ldif_uiwrite("data", "a\0b", 3, 1);
    EXPECT_STREQ(vrmui->text, "data:: YQBi\n");
    vrmui_line_new(vrmui, "");
    ldif_uiwrite("data", "abcdef", 3, 1);
    EXPECT_STREQ(vrmui->text, "data:: YWJj\n");
}

TEST(LdifUiwrite, UnsafeTextStandsAsBase64) {
    ScriptedUser::fresh();
    ldif_uiwrite("evrkDescription", " x", 0, 0);
    EXPECT_STREQ(vrmui->text, "evrkDescription:: IHg=\n");
}

TEST(LdifUiwrite, WithoutAnObjectNothingIsWritten) {
    ScriptedUser::fresh();
    vrmui_object *const kept = vrmui;
    vrmui = nullptr;
    EXPECT_EQ(ldif_uiwrite("evrkName", "foo", 0, 0), 0);
    vrmui = kept;
    EXPECT_EQ(ldif_uiwrite("evrkName", nullptr, 0, 0), 0);
    EXPECT_STREQ(vrmui->text, "");
}
