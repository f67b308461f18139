// The package files among the requests of one command: each may be a dependency of the others.
#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

#include "pvrm/session.h"
#include "repository/snapshot.h"
#include "transaction/vrt.h"

class named_files {
 public:
    // Reads the files among the requests, once. One that can't be read, or that is for another
    // machine, is passed over in silence, as its own request reports it.
    void read(session &work, const std::vector<std::string> &requests);

    // Whether there is one among several requests: then the fate of one request may depend on that
    // of another one's file.
    bool may_serve_others() const {
        return serves_others_;
    }

    // The record of a file by its request, null for another request.
    const vri *record_of(const std::string &request) const;

    // Whether the file of a request may serve as a dependency. All may at first; one whose request
    // fails may not. Other requests are ignored.
    void set_usable(const std::string &request, bool is_usable);

    // Whether a file of another request than this one can't be used.
    bool has_unusable_besides(const std::string &request) const;

    // What the planner is to know for a request: the files that can be used, and of one name the
    // first. A file does not become a dependency of its own package. Result: valid until the next
    // call of a function that is not const; the records stay this object's.
    const given_packages &given_for(const std::string &request);

    // A dependency of a plan that comes from a file that can't be used, null for none.
    const vrd *unusable_part(const vrt &transaction) const;

 private:
    struct named_file {
        std::string request;
        own_vri record;
        bool is_usable = true;
    };
    const named_file *file_of(const std::string &request) const;
    void choose(const std::string &name);

    std::vector<named_file> files_;
    std::unordered_map<std::string, size_t> by_request_, by_path_;
    std::unordered_map<std::string, std::vector<size_t>> by_name_;
    given_packages given_;
    size_t unusable_ = 0;
    bool are_read_ = false, serves_others_ = false;
};
