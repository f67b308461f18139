#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "support/boundary.h"
#include "support/file.h"
#include "support/own.h"
#include "support/text.h"
#include "support/vconf.h"

static std::pair<std::string, std::string> key_and_value(const char *line) {
    const size_t room = strlen(line) + 1;
    std::string key(room, '\0'), value(room, '\0');
    _split_line(line, key.data(), value.data());
    return {key.c_str(), value.c_str()};
}

// ---- Rewriting ----

// Leaves nothing behind of a next file that can't take the old one's place.
static int give_up(const std::string &next) {
    unlink(next.c_str());
    return -1;
}

// The key of a line, empty for one that has none or is a comment.
static std::string key_of(std::string_view line) {
    // The reader sees no further than a zero byte.
    const std::string text(std::string(line).c_str());
    return text.starts_with('#') ? "" : key_and_value(text.c_str()).first;
}

static bool write_line(FILE *out, std::string_view line, s_ekva *const *rec) {
    const bool has_end = line.ends_with('\n');
    const std::string key = key_of(line.substr(0, line.size() - (has_end ? 1 : 0)));
    const char *value = key.empty() ? nullptr : ekva_getval(rec, key.c_str());
    if (value) {
        return fprintf(out, "%s=%s\n", key.c_str(), value) >= 0;
    }
    return fwrite(line.data(), 1, line.size(), out) == line.size();
}

static bool write_lines(own_file out, std::string_view content, s_ekva *const *rec) {
    bool good = true;
    for (size_t at = 0; good && at < content.size();) {
        const std::string_view line = vconf_line_at(content, at);
        good = write_line(out.get(), line, rec);
        at += line.size();
    }
    // What is still in a buffer can fail as late as here.
    good = good && fflush(out.get()) == 0 && fsync(fileno(out.get())) == 0;
    return fclose(out.release()) == 0 && good;
}

int vconf_replace(const char *path, s_ekva *const *rec, int keep) {
    const auto out_of_memory = [&] {
        fprintf(stderr, "Failed to open <%s>: %s\n", path, strerror(ENOMEM));
        return -1;
    };
    return guarded(out_of_memory, [&] {
        if (!path) {
            fprintf(stderr, "No config file specified\n");
            return -1;
        }
        size_t size = 0;
        struct stat status;
        const own_string content(stat(path, &status) == 0 ? _read_file(path, &size) : nullptr);
        if (!content) {
            fprintf(stderr, "Failed to open <%s>: %s\n", path, strerror(errno));
            return -1;
        }
        const std::string prev = std::string(path) + ".prev";
        const std::string next = std::string(path) + ".next";
        errno = 0;
        if (file_copy(next.c_str(), path, 1) < 1) {
            fprintf(stderr, "Failed to create new config as <%s>: %s\n", next.c_str(),
                    strerror(errno));
            return give_up(next);
        }
        own_file out(fopen(next.c_str(), "we"));
        if (!out) {
            fprintf(stderr, "Failed to open <%s> for reading: %s\n", next.c_str(), strerror(errno));
            return give_up(next);
        }
        // Who may not give a file away has made it as his own.
        (void)!fchown(fileno(out.get()), status.st_uid, status.st_gid);
        if (!write_lines(std::move(out), {content.get(), size}, rec)) {
            fprintf(stderr, "Failed to write <%s>: %s\n", next.c_str(), strerror(errno));
            return give_up(next);
        }

        unlink(prev.c_str());
        if (keep) {
            (void)!rename(path, prev.c_str());
        }
        unlink(path);
        (void)!rename(next.c_str(), path);
        return 0;
    });
}

// ---- Value maps ----

vconf_valnum **vconf_gen_vnlist(const char *text) {
    return guarded(nullptr, [&]() -> vconf_valnum ** {
        const own_array fields(text ? str2arr(text, ',') : nullptr);
        if (!fields) {
            return nullptr;
        }
        const auto count = static_cast<size_t>(arr_count(fields.get()));
        own_valnum_list map(
            static_cast<vconf_valnum **>(calloc(count + 1, sizeof(vconf_valnum *))));
        if (!map) {
            return nullptr;
        }
        int number = 0;
        for (size_t i = 0; i < count; i++) {
            const auto [name, value] = key_and_value(fields.get()[i]);
            auto *const entry = static_cast<vconf_valnum *>(calloc(1, sizeof(vconf_valnum)));
            map.get()[i] = entry;
            if (!entry || !(entry->name = strdup(name.c_str()))) {
                return nullptr;
            }
            // What does not scan leaves the number of the field before.
            (void)!sscanf(value.c_str(), "%d", &number);
            entry->num = number;
        }
        return map.release();
    });
}

static const vconf_valnum *entry_named(vconf_valnum *const *map, const char *name) {
    for (; map && name && *map; map++) {
        if (strcmp((*map)->name, name) == 0) {
            return *map;
        }
    }
    return nullptr;
}

int vconf_getvalnum(vconf_valnum *const *map, const char *name) {
    const vconf_valnum *const entry = entry_named(map, name);
    return entry ? entry->num : -1;
}

const char *vconf_getnumval(vconf_valnum *const *map, int number) {
    for (; map && *map; map++) {
        if ((*map)->num == number) {
            return (*map)->name;
        }
    }
    return nullptr;
}

void vconf_valnum_free(vconf_valnum *entry) {
    if (entry) {
        free(entry->name);
        free(entry);
    }
}

void vconf_valnum_list_free(vconf_valnum **map) {
    for (vconf_valnum **entry = map; entry && *entry; entry++) {
        vconf_valnum_free(*entry);
    }
    free(map);
}

int vconf_get_optval_vl(const char *key, vconf_valnum *const *map, s_ekva *const *rec,
                        int default_value, int override_value) {
    if (!map) {
        return default_value;
    }
    if (vconf_getnumval(map, override_value)) {
        return override_value;
    }
    // A number of -1 and a name that is not there are the same.
    const int number = vconf_getvalnum(map, ekva_getval(rec, key));
    return number == -1 ? default_value : number;
}

int vconf_get_bool(const char *key, s_ekva *const *rec, int default_value, int override_value) {
    const own_valnum_list map(vconf_gen_vnlist("true=1,false=0,yes=1,no=0,1=1,0=0"));
    return vconf_get_optval_vl(key, map.get(), rec, default_value, override_value);
}
