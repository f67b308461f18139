// The package files among the requests of one command: each may be a dependency of the others.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "pvrm/session.h"
#include "repository/snapshot.h"
#include "transaction/vrt.h"

class named_files {
 public:
    // Reads the files among the requests, once. One that can't be read is passed over in silence,
    // as its own request reports it.
    void read(session &work, const std::vector<std::string> &requests);

    // The record of a file by its request, null for another request.
    const vri *record_of(const std::string &request) const;

    // The request failed: its file can't serve as a dependency.
    void note_unusable(const std::string &request) {
        unusable_.insert(request);
    }

    // What the planner is to know for a request: the other files, and of one name the first. A file
    // does not become a dependency of its own package. The records stay this object's.
    given_packages given_for(const std::string &request) const;

    // Whether a plan has a dependency from a file that can't be used.
    bool has_unusable_part(const vrt &transaction) const;

 private:
    struct named_file {
        std::string request;
        own_vri record;
    };
    std::vector<named_file> files_;
    bool are_read_ = false;
    std::set<std::string> unusable_;  // requests
};
