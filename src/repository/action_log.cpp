#include "repository/action_log.h"

#include <cerrno>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>
#include <string>

#include "package/vri.h"
#include "support/array.h"
#include "support/boundary.h"
#include "support/event.h"
#include "support/log.h"
#include "support/own.h"
#include "support/vdef.h"

static std::string date_of_now() {
    const time_t now = time(nullptr);
    struct tm local = {};
    localtime_r(&now, &local);
    char date[80];
    snprintf(date, sizeof date, "%4d-%02d-%02d %02d:%02d:%02d", local.tm_year + 1900,
             local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    return date;
}

// One sentence is one line: a name with a line end in it must not forge another.
static std::string on_one_line(std::string sentence) {
    for (char &c : sentence) {
        if (c == '\n' || c == '\r') {
            c = '?';
        }
    }
    return sentence;
}

// Whether the file's last line is whole. One that was torn, by a full disk or a crash, must not
// swallow the next sentence.
static bool ends_with_a_line(FILE *file) {
    const int last = fseek(file, -1, SEEK_END) == 0 ? fgetc(file) : EOF;
    fseek(file, 0, SEEK_END);
    return last == '\n' || last == EOF;  // what is empty or can't be read counts as whole
}

static void append(const std::string &sentence) {
    const std::string path = std::string(vrm_action_log_dir) + "/" + vrm_action_log_name;
    own_file file(fopen(path.c_str(), "a+e"));
    if (!file) {
        report({.kind = event_kind::history_not_opened, .path = path, .error = errno});
        return;
    }
    const char *before = ends_with_a_line(file.get()) ? "" : "\n";
    bool written =
        fprintf(file.get(), "%s%s\n", before, sentence.c_str()) >= 0 && fflush(file.get()) == 0;
    int reason = errno;
    if (fclose(file.release()) != 0 && written) {
        written = false;
        reason = errno;
    }
    if (!written) {
        report({.kind = event_kind::history_not_written, .path = path, .error = reason});
    }
}

void vrm_log_action(int action, const char *vrk_puname_old, const char *vrk_puname_new,
                    const char *head) {
    const auto out_of_memory = [] {
        report({.kind = event_kind::memory_exhausted, .who = "vrm_log_action"});
    };
    guarded(out_of_memory, [&] {
        if (!vrk_puname_new) {
            report({.kind = event_kind::history_without_package});
            return;
        }
        const std::string package = vrk_puname_new;
        std::string done;
        switch (action) {
            case 1:
                done = "installed " + package;
                break;
            case 2:
                if (!vrk_puname_old) {
                    report({.kind = event_kind::history_without_old_package});
                    return;
                }
                done = std::string("updated ") + vrk_puname_old + " to " + package;
                break;
            case 3:
                done = "deleted " + package;
                break;
            default:
                report({.kind = event_kind::history_action_invalid});
                return;
        }
        const std::string reason =
            head ? std::string("as dependency of ") + head : "as requested by user";
        append(on_one_line(date_of_now() + ": " + done + " " + reason));
    });
}

// ---- Reading ----

// A deletion has eight words and an update ten: one that was torn behind its reason is let through.
static constexpr int fewest_words = 8;

// Cuts the colon off the date, whatever stands in its place, and tells the time. What does not scan
// behind the first field is as it is today.
static bool parse_date(std::string *date, int64_t *seconds) {
    static constexpr size_t length_with_colon = 20;
    if (date->size() != length_with_colon) {
        report({.kind = event_kind::history_date_invalid, .other = date->c_str()});
        return false;
    }
    date->pop_back();
    // By the result of dbdate2time a date without a field could not be told from 1969.
    int year;
    if (sscanf(date->c_str(), "%04d", &year) < 1) {
        report({.kind = event_kind::history_date_unparsable, .other = date->c_str()});
        return false;
    }
    *seconds = dbdate2time(date->c_str());
    return true;
}

static own_ekva decode(const char *uid) {
    errno = 0;
    own_ekva parts(vrk_puname_decode(uid));
    if (!parts && errno == ENOMEM) {
        throw std::bad_alloc();
    }
    if (!parts) {
        log_debug("vrm_parse_log: error parsing PkgUid <%s>", uid);
    }
    return parts;
}

// Adds a package and what its identifier tells, up to its version, under these keys.
struct package_keys {
    const char *uid, *name, *variant, *version, *architecture;  // null: not kept
};

static bool add_package(own_ekva *rec, const char *uid, const package_keys &keys) {
    add_pair(rec, keys.uid, uid);
    const own_ekva parts = decode(uid);
    if (!parts) {
        return false;
    }
    if (keys.name) {
        add_pair(rec, keys.name, ekva_getval(parts.get(), "evrkName"));
    }
    if (const char *variant = ekva_getval(parts.get(), "evrkVariant")) {
        add_pair(rec, keys.variant, variant);
    }
    add_pair(rec, keys.version, ekva_getval(parts.get(), "evrkVersion"));
    if (keys.architecture) {
        add_pair(rec, keys.architecture, ekva_getval(parts.get(), "evrkArchitecture"));
    }
    return true;
}

static void add_reason(own_ekva *rec, const char *reason, const char *head) {
    if (reason[0] == 'r') {
        add_pair(rec, "evrkLogReason", "user");
    } else if (reason[0] == 'd') {
        add_pair(rec, "evrkLogReason", "dependency");
        add_pair(rec, "evrkLogDependent", head);
    }
}

s_ekva **vrm_parse_log(const char *line) {
    // Without memory a line that makes sense must not pass for one that makes none.
    return guarded("vrm_parse_log", nullptr, [&]() -> s_ekva ** {
        static constexpr package_keys package = {"evrkLogPkgUid", "evrkLogPkgName",
                                                 "evrkLogPkgVariant", "evrkLogPkgVersion",
                                                 "evrkLogPkgArchitecture"};
        static constexpr package_keys new_package = {
            "evrkLogNewPkgUid", nullptr, "evrkLogNewPkgVariant", "evrkLogNewPkgVersion", nullptr};
        if (!line) {
            return nullptr;
        }
        const own_array parts(str2arr(line, ' '));
        if (!parts && line[strspn(line, " ")] != '\0') {
            throw std::bad_alloc();
        }
        if (!parts) {
            report({.kind = event_kind::history_line_unparsable, .other = line});
            return nullptr;
        }
        const int count = arr_count(parts.get());
        log_debug("vrm_parse_log: line <%s> has %d parts", line, count);
        if (count < fewest_words) {
            report({.kind = event_kind::history_line_short,
                    .other = line,
                    .number = static_cast<int64_t>(count)});
            return nullptr;
        }
        const char *const *const word = parts.get();
        const char action = word[2][0];
        if (action != 'u' && action != 'i' && action != 'd') {
            report({.kind = event_kind::history_letter_invalid,
                    .other = std::string_view(&action, 1)});
            return nullptr;
        }
        std::string date = std::string(word[0]) + " " + word[1];
        int64_t seconds;
        if (!parse_date(&date, &seconds)) {
            return nullptr;
        }
        log_debug("vrm_parse_log: %s is %" PRId64, date.c_str(), seconds);

        own_ekva rec(ekva_new(30, 4));
        add_pair(&rec, "evrkLogDate", date.c_str());
        add_pair(&rec, "evrkLogTime", std::to_string(seconds).c_str());
        const bool update = action == 'u';
        add_pair(&rec, "evrkLogAction", update ? "update" : action == 'i' ? "install" : "remove");
        if (!add_package(&rec, word[3], package) ||
            (update && !add_package(&rec, word[5], new_package))) {
            return nullptr;
        }
        const int reason = update ? 7 : 5;
        add_reason(&rec, word[reason], count > reason + 2 ? word[reason + 2] : nullptr);
        return rec.release();
    });
}
