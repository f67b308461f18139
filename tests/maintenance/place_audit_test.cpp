#include "maintenance/place_audit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "kit/test_repo.h"
#include "maintenance/finding_capture.h"
#include "transaction/interrupt.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<std::string> lines_of(const finding_list &found) {
    std::vector<std::string> lines;
    for (const finding &one : found) {
        lines.push_back(event_line(one.as_event()));
    }
    return lines;
}

class PlaceAudit : public testing::Test {
 protected:
    PlaceAudit() {
        repo.install({.name = "foo"}, {file});
    }
    void info(const std::string &name, const std::string &text) {
        repo.dir().write("repo/installed/foo/" + name, text);
    }
    void links(const std::string &lines) {
        info("link.txt", dir.path() + "\n" + lines);
    }
    std::vector<std::string> compare(bool with_files = false) {
        place_audit audit(repo.handle(), &modes);
        return lines_of(with_files ? audit.compare_with_files("foo") : audit.compare("foo"));
    }
    TempDir dir;
    TestRepo repo;
    const listed_modes modes{repo.handle()};
    const std::string file = dir.write("file", "of foo");
};

}  // namespace

TEST_F(PlaceAudit, WhatIsAsListedIsNotFound) {
    EXPECT_THAT(compare(true), IsEmpty()) << "without lists";
    links("|file|a\n|/nowhere|b\n");
    fs::create_symlink("file", dir / "a");
    fs::create_symlink("/nowhere", dir / "b");
    chmod(file.c_str(), 04750);
    chmod(dir.path().c_str(), 01777);
    info("perm.txt", file + "|4750\n" + dir.path() + "|1777\n");
    EXPECT_THAT(compare(), IsEmpty());
    EXPECT_THAT(compare(true), IsEmpty());
}

TEST_F(PlaceAudit, FindsALinkThatIsMissingRetargetedOrReplaced) {
    links("|file|gone\n|file|elsewhere\n|file|now-file\n|file|now-dir\n|file|file/below\n");
    fs::create_symlink("other", dir / "elsewhere");
    dir.write("now-file", "");
    fs::create_directory(dir / "now-dir");
    EXPECT_THAT(
        compare(),
        ElementsAre(
            "the link " + (dir / "elsewhere") + " of foo points to other, and not to file",
            "the link " + (dir / "file/below") + " of foo to file is missing",
            "the link " + (dir / "gone") + " of foo to file is missing",
            "in the place of the link " + (dir / "now-dir") + " of foo to file is a directory",
            "in the place of the link " + (dir / "now-file") + " of foo to file is a file"));
}

TEST_F(PlaceAudit, OfTwoLinesForOnePlaceTheLastCounts) {
    fs::create_directory_symlink(dir.path(), dir / "alias");
    info("link.txt", dir.path() + "|one|a\n" + (dir / "alias") + "/../" +
                         fs::path(dir.path()).filename().string() + "|two|a\n");
    fs::create_symlink("two", dir / "a");
    EXPECT_THAT(compare(), IsEmpty());
    fs::remove(dir / "a");
    fs::create_symlink("one", dir / "a");
    EXPECT_THAT(compare(),
                ElementsAre("the link " + (dir / "a") + " of foo points to one, and not to two"));
}

TEST_F(PlaceAudit, NoLinkIsExpectedWhereThePackageBringsAFile) {
    links("|target|file\n");
    EXPECT_THAT(compare(), IsEmpty());
}

TEST_F(PlaceAudit, ALoopOfLinksOnTheWayIsNamed) {
    fs::create_symlink("loop", dir / "loop");
    info("link.txt", (dir / "loop") + "|t|a\n");
    info("perm.txt", (dir / "loop") + "|644\n");
    EXPECT_THAT(compare(), ElementsAre("cannot look at " + (dir / "loop/a") +
                                           " of foo: Too many levels of symbolic links",
                                       "cannot look at " + (dir / "loop") +
                                           " of foo: Too many levels of symbolic links"));
}

TEST_F(PlaceAudit, HostileListsAreNamedLineByLine) {
    using namespace std::string_literals;
    const std::string long_name(2000, 'x');
    info("link.txt", "here|t|a\n/srv|t|..\n\0\n"s + "/" + long_name + "|t|b\n");
    info("perm.txt", "/a|8\nb|644\n"s + std::string(10000, '/') + "\n/../" + long_name + "|644\n");
    const std::string link_list = repo.in("installed/foo/link.txt"),
                      perm_list = repo.in("installed/foo/perm.txt");
    EXPECT_THAT(compare(),
                ElementsAre(link_list + ", line 1: it has no absolute directory",
                            link_list + ", line 2: its name is not one that a link can have",
                            link_list + ", line 3: it holds a zero byte",
                            "cannot look at /" + long_name + "/b of foo: File name too long",
                            perm_list + ", line 1: its mode is not an octal number",
                            perm_list + ", line 2: its path is not absolute",
                            perm_list + ", line 3: it is longer than 4095 bytes",
                            "cannot look at /../" + long_name + " of foo: File name too long"));
}

TEST_F(PlaceAudit, AListThatIsNotAFileIsNamed) {
    fs::create_directory(repo.in("installed/foo/link.txt"));
    const std::vector<std::string> found = compare();
    ASSERT_EQ(found.size(), 1u);
    EXPECT_THAT(found[0],
                testing::StartsWith("cannot read " + repo.in("installed/foo/link.txt") + ": "));
}

TEST_F(PlaceAudit, FindsModesThatDiffer) {
    const std::string gone = dir / "gone";
    info("perm.txt", file + "|0640\n" + gone + "|4755\n" + gone + "|4755\n");
    chmod(file.c_str(), 0600);
    EXPECT_THAT(compare(), ElementsAre(gone + " of foo, with the mode 4755, is missing",
                                       "the mode of " + file + " of foo is 0600, and not 0640"));
}

TEST_F(PlaceAudit, OfTwoLinesForOneFileTheLastModeCounts) {
    fs::create_hard_link(file, dir / "other-name");
    fs::create_symlink("file", dir / "link");
    info("perm.txt",
         file + "|0700\n" + (dir / "other-name") + "|0710\n" + (dir / "link") + "|0711\n");
    chmod(file.c_str(), 0711);
    EXPECT_THAT(compare(true), IsEmpty());
    chmod(file.c_str(), 0700);
    EXPECT_THAT(compare(),
                ElementsAre("the mode of " + (dir / "link") + " of foo is 0700, and not 0711"));
}

TEST_F(PlaceAudit, AConfigurationFileMayHaveFewerPermissions) {
    const std::string conf = dir.write("foo.conf", "", 0600);
    repo.dir().write("repo/installed/foo/conf" + conf, "");
    info("perm.txt", conf + "|0640\n");
    EXPECT_THAT(compare(true), IsEmpty());
    chmod(conf.c_str(), 0644);
    EXPECT_THAT(compare(), ElementsAre("the mode of " + conf + " of foo is 0644, and not 0640"));
}

TEST_F(PlaceAudit, AModeThatAnotherPackageListsForThePathIsRight) {
    const std::string other = "repo/installed/bar/perm.txt";
    info("perm.txt", file + "|0700\n" + file + "|0750\n");
    repo.dir().write(other, file + "|0711\n" + file + "|0755\n");
    chmod(file.c_str(), 0755);
    EXPECT_THAT(compare(), IsEmpty());
    for (const mode_t wrong : {0700U, 0711U}) {
        chmod(file.c_str(), wrong);
        EXPECT_EQ(compare().size(), 1u) << "the last line of a list counts";
    }
}

TEST_F(PlaceAudit, ARequestToStopEndsAComparison) {
    links("|t|a\n");
    info("perm.txt", (dir / "gone") + "|0644\n");
    vrm_stop_requested = 1;
    EXPECT_THAT(compare(true), IsEmpty());
    vrm_stop_requested = 0;
    EXPECT_EQ(compare(true).size(), 2u);
}

TEST_F(PlaceAudit, FindsFilesThatEverybodyMayWriteToWhenFilesAreCompared) {
    chmod(file.c_str(), 0777);
    EXPECT_THAT(compare(), IsEmpty());
    EXPECT_THAT(compare(true),
                ElementsAre("everybody can write to " + file + " of foo: its mode is 0777"));
    info("perm.txt", file + "|0666\n");
    EXPECT_THAT(compare(true), ElementsAre("the mode of " + file + " of foo is 0777, and not 0666"))
        << "once";
    chmod(file.c_str(), 0666);
    EXPECT_THAT(compare(true), IsEmpty());
}

TEST_F(PlaceAudit, WhatIsNotAFileIsNotOpenToAll) {
    fs::remove(file);
    fs::create_symlink("/dev/null", file);
    EXPECT_THAT(compare(true), IsEmpty());
}

TEST_F(PlaceAudit, AMissingFileIsLeftToTheHashAudit) {
    const std::string conf = dir / "foo.conf";
    repo.dir().write("repo/installed/foo/conf" + conf, "");
    info("perm.txt", file + "|0644\n" + conf + "|0600\n");
    fs::remove(file);
    EXPECT_THAT(compare(true), IsEmpty());
    EXPECT_THAT(compare(), ElementsAre(file + " of foo, with the mode 0644, is missing",
                                       conf + " of foo, with the mode 0600, is missing"));
}

TEST_F(PlaceAudit, FilesOfAnotherPackagesRecordAreNotLookedAt) {
    fs::copy(repo.in("installed/foo"), repo.in("installed/copy"));
    chmod(file.c_str(), 0777);
    place_audit audit(repo.handle(), &modes);
    EXPECT_THAT(lines_of(audit.compare_with_files("copy")), IsEmpty());
}

TEST_F(PlaceAudit, KnowsThePlacesOfAllLinks) {
    links("|t|a\n");
    repo.dir().write("repo/installed/half/link.txt", dir.path() + "|t|b\n");
    FindingCapture reported;
    place_audit audit(repo.handle(), &modes);
    EXPECT_EQ(audit.compare("foo").size(), 1u);
    audit.remember_links("half");
    EXPECT_THAT(reported.lines, IsEmpty()) << "findings are not reported by the comparison";
    EXPECT_TRUE(audit.lists(dir / "a"));
    EXPECT_TRUE(audit.lists(dir / "b"));
    EXPECT_FALSE(audit.lists(dir / "c"));
}
