// The forms in which list, search, info and log show what they found. All of them are reports of
// the engine (maintenance/report.h), and go to stdout and nowhere else.
#pragma once

#include <string>
#include <vector>

#include "maintenance/report.h"
#include "pvrm/words.h"

// The arguments of --format.
extern const std::vector<std::string> list_format_names;
extern const std::vector<std::string> info_format_names;
extern const std::vector<std::string> log_format_names;

// The form of a name. Without a name a terminal gets what is drawn for it, `drawn`, and everything
// else the text, whose lines don't depend on what is around them.
list_format format_named(const std::string &name, list_format drawn);

// Whether a form is for people rather than programs.
bool is_for_people(list_format format);

// Where a report goes: to the user interface, which makes it safe for a terminal; but what is for
// programs goes to them byte by byte.
FILE *stream_for(list_format format);

// Reports the records of a list, if there are any: their absence is told in another way. `mode` as
// for vrm_vrk_list_write. Result: the exit status.
exit_status report_list(vri *const *list, int count, int mode, list_format format);
