#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "package/certificate.h"
#include "package/checked_keys.h"
#include "pvrm/interruption.h"
#include "pvrm/session.h"
#include "pvrm/tell.h"
#include "pvrm/trust_prompt.h"
#include "pvrm/trust_store.h"
#include "pvrm/words.h"
#include "ui/vrmui.h"

namespace {

// What is in the store where a certificate is to go.
enum class place { free, holds_it, holds_other, taken };

}  // namespace

// Looks at the file, and prints what it holds when that is not this certificate.
static place look_at(const std::string &path, const X509 *certificate) {
    if (access(path.c_str(), F_OK) != 0) {
        return place::free;
    }
    std::string why;
    const own_x509 present = certificate_read(path, &why);
    if (!present) {
        tell_problem("%s; trusting this signer replaces it", why.c_str());
        return place::holds_other;
    }
    if (X509_cmp(present.get(), certificate) == 0) {
        return place::holds_it;
    }
    const std::string subject = certificate_subject(present.get());
    if (subject != certificate_subject(certificate)) {
        tell_problem(
            "cannot trust this signer: %s holds the certificate of %s, and the store can't hold "
            "both; use another subject, or remove that one with: pvrm distrust %s",
            path.c_str(), subject.c_str(), certificate_fingerprint(present.get()).c_str());
        return place::taken;
    }
    tell_problem(
        "%s holds another certificate of this subject, with the SHA-256 %s; trusting this one, "
        "with the SHA-256 %s, replaces it",
        path.c_str(), certificate_fingerprint(present.get()).c_str(),
        certificate_fingerprint(certificate).c_str());
    return place::holds_other;
}

// Whether the user wants it, by an answer or by the options.
static exit_status ask_to_trust(const session &work, const trust_options &what, bool replaces) {
    if (!may_ask_about_trust(work.options, "trust")) {
        return EXIT_WRONG_USAGE;
    }
    if (!replaces || what.replace) {
        return user_consents("Trust packages of this signer?", 1) ? EXIT_DONE : EXIT_FAILED;
    }
    // A default answer does not agree to give up the certificate that was trusted so far.
    if (vote_mode != 1) {
        tell_problem("nothing was changed: to replace what the store holds, add --replace");
        return EXIT_FAILED;
    }
    return user_consents("Trust this signer instead?", 0) ? EXIT_DONE : EXIT_FAILED;
}

// Spares later verifications the check that the key just passed. Without the note they only take
// longer.
static void note_key(const session &work, const X509 *certificate) {
    const std::string path = checked_keys_path(work.repository());
    if (!note_checked_key(path, certificate)) {
        tell_warning("cannot write %s: %s; verifications will check the key each time",
                     path.c_str(), strerror(errno));
    }
}

static exit_status trust(session &work, const trust_options &what) {
    std::string why;
    const own_x509 certificate = certificate_read(what.certificate, &why);
    if (!certificate) {
        tell_problem("%s", why.c_str());
        return EXIT_FAILED;
    }
    show_certificate(certificate.get());
    if (const std::string fault = certificate_fault(certificate.get()); !fault.empty()) {
        tell_problem("cannot trust %s: %s", what.certificate.c_str(), fault.c_str());
        return EXIT_FAILED;
    }
    if (!work.options.dry_run) {
        hold_signals();
        if (const exit_status locked = work.lock()) {
            return locked;
        }
    }
    const std::string target = store_of(work.repository()) + "/" +
                               stored_certificate_name(X509_get_subject_name(certificate.get()));
    const place found = look_at(target, certificate.get());
    if (found == place::holds_it) {
        if (!work.options.dry_run) {
            note_key(work, certificate.get());
        }
        tell_step("this certificate is trusted already");
        return EXIT_DONE;
    }
    if (found == place::taken) {
        return EXIT_FAILED;
    }
    if (work.options.dry_run) {
        tell_step("would trust it as %s", target.c_str());
        return EXIT_DONE;
    }
    if (const exit_status refused = ask_to_trust(work, what, found == place::holds_other)) {
        return refused;
    }
    if (!store_certificate(certificate.get(), target)) {
        return EXIT_FAILED;
    }
    note_key(work, certificate.get());
    tell_step("trusted as %s", target.c_str());
    return EXIT_DONE;
}

// Lists the certificates that the verification can find, and reports what else is in the store.
static exit_status list_trusted(const session &work) {
    const store_content content = read_store(store_of(work.repository()));
    bool good = content.was_read, first = true;
    for (const stored_certificate &file : content.files) {
        if (!file.problem.empty()) {
            tell_problem("%s", file.problem.c_str());
            good = false;
            continue;
        }
        if (!first) {
            printf("\n");
        }
        first = false;
        show_certificate(file.certificate.get());
        if (const std::string fault = certificate_fault(file.certificate.get()); !fault.empty()) {
            tell_warning("%s should not be trusted: %s", file.path.c_str(), fault.c_str());
        }
    }
    if (content.was_read && content.files.empty()) {
        tell_step("nobody is trusted");
    }
    return good ? EXIT_DONE : EXIT_FAILED;
}

exit_status word_trust(const common_options &options, const trust_options &what) {
    session work(options);
    if (!work.open_repository() || !work.has_directories({"certstore"})) {
        return EXIT_FAILED;
    }
    return what.list ? list_trusted(work) : trust(work, what);
}
