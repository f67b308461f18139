// A long session: what the program holds after a thousand screens is what it held before them.
//
// What counts are bytes in use on the heap and resources held in the display's server, neither of
// which depends on how quick the machine is or on what an allocator keeps for later.
#include <FL/Fl.H>
#include <FL/Fl_Double_Window.H>
#include <FL/Fl_Input.H>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "gui/loop.h"
#include "gui/model/update_rows.h"
#include "gui/package_table.h"
#include "gui/rows_kit.h"
#include "gui/theme.h"
#include "gui/tool_kit.h"
#include "kit/test_repo.h"
#include "repository/vrc.h"

// Last, for the macros of the display's own headers.
#include <FL/platform.H>
#include <X11/extensions/XRes.h>

#ifdef __SANITIZE_ADDRESS__
// The compiler comes without the header that declares it.
extern "C" size_t __sanitizer_get_current_allocated_bytes();

static size_t heap_in_use() {
    return __sanitizer_get_current_allocated_bytes();
}
#else
#include <malloc.h>
static size_t heap_in_use() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}
#endif

namespace {

// What this program holds in the server, as a count for each kind: windows, pixmaps, fonts, graphic
// contexts and whatever else extensions have.
class Server {
 public:
    Server() : connection_(XOpenDisplay(nullptr)) {
        int event, error;
        usable_ = connection_ && XResQueryExtension(connection_, &event, &error);
    }
    ~Server() {
        if (connection_) {
            XCloseDisplay(connection_);
        }
    }
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    bool usable() const {
        return usable_;
    }
    // All that is held by the client whom this belongs to.
    std::map<std::string, unsigned> held_with(XID resource) const {
        std::map<std::string, unsigned> held;
        XResType *types = nullptr;
        int count = 0;
        if (XResQueryClientResources(connection_, resource, &count, &types)) {
            for (int i = 0; i < count; i++) {
                char *name = XGetAtomName(connection_, types[i].resource_type);
                held[name ? name : "?"] += types[i].count;
                XFree(name);
            }
            XFree(types);
        }
        return held;
    }
    unsigned long pixmap_bytes_with(XID resource) const {
        unsigned long bytes = 0;
        XResQueryClientPixmapBytes(connection_, resource, &bytes);
        return bytes;
    }

 private:
    Display *connection_;
    bool usable_;
};

size_t resident_kilobytes() {
    size_t whole = 0;
    size_t resident = 0;
    std::ifstream("/proc/self/statm") >> whole >> resident;
    return resident * static_cast<size_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

struct Holdings {
    size_t heap = 0;
    size_t resident = 0;
    std::map<std::string, unsigned> resources;
    unsigned long pixmap_bytes = 0;
};

int find_rows(void *, const char *, const char *, const char *, int, s_ekva **, vri ***out) {
    std::vector<Row> rows = numbered_rows(40);
    rows.push_back({"foo", nullptr, "9.0", "An update of what is installed"});
    *out = new_list(rows);
    return static_cast<int>(rows.size());
}

class ManyScreens : public ToolTest {
 protected:
    ManyScreens() {
        static const bool themed = (init_theme(), true);
        (void)themed;
        for (const char *name : {"bar", "foo", "zoo"}) {
            PackageSpec spec;
            spec.name = name;
            repo.install(spec);
        }
        update_only = 0;
        vrm = repo.handle();
        vrc = &connection_;
        vrc_cache = nullptr;
        pvrm_vrc_findpkg = find_rows;
        pvrm_vrc_refresh = [](void *) { return 0; };
        vrm_gui_action = ACTION_IDLE;
    }
    ~ManyScreens() override {
        package_rows_free();
        update_rows_free();
        vrm_cache_free(vrc_cache);
        vrc_cache = nullptr;
        vrm = nullptr;
        vrc = nullptr;
        pvrm_vrc_findpkg = nullptr;
        pvrm_vrc_refresh = nullptr;
        vrm_gui_action = ACTION_IDLE;
    }

    static constexpr int screens_of_a_round = 8;

    // Goes through this many screens, and measures in each one of the given numbers. What a screen
    // allows is done while it stands.
    void go_through(int screens, const std::vector<int> &measured);

    Server server;
    std::vector<Holdings> found;

 private:
    static void take(void *data);
    void act(int screen);
    void measure();

    TestRepo repo;
    int connection_ = 0;
    int screens_ = 0;
    int shown_ = 0;
    std::vector<int> measured_;
};

void ManyScreens::go_through(int screens, const std::vector<int> &measured) {
    screens_ = screens;
    measured_ = measured;
    Fl::add_timeout(0, take, this);
    run_loop();
    Fl::remove_timeout(take, this);
    EXPECT_EQ(shown_, screens_ + 1);
}

void ManyScreens::take(void *data) {
    auto *session = static_cast<ManyScreens *>(data);
    if (win && win->shown()) {
        win->wait_for_expose();
        Fl::flush();
        const int screen = session->shown_++;
        if (std::count(session->measured_.begin(), session->measured_.end(), screen) > 0) {
            session->measure();
        }
        if (screen == session->screens_) {
            session->user.answers = {"1"};
            but_quit->do_callback();
            return;
        }
        session->act(screen);
    }
    Fl::repeat_timeout(0.001, take, data);
}

// The same eight screens again and again. By their place and not by the action, which some screens
// set back to the idle one.
void ManyScreens::act(int screen) {
    const auto search_for = [](const char *text) {
        for (int i = 0; i < win->children(); i++) {
            if (auto *field = dynamic_cast<Fl_Input *>(win->child(i))) {
                field->value(text);
                field->do_callback();
            }
        }
        Fl::flush();
    };
    switch (screen % screens_of_a_round) {
        case 0:
            but_listloc->do_callback();
            break;
        case 1:
            search_for("*o*");
            but_install->do_callback();
            break;
        case 2:
            search_for("package*");
            search_for("*number 0001*");
            choose({"package00012"});
            vrm_gui_action = ACTION_INSTALL_SELECTED;
            win->hide();
            break;
        case 3:
            EXPECT_TRUE(wait_until(ended));
            mbclose->do_callback();
            but_refresh->do_callback();
            break;
        case 4:
            but_cleanup->do_callback();
            break;
        case 5:
            // Its output comes to its end behind the screens that follow.
            but_update->do_callback();
            break;
        case 6:
            EXPECT_EQ(num_vras, 1);
            user.answers = {"0"};
            but_quit->do_callback();
            break;
        default:
            vrm_gui_action = ACTION_REMOVE;
            win->hide();
            break;
    }
}

void ManyScreens::measure() {
    EXPECT_TRUE(wait_until(ended));
    // What the test itself has gathered doesn't count.
    user.questions.clear();
    user.questions.shrink_to_fit();
    log.clear();
    XSync(fl_display, False);
    const XID own = fl_xid(win);
    found.push_back({heap_in_use(), resident_kilobytes(), server.held_with(own),
                     server.pixmap_bytes_with(own)});
}

}  // namespace

// A thousand, after those in which the libraries have filled their caches.
TEST_F(ManyScreens, LeaveNothingBehind) {
    ASSERT_TRUE(server.usable()) << "the display tells nothing of what its clients hold";
    tool_is("echo one; echo 'pvrm: two'; echo three");
    go_through(140 * screens_of_a_round, {15 * screens_of_a_round, 140 * screens_of_a_round});
    ASSERT_EQ(found.size(), 2U);
    const Holdings &before = found[0];
    const Holdings &after = found[1];
    std::cout << "heap " << before.heap << " -> " << after.heap << " bytes, resident "
              << before.resident << " -> " << after.resident << " kB, pixmaps "
              << before.pixmap_bytes << " -> " << after.pixmap_bytes << " bytes\n";
    for (const auto &[name, count] : after.resources) {
        std::cout << name << ": " << count << "\n";
    }
    EXPECT_GT(before.resources.at("WINDOW"), 0U);
    EXPECT_EQ(after.resources, before.resources);
    EXPECT_LE(after.pixmap_bytes, before.pixmap_bytes + 4096);
    EXPECT_LT(after.heap, before.heap + 16384);
}
