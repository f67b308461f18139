// The table of architectures. An id is a bit; 99 means unknown.
#pragma once

inline constexpr int arch_any = 1;
inline constexpr int arch_i686 = 2;
inline constexpr int arch_x86_64 = 4;
inline constexpr int arch_mips = 8;
inline constexpr int arch_unknown = 99;

// The id of an architecture's name, compared exactly; arch_unknown for every other text or null.
int vrm_arch_getid(const char *name);

// The name of an id, a constant string, or null for any other number.
const char *vrm_arch_getname(int id);
