#include "transaction/change.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "kit/event_receiver.h"
#include "kit/failing_memory.h"
#include "kit/log_capture.h"
#include "kit/package_maker.h"
#include "kit/temp_dir.h"

namespace fs = std::filesystem;
using testing::ElementsAre;

namespace {

// The package foo with both of its scripts, unpacked.
class Change : public testing::Test {
 protected:
    Change() {
        fs::create_directories(dir / "scriptdir");
        fs::create_symlink("/bin/sh", dir / "scriptdir/ash");
        handle.dirs = ekva_new(1, 2);
        ekva_addval(&handle.dirs, "scriptdir", (dir / "scriptdir").c_str(), 2);
        transaction.scripts = ekva_new(5, 1);
        PackageSpec spec;
        spec.name = "foo";
        info.reset(vrk_info_parse("test", 3, description_of(spec).c_str(), nullptr));
        dir.write("new/init/00-add.sh", "echo \"$VRK_NAME\" >" + (dir / "trace") + "\n");
        install.by = &installing;
        install.handle = &handle;
        install.transaction = &transaction;
        install.new_package = info.get();
        install.stage.puname = "foo_any_1.0";
        install.stage.fresh = dir / "new";
        install.forks.init.reset(str2arr("/00-add.sh /99-cfg.sh", ' '));
    }
    ~Change() override {
        ekva_free(handle.dirs);
        ekva_free(transaction.scripts);
    }

    TempDir dir;
    LogCapture log;
    vrm_handle handle = {};
    vrt transaction = {};
    own_vri info;
    change install = {};
};

}  // namespace

// A script that finds no name in its environment might well clear a directory without one.
TEST_F(Change, ScriptDoesNotRunWithoutItsEnvironment) {
    int copies = 0, rc = -1;
    for (; rc != 0 && copies < 100; copies++) {
        EXPECT_FALSE(exists(dir / "trace")) << copies;
        strdups_left = copies;
        rc = run_script(install, installing.first);
        strdups_left = -1;
    }
    EXPECT_EQ(rc, 0);
    EXPECT_GT(copies, 2);
    EXPECT_EQ(read_all(dir / "trace"), "foo\n");
}

TEST_F(Change, ScriptThatCannotBeRegisteredIsTold) {
    ASSERT_EQ(find_due(&install), 0);
    strdups_left = 0;
    note_configuration(install);
    strdups_left = -1;
    EXPECT_THAT(log.at(LEVEL_ERROR),
                ElementsAre("vrm_install_vrk: out of memory, 99-cfg.sh will not run for foo"));
    note_configuration(install);
    EXPECT_STREQ(ekva_getval(transaction.scripts, "foo"), "99-cfg.sh");
}

TEST_F(Change, RemovalScriptThatCannotBeStartedIsReported) {
    ekva_addval(&handle.dirs, "installed", dir.path().c_str(), 2);
    dir.write("foo/init/00-del.sh", "exit 0\n");
    change removal = {&removing, &handle, nullptr, info.get(), nullptr, nullptr, false};
    removal.stage.puname = "foo_any_1.0";
    removal.places.entry = dir / "foo";
    strdups_left = 0;
    const int rc = run_script(removal, removing.first);
    strdups_left = -1;
    EXPECT_EQ(rc, -1);
    EXPECT_THAT(log.at(LEVEL_ERROR),
                ElementsAre("vrm_one_delete: pre-delete got an error, aborting"));
    EXPECT_EQ(run_script(removal, removing.first), 0);
}

TEST_F(Change, StageThatRunsOutOfMemoryFailsAndIsNamed) {
    std::string stage;
    const EventReceiver receiver([&](const event &happened) {
        if (happened.kind == event_kind::change_memory_exhausted) {
            stage = happened.other;
        }
    });
    EXPECT_EQ(attempt("place", []() -> int { throw std::bad_alloc(); }), -1);
    EXPECT_EQ(stage, "place");
    EXPECT_THAT(log.at(LEVEL_ERROR), ElementsAre("out of memory"));
    EXPECT_EQ(attempt("place", [] { return 7; }), 7);
}
