#include "pvrm/installed_needs.h"

#include <algorithm>

// All packages, each behind those that it leads to, as far as circles allow. A loop with a stack of
// its own: a chain of packages may be longer than the stack is deep.
std::vector<size_t> installed_needs::by_finish() const {
    struct level {
        size_t at, next;
    };
    std::vector<bool> entered(graph_.packages.size());
    std::vector<size_t> order;
    std::vector<level> levels;
    const auto enter = [&](size_t at) {
        if (!entered[at]) {
            entered[at] = true;
            levels.push_back({at, 0});
        }
    };
    for (size_t start = 0; start < graph_.packages.size(); start++) {
        enter(start);
        while (!levels.empty()) {
            const size_t at = levels.back().at, next = levels.back().next++;
            if (next < graph_.packages[at].needs.size()) {
                enter(graph_.packages[at].needs[next]);
            } else {
                order.push_back(at);
                levels.pop_back();
            }
        }
    }
    return order;
}

// What can be reached along the edges and was not marked before, the start included, nearest first.
std::vector<size_t> installed_needs::reached_from(size_t start, std::vector<size_t> package::*edges,
                                                  std::vector<bool> *marked) const {
    std::vector<size_t> reached;
    const auto reach = [&](size_t at) {
        if (!(*marked)[at]) {
            (*marked)[at] = true;
            reached.push_back(at);
        }
    };
    reach(start);
    for (size_t done = 0; done < reached.size(); done++) {
        for (const size_t next : graph_.packages[reached[done]].*edges) {
            reach(next);
        }
    }
    return reached;
}

// From the last finished one on, the first package that none before it leads to belongs to a circle
// that nobody outside needs: what leads to it would have finished later. Mostly the circle is that
// package alone.
std::vector<bool> installed_needs::orphan_marks() const {
    std::vector<bool> is_orphan(graph_.packages.size()), led_to(graph_.packages.size()),
        in_circle(graph_.packages.size());
    const std::vector<size_t> order = by_finish();
    for (auto start = order.rbegin(); start != order.rend(); ++start) {
        if (reached_from(*start, &package::needs, &led_to).empty()) {
            continue;
        }
        const std::vector<size_t> circle = reached_from(*start, &package::needed_by, &in_circle);
        const bool unwanted = std::none_of(circle.begin(), circle.end(), [this](size_t at) {
            return graph_.packages[at].asked_for;
        });
        for (const size_t at : circle) {
            is_orphan[at] = unwanted;
        }
    }
    return is_orphan;
}

std::vector<std::string> installed_needs::orphans() const {
    const std::vector<bool> is_orphan = orphan_marks();
    std::vector<std::string> names;
    for (size_t at = 0; at < graph_.packages.size(); at++) {
        if (is_orphan[at]) {
            names.push_back(graph_.packages[at].name);
        }
    }
    return names;
}

std::optional<installed_needs::reason> installed_needs::why(const std::string &name) const {
    const std::optional<size_t> place = graph_.place_of(name);
    if (!place) {
        return std::nullopt;
    }
    const size_t target = *place;
    const package &found = graph_.packages[target];
    const std::vector<bool> is_orphan = orphan_marks();

    struct step {
        size_t at, length;
    };
    std::vector<size_t> towards(graph_.packages.size(),
                                graph_.packages.size());  // the next one of the chain
    std::vector<step> wanted, unwanted, steps = {{target, 0}};
    towards[target] = target;
    for (size_t done = 0; done < steps.size(); done++) {
        const step last = steps[done];
        for (const size_t at : graph_.packages[last.at].needed_by) {
            if (towards[at] != graph_.packages.size()) {
                continue;
            }
            towards[at] = last.at;
            const step next = {at, last.length + 1};
            if (graph_.packages[at].asked_for) {
                wanted.push_back(next);
                continue;
            }
            if (is_orphan[at]) {
                unwanted.push_back(next);
            }
            steps.push_back(next);
        }
    }

    reason answer = {found.asked_for, found.asked_for ? "" : found.head, {}, !wanted.empty()};
    std::vector<step> &begins = wanted.empty() ? unwanted : wanted;
    std::sort(begins.begin(), begins.end(), [](const step &a, const step &b) {
        return a.length != b.length ? a.length < b.length : a.at < b.at;
    });
    for (const step &begin : begins) {
        std::vector<std::string> &chain = answer.chains.emplace_back();
        for (size_t at = begin.at; at != target; at = towards[at]) {
            chain.push_back(graph_.packages[at].name);
        }
        chain.push_back(name);
    }
    return answer;
}
