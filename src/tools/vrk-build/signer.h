// Keys and certificates.
//
// A package names its signer by the certificate's subject in one line, "/O=Name/CN=Name", and the
// machine that installs it looks the certificate up by the hash of that text read back. Not every
// subject comes back from there as it was, so each is proven before it is used.
#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string>
#include <vector>

#include "package/certificate.h"
#include "support/own.h"

// Reads a subject in one line; throws a problem when it is not one, or would not come back the
// same from a package, by whatever version of OpenSSL it is read there.
own_x509_name subject_from(const std::string &text);

// The first certificate of a PEM file. Throws a problem; never asks for a passphrase.
own_x509 read_certificate(const std::string &path);

// Throws a problem when no machine would accept what the owner of this certificate signs: packages
// can't name its subject, it has a fault (package/certificate.h), or it isn't the key's.
void check_signer(X509 *certificate, const std::string &certificate_path, const EVP_PKEY *key,
                  const std::string &key_path);

// What speaks against signing with a certificate, though it is possible: that it is not valid
// today. Empty when nothing does.
std::string signer_remark(const X509 *certificate, const std::string &path);

// An RSA key from a PEM file. The passphrase of an encrypted one is asked for if stdin is a
// terminal; otherwise such a key is a problem.
own_pkey read_key(const std::string &path);

// RSASSA-PKCS1-v1_5 with SHA-1 over bytes that come in pieces. Problems are thrown.
class payload_signature {
 public:
    explicit payload_signature(EVP_PKEY *key);
    void add(const void *bytes, size_t count);
    std::vector<unsigned char> finish();

 private:
    std::unique_ptr<EVP_MD_CTX, release_with<EVP_MD_CTX_free>> context_;
};
