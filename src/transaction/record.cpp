#include "transaction/record.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <new>

#include "support/digest.h"
#include "support/file.h"
#include "support/ldif.h"
#include "support/ldif_reader.h"

static constexpr std::string_view magic = "vrm-change ";
static constexpr std::string_view dn_start = "change=";
static constexpr std::string_view sum_name = "sum: ";

std::string record_directory(const vrm_handle *handle) {
    return std::string(handle->dir) + "/change";
}

std::string record_path(const vrm_handle *handle) {
    return record_directory(handle) + "/record";
}

// ---- Entries ----

const std::string &record_entry::value(std::string_view name) const {
    static const std::string none;
    const auto found = std::find_if(values_.begin(), values_.end(),
                                    [name](const auto &pair) { return pair.first == name; });
    return found == values_.end() ? none : found->second;
}

std::vector<std::string> record_entry::all(std::string_view name) const {
    std::vector<std::string> found;
    for (const auto &[key, value] : values_) {
        if (key == name) {
            found.push_back(value);
        }
    }
    return found;
}

static std::string sum_of(std::string_view text) {
    char digits[41];
    sha1_data(reinterpret_cast<const unsigned char *>(text.data()), text.size(), 'x', digits);
    return digits;
}

static void append_line(std::string *text, const char *name, const std::string &value) {
    int32_t length = 0;
    const own_string line(
        ldif_write(nullptr, &length, name, value.c_str(), static_cast<int32_t>(value.size()), 0));
    if (!line) {
        throw std::bad_alloc();
    }
    *text += line.get();
}

std::string record_entry::text() const {
    std::string text;
    append_line(&text, "dn", std::string(dn_start) + kind_ + "," + dn_suffix);
    for (const auto &[name, value] : values_) {
        append_line(&text, name.c_str(), value);
    }
    const std::string sum = sum_of(text);
    return "\n" + text.append(sum_name).append(sum).append("\n");
}

// ---- Reading ----

// Takes the entry at `*at`, which begins with its empty line. False for one that is not whole.
static bool take_entry(std::string_view text, size_t *at, std::vector<record_entry> *entries) {
    if (*at >= text.size() || text[*at] != '\n') {
        return false;
    }
    const size_t start = *at + 1;
    const size_t sum_at = text.find(std::string("\n").append(sum_name), start);
    const size_t end = sum_at == std::string_view::npos ? sum_at : text.find('\n', sum_at + 1);
    if (end == std::string_view::npos) {
        return false;
    }
    const std::string body(text.substr(start, sum_at + 1 - start));
    const size_t digits = sum_at + 1 + sum_name.size();
    if (text.substr(digits, end - digits) != sum_of(body)) {
        return false;
    }
    ldif_reader lines(body.c_str(), ldif_reader::references::refused);
    if (!lines.next() || lines.name() != "dn" || !lines.value().starts_with(dn_start)) {
        return false;
    }
    const std::string &dn = lines.value();
    record_entry entry(dn.substr(dn_start.size(), dn.find(',') - dn_start.size()));
    while (!lines.at_end() && lines.next()) {
        entry.add(lines.name().c_str(), lines.value());
    }
    entries->push_back(std::move(entry));
    *at = end + 1;
    return true;
}

read_record parse_record(const std::string &text) {
    read_record record;
    const size_t end = text.find('\n');
    // The program died while it made the record, ahead of any change.
    if (end == std::string::npos) {
        return record;
    }
    int format = 0;
    const char *const stop = text.data() + end;
    if (!text.starts_with(magic) ||
        std::from_chars(text.data() + magic.size(), stop, format).ptr != stop) {
        // What a crash of the machine leaves of a file that was not written yet.
        const bool is_blank = std::all_of(text.begin(), text.end(), [](char c) { return c == 0; });
        record.refusal = is_blank ? "" : "it is not a record of a change";
        return record;
    }
    if (format != record_format) {
        record.refusal = "it is of a version of this program that writes format " +
                         std::to_string(format) + ", and this one knows " +
                         std::to_string(record_format);
        return record;
    }
    size_t at = end + 1;
    while (take_entry(text, &at, &record.entries)) {
    }
    record.length = at;
    return record;
}

bool read_record_of(const vrm_handle *handle, read_record *record) {
    const std::string path = record_path(handle);
    struct stat status;
    const own_fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (!file.valid() || fstat(file.get(), &status) != 0) {
        return false;
    }
    if (!S_ISREG(status.st_mode) || status.st_uid != geteuid()) {
        record->refusal = "it is not a regular file of this user";
        return true;
    }
    size_t length = 0;
    const own_string bytes(_read_file(path.c_str(), &length));
    if (!bytes) {
        return false;
    }
    *record = parse_record(std::string(bytes.get(), length));
    return true;
}
