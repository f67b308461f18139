// A small catalogue backend: the catalogue is one text file, made by hand or by a script, and the
// package files are beside it. docs/backend-author.md goes through it.
//
// Configuration: vrc_list, the path of the catalogue file. A line of it is one package, in nine
// fields separated by tabs; a field that does not apply is empty, and a line that begins with '#'
// is a comment:
//
//     name  variant  version  architecture  dependencies  file  size  SHA-1  description
//
// Dependencies are separated by commas. The file is relative to the catalogue's directory.
#define _POSIX_C_SOURCE 200809L

#include <errno.h>
#include <fnmatch.h>
#include <limits.h>
#include <stdbool.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <vrm/vrc_backend.h>

const uint32_t vrc_abi = VRC_ABI;

enum field { NAME, VARIANT, VERSION, ARCH, DEPS, FIL, SIZE, SHA1, DESCRIPTION, FIELDS };

struct package {
    char *line;  // the fields, each closed by a NUL
    char *field[FIELDS];
};

struct connection {
    const char *list;  // the path; a string of the configuration
    struct package *packages;
    size_t count;
    vrc_report_function report;  // or null
    void *context;
};

// ---- Reports

// Gives the program a report. `text` says what, `error` is an errno value or 0.
static void report(const struct connection *c, enum vrc_report_kind kind, const char *text,
                   int error) {
    if (c->report) {
        const vrc_report r = {
            .size = sizeof r, .kind = kind, .error = error, .path = c->list, .text = text};
        c->report(&r, c->context);
    }
}

// ---- The catalogue file

// The numbers of architectures are fixed; 0 for a name that has none.
static int32_t arch_id(const char *name) {
    static const struct {
        const char *name;
        int32_t id;
    } known[] = {{"any", 1}, {"i686", 2}, {"x86_64", 4}, {"mips", 8}};
    for (size_t i = 0; i < sizeof known / sizeof *known; i++) {
        if (strcmp(name, known[i].name) == 0) {
            return known[i].id;
        }
    }
    return 0;
}

// Cuts a line into its fields. False when it is not a package.
static bool split(char *line, struct package *package) {
    line[strcspn(line, "\n")] = '\0';
    package->line = line;
    for (int i = 0; i < FIELDS; i++) {
        package->field[i] = line;
        line = strchr(line, '\t');
        if (!line != (i == FIELDS - 1)) {
            return false;  // too few fields, or too many
        }
        if (line) {
            *line++ = '\0';
        }
    }
    for (char *at = package->field[DEPS]; (at = strchr(at, ',')) != NULL; at++) {
        *at = '\0';
    }
    return *package->field[NAME] && *package->field[VERSION] && arch_id(package->field[ARCH]) != 0;
}

// The dependencies are in one field, each closed by a NUL where the file has a comma. Null at the
// end.
static const char *dep_from(const struct package *package, const char *at) {
    while (at < package->field[FIL] && !*at) {
        at++;
    }
    return at < package->field[FIL] ? at : NULL;
}

static const char *first_dep(const struct package *package) {
    return dep_from(package, package->field[DEPS]);
}

static const char *next_dep(const struct package *package, const char *dep) {
    return dep_from(package, dep + strlen(dep));
}

static void free_packages(struct package *packages, size_t count) {
    for (size_t i = 0; i < count; i++) {
        free(packages[i].line);
    }
    free(packages);
}

// Adds the package of a line, which the list owns from then on. False without memory.
static bool add(struct package **packages, size_t *count, const struct package *package) {
    if ((*count & (*count - 1)) == 0) {  // full at each power of two
        void *larger = realloc(*packages, (*count ? *count * 2 : 1) * sizeof **packages);
        if (!larger) {
            return false;
        }
        *packages = larger;
    }
    (*packages)[(*count)++] = *package;
    return true;
}

static void report_bad_line(const struct connection *c, int number) {
    char text[200];
    snprintf(text, sizeof text, "line %d of the catalogue is left out: it is not a package",
             number);
    report(c, VRC_REPORT_WARNING, text, 0);
}

// Reads all lines of a stream. 0, or an errno value.
static int read_lines(const struct connection *c, FILE *in, struct package **packages,
                      size_t *count) {
    for (int number = 1;; number++) {
        char *line = NULL;
        size_t room = 0;
        struct package package;
        errno = 0;
        if (getline(&line, &room, in) < 0) {
            const int error = errno;
            free(line);
            return error;
        }
        if (*line == '#' || *line == '\n') {
            free(line);
        } else if (!split(line, &package)) {
            free(line);
            report_bad_line(c, number);
        } else if (!add(packages, count, &package)) {
            free(line);
            return ENOMEM;
        }
    }
}

// Reads the whole file, or leaves the packages as they were: that the catalogue can't be read now
// is no reason to forget what is known. 0, or an errno value.
static int read_list(struct connection *c) {
    struct package *packages = NULL;
    size_t count = 0;
    FILE *in = fopen(c->list, "r");
    if (!in) {
        return errno;
    }
    const int error = read_lines(c, in, &packages, &count);
    fclose(in);
    if (error != 0) {
        free_packages(packages, count);
        return error;
    }
    free_packages(c->packages, c->count);
    c->packages = packages;
    c->count = count;
    return 0;
}

// ---- Matching

static bool fits(const char *pattern, const char *value) {
    return strcmp(value, pattern) == 0 || fnmatch(pattern, value, 0) == 0;
}

static bool any_dep_fits(const struct package *package, const char *pattern) {
    for (const char *dep = first_dep(package); dep; dep = next_dep(package, dep)) {
        if (fits(pattern, dep)) {
            return true;
        }
    }
    return false;
}

// Whether an attribute of the package has a value that fits.
static bool attribute_fits(const struct package *package, const char *attribute,
                           const char *pattern) {
    static const struct {
        const char *name;
        enum field field;
    } known[] = {{"evrkName", NAME},       {"evrkVariant", VARIANT},
                 {"evrkVersion", VERSION}, {"evrkArchitecture", ARCH},
                 {"evrkFileSize", SIZE},   {"evrkFileHash", SHA1},
                 {"evrkRelativeURI", FIL}, {"evrkDescription", DESCRIPTION}};
    for (size_t i = 0; i < sizeof known / sizeof *known; i++) {
        const char *value = package->field[known[i].field];
        if (strcasecmp(attribute, known[i].name) == 0 && *value && fits(pattern, value)) {
            return true;
        }
    }
    return strcasecmp(attribute, "evrkDependency") == 0 && any_dep_fits(package, pattern);
}

// The pairs of a record begin after its header, which is in slot 0.
static bool any_pair_fits(const struct package *package, s_ekva **filter) {
    for (s_ekva **pair = filter + 1; filter[0] && *pair; pair++) {
        if ((*pair)->val && attribute_fits(package, (*pair)->key, (*pair)->val)) {
            return true;
        }
    }
    return false;
}

static bool matches(const struct package *package, const char *name, const char *variant,
                    const char *version, s_ekva **filter) {
    // The filter widens a search by name. Without a name it is not looked at.
    if (name && !fits(name, package->field[NAME]) && !(filter && any_pair_fits(package, filter))) {
        return false;
    }
    if (version && strcmp(version, package->field[VERSION]) != 0) {
        return false;
    }
    // "" and "default" ask for the package without a variant, which has an empty field.
    return !variant ||
           strcmp(strcmp(variant, "default") == 0 ? "" : variant, package->field[VARIANT]) == 0;
}

// ---- Records for the program: each string and each array is a block of its own from malloc

static void free_record(vri *record) {
    for (char **dep = record->deps; dep && *dep; dep++) {
        free(*dep);
    }
    free(record->deps);
    free(record->name);
    free(record->variant);
    free(record->version);
    free(record->description);
    free(record->filehash);
    free(record->absolute_uri);
    free(record->relative_uri);
    free(record);
}

// Copies a text; an empty one is absent, so null: an empty variant would be a variant.
static bool copy(char **to, const char *text) {
    *to = *text ? strdup(text) : NULL;
    return *to || !*text;
}

static bool copy_deps(char ***to, const struct package *package) {
    size_t count = 0;
    for (const char *dep = first_dep(package); dep; dep = next_dep(package, dep)) {
        count++;
    }
    if (count == 0) {
        return true;  // null, not an empty array
    }
    *to = calloc(count + 1, sizeof **to);
    count = 0;
    for (const char *dep = first_dep(package); *to && dep; dep = next_dep(package, dep)) {
        (*to)[count] = strdup(dep);
        if (!(*to)[count++]) {
            return false;
        }
    }
    return *to != NULL;
}

// The path of a package file: beside the catalogue file.
static char *path_of(const struct connection *c, const char *file) {
    const char *slash = strrchr(c->list, '/');
    const int folder = slash ? (int)(slash - c->list + 1) : 0;
    const size_t size = (size_t)folder + strlen(file) + 1;
    char *path = malloc(size);
    if (path) {
        snprintf(path, size, "%.*s%s", folder, c->list, file);
    }
    return path;
}

static vri *new_record(const struct connection *c, const struct package *package) {
    char *const *field = package->field;
    vri *record = calloc(1, sizeof *record);
    if (!record) {
        return NULL;
    }
    record->arch = arch_id(field[ARCH]);
    record->filesize = strtoull(field[SIZE], NULL, 10);
    record->absolute_uri = path_of(c, field[FIL]);
    record->description = strdup(field[DESCRIPTION]);
    if (record->absolute_uri && record->description && copy(&record->name, field[NAME]) &&
        copy(&record->variant, field[VARIANT]) && copy(&record->version, field[VERSION]) &&
        copy(&record->filehash, field[SHA1]) && copy(&record->relative_uri, field[FIL]) &&
        copy_deps(&record->deps, package)) {
        return record;
    }
    free_record(record);
    return NULL;
}

// ---- The functions of the interface

void *vrc_connect(s_ekva **sys_conf, void *log) {
    (void)log;
    struct connection *c = calloc(1, sizeof *c);
    for (s_ekva **pair = sys_conf + 1; c && sys_conf[0] && *pair; pair++) {
        if (strcasecmp((*pair)->key, "vrc_list") == 0 && (*pair)->val) {
            c->list = (*pair)->val;
            // A search may come without a refresh before it, so what is known is loaded here. What
            // is wrong with it is reported by the next refresh.
            (void)read_list(c);
            return c;
        }
    }
    // There is no connection yet that could report this.
    fprintf(stderr, "vrc-list: vrc_list is missing in the configuration\n");
    free(c);
    return NULL;
}

void vrc_set_report(void *connection, vrc_report_function function, void *context) {
    struct connection *c = connection;
    c->report = function;
    c->context = context;
}

int vrc_refresh(void *connection) {
    struct connection *c = connection;
    const int error = read_list(c);
    if (error != 0) {
        char text[PATH_MAX + 100];
        snprintf(text, sizeof text, "cannot read the catalogue %s", c->list);
        report(c, VRC_REPORT_ERROR, text, error);
    }
    return error == 0 ? 0 : -1;
}

int vrc_findpkg(void *connection, const char *name, const char *variant, const char *version,
                int five, s_ekva **filter, vri ***out) {
    (void)five;
    const struct connection *c = connection;
    vri **list = calloc(c->count + 1, sizeof *list);
    size_t found = 0;
    for (size_t i = 0; list && i < c->count; i++) {
        if (!matches(&c->packages[i], name, variant, version, filter)) {
            continue;
        }
        list[found] = new_record(c, &c->packages[i]);
        if (!list[found]) {
            // Nothing rather than some: without the newest one an older one would be chosen.
            while (found > 0) {
                free_record(list[--found]);
            }
            break;
        }
        found++;
    }
    if (found == 0) {
        free(list);
        return 0;  // *out stays as it is
    }
    *out = list;
    return (int)found;
}

int vrc_readpkg(void *connection, vri *package, FILE *out) {
    FILE *in = fopen(package->absolute_uri, "r");
    char block[1 << 16];
    size_t got, total = 0;
    bool good = in != NULL;
    errno = 0;
    while (good && (got = fread(block, 1, sizeof block, in)) > 0) {
        good = fwrite(block, 1, got, out) == got;
        total += got;
    }
    good = good && !ferror(in) && total <= INT_MAX;
    if (!good) {
        char text[PATH_MAX + 100];
        snprintf(text, sizeof text, "cannot read the package file %s", package->absolute_uri);
        report(connection, VRC_REPORT_ERROR, text, errno);
    }
    if (in) {
        fclose(in);
    }
    return good ? (int)total : -1;
}

void vrc_release(void *connection) {
    struct connection *c = connection;
    free_packages(c->packages, c->count);
    free(c);
}
