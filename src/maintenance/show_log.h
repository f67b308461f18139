// The printing of the history (repository/action_log.h).
//
//   list_format (maintenance/report.h) and what a line of the history becomes in it
//   1 text  a line "Label         : value" for each value, and an empty line
//   2 LDIF  an entry of the class evrkLog, named by the number of the line
//   4 CSV   a line of twelve fields parted by semicolons, below a line of their names
//   7 raw   the line as it is
//
// In every other format all lines are read and nothing is printed.
//
// The columns of CSV are evrkLogLine, the number of the line, then evrkLogDate, evrkLogTime,
// evrkLogAction, evrkLogPkgName, evrkLogPkgVariant, evrkLogPkgVersion, evrkLogPkgArchitecture,
// evrkLogNewPkgVariant, evrkLogNewPkgVersion, evrkLogReason and evrkLogDependent, empty where there
// is no value.
#pragma once

#include <string>

#include "support/ekva.h"

// When this is set in the environment, it is the path of the file that is shown.
inline constexpr char vrm_showlog_variable[] = "VRM_SHOWLOG_DEBUG_LOGFILE";

// The path of the file that is shown.
std::string vrm_showlog_path();

// Shows the whole history, oldest first with `order` 1, else newest first: collects it in the text
// of the vrmui object, whose former text is dropped, and shows that in one go. The first argument
// is not used. A line that can't be understood is logged at ERROR and skipped, and the file is
// never mended. Returns the number of lines in the file, understood or not. Without any, and when
// the file can't be read or shown, that is 0, an ERROR is logged and nothing is shown; `errno`
// tells why, and is 0 for an empty file. What memory fails for is logged at ERROR as well. No lock
// is taken: a line that is just being written is at worst a skipped line.
int vrm_showlog(void *unused, unsigned format, int order);

// Adds one record of vrm_parse_log to the text of the vrmui object, in one of the formats 1, 2 and
// 4. `number` is the number of its line as text. In format 4 a null record gives the line with the
// names of the columns. Always 0.
int vrm_showlogline(const char *number, s_ekva *const *record, unsigned format);
