#include "package/checked_keys.h"

#include <fcntl.h>
#include <openssl/sha.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <string_view>

#include "support/atomic_file.h"
#include "support/file.h"
#include "support/own.h"

static constexpr std::string_view first_line = "checked keys, format 1\n";

// Room for 15,000 keys.
static constexpr off_t largest_file = off_t{1} << 20;

std::string checked_keys_path(const vrm_handle *handle) {
    return handle->dir ? std::string(handle->dir) + "/checked-keys" : "";
}

// The line of a certificate's key, with its end; empty when memory fails. The bytes are those of
// the certificate: to write the key anew would load all of OpenSSL's encoders.
static std::string line_of(const X509 *certificate) {
    unsigned char *der = nullptr;
    const int size = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(certificate), &der);
    const std::unique_ptr<unsigned char,
                          decltype([](unsigned char *bytes) { OPENSSL_free(bytes); })>
        owner(der);
    if (size <= 0) {
        errno = ENOMEM;
        return "";
    }
    std::array<unsigned char, SHA256_DIGEST_LENGTH> digest;
    SHA256(der, static_cast<size_t>(size), digest.data());
    static const char digits[] = "0123456789abcdef";
    std::string line;
    for (const unsigned char byte : digest) {
        line += {digits[byte >> 4], digits[byte & 15]};
    }
    return line + "\n";
}

// The file's text; empty when there is none that is to be believed.
static std::string read_noted(const std::string &path) {
    struct stat status = {};
    // A link would say nothing of who may change what it leads to, or where it leads.
    const own_fd file(
        open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    if (!file.valid() || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return "";
    }
    const bool is_ours = status.st_uid == 0 || status.st_uid == geteuid();
    if (!is_ours || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0 || status.st_size > largest_file) {
        return "";
    }
    std::string text(static_cast<size_t>(status.st_size), '\0');
    size_t size = 0;
    while (size < text.size()) {
        const ssize_t got = read_some(file.get(), text.data() + size, text.size() - size);
        if (got <= 0) {
            return "";
        }
        size += static_cast<size_t>(got);
    }
    return text.starts_with(first_line) ? text : "";
}

// Ahead of each line is the end of another one.
static bool holds(std::string_view text, const std::string &line) {
    return text.find("\n" + line) != std::string_view::npos;
}

bool is_key_noted(const std::string &path, const X509 *certificate) {
    const std::string noted = read_noted(path);
    if (noted.empty()) {
        return false;
    }
    const std::string line = line_of(certificate);
    return !line.empty() && holds(noted, line);
}

bool note_checked_key(const std::string &path, const X509 *certificate) {
    const std::string line = line_of(certificate);
    if (line.empty()) {
        return false;
    }
    std::string noted = read_noted(path);
    if (noted.empty()) {
        noted = first_line;
    }
    return holds(noted, line) || write_atomically(path, noted + line, 0644, durability::synced);
}
