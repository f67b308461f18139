// Who needs whom among the installed packages, and what follows from that. Names are compared as
// they are, and a dependency that isn't installed plays no part.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "pvrm/needs_graph.h"

class installed_needs {
 public:
    explicit installed_needs(const std::vector<const vri *> &packages) : graph_(packages) {}

    // The packages that came as dependencies and that no installed package needs, in the order of
    // the list. Packages that need each other in a circle are taken as one: nobody needs them when
    // nobody else needs any of them. What only an orphan needs is none itself.
    std::vector<std::string> orphans() const;

    struct reason {
        bool asked_for = false;  // installed explicitly
        std::string head;        // for whose sake it came; empty for a package that was asked for
        // Each begins with a package that needs the next one, and so on down to the package in
        // question. There is one for each package at a beginning, the shortest; the short ones come
        // first, those of one length in the order of the list.
        std::vector<std::vector<std::string>> chains;
        // What they begin with was asked for. A chain goes through no other such package, as that
        // one begins a shorter chain. Only where there is none at all they begin with orphans.
        bool chains_are_wanted = false;
    };
    // Nothing for a package that isn't in the list.
    std::optional<reason> why(const std::string &name) const;

 private:
    using package = needs_graph::package;
    std::vector<bool> orphan_marks() const;
    std::vector<size_t> by_finish() const;
    std::vector<size_t> reached_from(size_t start, std::vector<size_t> package::*edges,
                                     std::vector<bool> *marked) const;

    needs_graph graph_;
};
