#include <strings.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "package/vri.h"
#include "support/arch.h"
#include "support/boundary.h"
#include "support/event.h"
#include "support/ldif_reader.h"
#include "support/log.h"

namespace {

// The attributes of a text up to its first empty line. A text is parsed once for all lookups: a
// catalogue holds tens of thousands of descriptions, and one of them may name hundreds of
// dependencies.
class attribute_lines {
 public:
    // False, with the reason on the log, when any line of the text refers to another file: packages
    // are made by strangers, and what they have read here, with the rights of whoever looks at the
    // package, would become part of a record that everybody may see.
    bool read(const char *text);

    // The value of the first line of this name, names compared without regard to case; without data
    // when there is none. Values may hold NUL bytes, and end with one that is not counted. The
    // views are as long-lived as this object.
    std::string_view find(std::string_view name) const;
    // The values of all lines of this name, in order.
    std::vector<std::string_view> all(std::string_view name) const;

 private:
    // Where name and value of a line are in `texts_`, which keeps all of them in one block: a
    // listing of what is installed reads thousands of texts of ten lines.
    struct attribute_line {
        size_t name_at, name_size, value_at, value_size;
    };
    bool is_named(const attribute_line &line, std::string_view name) const {
        return line.name_size == name.size() &&
               strncasecmp(texts_.data() + line.name_at, name.data(), name.size()) == 0;
    }
    std::string_view value_of(const attribute_line &line) const {
        return std::string_view(texts_).substr(line.value_at, line.value_size);
    }
    void add(const std::string &name, const std::string &value);

    std::string texts_;
    std::vector<attribute_line> lines_;
};

void attribute_lines::add(const std::string &name, const std::string &value) {
    const size_t value_at = texts_.size() + name.size() + 1;
    lines_.push_back({texts_.size(), name.size(), value_at, value.size()});
    texts_.append(name).push_back('\0');
    texts_.append(value).push_back('\0');
}

bool attribute_lines::read(const char *text) {
    ldif_reader reader(text, ldif_reader::references::refused);
    texts_.reserve(text ? strlen(text) + 64 : 0);
    lines_.reserve(16);
    bool is_first = true;
    bool is_over = false;
    do {
        const bool is_sound = reader.next();
        if (!is_sound && is_first) {
            fprintf(stderr, "ldif_entry_get_attr: failed to parse ldif buffer\n");
        }
        if (is_sound && reader.line_kind() == ldif_reader::kind::reference) {
            report({.kind = event_kind::reference_refused, .other = reader.name().substr(0, 100)});
            return false;
        }
        // What follows an empty or a malformed line is searched for references and not used. Sound
        // texts have nothing there, and another reader of the same text might go on.
        is_over = is_over || !is_sound || reader.line_kind() == ldif_reader::kind::empty;
        if (!is_over) {
            add(reader.name(), reader.value());
        }
        is_first = false;
    } while (!reader.at_end());
    return true;
}

std::string_view attribute_lines::find(std::string_view name) const {
    for (const attribute_line &line : lines_) {
        if (is_named(line, name)) {
            return value_of(line);
        }
    }
    return {};
}

std::vector<std::string_view> attribute_lines::all(std::string_view name) const {
    std::vector<std::string_view> values;
    for (const attribute_line &line : lines_) {
        if (is_named(line, name)) {
            values.push_back(value_of(line));
        }
    }
    return values;
}

}  // namespace

// Copies a value to a field of the record, which stays null for an attribute that isn't there.
// False when memory fails: a record that lost its variant that way would be another package's.
static bool take(std::string_view value, char **field) {
    *field = value.data() ? strdup(value.data()) : nullptr;
    return *field || !value.data();
}

// Scans a number as "%ld" does on a machine whose long has 64 bits.
static bool scan_number(std::string_view text, int64_t *number) {
    char *end = nullptr;
    const long long scanned = strtoll(text.data(), &end, 10);
    if (end == text.data()) {
        return false;
    }
    *number = scanned;
    return true;
}

static uint64_t size_of(std::string_view value) {
    int64_t number = 0;
    if (value.data()) {
        scan_number(value, &number);
    }
    return static_cast<uint64_t>(number);
}

static bool known_format(const attribute_lines &text, const char *label) {
    const std::string_view version = text.find("evrmVersion");
    if (version.empty()) {
        report({.kind = event_kind::package_format_missing});
        return false;
    }
    int format = 0;
    if (strcmp(version.data(), "1.0") == 0) {
        format = 1;
    } else if (strcmp(version.data(), "2.0") == 0) {
        format = 2;
    } else {
        report({.kind = event_kind::package_format_unknown, .other = version.data()});
        return false;
    }
    log_debug("%s: Package format: %d", label ? label : "", format);
    return true;
}

static bool parse_names(const attribute_lines &text, vri *info) {
    return take(text.find("evrkName"), &info->name) &&
           take(text.find("evrkVariant"), &info->variant) &&
           take(text.find("evrkVersion"), &info->version) && info->name && info->version;
}

static bool parse_architecture(const attribute_lines &text, vri *info) {
    const std::string_view name = text.find("evrkArchitecture");
    if (!name.data()) {
        report({.kind = event_kind::architecture_missing});
        return false;
    }
    info->arch = vrm_arch_getid(name.data());
    if (info->arch == arch_unknown) {
        report({.kind = event_kind::architecture_unknown, .other = name.data()});
        return false;
    }
    return true;
}

static bool parse_dependencies(const attribute_lines &text, vri *info) {
    const auto values = text.all("evrkDependency");
    if (values.empty()) {
        return true;
    }
    const auto copy = [](std::string_view value) { return strdup(value.data()); };
    info->deps = to_c_array<own_array>(values, copy).release();
    return info->deps != nullptr;
}

static bool parse_signature_data(const attribute_lines &text, vri *info) {
    const std::string_view data = text.find("evrkRsaSigData");
    if (!data.data()) {
        return true;
    }
    info->rsa_sig_data = static_cast<unsigned char *>(calloc(data.size() + 1, 1));
    if (!info->rsa_sig_data) {
        return false;
    }
    memcpy(info->rsa_sig_data, data.data(), data.size());
    info->rsa_sig_len = static_cast<int32_t>(data.size());
    return true;
}

static bool parse_file_attributes(const attribute_lines &text, vri *info) {
    info->datasize = size_of(text.find("evrkDataSize"));
    return take(text.find("evrkFileHash"), &info->filehash) &&
           take(text.find("evrkRsaSigSubj"), &info->rsa_sig_subj) &&
           parse_signature_data(text, info);
}

static bool parse_location(const attribute_lines &text, vri *info) {
    info->filesize = size_of(text.find("evrkFileSize"));
    return take(text.find("evrkAbsoluteURI"), &info->absolute_uri) &&
           take(text.find("evrkRelativeURI"), &info->relative_uri);
}

static bool parse_install_time(const attribute_lines &inst, vri *info) {
    const std::string_view time = inst.find("evrkInstallTime");
    if (time.empty()) {
        report({.kind = event_kind::install_time_missing});
        return false;
    }
    if (!scan_number(time, &info->install_time)) {
        report({.kind = event_kind::install_time_invalid});
        return false;
    }
    return true;
}

static bool parse_update_times(const attribute_lines &inst, vri *info) {
    const auto values = inst.all("evrkUpdateTime");
    if (values.empty()) {
        return true;
    }
    info->update_times = static_cast<int64_t *>(calloc(values.size() + 1, sizeof(int64_t)));
    if (!info->update_times) {
        return false;
    }
    for (size_t i = 0; i < values.size(); i++) {
        if (values[i].empty()) {
            report({.kind = event_kind::update_time_missing});
            return false;
        }
        if (!scan_number(values[i], &info->update_times[i])) {
            report({.kind = event_kind::update_time_invalid});
            return false;
        }
    }
    return true;
}

static bool parse_install_type(const attribute_lines &inst, vri *info) {
    const std::string_view type = inst.find("evrkInstallType");
    if (type.empty()) {
        report({.kind = event_kind::install_type_missing});
        return false;
    }
    info->install_type = type.front();
    if (info->install_type == '\0') {
        report({.kind = event_kind::install_type_empty});
        return false;
    }
    if (info->install_type == 'X') {
        return true;
    }
    if (info->install_type != 'D') {
        report({.kind = event_kind::install_type_invalid,
                .other = std::string_view(&info->install_type, 1)});
        return false;
    }
    const std::string_view head = inst.find("evrkInstallHead");
    if (head.empty()) {
        report({.kind = event_kind::install_head_missing});
        return false;
    }
    return take(head, &info->install_head);
}

static bool parse_install_info(const char *text, vri *info) {
    if (!text) {
        report({.kind = event_kind::install_info_missing});
        return false;
    }
    attribute_lines inst;
    return inst.read(text) && parse_install_time(inst, info) && parse_update_times(inst, info) &&
           parse_install_type(inst, info);
}

vri *vrk_info_parse(const char *label, int32_t mode, const char *description, const char *inst) {
    return guarded(nullptr, [&]() -> vri * {
        own_vri info(static_cast<vri *>(calloc(1, sizeof(vri))));
        if (!info) {
            return nullptr;
        }
        info->flag = 1;

        attribute_lines text;
        if (!text.read(description)) {
            return nullptr;
        }
        if (mode != 1 && !known_format(text, label)) {
            return nullptr;
        }
        if (!parse_names(text, info.get()) || !parse_architecture(text, info.get())) {
            return nullptr;
        }
        if (!take(text.find("evrkCreator"), &info->creator) ||
            !take(text.find("evrkDescription"), &info->description) || !info->description) {
            return nullptr;
        }
        if (!parse_dependencies(text, info.get()) || !parse_file_attributes(text, info.get())) {
            return nullptr;
        }
        if (mode == 1 && !parse_location(text, info.get())) {
            return nullptr;
        }
        if (mode == 2 && !parse_install_info(inst, info.get())) {
            return nullptr;
        }
        return info.release();
    });
}
