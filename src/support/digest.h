// SHA-1, as published in FIPS 180-1. It names files in hash lists; it is no guard against forgery
// by itself, the signature of a package is.
#pragma once

#include <cstddef>
#include <cstdint>

struct SHA1_CTX {
    uint32_t state[5];
    uint64_t length;  // bytes seen so far
    unsigned char block[64];
};

// The block step: works one block of 64 bytes into the state.
void SHA1Transform(uint32_t state[5], const unsigned char block[64]);

// A digest in three calls: SHA1Init once, SHA1Update for each piece of the data, SHA1Final for the
// 20 bytes of the digest, after which the context is cleared.
void SHA1Init(SHA1_CTX *context);
void SHA1Update(SHA1_CTX *context, const unsigned char *bytes, size_t length);
void SHA1Final(unsigned char digest[20], SHA1_CTX *context);

// The digest of a file, or of `length` bytes in memory. With the format 'x' `out` receives 40
// lower-case hexadecimal digits and a terminator, 41 bytes in all; with any other it receives the
// 20 raw bytes. Result: `out`. For a file that cannot be opened, is no regular file or cannot be
// read to its end the result is null and `out` is left alone.
char *sha1_file(const char *path, char format, char *out);
char *sha1_data(const unsigned char *bytes, size_t length, char format, char *out);

// A digest that is known already in these forms. Result: `out`.
char *sha1_format(const unsigned char digest[20], char format, char *out);
