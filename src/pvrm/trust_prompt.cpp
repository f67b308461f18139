#include "pvrm/trust_prompt.h"

#include <cstdio>
#include <ctime>
#include <optional>

#include "package/certificate.h"
#include "pvrm/interruption.h"
#include "pvrm/tell.h"
#include "support/terminal_text.h"
#include "support/vdef.h"
#include "ui/vrmui.h"

void show_certificate(const X509 *certificate) {
    const std::optional<certificate_dates> dates = dates_of_certificate(certificate);
    const validity now = certificate_validity(certificate, time(nullptr));
    printf("Subject:      %s\n", terminal_safe_cell(certificate_subject(certificate)).c_str());
    printf("Valid from:   %s%s\n", dates ? nice_date(dates->from).c_str() : "unknown",
           now == validity::not_yet ? " (not valid yet)" : "");
    printf("Valid until:  %s%s\n", dates ? nice_date(dates->until).c_str() : "unknown",
           now == validity::expired ? " (expired)" : "");
    printf("SHA-256:      %s\n", certificate_fingerprint(certificate).c_str());
    fflush(stdout);
}

// What decides whose packages are believed is not to happen because a script has no terminal.
bool may_ask_about_trust(const common_options &options, const char *word) {
    if (options.yes || vote_mode == 1) {
        return true;
    }
    tell_problem("nothing was changed: without a terminal to ask on, pvrm %s needs --yes", word);
    return false;
}

bool user_consents(const char *question, int default_answer) {
    if (user_agrees(question, default_answer)) {
        return true;
    }
    tell_problem("nothing was changed");
    return false;
}
