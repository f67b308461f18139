// A file with everything that can belong to one, and what belongs to a file. Only root can make it.
#pragma once

#include <sys/stat.h>

#include <compare>
#include <map>
#include <string>

// What a backup and a restored file have in common with the original.
struct file_facts {
    std::string content;
    unsigned uid = 0, gid = 0, mode = 0;
    long long modified = 0;  // nanoseconds since the epoch
    std::map<std::string, std::string> attributes;

    bool operator==(const file_facts &) const = default;
};

// Those of a file, links not followed; a file that is missing has none.
file_facts facts_of(const std::string &path);

// For the message of a test that fails.
void PrintTo(const file_facts &facts, std::ostream *out);

// Writes a program of another user's, uid 65534 and gid 65533, with mode 4755, a capability, an
// access control list and an attribute of its own, which was modified at a time with nanoseconds.
// A failure to make it fails the test. Result: its facts.
file_facts write_marked_file(const std::string &path, const std::string &content);
