// Private to the reports: the name of a package in LDIF.
#pragma once

#include <string>

#include "package/vri.h"
#include "support/ldif.h"

inline std::string package_dn(const vri *package) {
    return std::string("evrkUid=") + vrk_puname(package) + "," + dn_suffix;
}
