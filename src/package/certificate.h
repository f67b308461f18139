// Certificates of signers: how they are read and named, and what they are good for.
//
// A package names its signer by the subject of the certificate in one line, "/O=Name/CN=Name". The
// store of a machine (package/vrs.h) keeps the certificate in a file named by the hash of the
// subject, so a certificate is found only when its subject can be read back from that line.
#pragma once

#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <ctime>
#include <optional>
#include <string>

#include "package/ossl_own.h"

// The least size of an RSA key in bits: for a certificate that is newly trusted or signed with, and
// for a signature to count at all.
inline constexpr int least_key_bits = 2048;
inline constexpr int least_verified_key_bits = 1024;
// The largest size that OpenSSL computes with.
inline constexpr int most_key_bits = OPENSSL_RSA_MAX_MODULUS_BITS;

// The first certificate of a PEM file, which must be a regular file; a link to one is followed. No
// passphrase is ever asked for. Null on a failure; `why`, unless null, then receives the message
// for the user, which names the path.
own_x509 certificate_read(const std::string &path, std::string *why);

// A certificate in PEM form; empty, with ENOMEM in errno, when memory fails.
std::string certificate_pem(const X509 *certificate);

// The same for a private key, which is not encrypted. The caller clears the text.
std::string private_key_pem(const EVP_PKEY *key);

// A name in one line, as packages write it; empty when memory fails.
std::string name_line(const X509_NAME *name);
std::string certificate_subject(const X509 *certificate);

// The SHA-256 of a certificate as pairs of upper-case hexadecimal digits with colons between them;
// empty when it can't be computed.
std::string certificate_fingerprint(const X509 *certificate);

// The name of the file in the store that holds the certificate of a subject: "%08lx.crt" of the
// subject's hash.
std::string stored_certificate_name(const X509_NAME *subject);

// The certificate of a signer, named by its subject in one line, from a store. Null, with the
// reason reported, when the signer is not trusted: the subject doesn't parse, no certificate lies
// in its place, or that of another subject does.
own_x509 signer_certificate(const std::string &store, const char *subject);

// The dates of a certificate in seconds since the epoch, for people. Nothing when one can't be
// read.
struct certificate_dates {
    time_t from = 0, until = 0;
};
std::optional<certificate_dates> dates_of_certificate(const X509 *certificate);

// Where a moment lies in the validity of a certificate as the verification sees it: a date from
// 2050 on counts as long past (asn1_utc_time in package/osslutil.h). The start is looked at first.
enum class validity { not_yet, valid, expired };
validity certificate_validity(const X509 *certificate, time_t now);

// The size of an RSA key in bits, 0 for a key of another type and for none.
int rsa_key_bits(const EVP_PKEY *key);

// Whether the numbers of a public key can be those of a key that was made for signatures. With the
// exponent 1, for one, everybody can sign. A key of more than most_key_bits never is.
bool is_sound_key(EVP_PKEY *key);

// Why a machine should not begin to trust packages of this certificate's owner, or could never
// verify one: a clause such as "its key is not an RSA key, ...". Empty when nothing speaks against
// it. The dates of validity are left out: they change by themselves.
std::string certificate_fault(const X509 *certificate);
