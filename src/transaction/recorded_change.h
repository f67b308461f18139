// Private to the library: what a record (transaction/record.h) says, package by package.
#pragma once

#include <charconv>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include "transaction/record.h"
#include "transaction/touched.h"

// What the record says of one package.
struct recorded_change {
    std::string operation, name, puname, stage;
    std::vector<std::string> absent;      // directories of the repository
    std::vector<std::string> saved_sets;  // those with copies of files that belong to nobody
    std::vector<std::string> scripts;
    std::vector<std::string> due;  // and not done
    const record_entry *touch = nullptr, *commit = nullptr;
    bool undone = false, done = false;
};

// What it says of the command.
struct recorded_command {
    std::string temporary;
    std::vector<recorded_change> changes;
};

// The number that a text begins with, 0 for none.
template <class number>
number leading_number(const std::string &text, int base = 10) {
    number value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value, base);
    return value;
}

// The record must stay as long as the result is used.
recorded_command command_of(const read_record &record);

// What a package's change touches. It must have recorded that.
touched_paths touched_of(const recorded_change &change, const std::string &temporary);

// An operation for people.
const char *noun_of(std::string_view operation);
