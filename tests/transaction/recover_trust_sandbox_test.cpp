// What a recovery believes of what it finds.
#include <fcntl.h>

#include "transaction/cut_off_fixture.h"

using testing::ElementsAre;

namespace {

class RecoveryTrust : public CutOffChange {
 protected:
    void cut_an_update_off() {
        PackageSpec before = foo1, after = foo2;
        before.data["srv/t/foo"] = "old\n";
        after.data["srv/t/foo"] = "new\n";
        install_now(before);
        ASSERT_TRUE(cut_off("Registering foo", [&] { return update(after); }));
        ASSERT_EQ(read_all(live + "/foo"), "new\n");
    }

    const std::string stage = staged("foo_any_2.0");
};

}  // namespace

TEST_F(RecoveryTrust, NothingIsPutBackFromWhereOthersCanWrite) {
    cut_an_update_off();
    const std::string unread = "Failed to read ",
                      unused = "vrm_recover_change: refusing stage directory ";
    const struct {
        std::string path;
        mode_t mode;
        std::string line;
    } cases[] = {
        {repo.in("stagearea"), 0777,
         "vrm_recover_change: refusing stage area " + repo.in("stagearea") +
             ": others may write to it"},
        {stage, 0770, unused + stage + ": others may write to it"},
        {stage + "/keep", 0702, unused + stage + "/keep: others may write to it"},
        {stage + "/keep", 0755, unused + stage + "/keep: others may enter it"},
        {repo.in("change"), 0777, unread + repo.in("change") + ": others may write to it"},
        {repo.in("change/record"), 0620,
         unread + repo.in("change/record") + ": others may write to it"},
    };
    for (const auto &one : cases) {
        const mode_t good = mode_of(one.path);
        ASSERT_EQ(chmod(one.path.c_str(), one.mode), 0);
        EXPECT_EQ(recover(), -1) << one.line;
        EXPECT_THAT(log.at(LEVEL_ERROR), ElementsAre(one.line));
        EXPECT_EQ(read_all(live + "/foo"), "new\n") << one.line;
        ASSERT_EQ(chmod(one.path.c_str(), good), 0);
    }
    EXPECT_EQ(recover(), 1);
    EXPECT_EQ(read_all(live + "/foo"), "old\n");
    expect_nothing_left();
}

TEST_F(RecoveryTrust, NothingIsPutBackThatSomebodyElsePutThere) {
    cut_an_update_off();
    for (const std::string &path : {stage, stage + "/keep"}) {
        ASSERT_EQ(chown(path.c_str(), 65534, 65534), 0);
        EXPECT_EQ(recover(), -1) << path;
        EXPECT_THAT(log.at(LEVEL_ERROR),
                    ElementsAre("vrm_recover_change: refusing stage directory " + path +
                                ": it belongs to user 65534"));
        ASSERT_EQ(chown(path.c_str(), 0, 0), 0);
    }
    // A link to a directory of the same kind.
    fs::rename(stage + "/keep", repo.in("keep"));
    fs::create_symlink(repo.in("keep"), stage + "/keep");
    EXPECT_EQ(recover(), -1);
    EXPECT_EQ(read_all(live + "/foo"), "new\n");
}

TEST_F(RecoveryTrust, NothingIsMovedAwayThatARecordOfOthersNames) {
    cut_an_update_off();
    for (const std::string &path : {repo.in("change/record"), repo.in("change")}) {
        const mode_t good = mode_of(path);
        ASSERT_EQ(chmod(path.c_str(), good | 022), 0);
        log.clear();
        EXPECT_EQ(vrm_abandon_change(repo.handle()), -1) << path;
        EXPECT_THAT(log.at(LEVEL_ERROR),
                    ElementsAre("Failed to read " + path + ": others may write to it"));
        EXPECT_TRUE(exists(stage + "/keep"));
        ASSERT_EQ(chmod(path.c_str(), good), 0);
    }
    // A way out of a stage directory that is not to be believed.
    ASSERT_EQ(chmod((stage + "/keep").c_str(), 0777), 0);
    EXPECT_EQ(vrm_abandon_change(repo.handle()), 0);
    EXPECT_FALSE(exists(stage));
}

namespace {

class ReplacedFiles : public CutOffChange {
 protected:
    ReplacedFiles() {
        put(live + "/foo", "mine\n");
        ScriptedUser::instance().answers = {"r"};
    }

    // Installs a package over the user's file and dies.
    bool die_over_it(const PackageSpec &spec) {
        return cut_off("vrm_install_vrk: Copied", [&] {
            offer(spec);
            return install(spec.name);
        });
    }
    void make_set(const std::string &name) {
        fs::create_directories(repo.in("saved/" + name));
        put(repo.in("saved/" + name + "/file"), "kept\n");
    }
};

}  // namespace

TEST_F(ReplacedFiles, OnlyTheCopiesOfTheChangeGoWithIt) {
    // As after the clock was set back, or of a change in another time zone.
    make_set("2099-01-01T00:00:00_foo_any_1.0");
    make_set("2001-01-01T00:00:00_foo_any_1.0");
    const auto before = tree(repo.in("saved"));
    ASSERT_TRUE(die_over_it(foo1));
    EXPECT_NE(tree(repo.in("saved")), before);
    EXPECT_EQ(recover(), 1);
    EXPECT_EQ(read_all(live + "/foo"), "mine\n");
    EXPECT_EQ(tree(repo.in("saved")), before);
    expect_nothing_left();
}

TEST_F(ReplacedFiles, TheCopiesOfAPackageWithALongNameGo) {
    PackageSpec spec = foo1;
    spec.version = std::string(100, '1') + "." + std::string(100, '2');
    ASSERT_TRUE(die_over_it(spec));
    EXPECT_TRUE(exists(repo.in("saved")));
    EXPECT_EQ(recover(), 1);
    EXPECT_EQ(read_all(live + "/foo"), "mine\n");
    EXPECT_FALSE(exists(repo.in("saved")));
    expect_nothing_left();
}

TEST_F(ReplacedFiles, ADirectoryForThemThatIsStillEmptyGoes) {
    ASSERT_TRUE(die_over_it(foo1));
    make_set("2001-01-01T00:00:00_other_any_1.0");
    fs::create_directories(repo.in("saved/2099-01-01T00:00:00_foo_any_1.0"));
    EXPECT_EQ(recover(), 1);
    EXPECT_THAT(tree(repo.in("saved")), ElementsAre("2001-01-01T00:00:00_other_any_1.0/",
                                                    "2001-01-01T00:00:00_other_any_1.0/file"));
}
