// The public keys of signers that were found sound (package/certificate.h) when they were trusted.
//
// That check takes longer than all else that a word does with one small package, and its result
// never changes. So `pvrm trust` notes the keys that passed it in a file of the repository, beside
// the store of certificates, and a verification does without the check for these. A key that is
// not noted there is checked at each verification: one whose certificate was put into the store by
// hand, for one.
//
// The file has a first line with its format, and a line for each key: the SHA-256 of the key as
// its certificate holds it (SubjectPublicKeyInfo, DER) in lower-case hexadecimal digits. It is
// believed only when it is a regular file and no link, belongs to root or to the caller, nobody
// else may write to it, and it has at most 1 MiB. Who can write it could put any certificate into
// the store.
//
// A line says that the key passed the check of its time, and not that its owner is trusted: that is
// what the store is for, and so `pvrm distrust` leaves the line. A check that becomes stricter must
// raise the number of the format, so that the keys that passed the old one are checked again.
#pragma once

#include <openssl/x509.h>

#include <string>

#include "support/handle.h"

// The path of the file of a repository; empty for a handle without a directory.
std::string checked_keys_path(const vrm_handle *handle);

// Whether the key of a certificate is noted in the file. False also when the file is not there,
// can't be read, or is not to be believed.
bool is_key_noted(const std::string &path, const X509 *certificate);

// Notes the key of a certificate, which was found sound. A file that is not to be believed is
// replaced. False, with the reason in errno, when it can't be written; the key is then checked at
// each verification.
bool note_checked_key(const std::string &path, const X509 *certificate);
