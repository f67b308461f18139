// What the removal of several packages with one command takes away, in which order, and what has to
// stay: a function of the installed packages alone.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "pvrm/needs_graph.h"

// The requests are taken as one, as if all of them went at the same time:
//
// - A requested package goes unless an installed package that does not go needs it. Exempt is one
//   that was installed for its sake and that no other package that stays needs: it is left without.
// - A package that was not requested goes along when it was installed as a dependency, a package
//   that goes needs it, all packages that need it go, and the one for whose sake it was installed
//   goes or is not installed. With `keep_deps` nothing goes along.
//
// Of all sets for which that holds it is the largest: packages that need each other in a circle go
// when nothing outside of the circle holds one of them.
//
// A package goes after all that need it. Where that leaves a choice, the requests keep their order.
// A dependency is removed together with the last request that leads to it, directly or not. A
// requested dependency that would go along anyway counts as one.
class removal_plan {
 public:
    // The plan keeps nothing of the records. Requests that are not installed play no part.
    removal_plan(const std::vector<const vri *> &installed,
                 const std::vector<std::string> &requests, bool keep_deps);

    struct part {
        size_t place;  // in the list of installed packages
        std::string name;
        std::string needed_by;  // a package that goes before it and needs it
    };
    struct removal {
        size_t place;
        std::string name;
        std::vector<part> parts;  // what goes along, in its order
    };
    // In the order in which they are to be carried out.
    const std::vector<removal> &removals() const {
        return removals_;
    }

    // All installed packages that need one.
    std::vector<std::string> dependents(const std::string &name) const;

    // Whether a package is to go, or is gone.
    bool goes(const std::string &name) const;

    // The installed packages that need one, stay and hold it.
    std::vector<std::string> holders(const std::string &name) const;

    // The installed packages that need one and stay, and that don't hold it.
    std::vector<std::string> left_without(const std::string &name) const;

    // A package was removed: it holds nothing any more.
    void note_gone(const std::string &name);

    // A package that was to go stays, and with it all that it needs, as far as that is not gone:
    // the exemption is not for one whose own removal failed.
    void note_stays(const std::string &name);

 private:
    enum class fate : char { stays, goes, gone };

    bool is_needed_by_staying(size_t at) const;
    bool holds(size_t holder, size_t at) const;
    bool has_to_stay(size_t at) const;
    std::vector<std::string> staying_dependents(size_t at, bool is_holder) const;
    void add_dependencies();
    void keep(std::vector<size_t> staying);
    bool goes_along(size_t at, const std::vector<size_t> &rank,
                    const std::vector<size_t> &circle) const;
    void arrange(const std::vector<size_t> &requests);

    const needs_graph graph_;
    const bool keep_deps_;
    std::vector<bool> requested_;
    std::vector<fate> fates_;
    std::vector<bool> tried_;                    // what was to go, and stayed
    std::vector<std::vector<size_t>> came_for_;  // the packages whose head is this one
    std::vector<removal> removals_;
};
