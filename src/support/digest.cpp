#include "support/digest.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "support/file.h"
#include "support/own.h"

static constexpr size_t block_size = sizeof(SHA1_CTX::block);
static constexpr size_t digest_size = 20;

void SHA1Transform(uint32_t state[5], const unsigned char block[64]) {
    uint32_t w[80];
    for (size_t t = 0; t < 16; t++) {
        w[t] = uint32_t{block[4 * t]} << 24 | uint32_t{block[4 * t + 1]} << 16 |
               uint32_t{block[4 * t + 2]} << 8 | uint32_t{block[4 * t + 3]};
    }
    for (size_t t = 16; t < 80; t++) {
        w[t] = std::rotl(w[t - 3] ^ w[t - 8] ^ w[t - 14] ^ w[t - 16], 1);
    }
    uint32_t a = state[0], b = state[1], c = state[2], d = state[3], e = state[4];
    const auto step = [&](uint32_t mixed, uint32_t word) {
        const uint32_t next = std::rotl(a, 5) + mixed + e + word;
        e = d;
        d = c;
        c = std::rotl(b, 30);
        b = a;
        a = next;
    };
    size_t t = 0;
    for (; t < 20; t++) {
        step(((b & c) | (~b & d)) + 0x5a827999u, w[t]);
    }
    for (; t < 40; t++) {
        step((b ^ c ^ d) + 0x6ed9eba1u, w[t]);
    }
    for (; t < 60; t++) {
        step(((b & c) | (b & d) | (c & d)) + 0x8f1bbcdcu, w[t]);
    }
    for (; t < 80; t++) {
        step((b ^ c ^ d) + 0xca62c1d6u, w[t]);
    }
    state[0] += a;
    state[1] += b;
    state[2] += c;
    state[3] += d;
    state[4] += e;
}

void SHA1Init(SHA1_CTX *context) {
    *context = {{0x67452301u, 0xefcdab89u, 0x98badcfeu, 0x10325476u, 0xc3d2e1f0u}, 0, {}};
}

void SHA1Update(SHA1_CTX *context, const unsigned char *bytes, size_t length) {
    while (length > 0) {
        const auto filled = static_cast<size_t>(context->length % block_size);
        const size_t piece = std::min(length, block_size - filled);
        if (piece == block_size) {
            SHA1Transform(context->state, bytes);
        } else {
            memcpy(context->block + filled, bytes, piece);
            if (filled + piece == block_size) {
                SHA1Transform(context->state, context->block);
            }
        }
        context->length += piece;
        bytes += piece;
        length -= piece;
    }
}

void SHA1Final(unsigned char digest[20], SHA1_CTX *context) {
    // One set bit, then zeros up to the last 8 bytes of a block, which are the length in bits.
    static constexpr unsigned char padding[block_size] = {0x80};
    const uint64_t bits = context->length * 8;
    const auto filled = static_cast<size_t>(context->length % block_size);
    SHA1Update(context, padding, (filled < 56 ? 56 : 120) - filled);
    unsigned char tail[8];
    for (size_t i = 0; i < 8; i++) {
        tail[i] = static_cast<unsigned char>(bits >> (56 - 8 * i));
    }
    SHA1Update(context, tail, sizeof tail);
    for (size_t i = 0; i < digest_size; i++) {
        digest[i] = static_cast<unsigned char>(context->state[i / 4] >> (24 - 8 * (i % 4)));
    }
    *context = {};
}

char *sha1_format(const unsigned char digest[20], char format, char *out) {
    if (format != 'x') {
        memcpy(out, digest, digest_size);
        return out;
    }
    static constexpr char digits[] = "0123456789abcdef";
    for (size_t i = 0; i < digest_size; i++) {
        out[2 * i] = digits[digest[i] >> 4];
        out[2 * i + 1] = digits[digest[i] & 0xf];
    }
    out[2 * digest_size] = '\0';
    return out;
}

static char *finish(SHA1_CTX *context, char format, char *out) {
    unsigned char digest[digest_size];
    SHA1Final(digest, context);
    return sha1_format(digest, format, out);
}

char *sha1_file(const char *path, char format, char *out) {
    const own_file file(fopen_regular(path));
    if (!file) {
        return nullptr;
    }
    SHA1_CTX context;
    SHA1Init(&context);
    std::array<unsigned char, 4096> block;
    size_t got;
    while ((got = fread(block.data(), 1, block.size(), file.get())) > 0) {
        SHA1Update(&context, block.data(), got);
    }
    // Half of a file has a digest too, and it would be taken for the file's.
    return ferror(file.get()) ? nullptr : finish(&context, format, out);
}

char *sha1_data(const unsigned char *bytes, size_t length, char format, char *out) {
    SHA1_CTX context;
    SHA1Init(&context);
    SHA1Update(&context, bytes, length);
    return finish(&context, format, out);
}
