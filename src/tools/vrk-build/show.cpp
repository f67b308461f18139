#include "tools/vrk-build/show.h"

#include <archive.h>
#include <archive_entry.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "package/signed_record.h"
#include "package/vrf.h"
#include "support/arch.h"
#include "support/event.h"
#include "support/handle.h"
#include "support/terminal_text.h"
#include "tools/vrk-build/problem.h"
#include "tools/vrk-build/signer.h"
#include "ui/sentences.h"

namespace fs = std::filesystem;

namespace {

// A store of its own, which holds one certificate under its right name.
class one_certificate_store {
 public:
    explicit one_certificate_store(const std::string &certificate_file)
        : certificate_(read_certificate(certificate_file)),
          path_((fs::temp_directory_path() / "vrk-build-XXXXXX").string()) {
        if (!mkdtemp(path_.data())) {
            throw system_problem(path_);
        }
        const std::string name = stored_certificate_name(X509_get_subject_name(certificate_.get()));
        std::error_code failed;
        fs::copy_file(certificate_file, fs::path(path_) / name, failed);
        if (failed) {
            fs::remove_all(path_);
            throw problem(certificate_file + ": " + failed.message());
        }
    }
    ~one_certificate_store() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    one_certificate_store(const one_certificate_store &) = delete;
    one_certificate_store &operator=(const one_certificate_store &) = delete;

    const std::string &path() const {
        return path_;
    }

 private:
    own_x509 certificate_;
    std::string path_;
};

// The last thing that the engine reported: when it fails, the reason.
class engine_reason {
 public:
    engine_reason() {
        receive_events(note, this);
    }
    ~engine_reason() {
        receive_events(nullptr, nullptr);
    }
    engine_reason(const engine_reason &) = delete;
    engine_reason &operator=(const engine_reason &) = delete;

    const std::string &text() const {
        return text_;
    }
    event_kind kind() const {
        return kind_;
    }

 private:
    static void note(const event &happened, void *self) {
        auto *const reason = static_cast<engine_reason *>(self);
        reason->text_ = sentence_of(happened).text;
        reason->kind_ = happened.kind;
    }
    std::string text_;
    event_kind kind_ = {};
};

}  // namespace

static void print_field(const char *label, const char *value) {
    if (value && *value) {
        printf("%-14s %s\n", label, terminal_safe_cell(value).c_str());
    }
}

// A line of it is no field, whatever it looks like.
static void print_description(const std::string &text) {
    const char *label = "Description:";
    for (size_t at = 0; at <= text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        printf("%-14s %s\n", label, terminal_safe_cell(text.substr(at, end - at)).c_str());
        label = "";
        at = end + 1;
    }
}

static void print_head(const vri *package) {
    print_field("Name:", package->name);
    print_field("Variant:", package->variant);
    print_field("Version:", package->version);
    print_field("Architecture:", vrm_arch_getname(package->arch));
    print_field("Creator:", package->creator);
    print_description(package->description);
    for (char **dep = package->deps; dep && *dep; dep++) {
        print_field("Needs:", *dep);
    }
    printf("%-14s %" PRIu64 " bytes\n", "Unpacked:", package->datasize);
    printf("%-14s %" PRIu64 " bytes\n", "Package file:", package->filesize);
    print_field("SHA-1:", package->filehash);
    print_field("Signed by:", package->rsa_sig_subj);
}

// The payload begins behind the head, whose size stands in five digits at offset 6.
static own_file open_payload_of(const std::string &path) {
    own_file file(fopen(path.c_str(), "re"));
    char digits[6] = {};
    if (!file || fseek(file.get(), 6, SEEK_SET) != 0 || fread(digits, 1, 5, file.get()) != 5 ||
        fseek(file.get(), 11 + strtol(digits, nullptr, 10), SEEK_SET) != 0) {
        throw system_problem(path);
    }
    return file;
}

static void print_member(archive_entry *entry) {
    const char *name = archive_entry_pathname(entry);
    const char *target = archive_entry_symlink(entry);
    printf("  %.10s %10" PRId64 " %s%s%s\n", archive_entry_strmode(entry),
           static_cast<int64_t>(archive_entry_size(entry)),
           terminal_safe_cell(name ? name : "").c_str(), target ? " -> " : "",
           terminal_safe_cell(target ? target : "").c_str());
}

static void print_members(const std::string &path) {
    using own_reader = std::unique_ptr<archive, release_with<archive_read_free>>;
    const own_file file = open_payload_of(path);
    own_reader reader(archive_read_new());
    if (!reader) {
        throw std::bad_alloc();
    }
    archive_read_support_filter_gzip(reader.get());
    archive_read_support_format_cpio(reader.get());
    printf("Members:\n");
    int result = archive_read_open_FILE(reader.get(), file.get());
    // A warning is of a member that is there all the same.
    while (result == ARCHIVE_OK || result == ARCHIVE_WARN) {
        archive_entry *entry = nullptr;
        result = archive_read_next_header(reader.get(), &entry);
        if (result == ARCHIVE_OK || result == ARCHIVE_WARN) {
            print_member(entry);
        }
    }
    if (result != ARCHIVE_EOF) {
        const char *reason = archive_error_string(reader.get());
        throw problem(path + ": the payload is damaged" +
                      (reason ? std::string(": ") + reason : ""));
    }
}

// `last` is what the engine reported last.
static std::string signature_words(int status, event_kind last, const show_options &options) {
    switch (status) {
        case 1:
            return "verified";
        case -1:
            return "missing";
        case -2:
            if (!options.certificate_file.empty()) {
                return "not trusted: the certificate given is not the signer's";
            }
            if (std::error_code failed; !fs::is_directory(options.store, failed)) {
                return "not trusted: there is no certificate store " + options.store +
                       "; name a certificate with --cert";
            }
            return "not trusted: the signer's certificate is not in " + options.store;
        case -3:
            if (last == event_kind::certificate_key_short) {
                return "invalid: the signer's RSA key is too short";
            }
            return last == event_kind::certificate_key_unsound
                       ? "invalid: the signer's RSA key is not sound"
                       : "invalid: it does not fit the payload";
        case -4:
            return "not trusted: the signer's certificate has expired";
        case -5:
            return "not trusted: the signer's certificate is not valid yet";
        default:
            return "could not be checked";
    }
}

static bool print_comparison(const std::string &file) {
    const head_comparison head = compare_head(file.c_str());
    const char *verdict = head.result == head_comparison::matches ? "matches the signed description"
                          : head.result == head_comparison::differs ? "DIFFERS: "
                                                                    : "cannot be compared: ";
    print_field("Head:", (verdict + head.why).c_str());
    return head.result == head_comparison::matches;
}

bool show(const show_options &options) {
    if (!vrk_file_is_vrk(options.file.c_str())) {
        std::error_code failed;
        const fs::file_status status = fs::status(options.file, failed);
        throw problem(status.type() == fs::file_type::not_found
                          ? options.file + ": " + strerror(ENOENT)
                          : options.file +
                                " is no package file: it must be a regular file named *.vrk");
    }
    std::unique_ptr<one_certificate_store> store;
    if (!options.certificate_file.empty()) {
        store = std::make_unique<one_certificate_store>(options.certificate_file);
    }
    vrm_handle handle = {};
    handle.dirs = ekva_new(1, 2);
    ekva_addval(&handle.dirs, "certstore", (store ? store->path() : options.store).c_str(), 0);
    own_ekva dirs(handle.dirs);
    const engine_reason reason;
    const own_vri package(vrm_vrf_info(&handle, options.file.c_str(), 1));
    if (!package) {
        throw problem(options.file + " is no valid package file: " +
                      (reason.text().empty() ? "its head lacks a name, a version or a description"
                                             : reason.text()));
    }
    print_head(package.get());
    print_field("Signature:", signature_words(package->sig_status, reason.kind(), options).c_str());
    const bool head_matches = print_comparison(options.file);
    print_members(options.file);
    return package->sig_status == 1 && head_matches;
}
