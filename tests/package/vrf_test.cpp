#include "package/vrf.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "kit/capture.h"
#include "kit/log_capture.h"
#include "kit/package_maker.h"
#include "kit/strings.h"
#include "kit/temp_dir.h"
#include "kit/test_repo.h"
#include "support/array.h"

namespace fs = std::filesystem;

namespace {

const std::string &head = least_head;

using Lines = std::vector<std::string>;

std::string five_digits(size_t number) {
    const std::string digits = std::to_string(number);
    return std::string(5 - digits.size(), '0') + digits;
}

// A package file with a payload that no one unpacks.
std::string bytes_of(const std::string &text, const std::string &magic = "EVRM20") {
    return magic + five_digits(text.size()) + text + "payload";
}

own_vri info_of(const std::string &path, vrm_handle *handle = nullptr, int verify = 0) {
    return own_vri(vrm_vrf_info(handle, path.c_str(), verify));
}

own_array index_of(const std::string &path) {
    return own_array(vrm_vrf_index(nullptr, path.c_str()));
}

Lines sorted(char *const *array) {
    Lines lines = strings(array);
    std::sort(lines.begin(), lines.end());
    return lines;
}

std::string archive_of(const TempDir &dir, const PackageSpec &spec) {
    write_tree(spec, dir / "tree");
    pack_tree(dir / "tree", dir / "archive");
    return dir / "archive";
}

void flip_last_byte(const TempDir &dir, const std::string &name) {
    std::string bytes = read_all(dir / name);
    bytes.back() = static_cast<char>(bytes.back() ^ 1);
    dir.write(name, bytes);
}

}  // namespace

TEST(VrkFileIsVrk, LooksAtTheNameAndTheKindOfFile) {
    const TempDir dir;
    EXPECT_EQ(vrk_file_is_vrk(dir.write("a.vrk", "whatever").c_str()), 1);
    EXPECT_EQ(vrk_file_is_vrk(dir.write("b.1.vrk", "").c_str()), 1);
    EXPECT_EQ(vrk_file_is_vrk(dir.write("c.VRK", "").c_str()), 0);
    fs::create_directory(dir / "d.vrk");
    EXPECT_EQ(vrk_file_is_vrk((dir / "d.vrk").c_str()), 0);
    fs::create_symlink("a.vrk", dir / "link.vrk");
    EXPECT_EQ(vrk_file_is_vrk((dir / "link.vrk").c_str()), 1);
    ASSERT_EQ(mkfifo((dir / "pipe.vrk").c_str(), 0600), 0);
    EXPECT_EQ(vrk_file_is_vrk((dir / "pipe.vrk").c_str()), 0);
}

TEST(VrkFileIsVrk, SaysWhatItMissed) {
    const TempDir dir;
    const std::string other = dir.write("a.txt", bytes_of(head));
    const std::string missing = dir / "none.vrk";
    const LogCapture log;
    EXPECT_EQ(vrk_file_is_vrk(other.c_str()), 0);
    EXPECT_EQ(vrk_file_is_vrk(missing.c_str()), 0);
    EXPECT_EQ(log.at(LEVEL_DEBUG),
              (Lines{other + " has not suffix vrk",
                     "file " + missing + " could not be stated: No such file or directory"}));
}

TEST(VrmVrfInfo, TellsOfTheFileWhateverItSaysOfItself) {
    const TempDir dir;
    const std::string bytes = bytes_of(head +
                                       "evrkFileHash: 0000\nevrkFileSize: 1\n"
                                       "evrkAbsoluteURI: /x\nevrkRelativeURI: x\n");
    const std::string path = dir.write("sub/foo.vrk", bytes);
    const WorkingDir there(dir.path());
    const own_vri info = info_of("./sub/../sub/foo.vrk");
    ASSERT_TRUE(info);
    EXPECT_STREQ(info->name, "foo");
    EXPECT_STREQ(info->version, "1.2");
    EXPECT_EQ(info->arch, 1);
    EXPECT_STREQ(info->relative_uri, "./sub/../sub/foo.vrk");
    EXPECT_EQ(info->absolute_uri, fs::canonical(path).string());
    EXPECT_EQ(info->filesize, bytes.size());
    EXPECT_EQ(info->filehash, sha1_of(path));
}

TEST(VrmVrfInfo, ReadsBothMagicsAlike) {
    const TempDir dir;
    const LogCapture log;
    // The magic is not compared with the format of the description.
    EXPECT_TRUE(info_of(dir.write("a.vrk", bytes_of(head, "EVRM10"))));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "Package version: 1"));
    EXPECT_TRUE(info_of(dir.write("b.vrk", bytes_of(head, "EVRM20"))));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "Package version: 2"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, dir / "b.vrk: Package format: 2"));
    EXPECT_TRUE(log.at(LEVEL_ERROR).empty());
}

TEST(VrmVrfInfo, ScansTheSizeAsANumber) {
    const TempDir dir;
    const std::string two_digits = std::to_string(head.size());
    ASSERT_EQ(two_digits.size(), 2U);
    for (const std::string &size : {"   " + two_digits, "000" + two_digits, two_digits + "   ",
                                    two_digits + "abc", "\t\n+" + two_digits}) {
        std::string bytes = "EVRM20" + size;
        bytes += head + "payload";
        const own_vri info = info_of(dir.write("a.vrk", bytes));
        ASSERT_TRUE(info) << size;
        EXPECT_STREQ(info->description, "A tool");
    }
}

// Of the three readers, vrm_vrf_info and vrm_vrf_index react to a bad head alike.
class BadHead : public ::testing::Test {
 protected:
    void expect(const std::string &bytes, const Lines &messages) {
        const std::string path = dir_.write("bad.vrk", bytes);
        const LogCapture log;
        EXPECT_FALSE(info_of(path)) << bytes;
        EXPECT_EQ(log.at(LEVEL_ERROR), messages) << bytes;
        log_again(path, messages);
    }
    void log_again(const std::string &path, const Lines &messages) {
        const LogCapture log;
        EXPECT_FALSE(index_of(path));
        EXPECT_EQ(log.at(LEVEL_ERROR), messages);
    }
    TempDir dir_;
};

TEST_F(BadHead, ShortMagic) {
    expect("", {"Only 0 of 6 bytes read"});
    expect("EVRM2", {"Only 5 of 6 bytes read"});
}

TEST_F(BadHead, OtherMagic) {
    for (const char *magic : {"EVRM21", "EVRM11", "evrm20", "XVRM20"}) {
        expect(bytes_of(head, magic), {"Not a valid/supported package file"});
    }
}

TEST_F(BadHead, ShortSize) {
    expect("EVRM20", {"Only 0 of 5 bytes read"});
    expect("EVRM200001", {"Only 4 of 5 bytes read"});
}

TEST_F(BadHead, SizeThatIsNoNumber) {
    expect("EVRM20abc12" + head, {"Failed to read description size"});
    expect("EVRM20     " + head, {"Failed to read description size"});
}

TEST_F(BadHead, ShortDescription) {
    expect("EVRM2099999abc", {"Only 3 of 99999 bytes read"});
    expect("EVRM2000001", {"Only 0 of 1 bytes read"});
}

TEST_F(BadHead, NegativeSizeIsAShortRead) {
    expect("EVRM20-0005" + head, {"Only 0 of -5 bytes read"});
}

TEST_F(BadHead, DescriptionThatDoesNotParse) {
    const std::string no_name = "evrmVersion: 2.0\nevrkVersion: 1.2\n";
    expect("EVRM20" + five_digits(no_name.size()) + no_name, {});
}

TEST_F(BadHead, EmptyDescription) {
    const std::string path = dir_.write("bad.vrk", "EVRM2000000payload");
    const LogCapture log;
    EXPECT_EQ(stderr_of([&] { EXPECT_FALSE(info_of(path)); }),
              "ldif_entry_get_attr: failed to parse ldif buffer\n");
    EXPECT_EQ(log.at(LEVEL_INFO), Lines{"vrk_info_parse: Unspecified package format"});
}

TEST_F(BadHead, MissingFile) {
    const std::string path = dir_ / "none.vrk";
    const LogCapture log;
    EXPECT_FALSE(info_of(path));
    EXPECT_FALSE(index_of(path));
    EXPECT_EQ(log.at(LEVEL_ERROR), (Lines{"Failed to stat " + path, "Failed to stat " + path}));
}

TEST_F(BadHead, PipeIsNotWaitedFor) {
    const std::string path = dir_ / "pipe.vrk";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const LogCapture log;
    EXPECT_FALSE(info_of(path));
    EXPECT_FALSE(index_of(path));
    const std::string message = "Failed to open " + path + " for reading";
    EXPECT_EQ(log.at(LEVEL_ERROR), (Lines{message, message}));
}

TEST(VrmVrfInfoSignature, IsVerifiedAgainstTheStore) {
    const TestRepo repo;
    const std::string path = repo.dir() / "foo.vrk";
    make_package({.data = {{"etc/motd", "hello\n"}}}, path);
    const LogCapture log;
    const own_vri info = info_of(path, repo.handle(), 1);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->sig_status, 1);
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "rc of vrs_verify_rsa: 1"));
    EXPECT_EQ(info->filehash, sha1_of(path));
}

TEST(VrmVrfInfoSignature, DoesNotCoverTheHead) {
    const TestRepo repo;
    const std::string path = repo.dir() / "foo.vrk";
    make_package({.data = {{"etc/motd", "hello\n"}}}, path);
    std::string bytes = read_all(path);
    bytes.replace(bytes.find("A test package"), 14, "A best package");
    repo.dir().write("foo.vrk", bytes);
    const own_vri info = info_of(path, repo.handle(), 1);
    ASSERT_TRUE(info);
    EXPECT_STREQ(info->description, "A best package");
    EXPECT_EQ(info->sig_status, 1);
}

TEST(VrmVrfInfoSignature, OnlyNotesThatItDoesNotFit) {
    const TestRepo repo;
    const std::string path = repo.dir() / "foo.vrk";
    make_package({.data = {{"etc/motd", "hello\n"}}}, path);
    flip_last_byte(repo.dir(), "foo.vrk");
    const LogCapture log;
    const own_vri info = info_of(path, repo.handle(), 1);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->sig_status, -3);
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "rc of vrs_verify_rsa: -3"));
}

TEST(VrmVrfInfoSignature, OnlyNotesAnUnknownSigner) {
    const TestRepo repo;
    const TempDir dir;
    const Signer stranger = Signer::make(dir, "/O=Test/CN=Stranger");
    const std::string path = repo.dir() / "foo.vrk";
    make_package({.data = {{"etc/motd", "hello\n"}}, .signer = &stranger}, path);
    const own_vri info = info_of(path, repo.handle(), 1);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->sig_status, -2);
}

TEST(VrmVrfInfoSignature, OnlyNotesThatItIsMissing) {
    const TestRepo repo;
    const LogCapture log;
    const own_vri unsigned_one =
        info_of(repo.dir().write("a.vrk", bytes_of(head)), repo.handle(), 1);
    ASSERT_TRUE(unsigned_one);
    EXPECT_EQ(unsigned_one->sig_status, -1);
    EXPECT_EQ(log.at(LEVEL_WARNING), Lines{"No signature subject found"});

    const own_vri no_data = info_of(
        repo.dir().write("b.vrk", bytes_of(head + "evrkRsaSigSubj: /CN=x\n")), repo.handle(), 1);
    ASSERT_TRUE(no_data);
    EXPECT_EQ(no_data->sig_status, -1);
    EXPECT_EQ(log.at(LEVEL_WARNING),
              (Lines{"No signature subject found", "No signature data found"}));
}

TEST(VrmVrfInfoSignature, IsNotCheckedUnlessAskedForWithAHandle) {
    const TestRepo repo;
    const std::string path = repo.dir() / "foo.vrk";
    make_package({.data = {{"etc/motd", "hello\n"}}}, path);
    const LogCapture log;
    const own_vri unasked = info_of(path, repo.handle(), 0);
    const own_vri no_handle = info_of(path, nullptr, 1);
    ASSERT_TRUE(unasked && no_handle);
    EXPECT_EQ(unasked->sig_status, 0);
    EXPECT_EQ(no_handle->sig_status, 0);
    const Lines said = log.at(LEVEL_DEBUG);
    EXPECT_EQ(std::count(said.begin(), said.end(), "Not verifying the package signature"), 2);
}

TEST(VrmVrfIndex, ListsTheDataFork) {
    const TempDir dir;
    make_package({.data = {{"etc/motd", "hello\n"}, {"usr/bin/tool", "#!/bin/sh\n"}},
                  .conf = {{"etc/tool.conf", "a=b\n"}},
                  .init = {{"00-add.sh", "true\n"}}},
                 dir / "foo.vrk");
    const own_array files = index_of(dir / "foo.vrk");
    EXPECT_EQ(sorted(files.get()),
              (Lines{"/etc", "/etc/motd", "/usr", "/usr/bin", "/usr/bin/tool"}));
}

TEST(VrmVrfIndex, GivesASlashForTheForkItself) {
    const TempDir dir;
    dir.write("tree/data/a", "a");
    must_run("cd " + shell_word(dir / "tree") +
             " && printf 'data/\\ndata/a\\n' | cpio -o -H newc --quiet | gzip -n > " +
             shell_word(dir / "archive"));
    write_package(dir / "foo.vrk", "EVRM20", head, dir / "archive");
    const own_array files = index_of(dir / "foo.vrk");
    // Whether cpio keeps the slash of a directory is its own matter: what it wrote decides.
    const std::string listed =
        must_run("gzip -dc < " + shell_word(dir / "archive") + " | cpio -t --quiet");
    const bool slash_kept = listed.starts_with("data/\n");
    EXPECT_EQ(sorted(files.get()), slash_kept ? (Lines{"/", "/a"}) : Lines{"/a"}) << listed;
}

TEST(VrmVrfIndex, GrowsFromTwentyEntries) {
    const TempDir dir;
    PackageSpec spec;
    for (int i = 10; i < 30; i++) {
        spec.data["f" + std::to_string(i)] = "x";
    }
    make_package(spec, dir / "twenty.vrk");
    {
        const LogCapture log;
        EXPECT_EQ(arr_count(index_of(dir / "twenty.vrk").get()), 20);
        EXPECT_TRUE(log.has(LEVEL_DEBUG, "Allocating space for 20 entries"));
        EXPECT_FALSE(log.has(LEVEL_DEBUG, "Reallocation space for 40 entries"));
    }
    spec.data["f30"] = "x";
    make_package(spec, dir / "more.vrk");
    const LogCapture log;
    const own_array files = index_of(dir / "more.vrk");
    ASSERT_EQ(arr_count(files.get()), 21);
    EXPECT_STREQ(files.get()[20], "/f30");
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "Allocating space for 20 entries"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "Reallocation space for 40 entries"));
}

TEST(VrmVrfIndex, IsNullWithoutDataFiles) {
    const TempDir dir;
    make_package({.conf = {{"etc/tool.conf", "a=b\n"}}}, dir / "foo.vrk");
    EXPECT_FALSE(index_of(dir / "foo.vrk"));
}

TEST(VrmVrfIndex, IsNullForAPayloadOfAnotherKind) {
    const TempDir dir;
    dir.write("tree/data/a", "a");
    const std::string tree = shell_word(dir / "tree");
    const LogCapture log;
    for (const char *pack :
         {"tar cf - data | gzip -n", "echo data/a | cpio -o -H newc --quiet | xz -c"}) {
        must_run("cd " + tree + " && " + pack + " > " + shell_word(dir / "archive"));
        write_package(dir / "foo.vrk", "EVRM20", head, dir / "archive");
        EXPECT_FALSE(index_of(dir / "foo.vrk")) << pack;
    }
    EXPECT_FALSE(index_of(dir.write("bare.vrk", bytes_of(head))));
    EXPECT_TRUE(log.at(LEVEL_ERROR).empty());
}

TEST(VrmVrfIndex, ReportsAPayloadThatIsNoGzipBehindItsFirstBytes) {
    const TempDir dir;
    // The head of gzip, and behind it a block of a kind that doesn't exist.
    const std::string head_of_gzip("\x1f\x8b\x08\0\0\0\0\0\0\x03", 10);
    write_package(dir / "foo.vrk", "EVRM20", head,
                  dir.write("archive", head_of_gzip + "\x07nonsense"));
    const LogCapture log;
    EXPECT_FALSE(index_of(dir / "foo.vrk"));
    EXPECT_EQ(log.at(LEVEL_ERROR), Lines{"Failed to read archive by archive_read_open_FILE"});
}

TEST(VrmVrfIndex, DoesNotLookAtTheSignature) {
    const TempDir dir;
    write_package(dir / "foo.vrk", "EVRM10", head,
                  archive_of(dir, {.data = {{"etc/motd", "hello\n"}}}));
    const LogCapture log;
    EXPECT_EQ(sorted(index_of(dir / "foo.vrk").get()), (Lines{"/etc", "/etc/motd"}));
    EXPECT_TRUE(log.at(LEVEL_WARNING).empty());
    EXPECT_TRUE(log.at(LEVEL_ERROR).empty());
}
