#include "tools/vrk-build/keygen.h"

#include <openssl/crypto.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>
#include <unistd.h>

#include <ctime>

#include "support/atomic_file.h"
#include "support/file.h"
#include "tools/vrk-build/problem.h"
#include "tools/vrk-build/signer.h"

// From 2050 on dates of certificates are written in a form that readers of packages take for a date
// long past.
static constexpr int64_t end_of_2049 = 2524607999;

static constexpr unsigned key_bits = 3072;

static void check_days(int days) {
    if (days < 1 || time(nullptr) + int64_t{days} * 86400 > end_of_2049) {
        throw problem("a certificate must be valid for at least a day and end before 2050");
    }
}

static own_x509 make_certificate(const keygen_options &options, EVP_PKEY *key) {
    own_x509_name subject = subject_from(options.subject);
    own_x509 certificate(X509_new());
    // As a positive number of eight bytes, by which the certificates of a subject can be told
    // apart.
    unsigned char random[8];
    uint64_t serial = 1;
    bool good = RAND_bytes(random, sizeof random) == 1;
    for (const unsigned char byte : random) {
        serial = serial << 8 | byte;
    }
    serial = (serial & INT64_MAX) | uint64_t{1} << 62;
    good = good && certificate && X509_set_version(certificate.get(), X509_VERSION_3) == 1 &&
           ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate.get()), serial) == 1 &&
           X509_time_adj_ex(X509_getm_notBefore(certificate.get()), 0, 0, nullptr) &&
           X509_time_adj_ex(X509_getm_notAfter(certificate.get()), options.days, 0, nullptr) &&
           X509_set_subject_name(certificate.get(), subject.get()) == 1 &&
           X509_set_issuer_name(certificate.get(), subject.get()) == 1 &&
           X509_set_pubkey(certificate.get(), key) == 1 &&
           X509_sign(certificate.get(), key, EVP_sha256()) > 0;
    if (!good) {
        throw problem("the certificate can't be made");
    }
    return certificate;
}

static problem exists_already(const std::string &path) {
    return problem(path + " exists already and is not overwritten; choose another name");
}

// Who overwrites a key loses what it has signed, so that is never done here. The key is never
// readable by others, not even for a moment.
static void write_new(const std::string &path, const std::string &pem, mode_t mode) {
    if (pem.empty() || !write_new_file(path, pem, mode)) {
        throw errno == EEXIST ? exists_already(path) : system_problem(path + " can't be written");
    }
}

void keygen(const keygen_options &options) {
    // What can be wrong is told before the key is made, which takes its time.
    subject_from(options.subject);
    check_days(options.days);
    for (const std::string *path : {&options.key_file, &options.certificate_file}) {
        if (path_exists(*path)) {
            throw exists_already(*path);
        }
    }
    own_pkey key(EVP_RSA_gen(key_bits));
    if (!key) {
        throw problem("the key can't be made");
    }
    own_x509 certificate = make_certificate(options, key.get());
    check_signer(certificate.get(), options.certificate_file, key.get(), options.key_file);

    std::string pem = private_key_pem(key.get());
    write_new(options.key_file, pem, 0600);
    OPENSSL_cleanse(pem.data(), pem.size());
    try {
        write_new(options.certificate_file, certificate_pem(certificate.get()), 0644);
    } catch (const std::exception &) {
        unlink(options.key_file.c_str());  // a key without its certificate is of no use
        throw;
    }
}
