#include "package/vrs.h"

#include <fcntl.h>
#include <openssl/sha.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <ctime>
#include <vector>

#include "package/certificate.h"
#include "package/checked_keys.h"
#include "package/ossl_own.h"
#include "package/osslutil.h"
#include "support/boundary.h"
#include "support/digest.h"
#include "support/event.h"
#include "support/file.h"
#include "support/log.h"

namespace {

enum verification {
    VERIFIED = 1,
    STEP_FAILED = 0,
    UNTRUSTED = -2,
    INVALID = -3,
    EXPIRED = -4,
    NOT_YET_VALID = -5,
};

void say_date(const char *label, time_t date) {
    struct tm parts = {};
    localtime_r(&date, &parts);
    log_debug("vrs_vferify_rsa: %s: %4d-%02d-%02d %02d:%02d:%02d", label, parts.tm_year + 1900,
              parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
}

// VERIFIED if the certificate is within its dates.
verification check_dates(const X509 *certificate, time_t now) {
    if (log_wants(LEVEL_DEBUG)) {  // each date costs three looks at the time zone's file
        say_date("Valid from", asn1_utc_time(X509_get0_notBefore(certificate)));
        say_date("Valid until", asn1_utc_time(X509_get0_notAfter(certificate)));
    }
    switch (certificate_validity(certificate, now)) {
        case validity::not_yet:
            report({.kind = event_kind::certificate_not_yet_valid});
            return NOT_YET_VALID;
        case validity::expired:
            report({.kind = event_kind::certificate_expired});
            return EXPIRED;
        case validity::valid:
            break;
    }
    log_debug("vrs_vferify_rsa: Certificate is valid");
    return VERIFIED;
}

// Anybody can compute the private key to a short public one, and then sign.
bool is_long_enough(const EVP_PKEY *key) {
    const int bits = rsa_key_bits(key);
    if (bits == 0 || bits >= least_verified_key_bits) {
        return true;
    }
    report({.kind = event_kind::certificate_key_short,
            .number = bits,
            .total = least_verified_key_bits});
    return false;
}

// Anybody can sign for a public key that was not made as one, such as one with the exponent 1.
bool is_sound(const vrm_handle *handle, const X509 *certificate, EVP_PKEY *key) {
    if (rsa_key_bits(key) == 0 || is_key_noted(checked_keys_path(handle), certificate) ||
        is_sound_key(key)) {
        return true;
    }
    report({.kind = event_kind::certificate_key_unsound});
    return false;
}

// Feeds the rest of the stream to the digest, never holding more than a block of it.
bool digest_stream(EVP_MD_CTX *context, FILE *stream) {
    const own_bio data(BIO_new_fp(stream, BIO_NOCLOSE));
    if (!data) {
        return false;
    }
    std::array<unsigned char, 8192> block;
    uint64_t total = 0;
    for (;;) {
        const int got = BIO_read(data.get(), block.data(), static_cast<int>(block.size() - 1));
        if (got < 0) {
            report({.kind = event_kind::payload_not_digested});
            return false;
        }
        if (got == 0) {
            break;
        }
        if (EVP_DigestVerifyUpdate(context, block.data(), static_cast<size_t>(got)) != 1) {
            return false;
        }
        total += static_cast<uint64_t>(got);
    }
    log_debug("vrs_vferify_rsa: Got %d bytes of package data", told_bytes(total));
    return true;
}

verification verify_payload(EVP_PKEY *key, const unsigned char *signature, int32_t length,
                            FILE *stream) {
    const own_bio filter(BIO_new(BIO_f_md()));
    EVP_MD_CTX *context = nullptr;
    if (!filter || BIO_get_md_ctx(filter.get(), &context) <= 0 || !context) {
        report({.kind = event_kind::signature_not_loaded});
        return STEP_FAILED;
    }
    if (EVP_DigestVerifyInit(context, nullptr, EVP_sha1(), nullptr, key) != 1) {
        report({.kind = event_kind::signature_not_started});
        return STEP_FAILED;
    }
    if (!digest_stream(context, stream)) {
        return STEP_FAILED;
    }
    const bool fits = signature && length > 0 &&
                      EVP_DigestVerifyFinal(context, signature, static_cast<size_t>(length)) >= 1;
    if (!fits) {
        report({.kind = event_kind::signature_wrong});
        return INVALID;
    }
    log_debug("Package signature succesfuly verified");
    return VERIFIED;
}

}  // namespace

int vrs_fverify_rsa(vrm_handle *handle, const char *subject, const unsigned char *signature,
                    int32_t length, FILE *stream) {
    return guarded(STEP_FAILED, [&] {
        const time_t now = time(nullptr);
        const ossl_errors_dropped errors;
        const char *store = ekva_getval(handle->dirs, "certstore");
        const own_x509 certificate = signer_certificate(store ? store : "", subject);
        if (!certificate) {
            return UNTRUSTED;
        }
        const verification dates = check_dates(certificate.get(), now);
        if (dates != VERIFIED) {
            return dates;
        }
        const own_pkey key(X509_get_pubkey(certificate.get()));
        if (!key) {
            report({.kind = event_kind::certificate_key_unusable});
            return STEP_FAILED;
        }
        if (!is_long_enough(key.get()) || !is_sound(handle, certificate.get(), key.get())) {
            return INVALID;
        }
        return verify_payload(key.get(), signature, length, stream);
    });
}

char *vrs_sha1_file(const char *path, char format, char *out) {
    return guarded(nullptr, [&]() -> char * {
        const own_fd file = open_regular(path);
        const ossl_errors_dropped errors;
        const own_md_ctx context(EVP_MD_CTX_new());
        if (!file.valid() || !context ||
            EVP_DigestInit_ex(context.get(), EVP_sha1(), nullptr) != 1) {
            return nullptr;
        }

        // In blocks: what is hashed can be larger than the memory of the machine.
        posix_fadvise(file.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
        std::vector<unsigned char> block(size_t{64} * 1024);
        for (;;) {
            const ssize_t got = read_some(file.get(), block.data(), block.size());
            if (got == 0) {
                break;
            }
            if (got < 0 ||
                EVP_DigestUpdate(context.get(), block.data(), static_cast<size_t>(got)) != 1) {
                return nullptr;
            }
        }
        std::array<unsigned char, SHA_DIGEST_LENGTH> digest;
        if (EVP_DigestFinal_ex(context.get(), digest.data(), nullptr) != 1) {
            return nullptr;
        }
        return sha1_format(digest.data(), format, out);
    });
}
