#include <FL/Fl_Box.H>
#include <gmock/gmock.h>

#include "gui/screens.h"
#include "gui/tool_kit.h"
#include "repository/vrc.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class RefreshScreen : public ToolTest {
 protected:
    RefreshScreen() {
        vrc = &connection_;
        refresh_result = 0;
        refreshed = nullptr;
        shown_during_refresh = false;
        pvrm_vrc_refresh = [](void *given) {
            refreshed = given;
            shown_during_refresh = win->shown();
            cache_during_refresh = vrc_cache;
            return refresh_result;
        };
        // As vrm_vrc_cache_fill leaves it for a catalogue with a package.
        vrc_cache = static_cast<vri **>(calloc(2, sizeof(vri *)));
        vrc_cache[0] = static_cast<vri *>(calloc(1, sizeof(vri)));
    }
    ~RefreshScreen() override {
        vrc = nullptr;
        pvrm_vrc_refresh = nullptr;
    }

    static inline int refresh_result;
    static inline void *refreshed;
    static inline bool shown_during_refresh;
    static inline vri **cache_during_refresh;
    int connection_ = 0;
};

}  // namespace

TEST_F(RefreshScreen, RefreshesTheCatalogueBeforeTheWindowIsShown) {
    new_window();
    screen_refresh();
    EXPECT_EQ(refreshed, &connection_);
    EXPECT_FALSE(shown_during_refresh);
    EXPECT_TRUE(win->shown());
    expect_place(widget_labelled("Action: Refresh catalogue"), 10, 100, 660, 345);
    EXPECT_THAT(status(), ElementsAre("refresh package catalogue...", "refreshed catalogue"));
    EXPECT_THAT(log.at(LEVEL_WARNING), ElementsAre("refreshing cat", "refreshed cat"));
    EXPECT_TRUE(log.has_line_end(LEVEL_WARNING, "refreshing cat"));
    EXPECT_TRUE(log.has_line_end(LEVEL_WARNING, "refreshed cat"));
}

TEST_F(RefreshScreen, LetsTheNextPassFillTheCacheAnew) {
    new_window();
    screen_refresh();
    EXPECT_FALSE(cache_during_refresh);
    EXPECT_FALSE(vrc_cache);
}

TEST_F(RefreshScreen, TellsAFailure) {
    refresh_result = 1;
    new_window();
    screen_refresh();
    EXPECT_THAT(status(), ElementsAre("refresh package catalogue...", "failed to refresh"));
    EXPECT_THAT(log.at(LEVEL_WARNING), ElementsAre("refreshing cat"));
    EXPECT_FALSE(vrc_cache);
}

TEST_F(RefreshScreen, ShowsTheLatestStatus) {
    new_window();
    screen_refresh();
    ASSERT_TRUE(wait_until([] { return pvrm_status->displayed(2) != 0; }));
    // Two lines of 14 points, in an area of 21: the last one is whole.
    EXPECT_EQ(pvrm_status->vposition(), 2 * 14 - 21);
}

// No tool runs whose end would activate the button.
TEST_F(RefreshScreen, HasACloseButtonThatStaysInactive) {
    new_window();
    screen_refresh();
    expect_place(mbclose, 10, 500, 120, 25);
    EXPECT_FALSE(mbclose->active());
    EXPECT_TRUE(buttons_are_active());
    EXPECT_EQ(pvrm_pending, 0);
    EXPECT_FALSE(pvrm_out);
}
