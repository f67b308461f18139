#include "package/signed_record.h"

#include <archive_entry.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <new>
#include <optional>

#include "package/head.h"
#include "support/arch.h"
#include "support/boundary.h"
#include "support/file.h"

// The description in the head has 99,999 bytes at most.
static constexpr size_t largest_description = size_t{1} << 20;

static bool same_text(const char *first, const char *second) {
    return first && second ? strcmp(first, second) == 0 : first == second;
}

// No array is an empty one: readers make either of a description without dependencies.
static bool same_dependencies(char *const *first, char *const *second) {
    for (; first && *first; first++, second++) {
        if (!second || !*second || strcmp(*first, *second) != 0) {
            return false;
        }
    }
    return !second || !*second;
}

static bool same_identity(const vri *first, const vri *second) {
    return same_text(first->name, second->name) && same_text(first->variant, second->variant) &&
           same_text(first->version, second->version) && first->arch == second->arch;
}

const char *differing_field(const vri *first, const vri *second) {
    return !same_text(first->name, second->name)                 ? "name"
           : !same_text(first->variant, second->variant)         ? "variant"
           : !same_text(first->version, second->version)         ? "version"
           : first->arch != second->arch                         ? "architecture"
           : !same_text(first->creator, second->creator)         ? "creator"
           : !same_text(first->description, second->description) ? "description"
           : !same_dependencies(first->deps, second->deps)       ? "dependencies"
           : first->datasize != second->datasize                 ? "data size"
                                                                 : nullptr;
}

// A part of an identity that may be anybody's: a name of a package is short and plain.
static std::string shown(const char *text) {
    static constexpr size_t longest = 200;
    std::string safe(text ? text : "");
    for (char &c : safe) {
        c = c > 0x20 && c < 0x7f ? c : '?';
    }
    return safe.size() > longest ? safe.substr(0, longest) + "..." : safe;
}

static std::string identity(const vri *package, const vri *other) {
    std::string text = shown(package->name) + " " + shown(package->version);
    if (!same_text(package->variant, other->variant)) {
        text += package->variant ? " variant \"" + shown(package->variant) + "\""
                                 : " without a variant";
    }
    if (package->arch != other->arch) {
        const char *arch = vrm_arch_getname(package->arch);
        text += std::string(" for ") + (arch ? arch : "an unknown architecture");
    }
    return text;
}

std::string difference_in_words(const char *of_first, const vri *first, const char *of_second,
                                const vri *second) {
    const char *field = differing_field(first, second);
    if (!field) {
        return "";
    }
    if (same_identity(first, second)) {
        return std::string(of_first) + " and " + of_second + " differ in the " + field;
    }
    return std::string(of_first) + " says " + identity(first, second) + ", " + of_second +
           " says " + identity(second, first);
}

static std::string missing() {
    return std::string("it has no signed description (") + signed_description_path + ")";
}

static std::string unusable(const char *reason) {
    return std::string("its signed description (") + signed_description_path + ") " + reason;
}

static constexpr char not_a_file[] = "is not a regular file";
static constexpr char too_long[] = "is too long";
static constexpr char invalid[] = "is not a valid description";

static own_vri parse(const char *text, std::string *why) {
    own_vri record(vrk_info_parse(signed_description_path, 3, text, nullptr));
    if (!record) {
        *why = unusable(invalid);
    }
    return record;
}

own_vri read_signed_record(const std::string &dir, std::string *why) {
    const std::string path = dir + "/" + signed_description_path;
    struct stat status;
    if (lstat(path.c_str(), &status) != 0) {
        *why = errno == ENOENT || errno == ENOTDIR
                   ? missing()
                   : unusable((std::string("cannot be read: ") + strerror(errno)).c_str());
        return nullptr;
    }
    if (!S_ISREG(status.st_mode)) {
        *why = unusable(not_a_file);
        return nullptr;
    }
    if (static_cast<uint64_t>(status.st_size) > largest_description) {
        *why = unusable(too_long);
        return nullptr;
    }
    size_t length = 0;
    const own_string text(_read_file(path.c_str(), &length));
    if (!text) {
        *why = unusable((std::string("cannot be read: ") + strerror(errno)).c_str());
        return nullptr;
    }
    text.get()[length] = '\0';
    return parse(text.get(), why);
}

// ---- In a package file ----

// The text of the member, or nothing, with what is wrong in `*why`.
static std::optional<std::string> read_member(archive *reader, archive_entry *entry,
                                              std::string *why) {
    if (archive_entry_filetype(entry) != AE_IFREG || archive_entry_hardlink(entry)) {
        *why = unusable(not_a_file);
        return std::nullopt;
    }
    std::string text;
    size_t length = 0;
    while (length <= largest_description) {
        if (length == text.size()) {
            text.resize(std::clamp(2 * length, size_t{4096}, largest_description + 1));
        }
        const la_ssize_t got =
            archive_read_data(reader, text.data() + length, text.size() - length);
        if (got < 0) {
            *why = unusable("cannot be read: the payload is damaged");
            return std::nullopt;
        }
        if (got == 0) {
            text.resize(length);
            return text;
        }
        length += static_cast<size_t>(got);
    }
    *why = unusable(too_long);
    return std::nullopt;
}

static bool is_signed_description(archive_entry *entry) {
    const char *name = archive_entry_pathname(entry);
    return name && std::filesystem::path(name).lexically_normal() == signed_description_path;
}

static own_vri find_signed_record(FILE *payload, std::string *why) {
    const own_reader reader(archive_read_new());
    if (!reader) {
        throw std::bad_alloc();
    }
    *why = missing();
    if (!open_payload(reader.get(), payload)) {
        return nullptr;
    }
    std::optional<std::string> text;
    archive_entry *entry = nullptr;
    int result = archive_read_next_header(reader.get(), &entry);
    // The unpacking stops at anything else, too.
    for (; result == ARCHIVE_OK; result = archive_read_next_header(reader.get(), &entry)) {
        if (is_signed_description(entry)) {
            text = read_member(reader.get(), entry, why);
        }
    }
    if (result != ARCHIVE_EOF && !text) {
        *why = unusable("cannot be read: the payload is damaged");
    }
    return text ? parse(text->c_str(), why) : nullptr;
}

head_comparison compare_head(const char *package_file) {
    return guarded(
        head_comparison{head_comparison::failed, "there is not enough memory"},
        [&]() -> head_comparison {
            own_file stream;
            uint64_t size = 0;
            const own_vri head = open_package(package_file, &stream, &size);
            if (!head) {
                return {head_comparison::failed, "its head cannot be read"};
            }
            head_comparison comparison;
            const own_vri signed_record = find_signed_record(stream.get(), &comparison.why);
            if (signed_record) {
                comparison.why = difference_in_words("its head", head.get(),
                                                     "its signed description", signed_record.get());
                comparison.result =
                    comparison.why.empty() ? head_comparison::matches : head_comparison::differs;
            }
            return comparison;
        });
}
