#include "repository/inventory.h"
#include "repository/owner_lookup.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "kit/event_receiver.h"
#include "kit/failing_closedir.h"
#include "kit/failing_memory.h"
#include "kit/failing_reads.h"
#include "kit/log_capture.h"
#include "kit/strings.h"
#include "kit/test_repo.h"

namespace fs = std::filesystem;
using testing::ElementsAre;

namespace {

PackageSpec named(const std::string &name, const std::string &description = "A test package") {
    PackageSpec spec;
    spec.name = name;
    spec.description = description;
    return spec;
}

class Inventory : public testing::Test {
 protected:
    vrm_handle *handle() {
        return repo_.handle();
    }
    std::string write(const std::string &below_root, const std::string &content) {
        return repo_.dir().write("repo/" + below_root, content);
    }
    // The names that vrm_list_vri finds, sorted.
    std::vector<std::string> list(const char *pattern) {
        vri **found = nullptr;
        const int count = vrm_list_vri(handle(), pattern, 1, &found);
        const own_vri_list owner(found);
        std::vector<std::string> names;
        for (int i = 0; i < count; i++) {
            names.emplace_back(found[i]->name);
        }
        if (found) {
            EXPECT_EQ(found[count], nullptr);
        }
        return names;
    }
    std::string owner(const std::string &path) {
        const own_string name(vrm_file_owner(handle(), path.c_str()));
        return name ? name.get() : "(none)";
    }

    TestRepo repo_;
    LogCapture log_;
};

using VrkStatDesc = testing::Test;
class VrmVrlInfo : public Inventory {};
class VrmListVri : public Inventory {};
class VrmListArr : public Inventory {};
class VrmVrlFileList : public Inventory {};
class VrmFileOwner : public Inventory {};

}  // namespace

TEST_F(VrkStatDesc, HasWordsForThreeLetters) {
    EXPECT_STREQ(vrk_stat_desc('I'), "installed");
    EXPECT_STREQ(vrk_stat_desc('R'), "available remotely");
    EXPECT_STREQ(vrk_stat_desc('L'), "available locally");
    EXPECT_STREQ(vrk_stat_desc('U'), "unavailable");
    EXPECT_STREQ(vrk_stat_desc('i'), "unavailable");
    EXPECT_STREQ(vrk_stat_desc(0), "unavailable");
}

TEST_F(VrkStatDesc, LooksAtTheLowByteOnly) {
    EXPECT_STREQ(vrk_stat_desc(0x100 + 'I'), "installed");
}

TEST_F(VrmVrlInfo, ReadsBothTexts) {
    PackageSpec spec = named("foo");
    spec.version = "2.5";
    repo_.install(spec, {},
                  "evrkInstallTime: 1700000000\nevrkInstallType: D\nevrkInstallHead: head\n");
    const own_vri info(vrm_vrl_info(handle(), "foo"));
    ASSERT_TRUE(info);
    EXPECT_STREQ(info->name, "foo");
    EXPECT_STREQ(info->version, "2.5");
    EXPECT_EQ(info->install_time, 1700000000);
    EXPECT_EQ(info->install_type, 'D');
    EXPECT_STREQ(info->install_head, "head");
}

TEST_F(VrmVrlInfo, IsNullWithoutTheEntryOrEitherText) {
    repo_.install(named("no-inst"));
    fs::remove(repo_.in("installed/no-inst/inst.txt"));
    repo_.install(named("no-desc"));
    fs::remove(repo_.in("installed/no-desc/desc.txt"));
    EXPECT_EQ(vrm_vrl_info(handle(), "none"), nullptr);
    EXPECT_EQ(vrm_vrl_info(handle(), "no-inst"), nullptr);
    EXPECT_EQ(vrm_vrl_info(handle(), "no-desc"), nullptr);
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(VrmVrlInfo, GoesByTheDirectoryAndReportsTheDescription) {
    repo_.install(named("inner"));
    fs::rename(repo_.in("installed/inner"), repo_.in("installed/outer"));
    EXPECT_EQ(vrm_vrl_info(handle(), "inner"), nullptr);
    const own_vri info(vrm_vrl_info(handle(), "outer"));
    ASSERT_TRUE(info);
    EXPECT_STREQ(info->name, "inner");
}

TEST_F(VrmVrlInfo, SaysThatAFilenameIsTooLong) {
    const std::string installed = repo_.in("installed");
    // "/desc.txt" makes it 4097 characters.
    const std::string name(4097 - installed.size() - 1 - strlen("/desc.txt"), 'n');
    EXPECT_EQ(vrm_vrl_info(handle(), name.c_str()), nullptr);
    // The log cuts the line, so its beginning must do.
    const std::vector<std::string> lines = log_.at(LEVEL_DEBUG);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(lines[0].starts_with("Filename <" + installed + "/nnn")) << lines[0];
    log_.clear();
    EXPECT_EQ(vrm_vrl_info(handle(), name.c_str() + 1), nullptr);
    EXPECT_TRUE(log_.at(LEVEL_DEBUG).empty() ||
                log_.at(LEVEL_DEBUG)[0].find("inst.txt") != std::string::npos);
}

TEST_F(VrmVrlInfo, NeverLeavesTheInventory) {
    repo_.install(named("foo"));
    fs::create_directory(repo_.in("installed/sub"));
    fs::copy(repo_.in("installed/foo"), repo_.in("installed/sub/foo"));
    fs::copy(repo_.in("installed/foo"), repo_.in("outside"));
    fs::copy(repo_.in("installed/foo"), repo_.in("installed/.foo.old"));
    for (const char *file : {"desc.txt", "inst.txt"}) {
        fs::copy(repo_.in("installed/foo/") + file, repo_.in("installed/") + file);
        fs::copy(repo_.in("installed/foo/") + file, repo_.in(file));
    }
    for (const char *name : {"", ".", "..", "../outside", "sub/foo", "foo/", "foo/.", ".foo.old"}) {
        EXPECT_EQ(vrm_vrl_info(handle(), name), nullptr) << name;
    }
    EXPECT_EQ(vrm_vrl_info(handle(), nullptr), nullptr);
    EXPECT_TRUE(own_vri(vrm_vrl_info(handle(), "foo")));
}

TEST_F(VrmVrlInfo, TakesNoLinkForAnEntry) {
    repo_.install(named("foo"), {"/usr/bin/foo"});
    fs::create_directory_symlink("foo", repo_.in("installed/link"));
    write("fileindex/link", "/usr/bin/foo\n");
    EXPECT_EQ(vrm_vrl_info(handle(), "link"), nullptr);
    EXPECT_EQ(vrm_vrl_index(handle(), "link"), nullptr);
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(VrmListVri, GivesNothingForAnEmptyInventory) {
    vri *marker = nullptr;
    vri **out = &marker;
    EXPECT_EQ(vrm_list_vri(handle(), nullptr, 1, &out), 0);
    EXPECT_EQ(out, &marker);
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Found 0 packages"));
}

TEST_F(VrmListVri, GivesNothingWithoutTheDirectory) {
    fs::remove(repo_.in("installed"));
    vri *marker = nullptr;
    vri **out = &marker;
    EXPECT_EQ(vrm_list_vri(handle(), nullptr, 1, &out), 0);
    EXPECT_EQ(out, &marker);
    EXPECT_TRUE(log_.has(LEVEL_WARNING, "Failure opening <" + repo_.in("installed") +
                                            "> for reading: No such file or directory"));
}

TEST_F(VrmListVri, ListsAllWithoutAPatternAndWithAStar) {
    repo_.install(named("beta"));
    repo_.install(named("alpha"));
    repo_.install(named("gamma"));
    EXPECT_THAT(list(nullptr), ElementsAre("alpha", "beta", "gamma"));
    EXPECT_THAT(list("*"), ElementsAre("alpha", "beta", "gamma"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Allocating space for 300 entries"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Found 3 packages"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Sorting packages"));
}

TEST_F(VrmListVri, MatchesNameOrDescription) {
    repo_.install(named("libone", "Draws lines"));
    repo_.install(named("libtwo", "Draws circles"));
    repo_.install(named("tool", "Uses libone"));
    EXPECT_THAT(list("lib*"), ElementsAre("libone", "libtwo"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Local package tool does not match wildcard lib*"));
    EXPECT_THAT(list("libone"), ElementsAre("libone"));
    EXPECT_THAT(list("*libone"), ElementsAre("libone", "tool"));
    EXPECT_THAT(list("Draws circles"), ElementsAre("libtwo"));
    EXPECT_THAT(list("nothing"), ElementsAre());
}

TEST_F(VrmListVri, PassesOverAnEntryThatRefersToAFile) {
    repo_.install(named("good"));
    PackageSpec spec = named("evil");
    spec.more = "evrkCreator:< file:///etc/passwd\n";
    repo_.install(spec);
    repo_.install(named("other"), {}, "evrkInstallTime: 1\nevrkInstallType;binary: /etc/passwd\n");
    EXPECT_EQ(vrm_vrl_info(handle(), "evil"), nullptr);
    EXPECT_EQ(vrm_vrl_info(handle(), "other"), nullptr);
    EXPECT_THAT(log_.at(LEVEL_ERROR),
                ElementsAre("vrk_info_parse: refusing a reference to another file in attribute "
                            "evrkCreator",
                            "vrk_info_parse: refusing a reference to another file in attribute "
                            "evrkInstallType;binary"));
    EXPECT_THAT(list(nullptr), ElementsAre("good"));
    EXPECT_TRUE(log_.has(LEVEL_WARNING, "Failure parsing info for <evil>, skipping entry"));
    EXPECT_TRUE(log_.has(LEVEL_WARNING, "Failure parsing info for <other>, skipping entry"));
}

TEST_F(VrmListVri, LeavesTheOrderOfTheDirectoryUnlessAskedToSort) {
    for (const char *name : {"d", "b", "a", "c", "e"}) {
        repo_.install(named(name));
    }
    std::vector<std::string> expected;
    for (const own_dir dir(opendir(repo_.in("installed").c_str()));
         const dirent *entry = readdir(dir.get());) {
        if (entry->d_name[0] != '.') {
            expected.emplace_back(entry->d_name);
        }
    }
    vri **found = nullptr;
    const int count = vrm_list_vri(handle(), nullptr, 0, &found);
    const own_vri_list owner(found);
    std::vector<std::string> names;
    for (int i = 0; i < count; i++) {
        names.emplace_back(found[i]->name);
    }
    EXPECT_EQ(names, expected);
    EXPECT_FALSE(log_.has(LEVEL_DEBUG, "Sorting packages"));
    const own_array array(vrm_list_arr(handle(), 0));
    EXPECT_EQ(strings(array.get()), expected);
}

TEST_F(VrmListVri, DoesNotSortASingleRecord) {
    repo_.install(named("only"));
    EXPECT_THAT(list(nullptr), ElementsAre("only"));
    EXPECT_FALSE(log_.has(LEVEL_DEBUG, "Sorting packages"));
}

TEST_F(VrmListVri, PassesOverWhatIsNoEntry) {
    repo_.install(named("good"));
    repo_.install(named("half"));
    fs::remove(repo_.in("installed/half/inst.txt"));
    fs::copy(repo_.in("installed/good"), repo_.in("installed/.good.old"));
    fs::create_directory_symlink(repo_.in("installed/good"), repo_.in("installed/link"));
    write("installed/file", "text\n");
    EXPECT_THAT(list(nullptr), ElementsAre("good"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Omitting non-directory link"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Omitting non-directory file"));
    EXPECT_TRUE(log_.has(LEVEL_WARNING, "Failure parsing info for <half>, skipping entry"));
    EXPECT_EQ(log_.at(LEVEL_WARNING).size(), 1u);
}

TEST_F(VrmListVri, GrowsBeyondItsFirstRoom) {
    std::vector<std::string> expected;
    for (int i = 1000; i < 1301; i++) {
        expected.push_back("p" + std::to_string(i));
        repo_.install(named(expected.back()));
    }
    EXPECT_EQ(list(nullptr), expected);
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Reallocation space for 600 entries"));
    log_.clear();
    const own_array names(vrm_list_arr(handle(), 1));
    EXPECT_EQ(strings(names.get()), expected);
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Allocating space for 300 entries"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Reallocation space for 600 entries"));
}

TEST_F(VrmListVri, StillCountsWhenTheDirectoryCannotBeClosed) {
    repo_.install(named("only"));
    vri **found = nullptr;
    int count = 0;
    {
        const FailingClosedir failing;
        count = vrm_list_vri(handle(), nullptr, 0, &found);
    }
    const own_vri_list owner(found);
    EXPECT_EQ(count, 1);
    EXPECT_THAT(log_.at(LEVEL_WARNING),
                ElementsAre("Failure closing <" + repo_.in("installed") + ">: Input/output error"));
}

TEST_F(VrmListVri, GivesNothingWhenTheDirectoryBreaksOff) {
    repo_.install(named("one"));
    repo_.install(named("two"));
    vri *marker = nullptr;
    vri **out = &marker;
    int count = 1;
    {
        const FailingReaddir failing(3);  // with the dots, so at least one package is there
        count = vrm_list_vri(handle(), nullptr, 0, &out);
    }
    EXPECT_EQ(count, 0);
    EXPECT_EQ(out, &marker);
    EXPECT_THAT(log_.at(LEVEL_WARNING),
                ElementsAre("Failure reading <" + repo_.in("installed") + ">: Input/output error"));
}

TEST_F(VrmListArr, IsNullWhenTheDirectoryBreaksOff) {
    repo_.install(named("one"));
    repo_.install(named("two"));
    char **names = nullptr;
    {
        const FailingReaddir failing(3);
        names = vrm_list_arr(handle(), 0);
    }
    EXPECT_EQ(names, nullptr);
    EXPECT_THAT(log_.at(LEVEL_WARNING),
                ElementsAre("Failure reading <" + repo_.in("installed") + ">: Input/output error"));
}

TEST_F(VrmListArr, IsNullWhenMemoryFails) {
    repo_.install(named("one"));
    growing_fails = true;
    char **const names = vrm_list_arr(handle(), 0);
    growing_fails = false;
    EXPECT_EQ(names, nullptr);
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Failed to allocate space for 300 entries"));
}

TEST_F(VrmListArr, TellsStillWhenTheDirectoryCannotBeClosed) {
    repo_.install(named("only"));
    char **names = nullptr;
    {
        const FailingClosedir failing;
        names = vrm_list_arr(handle(), 0);
    }
    const own_array owner(names);
    EXPECT_THAT(strings(names), ElementsAre("only"));
    EXPECT_THAT(log_.at(LEVEL_WARNING),
                ElementsAre("Failure closing <" + repo_.in("installed") + ">: Input/output error"));
}

TEST_F(VrmListArr, IsNullWithoutPackagesOrDirectory) {
    EXPECT_EQ(vrm_list_arr(handle(), 1), nullptr);
    fs::remove(repo_.in("installed"));
    EXPECT_EQ(vrm_list_arr(handle(), 1), nullptr);
    EXPECT_TRUE(log_.has(LEVEL_WARNING, "Failure opening <" + repo_.in("installed") +
                                            "> for reading: No such file or directory"));
}

TEST_F(VrmListArr, SortsByBytesAndReportsTheNameOfTheDescription) {
    for (const char *name : {"b", "a", "Z", "a-b", "aa"}) {
        repo_.install(named(name));
    }
    fs::rename(repo_.in("installed/aa"), repo_.in("installed/zz"));
    const own_array names(vrm_list_arr(handle(), 1));
    EXPECT_THAT(strings(names.get()), ElementsAre("Z", "a", "a-b", "aa", "b"));
}

TEST_F(VrmListArr, TellsOfDamagedEntriesAtDebug) {
    repo_.install(named("good"));
    fs::create_directory(repo_.in("installed/empty"));
    const own_array names(vrm_list_arr(handle(), 0));
    EXPECT_THAT(strings(names.get()), ElementsAre("good"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Failure parsing info for empty, skipping entry"));
    EXPECT_TRUE(log_.at(LEVEL_WARNING).empty());
}

TEST_F(VrmVrlFileList, GivesTheLinesThatAreNotBlank) {
    repo_.install(named("foo"));
    write("fileindex/foo", "/usr/bin/foo\n\n/etc/foo\n\n/last");
    const own_array files(vrm_vrl_index(handle(), "foo"));
    EXPECT_THAT(strings(files.get()), ElementsAre("/usr/bin/foo", "/etc/foo", "/last"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "vrm_vrl_file_list: Found /etc/foo"));
}

TEST_F(VrmVrlFileList, IsNullForAnAbsentOrAnEmptyIndex) {
    repo_.install(named("foo"));
    EXPECT_EQ(vrm_vrl_index(handle(), "foo"), nullptr);
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "vrm_vrl_file_list: foo contains no files"));
    write("fileindex/foo", "\n\n");
    EXPECT_EQ(vrm_vrl_index(handle(), "foo"), nullptr);
}

TEST_F(VrmVrlFileList, TellsAPackageWithoutFilesFromAnIndexThatCannotBeRead) {
    repo_.install(named("foo"));
    errno = EINVAL;
    EXPECT_EQ(vrm_vrl_index(handle(), "foo"), nullptr);
    EXPECT_EQ(errno, 0);
    fs::create_directory(repo_.in("fileindex/foo"));
    EXPECT_EQ(vrm_vrl_index(handle(), "foo"), nullptr);
    EXPECT_EQ(errno, EISDIR);
}

TEST_F(VrmVrlFileList, IsNullForAPackageThatIsNotInstalled) {
    write("fileindex/foo", "/usr/bin/foo\n");
    EXPECT_EQ(vrm_vrl_index(handle(), "foo"), nullptr);
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(VrmVrlFileList, SplitsALineAt4094Characters) {
    repo_.install(named("foo"));
    const std::string whole(4094, 'w');
    const std::string longer = std::string(4094, 'l') + "rest";
    write("fileindex/foo", whole + "\n" + longer + "\n/end\n");
    const own_array files(vrm_vrl_index(handle(), "foo"));
    EXPECT_THAT(strings(files.get()), ElementsAre(whole, std::string(4094, 'l'), "rest", "/end"));
}

TEST_F(VrmVrlFileList, GrowsBeyondItsFirstRoom) {
    std::vector<std::string> paths;
    for (int i = 0; i < 45; i++) {
        paths.push_back("/data/" + std::to_string(i));
    }
    repo_.install(named("foo"), paths);
    const own_array files(vrm_vrl_index(handle(), "foo"));
    EXPECT_EQ(strings(files.get()), paths);
}

TEST_F(VrmVrlFileList, IsNullForAnIndexThatBreaksOff) {
    repo_.install(named("foo"));
    // A regular file that opens, and whose first byte can't be read.
    fs::create_symlink("/proc/self/mem", repo_.in("fileindex/foo"));
    EXPECT_EQ(vrm_vrl_index(handle(), "foo"), nullptr);
    EXPECT_THAT(log_.at(LEVEL_ERROR),
                ElementsAre("vrm_vrl_file_list: Failed to read " + repo_.in("fileindex/foo") +
                            ": Input/output error"));
}

TEST_F(VrmVrlFileList, AnEntryDoesNotWaitForAPipe) {
    for (const std::string file : {"desc.txt", "inst.txt"}) {
        repo_.install(named("foo"));
        const std::string path = repo_.in("installed/foo/" + file);
        ASSERT_TRUE(fs::remove(path));
        ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
        EXPECT_FALSE(own_vri(vrm_vrl_info(handle(), "foo"))) << file;
        fs::remove_all(repo_.in("installed/foo"));
    }
}

TEST_F(VrmVrlFileList, DoesNotWaitForAPipe) {
    repo_.install(named("foo"));
    ASSERT_EQ(mkfifo(repo_.in("fileindex/foo").c_str(), 0600), 0);
    EXPECT_EQ(vrm_vrl_index(handle(), "foo"), nullptr);
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "vrm_vrl_file_list: foo contains no files"));
}

TEST_F(VrmVrlFileList, NeverLeavesTheIndex) {
    write("secret", "/secret\n");
    char name[] = "../secret";
    vri info = {};
    info.name = name;
    EXPECT_EQ(vrm_vrl_file_list(handle(), &info), nullptr);
}

TEST_F(VrmFileOwner, FindsTheIndexThatListsThePathExactly) {
    const std::string file = repo_.dir().write("live/bin/foo", "x");
    repo_.install(named("other"), {file + ".d", "/x" + file, file + "/"});
    repo_.install(named("foo"), {"/first", file, "/last"});
    EXPECT_EQ(owner(file), "foo");
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Found <" + file + "> in <foo>"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Checking in <foo>"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Omitting non-file ."));
}

TEST_F(VrmFileOwner, FindsThePathWhereverItStands) {
    const std::string file = repo_.dir().write("live/file", "x");
    for (const std::string &text :
         {file, file + "\n", file + "\n/b\n", "/a\n" + file, "/a\n\n" + file + "\n/b\n"}) {
        write("fileindex/foo", text);
        EXPECT_EQ(owner(file), "foo") << text;
    }
    for (const std::string &text : {std::string(), std::string("\n\n"), file + " \n", file + "x",
                                    "x" + file, "/a" + file + "\n"}) {
        write("fileindex/foo", text);
        EXPECT_EQ(owner(file), "(none)") << text;
    }
}

TEST_F(VrmFileOwner, ComparesALongLineInPieces) {
    const std::string file = repo_.dir().write("live/file", "x");
    write("fileindex/foo", std::string(4096, 'a') + file + "\n");
    EXPECT_EQ(owner(file), "foo");
    write("fileindex/foo", std::string(8192, 'a') + file);
    EXPECT_EQ(owner(file), "foo");
    write("fileindex/foo", std::string(4095, 'a') + file + "\n");
    EXPECT_EQ(owner(file), "(none)");
    // A piece that is followed by another one is longer than any path.
    write("fileindex/foo", file + std::string(4096, 'a') + "\n");
    EXPECT_EQ(owner(file), "(none)");
}

TEST_F(VrmFileOwner, ReadsIndexesThatAreLargerThanItsBlocks) {
    const std::string file = repo_.dir().write("live/file", "x");
    std::string index;
    for (int i = 0; i < 20000; i++) {
        index += "/usr/share/some/long/path/of/a/package/file-" + std::to_string(i) + "\n";
    }
    write("fileindex/big", index + file + "\n");
    EXPECT_EQ(owner(file), "big");
    write("fileindex/big", index);
    EXPECT_EQ(owner(file), "(none)");
}

TEST_F(VrmFileOwner, TakesTheFirstIndexOfTheDirectory) {
    const std::string file = repo_.dir().write("live/file", "x");
    for (const char *name : {"c", "a", "b"}) {
        write(std::string("fileindex/") + name, file + "\n");
    }
    std::string first;
    for (const own_dir dir(opendir(repo_.in("fileindex").c_str())); first.empty();) {
        const dirent *entry = readdir(dir.get());
        ASSERT_TRUE(entry);
        if (entry->d_name[0] != '.') {
            first = entry->d_name;
        }
    }
    EXPECT_EQ(owner(file), first);
}

TEST_F(VrmFileOwner, LeavesBackupsAndWhatIsNoFileOut) {
    const std::string file = repo_.dir().write("live/file", "x");
    write("fileindex/.foo.old", file + "\n");
    const std::string elsewhere = write("elsewhere", file + "\n");
    fs::create_symlink(elsewhere, repo_.in("fileindex/link"));
    EXPECT_EQ(owner(file), "(none)");
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Omitting backup file .foo.old"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Omitting non-file link"));
}

TEST_F(VrmFileOwner, ResolvesASymbolicLink) {
    const std::string target = repo_.dir().write("live/target", "x");
    const std::string link = repo_.dir() / "live/link";
    fs::create_symlink("target", link);
    repo_.install(named("links"), {link});
    repo_.install(named("targets"), {fs::canonical(target).string()});
    EXPECT_EQ(owner(link), "targets");
    EXPECT_TRUE(
        log_.has(LEVEL_INFO, link + " is a symbolic link to " + fs::canonical(target).string()));
}

TEST_F(VrmFileOwner, FailsOnADanglingLink) {
    const std::string link = repo_.dir() / "dangling";
    fs::create_symlink("nowhere", link);
    repo_.install(named("links"), {link});
    EXPECT_EQ(owner(link), "(none)");
    EXPECT_THAT(log_.at(LEVEL_ERROR),
                ElementsAre(link + " is a symbolic link, but cannot be resolved"));
}

TEST_F(VrmFileOwner, FailsOnAPathThatDoesNotExist) {
    const std::string path = repo_.dir() / "none";
    repo_.install(named("foo"), {path});
    EXPECT_EQ(owner(path), "(none)");
    EXPECT_THAT(log_.at(LEVEL_ERROR),
                ElementsAre("Failure opening <" + path + ">: No such file or directory"));
}

TEST_F(VrmFileOwner, FailsWithoutTheIndexes) {
    const std::string file = repo_.dir().write("live/file", "x");
    fs::remove(repo_.in("fileindex"));
    EXPECT_EQ(owner(file), "(none)");
    EXPECT_THAT(log_.at(LEVEL_ERROR), ElementsAre("Failure opening <" + repo_.in("fileindex") +
                                                  "> for reading: No such file or directory"));
}

TEST_F(VrmFileOwner, TellsOfAnIndexThatBreaksOff) {
    const std::string file = repo_.dir().write("live/file", "x");
    repo_.install(named("foo"), {file});
    {
        const FailingRead failing;
        EXPECT_EQ(owner(file), "(none)");
    }
    EXPECT_THAT(log_.at(LEVEL_ERROR), ElementsAre("Failure reading <foo>: Input/output error"));
}

TEST_F(VrmFileOwner, TellsOfIndexesThatBreakOff) {
    const std::string file = repo_.dir().write("live/file", "x");
    {
        const FailingReaddir failing(1);
        EXPECT_EQ(owner(file), "(none)");
    }
    EXPECT_THAT(log_.at(LEVEL_ERROR),
                ElementsAre("Failure reading <" + repo_.in("fileindex") + ">: Input/output error"));
}

TEST_F(VrmFileOwner, DoesNotNormalisePaths) {
    const std::string file = repo_.dir().write("live/file", "x");
    repo_.install(named("foo"), {file});
    EXPECT_EQ(owner(repo_.dir() / "live/../live/file"), "(none)");
    EXPECT_EQ(owner(repo_.dir() / "live//file"), "(none)");
}

TEST_F(VrmFileOwner, NeverTakesTwoLinesForAPathWithALineEnd) {
    const std::string file = repo_.dir().write("live/two\nlines", "x");
    write("fileindex/foo", file + "\n");
    EXPECT_EQ(owner(file), "(none)");
}

TEST_F(VrmFileOwner, GoesOnBehindAnIndexThatCannotBeOpened) {
    const std::string file = repo_.dir().write("live/file", "x");
    write("fileindex/one", file + "\n");
    write("fileindex/two", file + "\n");
    const std::string first = owner(file);
    const std::string second = first == "one" ? "two" : "one";
    fs::permissions(repo_.in("fileindex/" + first), fs::perms::none);
    for (const std::string &dir : {repo_.dir().path(), repo_.root(), repo_.in("fileindex")}) {
        fs::permissions(dir, fs::perms{0755});
    }
    std::vector<std::string> errors;
    const EventReceiver receiver([&](const event &happened) {
        if (event_level(happened.kind) == LEVEL_ERROR) {
            errors.push_back(event_line(happened));
        }
    });
    // The superuser could open it all the same. The log's file is out of reach meanwhile.
    const bool superuser = geteuid() == 0;
    ASSERT_TRUE(!superuser || seteuid(65534) == 0);
    const std::string found = owner(file);
    ASSERT_TRUE(!superuser || seteuid(0) == 0);
    EXPECT_EQ(found, second);
    EXPECT_THAT(errors,
                ElementsAre("Failure opening <" + first + "> for reading: Permission denied"));
}
