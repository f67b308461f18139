// The writing side of the index.
#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "backends/vrc-dirs/index.h"

namespace vrc_dirs {

namespace {

template <typename T>
void put(std::string *bytes, const T &value) {
    bytes->append(reinterpret_cast<const char *>(&value), sizeof value);
}

// A size or an offset of the format. The largest value has a meaning of its own.
uint32_t small(size_t number) {
    if (number >= absent_string) {
        throw std::length_error("the catalogue is too large for an index");
    }
    return static_cast<uint32_t>(number);
}

void put_string(std::string *bytes, std::string_view text) {
    if (!text.data()) {
        put(bytes, absent_string);
        return;
    }
    put(bytes, small(text.size()));
    bytes->append(text);
}

std::string_view view_of(const char *text) {
    return text ? std::string_view(text) : std::string_view();
}

void put_time(std::string *bytes, const file_stamp &stamp) {
    put(bytes, stamp.seconds);
    put(bytes, stamp.nanoseconds);
}

// Appends a text of a column and returns where it stands.
uint32_t add_text(std::string *column, std::string_view text) {
    const uint32_t at = small(column->size());
    column->append(text).push_back('\0');
    return at;
}

}  // namespace

std::string rest_of(const vri &info, std::string_view path, const file_stamp &stamp) {
    std::string bytes;
    put_time(&bytes, stamp);
    put(&bytes, info.arch);
    put(&bytes, info.datasize);
    put(&bytes, stamp.size);
    put_string(&bytes, path);
    put_string(&bytes, view_of(info.version));
    put_string(&bytes, view_of(info.variant));
    put_string(&bytes, view_of(info.creator));
    put_string(&bytes, view_of(info.filehash));
    put_string(&bytes, view_of(info.rsa_sig_subj));
    put_string(&bytes, info.rsa_sig_data
                           ? std::string_view(reinterpret_cast<const char *>(info.rsa_sig_data),
                                              static_cast<size_t>(info.rsa_sig_len))
                           : std::string_view());
    if (!info.deps) {
        put(&bytes, absent_string);
        return bytes;
    }
    uint32_t count = 0;
    while (info.deps[count]) {
        count++;
    }
    put(&bytes, count);
    for (uint32_t i = 0; i < count; i++) {
        put_string(&bytes, info.deps[i]);
    }
    return bytes;
}

std::string make_index(const std::vector<std::string> &dirs, std::vector<new_record> records,
                       const std::vector<new_skip> &skipped) {
    std::sort(records.begin(), records.end(), [](const new_record &a, const new_record &b) {
        const int order = a.name.compare(b.name);
        return order != 0 ? order < 0 : a.path < b.path;
    });

    std::string dir_list, table, names, descriptions, rest, skips;
    for (const std::string &dir : dirs) {
        dir_list.append(dir).push_back('\0');
    }
    table.reserve(records.size() * sizeof(table_row));
    for (const new_record &record : records) {
        table_row row = {};
        row.name_size = small(record.name.size());
        row.name_at = add_text(&names, record.name);
        row.description_size = small(record.description.size());
        row.description_at = add_text(&descriptions, record.description);
        row.rest_size = small(record.rest.size());
        row.rest_at = small(rest.size());
        row.relative_at = record.relative_at;
        rest.append(record.rest);
        put(&table, row);
    }
    for (const new_skip &skip : skipped) {
        put_time(&skips, skip.stamp);
        put(&skips, skip.stamp.size);
        put_string(&skips, skip.path);
    }

    index_header header = {};
    memcpy(header.magic, index_magic, sizeof index_magic);
    header.order = index_order;
    header.version = index_version;
    header.records = small(records.size());
    header.skipped = small(skipped.size());
    uint64_t at = sizeof header;
    const struct {
        index_section *section;
        const std::string *bytes;
    } sections[] = {{&header.dirs, &dir_list}, {&header.table, &table},
                    {&header.names, &names},   {&header.descriptions, &descriptions},
                    {&header.rest, &rest},     {&header.skips, &skips}};
    for (const auto &part : sections) {
        *part.section = {at, part.bytes->size()};
        at += part.bytes->size();
    }
    header.size = at;

    std::string all;
    all.reserve(static_cast<size_t>(at));
    put(&all, header);
    for (const auto &part : sections) {
        all.append(*part.bytes);
    }
    return all;
}

}  // namespace vrc_dirs
