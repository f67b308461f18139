#include "pvrm/trust_store.h"

#include <fcntl.h>
#include <openssl/pem.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "pvrm/tell.h"
#include "support/own.h"

namespace fs = std::filesystem;

std::string store_of(const vrm_handle *repository) {
    return ekva_getval(repository->dirs, "certstore");
}

static stored_certificate read_stored(const fs::path &path) {
    stored_certificate file;
    file.path = path;
    file.certificate = certificate_read(file.path, &file.problem);
    if (!file.certificate) {
        return file;
    }
    file.subject = certificate_subject(file.certificate.get());
    file.fingerprint = certificate_fingerprint(file.certificate.get());
    const std::string name = stored_certificate_name(X509_get_subject_name(file.certificate.get()));
    if (path.filename() != name) {
        file.problem = file.path + " has the wrong name: the certificate of " + file.subject +
                       " is looked for in " + name + " only";
    }
    return file;
}

store_content read_store(const std::string &store) {
    store_content content;
    std::error_code failed;
    std::vector<fs::path> paths;
    fs::directory_iterator entry(store, failed);
    for (; !failed && entry != fs::directory_iterator(); entry.increment(failed)) {
        paths.push_back(entry->path());
    }
    if (failed) {
        tell_problem("cannot read %s: %s", store.c_str(), failed.message().c_str());
        return content;
    }
    std::sort(paths.begin(), paths.end());
    for (const fs::path &path : paths) {
        content.files.push_back(read_stored(path));
    }
    content.was_read = true;
    return content;
}

// The hexadecimal digits of a fingerprint or of its beginning, in upper case; empty when the text
// is none, or too short to mean one certificate.
static std::string fingerprint_digits(std::string_view text) {
    std::string digits;
    for (const char c : text) {
        if (isxdigit(static_cast<unsigned char>(c))) {
            digits += static_cast<char>(toupper(static_cast<unsigned char>(c)));
        } else if (c != ':') {
            return "";
        }
    }
    return digits.size() < least_fingerprint_digits ? "" : digits;
}

std::vector<const stored_certificate *> find_stored(const store_content &content,
                                                    std::string_view wanted) {
    const std::string digits = fingerprint_digits(wanted);
    std::vector<const stored_certificate *> found;
    for (const stored_certificate &file : content.files) {
        const bool fits =
            !digits.empty() && fingerprint_digits(file.fingerprint).starts_with(digits);
        if (file.certificate && (file.subject == wanted || fits)) {
            found.push_back(&file);
        }
    }
    return found;
}

static bool failed_to(const char *what, const std::string &path) {
    tell_problem("cannot %s %s: %s", what, path.c_str(), strerror(errno));
    return false;
}

// What was renamed or removed in a directory is sure to outlive a power failure only after this.
static bool sync_directory_of(const std::string &path) {
    const std::string dir = fs::path(path).parent_path();
    const own_fd opened(open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return (opened.valid() && fsync(opened.get()) == 0) || failed_to("sync", dir);
}

bool store_certificate(const X509 *certificate, const std::string &path) {
    const std::string unfinished = path + ".new";
    unlink(unfinished.c_str());  // what a process left that was killed
    own_fd fd(open(unfinished.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    own_file file = fd.stream("w");
    bool good = file && PEM_write_X509(file.get(), certificate) == 1 && fflush(file.get()) == 0 &&
                fchmod(fileno(file.get()), 0644) == 0 && fsync(fileno(file.get())) == 0;
    if (file) {
        good = fclose(file.release()) == 0 && good;
    }
    good = good && rename(unfinished.c_str(), path.c_str()) == 0;
    if (!good) {
        failed_to("write", path);
        unlink(unfinished.c_str());
        return false;
    }
    return sync_directory_of(path);
}

bool remove_from_store(const std::string &path) {
    return (unlink(path.c_str()) == 0 || failed_to("remove", path)) && sync_directory_of(path);
}
