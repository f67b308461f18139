#include "tools/vrk-build/signer.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <unistd.h>

#include <cstring>
#include <ctime>

#include "package/osslutil.h"
#include "tools/vrk-build/problem.h"

static problem crypto_problem(const std::string &what) {
    const unsigned long code = ERR_get_error();
    ERR_clear_error();
    const char *reason = code ? ERR_reason_error_string(code) : nullptr;
    return problem(reason ? what + ": " + reason : what);
}

// Versions of OpenSSL differ in whether they put a backslash in front of these in one line, and
// bytes that are no ASCII stand there in hexadecimal.
static bool is_written_alike_everywhere(const X509_NAME_ENTRY *entry) {
    const ASN1_STRING *value = X509_NAME_ENTRY_get_data(entry);
    const unsigned char *bytes = ASN1_STRING_get0_data(value);
    for (int i = 0; i < ASN1_STRING_length(value); i++) {
        if (bytes[i] < 0x20 || bytes[i] > 0x7e || strchr("/+\\", bytes[i])) {
            return false;
        }
    }
    return true;
}

own_x509_name subject_from(const std::string &text) {
    own_x509_name name(x509_str2subj(text.c_str(), MBSTRING_ASC, 0));
    ERR_clear_error();
    if (!name || X509_NAME_entry_count(name.get()) == 0) {
        throw problem("\"" + text +
                      "\" is no subject; write it like \"/O=My Distribution/CN=Jane\"");
    }
    bool plain = name_line(name.get()) == text;
    for (int i = 0; i < X509_NAME_entry_count(name.get()); i++) {
        plain = plain && is_written_alike_everywhere(X509_NAME_get_entry(name.get(), i));
    }
    if (!plain) {
        throw problem("the subject \"" + text +
                      "\" would not come back the same from a package; use attributes such as C, "
                      "O, OU and CN, and ASCII text without slash, plus sign and backslash");
    }
    return name;
}

own_x509 read_certificate(const std::string &path) {
    std::string why;
    own_x509 certificate = certificate_read(path, &why);
    if (!certificate) {
        throw problem(why);
    }
    return certificate;
}

void check_signer(X509 *certificate, const std::string &certificate_path, const EVP_PKEY *key,
                  const std::string &key_path) {
    try {
        subject_from(certificate_subject(certificate));
    } catch (const problem &wrong) {
        throw problem(certificate_path + " can't sign packages: " + wrong.what());
    }
    if (const std::string fault = certificate_fault(certificate); !fault.empty()) {
        throw problem(certificate_path + " can't sign packages: " + fault);
    }
    if (X509_check_private_key(certificate, key) != 1) {
        ERR_clear_error();
        throw problem("the certificate " + certificate_path + " does not belong to the key " +
                      key_path);
    }
}

std::string signer_remark(const X509 *certificate, const std::string &path) {
    switch (certificate_validity(certificate, time(nullptr))) {
        case validity::expired:
            return "the certificate " + path +
                   " has expired: the package will not be installed with it";
        case validity::not_yet:
            return "the certificate " + path +
                   " is not valid yet: until then the package will not be installed with it";
        case validity::valid:
            break;
    }
    return "";
}

static int ask_passphrase(char *buffer, int size, int writing, void *was_refused) {
    if (isatty(STDIN_FILENO)) {
        return PEM_def_callback(buffer, size, writing, nullptr);
    }
    *static_cast<bool *>(was_refused) = true;
    return -1;
}

own_pkey read_key(const std::string &path) {
    own_file file(fopen(path.c_str(), "re"));
    if (!file) {
        throw system_problem(path);
    }
    bool refused = false;
    own_pkey key(PEM_read_PrivateKey(file.get(), nullptr, ask_passphrase, &refused));
    if (refused) {
        ERR_clear_error();
        throw problem(path +
                      " is encrypted, and its passphrase is only asked for on a terminal; call "
                      "vrk-build from one, or decrypt the key with openssl pkey");
    }
    if (!key) {
        throw crypto_problem(path + " holds no private key in PEM form that can be read");
    }
    if (EVP_PKEY_get_base_id(key.get()) != EVP_PKEY_RSA) {
        throw problem(path + " is not an RSA key, and packages are signed with RSA");
    }
    return key;
}

payload_signature::payload_signature(EVP_PKEY *key) : context_(EVP_MD_CTX_new()) {
    if (!context_ || EVP_DigestSignInit(context_.get(), nullptr, EVP_sha1(), nullptr, key) != 1) {
        throw crypto_problem("the payload can't be signed");
    }
}

void payload_signature::add(const void *bytes, size_t count) {
    if (EVP_DigestSignUpdate(context_.get(), bytes, count) != 1) {
        throw crypto_problem("the payload can't be signed");
    }
}

std::vector<unsigned char> payload_signature::finish() {
    size_t length = 0;
    bool good = EVP_DigestSignFinal(context_.get(), nullptr, &length) == 1;
    std::vector<unsigned char> signature(length);
    good = good && EVP_DigestSignFinal(context_.get(), signature.data(), &length) == 1;
    if (!good) {
        throw crypto_problem("the payload can't be signed");
    }
    signature.resize(length);
    return signature;
}
