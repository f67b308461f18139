#include "pvrm/sizes.h"

#include <ctime>

#include "support/vdef.h"

std::string nice_size(uint64_t bytes) {
    char text[64];
    return vdef_nice_byte(text, static_cast<double>(bytes));
}

std::string nice_date(int64_t seconds_since_epoch) {
    char text[64];
    return vdef_nice_dbdate(static_cast<time_t>(seconds_since_epoch), text);
}
