#include "pvrm/trust_store.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "pvrm/tell.h"
#include "support/atomic_file.h"

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

static bool sync_directory_of(const std::string &path) {
    const std::string dir = fs::path(path).parent_path();
    return sync_directory(dir) || failed_to("sync", dir);
}

bool store_certificate(const X509 *certificate, const std::string &path) {
    const std::string text = certificate_pem(certificate);
    if (text.empty() || !write_atomically(path, text, 0644, durability::synced)) {
        return failed_to("write", path);
    }
    return sync_directory_of(path);
}

bool remove_from_store(const std::string &path) {
    return (unlink(path.c_str()) == 0 || failed_to("remove", path)) && sync_directory_of(path);
}
