#include "maintenance/show_log.h"

#include <array>
#include <cstdlib>
#include <string>

#include "maintenance/report.h"
#include "repository/action_log.h"
#include "support/boundary.h"
#include "support/csv.h"
#include "support/event.h"
#include "support/file.h"
#include "support/ldif.h"
#include "support/log.h"
#include "support/own.h"
#include "ui/vrmui.h"

namespace {

struct label {
    const char *text;
    const char *key;
    bool always;
};
constexpr label labels[] = {
    {"Date          : ", "evrkLogDate", true},
    {"Action        : ", "evrkLogAction", true},
    {"Package       : ", "evrkLogPkgName", true},
    {"Variant       : ", "evrkLogPkgVariant", false},
    {"Version       : ", "evrkLogPkgVersion", true},
    {"Architecture  : ", "evrkLogPkgArchitecture", true},
    {"New Variant   : ", "evrkLogNewPkgVariant", false},
    {"New Version   : ", "evrkLogNewPkgVersion", false},
    {"Reason        : ", "evrkLogReason", true},
    {"Dependent     : ", "evrkLogDependent", false},
};

constexpr std::array columns = {
    "evrkLogLine",          "evrkLogDate",          "evrkLogTime",       "evrkLogAction",
    "evrkLogPkgName",       "evrkLogPkgVariant",    "evrkLogPkgVersion", "evrkLogPkgArchitecture",
    "evrkLogNewPkgVariant", "evrkLogNewPkgVersion", "evrkLogReason",     "evrkLogDependent",
};

}  // namespace

static void show_text(s_ekva *const *record) {
    for (const label &one : labels) {
        const char *value = ekva_getval(record, one.key);
        if (value || one.always) {
            vrmui_say("%s%s\n", one.text, value ? value : "");
        }
    }
    vrmui_say("\n");
}

static void show_ldif(const char *number, s_ekva *const *record) {
    vrmui_say("dn: evrkLogLine=%s,%s\n", number, dn_suffix);
    ldif_uiwrite("evrkLogLine", number, 0, 0);
    ldif_uiwrite("objectClass", "evrkLog", 0, 0);
    if (const own_string text{ekva2ldif(record)}) {
        vrmui_say("%s\n", text.get());
    } else if (record) {
        report({.kind = event_kind::memory_short, .who = "vrm_showlogline"});
    }
}

static void show_csv(const char *number, s_ekva *const *record) {
    std::array<const char *, columns.size() + 1> fields = {};
    for (size_t i = 0; i < columns.size(); i++) {
        const char *value = i == 0 ? number : ekva_getval(record, columns[i]);
        fields[i] = !record ? columns[i] : value ? value : "";
    }
    log_debug("vrm_showlogline: before arr2csv, num=%d\n", static_cast<int>(columns.size()));
    for (size_t i = 0; i < columns.size(); i++) {
        log_debug("vrm_showlogline: csv_arr[%d]: <%s>\n", static_cast<int>(i), fields[i]);
    }
    const own_string line(arr2csv(const_cast<char *const *>(fields.data()), ';', 0));
    if (!line) {
        report({.kind = event_kind::report_line_empty});
        return;
    }
    log_debug("vrm_showlogline: csv_line: <%s>\n", line.get());
    vrmui_say("%s\n", line.get());
}

int vrm_showlogline(const char *number, s_ekva *const *record, unsigned format) {
    const char *const line_number = number ? number : "";
    switch (static_cast<list_format>(format)) {
        case FORMAT_TEXT:
            show_text(record);
            break;
        case FORMAT_LDIF:
            show_ldif(line_number, record);
            break;
        case FORMAT_DELIMITED:
            show_csv(line_number, record);
            break;
        default:
            break;
    }
    return 0;
}

static void show_parsed(const char *line, int number, unsigned format) {
    const own_ekva record(vrm_parse_log(line));
    if (!record) {
        report({.kind = event_kind::history_line_skipped,
                .other = line,
                .number = static_cast<int64_t>(number)});
        return;
    }
    vrm_showlogline(std::to_string(number).c_str(), record.get(), format);
}

std::string vrm_showlog_path() {
    const char *const other = getenv(vrm_showlog_variable);
    return other ? other : std::string(vrm_action_log_dir) + "/" + vrm_action_log_name;
}

int vrm_showlog(void *, unsigned format, int order) {
    return guarded("vrm_showlog", 0, [&] {
        const std::string path = vrm_showlog_path();
        report({.kind = event_kind::history_found, .path = path});
        int count = 0;
        const own_array lines(read_file_lines(path.c_str(), &count));
        if (!lines) {
            report({.kind = event_kind::history_not_read, .path = path});
            return count;
        }

        vrmui_line_new(vrmui, "");
        if (format == FORMAT_DELIMITED) {
            vrm_showlogline("", nullptr, format);
        }
        for (int i = 0; i < count; i++) {
            const int at = order == 1 ? i : count - 1 - i;
            const char *const line = lines.get()[at];
            if (format == FORMAT_RAW) {
                vrmui_say("%s\n", line);
            } else {
                show_parsed(line, at + 1, format);
            }
        }
        if (vrmui) {
            vrmui_write(vrmui, vrmui->text, 0);
        }
        return count;
    });
}
