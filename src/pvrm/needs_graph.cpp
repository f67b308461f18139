#include "pvrm/needs_graph.h"

needs_graph::needs_graph(const std::vector<const vri *> &installed) {
    std::vector<char *const *> dependencies;
    for (const vri *info : installed) {
        dependencies.push_back(info->deps);
        places_.emplace(info->name, packages.size());
        packages.push_back(
            {info->name, info->install_type != 'D', info->install_head ? info->install_head : ""});
    }
    for (size_t at = 0; at < packages.size(); at++) {
        for (char *const *dep = dependencies[at]; dep && *dep; dep++) {
            const std::optional<size_t> place = place_of(*dep);
            if (!place || *place == at) {
                continue;
            }
            std::vector<size_t> &dependents = packages[*place].needed_by;
            // A package may list a name twice.
            if (dependents.empty() || dependents.back() != at) {
                dependents.push_back(at);
                packages[at].needs.push_back(*place);
            }
        }
    }
}

std::optional<size_t> needs_graph::place_of(const std::string &name) const {
    const auto found = places_.find(name);
    return found == places_.end() ? std::nullopt : std::optional(found->second);
}
