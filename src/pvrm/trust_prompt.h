// How the words trust and distrust show a certificate and ask about it.
#pragma once

#include <openssl/x509.h>

#include "pvrm/options.h"

// Prints the subject, the dates and the fingerprint of a certificate. A date that keeps it from
// being used today is marked.
void show_certificate(const X509 *certificate);

// Whether a change of what is trusted may be decided here: on a terminal by an answer, elsewhere by
// --yes alone. Otherwise prints what `word` needs.
bool may_ask_about_trust(const common_options &options, const char *word);

// Asks; false, and says that nothing was changed, when the answer is no or the tool was
// interrupted.
bool user_consents(const char *question, int default_answer);
