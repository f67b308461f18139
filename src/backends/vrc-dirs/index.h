// The index: what the last refresh knew, as one block of bytes that is searched where it lies,
// whether that is a mapped file or a string in memory.
//
// Numbers are in the byte order of the machine that wrote them, strings of lengths that stand
// beside them; offsets count from the start of their section. An index of another byte order or
// version is no index, the next refresh makes a new one.
//
//   header        see IndexHeader
//   directories   the list that was searched, each path closed by a NUL
//   table         one TableRow for each record, ordered by name, then path
//   names         the records' names in the table's order, each closed by a NUL
//   descriptions  likewise
//   rest          what else there is of each record:
//                   i64 and u32   seconds and nanoseconds of the file's time of modification
//                   i32           architecture id
//                   u64, u64      size of the unpacked payload; of the file
//                   strings       path, version, variant, creator, SHA-1, signer, signature
//                   u32, strings  dependencies
//   skipped       one entry for each file that was skipped: the time as above, u64 size, path
//
// A string is its length as a u32 and its bytes; the length absent_string stands for none, and as
// the number of dependencies it stands for a record without any.
//
// The hot parts, what is searched by pattern, lie side by side, so that a search touches the pages
// of the names and the descriptions and no others. There is no checksum, for the same reason: it
// would cost reading all of it. Instead nothing in it is believed: each access is checked against
// the section's bounds, and what lies outside reads as empty and marks the index as damaged, upon
// which its reader drops it.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "package/vri.h"

namespace vrc_dirs {

inline constexpr char index_magic[8] = {'v', 'r', 'c', 'd', 'i', 'r', 's', '\n'};
inline constexpr uint32_t index_order = 0x01020304;
// What an index of version 1 holds may have been read from files that a description referred to.
inline constexpr uint32_t index_version = 2;
inline constexpr uint32_t absent_string = UINT32_MAX;

struct index_section {
    uint64_t at;
    uint64_t size;
};

struct index_header {
    char magic[8];
    uint32_t order;
    uint32_t version;
    uint64_t size;  // of the whole index
    uint32_t records;
    uint32_t skipped;
    index_section dirs, table, names, descriptions, rest, skips;
};

struct table_row {
    uint32_t name_at, name_size;  // without the NUL
    uint32_t description_at, description_size;
    uint32_t rest_at, rest_size;
    uint32_t relative_at;  // where in the path the part below the configured directory begins
    uint32_t unused;       // 0
};

// Neither has padding, so that programs for two architectures of one byte order read each other's.
static_assert(sizeof(index_header) == 128 && sizeof(table_row) == 32);

// What tells that a file is still the one that was read.
struct file_stamp {
    uint64_t size = 0;
    int64_t seconds = 0;
    uint32_t nanoseconds = 0;
    bool operator==(const file_stamp &) const = default;
};
file_stamp stamp_of(const struct stat &status);

// A record's part of the section `rest`. A view without data stands for an absent string. The views
// are as long-lived as the index.
struct record_details {
    file_stamp stamp;
    int32_t arch = 0;
    uint64_t datasize = 0;
    std::string_view path, version, variant, creator, filehash, rsa_sig_subj, rsa_sig_data;
    uint32_t dep_count = absent_string;
    std::string_view deps;  // their bytes, as they lie there
};

enum class text_column { name, description };

class catalogue_index {
 public:
    // An index in memory, and one that is mapped from a file of that size; the descriptor may be
    // closed afterwards. Null when it isn't a whole index of this format, or can't be mapped.
    static std::unique_ptr<catalogue_index> in_memory(std::string bytes);
    static std::unique_ptr<catalogue_index> mapped(int file, uint64_t size);
    ~catalogue_index();
    catalogue_index(const catalogue_index &) = delete;
    catalogue_index &operator=(const catalogue_index &) = delete;

    bool is_mapped() const {
        return map_ != nullptr;
    }
    // Of an index in memory, for storing it.
    const std::string &bytes() const {
        return bytes_;
    }
    // Whether anything was out of bounds so far: then nothing that was read from it is to be used.
    bool is_damaged() const {
        return damaged_;
    }
    uint32_t records() const {
        return header_.records;
    }
    uint32_t skipped() const {
        return header_.skipped;
    }
    // Whether it is of this list of directories.
    bool is_of(const std::vector<std::string> &dirs) const;

    // A record's text, closed by a NUL.
    std::string_view text(text_column column, uint32_t number) const;
    // All texts of a column.
    std::string_view texts(text_column column) const;
    // The record whose text stands at an offset of the column.
    uint32_t owner(text_column column, size_t offset) const;

    std::string_view rest(uint32_t number) const;
    record_details details(uint32_t number) const;
    // The record as the engine takes it, for vrk_info_free; null without memory or when the index
    // turns out damaged.
    own_vri record(uint32_t number) const;

    // Tells that a walk in ascending order has come to a record. What the walk went through is
    // taken out of the process's memory from time to time; it stays in the system's cache of the
    // file, and views of it stay good. Without this a walk over all records would count the whole
    // file.
    void walked_to(uint32_t number) const;
    // Whether a record is sound to its last byte and stands in order. A search looks at no more
    // than it needs; what goes on into the next index is checked.
    bool is_sound(uint32_t number) const;

    struct skipped_file {
        std::string_view path;
        file_stamp stamp;
    };
    std::vector<skipped_file> skipped_files() const;

 private:
    catalogue_index() = default;
    bool open(std::string_view all);
    std::string_view section(const index_section &section) const;
    std::string_view piece(std::string_view section, size_t at, size_t size) const;
    table_row row(uint32_t number) const;

    std::string bytes_;
    void *map_ = nullptr;
    std::string_view all_;
    index_header header_ = {};
    mutable bool damaged_ = false;
    mutable size_t walked_ = 0;  // offset of `rest` up to which the walk was told
};

// The bytes of a record's section `rest`.
std::string rest_of(const vri &info, std::string_view path, const file_stamp &stamp);

// One record of an index that is to be made. The views stay the caller's.
struct new_record {
    std::string_view name, description, path, rest;
    uint32_t relative_at;
};
struct new_skip {
    std::string_view path;
    file_stamp stamp;
};
// The bytes of an index. Throws std::length_error when a section would be larger than its offsets
// reach, 4 GiB.
std::string make_index(const std::vector<std::string> &dirs, std::vector<new_record> records,
                       const std::vector<new_skip> &skipped);

}  // namespace vrc_dirs
