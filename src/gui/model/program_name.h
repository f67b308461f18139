// What the program's own name tells. It takes no options.
#pragma once

// Whether the name that the program was called by asks for updates alone: it contains "-update",
// anywhere. Null doesn't.
bool asks_for_updates_only(const char *program_name);
