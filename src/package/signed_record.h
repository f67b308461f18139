// The signed description of a package: info/desc.txt in its payload.
//
// The signature covers the payload and not the head, so the head, and a catalogue that repeats it,
// is worth no more than the place that it came from. The payload holds the description once more.
// Whatever changes the system compares the two, and from then on believes only the signed one.
//
// Two records agree when name, variant, version, architecture, creator, description, dependencies
// and data size are equal. The order of dependencies counts. No variant and an empty one differ, as
// they make different names in the stage area. Signature, file size, file hash and addresses can't
// be in a description that is part of what they are made of; the format versions 1.0 and 2.0 are
// read alike and are not in a record at all.
#pragma once

#include <string>

#include "package/vri.h"

// Where the signed description lies: below the unpacked payload, and among the files of its info
// fork as a hash list names them.
inline constexpr char signed_description_path[] = "info/desc.txt";
inline constexpr char signed_description_file[] = "/desc.txt";

// The first field in which two records disagree, as a word for messages such as "version" or
// "dependencies"; null when they agree.
const char *differing_field(const vri *first, const vri *second);

// The same as a sentence without a full stop, empty when they agree. `of_first` and `of_second` say
// whose records they are, such as "its head". A difference in name, variant, version or
// architecture shows both: "its head says pam 999, its signed description says hello 1.0". Any
// other names the field. Bytes that could steer a terminal or forge a line of a log are replaced.
std::string difference_in_words(const char *of_first, const vri *first, const char *of_second,
                                const vri *second);

// Reads the signed description of a payload that was unpacked to the directory `dir`. It must be a
// regular file, not a link, and no longer than 1 MiB. Result: the record, or null, with what is
// wrong in `*why`, such as "it has no signed description (info/desc.txt)".
own_vri read_signed_record(const std::string &dir, std::string *why);

// What comparing the head of a package file with its signed description gives.
struct head_comparison {
    enum verdict {
        matches,
        differs,
        failed,  // there is no signed description, or it can't be read
    };
    verdict result = failed;
    std::string why;  // for a person; empty when they match
};

// Compares the two in a package file that is not unpacked; nothing is written. The signature itself
// is not checked here. The whole payload is read, as the last member of a name is what an unpacking
// leaves. What is wrong with a head is on the log.
head_comparison compare_head(const char *package_file);
