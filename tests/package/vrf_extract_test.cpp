#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "kit/capture.h"
#include "kit/log_capture.h"
#include "kit/lower_limit.h"
#include "kit/package_maker.h"
#include "kit/temp_dir.h"
#include "kit/test_repo.h"
#include "package/vrf.h"

namespace fs = std::filesystem;

namespace {

const std::string &head = least_head;

using Lines = std::vector<std::string>;

class VrmVrfExtract : public ::testing::Test {
 protected:
    VrmVrfExtract() {
        fs::create_directory(target_);
    }
    ~VrmVrfExtract() override {
        EXPECT_EQ(fs::current_path(), before_) << "the working directory was left behind";
    }

    // The errors that are logged when the archive can't be extracted.
    Lines errors_of_failure() {
        const LogCapture log;
        int result = 0;
        EXPECT_EQ(stderr_of([&] { result = extract_archive(archive_); }),
                  "Failed to extract archive\n");
        EXPECT_EQ(result, -1);
        return log.at(LEVEL_ERROR);
    }

    int extract(const std::string &path, int verify) {
        return vrm_vrf_extract(repo_.handle(), path.c_str(), target_.c_str(), verify);
    }
    int extract_archive(const std::string &archive) {
        write_package(package_, "EVRM20", head, archive);
        return extract(package_, 0);
    }
    // What a file without a provable signature comes to.
    void expect_refused(const std::string &path, int verify, const Lines &errors) {
        const LogCapture log;
        EXPECT_EQ(extract(path, verify), -1);
        EXPECT_EQ(log.at(LEVEL_ERROR), errors);
        EXPECT_TRUE(fs::is_empty(target_));
    }
    std::string cpio_of(const std::string &dir, const std::string &names,
                        const std::string &filter = "gzip -n") {
        must_run("cd " + shell_word(dir) + " && printf '" + names +
                 "' | cpio -o -H newc --quiet | " + filter + " > " + shell_word(archive_));
        return archive_;
    }

    TestRepo repo_;
    const fs::path before_ = fs::current_path();
    const std::string target_ = repo_.dir() / "target";
    const std::string package_ = repo_.dir() / "foo.vrk";
    const std::string archive_ = repo_.dir() / "archive";
};

// Whether one of the messages begins so.
bool begins(const Lines &messages, const std::string &text) {
    return std::any_of(messages.begin(), messages.end(),
                       [&](const std::string &message) { return message.starts_with(text); });
}

std::string noise(size_t size) {
    std::mt19937 random(1);
    std::string bytes(size, '\0');
    for (char &byte : bytes) {
        byte = static_cast<char>(random());
    }
    return bytes;
}

}  // namespace

TEST_F(VrmVrfExtract, UnpacksASignedPackage) {
    make_package({.data = {{"etc/motd", "hello\n"}, {"usr/bin/tool", "#!/bin/sh\n"}},
                  .init = {{"00-add.sh", "true\n"}},
                  .modes = {{"data/usr/bin/tool", 0751}}},
                 package_);
    const LogCapture log;
    EXPECT_EQ(extract(package_, 1), 0);
    EXPECT_EQ(read_all(target_ + "/data/etc/motd"), "hello\n");
    EXPECT_EQ(read_all(target_ + "/init/00-add.sh"), "true\n");
    EXPECT_TRUE(exists(target_ + "/hash/data.txt"));
    EXPECT_TRUE(exists(target_ + "/info/desc.txt"));
    struct stat st = {};
    ASSERT_EQ(stat((target_ + "/data/usr/bin/tool").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777U, 0751U);
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "Will verify the package signature"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "rc of vrs_verify_rsa: 1"));
    EXPECT_TRUE(log.at(LEVEL_ERROR).empty());
}

TEST_F(VrmVrfExtract, KeepsTimesAndModesWhateverTheUmask) {
    repo_.dir().write("tree/data/a", "a", 0666);
    fs::create_directory(repo_.dir() / "tree/data/empty");
    must_run("cd " + shell_word(repo_.dir() / "tree") +
             " && chmod 0777 data/empty && touch -d @1000000000 data/a data/empty");
    const mode_t umask_before = umask(077);
    const int result =
        extract_archive(cpio_of(repo_.dir() / "tree", "data\\ndata/a\\ndata/empty\\n"));
    umask(umask_before);
    EXPECT_EQ(result, 0);
    for (const auto &[name, mode] :
         std::vector<std::pair<const char *, unsigned>>{{"/data/a", 0666}, {"/data/empty", 0777}}) {
        struct stat st = {};
        ASSERT_EQ(stat((target_ + name).c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 0777U, mode) << name;
        EXPECT_EQ(st.st_mtime, 1000000000) << name;
    }
}

TEST_F(VrmVrfExtract, UnpacksAnUnsignedPackageOnlyWhenNotAskedToVerify) {
    make_package({.data = {{"etc/motd", "hello\n"}}, .sign = false}, package_);
    expect_refused(package_, 1, {"No signature subject found"});
    const LogCapture log;
    EXPECT_EQ(extract(package_, 0), 0);
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "Not verifying the package signature"));
    EXPECT_EQ(read_all(target_ + "/data/etc/motd"), "hello\n");
}

TEST_F(VrmVrfExtract, RefusesASubjectWithoutASignature) {
    make_package({.more = "evrkRsaSigSubj: /O=Test/CN=Builder\n",
                  .data = {{"etc/motd", "hello\n"}},
                  .sign = false},
                 package_);
    expect_refused(package_, 1, {"No signature data found"});
}

TEST_F(VrmVrfExtract, RefusesAWrongSignatureAndTouchesNothing) {
    make_package({.data = {{"etc/motd", "hello\n"}}}, package_);
    std::string bytes = read_all(package_);
    bytes.back() = static_cast<char>(bytes.back() ^ 1);
    repo_.dir().write("foo.vrk", bytes);
    const LogCapture log;
    EXPECT_EQ(extract(package_, 1), -1);
    EXPECT_TRUE(fs::is_empty(target_));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "rc of vrs_verify_rsa: -3"));
    EXPECT_TRUE(log.has(LEVEL_ERROR, "Failure verifying signature of " + package_));
}

TEST_F(VrmVrfExtract, RefusesAnUnknownSigner) {
    const TempDir dir;
    const Signer stranger = Signer::make(dir, "/O=Test/CN=Stranger");
    make_package({.data = {{"etc/motd", "hello\n"}}, .signer = &stranger}, package_);
    expect_refused(package_, 1, {"Failure verifying signature of " + package_});
}

TEST_F(VrmVrfExtract, RefusesASignatureThatCannotBeChecked) {
    // The signer is trusted, but his key is of a kind that takes no digest of ours.
    Signer signer;
    signer.key_file = repo_.dir() / "ed.key";
    signer.cert_file = repo_.dir() / "ed.crt";
    must_run("openssl req -x509 -newkey ed25519 -nodes -days 30 -subj /O=Curve/CN=x -keyout " +
             shell_word(signer.key_file) + " -out " + shell_word(signer.cert_file) + " 2>&1");
    signer.trust_in(repo_.in("certstore"));
    make_package({.more = "evrkRsaSigSubj: /O=Curve/CN=x\nevrkRsaSigData:: AAAA\n",
                  .data = {{"etc/motd", "hello\n"}},
                  .sign = false},
                 package_);
    const LogCapture log;
    EXPECT_EQ(extract(package_, 1), -1);
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "rc of vrs_verify_rsa: 0"));
    EXPECT_EQ(log.at(LEVEL_ERROR), Lines{"Failure verifying signature of " + package_});
    EXPECT_TRUE(fs::is_empty(target_));
}

TEST_F(VrmVrfExtract, TrustsNobodyWithoutAHandle) {
    make_package({.data = {{"etc/motd", "hello\n"}}}, package_);
    const LogCapture log;
    EXPECT_EQ(vrm_vrf_extract(nullptr, package_.c_str(), target_.c_str(), 1), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "Failure verifying signature of " + package_));
    EXPECT_TRUE(fs::is_empty(target_));
}

TEST_F(VrmVrfExtract, ReportsAFileThatCannotBeOpened) {
    expect_refused(repo_.dir() / "none.vrk", 1,
                   {"Failed to open " + (repo_.dir() / "none.vrk") + " for reading"});
    const std::string pipe = repo_.dir() / "pipe.vrk";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    expect_refused(pipe, 1, {"Failed to open " + pipe + " for reading"});
}

TEST_F(VrmVrfExtract, ReportsABadHead) {
    const auto refused = [&](const std::string &bytes, const std::string &message) {
        expect_refused(repo_.dir().write("foo.vrk", bytes), 1, {message});
    };
    refused("", "Only 0 of 6 bytes read in " + package_ + ": Success");
    refused("EVRM2", "Only 5 of 6 bytes read in " + package_ + ": Success");
    refused("EVRM3000000", "Not a valid/supported package file");
    refused("EVRM200001", "Only 4 of 5 bytes read");
    refused("EVRM20abcde", "Failed to read description size");
    refused("EVRM2000005abc", "Only 3 of 5 bytes read");
    refused("EVRM20-0005abc", "Only 0 of -5 bytes read");
    refused("EVRM2000017evrmVersion: 2.0\n", "Failed to parse package header");
}

TEST_F(VrmVrfExtract, ReportsAFileWithoutAnEnd) {
    // A regular file of the kernel in which no position can be sought.
    expect_refused("/proc/self/ns/mnt", 1,
                   {"Failure going to end of /proc/self/ns/mnt: " + std::string(strerror(ESPIPE))});
}

TEST_F(VrmVrfExtract, ReportsAPayloadThatIsNoGzipBehindItsFirstBytes) {
    // The head of gzip, and behind it a block of a kind that doesn't exist.
    const std::string head_of_gzip("\x1f\x8b\x08\0\0\0\0\0\0\x03", 10);
    repo_.dir().write("archive", head_of_gzip + "\x07nonsense");
    const LogCapture log;
    int result = 0;
    EXPECT_EQ(stderr_of([&] { result = extract_archive(archive_); }), "");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(log.at(LEVEL_ERROR),
              Lines{"Failed to read archive by archive_read_open_FILE: gzip decompression failed"});
    EXPECT_TRUE(fs::is_empty(target_));
}

TEST_F(VrmVrfExtract, ReportsAMemberThatDoesNotFit) {
    repo_.dir().write("tree/data/big", noise(300000));
    cpio_of(repo_.dir() / "tree", "data\\ndata/big\\n");
    write_package(package_, "EVRM20", head, archive_);
    const LogCapture log;
    int result = 0;
    {
        const LowerLimit size(RLIMIT_FSIZE, 100000);
        EXPECT_EQ(stderr_of([&] { result = extract(package_, 0); }), "Failed to extract archive\n");
    }
    EXPECT_EQ(result, -1);
    EXPECT_EQ(log.at(LEVEL_ERROR), (Lines{"Failed to copy data: Write failed",
                                          "Failed to write archive by archive_write_finish_entry: "
                                          "Write to restore size failed"}));
    EXPECT_TRUE(log.has(LEVEL_INFO, "archive_write_data_block: File too large"));
}

TEST_F(VrmVrfExtract, DoesNotRestoreOwners) {
    repo_.dir().write("tree/data/a", "a");
    must_run("cd " + shell_word(repo_.dir() / "tree") + " && printf 'data\\ndata/a\\n'" +
             " | cpio -o -H newc --quiet -R 65534:65534 | gzip -n > " + shell_word(archive_));
    EXPECT_EQ(extract_archive(archive_), 0);
    struct stat st = {};
    ASSERT_EQ(stat((target_ + "/data/a").c_str(), &st), 0);
    EXPECT_EQ(st.st_uid, geteuid());
    EXPECT_EQ(st.st_gid, getegid());
}

TEST_F(VrmVrfExtract, UnpacksLinksAndNamesOfAnyLanguage) {
    const std::string tree = repo_.dir() / "tree";
    repo_.dir().write("tree/data/\u00fcber", "content");
    fs::create_hard_link(tree + "/data/\u00fcber", tree + "/data/hard");
    fs::create_symlink("nowhere", tree + "/data/soft");
    EXPECT_EQ(extract_archive(cpio_of(tree, "data\\ndata/hard\\ndata/soft\\ndata/\u00fcber\\n")),
              0);
    EXPECT_EQ(read_all(target_ + "/data/\u00fcber"), "content");
    EXPECT_EQ(read_all(target_ + "/data/hard"), "content");
    EXPECT_EQ(fs::hard_link_count(target_ + "/data/hard"), 2U);
    EXPECT_EQ(fs::read_symlink(target_ + "/data/soft"), "nowhere");
}

TEST_F(VrmVrfExtract, ReportsAMissingTarget) {
    make_package({.data = {{"etc/motd", "hello\n"}}}, package_);
    const LogCapture log;
    const std::string missing = repo_.dir() / "no-target";
    EXPECT_EQ(vrm_vrf_extract(repo_.handle(), package_.c_str(), missing.c_str(), 1), -1);
    EXPECT_EQ(log.at(LEVEL_ERROR), Lines{"Failed to change to installation dir " + missing});
}

TEST_F(VrmVrfExtract, ReportsAWorkingDirectoryThatIsGone) {
    make_package({.data = {{"etc/motd", "hello\n"}}}, package_);
    fs::create_directory(repo_.dir() / "gone");
    {
        const WorkingDir there(repo_.dir() / "gone");
        fs::remove(repo_.dir() / "gone");
        const LogCapture log;
        EXPECT_EQ(extract(package_, 1), -1);
        EXPECT_EQ(log.at(LEVEL_ERROR), Lines{"Failed to read pwd"});
    }
    EXPECT_TRUE(fs::is_empty(target_));
}

TEST_F(VrmVrfExtract, ReportsThatItCannotGoBack) {
    // A member replaces the directory that the caller stands in.
    repo_.dir().write("tree/caller", "a file");
    cpio_of(repo_.dir() / "tree", "caller\\n");
    const std::string caller = fs::path(target_) / "caller";
    fs::create_directory(caller);
    {
        const WorkingDir there(caller);
        const LogCapture log;
        EXPECT_EQ(extract_archive(archive_), -1);
        EXPECT_EQ(log.at(LEVEL_ERROR), Lines{"Failed to return to previous dir " + caller});
    }
    EXPECT_EQ(read_all(caller), "a file");
}

TEST_F(VrmVrfExtract, GoesOnBehindAMemberThatFails) {
    repo_.dir().write("tree/data/a", "");
    repo_.dir().write("tree/data/b", "b");
    cpio_of(repo_.dir() / "tree", "data\\ndata/a\\ndata/b\\n");
    repo_.dir().write("target/data/a/in-the-way", "");
    const Lines errors = errors_of_failure();
    EXPECT_TRUE(begins(errors, "Failed to write header by archive_write_header: "));
    EXPECT_EQ(read_all(target_ + "/data/b"), "b");
}

TEST_F(VrmVrfExtract, FailsOnAPayloadThatBreaksOffInsideAMember) {
    repo_.dir().write("tree/data/big", noise(300000));
    cpio_of(repo_.dir() / "tree", "data\\ndata/big\\n");
    repo_.dir().write("archive", read_all(archive_).substr(0, 150000));
    const Lines errors = errors_of_failure();
    EXPECT_TRUE(begins(errors, "Failed to copy data: "));
    EXPECT_NE(errors.at(0), "Failed to copy data: ") << "the reason is told";
}

TEST_F(VrmVrfExtract, DoesNotNoticeAPayloadThatBreaksOffBetweenMembers) {
    repo_.dir().write("tree/data/a", "a");
    repo_.dir().write("tree/data/b", "b");
    const std::string whole =
        read_all(cpio_of(repo_.dir() / "tree", "data\\ndata/a\\ndata/b\\n", "cat"));
    // Each member begins with the magic of its header: the directory, a, b, the trailer.
    size_t at = 0;
    for (int member = 0; member < 2; member++) {
        at = whole.find("070701", at + 1);
        ASSERT_NE(at, std::string::npos);
    }
    repo_.dir().write("cpio", whole.substr(0, at));
    must_run("gzip -n < " + shell_word(repo_.dir() / "cpio") + " > " + shell_word(archive_));
    const LogCapture log;
    EXPECT_EQ(extract_archive(archive_), 0);
    EXPECT_TRUE(log.at(LEVEL_ERROR).empty());
    EXPECT_EQ(read_all(target_ + "/data/a"), "a");
    EXPECT_FALSE(exists(target_ + "/data/b"));
}

TEST_F(VrmVrfExtract, UnpacksNothingOfAPayloadOfAnotherKindAndSucceeds) {
    repo_.dir().write("tree/data/a", "a");
    must_run("cd " + shell_word(repo_.dir() / "tree") + " && tar cf - data | gzip -n > " +
             shell_word(archive_));
    const LogCapture log;
    EXPECT_EQ(extract_archive(archive_), 0);
    EXPECT_TRUE(fs::is_empty(target_));
    EXPECT_TRUE(log.at(LEVEL_ERROR).empty());
}

TEST_F(VrmVrfExtract, UnpacksNothingOfAnEmptyPayload) {
    repo_.dir().write("archive", "");
    EXPECT_EQ(extract_archive(archive_), 0);
    EXPECT_TRUE(fs::is_empty(target_));
}
