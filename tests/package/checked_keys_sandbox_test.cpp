// What needs root.
#include <gtest/gtest.h>
#include <openssl/rsa.h>
#include <unistd.h>

#include "kit/temp_dir.h"
#include "package/checked_keys.h"
#include "package/ossl_own.h"

TEST(CheckedKeysOwner, MustBeRootOrTheCaller) {
    const TempDir dir;
    const std::string path = dir / "checked-keys";
    const own_pkey key(EVP_RSA_gen(1024));
    const own_x509 certificate(X509_new());
    ASSERT_EQ(X509_set_pubkey(certificate.get(), key.get()), 1);
    ASSERT_TRUE(note_checked_key(path, certificate.get()));
    EXPECT_TRUE(is_key_noted(path, certificate.get()));
    ASSERT_EQ(chown(path.c_str(), 65534, 65534), 0);
    EXPECT_FALSE(is_key_noted(path, certificate.get()));
    ASSERT_EQ(chown(path.c_str(), 0, 65534), 0);
    EXPECT_TRUE(is_key_noted(path, certificate.get()));
}
