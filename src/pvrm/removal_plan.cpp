#include "pvrm/removal_plan.h"

#include <algorithm>
#include <utility>

removal_plan::removal_plan(const std::vector<const vri *> &installed,
                           const std::vector<std::string> &requests, bool keep_deps)
    : graph_(installed),
      keep_deps_(keep_deps),
      requested_(graph_.packages.size()),
      fates_(graph_.packages.size(), fate::stays),
      tried_(graph_.packages.size()),
      came_for_(graph_.packages.size()) {
    for (size_t at = 0; at < graph_.packages.size(); at++) {
        if (const auto head = graph_.place_of(graph_.packages[at].head)) {
            came_for_[*head].push_back(at);
        }
    }
    std::vector<size_t> places;
    for (const std::string &request : requests) {
        const auto place = graph_.place_of(request);
        if (place && !requested_[*place]) {
            requested_[*place] = true;
            fates_[*place] = fate::goes;
            places.push_back(*place);
        }
    }
    if (!keep_deps_) {
        add_dependencies();
    }
    std::vector<size_t> staying;
    for (size_t at = 0; at < fates_.size(); at++) {
        if (fates_[at] == fate::goes && has_to_stay(at)) {
            staying.push_back(at);
        }
    }
    keep(std::move(staying));
    std::erase_if(places, [this](size_t at) { return fates_[at] != fate::goes; });
    arrange(places);
}

// Marks all that could go along at most: the dependencies that the requests lead to.
void removal_plan::add_dependencies() {
    std::vector<size_t> reached;
    for (size_t at = 0; at < fates_.size(); at++) {
        if (fates_[at] == fate::goes) {
            reached.push_back(at);
        }
    }
    for (size_t done = 0; done < reached.size(); done++) {
        for (const size_t need : graph_.packages[reached[done]].needs) {
            if (fates_[need] == fate::stays && !graph_.packages[need].asked_for) {
                fates_[need] = fate::goes;
                reached.push_back(need);
            }
        }
    }
}

bool removal_plan::is_needed_by_staying(size_t at) const {
    const std::vector<size_t> &dependents = graph_.packages[at].needed_by;
    return std::any_of(dependents.begin(), dependents.end(),
                       [this](size_t dependent) { return fates_[dependent] == fate::stays; });
}

// Whether a package that stays makes another one, which it needs, stay too.
bool removal_plan::holds(size_t holder, size_t at) const {
    return tried_[holder] || !requested_[at] ||
           graph_.packages[holder].head != graph_.packages[at].name || is_needed_by_staying(holder);
}

bool removal_plan::has_to_stay(size_t at) const {
    const needs_graph::package &package = graph_.packages[at];
    const bool is_held = std::any_of(
        package.needed_by.begin(), package.needed_by.end(),
        [&](size_t dependent) { return fates_[dependent] == fate::stays && holds(dependent, at); });
    const auto head = graph_.place_of(package.head);
    return is_held || (!requested_[at] && head && fates_[*head] == fate::stays);
}

// Lets packages stay, and all that has to stay for their sake.
void removal_plan::keep(std::vector<size_t> staying) {
    const auto add = [&](size_t at) {
        if (fates_[at] == fate::goes) {
            fates_[at] = fate::stays;
            staying.push_back(at);
        }
    };
    const auto add_held_by = [&](size_t holder) {
        for (const size_t need : graph_.packages[holder].needs) {
            if (holds(holder, need)) {
                add(need);
            }
        }
    };
    for (const size_t at : staying) {
        fates_[at] = fate::stays;
    }
    for (size_t done = 0; done < staying.size(); done++) {
        const size_t at = staying[done];
        add_held_by(at);
        for (const size_t need : graph_.packages[at].needs) {
            if (fates_[need] == fate::stays) {
                // It may have been free to be left without what it came for; now it is needed.
                add_held_by(need);
            }
        }
        for (const size_t came : came_for_[at]) {
            if (!requested_[came]) {
                add(came);
            }
        }
    }
}

std::vector<std::string> removal_plan::dependents(const std::string &name) const {
    std::vector<std::string> names;
    if (const auto place = graph_.place_of(name)) {
        for (const size_t dependent : graph_.packages[*place].needed_by) {
            names.push_back(graph_.packages[dependent].name);
        }
    }
    return names;
}

bool removal_plan::goes(const std::string &name) const {
    const auto place = graph_.place_of(name);
    return place && fates_[*place] != fate::stays;
}

std::vector<std::string> removal_plan::staying_dependents(size_t at, bool is_holder) const {
    std::vector<std::string> names;
    for (const size_t dependent : graph_.packages[at].needed_by) {
        if (fates_[dependent] == fate::stays && holds(dependent, at) == is_holder) {
            names.push_back(graph_.packages[dependent].name);
        }
    }
    return names;
}

std::vector<std::string> removal_plan::holders(const std::string &name) const {
    const auto place = graph_.place_of(name);
    return place ? staying_dependents(*place, true) : std::vector<std::string>();
}

std::vector<std::string> removal_plan::left_without(const std::string &name) const {
    const auto place = graph_.place_of(name);
    return place ? staying_dependents(*place, false) : std::vector<std::string>();
}

void removal_plan::note_gone(const std::string &name) {
    if (const auto place = graph_.place_of(name)) {
        fates_[*place] = fate::gone;
    }
}

void removal_plan::note_stays(const std::string &name) {
    if (const auto place = graph_.place_of(name)) {
        tried_[*place] = true;
        keep({*place});
    }
}

// ---- The order ----

namespace {

// The circles of a graph, each after those that its packages lead to; a package that is in no
// circle is one of its own. This is the algorithm of Tarjan, with a stack of its own: a chain of
// packages may be longer than the stack of the process is deep.
class circle_search {
 public:
    circle_search(size_t size, std::vector<std::vector<size_t>> edges)
        : circle(size), rank(size), edges_(std::move(edges)), low_(size), entered_(size) {}

    void visit(size_t start) {
        if (entered_[start] == 0) {
            enter(start);
        }
        while (!levels_.empty()) {
            level &last = levels_.back();
            if (last.next < edges_[last.at].size()) {
                follow(last.at, edges_[last.at][last.next++]);
            } else {
                leave();
            }
        }
    }

    std::vector<size_t> order;   // all that was visited
    std::vector<size_t> circle;  // the number of the circle, which grows in this order
    std::vector<size_t> rank;    // the place in the order

 private:
    struct level {
        size_t at, next;
    };

    void enter(size_t at) {
        entered_[at] = low_[at] = ++entries_;
        open_.push_back(at);
        levels_.push_back({at, 0});
    }

    void follow(size_t from, size_t to) {
        if (entered_[to] == 0) {
            enter(to);
        } else if (entered_[to] != done) {
            low_[from] = std::min(low_[from], entered_[to]);
        }
    }

    void leave() {
        const size_t at = levels_.back().at;
        levels_.pop_back();
        if (!levels_.empty()) {
            size_t &above = low_[levels_.back().at];
            above = std::min(above, low_[at]);
        }
        if (low_[at] != entered_[at]) {
            return;
        }
        for (size_t member = at + 1; member != at;) {
            member = open_.back();
            open_.pop_back();
            entered_[member] = done;
            circle[member] = circles_;
            rank[member] = order.size();
            order.push_back(member);
        }
        circles_++;
    }

    static constexpr size_t done = static_cast<size_t>(-1);
    std::vector<std::vector<size_t>> edges_;
    std::vector<size_t> low_, entered_;  // entered: 0 for not yet
    std::vector<size_t> open_;
    std::vector<level> levels_;
    size_t entries_ = 0, circles_ = 0;
};

}  // namespace

// Whether a request is a dependency that goes along with what needs it. Of a circle one has to be
// the first, so what is needed in its own circle doesn't count.
bool removal_plan::goes_along(size_t at, const std::vector<size_t> &rank,
                              const std::vector<size_t> &circle) const {
    const needs_graph::package &package = graph_.packages[at];
    const auto head = graph_.place_of(package.head);
    return !keep_deps_ && !package.asked_for && !package.needed_by.empty() &&
           (!head || (fates_[*head] == fate::goes && rank[*head] < rank[at])) &&
           std::all_of(package.needed_by.begin(), package.needed_by.end(), [&](size_t dependent) {
               return fates_[dependent] == fate::goes && circle[dependent] < circle[at];
           });
}

void removal_plan::arrange(const std::vector<size_t> &requests) {
    const size_t size = graph_.packages.size();
    std::vector<std::vector<size_t>> dependents(size);
    for (size_t at = 0; at < size; at++) {
        if (fates_[at] == fate::goes) {
            dependents[at] = graph_.packages[at].needed_by;
            std::erase_if(dependents[at], [this](size_t one) { return fates_[one] != fate::goes; });
        }
    }
    circle_search search(size, std::move(dependents));
    // The requests first, which keep their order as far as they can, then what they lead to.
    std::vector<size_t> reached = requests;
    std::vector<bool> seen(size);
    for (size_t done = 0; done < reached.size(); done++) {
        search.visit(reached[done]);
        for (const size_t need : graph_.packages[reached[done]].needs) {
            if (fates_[need] == fate::goes && !requested_[need] && !seen[need]) {
                seen[need] = true;
                reached.push_back(need);
            }
        }
    }

    std::vector<bool> is_part(size), is_reached(size);
    for (const size_t at : search.order) {
        is_part[at] = !requested_[at] || goes_along(at, search.rank, search.circle);
    }
    // From the last one on, so that each part comes to the last of those that lead to it.
    for (auto top = search.order.rbegin(); top != search.order.rend(); ++top) {
        if (is_part[*top]) {
            continue;
        }
        struct found {
            size_t at, from;
        };
        std::vector<found> led_to = {{*top, *top}};
        for (size_t done = 0; done < led_to.size(); done++) {
            const size_t from = led_to[done].at;
            for (const size_t need : graph_.packages[from].needs) {
                if (fates_[need] == fate::goes && !is_reached[need]) {
                    is_reached[need] = true;
                    led_to.push_back({need, from});
                }
            }
        }
        std::erase_if(led_to, [&](const found &one) { return !is_part[one.at]; });
        std::sort(led_to.begin(), led_to.end(), [&](const found &one, const found &other) {
            return search.rank[one.at] < search.rank[other.at];
        });
        removal &planned = removals_.emplace_back(removal{*top, graph_.packages[*top].name, {}});
        for (const found &one : led_to) {
            planned.parts.push_back(
                {one.at, graph_.packages[one.at].name, graph_.packages[one.from].name});
        }
    }
    std::reverse(removals_.begin(), removals_.end());
}
