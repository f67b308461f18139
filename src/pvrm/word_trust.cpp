#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

#include "package/osslutil.h"
#include "pvrm/exit_status.h"
#include "pvrm/interruption.h"
#include "pvrm/session.h"
#include "pvrm/sizes.h"
#include "pvrm/tell.h"
#include "pvrm/words.h"
#include "support/terminal_text.h"
#include "ui/vrmui.h"

using own_certificate = std::unique_ptr<X509, release_with<X509_free>>;
using own_name = std::unique_ptr<X509_NAME, release_with<X509_NAME_free>>;

// A certificate needs no password, and a file that wants one holds something else.
static int no_password(char *, int, int, void *) {
    return -1;
}

static own_certificate read_certificate(const std::string &path) {
    struct stat status;
    // Looked at before it is opened: opening a pipe would wait for a writer.
    if (stat(path.c_str(), &status) != 0) {
        tell_problem("%s: %s", path.c_str(), strerror(errno));
        return nullptr;
    }
    if (!S_ISREG(status.st_mode)) {
        tell_problem("%s is not a regular file", path.c_str());
        return nullptr;
    }
    own_file file(fopen(path.c_str(), "re"));
    if (!file) {
        tell_problem("%s: %s", path.c_str(), strerror(errno));
        return nullptr;
    }
    own_certificate certificate(PEM_read_X509_AUX(file.get(), nullptr, no_password, nullptr));
    if (!certificate) {
        tell_problem("%s holds no certificate in PEM form", path.c_str());
    }
    return certificate;
}

static std::string subject_of(const X509 *certificate) {
    char *text = X509_NAME_oneline(X509_get_subject_name(certificate), nullptr, 0);
    std::string subject = text ? text : "";
    OPENSSL_free(text);
    return subject;
}

static std::string fingerprint_of(const X509 *certificate) {
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

static unsigned long hash_of(X509_NAME *name) {
    return X509_NAME_hash_ex(name, nullptr, nullptr, nullptr);
}

// Whether the verification will find the certificate: it looks for it by the signer's name as the
// package writes it, the one-line form, which does not carry every name.
static bool can_be_found(const X509 *certificate, const std::string &subject) {
    own_name parsed(x509_str2subj(subject.c_str(), MBSTRING_ASC, 0));
    return parsed && hash_of(parsed.get()) == hash_of(X509_get_subject_name(certificate));
}

// Whether the certificate can ever verify a package; tells why not.
static bool is_of_use(const X509 *certificate, const std::string &subject) {
    if (!can_be_found(certificate, subject)) {
        tell_problem(
            "the certificate's subject %s can't be written in a package: use one with plain "
            "names and no slashes in them",
            subject.c_str());
        return false;
    }
    const ASN1_TIME *end = X509_get0_notAfter(certificate);
    if (ASN1_STRING_type(X509_get0_notBefore(certificate)) != V_ASN1_UTCTIME ||
        ASN1_STRING_type(end) != V_ASN1_UTCTIME) {
        tell_problem(
            "the certificate's dates pass the year 2049, which counts as expired: use one "
            "that ends earlier");
        return false;
    }
    const EVP_PKEY *key = X509_get0_pubkey(certificate);
    if (!key || EVP_PKEY_get_base_id(key) != EVP_PKEY_RSA) {
        tell_problem("the certificate's key is not an RSA key, and packages are signed with RSA");
        return false;
    }
    return true;
}

// Not by asn1_utc_time: dates from 2050 on have another form, which it takes for one long past, and
// what is shown must be true.
static std::string date_of(const ASN1_TIME *date) {
    struct tm parts = {};
    return ASN1_TIME_to_tm(date, &parts) == 1 ? nice_date(timegm(&parts)) : "unknown";
}

static void show(const X509 *certificate, const std::string &subject) {
    printf("Subject:      %s\n", terminal_safe_cell(subject).c_str());
    printf("Valid from:   %s\n", date_of(X509_get0_notBefore(certificate)).c_str());
    printf("Valid until:  %s\n", date_of(X509_get0_notAfter(certificate)).c_str());
    printf("SHA-256:      %s\n", fingerprint_of(certificate).c_str());
    fflush(stdout);
    if (X509_cmp_current_time(X509_get0_notAfter(certificate)) < 0) {
        tell_problem("warning: this certificate has expired");
    } else if (X509_cmp_current_time(X509_get0_notBefore(certificate)) > 0) {
        tell_problem("warning: this certificate is not valid yet");
    }
}

// Writes the certificate under its name in one move, so that a reader never meets half of it.
static bool store(const X509 *certificate, const std::string &path) {
    const std::string unfinished = path + ".new";
    own_file file(fopen(unfinished.c_str(), "we"));
    bool good = file && PEM_write_X509(file.get(), certificate) == 1 && fflush(file.get()) == 0 &&
                fchmod(fileno(file.get()), 0644) == 0;
    if (file) {
        good = fclose(file.release()) == 0 && good;
    }
    good = good && rename(unfinished.c_str(), path.c_str()) == 0;
    if (!good) {
        tell_problem("%s can't be written: %s", path.c_str(), strerror(errno));
        unlink(unfinished.c_str());
    }
    return good;
}

int word_trust(const common_options &options, const std::string &path) {
    session work(options);
    if (!work.open_repository() || !work.has_directories({"certstore"})) {
        return EXIT_FAILED;
    }
    own_certificate certificate = read_certificate(path);
    if (!certificate) {
        return EXIT_FAILED;
    }
    const std::string subject = subject_of(certificate.get());
    show(certificate.get(), subject);
    if (!is_of_use(certificate.get(), subject)) {
        return EXIT_FAILED;
    }

    if (!options.dry_run) {
        hold_signals();
        if (const int locked = work.lock()) {
            return locked;
        }
    }
    char name[32];
    snprintf(name, sizeof name, "%08lx.crt", hash_of(X509_get_subject_name(certificate.get())));
    const std::string target =
        std::string(ekva_getval(work.repository()->dirs, "certstore")) + "/" + name;
    struct stat status;
    if (lstat(target.c_str(), &status) == 0) {
        own_certificate present = read_certificate(target);
        if (present && X509_cmp(present.get(), certificate.get()) == 0) {
            tell_step("this certificate is trusted already");
            return EXIT_DONE;
        }
        tell_problem("%s holds another certificate for this subject; it would be replaced",
                     target.c_str());
    }
    if (options.dry_run) {
        tell_step("would trust it as %s", target.c_str());
        return EXIT_DONE;
    }
    if (vrmui_yesno(vrmui, "Trust packages of this signer?", 1) != 1 || was_interrupted()) {
        tell_problem("nothing was changed");
        return EXIT_FAILED;
    }
    if (!store(certificate.get(), target)) {
        return EXIT_FAILED;
    }
    tell_step("trusted as %s", target.c_str());
    return EXIT_DONE;
}
