#include <string>
#include <vector>

#include "pvrm/interruption.h"
#include "pvrm/session.h"
#include "pvrm/tell.h"
#include "pvrm/trust_prompt.h"
#include "pvrm/trust_store.h"
#include "pvrm/words.h"

// The files of the one certificate that the user means; none, with the reason printed, when there
// is no such certificate or more than one.
static std::vector<const stored_certificate *> find_one(const store_content &content,
                                                        const std::string &wanted) {
    std::vector<const stored_certificate *> found = find_stored(content, wanted);
    if (found.empty()) {
        tell_problem(
            "%s is neither the subject of a trusted certificate nor %zu or more digits of the "
            "SHA-256 of one; pvrm trust --list shows them",
            wanted.c_str(), least_fingerprint_digits);
    }
    for (const stored_certificate *file : found) {
        if (file->fingerprint != found.front()->fingerprint) {
            tell_problem("%s means several certificates; give more of the SHA-256 of one of them",
                         wanted.c_str());
            return {};
        }
    }
    return found;
}

exit_status word_distrust(const common_options &options, const std::string &signer) {
    session work(options);
    if (!work.open_repository() || !work.has_directories({"certstore"})) {
        return EXIT_FAILED;
    }
    if (!options.dry_run) {
        hold_signals();
        if (const exit_status locked = work.lock()) {
            return locked;
        }
    }
    const store_content content = read_store(store_of(work.repository()));
    if (!content.was_read) {
        return EXIT_FAILED;
    }
    const std::vector<const stored_certificate *> files = find_one(content, signer);
    if (files.empty()) {
        return EXIT_FAILED;
    }
    show_certificate(files.front()->certificate.get());
    for (const stored_certificate *file : files) {
        if (options.dry_run) {
            tell_step("would remove %s", file->path.c_str());
        }
    }
    if (options.dry_run) {
        return EXIT_DONE;
    }
    if (!may_ask_about_trust(options, "distrust")) {
        return EXIT_WRONG_USAGE;
    }
    if (!user_consents("Trust packages of this signer no more?", 1)) {
        return EXIT_FAILED;
    }
    bool good = true;
    for (const stored_certificate *file : files) {
        if (remove_from_store(file->path)) {
            tell_step("removed %s", file->path.c_str());
        } else {
            good = false;
        }
    }
    return good ? EXIT_DONE : EXIT_FAILED;
}
