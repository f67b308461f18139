#include "package/member_writer.h"

#include <archive_entry.h>
#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <string_view>
#include <utility>

#include "support/event.h"
#include "support/file.h"

static mode_t current_mask() {
    const mode_t mask = umask(0);
    umask(mask);
    return mask;
}

member_writer::member_writer(file_digests *digests)
    : digests_(digests),
      md_(digests ? EVP_MD_fetch(nullptr, "SHA1", nullptr) : nullptr),
      context_(digests ? EVP_MD_CTX_new() : nullptr),
      mask_(current_mask()) {}

// Whether a name leads straight down: no empty part, no "." and no "..".
static bool is_straight(std::string_view name) {
    if (name.size() >= PATH_MAX) {
        return false;
    }
    for (size_t at = 0; at <= name.size();) {
        const size_t end = std::min(name.find('/', at), name.size());
        const std::string_view part = name.substr(at, end - at);
        if (part.empty() || part == "." || part == "..") {
            return false;
        }
        at = end + 1;
    }
    return true;
}

static bool is_plain_file(archive_entry *entry) {
    constexpr mode_t special = S_ISUID | S_ISGID | S_ISVTX;
    return archive_entry_filetype(entry) == AE_IFREG && archive_entry_size_is_set(entry) &&
           archive_entry_nlink(entry) <= 1 && !archive_entry_hardlink(entry) &&
           !archive_entry_symlink(entry) && archive_entry_sparse_count(entry) == 0 &&
           (archive_entry_perm(entry) & special) == 0;
}

// Opens the directory of a member, unless it is open, and makes it where it isn't there. A link on
// the way is not followed. What is made in it must be this user's own, with the mode asked for.
bool member_writer::enter(const std::string &directory) {
    if (opened_.valid() && directory == directory_) {
        return true;
    }
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    opened_ = own_fd(open(".", flags));
    for (size_t at = 0; opened_.valid() && at < directory.size();) {
        const size_t end = std::min(directory.find('/', at), directory.size());
        const std::string part = directory.substr(at, end - at);
        const int above = opened_.get();
        own_fd next(openat(above, part.c_str(), flags));
        // One that has no member ahead of its files gets the mode that the umask leaves.
        if (!next.valid() && errno == ENOENT && mkdirat(above, part.c_str(), 0777) == 0) {
            next = own_fd(openat(above, part.c_str(), flags));
        }
        opened_ = std::move(next);
        at = end + 1;
    }
    struct stat status;
    if (!opened_.valid() || fstat(opened_.get(), &status) != 0 || (status.st_mode & S_ISGID) != 0 ||
        fgetxattr(opened_.get(), "system.posix_acl_default", nullptr, 0) >= 0) {
        opened_ = own_fd();
        return false;
    }
    directory_ = directory;
    return true;
}

bool member_writer::write_data(archive *reader, int file) {
    for (;;) {
        const void *block = nullptr;
        size_t size = 0;
        la_int64_t offset = 0;
        const int got = archive_read_data_block(reader, &block, &size, &offset);
        if (got == ARCHIVE_EOF) {
            return true;
        }
        if (got != ARCHIVE_OK) {
            const char *reason = archive_error_string(reader);
            report({.kind = event_kind::member_data_not_written, .other = reason ? reason : ""});
            return false;
        }
        if (!write_all(file, {static_cast<const char *>(block), size})) {
            report({.kind = event_kind::member_write_reason, .error = errno});
            report({.kind = event_kind::member_data_not_written, .other = "Write failed"});
            return false;
        }
        if (context_) {
            EVP_DigestUpdate(context_.get(), block, size);
        }
    }
}

member_writer::outcome member_writer::write(archive *reader, archive_entry *entry) {
    const char *text = archive_entry_pathname(entry);
    if (!text || !is_straight(text) || !is_plain_file(entry)) {
        return outcome::not_taken;
    }
    const std::string name = text;
    const size_t slash = name.rfind('/');
    const bool is_below = slash != std::string::npos;
    if (!enter(is_below ? name.substr(0, slash) : "")) {
        return outcome::not_taken;
    }
    if (digests_ &&
        (!md_ || !context_ || EVP_DigestInit_ex(context_.get(), md_.get(), nullptr) != 1)) {
        return outcome::not_taken;
    }
    const mode_t mode = archive_entry_perm(entry) & 0777;
    own_fd file(openat(opened_.get(), text + (is_below ? slash + 1 : 0),
                       O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
    if (!file.valid()) {
        return outcome::not_taken;
    }
    bool good = write_data(reader, file.get());
    // As the library does it with what could not be written.
    if (!good && ftruncate(file.get(), archive_entry_size(entry)) != 0) {
        report({.kind = event_kind::member_not_finished, .other = "Write to restore size failed"});
    }
    const auto check = [&](bool done) {
        if (good && !done) {
            report({.kind = event_kind::member_not_finished, .other = strerror(errno)});
        }
        good = good && done;
    };
    if ((mode & mask_) != 0) {
        check(fchmod(file.get(), mode) == 0);
    }
    if ((!digests_ || !name.starts_with("data/")) && archive_entry_mtime_is_set(entry)) {
        const timespec times[] = {{0, UTIME_NOW},
                                  {archive_entry_mtime(entry), archive_entry_mtime_nsec(entry)}};
        check(futimens(file.get(), times) == 0);
    }
    check(file.close() == 0);
    if (good && digests_) {
        std::array<unsigned char, 20> digest;
        if (EVP_DigestFinal_ex(context_.get(), digest.data(), nullptr) == 1) {
            digests_->insert_or_assign(name, digest);
        }
    }
    return good ? outcome::written : outcome::failed;
}

void member_writer::let_other_write(archive_entry *entry) {
    // A directory changes no file.
    if (archive_entry_filetype(entry) == AE_IFDIR) {
        return;
    }
    opened_ = own_fd();
    if (!digests_) {
        return;
    }
    const char *name = archive_entry_pathname(entry);
    if (name && is_straight(name) && is_plain_file(entry)) {
        digests_->erase(name);
    } else {
        digests_->clear();
    }
}
