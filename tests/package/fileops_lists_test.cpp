#include "package/fileops_lists.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "kit/log_capture.h"
#include "kit/temp_dir.h"
#include "package/fileops.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class LinkList : public testing::Test {
 protected:
    // "directory|target|name" of each entry.
    std::vector<std::string> read(const std::string &text) {
        std::vector<link_entry> entries;
        EXPECT_TRUE(read_link_list(dir.write("list", text), &entries));
        std::vector<std::string> lines;
        lines.reserve(entries.size());
        for (const link_entry &entry : entries) {
            lines.push_back(entry.directory + "|" + entry.target + "|" + entry.name);
        }
        return lines;
    }
    TempDir dir;
    LogCapture log;
    link_resolver resolver;
};

std::vector<std::string> texts(const std::vector<refused_line> &lines) {
    std::vector<std::string> all;
    for (const refused_line &line : lines) {
        all.push_back(std::to_string(line.number) + ": " + line.why);
    }
    return all;
}

class AuditedLists : public testing::Test {
 protected:
    bool read_links(const std::string &text) {
        std::vector<link_entry> entries;
        refused.clear();
        const bool whole = read_link_list(dir.write("link.txt", text), &entries, &refused);
        for (const link_entry &entry : entries) {
            links.push_back(entry.directory + " " + entry.name + " -> " + entry.target);
        }
        return whole;
    }
    bool read_modes(const std::string &text) {
        return read_perm_list(dir.write("perm.txt", text), &modes, &refused);
    }
    TempDir dir;
    std::vector<std::string> links;
    std::vector<perm_entry> modes;
    std::vector<refused_line> refused;
};

}  // namespace

TEST_F(LinkList, EntriesHaveTheDirectoryOfTheLineBefore) {
    EXPECT_THAT(read("/a|t|one\n|u|two\n/b\n|v|three\n/c||\n"),
                ElementsAre("/a|t|one", "/a|u|two", "/b|v|three"));
}

TEST_F(LinkList, RelativeDirectoriesAreThoseOfTheLineBefore) {
    const WorkingDir inside(dir.path());
    EXPECT_THAT(read("|t|one\n/a|t|two\nb|t|three\n"),
                ElementsAre(fs::current_path().string() + "|t|one", "/a|t|two", "/a/b|t|three"));
}

TEST_F(LinkList, RefusedLinesAreLeftOutInSilence) {
    const std::string overlong(2064, 'x');
    EXPECT_THAT(
        read("/a|t|one\n|t|" + overlong + "\n/" + overlong + "|t|two\n|t|three\n/b|t|four\n"),
        ElementsAre("/a|t|one", "/b|t|four"));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LinkList, AListThatIsMissingOrNoFileIsNotRead) {
    std::vector<link_entry> entries;
    EXPECT_FALSE(read_link_list(dir / "none", &entries));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(read_link_list(dir.path(), &entries));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LinkList, OneLinkIsOnePlaceHoweverItIsSpelled) {
    fs::create_directories(dir / "usr/lib/sub");
    fs::create_directory_symlink("usr/lib", dir / "lib");
    const std::string place = fs::canonical(dir.path()).string() + "/usr/lib/x";
    EXPECT_EQ(resolver.place_of({dir / "lib", "t", "x"}), place);
    EXPECT_EQ(resolver.place_of({dir / "usr/lib/", "t", "x"}), place);
    EXPECT_EQ(resolver.place_of({dir.path() + "//usr/./lib", "t", "sub/../x"}), place);
    EXPECT_EQ(resolver.place_of({"/etc", "t", dir / "lib/x"}), place);
    EXPECT_EQ(resolver.place_of(dir / "lib/x"), place);
}

TEST_F(LinkList, TheLinkItselfIsNotFollowed) {
    fs::create_symlink("elsewhere", dir / "x");
    EXPECT_EQ(resolver.place_of({dir.path(), "t", "x"}), fs::canonical(dir.path()).string() + "/x");
}

TEST_F(LinkList, DirectoriesThatAreNotThereYetHaveAPlaceToo) {
    fs::create_directory_symlink("real", dir / "alias");
    fs::create_directory(dir / "real");
    EXPECT_EQ(resolver.place_of({dir / "alias/new/../er", "t", "x"}),
              fs::canonical(dir.path()).string() + "/real/er/x");
    for (const char *root : {"/", "//", "///", "/..", "//../"}) {
        EXPECT_EQ(resolver.place_of({root, "t", "x"}), "/x") << root;
        EXPECT_EQ(resolver.place_of({root, "t", "not/there/x"}), "/not/there/x") << root;
    }
}

TEST_F(LinkList, NamesThatNoLinkCanHaveHaveNoPlace) {
    for (const char *name : {".", "..", "a/", "a/..", "a/."}) {
        EXPECT_EQ(resolver.place_of({dir.path(), "t", name}), "") << name;
    }
}

TEST_F(LinkList, OnlyAllowedLinksAreRemoved) {
    fs::create_symlink("t", dir / "one");
    fs::create_symlink("t", dir / "two");
    const std::string list = dir.write("list", dir.path() + "|t|one\n|t|two\n");
    const auto only_two = [this](const link_entry &entry) {
        EXPECT_EQ(entry.directory, dir.path());
        EXPECT_EQ(entry.target, "t");
        return entry.name == "two";
    };
    EXPECT_EQ(apply_link_list(list.c_str(), true, false, only_two), 0);
    EXPECT_TRUE(exists(dir / "one"));
    EXPECT_FALSE(exists(dir / "two"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_vrf_links: Will not remove symbolic link named one"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_vrf_links: Will remove symbolic link named two"));
}

TEST_F(LinkList, WhatMayNotBeRemovedIsNotReplaced) {
    fs::create_symlink("old", dir / "one");
    const std::string list = dir.write("list", dir.path() + "|new|one\n|new|two\n");
    apply_link_list(list.c_str(), true, true, [](const link_entry &) { return false; });
    EXPECT_EQ(fs::read_symlink(dir / "one"), "old");
    EXPECT_EQ(fs::read_symlink(dir / "two"), "new");
}

// ---- As audits read lists ----

TEST_F(AuditedLists, LinksThatDependOnTheWorkingDirectoryAreNamed) {
    WorkingDir there(dir.path());
    EXPECT_TRUE(read_links("|a|x\nsub|a|y\n|a|/abs\n/opt|b|z\nmore|c|w\n"));
    EXPECT_THAT(links, ElementsAre("sub /abs -> a", "/opt z -> b", "/opt/more w -> c"));
    EXPECT_THAT(texts(refused),
                ElementsAre("1: it has no absolute directory", "2: it has no absolute directory"));
}

TEST_F(AuditedLists, NamesThatNoLinkCanHaveAreNamed) {
    EXPECT_TRUE(read_links("/opt|a|x/\n|a|..\n|a|y/.\n|a|good\n"));
    EXPECT_THAT(links, ElementsAre("/opt good -> a"));
    EXPECT_THAT(texts(refused), ElementsAre("1: its name is not one that a link can have",
                                            "2: its name is not one that a link can have",
                                            "3: its name is not one that a link can have"));
}

TEST_F(AuditedLists, RefusedLinesAreNamedAndWhatFollowsInTheirDirectoryIsLeftOut) {
    using namespace std::string_literals;
    EXPECT_TRUE(read_links("/opt|a|\0x\n|b|y\n/srv|c|z\n"s + std::string(5000, 'x')));
    EXPECT_THAT(links, ElementsAre("/srv z -> c"));
    EXPECT_THAT(texts(refused),
                ElementsAre("1: it holds a zero byte", "4: it is longer than 4095 bytes"));
}

TEST_F(AuditedLists, PermissionsAreReadAsTheyAreApplied) {
    EXPECT_TRUE(read_modes("/a|4755\n\n/b|100644|\n/c|\n|644\nonly\n/d|7"));
    ASSERT_EQ(modes.size(), 3u);
    EXPECT_EQ(modes[0].path, "/a");
    EXPECT_EQ(modes[0].mode, 04755u);
    EXPECT_EQ(modes[1].mode, 0644u) << "without the bits of the file's kind";
    EXPECT_EQ(modes[2].path, "/d");
    EXPECT_THAT(refused, IsEmpty());
}

TEST_F(AuditedLists, PermissionsThatCannotBeAppliedAreNamed) {
    EXPECT_TRUE(read_modes("/a|9\nb|644\n/c|77777777\n/d|-1\n/e|644\n"));
    ASSERT_EQ(modes.size(), 1u);
    EXPECT_EQ(modes[0].path, "/e");
    EXPECT_THAT(
        texts(refused),
        ElementsAre("1: its mode is not an octal number", "2: its path is not absolute",
                    "3: its mode is not an octal number", "4: its mode is not an octal number"));
}

TEST_F(AuditedLists, AListThatIsMissingGivesTheReason) {
    errno = 0;
    EXPECT_FALSE(read_perm_list(dir / "nothing", &modes, &refused));
    EXPECT_EQ(errno, ENOENT);
}
