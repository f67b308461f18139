#include "package/certificate.h"

#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <vector>

#include "package/osslutil.h"
#include "support/event.h"
#include "support/file.h"

// A certificate needs no passphrase. A file that wants one holds something else, and must not make
// OpenSSL ask on the terminal.
static int no_passphrase(char *, int, int, void *) {
    return -1;
}

own_x509 certificate_read(const std::string &path, std::string *why) {
    const ossl_errors_dropped errors;
    struct stat status;
    const char *reason = nullptr;
    const own_file stream(fopen_regular(path.c_str(), &status, &reason));
    if (!stream) {
        const bool other = status.st_mode != 0 && !S_ISREG(status.st_mode);
        if (why) {
            *why = other ? path + " is not a regular file" : "cannot open " + path + ": " + reason;
        }
        return nullptr;
    }
    own_x509 certificate(PEM_read_X509_AUX(stream.get(), nullptr, no_passphrase, nullptr));
    if (!certificate && why) {
        *why = path + " holds no certificate in PEM form";
    }
    return certificate;
}

// What `write` writes to the BIO that it is given; empty, with ENOMEM in errno, when it can't.
template <typename Write>
static std::string pem_of(const Write &write) {
    const own_bio memory(BIO_new(BIO_s_mem()));
    char *text = nullptr;
    if (!memory || write(memory.get()) != 1) {
        errno = ENOMEM;
        return "";
    }
    const long length = BIO_get_mem_data(memory.get(), &text);
    return {text, static_cast<size_t>(length)};
}

std::string certificate_pem(const X509 *certificate) {
    return pem_of([&](BIO *out) { return PEM_write_bio_X509(out, certificate); });
}

std::string private_key_pem(const EVP_PKEY *key) {
    return pem_of([&](BIO *out) {
        return PEM_write_bio_PrivateKey(out, key, nullptr, nullptr, 0, nullptr, nullptr);
    });
}

std::string name_line(const X509_NAME *name) {
    const std::unique_ptr<char, decltype([](char *text) { OPENSSL_free(text); })> line(
        X509_NAME_oneline(name, nullptr, 0));
    return line ? line.get() : "";
}

std::string certificate_subject(const X509 *certificate) {
    return name_line(X509_get_subject_name(certificate));
}

std::string certificate_fingerprint(const X509 *certificate) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    if (X509_digest(certificate, EVP_sha256(), digest, &length) != 1) {
        return "";
    }
    std::string text;
    for (unsigned i = 0; i < length; i++) {
        char byte[4];
        snprintf(byte, sizeof byte, "%s%02X", i ? ":" : "", digest[i]);
        text += byte;
    }
    return text;
}

static unsigned long hash_of(const X509_NAME *name) {
    return X509_NAME_hash_ex(name, nullptr, nullptr, nullptr);
}

std::string stored_certificate_name(const X509_NAME *subject) {
    char name[32];
    snprintf(name, sizeof name, "%08lx.crt", hash_of(subject));
    return name;
}

own_x509 signer_certificate(const std::string &store, const char *subject) {
    const own_x509_name name(subject ? x509_str2subj(subject, MBSTRING_ASC, 0) : nullptr);
    if (!name) {
        report({.kind = event_kind::signer_unparsable, .other = subject ? subject : ""});
        return nullptr;
    }
    const std::string path = store + '/' + stored_certificate_name(name.get());
    own_x509 certificate = certificate_read(path, nullptr);
    if (!certificate) {
        report({.kind = is_missing(path.c_str()) ? event_kind::certificate_missing
                                                 : event_kind::certificate_unreadable,
                .path = path});
    } else if (certificate_subject(certificate.get()) != subject) {
        report({.kind = event_kind::certificate_of_another});
        certificate.reset();
    }
    return certificate;
}

// Not by asn1_utc_time, which takes dates from 2050 on for long past: what is shown must be true.
static std::optional<time_t> true_date(const ASN1_TIME *date) {
    struct tm parts = {};
    if (ASN1_TIME_to_tm(date, &parts) != 1) {
        return std::nullopt;
    }
    return timegm(&parts);
}

std::optional<certificate_dates> dates_of_certificate(const X509 *certificate) {
    const ossl_errors_dropped errors;
    const std::optional<time_t> from = true_date(X509_get0_notBefore(certificate));
    const std::optional<time_t> until = true_date(X509_get0_notAfter(certificate));
    if (!from || !until) {
        return std::nullopt;
    }
    return certificate_dates{*from, *until};
}

validity certificate_validity(const X509 *certificate, time_t now) {
    if (asn1_utc_time(X509_get0_notBefore(certificate)) > now) {
        return validity::not_yet;
    }
    return asn1_utc_time(X509_get0_notAfter(certificate)) < now ? validity::expired
                                                                : validity::valid;
}

int rsa_key_bits(const EVP_PKEY *key) {
    const bool is_rsa = key && (EVP_PKEY_get_base_id(key) == EVP_PKEY_RSA ||
                                EVP_PKEY_get_base_id(key) == EVP_PKEY_RSA_PSS);
    return is_rsa ? EVP_PKEY_get_bits(key) : 0;
}

bool is_sound_key(EVP_PKEY *key) {
    // The check takes several milliseconds, more than all else that a small package needs, and the
    // packages of one command have few signers. Only keys that passed are kept: what is refused is
    // checked each time.
    static thread_local std::vector<own_pkey> sound;
    constexpr size_t most_kept = 16;
    const ossl_errors_dropped errors;
    const auto same = [key](const own_pkey &other) { return EVP_PKEY_eq(key, other.get()) == 1; };
    if (key && std::any_of(sound.begin(), sound.end(), same)) {
        return true;
    }
    const own_pkey_ctx context(EVP_PKEY_CTX_new(key, nullptr));
    if (!context || EVP_PKEY_get_bits(key) > most_key_bits ||
        EVP_PKEY_public_check(context.get()) != 1) {
        return false;
    }
    if (sound.size() < most_kept && EVP_PKEY_up_ref(key) == 1) {
        sound.emplace_back(key);
    }
    return true;
}

// Whether the verification can find the certificate by the line that packages name its signer by,
// which does not carry every name.
static bool can_be_found(const X509_NAME *subject) {
    const std::string line = name_line(subject);
    const own_x509_name parsed(x509_str2subj(line.c_str(), MBSTRING_ASC, 0));
    return parsed && hash_of(parsed.get()) == hash_of(subject);
}

static bool has_utc_dates(const X509 *certificate) {
    return ASN1_STRING_type(X509_get0_notBefore(certificate)) == V_ASN1_UTCTIME &&
           ASN1_STRING_type(X509_get0_notAfter(certificate)) == V_ASN1_UTCTIME;
}

// A certificate that says nothing of its use may be used for all. This function sets all bits then,
// and none when an extension makes no sense.
static bool may_sign(const X509 *certificate) {
    return (X509_get_key_usage(const_cast<X509 *>(certificate)) & KU_DIGITAL_SIGNATURE) != 0;
}

std::string certificate_fault(const X509 *certificate) {
    const ossl_errors_dropped errors;
    const X509_NAME *subject = X509_get_subject_name(certificate);
    if (!can_be_found(subject)) {
        return "its subject " + name_line(subject) +
               " can't be written in a package; use one with plain names and no slashes in them";
    }
    if (!has_utc_dates(certificate)) {
        return "its dates pass the year 2049, which counts as expired; use one that ends earlier";
    }
    EVP_PKEY *key = X509_get0_pubkey(certificate);
    if (!key || EVP_PKEY_get_base_id(key) != EVP_PKEY_RSA) {
        return "its key is not an RSA key, and packages are signed with RSA";
    }
    const int bits = rsa_key_bits(key);
    if (bits < least_key_bits) {
        return "its RSA key has " + std::to_string(bits) + " bits, and at least " +
               std::to_string(least_key_bits) + " are needed; make a new key and certificate";
    }
    if (bits > most_key_bits) {
        return "its RSA key has " + std::to_string(bits) + " bits, and at most " +
               std::to_string(most_key_bits) + " can be used; make a new key and certificate";
    }
    if (!is_sound_key(key)) {
        return "its RSA key is not sound, anybody could sign with it; make a new key and "
               "certificate";
    }
    if (!may_sign(certificate)) {
        return "it may not sign, as its key usage lacks digitalSignature; use a certificate for "
               "signatures";
    }
    return "";
}
