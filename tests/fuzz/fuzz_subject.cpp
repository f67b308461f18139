// The signer's subject, which comes from the unsigned head of a package file.

#include <openssl/x509.h>

#include <string>

#include "fuzz.h"
#include "package/osslutil.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    be_quiet();
    const std::string text = text_of(data, size);
    for (const int multi_value : {0, 1}) {
        X509_NAME *name = x509_str2subj(text.c_str(), MBSTRING_ASC, multi_value);
        if (name) {
            X509_NAME_hash_ex(name, nullptr, nullptr, nullptr);
        }
        X509_NAME_free(name);
    }
    return 0;
}
