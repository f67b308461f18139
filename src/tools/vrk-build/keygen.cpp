#include "tools/vrk-build/keygen.h"

#include <fcntl.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>
#include <unistd.h>

#include <ctime>

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

// A new file that nobody else could have put there. The key is never readable by others, not even
// for a moment. Who overwrites a key loses what it has signed, so that is never done here.
static own_file create(const std::string &path, mode_t mode) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (fd < 0 && errno == EEXIST) {
        throw exists_already(path);
    }
    if (fd < 0) {
        throw system_problem(path + " can't be written");
    }
    own_file file(fdopen(fd, "w"));
    if (!file) {
        close(fd);
        unlink(path.c_str());
        throw std::bad_alloc();
    }
    return file;
}

// Writes a new file by `write`, which tells whether it could. It is there whole or not at all.
template <typename Write>
static void write_new(const std::string &path, mode_t mode, Write write) {
    own_file file = create(path, mode);
    errno = 0;
    bool good = write(file.get()) == 1 && fflush(file.get()) == 0 && fsync(fileno(file.get())) == 0;
    good = fclose(file.release()) == 0 && good;
    if (!good) {
        const problem failure = errno ? system_problem(path + " can't be written")
                                      : problem(path + " can't be written");
        unlink(path.c_str());
        throw failure;
    }
}

void keygen(const keygen_options &options) {
    // What can be wrong is told before the key is made, which takes its time.
    subject_from(options.subject);
    check_days(options.days);
    for (const std::string *path : {&options.key_file, &options.certificate_file}) {
        if (access(path->c_str(), F_OK) == 0) {
            throw exists_already(*path);
        }
    }
    own_pkey key(EVP_RSA_gen(key_bits));
    if (!key) {
        throw problem("the key can't be made");
    }
    own_x509 certificate = make_certificate(options, key.get());
    check_signer(certificate.get(), options.certificate_file, key.get(), options.key_file);

    write_new(options.key_file, 0600, [&key](FILE *file) {
        return PEM_write_PrivateKey(file, key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    });
    try {
        write_new(options.certificate_file, 0644,
                  [&certificate](FILE *file) { return PEM_write_X509(file, certificate.get()); });
    } catch (const std::exception &) {
        unlink(options.key_file.c_str());  // a key without its certificate is of no use
        throw;
    }
}
