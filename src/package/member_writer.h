// Private to the library: writes those members of a payload that are plain files, which nearly all
// are, with less work than the library for archives, and digests them on the way. It looks only at
// what is safe and simple: a name that leads straight down from the working directory, through
// directories and no links, to a file that isn't there yet. All else is left to that
// library.
#pragma once

#include <archive.h>

#include <sys/types.h>

#include <string>

#include "package/file_digests.h"
#include "package/ossl_own.h"
#include "support/own.h"

class member_writer {
 public:
    // `digests`, unless null, receives the digest of each file that is written. The files of the
    // fork data then keep the time of their writing, which is the time that they are to have on the
    // live system; all others get the time of the member.
    explicit member_writer(file_digests *digests);

    enum class outcome { not_taken, written, failed };
    // Writes the member that the reader is at, with the mode that it says. When it isn't taken
    // nothing has happened: another writer has to write it, and `let_other_write` says so. A
    // failure is an ERROR line.
    outcome write(archive *reader, archive_entry *entry);

    // Forgets what the member changes when another writer writes it.
    void let_other_write(archive_entry *entry);

 private:
    bool enter(const std::string &directory);
    bool write_data(archive *reader, int file);

    file_digests *const digests_;
    own_md md_;
    own_md_ctx context_;
    mode_t mask_;
    std::string directory_;  // which is open
    own_fd opened_;
};
