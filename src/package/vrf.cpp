#include "package/vrf.h"

#include <archive_entry.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "package/head.h"
#include "package/vrs.h"
#include "support/array.h"
#include "support/boundary.h"
#include "support/event.h"
#include "support/growing_list.h"
#include "support/log.h"
#include "support/text.h"

int vrk_file_is_vrk(const char *path) {
    const char *extension = _get_filename_ext(path);
    if (!extension || strcmp(extension, "vrk") != 0) {
        log_debug("%s has not suffix vrk", path);
        return 0;
    }
    struct stat st = {};
    if (stat(path, &st) != 0) {
        log_debug("file %s could not be stated: %s", path, strerror(errno));
        return 0;
    }
    return S_ISREG(st.st_mode) ? 1 : 0;
}

// A signature that is missing or bad is told in the record: what follows from it is for those who
// unpack.
static void note_signature(vrm_handle *handle, FILE *stream, vri *info, int verify) {
    if (!verify || !handle) {
        log_debug("Not verifying the package signature");
    } else if (!info->rsa_sig_subj) {
        report({.kind = event_kind::signer_missing_noted});
        info->sig_status = -1;
    } else if (info->rsa_sig_len < 1) {
        report({.kind = event_kind::signature_missing_noted});
        info->sig_status = -1;
    } else {
        check_signature(handle, stream, info);
    }
}

static void replace(char **text, char *by) {
    free(*text);
    *text = by;
}

vri *vrm_vrf_info(vrm_handle *handle, const char *path, int verify) {
    return guarded(nullptr, [&]() -> vri * {
        own_file stream;
        uint64_t size = 0;
        own_vri info = open_package(path, &stream, &size);
        if (!info) {
            return nullptr;
        }
        replace(&info->relative_uri, strdup(path));
        replace(&info->absolute_uri, realpath(path, nullptr));
        info->filesize = size;
        note_signature(handle, stream.get(), info.get(), verify);
        stream.reset();

        char hash[41];
        if (vrs_sha1_file(path, 'x', hash)) {
            replace(&info->filehash, strdup(hash));
        }
        return info.release();
    });
}

// The archive's data files, under the paths they get on the live system.
static own_array list_data_files(archive *reader) {
    growing_list<char, arr_free> files(20, log_list_room);
    archive_entry *entry = nullptr;
    while (archive_read_next_header(reader, &entry) == ARCHIVE_OK) {
        const char *member = archive_entry_pathname(entry);
        if (member && strncmp(member, "data/", 5) == 0) {
            own_string path(strdup(member + 4));
            if (!path || !files.add(path.get())) {
                return nullptr;
            }
            path.release();
        }
        archive_read_data_skip(reader);
    }
    return own_array(files.release());
}

char **vrm_vrf_index(vrm_handle * /*handle*/, const char *path) {
    return guarded(nullptr, [&]() -> char ** {
        own_file stream;
        uint64_t size = 0;
        if (!open_package(path, &stream, &size)) {
            return nullptr;
        }
        own_reader reader(archive_read_new());
        if (!reader) {
            return nullptr;
        }
        if (!open_payload(reader.get(), stream.get())) {
            report({.kind = event_kind::payload_not_opened});
            return nullptr;
        }
        own_array files = list_data_files(reader.get());
        if (archive_read_free(reader.release()) != ARCHIVE_OK) {
            report({.kind = event_kind::payload_damaged});
            return nullptr;
        }
        return files.release();
    });
}
