#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "backends/backend_kit.h"
#include "kit/capture.h"
#include "kit/log_capture.h"
#include "kit/records.h"
#include "kit/temp_dir.h"

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

class VrcDirs : public testing::Test {
 protected:
    VrcDirs() {
        fs::create_directory(dir_ / "packages");
    }
    std::string packages() const {
        return dir_ / "packages";
    }
    std::string file(const std::string &name) const {
        fs::create_directories(fs::path(packages() + "/" + name).parent_path());
        return packages() + "/" + name;
    }
    std::string cache() const {
        return dir_ / "cache";
    }
    std::string index() const {
        return dir_ / "cache/vrc-dirs.index";
    }
    // Exchanges the content and keeps size and time.
    static void exchange(const std::string &path, const std::string &other) {
        const auto time = fs::last_write_time(path);
        ASSERT_EQ(fs::file_size(path), fs::file_size(other));
        fs::copy_file(other, path, fs::copy_options::overwrite_existing);
        fs::last_write_time(path, time);
    }
    bool logged(uint32_t level, const std::string &text) const {
        return log_.has(level, text);
    }

    TempDir dir_;
    LogCapture log_;
    LoadedBackend backend_;
};

std::string all_of(const vri *info) {
    const own_ekva record(vrk_info_ekva(info, 1));
    const own_string text(ekva2str(record.get(), '\n'));
    return text.get();
}

std::vector<std::string> all_of(const own_vri_list &list) {
    std::vector<std::string> result;
    for (vri **info = list.get(); info && *info; info++) {
        result.push_back(all_of(*info));
    }
    return result;
}

}  // namespace

TEST(VrcDirsLibrary, ExportsTheInterfaceAlone) {
    EXPECT_EQ(
        must_run("nm -D --defined-only " + shell_word(VRC_DIRS_SO) + " | sed 's/.* //'"),
        "vrc_abi\nvrc_connect\nvrc_count\nvrc_findpkg\nvrc_readpkg\nvrc_refresh\nvrc_release\n"
        "vrc_set_report\n");
}

TEST(VrcDirsLibrary, NeedsNothingOfTheProgram) {
    void *library = dlopen(VRC_DIRS_SO, RTLD_NOW | RTLD_LOCAL);
    ASSERT_TRUE(library) << dlerror();
    dlclose(library);
    // What a sanitizer asks for is in the program that loads it.
    EXPECT_THAT(must_run("ldd -r " + shell_word(VRC_DIRS_SO) +
                         " 2>&1 | sed '/undefined symbol: __\\(asan\\|ubsan\\)_/d'"),
                Not(HasSubstr("undefined symbol")));
}

TEST_F(VrcDirs, CountsWhatItKnows) {
    write_head(file("a.vrk"), "a", "1", "");
    write_head(file("b.vrk"), "b", "1", "");
    const Connection connection(packages(), cache());
    ASSERT_TRUE(pvrm_vrc_count);
    EXPECT_EQ(pvrm_vrc_count(connection.get()), 0u);
    EXPECT_EQ(connection.refresh(), 0);
    EXPECT_EQ(pvrm_vrc_count(connection.get()), 2u);
    EXPECT_EQ(pvrm_vrc_count(nullptr), 0u);
}

TEST_F(VrcDirs, KnowsNothingBeforeTheFirstRefresh) {
    write_head(file("a.vrk"), "a", "1", "");
    const Connection connection(packages(), cache());
    EXPECT_THAT(connection.names(), IsEmpty());
    EXPECT_EQ(connection.refresh(), 0);
    EXPECT_THAT(connection.names(), ElementsAre("a 1"));
}

TEST_F(VrcDirs, RecordsTellOfTheFile) {
    PackageSpec spec;
    spec.name = "tool";
    spec.variant = "small";
    spec.version = "2.1";
    spec.arch = "mips";
    spec.creator = "Someone";
    spec.description = "Does things";
    spec.deps = {"libone", "libtwo"};
    spec.more = "evrkDataSize: 4096\nevrkFileSize: 1\nevrkAbsoluteURI: /etc/passwd\n";
    spec.data = {{"usr/bin/tool", "content"}};
    make_package(spec, file("sub/deeper/tool.vrk"));
    const Connection connection(packages(), cache());
    ASSERT_EQ(connection.refresh(), 0);
    const own_vri_list list = connection.all();
    ASSERT_TRUE(list);
    const vri *info = list.get()[0];
    ASSERT_TRUE(info);
    expect_described(info,
                     {"tool", "small", "2.1", "Someone", 8, "Does things", {"libone", "libtwo"}});
    EXPECT_EQ(info->datasize, 4096U);
    EXPECT_EQ(info->filesize, fs::file_size(file("sub/deeper/tool.vrk")));
    EXPECT_EQ(info->filehash, sha1_of(file("sub/deeper/tool.vrk")));
    EXPECT_EQ(info->absolute_uri, file("sub/deeper/tool.vrk"));
    EXPECT_STREQ(info->relative_uri, "sub/deeper/tool.vrk");
    EXPECT_EQ(info->rsa_sig_subj, Signer::standard().subject);
    EXPECT_GT(info->rsa_sig_len, 0);
    EXPECT_EQ(info->sig_status, 0);
    EXPECT_EQ(info->flag, 1);
    EXPECT_EQ(info->install_time, 0);
    EXPECT_EQ(info->install_type, '\0');
}

TEST_F(VrcDirs, SearchesEveryConfiguredDirectory) {
    const TempDir other;
    write_head(file("a.vrk"), "a", "1", "");
    write_head(other / "b.vrk", "b", "1", "");
    const Connection connection("  " + packages() + "/./ ,, " + other.path() + "//," + packages(),
                                cache());
    ASSERT_EQ(connection.refresh(), 0);
    EXPECT_THAT(connection.names(), ElementsAre("a 1", "b 1"));
}

TEST_F(VrcDirs, AFileBelowTwoDirectoriesIsOneRecord) {
    write_head(file("sub/a.vrk"), "a", "1", "");
    const Connection connection(packages() + "," + packages() + "/sub", cache());
    ASSERT_EQ(connection.refresh(), 0);
    const own_vri_list list = connection.all();
    ASSERT_TRUE(list && list.get()[0]);
    EXPECT_STREQ(list.get()[0]->relative_uri, "sub/a.vrk");
    EXPECT_EQ(list.get()[1], nullptr);
}

TEST_F(VrcDirs, TwoFilesOfOnePackageAreTwoRecordsByPath) {
    write_head(file("y/a.vrk"), "a", "1", "");
    write_head(file("x/other-name.vrk"), "a", "1", "");
    write_head(file("z.vrk"), "B", "1", "");
    const Connection connection(packages(), cache());
    ASSERT_EQ(connection.refresh(), 0);
    const own_vri_list list = connection.all();
    ASSERT_TRUE(list);
    EXPECT_STREQ(list.get()[0]->relative_uri, "z.vrk");
    EXPECT_STREQ(list.get()[1]->relative_uri, "x/other-name.vrk");
    EXPECT_STREQ(list.get()[2]->relative_uri, "y/a.vrk");
    EXPECT_EQ(list.get()[3], nullptr);
}

TEST_F(VrcDirs, LeavesOutOtherNamesAndWorkFiles) {
    for (const char *name : {"a.vrk.part", "a.VRK", "vrk", ".a.vrk", ".vrk", ".git/a.vrk"}) {
        write_head(file(name), "a", "1", "");
    }
    const Connection connection(packages(), cache());
    EXPECT_EQ(connection.refresh(), 0);
    EXPECT_THAT(connection.names(), IsEmpty());
    EXPECT_THAT(log_.at(LEVEL_WARNING), IsEmpty());
}

TEST_F(VrcDirs, FollowsLinksToFilesAndNotToDirectories) {
    const TempDir other;
    write_head(other / "below/a.vrk.hidden", "unused", "1", "");
    write_head(other / "below/b.vrk", "b", "1", "");
    write_head(other / "a", "a", "1", "");
    fs::create_symlink(other / "a", file("a.vrk"));
    fs::create_symlink(other / "below", file("directory"));
    fs::create_symlink(other / "below", file("directory.vrk"));
    fs::create_symlink("nowhere", file("dangling.vrk"));
    fs::create_symlink(".", file("loop"));
    const Connection connection(packages(), cache());
    ASSERT_EQ(connection.refresh(), 0);
    const own_vri_list list = connection.all();
    ASSERT_TRUE(list && list.get()[0]);
    EXPECT_EQ(list.get()[0]->absolute_uri, file("a.vrk"));
    EXPECT_EQ(list.get()[1], nullptr);
    EXPECT_TRUE(logged(LEVEL_WARNING,
                       "vrc-dirs: skipping " + file("directory.vrk") + ": not a regular file"));
    EXPECT_TRUE(logged(LEVEL_WARNING, "vrc-dirs: skipping " + file("dangling.vrk") +
                                          ": No such file or directory"));
}

TEST_F(VrcDirs, AConfiguredDirectoryMayBeALink) {
    write_head(file("a.vrk"), "a", "1", "");
    fs::create_symlink(packages(), dir_ / "link");
    const Connection connection(dir_ / "link", cache());
    ASSERT_EQ(connection.refresh(), 0);
    const own_vri_list list = connection.all();
    ASSERT_TRUE(list && list.get()[0]);
    EXPECT_EQ(list.get()[0]->absolute_uri, dir_ / "link/a.vrk");
}

TEST_F(VrcDirs, SkipsDamagedAndForeignFilesWithALine) {
    const std::string good = "evrmVersion: 2.0\nevrkName: a\nevrkVersion: 1\n";
    dir_.write("packages/empty.vrk", "");
    dir_.write("packages/short.vrk", "EVRM2");
    dir_.write("packages/text.vrk", "This is a text of some length, not a package\n");
    dir_.write("packages/no-size.vrk", "EVRM20");
    dir_.write("packages/size-of-letters.vrk", "EVRM20abcde");
    dir_.write("packages/size-too-large.vrk", "EVRM20  999evrkName: a\n");
    dir_.write("packages/size-huge.vrk", "EVRM2099999evrkName: a\n");
    dir_.write("packages/size-negative.vrk", "EVRM20  -12evrkName: a\n");
    dir_.write("packages/no-description.vrk", "EVRM20    0");
    dir_.write("packages/zeros.vrk", std::string(5000, '\0'));
    write_head(file("other-magic.vrk"), good + "evrkArchitecture: any\nevrkDescription: d\n",
               "EVRM30");
    write_head(file("other-format.vrk"),
               "evrmVersion: 3.0\nevrkName: a\nevrkVersion: 1\nevrkArchitecture: "
               "any\nevrkDescription: d\n");
    write_head(file("no-arch.vrk"), good + "evrkDescription: d\n");
    write_head(file("bad-arch.vrk"), good + "evrkArchitecture: vax\nevrkDescription: d\n");
    write_head(file("no-text.vrk"), good + "evrkArchitecture: any\n");
    write_head(file("no-name.vrk"),
               "evrmVersion: 2.0\nevrkVersion: 1\nevrkArchitecture: any\nevrkDescription: d\n");
    write_head(file("behind-empty-line.vrk"),
               "\n" + good + "evrkArchitecture: any\nevrkDescription: d\n");
    std::vector<std::string> skipped;
    for (const auto &entry : fs::directory_iterator(packages())) {
        skipped.push_back(entry.path());
    }
    ASSERT_EQ(skipped.size(), 17U);
    ASSERT_EQ(mkfifo(file("fifo.vrk").c_str(), 0644), 0);
    fs::create_directory(file("directory.vrk"));
    write_head(file("directory.vrk/good.vrk"), "good", "1", "");

    const Connection connection(packages(), cache());
    // What the reader of texts says on stderr is no matter here.
    stderr_of([&] { EXPECT_EQ(connection.refresh(), 0); });
    EXPECT_THAT(connection.names(), ElementsAre("good 1"));
    for (const std::string &path : skipped) {
        EXPECT_TRUE(logged(LEVEL_WARNING,
                           "vrc-dirs: skipping " + path + ": not a package file, or a damaged one"))
            << path;
    }
    EXPECT_TRUE(
        logged(LEVEL_WARNING, "vrc-dirs: skipping " + file("fifo.vrk") + ": not a regular file"));

    // A later refresh tells them again, without reading them.
    log_.clear();
    EXPECT_EQ(connection.refresh(), 0);
    EXPECT_EQ(log_.at(LEVEL_WARNING).size(), skipped.size() + 1);
    EXPECT_THAT(log_.at(LEVEL_ERROR), IsEmpty());
    EXPECT_THAT(connection.names(), ElementsAre("good 1"));
}

TEST_F(VrcDirs, AFileThatCannotBeReadIsNotTakenForDamaged) {
    dir_.write("packages/damaged.vrk", "no package");
    // A regular file that opens, and whose first byte can't be read.
    fs::create_symlink("/proc/self/mem", file("unreadable.vrk"));
    const Connection connection(packages(), cache());
    for (int refresh = 0; refresh < 2; refresh++) {
        log_.clear();
        EXPECT_EQ(connection.refresh(), 0);
        EXPECT_THAT(
            log_.at(LEVEL_WARNING),
            ElementsAre("vrc-dirs: skipping " + file("damaged.vrk") +
                            ": not a package file, or a damaged one",
                        "vrc-dirs: skipping " + file("unreadable.vrk") + ": Input/output error"));
    }
}

TEST_F(VrcDirs, EachRefreshReportsWhatItLeavesOut) {
    write_head(file("good.vrk"), "good", "1", "");
    dir_.write("packages/damaged.vrk", "no package");
    ASSERT_EQ(mkfifo(file("fifo.vrk").c_str(), 0644), 0);
    fs::create_symlink("nowhere", file("dangling.vrk"));
    fs::create_symlink("/proc/self/mem", file("unreadable.vrk"));
    Connection connection(dir_ / "none" + "," + packages(), cache());
    EXPECT_THAT(connection.reports(), IsEmpty());
    for (int refresh = 0; refresh < 3; refresh++) {
        EXPECT_EQ(connection.refresh(), 0);
        EXPECT_THAT(
            connection.reports(),
            testing::UnorderedElementsAre(
                "directory: " + dir_ / "none" + ": No such file or directory",
                "skipped: " + file("dangling.vrk") + ": No such file or directory",
                "skipped: " + file("fifo.vrk") + ": not a regular file",
                "damaged: " + file("damaged.vrk") + ": not a package file, or a damaged one",
                "skipped: " + file("unreadable.vrk") + ": Input/output error"));
    }
    // Another process starts with the index, and reports them all the same.
    Connection later(packages(), cache());
    EXPECT_EQ(later.refresh(), 0);
    EXPECT_THAT(later.reports(), Contains("damaged: " + file("damaged.vrk") +
                                          ": not a package file, or a damaged one"));
}

TEST_F(VrcDirs, ReportsWhyARefreshFails) {
    Connection unset("", cache());
    EXPECT_NE(unset.refresh(), 0);
    EXPECT_THAT(unset.reports(), ElementsAre("error: vrc_dirs names no directory"));
    Connection missing(dir_ / "none", cache());
    EXPECT_NE(missing.refresh(), 0);
    EXPECT_THAT(missing.reports(),
                ElementsAre("directory: " + dir_ / "none" + ": No such file or directory"));
}

TEST_F(VrcDirs, ReportsWhatConnectFoundOnceThereIsAReceiver) {
    fs::create_directory(dir_ / "cache");
    dir_.write("cache/vrc-dirs.index", "garbage");
    Connection connection("relative," + packages(), cache());
    const std::string damaged = "warning: " + index() + ": not using the index " + index() +
                                ": it is damaged or of another version";
    EXPECT_THAT(connection.reports(),
                ElementsAre("warning: vrc_dirs: <relative> is not an absolute path, leaving it out",
                            damaged));
    EXPECT_TRUE(logged(LEVEL_WARNING, "vrc-dirs: " + damaged.substr(damaged.find("not using"))));
    // To another receiver it is no news.
    connection.watch();
    EXPECT_THAT(connection.reports(), IsEmpty());
}

TEST_F(VrcDirs, LogsOnceWhatNobodyReceives) {
    dir_.write("packages/damaged.vrk", "no package");
    const Connection connection("relative," + packages(), cache());
    void *const unwatched = pvrm_vrc_connect(connection.configuration(), llog);
    log_.clear();
    EXPECT_EQ(pvrm_vrc_refresh(unwatched), 0);
    EXPECT_THAT(
        log_.at(LEVEL_WARNING),
        ElementsAre("vrc-dirs: vrc_dirs: <relative> is not an absolute path, leaving it out",
                    "vrc-dirs: skipping " + file("damaged.vrk") +
                        ": not a package file, or a damaged one"));
    pvrm_vrc_release(unwatched);
}

TEST_F(VrcDirs, OnlyDamagedFilesAreNoFailure) {
    dir_.write("packages/text.vrk", "no package");
    const Connection connection(packages(), cache());
    EXPECT_EQ(connection.refresh(), 0);
    EXPECT_THAT(connection.names(), IsEmpty());
}

TEST_F(VrcDirs, ARefreshReadsOnlyWhatChanged) {
    write_head(file("a.vrk"), "aaa", "1", "");
    write_head(file("b.vrk"), "bbb", "1", "");
    write_head(dir_ / "other", "ccc", "1", "");
    dir_.write("packages/bad.vrk", std::string(fs::file_size(dir_ / "other"), 'x'));
    {
        const Connection connection(packages(), cache());
        ASSERT_EQ(connection.refresh(), 0);
    }
    exchange(file("a.vrk"), dir_ / "other");
    exchange(file("bad.vrk"), dir_ / "other");
    const auto written = fs::last_write_time(index());
    const Connection connection(packages(), cache());
    ASSERT_EQ(connection.refresh(), 0);
    EXPECT_THAT(connection.names(), ElementsAre("aaa 1", "bbb 1"));
    EXPECT_EQ(fs::last_write_time(index()), written);  // nor was there anything to write
    EXPECT_TRUE(logged(LEVEL_DEBUG, "vrc-dirs: 3 package files, 0 of them read"));

    // A new time, even an older one, is a change; so is a new size.
    fs::last_write_time(file("a.vrk"),
                        fs::last_write_time(file("a.vrk")) - std::chrono::nanoseconds(1));
    write_head(file("b.vrk"), "bbb", "1.0.1", "");
    ASSERT_EQ(connection.refresh(), 0);
    EXPECT_THAT(connection.names(), ElementsAre("bbb 1.0.1", "ccc 1"));
    EXPECT_TRUE(logged(LEVEL_DEBUG, "vrc-dirs: 3 package files, 2 of them read"));
}

TEST_F(VrcDirs, ADeletedFileIsGoneAtTheNextRefresh) {
    write_head(file("a.vrk"), "a", "1", "");
    write_head(file("b.vrk"), "b", "1", "");
    const Connection connection(packages(), cache());
    ASSERT_EQ(connection.refresh(), 0);
    fs::remove(file("a.vrk"));
    ASSERT_EQ(connection.refresh(), 0);
    EXPECT_THAT(connection.names(), ElementsAre("b 1"));
    const Connection later(packages(), cache());
    EXPECT_THAT(later.names(), ElementsAre("b 1"));
}

TEST_F(VrcDirs, AFileThatMovedIsFoundAtItsNewPath) {
    write_head(file("a.vrk"), "a", "1", "");
    const Connection connection(packages(), cache());
    ASSERT_EQ(connection.refresh(), 0);
    fs::rename(file("a.vrk"), file("sub/a.vrk"));
    ASSERT_EQ(connection.refresh(), 0);
    const own_vri_list list = connection.all();
    ASSERT_TRUE(list);
    EXPECT_STREQ(list.get()[0]->relative_uri, "sub/a.vrk");
    EXPECT_EQ(list.get()[1], nullptr);
}

TEST_F(VrcDirs, AConnectionStartsWithTheLastRefresh) {
    write_head(file("a.vrk"), "a", "1", "");
    {
        const Connection connection(packages(), cache());
        ASSERT_EQ(connection.refresh(), 0);
    }
    write_head(file("b.vrk"), "b", "1", "");
    const Connection connection(packages(), cache());
    EXPECT_THAT(connection.names(), ElementsAre("a 1"));
}

TEST_F(VrcDirs, AnIndexOfOtherDirectoriesOffersNothingButSavesReading) {
    const TempDir other;
    write_head(file("a.vrk"), "a", "1", "");
    {
        const Connection connection(packages(), cache());
        ASSERT_EQ(connection.refresh(), 0);
    }
    const Connection connection(other.path() + "," + packages(), cache());
    EXPECT_THAT(connection.names(), IsEmpty());
    EXPECT_TRUE(
        logged(LEVEL_INFO, "vrc-dirs: the index is of other directories; a refresh is needed"));
    ASSERT_EQ(connection.refresh(), 0);
    EXPECT_THAT(connection.names(), ElementsAre("a 1"));
    EXPECT_TRUE(logged(LEVEL_DEBUG, "vrc-dirs: 1 package files, 0 of them read"));
    const Connection later(packages(), cache());
    EXPECT_THAT(later.names(), IsEmpty());
}

TEST_F(VrcDirs, TheIndexIsReadableForAllAndLeavesNoOtherFile) {
    write_head(file("a.vrk"), "a", "1", "");
    const mode_t before = umask(0077);
    const Connection connection(packages(), cache());
    ASSERT_EQ(connection.refresh(), 0);
    umask(before);
    EXPECT_EQ(fs::status(index()).permissions(), fs::perms{0644});
    EXPECT_EQ(fs::status(cache()).permissions(), fs::perms{0755});
    const fs::directory_iterator entries(cache());
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);
}

TEST_F(VrcDirs, MakesWhatIsMissingAboveTheIndexForAllToRead) {
    write_head(file("a.vrk"), "a", "1", "");
    const mode_t before = umask(0077);
    const Connection connection(packages(), dir_ / "var/cache/vrm");
    EXPECT_EQ(connection.refresh(), 0);
    umask(before);
    EXPECT_TRUE(fs::exists(dir_ / "var/cache/vrm/vrc-dirs.index"));
    for (const char *made : {"var", "var/cache", "var/cache/vrm"}) {
        EXPECT_EQ(fs::status(dir_ / made).permissions(), fs::perms{0755}) << made;
    }
}

TEST_F(VrcDirs, LeavesTheModeOfADirectoryThatWasThere) {
    write_head(file("a.vrk"), "a", "1", "");
    fs::create_directory(cache());
    fs::permissions(cache(), fs::perms{0700});
    const Connection connection(packages(), cache());
    ASSERT_EQ(connection.refresh(), 0);
    EXPECT_TRUE(exists(index()));
    EXPECT_EQ(fs::status(cache()).permissions(), fs::perms{0700});
}

TEST_F(VrcDirs, AnIndexThatWasDeletedIsWrittenAgain) {
    write_head(file("a.vrk"), "a", "1", "");
    const Connection connection(packages(), cache());
    ASSERT_EQ(connection.refresh(), 0);
    fs::remove(index());
    ASSERT_EQ(connection.refresh(), 0);
    EXPECT_TRUE(logged(LEVEL_DEBUG, "vrc-dirs: 1 package files, 0 of them read"));
    EXPECT_THAT(connection.names(), ElementsAre("a 1"));
    const Connection later(packages(), cache());
    EXPECT_THAT(later.names(), ElementsAre("a 1"));
}

TEST_F(VrcDirs, WorksFromMemoryWhereTheIndexCannotBeWritten) {
    write_head(file("a.vrk"), "aaa", "1", "");
    const std::string no_directory = dir_.write("file", "") + "/cache";
    const Connection connection(packages(), no_directory);
    ASSERT_EQ(connection.refresh(), 0);
    // For root, who could change that, it is a warning.
    EXPECT_TRUE(logged(geteuid() == 0 ? LEVEL_WARNING : LEVEL_INFO,
                       "vrc-dirs: cannot keep the index in " + no_directory +
                           ", working from memory: Not a directory"));
    EXPECT_THAT(connection.names(), ElementsAre("aaa 1"));
    // What was read is remembered here too.
    write_head(dir_ / "other", "bbb", "1", "");
    exchange(file("a.vrk"), dir_ / "other");
    write_head(file("c.vrk"), "ccc", "1", "");
    ASSERT_EQ(connection.refresh(), 0);
    EXPECT_THAT(connection.names(), ElementsAre("aaa 1", "ccc 1"));
    EXPECT_TRUE(logged(LEVEL_DEBUG, "vrc-dirs: 2 package files, 1 of them read"));
    ASSERT_EQ(connection.refresh(), 0);
    EXPECT_TRUE(logged(LEVEL_DEBUG, "vrc-dirs: 2 package files, 0 of them read"));
    EXPECT_THAT(connection.names(), ElementsAre("aaa 1", "ccc 1"));
    const Connection later(packages(), no_directory);
    EXPECT_THAT(later.names(), IsEmpty());
}

TEST_F(VrcDirs, AnIndexThatOthersMayWriteIsNotTrusted) {
    write_head(file("a.vrk"), "a", "1", "");
    {
        const Connection connection(packages(), cache());
        ASSERT_EQ(connection.refresh(), 0);
    }
    for (const mode_t mode : {0664U, 0646U}) {
        ASSERT_EQ(chmod(index().c_str(), mode), 0);
        log_.clear();
        const Connection connection(packages(), cache());
        EXPECT_THAT(connection.names(), IsEmpty());
        EXPECT_TRUE(logged(LEVEL_WARNING, "vrc-dirs: not using the index " + index() +
                                              ": it is not a file that only root or the caller "
                                              "can write to"));
        ASSERT_EQ(connection.refresh(), 0);
        EXPECT_TRUE(logged(LEVEL_DEBUG, "vrc-dirs: 1 package files, 1 of them read"));
        EXPECT_EQ(fs::status(index()).permissions(), fs::perms{0644});
    }
}

TEST_F(VrcDirs, AnIndexThatIsNoFileIsNotTrusted) {
    write_head(file("a.vrk"), "a", "1", "");
    fs::create_directory(cache());
    ASSERT_EQ(mkfifo(index().c_str(), 0644), 0);
    const Connection connection(packages(), cache());
    ASSERT_EQ(connection.refresh(), 0);
    EXPECT_THAT(connection.names(), ElementsAre("a 1"));
    EXPECT_TRUE(fs::is_regular_file(index()));

    fs::rename(index(), dir_ / "elsewhere");
    fs::create_symlink(dir_ / "elsewhere", index());
    const Connection later(packages(), cache());
    EXPECT_THAT(later.names(), IsEmpty());
    EXPECT_TRUE(logged(LEVEL_WARNING, "vrc-dirs: cannot open the index " + index() +
                                          ": Too many levels of symbolic links"));
}

TEST_F(VrcDirs, ATruncatedIndexIsNone) {
    write_head(file("a.vrk"), "a", "1", "");
    {
        const Connection connection(packages(), cache());
        ASSERT_EQ(connection.refresh(), 0);
    }
    const std::string whole = read_all(index());
    for (size_t size = 0; size < whole.size(); size++) {
        dir_.write("cache/vrc-dirs.index", whole.substr(0, size));
        const Connection connection(packages(), cache());
        ASSERT_THAT(connection.names(), IsEmpty()) << size;
    }
    EXPECT_TRUE(logged(LEVEL_WARNING, "vrc-dirs: not using the index " + index() +
                                          ": it is damaged or of another version"));
    const Connection connection(packages(), cache());
    ASSERT_EQ(connection.refresh(), 0);
    EXPECT_EQ(read_all(index()), whole);
}

// Nothing may be read outside of it, which the sanitizer watches; and a refresh comes through.
TEST_F(VrcDirs, AnIndexWithAnyWrongByteDoesNoHarm) {
    write_head(file("a.vrk"), "alpha", "1", "evrkDependency: beta\nevrkVariant: v\n");
    write_head(file("b.vrk"), "beta", "1", "");
    dir_.write("packages/bad.vrk", "x");
    {
        const Connection connection(packages(), cache());
        ASSERT_EQ(connection.refresh(), 0);
    }
    const std::string whole = read_all(index());
    const own_ekva filter(str2ekva("evrkCreator=*e*,evrkDescription=*t*", ','));
    for (size_t at = 0; at < whole.size(); at++) {
        std::string bytes = whole;
        bytes[at] = static_cast<char>(bytes[at] ^ (at % 2 == 0 ? '\xff' : '\x01'));
        dir_.write("cache/vrc-dirs.index", bytes);
        const Connection connection(packages(), cache());
        connection.find("alpha");
        connection.find("*et*", "v", "1", filter.get());
        connection.all();
        ASSERT_EQ(connection.refresh(), 0) << at;
        ASSERT_NE(connection.all(), nullptr) << at;
    }
}

TEST_F(VrcDirs, GarbageForAnIndexIsReplaced) {
    write_head(file("a.vrk"), "a", "1", "");
    fs::create_directory(cache());
    std::string garbage(4096, '\0');
    for (size_t i = 0; i < garbage.size(); i++) {
        garbage[i] = static_cast<char>(i * 7919 >> 3);
    }
    dir_.write("cache/vrc-dirs.index", garbage);
    const Connection connection(packages(), cache());
    EXPECT_THAT(connection.names(), IsEmpty());
    ASSERT_EQ(connection.refresh(), 0);
    const Connection later(packages(), cache());
    EXPECT_THAT(later.names(), ElementsAre("a 1"));
}

TEST_F(VrcDirs, ARunningConnectionKeepsItsViewWhenAnotherRefreshes) {
    write_head(file("a.vrk"), "a", "1", "");
    const Connection first(packages(), cache());
    ASSERT_EQ(first.refresh(), 0);
    write_head(file("b.vrk"), "b", "1", "");
    const Connection second(packages(), cache());
    ASSERT_EQ(second.refresh(), 0);
    EXPECT_THAT(first.names(), ElementsAre("a 1"));
    EXPECT_THAT(second.names(), ElementsAre("a 1", "b 1"));
    ASSERT_EQ(first.refresh(), 0);
    EXPECT_THAT(first.names(), ElementsAre("a 1", "b 1"));
}

TEST_F(VrcDirs, AMissingDirectoryIsALineAndTheOthersCount) {
    write_head(file("a.vrk"), "a", "1", "");
    const Connection connection(dir_ / "missing" + "," + packages(), cache());
    EXPECT_EQ(connection.refresh(), 0);
    EXPECT_THAT(connection.names(), ElementsAre("a 1"));
    EXPECT_TRUE(logged(LEVEL_WARNING, "vrc-dirs: cannot read the directory " + dir_ / "missing" +
                                          ": No such file or directory"));
}

TEST_F(VrcDirs, ARefreshFailsWithoutAnyDirectoryAndKeepsTheView) {
    write_head(file("a.vrk"), "a", "1", "");
    const Connection connection(packages(), cache());
    ASSERT_EQ(connection.refresh(), 0);
    fs::rename(packages(), dir_ / "away");
    EXPECT_NE(connection.refresh(), 0);
    EXPECT_TRUE(logged(LEVEL_ERROR, "vrc-dirs: none of the configured directories can be read"));
    EXPECT_THAT(connection.names(), ElementsAre("a 1"));
}

TEST_F(VrcDirs, ARefreshFailsWhenNoDirectoryIsConfigured) {
    const Connection connection("", cache());
    EXPECT_NE(connection.refresh(), 0);
    EXPECT_TRUE(logged(LEVEL_ERROR, "vrc-dirs: vrc_dirs names no directory"));
    EXPECT_THAT(connection.names(), IsEmpty());
}

TEST_F(VrcDirs, RelativeDirectoriesAreLeftOut) {
    write_head(file("a.vrk"), "a", "1", "");
    const WorkingDir in(dir_.path());
    const Connection connection("packages", cache());
    EXPECT_TRUE(logged(LEVEL_WARNING,
                       "vrc-dirs: vrc_dirs: <packages> is not an absolute path, leaving it out"));
    EXPECT_NE(connection.refresh(), 0);
}

TEST_F(VrcDirs, ConnectsWithoutConfigurationAndLog) {
    void *connection = pvrm_vrc_connect(nullptr, nullptr);
    ASSERT_TRUE(connection);
    EXPECT_NE(pvrm_vrc_refresh(connection), 0);
    vri **out = nullptr;
    EXPECT_EQ(pvrm_vrc_findpkg(connection, nullptr, nullptr, nullptr, 5, nullptr, &out), 0);
    pvrm_vrc_release(connection);
}

TEST_F(VrcDirs, LoadsTwiceAndServesTwoConnections) {
    const TempDir other;
    const LoadedBackend again;
    write_head(file("a.vrk"), "a", "1", "");
    write_head(other / "b.vrk", "b", "1", "");
    const Connection first(packages(), cache());
    const Connection second(other.path(), dir_ / "cache2");
    ASSERT_EQ(first.refresh(), 0);
    ASSERT_EQ(second.refresh(), 0);
    EXPECT_THAT(first.names(), ElementsAre("a 1"));
    EXPECT_THAT(second.names(), ElementsAre("b 1"));
}

TEST_F(VrcDirs, NothingFoundLeavesTheResultAlone) {
    write_head(file("a.vrk"), "a", "1", "");
    const Connection connection(packages(), cache());
    ASSERT_EQ(connection.refresh(), 0);
    vri *mark = nullptr;
    vri **out = &mark;
    EXPECT_EQ(pvrm_vrc_findpkg(connection.get(), "b", nullptr, nullptr, 5, nullptr, &out), 0);
    EXPECT_EQ(out, &mark);
}

// The one list answers what the other does, in the same order.
TEST_F(VrcDirs, AnswersAsTheCacheInMemoryDoes) {
    struct Package {
        const char *name, *variant, *version, *arch, *description;
        std::vector<std::string> deps;
    };
    const Package packages_made[] = {
        {"foo", "", "1.0", "any", "A library of things", {"bar"}},
        {"foo", "", "1.1", "x86_64", "A library of things", {"bar", "baz"}},
        {"foo", "tiny", "1.1", "i686", "The small library", {}},
        {"foobar", "", "1.0", "mips", "More of foo", {"foo"}},
        {"bar", "", "2", "any", "Needs nothing [really]", {}},
        {"c++[x]", "", "1", "any", "Odd * name", {"bar"}},
        {"back\\slash", "", "1", "any", "Another odd name", {}},
        {"Foo", "", "1.0", "any", "In capitals", {}},
    };
    int number = 0;
    for (const Package &package : packages_made) {
        PackageSpec spec;
        spec.name = package.name;
        spec.variant = package.variant;
        spec.version = package.version;
        spec.arch = package.arch;
        spec.description = package.description;
        spec.deps = package.deps;
        if (number == 4) {
            spec.more = "evrkVariant:\nevrkDataSize: 77\n";  // a variant that is empty
        }
        write_head(file(std::to_string(number++) + ".vrk"), description_of(spec));
    }
    const Connection connection(packages(), cache());
    ASSERT_EQ(connection.refresh(), 0);
    vrc_cache = vrm_vrc_cache_fill(connection.get());
    ASSERT_TRUE(vrc_cache);

    const std::vector<const char *> filters = {nullptr,
                                               "",
                                               "evrkDescription=*library*",
                                               "EVRKDESCRIPTION=More of foo",
                                               "evrkDescription=*[[]really]",
                                               "evrkDescription=Odd * name",
                                               "evrkName=foo*",
                                               "evrkName=c++[x]",
                                               "evrkName=none,evrkDescription=*odd*",
                                               "evrkArchitecture=mips",
                                               "evrkDependency=ba?",
                                               "evrkVersion=1.*,evrkDescription=Needs*",
                                               "evrkCreator=T*",
                                               "evrkDataSize=77",
                                               "evrkVariant=tiny",
                                               "evrkVariant=",
                                               "evrkFileHash=*",
                                               "evrkRelativeURI=3.vrk",
                                               "evrkAbsoluteURI=*/[45].vrk",
                                               "evrkSignature=*",
                                               "evrkNothing=*"};
    size_t hits = 0;
    for (const char *name :
         {static_cast<const char *>(nullptr), "foo", "foo*", "*o*", "*", "?oo", "[fF]oo", "none",
          "", "c++[x]", "c++\\[x]", "*[x]", "back\\slash", "back\\\\slash", "[", "\\"}) {
        for (const char *variant : {static_cast<const char *>(nullptr), "", "default", "tiny"}) {
            for (const char *version : {static_cast<const char *>(nullptr), "1.0", "1.1", "1*"}) {
                for (const char *text : filters) {
                    own_ekva filter(text && *text ? str2ekva(text, ',') : nullptr);
                    if (text && !*text) {
                        filter.reset(ekva_init(4));
                    }
                    vri **out = nullptr;
                    const int count = vrm_findpkg(connection.get(), name, variant, version, 5,
                                                  filter.get(), &out);
                    const own_vri_list expected(out);
                    const auto found = connection.find(name, variant, version, filter.get());
                    EXPECT_EQ(all_of(found), all_of(expected))
                        << (name ? name : "-") << " " << (variant ? variant : "-") << " "
                        << (version ? version : "-") << " " << (text ? text : "-");
                    hits += static_cast<size_t>(count);
                }
            }
        }
    }
    EXPECT_GT(hits, 1000U);
    vrm_cache_free(vrc_cache);
    vrc_cache = nullptr;
}

TEST_F(VrcDirs, AFilterPairWithoutAValueFitsNothing) {
    write_head(file("a.vrk"), "a", "1", "");
    const Connection connection(packages(), cache());
    ASSERT_EQ(connection.refresh(), 0);
    s_ekva **filter = ekva_init(4);
    for (const char *key : {"evrkDescription", "evrkName", "evrkCreator"}) {
        ekva_addval(&filter, key, nullptr, 0);
    }
    const own_ekva owner(filter);
    EXPECT_EQ(connection.find("b", nullptr, nullptr, filter), nullptr);
}

class VrcDirsReadpkg : public VrcDirs {
 protected:
    // Fetches a record into a file; gives the result.
    int fetch(const Connection &connection, vri *info, const std::string &to) {
        FILE *out = fopen(to.c_str(), "w");
        EXPECT_TRUE(out);
        const int result = pvrm_vrc_readpkg(connection.get(), info, out);
        EXPECT_EQ(fclose(out), 0);
        return result;
    }
    int fetch_path(const Connection &connection, std::string path, const std::string &to) {
        vri info = {};
        info.absolute_uri = path.data();
        return fetch(connection, &info, to);
    }
};

TEST_F(VrcDirsReadpkg, WritesTheFileAndTellsItsSize) {
    std::string payload(3 * 1024 * 1024 + 17, '\0');
    for (size_t i = 0; i < payload.size(); i++) {
        payload[i] = static_cast<char>(i * 31 >> 4);
    }
    write_package(file("a.vrk"), "EVRM20", description_of({}), dir_.write("payload", payload));
    const Connection connection(packages(), cache());
    ASSERT_EQ(connection.refresh(), 0);
    const own_vri_list list = connection.all();
    ASSERT_TRUE(list);
    EXPECT_EQ(fetch(connection, list.get()[0], dir_ / "out"),
              static_cast<int>(list.get()[0]->filesize));
    EXPECT_EQ(read_all(dir_ / "out"), read_all(file("a.vrk")));
}

TEST_F(VrcDirsReadpkg, AShortWriteIsAFailure) {
    write_head(file("small.vrk"), "small", "1", "");
    dir_.write("packages/large", std::string(3 * 1024 * 1024, 'x'));
    const Connection connection(packages(), cache());
    for (const char *name : {"small.vrk", "large"}) {
        std::string path = file(name);
        vri info = {};
        info.absolute_uri = path.data();
        FILE *full = fopen("/dev/full", "w");
        ASSERT_TRUE(full);
        EXPECT_EQ(pvrm_vrc_readpkg(connection.get(), &info, full), -1);
        fclose(full);
        EXPECT_TRUE(logged(LEVEL_ERROR, "vrc-dirs: failed to write the bytes of " + path +
                                            ": No space left on device"));
    }
}

TEST_F(VrcDirsReadpkg, AFileThatIsGoneIsAFailure) {
    Connection connection(packages(), cache());
    EXPECT_EQ(fetch_path(connection, file("gone.vrk"), dir_ / "out"), -1);
    EXPECT_THAT(connection.reports(),
                ElementsAre("error: " + file("gone.vrk") + ": failed to open " + file("gone.vrk") +
                            ": No such file or directory"));
    EXPECT_TRUE(logged(LEVEL_ERROR, "vrc-dirs: failed to open " + file("gone.vrk") +
                                        ": No such file or directory"));
}

TEST_F(VrcDirsReadpkg, OnlyRegularFilesAreRead) {
    const Connection connection(packages(), cache());
    ASSERT_EQ(mkfifo(file("fifo.vrk").c_str(), 0644), 0);
    fs::create_directory(file("directory.vrk"));
    EXPECT_EQ(fetch_path(connection, file("fifo.vrk"), dir_ / "out"), -1);
    EXPECT_EQ(fetch_path(connection, file("directory.vrk"), dir_ / "out"), -1);
}

TEST_F(VrcDirsReadpkg, OnlyFilesBelowTheDirectoriesAreRead) {
    dir_.write("secret", "secret");
    dir_.write("packages-not/secret", "secret");
    const Connection connection(packages(), cache());
    for (const std::string &path :
         {dir_ / "secret", packages() + "/../secret", dir_ / "packages-not/secret",
          packages() + "/./../secret", packages(), packages() + "/", std::string("secret"),
          std::string()}) {
        log_.clear();
        EXPECT_EQ(fetch_path(connection, path, dir_ / "out"), -1);
        EXPECT_EQ(read_all(dir_ / "out"), "");
        EXPECT_TRUE(logged(LEVEL_ERROR,
                           "vrc-dirs: " + path + " lies in none of the configured directories"));
    }
    vri nowhere = {};
    EXPECT_EQ(fetch(connection, &nowhere, dir_ / "out"), -1);
    EXPECT_TRUE(logged(LEVEL_ERROR,
                       "vrc-dirs: a record without a path lies in none of the configured "
                       "directories"));
}

TEST_F(VrcDirsReadpkg, TwoGibibytesAreTooLarge) {
    dir_.write("packages/large.vrk", "");
    fs::resize_file(file("large.vrk"), uint64_t{1} << 31);
    const Connection connection(packages(), cache());
    EXPECT_EQ(fetch_path(connection, file("large.vrk"), dir_ / "out"), -1);
    EXPECT_EQ(read_all(dir_ / "out"), "");
    EXPECT_TRUE(logged(LEVEL_ERROR, "vrc-dirs: " + file("large.vrk") +
                                        " is too large to be fetched: 2147483648 bytes"));
}
