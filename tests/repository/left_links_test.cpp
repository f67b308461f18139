#include "repository/left_links.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "kit/log_capture.h"
#include "kit/test_repo.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class LeftLinks : public testing::Test {
 protected:
    // A list of links with the target "t" in the directory of the test, which may be made as well.
    std::string list(const std::string &name, const std::vector<std::string> &links) {
        std::string text = dir.path() + "\n";
        for (const std::string &link : links) {
            text.append("|t|").append(link).append("\n");
        }
        return dir.write(name, text);
    }
    void make(const std::string &link, const std::string &target = "t") {
        fs::remove(dir / link);
        fs::create_symlink(target, dir / link);
    }
    void update(const std::vector<std::string> &before, const std::vector<std::string> &now) {
        note_left_links(repo.handle(), "foo", list("before", before), list("now", now));
    }
    std::vector<std::string> noted() {
        std::vector<left_link> links;
        EXPECT_TRUE(read_left_links(repo.handle(), "foo", &links));
        std::vector<std::string> all;
        for (const left_link &link : links) {
            all.push_back(fs::path(link.path).filename().string() + "|" + link.target);
        }
        return all;
    }
    std::vector<std::string> packages() {
        std::vector<std::string> names;
        EXPECT_TRUE(packages_with_left_links(repo.handle(), &names));
        return names;
    }
    TestRepo repo;
    TempDir dir;
    LogCapture log;
};

}  // namespace

TEST_F(LeftLinks, NothingIsMadeWithoutALinkThatIsLeft) {
    make("a");
    update({"a"}, {"a"});
    note_left_links(repo.handle(), "foo", dir / "nothing", dir / "nothing");
    note_removed_links(repo.handle(), "foo");
    EXPECT_FALSE(exists(repo.in("left_links")));
    EXPECT_THAT(noted(), IsEmpty());
    EXPECT_THAT(packages(), IsEmpty());
    EXPECT_THAT(log.at(LEVEL_WARNING), IsEmpty());
}

TEST_F(LeftLinks, WhatTheNewVersionDoesNotListIsNotedOverSeveralUpdates) {
    make("a");
    make("b");
    make("c");
    update({"a", "b"}, {"b", "c"});
    EXPECT_THAT(noted(), ElementsAre("a|t"));
    EXPECT_EQ(read_all(repo.in("left_links/foo")), (dir / "a") + "|t\n");
    update({"b", "c"}, {});
    EXPECT_THAT(noted(), ElementsAre("a|t", "b|t", "c|t"));
    EXPECT_THAT(packages(), ElementsAre("foo"));
}

TEST_F(LeftLinks, WhatAVersionListsAgainIsDropped) {
    make("a");
    make("b");
    update({"a", "b"}, {});
    update({}, {"a"});
    EXPECT_THAT(noted(), ElementsAre("b|t"));
    update({"a"}, {"a", "b"});
    EXPECT_FALSE(exists(repo.in("left_links"))) << "goes with the last link";
}

TEST_F(LeftLinks, LinksThatAreGoneOrTheUsersOwnAreNotNoted) {
    make("elsewhere", "mine");
    dir.write("file", "no link any more");
    update({"gone", "elsewhere", "file"}, {});
    EXPECT_FALSE(exists(repo.in("left_links")));
}

TEST_F(LeftLinks, ALinkIsKnownByWhereItIs) {
    make("a");
    fs::create_directory_symlink(dir.path(), dir / "alias");
    note_left_links(repo.handle(), "foo", list("before", {"a"}),
                    dir.write("now", (dir / "alias") + "|t|a\n"));
    EXPECT_THAT(noted(), IsEmpty());
}

TEST_F(LeftLinks, ARemovalDropsWhatIsGone) {
    make("a");
    make("b");
    update({"a", "b"}, {});
    fs::remove(dir / "a");
    note_removed_links(repo.handle(), "foo");
    EXPECT_THAT(noted(), ElementsAre("b|t"));
    fs::remove(dir / "b");
    note_removed_links(repo.handle(), "foo");
    EXPECT_FALSE(exists(repo.in("left_links")));
}

TEST_F(LeftLinks, RecordsOfOtherPackagesStay) {
    make("a");
    update({"a"}, {});
    note_left_links(repo.handle(), "bar", dir / "before", dir / "nothing");
    EXPECT_THAT(packages(), ElementsAre("bar", "foo"));
    fs::remove(dir / "a");
    note_removed_links(repo.handle(), "bar");
    EXPECT_THAT(packages(), ElementsAre("foo"));
}

TEST_F(LeftLinks, ADamagedRecordGivesWhatCanBeReadAndIsWrittenAnew) {
    make("a");
    make("b");
    repo.dir().write("repo/left_links/foo",
                     (dir / "a") + "|t\nnonsense\nrelative|t\n/x|\n/y|t|u\n" + (dir / "b") + "|t");
    std::vector<left_link> links;
    errno = 0;
    EXPECT_FALSE(read_left_links(repo.handle(), "foo", &links));
    EXPECT_EQ(errno, EINVAL);
    ASSERT_EQ(links.size(), 1u);
    EXPECT_EQ(links[0].path, dir / "a");
    update({"b"}, {});
    EXPECT_THAT(noted(), ElementsAre("a|t", "b|t"));
}

TEST_F(LeftLinks, ADamagedRecordWithoutLinksIsRemoved) {
    repo.dir().write("repo/left_links/foo", "nonsense\n");
    update({}, {});
    EXPECT_FALSE(exists(repo.in("left_links")));
}

TEST_F(LeftLinks, ARecordThatCannotBeWrittenIsAWarning) {
    make("a");
    repo.dir().write("repo/left_links", "in the way");
    update({"a"}, {});
    EXPECT_THAT(log.at(LEVEL_WARNING),
                ElementsAre("Failed to write the links that foo leaves to " +
                            repo.in("left_links/foo") + ": Not a directory"));
}

TEST_F(LeftLinks, WhatAKilledProgramLeftIsReplaced) {
    make("a");
    repo.dir().write("repo/left_links/.foo.new", "half");
    update({"a"}, {});
    EXPECT_THAT(noted(), ElementsAre("a|t"));
    EXPECT_FALSE(exists(repo.in("left_links/.foo.new")));
    EXPECT_THAT(packages(), ElementsAre("foo"));
}

TEST_F(LeftLinks, InPlaceIsALinkWithThatTarget) {
    make("a");
    dir.write("file", "");
    EXPECT_TRUE(is_in_place({dir / "a", "t"}));
    for (const char *other : {"a", "file", "gone", "file/below"}) {
        EXPECT_FALSE(is_in_place({dir / other, "other"})) << other;
        EXPECT_EQ(errno, 0) << other;
    }
    EXPECT_FALSE(is_in_place({"/" + std::string(5000, 'x'), "t"}));
    EXPECT_EQ(errno, ENAMETOOLONG);
}
