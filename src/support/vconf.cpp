#include "support/vconf.h"

#include <strings.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "support/boundary.h"
#include "support/file.h"
#include "support/own.h"
#include "support/text.h"

namespace {

// A file that is being read. Its content is held in memory and the file closed, so that the nesting
// of includes is bound neither by the stack nor by the number of open files.
struct open_config {
    dev_t device = 0;
    ino_t inode = 0;
    own_string content;
    size_t size = 0;
    size_t at = 0;  // where the next line begins
    std::string path;
    int line = 0;  // number of the line that was read last

    bool is_same(const open_config &other) const {
        return device == other.device && inode == other.inode;
    }
};

enum class opened { yes, not_there, empty, no_memory, broke_off };

}  // namespace

// Reads a file whole: nothing of one that breaks off is taken, as its last line could be the
// beginning of another value. What is no regular file is nothing to read.
static opened open_config_file(const char *path, open_config *config) {
    struct stat status;
    const own_file file(fopen_regular(path, &status));
    if (!file) {
        const bool other = status.st_mode != 0 && !S_ISREG(status.st_mode);
        return other ? opened::empty : opened::not_there;
    }
    if (status.st_size < 1) {
        return opened::empty;
    }
    const auto size = static_cast<uint64_t>(status.st_size);
    if (size >= SIZE_MAX) {
        return opened::no_memory;
    }
    config->device = status.st_dev;
    config->inode = status.st_ino;
    config->content.reset(static_cast<char *>(malloc(static_cast<size_t>(size) + 1)));
    if (!config->content) {
        return opened::no_memory;
    }
    config->size = fread(config->content.get(), 1, static_cast<size_t>(size), file.get());
    if (config->size < size && !feof(file.get())) {
        fprintf(stderr, "Failed to read <%s>: %s\n", path, strerror(errno));
        return opened::broke_off;
    }
    return opened::yes;
}

// The next line, without its newline, as a string within the content or as `piece`, or null at the
// end.
static char *next_line(open_config *config, own_string *piece) {
    if (config->at >= config->size || config->size < 2) {
        return nullptr;
    }
    char *const line = config->content.get() + config->at;
    config->line++;
    const size_t length = vconf_line_at({config->content.get(), config->size}, config->at).size();
    config->at += length;
    if (line[length - 1] == '\n') {
        line[length - 1] = '\0';
        return line;
    }
    if (config->at == config->size) {
        line[length] = '\0';  // the byte behind the content
        return line;
    }
    piece->reset(strndup(line, length));
    return piece->get();
}

// Hands the pair of a line over. The result is the path of an include line, else null.
template <typename Take>
static own_string treat_line(const char *line, const open_config &config, const Take &take) {
    static constexpr char include[] = "include ";
    static constexpr size_t include_length = sizeof include - 1;
    if (!line[0] || line[0] == '#') {
        return nullptr;
    }
    const size_t size = strlen(line) + 1;
    const own_string key(static_cast<char *>(malloc(size)));
    own_string val(static_cast<char *>(malloc(size)));
    if (!key || !val) {
        return nullptr;
    }
    _split_line(line, key.get(), val.get());
    if (key.get()[0]) {
        take(key.get(), val.get(), config);
        return nullptr;
    }
    if (strncasecmp(line, include, include_length) != 0) {
        return nullptr;
    }
    strcpy(val.get(), line + include_length);
    _clean_val(val.get());
    return val;
}

// Puts a file on the stack of those being read, unless there is nothing to read in it. `begin` is
// asked before, and may refuse.
template <typename Begin>
static void push_file(std::vector<open_config> *files, const char *path, const Begin &begin) {
    open_config config;
    switch (open_config_file(path, &config)) {
        case opened::yes:
            break;
        case opened::empty:
            fprintf(stderr, "Failed to open <%s>: is empty\n", path);
            return;
        case opened::not_there:
        case opened::no_memory:
        case opened::broke_off:
            return;
    }
    for (const open_config &other : *files) {
        if (other.is_same(config)) {
            fprintf(stderr, "Not reading <%s> again: it includes itself\n", path);
            return;
        }
    }
    if (begin()) {
        config.path = path;
        files->push_back(std::move(config));
    }
}

// Reads a file and those that it includes, and hands over each pair.
template <typename Begin, typename Take>
static void walk(const char *path, const Begin &begin, const Take &take) {
    if (!path) {
        fprintf(stderr, "No config file specified\n");
        return;
    }
    std::vector<open_config> files;
    push_file(&files, path, begin);
    while (!files.empty()) {
        own_string piece;
        const char *const line = next_line(&files.back(), &piece);
        if (!line) {
            files.pop_back();
            continue;
        }
        const own_string included = treat_line(line, files.back(), take);
        if (included) {
            push_file(&files, included.get(), begin);
        }
    }
}

s_ekva **vconf_read_ext(s_ekva **rec, const char *path, int mode) {
    return guarded(rec, [&] {
        const auto make_record = [&] {
            if (!rec) {
                rec = ekva_new(1024, mode);
            }
            return rec != nullptr;
        };
        walk(path, make_record, [&](const char *key, const char *val, const open_config &) {
            if (ekva_addval(&rec, key, val, mode) < 1) {
                // Key first, against what the words say.
                fprintf(stderr, "Failed to add value <%s> for key <%s>\n", key, val);
            }
        });
        return rec;
    });
}

bool vconf_walk(const char *path, vconf_visitor visit, void *context) {
    return guarded(false, [&] {
        bool opened_one = false;
        const auto note = [&] { return opened_one = true; };
        walk(path, note, [&](const char *key, const char *val, const open_config &config) {
            visit(key, val, config.path.c_str(), config.line, context);
        });
        return opened_one;
    });
}

s_ekva **vconf_read(s_ekva **rec, const char *path) {
    return vconf_read_ext(rec, path, 2);
}

s_ekva **vconf_read_dups(s_ekva **rec, const char *path) {
    return vconf_read_ext(rec, path, 3);
}
