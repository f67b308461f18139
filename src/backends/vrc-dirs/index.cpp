#include "backends/vrc-dirs/index.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <type_traits>

namespace vrc_dirs {

namespace {

// Empty, and closed by a NUL like every text of a column.
constexpr std::string_view nothing = "";

// Of a skipped file: time, size, and the length of its path.
constexpr uint64_t smallest_skip =
    sizeof(int64_t) + sizeof(uint32_t) + sizeof(uint64_t) + sizeof(uint32_t);

// Takes numbers and strings off the front of bytes that may be anything.
class byte_reader {
 public:
    explicit byte_reader(std::string_view bytes) : left_(bytes) {}

    template <typename T>
    T number() {
        static_assert(std::is_trivially_copyable_v<T>);
        T value = {};
        if (left_.size() < sizeof value) {
            fail();
        } else {
            memcpy(&value, left_.data(), sizeof value);
            left_.remove_prefix(sizeof value);
        }
        return value;
    }
    std::string_view string() {
        const auto size = number<uint32_t>();
        if (size == absent_string || failed_) {
            return {};
        }
        if (size > left_.size()) {
            fail();
            return {};
        }
        const std::string_view text = left_.substr(0, size);
        left_.remove_prefix(size);
        return text;
    }
    file_stamp time() {
        file_stamp stamp;
        stamp.seconds = number<int64_t>();
        stamp.nanoseconds = number<uint32_t>();
        return stamp;
    }
    std::string_view left() const {
        return left_;
    }
    bool failed() const {
        return failed_;
    }

 private:
    void fail() {
        failed_ = true;
        left_ = {};
    }

    std::string_view left_;
    bool failed_ = false;
};

char *copy_of(std::string_view text) {
    if (!text.data()) {
        return nullptr;
    }
    auto *copy = static_cast<char *>(malloc(text.size() + 1));
    if (copy) {
        memcpy(copy, text.data(), text.size());
        copy[text.size()] = '\0';
    }
    return copy;
}

// Whether the string was absent, or its copy could be had.
bool arrived(std::string_view text, const void *copy) {
    return !text.data() || copy;
}

}  // namespace

file_stamp stamp_of(const struct stat &status) {
    return {static_cast<uint64_t>(status.st_size), status.st_mtim.tv_sec,
            static_cast<uint32_t>(status.st_mtim.tv_nsec)};
}

std::unique_ptr<catalogue_index> catalogue_index::in_memory(std::string bytes) {
    std::unique_ptr<catalogue_index> index(new catalogue_index);
    index->bytes_ = std::move(bytes);
    return index->open(index->bytes_) ? std::move(index) : nullptr;
}

std::unique_ptr<catalogue_index> catalogue_index::mapped(int file, uint64_t size) {
    if (size < sizeof(index_header) || size > SIZE_MAX) {
        return nullptr;
    }
    const auto length = static_cast<size_t>(size);
    void *map = mmap(nullptr, length, PROT_READ, MAP_PRIVATE, file, 0);
    if (map == MAP_FAILED) {
        return nullptr;
    }
    std::unique_ptr<catalogue_index> index(new catalogue_index);
    index->map_ = map;
    index->all_ = {static_cast<const char *>(map), length};
    return index->open(index->all_) ? std::move(index) : nullptr;
}

catalogue_index::~catalogue_index() {
    if (map_) {
        munmap(map_, all_.size());
    }
}

bool catalogue_index::open(std::string_view all) {
    all_ = all;
    if (all.size() < sizeof header_) {
        return false;
    }
    memcpy(&header_, all.data(), sizeof header_);
    if (memcmp(header_.magic, index_magic, sizeof index_magic) != 0 ||
        header_.order != index_order || header_.version != index_version ||
        header_.size != all.size()) {
        return false;
    }
    for (const index_section &part : {header_.dirs, header_.table, header_.names,
                                      header_.descriptions, header_.rest, header_.skips}) {
        if (part.at > all.size() || part.size > all.size() - part.at) {
            return false;
        }
    }
    // Readers make room for so many at once, so both numbers must be true to the bytes.
    return header_.table.size == uint64_t{header_.records} * sizeof(table_row) &&
           header_.skips.size / smallest_skip >= header_.skipped;
}

std::string_view catalogue_index::section(const index_section &section) const {
    return all_.substr(static_cast<size_t>(section.at), static_cast<size_t>(section.size));
}

std::string_view catalogue_index::piece(std::string_view section, size_t at, size_t size) const {
    if (at > section.size() || size > section.size() - at) {
        damaged_ = true;
        return nothing;
    }
    return section.substr(at, size);
}

table_row catalogue_index::row(uint32_t number) const {
    table_row row = {};
    const std::string_view bytes =
        piece(section(header_.table), size_t{number} * sizeof row, sizeof row);
    if (bytes.size() == sizeof row) {
        memcpy(&row, bytes.data(), sizeof row);
    }
    return row;
}

static std::string packed_dirs(const std::vector<std::string> &dirs) {
    std::string packed;
    for (const std::string &dir : dirs) {
        packed.append(dir).push_back('\0');
    }
    return packed;
}

bool catalogue_index::is_of(const std::vector<std::string> &dirs) const {
    return section(header_.dirs) == packed_dirs(dirs);
}

std::string_view catalogue_index::texts(text_column column) const {
    return section(column == text_column::name ? header_.names : header_.descriptions);
}

std::string_view catalogue_index::text(text_column column, uint32_t number) const {
    const table_row found = row(number);
    const bool is_name = column == text_column::name;
    const size_t at = is_name ? found.name_at : found.description_at;
    const size_t size = is_name ? found.name_size : found.description_size;
    const std::string_view closed = piece(texts(column), at, size + 1);
    if (closed.empty() || closed.back() != '\0') {
        damaged_ = true;
        return nothing;
    }
    return closed.substr(0, size);
}

uint32_t catalogue_index::owner(text_column column, size_t offset) const {
    // The last one that begins at the offset or before it.
    uint32_t low = 0;
    uint32_t high = records();
    while (high - low > 1) {
        const uint32_t middle = low + (high - low) / 2;
        const table_row found = row(middle);
        const size_t at = column == text_column::name ? found.name_at : found.description_at;
        (at <= offset ? low : high) = middle;
    }
    return low;
}

std::string_view catalogue_index::rest(uint32_t number) const {
    const table_row found = row(number);
    return piece(section(header_.rest), found.rest_at, found.rest_size);
}

void catalogue_index::walked_to(uint32_t number) const {
    constexpr size_t stride = size_t{4} << 20;
    const size_t at = row(number).rest_at;
    if (at < walked_) {
        walked_ = 0;  // another walk
    }
    if (!map_ || at - walked_ < stride || at > header_.rest.size) {
        return;
    }
    // All of it: the names and descriptions on the way count as much as the rest.
    static_cast<void>(madvise(map_, all_.size(), MADV_DONTNEED));
    walked_ = at;
}

record_details catalogue_index::details(uint32_t number) const {
    byte_reader reader(rest(number));
    record_details details;
    details.stamp = reader.time();
    details.arch = reader.number<int32_t>();
    details.datasize = reader.number<uint64_t>();
    details.stamp.size = reader.number<uint64_t>();
    for (std::string_view *text :
         {&details.path, &details.version, &details.variant, &details.creator, &details.filehash,
          &details.rsa_sig_subj, &details.rsa_sig_data}) {
        *text = reader.string();
    }
    details.dep_count = reader.number<uint32_t>();
    details.deps = reader.left();
    if (reader.failed() || !details.path.data() || !details.version.data()) {
        damaged_ = true;
        return {};
    }
    return details;
}

// The dependencies as an array; null when the bytes don't hold them or there is no memory.
static own_array copy_deps(const record_details &details) {
    // Each has a length at least, which bounds what a damaged count can ask for.
    if (details.dep_count > details.deps.size() / sizeof(uint32_t)) {
        return nullptr;
    }
    own_array deps(static_cast<char **>(calloc(size_t{details.dep_count} + 1, sizeof(char *))));
    byte_reader reader(details.deps);
    for (uint32_t i = 0; deps && i < details.dep_count; i++) {
        deps.get()[i] = copy_of(reader.string());
        if (!deps.get()[i]) {
            return nullptr;
        }
    }
    return deps;
}

own_vri catalogue_index::record(uint32_t number) const {
    const std::string_view name = text(text_column::name, number);
    const std::string_view description = text(text_column::description, number);
    const record_details details = this->details(number);
    const size_t relative_at = row(number).relative_at;
    if (relative_at > details.path.size() || details.rsa_sig_data.size() > INT32_MAX) {
        damaged_ = true;
    }
    own_vri info(static_cast<vri *>(calloc(1, sizeof(vri))));
    if (damaged_ || !info) {
        return nullptr;
    }
    const std::string_view relative = details.path.substr(relative_at);
    info->flag = 1;
    info->arch = details.arch;
    info->datasize = details.datasize;
    info->filesize = details.stamp.size;
    const struct {
        char **to;
        std::string_view from;
    } strings[] = {
        {&info->name, name},
        {&info->variant, details.variant},
        {&info->version, details.version},
        {&info->creator, details.creator},
        {&info->description, description},
        {&info->filehash, details.filehash},
        {&info->absolute_uri, details.path},
        {&info->relative_uri, relative},
        {&info->rsa_sig_subj, details.rsa_sig_subj},
    };
    for (const auto &string : strings) {
        *string.to = copy_of(string.from);
        if (!arrived(string.from, *string.to)) {
            return nullptr;
        }
    }
    if (details.rsa_sig_data.data()) {
        info->rsa_sig_data = reinterpret_cast<unsigned char *>(copy_of(details.rsa_sig_data));
        info->rsa_sig_len = static_cast<int32_t>(details.rsa_sig_data.size());
        if (!info->rsa_sig_data) {
            return nullptr;
        }
    }
    if (details.dep_count != absent_string) {
        info->deps = copy_deps(details).release();
        if (!info->deps) {
            damaged_ = true;
            return nullptr;
        }
    }
    return info;
}

bool catalogue_index::is_sound(uint32_t number) const {
    const std::string_view name = text(text_column::name, number);
    text(text_column::description, number);
    const record_details details = this->details(number);
    if (damaged_ || row(number).relative_at > details.path.size() ||
        details.rsa_sig_data.size() > INT32_MAX) {
        return false;
    }
    byte_reader deps(details.deps);
    for (uint32_t i = 0; details.dep_count != absent_string && i < details.dep_count; i++) {
        if (!deps.string().data()) {
            return false;
        }
    }
    if (number == 0) {
        return true;
    }
    const int order = text(text_column::name, number - 1).compare(name);
    return order < 0 || (order == 0 && this->details(number - 1).path < details.path);
}

std::vector<catalogue_index::skipped_file> catalogue_index::skipped_files() const {
    std::vector<skipped_file> files;
    byte_reader reader(section(header_.skips));
    for (uint32_t i = 0; i < skipped() && !reader.failed(); i++) {
        skipped_file file;
        file.stamp = reader.time();
        file.stamp.size = reader.number<uint64_t>();
        file.path = reader.string();
        files.push_back(file);
    }
    if (reader.failed()) {
        damaged_ = true;
        files.clear();
    }
    return files;
}

}  // namespace vrc_dirs
