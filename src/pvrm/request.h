// What a user names on the command line: a package or a package file.
#pragma once

#include <string>

#include "package/vri.h"
#include "pvrm/session.h"

// Whether a text that is no package file was plainly meant to be one, as it holds a slash or ends
// in ".vrk"; then "not found in the catalogue" would mislead.
bool looks_like_file(const std::string &request);

// Tells why such a text is no package file.
void tell_no_package_file(const std::string &request);

// Whether a text is empty, and so can't name a package; tells so.
bool names_nothing(const std::string &request);

// The record of a package file with its signature checked, of an installed package, or of the best
// one in the catalogue, looked for in this order; null, with the reason told, when there is none.
own_vri find_package(session &work, const std::string &request);
