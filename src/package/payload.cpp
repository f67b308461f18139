#include "package/payload.h"

#include <cerrno>

bool open_payload(archive *reader, FILE *stream) {
    archive_read_support_filter_gzip(reader);
    archive_read_support_format_cpio(reader);
    // EILSEQ is the library's number for an unknown format; reading bytes never gives it.
    return archive_read_open_FILE(reader, stream) == ARCHIVE_OK || archive_errno(reader) == EILSEQ;
}
