#include "package/head.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "package/vrs.h"
#include "support/event.h"
#include "support/file.h"
#include "support/log.h"

static bool read_magic(FILE *stream, const std::string &short_magic_behind) {
    char magic[6];
    const size_t got = fread(magic, 1, sizeof magic, stream);
    if (got < sizeof magic) {
        report({.kind = event_kind::package_file_short,
                .other = short_magic_behind,
                .number = static_cast<int64_t>(got),
                .total = 6});
        return false;
    }
    int version = 0;
    if (memcmp(magic, "EVRM10", sizeof magic) == 0) {
        version = 1;
    } else if (memcmp(magic, "EVRM20", sizeof magic) == 0) {
        version = 2;
    } else {
        report({.kind = event_kind::package_magic_unknown});
        return false;
    }
    log_debug("Package version: %d", version);
    return true;
}

static bool read_size(FILE *stream, int *size) {
    char digits[6] = {};
    const size_t got = fread(digits, 1, 5, stream);
    if (got < 5) {
        report({.kind = event_kind::package_file_short,
                .number = static_cast<int64_t>(got),
                .total = 5});
        return false;
    }
    char *behind = nullptr;
    const long scanned = strtol(digits, &behind, 10);
    if (behind == digits) {
        report({.kind = event_kind::description_size_unreadable});
        return false;
    }
    *size = static_cast<int>(scanned);
    return true;
}

bool read_head(FILE *stream, const std::string &short_magic_behind, std::string *description) {
    int size = 0;
    if (!read_magic(stream, short_magic_behind) || !read_size(stream, &size)) {
        return false;
    }
    // No read can give a negative number of bytes: such a size is a short read.
    description->resize(size > 0 ? static_cast<size_t>(size) : 0);
    const size_t got = fread(description->data(), 1, description->size(), stream);
    if (size < 0 || got < description->size()) {
        report({.kind = event_kind::package_file_short,
                .number = static_cast<int64_t>(got),
                .total = size});
        return false;
    }
    return true;
}

own_vri open_package(const char *path, own_file *stream, uint64_t *size) {
    struct stat st = {};
    if (stat(path, &st) != 0) {
        report({.kind = event_kind::package_not_found, .path = path});
        return nullptr;
    }
    *size = static_cast<uint64_t>(st.st_size);
    stream->reset(fopen_regular(path));
    if (!*stream) {
        report({.kind = event_kind::package_not_opened, .path = path});
        return nullptr;
    }
    std::string description;
    if (!read_head(stream->get(), "", &description)) {
        return nullptr;
    }
    return own_vri(vrk_info_parse(path, 3, description.c_str(), nullptr));
}

bool check_signature(vrm_handle *handle, FILE *stream, vri *info) {
    const off_t payload = ftello(stream);
    if (payload < 0) {
        return false;
    }
    info->sig_status =
        vrs_fverify_rsa(handle, info->rsa_sig_subj, info->rsa_sig_data, info->rsa_sig_len, stream);
    log_debug("rc of vrs_verify_rsa: %d", info->sig_status);
    return fseeko(stream, payload, SEEK_SET) == 0;
}

bool open_payload(archive *reader, FILE *stream) {
    archive_read_support_filter_gzip(reader);
    archive_read_support_format_cpio(reader);
    // EILSEQ is the library's number for an unknown format; reading bytes never gives it.
    return archive_read_open_FILE(reader, stream) == ARCHIVE_OK || archive_errno(reader) == EILSEQ;
}
