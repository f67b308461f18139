#include "package/hashlist.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "kit/capture.h"
#include "kit/failing_closedir.h"
#include "kit/log_capture.h"
#include "kit/lower_limit.h"
#include "kit/package_maker.h"
#include "kit/temp_dir.h"
#include "support/own.h"

namespace fs = std::filesystem;

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;
using Lines = std::vector<std::string>;

// The SHA-1 of "a", of "b" and of nothing.
const std::string hash_a = "86f7e437faa5a7fce15d1ddcb9eaeaea377667b8";
const std::string hash_b = "e9d71f5ee7c92d6dc9e92ffdad17b8bd49418f98";
const std::string hash_nothing = "da39a3ee5e6b4b0d3255bfef95601890afd80709";

Pairs pairs_of(s_ekva *const *rec) {
    Pairs pairs;
    for (size_t i = 1; rec && rec[i]; i++) {
        pairs.emplace_back(rec[i]->key, rec[i]->val);
    }
    return pairs;
}

struct Result {
    int result;
    own_ekva hashes;

    Pairs pairs() const {
        return pairs_of(hashes.get());
    }
    // For trees, which list their entries in an order of their own.
    Pairs sorted() const {
        Pairs found = pairs();
        std::sort(found.begin(), found.end());
        return found;
    }
};

Result read_list(const TempDir &dir, const std::string &list, const char *fork = "data") {
    dir.write(std::string("hash/") + fork + ".txt", list);
    s_ekva **hashes = nullptr;
    const int result = vrm_vrf_vrk_hashes(dir.path().c_str(), fork, &hashes);
    return {result, own_ekva(hashes)};
}

Result hash_tree(const std::string &root) {
    char *relative = nullptr;
    s_ekva **hashes = nullptr;
    const int result = vrm_vrf_hash_files(root.c_str(), &relative, &hashes);
    const own_string buffer(relative);
    EXPECT_STREQ(relative, "") << "the caller gets an empty path";
    return {result, own_ekva(hashes)};
}

}  // namespace

TEST(VrmVrfVrkHashes, ReadsTheListOfAFork) {
    const TempDir dir;
    const LogCapture log;
    const Result read =
        read_list(dir, hash_a + ":etc/a\n" + hash_b + ":usr/share/a b: c\n" + hash_a + ":x\n");
    EXPECT_EQ(read.result, 0);
    EXPECT_EQ(read.pairs(),
              (Pairs{{hash_a, "/etc/a"}, {hash_b, "/usr/share/a b: c"}, {hash_a, "/x"}}));
    EXPECT_STREQ(read.hashes.get()[0]->key, "#EKVA_10:100:3");
    EXPECT_EQ(log.at(LEVEL_DEBUG), (Lines{"Adding hash " + hash_a + " for file /etc/a",
                                          "Adding hash " + hash_b + " for file /usr/share/a b: c",
                                          "Adding hash " + hash_a + " for file /x"}));
}

TEST(VrmVrfVrkHashes, SkipsEmptyLinesAndNeedsNoClosingLineEnd) {
    const TempDir dir;
    const Result read = read_list(dir, "\n" + hash_a + ":a\n\n\n" + hash_b + ":b", "conf");
    EXPECT_EQ(read.result, 0);
    EXPECT_EQ(read.pairs(), (Pairs{{hash_a, "/a"}, {hash_b, "/b"}}));
}

TEST(VrmVrfVrkHashes, DoesNotTestTheDigits) {
    const TempDir dir;
    const std::string forty(40, 'z');
    EXPECT_EQ(read_list(dir, forty + ":a\n").pairs(), (Pairs{{forty, "/a"}}));
}

TEST(VrmVrfVrkHashes, IsContentWithoutAList) {
    const TempDir dir;
    s_ekva **hashes = nullptr;
    const LogCapture log;
    EXPECT_EQ(vrm_vrf_vrk_hashes(dir.path().c_str(), "data", &hashes), 0);
    EXPECT_EQ(hashes, nullptr);
    EXPECT_EQ(log.at(LEVEL_DEBUG),
              Lines{"vrm_vrf_vrk_hashes: no file: " + dir.path() + "/hash/data.txt, exiting"});
}

TEST(VrmVrfVrkHashes, IsContentWithAnEmptyList) {
    const TempDir dir;
    const Result read = read_list(dir, "");
    EXPECT_EQ(read.result, 0);
    ASSERT_TRUE(read.hashes);
    EXPECT_TRUE(read.pairs().empty());
}

TEST(VrmVrfVrkHashes, DoesNotWaitForAPipe) {
    const TempDir dir;
    fs::create_directory(dir / "hash");
    ASSERT_EQ(mkfifo((dir / "hash/data.txt").c_str(), 0600), 0);
    s_ekva **hashes = nullptr;
    EXPECT_EQ(vrm_vrf_vrk_hashes(dir.path().c_str(), "data", &hashes), 0);
    EXPECT_EQ(hashes, nullptr);
}

TEST(VrmVrfVrkHashes, FailsOnAMalformedLineAndKeepsWhatItRead) {
    const TempDir dir;
    const std::string digits39(39, 'a');
    for (const std::string &line :
         {hash_a + ":", digits39 + ":ab", hash_a + "b:a", hash_a + " a", std::string("short")}) {
        const LogCapture log;
        std::string list = hash_b + ":b\n";
        list += line;
        list += "\n" + hash_a + ":c\n";
        const Result read = read_list(dir, list);
        EXPECT_EQ(read.result, -1) << line;
        EXPECT_EQ(read.pairs(), (Pairs{{hash_b, "/b"}})) << line;
        EXPECT_EQ(log.at(LEVEL_ERROR), Lines{"Line is smaller than 42 bytes, bye"}) << line;
    }
}

TEST(VrmVrfVrkHashes, FailsOnAListThatBreaksOff) {
    const TempDir dir;
    fs::create_directory(dir / "hash");
    // A regular file that opens, and whose first byte can't be read.
    fs::create_symlink("/proc/self/mem", dir / "hash/data.txt");
    s_ekva **hashes = nullptr;
    const LogCapture log;
    EXPECT_EQ(vrm_vrf_vrk_hashes(dir.path().c_str(), "data", &hashes), -1);
    const own_ekva owner(hashes);
    EXPECT_EQ(log.at(LEVEL_ERROR), Lines{"Failed to read " + (dir / "hash/data.txt")});
}

TEST(VrmVrfVrkHashes, TakesLinesOf4193Bytes) {
    const TempDir dir;
    const std::string longest(4193 - 41, 'p');
    const Result read = read_list(dir, hash_a + ":" + longest + "\n" + hash_b + ":b\n");
    EXPECT_EQ(read.result, 0);
    EXPECT_EQ(read.pairs(), (Pairs{{hash_a, "/" + longest}, {hash_b, "/b"}}));
    // One byte more comes in as a line of its own.
    EXPECT_EQ(read_list(dir, hash_a + ":" + longest + "p\n").result, -1);
}

TEST(VrmVrfVrkHashes, IsQuickWithALongList) {
    const TempDir dir;
    std::string list;
    for (int i = 0; i < 50000; i++) {
        list += hash_a + ":file" + std::to_string(i) + "\n";
    }
    const std::clock_t start = std::clock();  // of this process, whatever others do meanwhile
    const Result read = read_list(dir, list);
    EXPECT_LT(std::clock() - start, 5 * CLOCKS_PER_SEC);
    EXPECT_EQ(ekva_nument(read.hashes.get()), 50000);
}

TEST(VrmVrfHashFiles, HashesAWholeTree) {
    const TempDir dir;
    dir.write("data/a", "a");
    dir.write("data/etc/b", "b");
    dir.write("data/etc/deep/er/.hidden", "");
    fs::create_directories(dir / "data/empty/dir");
    const LogCapture log;
    const Result read = hash_tree(dir / "data");
    EXPECT_EQ(read.result, 0);
    EXPECT_EQ(read.sorted(),
              (Pairs{{hash_a, "/a"}, {hash_nothing, "/etc/deep/er/.hidden"}, {hash_b, "/etc/b"}}));
    EXPECT_STREQ(read.hashes.get()[0]->key, "#EKVA_10:100:3");
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "Adding hash " + hash_b + " for file /etc/b"));
}

TEST(VrmVrfHashFiles, GivesTwoPairsForTheSameContent) {
    const TempDir dir;
    dir.write("data/one", "a");
    dir.write("data/two", "a");
    EXPECT_EQ(hash_tree(dir / "data").sorted(), (Pairs{{hash_a, "/one"}, {hash_a, "/two"}}));
}

TEST(VrmVrfHashFiles, MatchesAPackagesOwnLists) {
    const TempDir dir;
    write_tree({.data = {{"etc/a", "1"}, {"usr/b c", "2"}, {"usr/lib/d", "3"}}}, dir / "tree");
    s_ekva **hashes = nullptr;
    ASSERT_EQ(vrm_vrf_vrk_hashes((dir / "tree").c_str(), "data", &hashes), 0);
    const own_ekva owner(hashes);
    Pairs listed = pairs_of(hashes);
    std::sort(listed.begin(), listed.end());
    EXPECT_EQ(listed.size(), 3U);
    EXPECT_EQ(hash_tree(dir / "tree/data").sorted(), listed);
}

TEST(VrmVrfHashFiles, MakesAnEmptyRecordForEmptyDirectories) {
    const TempDir dir;
    fs::create_directories(dir / "data/only/dirs");
    const Result read = hash_tree(dir / "data");
    EXPECT_EQ(read.result, 0);
    ASSERT_TRUE(read.hashes);
    EXPECT_TRUE(read.pairs().empty());
}

TEST(VrmVrfHashFiles, IsContentWithoutARoot) {
    const TempDir dir;
    const LogCapture log;
    const Result read = hash_tree(dir / "none");
    EXPECT_EQ(read.result, 0);
    EXPECT_FALSE(read.hashes);
    EXPECT_EQ(log.at(LEVEL_DEBUG), Lines{"no directory  under " + (dir / "none")});
}

TEST(VrmVrfHashFiles, WalksThePartThatItIsGiven) {
    const TempDir dir;
    dir.write("data/a", "a");
    dir.write("data/etc/b", "b");
    const own_string part(strdup("/etc"));
    char *relative = part.get();
    s_ekva **hashes = nullptr;
    EXPECT_EQ(vrm_vrf_hash_files((dir / "data").c_str(), &relative, &hashes), 0);
    EXPECT_EQ(relative, part.get());
    const own_ekva owner(hashes);
    EXPECT_EQ(pairs_of(hashes), (Pairs{{hash_b, "/etc/b"}}));

    const own_string none(strdup("/none"));
    relative = none.get();
    const LogCapture log;
    EXPECT_EQ(vrm_vrf_hash_files((dir / "data").c_str(), &relative, &hashes), 0);
    EXPECT_EQ(log.at(LEVEL_DEBUG), Lines{"no directory /none under " + (dir / "data")});
}

TEST(VrmVrfHashFiles, AddsToARecordThatIsThere) {
    const TempDir dir;
    dir.write("one/a", "a");
    dir.write("two/b", "b");
    char *relative = nullptr;
    s_ekva **hashes = nullptr;
    EXPECT_EQ(vrm_vrf_hash_files((dir / "one").c_str(), &relative, &hashes), 0);
    EXPECT_EQ(vrm_vrf_hash_files((dir / "two").c_str(), &relative, &hashes), 0);
    const own_string buffer(relative);
    const own_ekva owner(hashes);
    EXPECT_EQ(pairs_of(hashes), (Pairs{{hash_a, "/a"}, {hash_b, "/b"}}));
}

TEST(VrmVrfHashFiles, GivesTheCallerABufferForAPath) {
    const TempDir dir;
    char *relative = nullptr;
    s_ekva **hashes = nullptr;
    EXPECT_EQ(vrm_vrf_hash_files((dir / "none").c_str(), &relative, &hashes), 0);
    const own_string buffer(relative);
    memset(relative, 'x', 4097);  // all of it is there to be written
}

TEST(VrmVrfHashFiles, FollowsALinkToAFile) {
    const TempDir dir;
    dir.write("elsewhere", "a");
    fs::create_directory(dir / "data");
    fs::create_symlink("../elsewhere", dir / "data/link");
    const Result read = hash_tree(dir / "data");
    EXPECT_EQ(read.result, 0);
    EXPECT_EQ(read.pairs(), (Pairs{{hash_a, "/link"}}));
}

TEST(VrmVrfHashFiles, FailsOnWhatCannotBeHashed) {
    const std::vector<std::pair<std::string, void (*)(const std::string &)>> cases = {
        {"dangling", [](const std::string &path) { fs::create_symlink("nowhere", path); }},
        {"to-a-directory", [](const std::string &path) { fs::create_symlink("/", path); }},
        {"to-a-device", [](const std::string &path) { fs::create_symlink("/dev/zero", path); }},
        {"unreadable", [](const std::string &path) { fs::create_symlink("/proc/self/mem", path); }},
        {"pipe", [](const std::string &path) { ASSERT_EQ(mkfifo(path.c_str(), 0600), 0); }},
    };
    for (const auto &[name, make] : cases) {
        SCOPED_TRACE(name);
        const TempDir dir;
        fs::create_directories(dir / "data/sub/deep");
        make(dir / ("data/sub/deep/" + name));
        const LogCapture log;
        EXPECT_EQ(hash_tree(dir / "data").result, -1) << name;
        EXPECT_EQ(log.at(LEVEL_ERROR),
                  Lines{"failed to generate sha1 of " + (dir / "data") + "//sub/deep/" + name});
        EXPECT_EQ(log.at(LEVEL_DEBUG), (Lines{"vrm_vrf_hash_files on /sub/deep got rc=-1",
                                              "vrm_vrf_hash_files on /sub got rc=-1"}));
        EXPECT_TRUE(log.has_line_end(LEVEL_DEBUG, "vrm_vrf_hash_files on /sub got rc=-1"));
    }
}

TEST(VrmVrfHashFiles, FailsOnARootThatIsNoDirectory) {
    const TempDir dir;
    dir.write("file", "a");
    EXPECT_EQ(hash_tree(dir / "file").result, -1);
    fs::create_directory(dir / "real");
    fs::create_directory_symlink("real", dir / "link");
    EXPECT_EQ(hash_tree(dir / "link").result, -1) << "links to directories are not followed";
}

TEST(VrmVrfHashFiles, FailsOnARootThatCannotBeLookedAt) {
    const TempDir dir;
    const std::string path = dir.write("file", "a") + "/below";
    const LogCapture log;
    EXPECT_EQ(hash_tree(path).result, -1);
    EXPECT_EQ(log.at(LEVEL_ERROR), Lines{"can't stat '" + path + "'"});
}

TEST(VrmVrfHashFiles, FailsOnADirectoryThatCannotBeClosed) {
    const TempDir dir;
    dir.write("data/file", "x");
    s_ekva **hashes = nullptr;
    char *relative = nullptr;
    const LogCapture log;
    {
        const FailingClosedir failing;
        EXPECT_EQ(vrm_vrf_hash_files((dir / "data").c_str(), &relative, &hashes), -1);
    }
    const own_string path(relative);
    const own_ekva owner(hashes);
    EXPECT_EQ(log.at(LEVEL_ERROR), Lines{"can't close '" + (dir / "data") + "'"});
}

TEST(VrmVrfHashFiles, NeedsNoDescriptorForEachLevel) {
    const TempDir dir;
    std::string path = "data";
    for (int i = 0; i < 200; i++) {
        path += "/d";
    }
    dir.write(path + "/a", "a");
    const LowerLimit few(RLIMIT_NOFILE, 50);
    const Result read = hash_tree(dir / "data");
    EXPECT_EQ(read.result, 0);
    ASSERT_EQ(read.pairs().size(), 1U);
    EXPECT_EQ(read.pairs()[0].first, hash_a);
}
