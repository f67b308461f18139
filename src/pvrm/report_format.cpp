#include "pvrm/report_format.h"

#include <unistd.h>

const std::vector<std::string> list_format_names = {"text", "table", "ldif", "csv"};
const std::vector<std::string> info_format_names = {"text", "form", "ldif", "csv"};
const std::vector<std::string> log_format_names = {"text", "ldif", "csv", "raw"};

list_format format_named(const std::string &name, list_format drawn) {
    static constexpr struct {
        const char *name;
        list_format format;
    } named[] = {{"text", FORMAT_TEXT},   {"ldif", FORMAT_LDIF}, {"csv", FORMAT_DELIMITED},
                 {"table", FORMAT_TABLE}, {"form", FORMAT_FORM}, {"raw", FORMAT_RAW}};
    for (const auto &candidate : named) {
        if (name == candidate.name) {
            return candidate.format;
        }
    }
    return isatty(STDOUT_FILENO) ? drawn : FORMAT_TEXT;
}

bool is_for_people(list_format format) {
    return format != FORMAT_LDIF && format != FORMAT_DELIMITED && format != FORMAT_RAW;
}

FILE *stream_for(list_format format) {
    return is_for_people(format) || isatty(STDOUT_FILENO) ? nullptr : stdout;
}

exit_status report_list(vri *const *list, int count, int mode, list_format format) {
    if (count > 0 && vrm_vrk_list_write(stream_for(format), list, count, mode, format, 0) != 0) {
        return EXIT_FAILED;  // the log has said why
    }
    return EXIT_DONE;
}
