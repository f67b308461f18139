// The command lines as the real dialog program understands them.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "kit/temp_dir.h"
#include "support/own.h"
#include "ui/vrmui.h"

namespace {

// A user who waits for the window with the title and presses a key.
class RealYad : public testing::Test {
 protected:
    RealYad() {
        // What libraries of yad would tell of services that a bare display doesn't have.
        setenv("NO_AT_BRIDGE", "1", 1);
        vrmui = vrmui_init("The title", 7);
    }
    ~RealYad() override {
        vrmui_free(vrmui);
        vrmui = nullptr;
    }
    // Presses again as long as the window is there, and takes it away in the end.
    void user_presses(const std::string &key) {
        const std::string user = R"sh(
            cd "$0" || exit
            window() { xdotool search --onlyvisible --name '^The title$' | head -n 1; }
            end=$(($(date +%s) + 60))
            while [ "$(date +%s)" -lt "$end" ]; do
                id=$(window)
                if [ -n "$id" ]; then
                    touch shown
                    xdotool windowfocus "$id" key )sh" +
                                 key + R"sh(
                    for i in 1 2 3 4 5; do [ -z "$(window)" ] || sleep 0.2; done
                elif [ -e shown ]; then
                    exit
                else
                    sleep 0.1
                fi
            done
            xdotool windowkill "$(window)")sh";
        dir_.write("user", user);
        const std::string command =
            "exec sh -c \"$(cat " + (dir_ / "user") + ")\" " + dir_.path() + " 2>/dev/null";
        user_.reset(popen(command.c_str(), "re"));
        ASSERT_TRUE(user_);
    }
    bool shown() const {
        return exists(dir_ / "shown");
    }

    TempDir dir_;

 private:
    // Waited for, so that he doesn't take the next test's window for his.
    std::unique_ptr<FILE, release_with<pclose>> user_;
};

}  // namespace

TEST_F(RealYad, ShowsAForm) {
    s_ekva **rec = ekva_new(10, 4);
    ekva_addval(&rec, "Name", "it's \"foo\"", 0);
    ekva_addval(&rec, "Needs", "--help", 0);
    ekva_addval(&rec, "Needs", "-1", 0);
    ekva_addval(&rec, "Empty", nullptr, 0);
    const own_ekva owner(rec);
    user_presses("ctrl+Return");
    EXPECT_EQ(vrmui_write_form(vrmui, "A heading", rec), 0);
    EXPECT_TRUE(shown());
}

TEST_F(RealYad, OffersTheFirstChoiceAtOnce) {
    const own_ekva choices(str2ekva("k=keep $entry,L=Leave \"all\" entries,a=abort", ','));
    user_presses("Return");
    const char *key = vrmui_select(vrmui, "What `now`?", choices.get(), "a", 0);
    EXPECT_TRUE(shown());
    EXPECT_STREQ(key, "k");
}

TEST_F(RealYad, EscapeIsNoAnswer) {
    const own_ekva choices(str2ekva("k=keep entry,a=abort", ','));
    user_presses("Escape");
    EXPECT_FALSE(vrmui_select(vrmui, "What now?", choices.get(), "a", 0));
    EXPECT_TRUE(shown());
}
