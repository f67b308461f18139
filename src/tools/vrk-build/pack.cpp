#include "tools/vrk-build/pack.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "support/ldif.h"
#include "support/terminal_text.h"
#include "tools/vrk-build/output_file.h"
#include "tools/vrk-build/payload.h"
#include "tools/vrk-build/problem.h"
#include "tools/vrk-build/signer.h"
#include "tools/vrk-build/source_tree.h"

namespace fs = std::filesystem;

static constexpr char magic[] = "EVRM20";
static constexpr char format_version[] = "2.0";
static constexpr size_t description_limit = 99999;  // five digits tell its size

// A line of an LDIF text. Each is written to a buffer of its own: the length that the writer tells
// is not always that of the text.
static std::string ldif_line(const char *attribute, const char *value, size_t length, int mode) {
    int32_t planned = 0;
    const own_string line(
        ldif_write(nullptr, &planned, attribute, value, static_cast<int32_t>(length), mode));
    if (!line) {
        throw std::bad_alloc();
    }
    return line.get();
}

static std::string ldif_line(const char *attribute, const std::string &value) {
    return ldif_line(attribute, value.c_str(), 0, 0);
}

// The description without the signature.
static std::string describe(const source_tree &tree) {
    const package_attributes &attributes = tree.attributes;
    std::string text =
        ldif_line("evrmVersion", format_version) + ldif_line("evrkName", attributes.name);
    if (!attributes.variant.empty()) {
        text += ldif_line("evrkVariant", attributes.variant);
    }
    text += ldif_line("evrkVersion", attributes.version);
    text += ldif_line("evrkArchitecture", attributes.arch);
    if (!attributes.creator.empty()) {
        text += ldif_line("evrkCreator", attributes.creator);
    }
    text += ldif_line("evrkDescription", attributes.description);
    for (const std::string &dependency : attributes.dependencies) {
        text += ldif_line("evrkDependency", dependency);
    }
    // What the package takes up on the system; the info fork is the package manager's.
    uint64_t size = 0;
    for (const auto &[member, file] : tree.files) {
        size += member.starts_with("info/") ? 0 : file.size;
    }
    return text + ldif_line("evrkDataSize", std::to_string(size));
}

// All that stands in front of the payload. Its size is the same for signatures of one size.
static std::string head_of(const std::string &description, const std::string &subject,
                           const std::vector<unsigned char> &signature) {
    const std::string text =
        description + ldif_line("evrkRsaSigSubj", subject) +
        ldif_line("evrkRsaSigData", reinterpret_cast<const char *>(signature.data()),
                  signature.size(), 1);
    if (text.size() > description_limit) {
        throw problem("the description is too long: with the signature it has " +
                      std::to_string(text.size()) + " bytes, of " +
                      std::to_string(description_limit) + " at most");
    }
    char size[8];
    snprintf(size, sizeof size, "%05zu", text.size());
    return magic + (size + text);
}

// A package file among the sources would be packed the next time, or refused.
static void check_place(const fs::path &target, const std::string &tree) {
    std::error_code failed;
    const fs::path place =
        fs::canonical(target.has_parent_path() ? target.parent_path() : ".", failed);
    if (failed) {
        throw problem(target.string() + " can't be written: " + failed.message());
    }
    const fs::path top = fs::canonical(tree, failed);
    const auto [end, ignored] = std::mismatch(top.begin(), top.end(), place.begin(), place.end());
    if (!failed && end == top.end()) {
        throw problem("the package file " + target.string() +
                      " would lie in its own source tree; choose another place with --output");
    }
}

static fs::path place_of(const pack_options &options, const package_attributes &attributes) {
    const std::string name = unique_name(attributes) + ".vrk";
    if (options.output.empty()) {
        return name;
    }
    // A directory first: one may well be called packages.vrk.
    std::error_code failed;
    if (fs::is_directory(options.output, failed)) {
        return fs::path(options.output) / name;
    }
    if (options.output.ends_with('/')) {
        throw problem("there is no directory " + options.output);
    }
    if (!fs::path(options.output).filename().string().ends_with(".vrk") ||
        fs::path(options.output).filename() == ".vrk") {
        throw problem(options.output +
                      " is no directory, and no name of a package file, which must end in .vrk");
    }
    return options.output;
}

static void tell_remarks(const std::vector<std::string> &remarks) {
    for (const std::string &remark : remarks) {
        fprintf(stderr, "vrk-build: %s\n", terminal_safe_cell(remark).c_str());
    }
}

std::string pack(const pack_options &options) {
    own_pkey key = read_key(options.key_file);
    own_x509 certificate = read_certificate(options.certificate_file);
    check_signer(certificate.get(), options.certificate_file, key.get(), options.key_file);
    source_tree tree = read_source_tree(options.tree, options.base);
    const fs::path target = place_of(options, tree.attributes);
    check_place(target, options.tree);

    const std::string description = describe(tree);
    const std::string subject = certificate_subject(certificate.get());
    // The signature is known behind the payload and stands ahead of it: its place is kept.
    const auto size = static_cast<size_t>(EVP_PKEY_get_size(key.get()));
    const std::string kept = head_of(description, subject, std::vector<unsigned char>(size));
    if (std::string remark = signer_remark(certificate.get(), options.certificate_file);
        !remark.empty()) {
        tree.remarks.push_back(std::move(remark));
    }
    tell_remarks(tree.remarks);

    output_file out(target.string());
    uint64_t written = 0;
    const auto append = [&](const void *bytes, size_t count) {
        written += count;
        if (written > options.largest) {
            throw problem("the package file would be larger than " +
                          std::to_string(options.largest) +
                          " bytes, which no catalogue can deliver; split the package");
        }
        out.append({static_cast<const char *>(bytes), count});
    };
    append(kept.data(), kept.size());
    payload_signature signature(key.get());
    write_payload(tree, description, [&](const void *bytes, size_t count) {
        signature.add(bytes, count);
        append(bytes, count);
    });
    const std::string head = head_of(description, subject, signature.finish());
    if (head.size() != kept.size()) {
        throw problem("the signature has an unexpected size");
    }
    out.replace_start(head);
    out.finish();
    return target.string();
}
