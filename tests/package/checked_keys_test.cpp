#include "package/checked_keys.h"

#include <gtest/gtest.h>
#include <openssl/rsa.h>
#include <sys/stat.h>

#include <string>

#include "kit/capture.h"
#include "kit/temp_dir.h"
#include "package/ossl_own.h"

namespace {

// A certificate that has a key and nothing else.
own_x509 new_certificate() {
    const own_pkey key(EVP_RSA_gen(1024));
    own_x509 certificate(X509_new());
    EXPECT_TRUE(key && certificate);
    EXPECT_EQ(X509_set_pubkey(certificate.get(), key.get()), 1);
    return certificate;
}

class CheckedKeys : public testing::Test {
 protected:
    CheckedKeys() : path_(dir_ / "checked-keys"), key_(new_certificate()) {}

    const TempDir dir_;
    const std::string path_;
    const own_x509 key_;
};

}  // namespace

TEST_F(CheckedKeys, AreThoseThatWereNoted) {
    const own_x509 other = new_certificate();
    EXPECT_FALSE(is_key_noted(path_, key_.get()));
    ASSERT_TRUE(note_checked_key(path_, key_.get()));
    EXPECT_TRUE(is_key_noted(path_, key_.get()));
    EXPECT_FALSE(is_key_noted(path_, other.get()));
    ASSERT_TRUE(note_checked_key(path_, other.get()));
    EXPECT_TRUE(is_key_noted(path_, key_.get()));
    EXPECT_TRUE(is_key_noted(path_, other.get()));
}

TEST_F(CheckedKeys, AreNotedOnce) {
    ASSERT_TRUE(note_checked_key(path_, key_.get()));
    const std::string once = read_all(path_);
    ASSERT_TRUE(note_checked_key(path_, key_.get()));
    EXPECT_EQ(read_all(path_), once);
    struct stat status = {};
    ASSERT_EQ(stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0644u);
}

TEST_F(CheckedKeys, AreNotBelievedWhenOthersMayWriteTheFile) {
    ASSERT_TRUE(note_checked_key(path_, key_.get()));
    for (const mode_t mode : {0664U, 0646U}) {
        ASSERT_EQ(chmod(path_.c_str(), mode), 0);
        EXPECT_FALSE(is_key_noted(path_, key_.get())) << std::oct << mode;
    }
    // What was in there may be anybody's.
    const own_x509 other = new_certificate();
    ASSERT_TRUE(note_checked_key(path_, other.get()));
    EXPECT_TRUE(is_key_noted(path_, other.get()));
    EXPECT_FALSE(is_key_noted(path_, key_.get()));
}

TEST_F(CheckedKeys, AreNotBelievedBehindALink) {
    const std::string elsewhere = dir_ / "elsewhere";
    ASSERT_TRUE(note_checked_key(elsewhere, key_.get()));
    ASSERT_EQ(symlink(elsewhere.c_str(), path_.c_str()), 0);
    EXPECT_FALSE(is_key_noted(path_, key_.get()));
    // The link is replaced.
    const std::string before = read_all(elsewhere);
    ASSERT_TRUE(note_checked_key(path_, key_.get()));
    EXPECT_TRUE(is_key_noted(path_, key_.get()));
    EXPECT_EQ(read_all(elsewhere), before);
    struct stat status = {};
    ASSERT_EQ(lstat(path_.c_str(), &status), 0);
    EXPECT_TRUE(S_ISREG(status.st_mode));
}

TEST_F(CheckedKeys, AreNotBelievedAboveAMebibyte) {
    ASSERT_TRUE(note_checked_key(path_, key_.get()));
    const std::string text = read_all(path_);
    dir_.write("checked-keys", text + std::string((size_t{1} << 20) - text.size(), '\n'));
    EXPECT_TRUE(is_key_noted(path_, key_.get()));
    dir_.write("checked-keys", text + std::string((size_t{1} << 20) + 1 - text.size(), '\n'));
    EXPECT_FALSE(is_key_noted(path_, key_.get()));
}

TEST_F(CheckedKeys, AreNotBelievedInAnotherFormat) {
    ASSERT_TRUE(note_checked_key(path_, key_.get()));
    const std::string text = read_all(path_);
    const size_t first = text.find('\n') + 1;
    dir_.write("checked-keys", "checked keys, format 2\n" + text.substr(first));
    EXPECT_FALSE(is_key_noted(path_, key_.get()));
    dir_.write("checked-keys", text.substr(first));
    EXPECT_FALSE(is_key_noted(path_, key_.get()));
    dir_.write("checked-keys", "");
    EXPECT_FALSE(is_key_noted(path_, key_.get()));
    // A line that is cut, and one that begins with something else.
    dir_.write("checked-keys", text.substr(0, text.size() - 1));
    EXPECT_FALSE(is_key_noted(path_, key_.get()));
    dir_.write("checked-keys", text.substr(0, first) + "#" + text.substr(first));
    EXPECT_FALSE(is_key_noted(path_, key_.get()));
}

TEST_F(CheckedKeys, CannotBeNotedWhereNothingCanBeWritten) {
    EXPECT_FALSE(note_checked_key(dir_ / "missing/checked-keys", key_.get()));
    ASSERT_EQ(mkfifo(path_.c_str(), 0644), 0);
    EXPECT_FALSE(is_key_noted(path_, key_.get()));  // and does not wait for a writer
}
