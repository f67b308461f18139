#include <cstdlib>
#include <cstring>

#include "maintenance/report.h"
#include "support/csv.h"
#include "support/event.h"
#include "support/ldif.h"
#include "support/log.h"
#include "support/own.h"
#include "support/text.h"

static constexpr char text_row[] = "%-25s %-15s %-35s\n";

static void write_csv(FILE *stream, s_ekva *const *record, int header) {
    const own_string line(ekva2csv(record, ',', 0, header));
    if (line) {
        fprintf(stream, "%s\n", line.get());
    }
}

static void write_ldif(FILE *stream, s_ekva *const *record) {
    for (s_ekva *const *pair = record + 1; *pair; pair++) {
        const char *key = (*pair)->key;
        // A signature's base64 would lose all but its first line, see ldif_write.
        if ((*pair)->val && !strstr(key, ";binary")) {
            ldif_fwrite(stream, key, (*pair)->val, 0, strcmp(key, "dn") == 0 ? 2 : 0);
        }
    }
    ldif_fwrite(stream, nullptr, "", 0, 0);
}

static void write_text(FILE *stream, const char *name, const char *variant, const char *version,
                       const char *description) {
    // With a variant the cell is a character shorter, and the columns stay aligned in both cases.
    char cell[26];
    if (variant) {
        snprintf(cell, 25, "%s_%s", or_empty(name), variant);
    } else {
        snprintf(cell, 26, "%s", or_empty(name));
    }
    fprintf(stream, text_row, cell, or_empty(version), or_empty(description));
}

vrm_ftable *vrm_ftable_new(FILE *stream, const void * /*title*/, s_ekva *const *columns, int mode,
                           int format, int deps) {
    auto *const table = static_cast<vrm_ftable *>(malloc(sizeof(vrm_ftable)));
    if (!table) {
        report({.kind = event_kind::report_table_not_made});
        return nullptr;
    }
    *table = {deps, mode, format, stream, 0};
    switch (format) {
        case FORMAT_DELIMITED:
            write_csv(stream, columns, 1);
            break;
        case FORMAT_LDIF:
            log_debug("Ldif needs no header");
            break;
        default:
            fprintf(stream, text_row, "Name (with variant)", "Version", "Description");
            fprintf(stream, text_row, "-------------------", "-------", "-----------");
            fflush(stream);
            break;
    }
    return table;
}

int vrm_ftable_add(vrm_ftable *table, s_ekva *const *record) {
    switch (table->format) {
        case FORMAT_DELIMITED:
            write_csv(table->stream, record, 0);
            break;
        case FORMAT_LDIF:
            write_ldif(table->stream, record);
            break;
        default:
            write_text(table->stream, ekva_getval(record, "evrkName"),
                       ekva_getval(record, "evrkVariant"), ekva_getval(record, "evrkVersion"),
                       ekva_getval(record, "evrkDescription"));
            break;
    }
    table->rows++;
    return 0;
}

bool ftable_has_columns(const vrm_ftable *table) {
    return table->format != FORMAT_DELIMITED && table->format != FORMAT_LDIF;
}

void ftable_add_columns(vrm_ftable *table, const vri *package) {
    write_text(table->stream, package->name, package->variant, package->version,
               package->description);
    table->rows++;
}

int vrm_ftable_end(vrm_ftable *table, const void * /*unused*/) {
    fputc('\n', table->stream);
    return 0;
}
