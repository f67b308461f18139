// The question that stands between a plan and its doing.
#pragma once

#include <cstddef>

// Asks whether the packages that were shown shall be changed: `verb` begins the question, as in
// "Install". False too when an end was asked for meanwhile.
bool user_agrees(const char *verb, size_t packages);
