// Golden files: what a test expects in full, kept beside it.
#pragma once

#include <string>

// Where they are written anew instead of compared, if this variable is set to anything.
inline constexpr char golden_variable[] = "VRM_WRITE_GOLDEN";

// Compares a text with a golden file. A difference fails the test and prints the first lines that
// differ. With the variable the file is written, and the test fails as well: what was written is to
// be read, not believed.
void expect_golden(const std::string &path, const std::string &text);
