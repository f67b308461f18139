#include "repository/saved_files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "kit/log_capture.h"
#include "kit/mode.h"
#include "kit/test_repo.h"
#include "kit/time_zone.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;

namespace {

class SavedFiles : public testing::Test {
 protected:
    saved_change change(const std::string &puname) {
        return saved_change(repo.handle(), puname);
    }
    saved_listing list() {
        saved_listing listing;
        EXPECT_TRUE(list_saved(repo.handle(), &listing));
        return listing;
    }
    void write(const std::string &below_saved, const std::string &content) {
        const fs::path path = fs::path(repo.in("saved")) / below_saved;
        fs::create_directories(path.parent_path());
        std::ofstream(path) << content;
    }
    TestRepo repo;
    TempDir dir;
    LogCapture log;
};

}  // namespace

TEST_F(SavedFiles, NothingIsMadeBeforeTheFirstFile) {
    saved_change copies = change("foo_any_1.0");
    EXPECT_TRUE(copies.sync());
    copies.discard();
    EXPECT_FALSE(exists(repo.in("saved")));
    EXPECT_THAT(list().sets, IsEmpty());
}

TEST_F(SavedFiles, AFileLiesAtItsOwnPathBelowItsChange) {
    const std::string file = dir.write("a/b", "mine", 0640);
    saved_change copies = change("foo_any_1.0");
    ASSERT_TRUE(copies.keep(file));
    EXPECT_TRUE(copies.sync());
    EXPECT_THAT(copies.copy_of(""),
                MatchesRegex(repo.in("saved") +
                             "/[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}_foo_any_1.0"));
    EXPECT_EQ(read_all(copies.copy_of(file)), "mine");
    EXPECT_EQ(mode_of(copies.copy_of(file)), 0640u);
    EXPECT_EQ(mode_of(repo.in("saved")), 0700u);
    EXPECT_EQ(mode_of(copies.copy_of("")), 0700u);
    copies.discard();
    EXPECT_FALSE(exists(copies.copy_of("")));
}

TEST_F(SavedFiles, ChangesOfOneMomentAreApart) {
    const std::string file = dir.write("a", "mine");
    for (int i = 0; i < 20; i++) {
        ASSERT_TRUE(change("foo_any_1.0").keep(file));
    }
    const saved_listing listing = list();
    EXPECT_THAT(listing.sets, SizeIs(20));
    EXPECT_THAT(listing.strange, IsEmpty());
    for (const saved_set &set : listing.sets) {
        EXPECT_EQ(set.package, "foo_any_1.0");
        ASSERT_THAT(set.files, SizeIs(1));
        EXPECT_EQ(set.files[0].path, file);
    }
}

TEST_F(SavedFiles, TheLongestNamesOfPackagesFit) {
    const std::string file = dir.write("a", "mine");
    EXPECT_TRUE(change("foo_any_" + std::string(243, '1')).keep(file));
    EXPECT_TRUE(change("foo_any_" + std::string(243, '1')).keep(file));
}

TEST_F(SavedFiles, ADirectoryThatOthersMayEnterIsClosed) {
    fs::create_directory(repo.in("saved"));
    ASSERT_EQ(chmod(repo.in("saved").c_str(), 0777), 0);
    ASSERT_TRUE(change("foo_any_1.0").keep(dir.write("a", "mine")));
    EXPECT_EQ(mode_of(repo.in("saved")), 0700u);
}

TEST_F(SavedFiles, ALinkInItsPlaceIsRefused) {
    const std::string file = dir.write("a", "mine");
    fs::create_directory(dir / "elsewhere");
    fs::create_directory_symlink(dir / "elsewhere", repo.in("saved"));
    EXPECT_FALSE(change("foo_any_1.0").keep(file));
    EXPECT_TRUE(fs::is_empty(dir / "elsewhere"));
    EXPECT_THAT(log.at(LEVEL_ERROR), ElementsAre("cannot keep a copy of " + file + " in " +
                                                 repo.in("saved") + ": Not a directory"));
    saved_listing listing;
    EXPECT_FALSE(list_saved(repo.handle(), &listing));
}

TEST_F(SavedFiles, WhatIsMissingCannotBeKept) {
    saved_change copies = change("foo_any_1.0");
    EXPECT_FALSE(copies.keep(dir / "none"));
    EXPECT_THAT(log.at(LEVEL_ERROR),
                ElementsAre("cannot keep a copy of " + (dir / "none") + " in " +
                            copies.copy_of("") + ": No such file or directory"));
}

TEST_F(SavedFiles, TheNameOfADirectoryTellsTimeAndPackage) {
    const TimeZone zone("UTC");
    write("2026-11-21T20:00:00_foo_small_any_1.0#12/opt/x", "12345");
    write("2025-11-21T20:00:00_bar_any_1.0/opt/y", "");
    fs::create_symlink("/etc/shadow", repo.in("saved/2025-11-21T20:00:00_bar_any_1.0/opt/z"));
    const saved_listing listing = list();
    ASSERT_THAT(listing.sets, SizeIs(2));
    EXPECT_EQ(listing.sets[0].package, "bar_any_1.0");
    EXPECT_EQ(listing.sets[1].package, "foo_small_any_1.0");
    EXPECT_EQ(listing.sets[1].time, 1795291200);
    ASSERT_THAT(listing.sets[0].files, SizeIs(2));
    EXPECT_EQ(listing.sets[0].files[1].target, "/etc/shadow");
    ASSERT_THAT(listing.sets[1].files, SizeIs(1));
    EXPECT_EQ(listing.sets[1].files[0].path, "/opt/x");
    EXPECT_EQ(listing.sets[1].files[0].size, 5u);
    EXPECT_EQ(listing.sets[1].files[0].target, "");
}

TEST_F(SavedFiles, WhatIsNoneOfItsDirectoriesIsStrange) {
    write("2026-11-21T20:00:00_file_any_1.0", "");
    for (const char *name : {"x", "2026-11-21T20:00:00", "2026-11-21T20:00:00_", "2026-11-21_x",
                             "2026-1-21T20:00:00_x", " 2026-11-21T20:00:00_x"}) {
        fs::create_directories(repo.in("saved/") + name);
    }
    fs::create_directory_symlink("/etc", repo.in("saved/2026-11-21T20:00:00_link_any_1.0"));
    const saved_listing listing = list();
    EXPECT_THAT(listing.sets, IsEmpty());
    EXPECT_THAT(listing.strange, SizeIs(8));
}

TEST_F(SavedFiles, ASetIsRemovedWithoutFollowingLinks) {
    fs::create_directories(dir / "victim");
    dir.write("victim/file", "precious");
    write("2026-11-21T20:00:00_foo_any_1.0/opt/x", "x");
    fs::create_directory_symlink(dir / "victim",
                                 repo.in("saved/2026-11-21T20:00:00_foo_any_1.0/opt/link"));
    const saved_listing listing = list();
    ASSERT_THAT(listing.sets, SizeIs(1));
    EXPECT_TRUE(remove_saved(listing.sets[0]));
    EXPECT_TRUE(fs::is_empty(repo.in("saved")));
    EXPECT_EQ(read_all(dir / "victim/file"), "precious");
}
