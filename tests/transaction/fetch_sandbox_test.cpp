// Files in the stage area that somebody else could change while they are verified and unpacked.
#include "transaction/executor_fixture.h"
#include "transaction/fetch.h"

using testing::ElementsAre;

namespace {

class StagedFile : public ExecutorTest {
 protected:
    StagedFile() {
        file = offer(simple("foo"));
    }
    struct hand {
        const char *why;
        void (*lend)(const std::string &lent, const std::string &name);
    };
    // Everything that lets somebody else change a file.
    static const std::vector<hand> &hands() {
        static const std::vector<hand> all = {
            {"it belongs to user 65534",
             [](const std::string &lent, const std::string &) {
                 ASSERT_EQ(chown(lent.c_str(), 65534, 0), 0);
             }},
            {"others may write to it",
             [](const std::string &lent, const std::string &) {
                 ASSERT_EQ(chmod(lent.c_str(), 0664), 0);
             }},
            {"others may write to it",
             [](const std::string &lent, const std::string &) {
                 ASSERT_EQ(chmod(lent.c_str(), 0646), 0);
             }},
            {"it has a second name (a hard link)",
             [](const std::string &lent, const std::string &name) {
                 fs::create_hard_link(lent, name);
             }},
        };
        return all;
    }
    // Leaves such a file in the stage area, and holds it open.
    void leave(const hand &one, const std::string &content) {
        fs::remove(path);
        fs::remove(other_name);
        std::ofstream(path, std::ios::binary) << content;
        ASSERT_EQ(chmod(path.c_str(), 0644), 0);
        one.lend(path, other_name);
        held = own_fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    }
    // That the staged file is a new one, of root alone, and that the old one is as it was.
    void expect_fresh(const std::string &old_content) {
        struct stat now = {}, old = {};
        ASSERT_EQ(lstat(path.c_str(), &now), 0);
        ASSERT_EQ(fstat(held.get(), &old), 0);
        EXPECT_NE(now.st_ino, old.st_ino);
        EXPECT_EQ(now.st_uid, 0U);
        EXPECT_EQ(now.st_mode & 07777, 0644U);
        EXPECT_EQ(now.st_nlink, 1U);
        EXPECT_EQ(static_cast<size_t>(old.st_size), old_content.size());
        EXPECT_EQ(read_all(path), read_all(file));
    }
    int fetch() {
        const own_vri package(vrm_vrf_info(repo.handle(), file.c_str(), 0));
        return stage_fetch("test", std::nullopt, &catalogue, package.get(), path);
    }

    std::string file;  // of the catalogue
    const std::string path = staged("foo_any_1.0") + ".vrk", other_name = repo.in("stagearea/name");
    own_fd held;
};

}  // namespace

TEST_F(StagedFile, OfSomebodyElseIsNotUsedAgain) {
    const std::string sound = read_all(file);
    for (const hand &one : hands()) {
        leave(one, sound);
        const int before = catalogue.fetches;
        EXPECT_EQ(fetch(), 0) << one.why;
        EXPECT_EQ(catalogue.fetches, before + 1) << one.why;
        expect_fresh(sound);
    }
}

TEST_F(StagedFile, OfSomebodyElseIsNotFetchedInto) {
    for (const hand &one : hands()) {
        leave(one, "something else");
        EXPECT_EQ(fetch(), 0) << one.why;
        expect_fresh("something else");
    }
}

TEST_F(StagedFile, OfRootAloneIsUsedAgain) {
    ASSERT_EQ(fetch(), 0);
    ASSERT_EQ(fetch(), 0);
    EXPECT_EQ(catalogue.fetches, 1);
}

TEST_F(StagedFile, OneThatIsFetchedAnewIsAnotherFile) {
    std::ofstream(path) << "half of it";
    held = own_fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(fetch(), 0);
    expect_fresh("half of it");
}

TEST_F(StagedFile, OfSomebodyElseThatTheUserNamesIsRefusedAndStays) {
    const std::string sound = read_all(file);
    for (const hand &one : hands()) {
        leave(one, sound);
        log.clear();
        const own_vri package(vrm_vrf_info(repo.handle(), path.c_str(), 0));
        EXPECT_EQ(vrm_stage_file(repo.handle(), package.get(), 0), -1) << one.why;
        EXPECT_THAT(log.at(LEVEL_ERROR),
                    ElementsAre("vrm_stage_file: refusing staged file " + path + ": " + one.why));
        EXPECT_EQ(read_all(path), sound) << one.why;
        EXPECT_EQ(install(path), -1) << one.why;
        EXPECT_FALSE(is_installed("foo")) << one.why;
    }
}

// The user's file would be used where it lies, and its owner could change it.
TEST_F(StagedFile, ALinkToTheFileThatTheUserNamesGivesWayToACopy) {
    const std::string own = files / "own.vrk";
    fs::copy_file(file, own);
    fs::create_symlink(own, path);
    const own_vri package(vrm_vrf_info(repo.handle(), own.c_str(), 0));
    EXPECT_EQ(vrm_stage_file(repo.handle(), package.get(), 0), 0);
    EXPECT_FALSE(fs::is_symlink(path));
    EXPECT_EQ(read_all(path), read_all(own));
}
