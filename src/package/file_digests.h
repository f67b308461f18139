// Private to the library: the digests of unpacked files that were taken while they were written.
#pragma once

#include <array>
#include <string>
#include <unordered_map>

// SHA-1, by the path below the directory that the package was unpacked to.
using file_digests = std::unordered_map<std::string, std::array<unsigned char, 20>>;
