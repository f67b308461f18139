// Numbers and dates as people read them.
#pragma once

#include <cstdint>
#include <string>

std::string nice_size(uint64_t bytes);
std::string nice_date(int64_t seconds_since_epoch);
