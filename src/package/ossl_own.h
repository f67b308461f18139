// Owners for objects of OpenSSL.
#pragma once

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>

#include "support/own.h"

using own_bio = std::unique_ptr<BIO, release_with<BIO_free_all>>;
using own_x509 = std::unique_ptr<X509, release_with<X509_free>>;
using own_x509_name = std::unique_ptr<X509_NAME, release_with<X509_NAME_free>>;
using own_pkey = std::unique_ptr<EVP_PKEY, release_with<EVP_PKEY_free>>;
using own_pkey_ctx = std::unique_ptr<EVP_PKEY_CTX, release_with<EVP_PKEY_CTX_free>>;
using own_md = std::unique_ptr<EVP_MD, release_with<EVP_MD_free>>;
using own_md_ctx = std::unique_ptr<EVP_MD_CTX, release_with<EVP_MD_CTX_free>>;

// Takes what OpenSSL queues during its life off the error queue again: our failures are told by
// results and log lines, and a rest in the queue would be found by whoever looks there next.
class ossl_errors_dropped {
 public:
    ossl_errors_dropped() {
        ERR_set_mark();
    }
    ~ossl_errors_dropped() {
        ERR_pop_to_mark();
    }
    ossl_errors_dropped(const ossl_errors_dropped &) = delete;
    ossl_errors_dropped &operator=(const ossl_errors_dropped &) = delete;
};
