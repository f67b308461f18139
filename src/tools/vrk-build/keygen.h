// Makes a key and a self-signed certificate for a subject.
#pragma once

#include <string>

struct keygen_options {
    std::string subject;   // in one line, "/O=Name/CN=Name"
    std::string key_file;  // written with mode 0600
    std::string certificate_file;
    int days = 3650;
};

// Neither file may exist yet. Throws a problem.
void keygen(const keygen_options &options);
