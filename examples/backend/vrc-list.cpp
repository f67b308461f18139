// A small catalogue backend: the catalogue is one text file, made by hand or by a script, and the
// package files lie beside it. docs/backend-author.md goes through it.
//
// Configuration: vrc_list, the path of the catalogue file. A line of it is one package, in nine
// fields parted by tabs; a field that does not apply is empty, and a line that begins with '#' is
// a comment:
//
//     name  variant  version  architecture  dependencies  file  size  SHA-1  description
//
// Dependencies are parted by commas. The file is relative to the catalogue's directory.

#include <fnmatch.h>
#include <strings.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "repository/vrc.h"

namespace {

struct package {
    std::string name, variant, version, arch;
    std::vector<std::string> deps;
    std::string file, size, sha1, description;
};

// There is one connection in a process, and it is never released.
struct connection {
    std::filesystem::path list;
    std::vector<package> packages;
} the_connection;

// ---- The catalogue file

std::vector<std::string> split(const std::string &text, char separator) {
    std::vector<std::string> parts(1);
    for (const char c : text) {
        if (c == separator) {
            parts.emplace_back();
        } else {
            parts.back() += c;
        }
    }
    return parts;
}

// The ids of architectures are fixed numbers; 0 for a name that has none.
int32_t arch_id(const std::string &name) {
    const std::pair<const char *, int32_t> known[] = {
        {"any", 1}, {"i686", 2}, {"x86_64", 4}, {"mips", 8}};
    for (const auto &[text, id] : known) {
        if (name == text) {
            return id;
        }
    }
    return 0;
}

// Reads the whole file, or leaves `packages` as it was: a catalogue that can't be read now is no
// reason to forget the one that is known.
bool read_list(const std::filesystem::path &path, std::vector<package> *packages) {
    std::ifstream in(path);
    std::vector<package> read;
    int number = 0;
    for (std::string line; std::getline(in, line);) {
        number++;
        if (line.empty() || line[0] == '#') {
            continue;
        }
        const std::vector<std::string> field = split(line, '\t');
        if (field.size() != 9 || field[0].empty() || field[2].empty() || arch_id(field[3]) == 0) {
            fprintf(stderr, "vrc-list: %s, line %d: this is no package\n", path.c_str(), number);
            continue;
        }
        package entry = {field[0], field[1], field[2], field[3], {},
                         field[5], field[6], field[7], field[8]};
        if (!field[4].empty()) {
            entry.deps = split(field[4], ',');
        }
        read.push_back(std::move(entry));
    }
    if (!in.eof()) {
        fprintf(stderr, "vrc-list: %s can't be read\n", path.c_str());
        return false;
    }
    *packages = std::move(read);
    return true;
}

// ---- Matching

bool fits(const char *pattern, const std::string &value) {
    return value == pattern || fnmatch(pattern, value.c_str(), 0) == 0;
}

// Whether an attribute of the package has a value that fits. Attribute names ignore case.
bool attribute_fits(const package &entry, const char *attribute, const char *pattern) {
    const std::pair<const char *, const std::string *> single[] = {
        {"evrkName", &entry.name},        {"evrkVariant", &entry.variant},
        {"evrkVersion", &entry.version},  {"evrkArchitecture", &entry.arch},
        {"evrkFileSize", &entry.size},    {"evrkDescription", &entry.description},
        {"evrkRelativeURI", &entry.file}, {"evrkFileHash", &entry.sha1},
    };
    for (const auto &[name, value] : single) {
        if (strcasecmp(name, attribute) == 0 && !value->empty() && fits(pattern, *value)) {
            return true;
        }
    }
    if (strcasecmp("evrkDependency", attribute) == 0) {
        for (const std::string &dep : entry.deps) {
            if (fits(pattern, dep)) {
                return true;
            }
        }
    }
    return false;
}

// The pairs of a record begin behind its header, which stands in the first slot.
bool any_pair_fits(const package &entry, s_ekva *const *filter) {
    for (s_ekva *const *pair = filter + 1; filter[0] && *pair; pair++) {
        if ((*pair)->val && attribute_fits(entry, (*pair)->key, (*pair)->val)) {
            return true;
        }
    }
    return false;
}

bool matches(const package &entry, const char *name, const char *variant, const char *version,
             s_ekva *const *filter) {
    // The filter widens a search by name. Without a name it is not looked at.
    if (name && !fits(name, entry.name) && !(filter && any_pair_fits(entry, filter))) {
        return false;
    }
    if (version && entry.version != version) {
        return false;
    }
    if (!variant) {
        return true;
    }
    const bool wants_default = *variant == '\0' || strcmp(variant, "default") == 0;
    return wants_default ? entry.variant.empty() : entry.variant == variant;
}

// ---- Records for the engine: all of it is memory of malloc

void free_record(vri *record) {
    for (char **dep = record->deps; dep && *dep; dep++) {
        free(*dep);
    }
    free(record->deps);
    for (char *text : {record->name, record->variant, record->version, record->description,
                       record->filehash, record->absolute_uri, record->relative_uri}) {
        free(text);
    }
    free(record);
}

// What is not handed out, as memory ran out on the way, is freed here.
struct free_records {
    void operator()(vri **list) const {
        for (vri **record = list; *record; record++) {
            free_record(*record);
        }
        free(list);
    }
};

template <typename T>
T *allocate(size_t count) {
    T *block = static_cast<T *>(calloc(count, sizeof(T)));
    if (!block) {
        throw std::bad_alloc();
    }
    return block;
}

char *copy(const std::string &text) {
    char *block = allocate<char>(text.size() + 1);
    memcpy(block, text.data(), text.size());
    return block;
}

// Absent texts are null, not empty: an empty variant would be a variant.
char *copy_or_null(const std::string &text) {
    return text.empty() ? nullptr : copy(text);
}

void fill(vri *record, const package &entry) {
    record->name = copy(entry.name);
    record->variant = copy_or_null(entry.variant);
    record->version = copy(entry.version);
    record->arch = arch_id(entry.arch);
    record->description = copy(entry.description);
    if (!entry.deps.empty()) {
        record->deps = allocate<char *>(entry.deps.size() + 1);
        for (size_t i = 0; i < entry.deps.size(); i++) {
            record->deps[i] = copy(entry.deps[i]);
        }
    }
    record->filesize = strtoull(entry.size.c_str(), nullptr, 10);
    record->filehash = copy_or_null(entry.sha1);
    record->absolute_uri = copy((the_connection.list.parent_path() / entry.file).string());
    record->relative_uri = copy(entry.file);
}

int find(const char *name, const char *variant, const char *version, s_ekva *const *filter,
         vri ***out) {
    std::vector<const package *> hits;
    for (const package &entry : the_connection.packages) {
        if (matches(entry, name, variant, version, filter)) {
            hits.push_back(&entry);
        }
    }
    if (hits.empty()) {
        return 0;  // *out stays as it is
    }
    std::unique_ptr<vri *, free_records> list(allocate<vri *>(hits.size() + 1));
    for (size_t i = 0; i < hits.size(); i++) {
        list.get()[i] = allocate<vri>(1);
        fill(list.get()[i], *hits[i]);
    }
    *out = list.release();
    return static_cast<int>(hits.size());
}

}  // namespace

// ---- The five entry points. No exception may leave them.

extern "C" {

void *vrc_connect(s_ekva **sys_conf, void * /*log*/) try {
    for (s_ekva **pair = sys_conf + 1; sys_conf[0] && *pair; pair++) {
        if (strcasecmp((*pair)->key, "vrc_list") == 0 && (*pair)->val) {
            the_connection.list = (*pair)->val;
            // A search may come without a refresh before it, so what is known is loaded here.
            read_list(the_connection.list, &the_connection.packages);
            return &the_connection;
        }
    }
    fprintf(stderr, "vrc-list: vrc_list is missing in the configuration\n");
    return nullptr;
} catch (...) {
    return nullptr;
}

int vrc_refresh(void * /*vrc*/) try {
    return read_list(the_connection.list, &the_connection.packages) ? 0 : -1;
} catch (...) {
    return -1;
}

int vrc_findpkg(void * /*vrc*/, const char *name, const char *variant, const char *version,
                int /*five*/, s_ekva **filter, vri ***out) try {
    return find(name, variant, version, filter, out);
} catch (...) {
    return 0;
}

int vrc_readpkg(void * /*vrc*/, vri *package, FILE *out) {
    FILE *in = fopen(package->absolute_uri, "re");
    if (!in) {
        return -1;
    }
    char block[1 << 16];
    size_t got, total = 0;
    bool good = true;
    while (good && (got = fread(block, 1, sizeof block, in)) > 0) {
        good = fwrite(block, 1, got, out) == got;
        total += got;
    }
    good = good && !ferror(in) && total <= INT_MAX;
    fclose(in);
    return good ? static_cast<int>(total) : -1;
}

void vrc_release(void * /*vrc*/) {
    the_connection = {};
}

}  // extern "C"

// The loader takes these functions by their names alone. Here the compiler proves their types.
[[maybe_unused]] constexpr vrc_connect_function connect_has_its_type = vrc_connect;
[[maybe_unused]] constexpr vrc_refresh_function refresh_has_its_type = vrc_refresh;
[[maybe_unused]] constexpr vrc_findpkg_function findpkg_has_its_type = vrc_findpkg;
[[maybe_unused]] constexpr vrc_readpkg_function readpkg_has_its_type = vrc_readpkg;
[[maybe_unused]] constexpr vrc_release_function release_has_its_type = vrc_release;
