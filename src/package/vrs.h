// Signature verification against the certificate store, and the digest of a file.
//
// The store is a directory of PEM files, one certificate each, named by the hash of the subject:
// "<store>/<eight or more lower-case hexadecimal digits>.crt". There is one file for a hash and no
// numbered further ones. A signer is trusted when a certificate with its subject lies there and is
// within its dates; issuer, purpose and revocation play no role, so a self-signed one is as good as
// any.
#pragma once

#include <cstdint>
#include <cstdio>

#include "support/handle.h"

// Verifies that a signer of the store has signed the rest of a stream.
// `handle`: its directory `certstore` is the store. `subject`: the signer in one line, to the
// letter as OpenSSL prints the subject of the certificate. `signature`, `length`: the raw signature
// in bytes, RSASSA-PKCS1-v1_5 with SHA-1. `stream`: stands on the first byte to be verified; it
// stays open and ends up at its end, or where a failure left it. Returns what becomes the
// `sig_status` of a package:
//    1  the signature fits
//    0  an internal step failed after the certificate was accepted; no valid signature
//   -2  untrusted: the subject doesn't parse, is not in the store, or the stored one differs
//   -3  the signature doesn't fit, or the signer's RSA key has fewer than 1,024 bits
//   -4  the certificate has expired
//   -5  the certificate is not yet valid
// Says why on the log, and for a subject that doesn't parse on stderr.
int vrs_fverify_rsa(vrm_handle *handle, const char *subject, const unsigned char *signature,
                    int32_t length, FILE *stream);

// The SHA-1 of a file's whole content. With the format 'x' writes 40 lower-case hexadecimal digits
// and a terminator to `out`, 41 bytes; with any other the 20 raw bytes. Returns `out`, or null if
// the file can't be read or is no regular file.
char *vrs_sha1_file(const char *path, char format, char *out);
