#include <archive_entry.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "package/head.h"
#include "package/member_writer.h"
#include "package/vrf.h"
#include "support/boundary.h"
#include "support/event.h"
#include "support/file.h"
#include "support/log.h"

// A file of which the end can't be reached is no file to unpack from.
static bool go_to_end_and_back(FILE *stream, const char *path) {
    if (fseeko(stream, 0, SEEK_END) != 0) {
        report({.kind = event_kind::package_end_not_reached, .path = path, .error = errno});
        return false;
    }
    const off_t size = ftello(stream);
    if (fseeko(stream, 0, SEEK_SET) != 0) {
        report({.kind = event_kind::package_start_not_reached,
                .path = path,
                .error = errno,
                .number = static_cast<int64_t>(size)});
        return false;
    }
    return true;
}

static bool signature_holds(vrm_handle *handle, FILE *stream, vri *info, const char *path) {
    log_debug("Will verify the package signature");
    if (!info->rsa_sig_subj) {
        report({.kind = event_kind::signer_missing});
        return false;
    }
    if (info->rsa_sig_len < 1) {
        report({.kind = event_kind::signature_missing});
        return false;
    }
    // Without a handle there is no certificate store, so nobody is trusted.
    const bool back = handle && check_signature(handle, stream, info);
    if (info->sig_status != 1 || !back) {
        report({.kind = event_kind::signature_not_trusted, .path = path});
        return false;
    }
    return true;
}

// Reads the head and, if asked to, proves the signature. The stream then stands on the payload.
// Null when it is not to be unpacked.
static own_vri pass_head(vrm_handle *handle, FILE *stream, const char *path, int verify) {
    return guarded(nullptr, [&]() -> own_vri {
        if (!go_to_end_and_back(stream, path)) {
            return nullptr;
        }
        // Here the message of a short file goes on with the path and the text of error 0: a file
        // that ends early is no error of the system.
        std::string description;
        if (!read_head(stream, std::string(" in ") + path + ": " + strerror(0), &description)) {
            return nullptr;
        }
        own_vri info(vrk_info_parse(path, 3, description.c_str(), nullptr));
        if (!info) {
            report({.kind = event_kind::package_head_unparsable});
            return nullptr;
        }
        if (!verify) {
            log_debug("Not verifying the package signature");
            return info;
        }
        return signature_holds(handle, stream, info.get(), path) ? std::move(info) : nullptr;
    });
}

static bool copy_data(archive *reader, archive *writer) {
    for (;;) {
        const void *block = nullptr;
        size_t size = 0;
        la_int64_t offset = 0;
        const int got = archive_read_data_block(reader, &block, &size, &offset);
        if (got == ARCHIVE_EOF) {
            return true;
        }
        if (got != ARCHIVE_OK || archive_write_data_block(writer, block, size, offset) != 0) {
            const char *reason = archive_error_string(writer);
            if (!reason) {
                reason = archive_error_string(reader);
            }
            // The library says that a write failed, and keeps to itself that the disk is full.
            if (archive_errno(writer) > 0) {
                report({.kind = event_kind::member_write_reason, .error = archive_errno(writer)});
            }
            report({.kind = event_kind::member_data_not_written, .other = reason ? reason : ""});
            return false;
        }
    }
}

static const char *error_of(archive *object) {
    const char *text = archive_error_string(object);
    return text ? text : "";
}

// A member that fails does not stop those behind it. An archive that breaks off between two members
// is not noticed: the hash lists of the package tell what is missing.
static bool unpack_members(archive *reader, archive *writer, file_digests *digests) {
    bool good = true;
    archive_entry *entry = nullptr;
    member_writer plain_files(digests);
    while (archive_read_next_header(reader, &entry) == ARCHIVE_OK) {
        const auto outcome = plain_files.write(reader, entry);
        if (outcome != member_writer::outcome::not_taken) {
            good = good && outcome == member_writer::outcome::written;
            continue;
        }
        plain_files.let_other_write(entry);
        if (archive_write_header(writer, entry) != ARCHIVE_OK) {
            report({.kind = event_kind::member_head_not_written, .other = error_of(writer)});
            good = false;
        }
        if (!copy_data(reader, writer)) {
            good = false;
        }
        if (archive_write_finish_entry(writer) != ARCHIVE_OK) {
            report({.kind = event_kind::member_not_finished, .other = error_of(writer)});
            good = false;
        }
    }
    return good;
}

// Unpacks the rest of the stream, which is the package file `path`, into the working directory.
static bool unpack(FILE *stream, const char *path, file_digests *digests) {
    own_reader reader(archive_read_new());
    archive *writer = archive_write_disk_new();
    if (!reader || !writer) {
        archive_write_free(writer);
        return false;
    }
    // What is in the payload is not believed before it is compared with its description, so nothing
    // of it may get out of the working directory.
    archive_write_disk_set_options(
        writer, ARCHIVE_EXTRACT_PERM | ARCHIVE_EXTRACT_TIME | ARCHIVE_EXTRACT_SECURE_NODOTDOT |
                    ARCHIVE_EXTRACT_SECURE_NOABSOLUTEPATHS | ARCHIVE_EXTRACT_SECURE_SYMLINKS);
    if (!open_payload(reader.get(), stream)) {
        report({.kind = event_kind::payload_not_readable, .other = error_of(reader.get())});
        archive_write_free(writer);
        return false;
    }
    bool good = guarded(false, [&] { return unpack_members(reader.get(), writer, digests); });
    // Breaking off where the payload ends is one thing, a disk that gives no more of it another:
    // the members that are missing would be missed by nobody.
    if (ferror(stream)) {
        report({.kind = event_kind::file_not_read, .path = path, .other = error_of(reader.get())});
        good = false;
    }
    // Modes and times of directories are set only here, in the working directory.
    good = archive_write_free(writer) == ARCHIVE_OK && good;
    if (!good) {
        fprintf(stderr, "Failed to extract archive\n");
    }
    return good;
}

int vrm_vrf_extract(vrm_handle *handle, const char *path, const char *target, int verify) {
    vri *head = nullptr;
    const int rc = vrm_vrf_extract_with_head(handle, path, target, verify, &head);
    vrk_info_free(head);
    return rc;
}

int vrm_vrf_extract_with_head(vrm_handle *handle, const char *path, const char *target, int verify,
                              vri **head) {
    return extract_and_digest(handle, path, target, verify, head, nullptr);
}

int extract_and_digest(vrm_handle *handle, const char *path, const char *target, int verify,
                       vri **head, file_digests *digests) {
    *head = nullptr;
    own_file stream(fopen_regular(path));
    if (!stream) {
        report({.kind = event_kind::package_not_opened, .path = path});
        return -1;
    }
    own_vri info = pass_head(handle, stream.get(), path, verify);
    if (!info) {
        return -1;
    }
    char before[4096];
    if (!getcwd(before, sizeof before)) {
        report({.kind = event_kind::working_directory_unknown});
        return -1;
    }
    if (chdir(target) != 0) {
        report({.kind = event_kind::stage_directory_not_entered, .path = target});
        return -1;
    }
    const bool good = unpack(stream.get(), path, digests);
    stream.reset();
    if (chdir(before) != 0) {
        report({.kind = event_kind::working_directory_lost, .path = before});
        return -1;
    }
    if (!good) {
        return -1;
    }
    *head = info.release();
    return 0;
}
