// The reports of packages and of actions, one row or entry for each.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdlib>
#include <initializer_list>
#include <new>
#include <string>
#include <utility>

#include "maintenance/report.h"
#include "support/array.h"
#include "support/boundary.h"
#include "support/event.h"
#include "support/ldif.h"
#include "support/log.h"
#include "support/own.h"
#include "ui/vrmui.h"

namespace {

using text_pair = std::pair<const char *, const char *>;

own_ekva record_of(std::initializer_list<text_pair> pairs) {
    own_ekva record(ekva_new(20, 4));
    for (const auto &[key, value] : pairs) {
        add_pair(&record, key, value);
    }
    return record;
}

bool succeeded(int result, event_kind failure) {
    if (result != 0) {
        report({.kind = failure});
    }
    return result == 0;
}

bool begin_table(const char *title, const own_ekva &columns) {
    return succeeded(vrmui_write_table_new(vrmui, title, columns.get()),
                     event_kind::report_table_failed);
}

// Rows count from 1.
bool add_row(const own_ekva &row, int number) {
    return succeeded(vrmui_write_table_add(vrmui, row.get(), number),
                     event_kind::report_row_failed);
}

// ---- A list of packages as a table of the user interface ----

std::string list_title(int mode, int count) {
    const std::string number = std::to_string(count);
    switch (mode) {
        case 1:
            return "Found " + number + " matching packages in catalogue";
        case 2:
            return "Found " + number + " matching installed packages";
        default:
            return "";
    }
}

int write_list_as_table(const std::string &title, vri *const *list, int count, bool deps) {
    own_ekva columns =
        record_of({{"Name", "20"}, {"Variant", "10"}, {"Version", "10"}, {"Description", "35"}});
    if (deps) {
        add_pair(&columns, "Dependencies", "30");
    }
    if (!begin_table(title.c_str(), columns)) {
        return -1;
    }
    for (int i = 0; i < count; i++) {
        const vri *package = list[i];
        log_debug("adding %d entry", i + 1);
        own_ekva row = record_of({{"Name", package->name},
                                  {"Variant", package->variant},
                                  {"Version", package->version},
                                  {"Description", package->description}});
        if (deps) {
            const own_string joined(arr2str(package->deps, ','));
            add_pair(&row, "Dependencies", joined.get());
        }
        if (!add_row(row, i + 1)) {
            return -1;
        }
    }
    const int result = vrmui_write_table_end(vrmui, title.c_str());
    succeeded(std::min(result, 0), event_kind::report_table_not_shown);
    return std::min(result, 0);
}

// ---- A list of packages on a stream ----

// A file for the user interface to show. It never stays behind.
class temporary_list {
 public:
    temporary_list() = default;
    ~temporary_list() {
        stream_.reset();
        if (made_) {
            unlink(path_);
        }
    }
    temporary_list(const temporary_list &) = delete;
    temporary_list &operator=(const temporary_list &) = delete;

    // Null, with the reason in errno, when it can't be made.
    FILE *open() {
        own_fd file(mkostemp(path_, O_CLOEXEC));
        made_ = file.valid();
        stream_ = file.stream("w");
        return stream_.get();
    }
    // Whether all that was written has arrived.
    bool close() {
        FILE *const stream = stream_.release();
        const bool failed = ferror(stream) != 0;
        return fclose(stream) == 0 && !failed;
    }
    const char *path() const {
        return path_;
    }

 private:
    char path_[sizeof "/tmp/vri_listXXXXXX"] = "/tmp/vri_listXXXXXX";
    bool made_ = false;
    own_file stream_;
};

int without_file() {
    report({.kind = event_kind::report_file_not_created, .error = errno});
    return -1;
}

// The entry of a package: its names in the directory first, then all that is known of it.
own_ekva ldif_entry(const vri *package, s_ekva *const *attributes) {
    own_ekva entry(ekva_new(ekva_nument(attributes) + 2, 4));
    add_pair(&entry, "dn", package_dn(package).c_str());
    add_pair(&entry, "evrkUid", vrk_puname(package));
    for (s_ekva *const *pair = attributes + 1; *pair; pair++) {
        add_pair(&entry, (*pair)->key, (*pair)->val);
    }
    return entry;
}

int write_list_to_stream(FILE *out, const std::string &title, vri *const *list, int count, int mode,
                         int list_format, int deps) {
    temporary_list temporary;
    FILE *const stream = out ? out : temporary.open();
    if (!stream) {
        return without_file();
    }
    log_debug("Opening table");
    const own_ekva columns(vrk_info_ekva(nullptr, mode));
    const own_heap<vrm_ftable> table(
        vrm_ftable_new(stream, title.c_str(), columns.get(), mode, list_format, deps));
    if (!table) {
        return without_file();
    }
    for (int i = 0; i < count; i++) {
        log_debug("adding %d entry", i + 1);
        if (ftable_has_columns(table.get())) {
            ftable_add_columns(table.get(), list[i]);
            continue;
        }
        own_ekva record(vrk_info_ekva(list[i], mode));
        if (!record) {
            throw std::bad_alloc();
        }
        if (list_format == FORMAT_LDIF) {
            record = ldif_entry(list[i], record.get());
        }
        vrm_ftable_add(table.get(), record.get());
    }
    log_debug("Closing table");
    vrm_ftable_end(table.get(), nullptr);
    if (out) {
        return 0;
    }
    if (!temporary.close()) {
        return without_file();  // rather than show a part of the list
    }
    log_debug("Writing table");
    vrmui_write_file(vrmui, temporary.path(), 1);
    return 0;
}

// ---- A list of actions ----

// Always on stdout, so it serves where the user interface has no tables.
void write_actions_as_ldif(vra *const *list) {
    for (vra *const *entry = list; entry && *entry; entry++) {
        const vri *package = (*entry)->info;
        const own_ekva record = record_of({{"dn", package_dn(package).c_str()},
                                           {"changeType", vra_action_word((*entry)->action)},
                                           {"evrkUid", vrk_puname(package)},
                                           {"evrkName", package->name},
                                           {"evrkVersion", package->version},
                                           {"evrkDescription", package->description}});
        const own_string text(ekva2ldif(record.get()));
        if (text) {
            puts(text.get());  // whose newline is the empty line that ends the entry
        }
    }
}

std::string kilobytes(uint64_t bytes) {
    char text[24];
    snprintf(text, sizeof text, "%7" PRIu64, bytes / 1024);
    return text;
}

int write_actions_as_table(const char *title, vra *const *list, bool sizes) {
    own_ekva columns = record_of({{"Action", "10"}, {"Package", "25"}, {"Version", "10"}});
    if (sizes) {
        add_pair(&columns, "Package size in kb", "10");
        add_pair(&columns, "Installed size in kb", "10");
    }
    if (!begin_table(title, columns)) {
        return -1;
    }
    for (int number = 1; list && list[number - 1]; number++) {
        const vra *entry = list[number - 1];
        log_debug("adding %d entry", number);
        own_ekva row = record_of({{"Action", vra_action_word(entry->action)},
                                  {"Package", entry->name},
                                  {"Version", entry->info->version}});
        if (sizes) {
            add_pair(&row, "Package size in kb", kilobytes(entry->info->filesize).c_str());
            add_pair(&row, "Installed size in kb", kilobytes(entry->info->datasize).c_str());
        }
        if (!add_row(row, number)) {
            return -1;
        }
    }
    const int result = vrmui_write_table_end(vrmui, title);
    succeeded(result, event_kind::report_table_not_shown);
    return result;
}

}  // namespace

int vrm_vrk_list_write(FILE *out, vri *const *list, int count, int mode, int list_format,
                       int deps) {
    return guarded("vrm_vrk_list_write", -1, [&] {
        log_debug(out ? "Writing list to file" : "Writing list to ui");
        const std::string title = list_title(mode, count);
        return list_format == FORMAT_TABLE
                   ? write_list_as_table(title, list, count, deps != 0)
                   : write_list_to_stream(out, title, list, count, mode, list_format, deps);
    });
}

int vrm_vra_list_write(vra *const *list, int /*unused*/, const void *title, int list_format,
                       int sizes) {
    return guarded("vrm_vra_list_write", -1, [&] {
        if (list_format == FORMAT_LDIF) {
            write_actions_as_ldif(list);
            return 0;
        }
        return write_actions_as_table(static_cast<const char *>(title), list, sizes != 0);
    });
}
