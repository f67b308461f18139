// Texts on their way into the toolkit's dialogs.
#pragma once

#include <string>

// What a text looks like that acts as a format without arguments: "%%" is one percent sign. A stray
// percent sign, which such a text must not have, stands for itself, whatever follows it.
std::string without_arguments(const char *format);

// A text as a label that shows it: in labels an at sign begins a drawn symbol and ends the text,
// and two are one.
std::string as_label(const std::string &text);
