// Which installed package needs which, as places in a list. Names are compared as they are, and a
// dependency that isn't installed plays no part; neither does one of a package on itself.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "package/vri.h"

struct needs_graph {
    struct package {
        std::string name;
        bool asked_for;    // installed explicitly
        std::string head;  // for whose sake it was installed, empty for none
        std::vector<size_t> needs = {}, needed_by = {};
    };

    // Nothing of the records is kept.
    explicit needs_graph(const std::vector<const vri *> &installed);

    // The place of a package; nothing for one that isn't in the list.
    std::optional<size_t> place_of(const std::string &name) const;

    std::vector<package> packages;  // in the order of the list

 private:
    std::unordered_map<std::string, size_t> places_;
};
