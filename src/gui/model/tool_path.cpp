// A file of its own, so that a test can link another path.
#include "gui/model/tool_command.h"

extern const char *const pvrm_path = "/usr/sbin/pvrm";
