#include "pvrm/request_order.h"

#include <cstddef>
#include <map>
#include <utility>

namespace {

struct ordering {
    std::vector<planned_request> &requests;
    std::map<std::string, size_t> by_name;
    std::vector<bool> visited;
    std::vector<planned_request> ordered;

    // A plan holds all that it brings in, also from afar, so one step down is enough to find every
    // request that belongs before this one; those then look for theirs. A circle ends at the first.
    void visit(size_t index) {
        if (visited[index]) {
            return;
        }
        visited[index] = true;
        for (const std::string &need : requests[index].needs) {
            const auto found = by_name.find(need);
            if (found != by_name.end()) {
                visit(found->second);
            }
        }
        ordered.push_back(std::move(requests[index]));
    }
};

}  // namespace

std::vector<planned_request> in_order(std::vector<planned_request> requests) {
    ordering work = {requests, {}, std::vector<bool>(requests.size()), {}};
    for (size_t i = 0; i < requests.size(); i++) {
        work.by_name.emplace(requests[i].name, i);
    }
    for (size_t i = 0; i < requests.size(); i++) {
        work.visit(i);
    }
    return std::move(work.ordered);
}
