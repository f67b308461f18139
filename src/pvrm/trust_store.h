// The certificate store of the repository, as the words trust and distrust see it: a directory of
// files, of which the verification finds each by its name alone (package/vrs.h).
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "package/certificate.h"
#include "support/handle.h"

// The directory of the store.
std::string store_of(const vrm_handle *repository);

struct stored_certificate {
    std::string path;
    own_x509 certificate;  // null when the file holds none
    std::string problem;   // why it holds none, or why it is never found; else empty
    std::string subject, fingerprint;
};

// Everything in the store, in the order of the file names. Nothing, with the reason printed, when
// the directory can't be read.
struct store_content {
    bool was_read = false;
    std::vector<stored_certificate> files;
};
store_content read_store(const std::string &store);

// The files whose certificate has this subject, or a fingerprint that begins with this text: at
// least `least_fingerprint_digits` hexadecimal digits, with or without colons.
inline constexpr size_t least_fingerprint_digits = 8;
std::vector<const stored_certificate *> find_stored(const store_content &content,
                                                    std::string_view wanted);

// Writes a certificate to a path of the store, in place of what is there. The file is whole at each
// moment, and on the disk when this returns. False, with the reason printed, on a failure.
bool store_certificate(const X509 *certificate, const std::string &path);

// Removes a file of the store; it is gone from the disk when this returns. False, with the reason
// printed, on a failure.
bool remove_from_store(const std::string &path);
