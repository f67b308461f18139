// The order of a transaction's dependencies.
//
// It is defined by passes over the array: in each pass, a record whose name is resolved is passed
// over; one that needs a name not yet resolved waits, and its weight grows by 1; any other resolves
// its name at once, for the records behind it in the same pass too. The passes go on until one
// changes nothing.
//
// To make those passes would take as many as the longest chain of dependencies is long. What they
// give can be had without: each name has one moment at which it is resolved, a pass and a position
// in it, and a record's weight is the number of passes in which it was looked at before that. The
// moments are found in the order of time, each from those of the names that a record waits for.
#include "transaction/plan_order.h"

#include <algorithm>
#include <functional>
#include <new>
#include <queue>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "support/boundary.h"

namespace {

// A pass, counted from 1, and an index in the array. Pass 0 is before the first one.
using pass_moment = std::pair<size_t, size_t>;

constexpr size_t never = static_cast<size_t>(-1);

struct awaited_name {
    pass_moment resolved = {never, 0};
    std::vector<size_t> waiting;  // records that need it, once for each mention
};

class resolving_passes {
 public:
    resolving_passes(vrd *const *deps, size_t count);
    void run();
    // In how many passes a record had to wait.
    size_t waits_of(size_t index) const;

 private:
    void wait_or_resolve(size_t index);
    void resolve(const pass_moment &moment);

    vrd *const *deps_;
    size_t last_pass_ = 1;
    std::unordered_map<std::string_view, awaited_name> names_;
    std::vector<size_t> missing_;  // of each record, the names that it waits for
    // The records that are free to resolve their name, by the moment of that.
    std::priority_queue<pass_moment, std::vector<pass_moment>, std::greater<>> free_;
};

resolving_passes::resolving_passes(vrd *const *deps, size_t count) : deps_(deps), missing_(count) {
    for (size_t i = 0; i < count; ++i) {
        awaited_name &name = names_[deps[i]->name];
        if (deps[i]->status == 'I') {
            name.resolved = {0, 0};
        }
    }
    for (size_t i = 0; i < count; ++i) {
        wait_or_resolve(i);
    }
}

void resolving_passes::wait_or_resolve(size_t index) {
    const vrd *const record = deps_[index];
    char *const *const needed = record->circular || !record->info ? nullptr : record->info->deps;
    for (size_t i = 0; needed && needed[i]; ++i) {
        awaited_name &name = names_[needed[i]];
        if (name.resolved.first == never) {
            name.waiting.push_back(index);
            ++missing_[index];
        }
    }
    if (missing_[index] == 0) {
        free_.push({1, index});
    }
}

void resolving_passes::resolve(const pass_moment &moment) {
    awaited_name &name = names_[deps_[moment.second]->name];
    if (name.resolved.first != never) {
        return;
    }
    name.resolved = moment;
    last_pass_ = moment.first;
    for (const size_t index : name.waiting) {
        if (--missing_[index] == 0) {
            free_.push({index > moment.second ? moment.first : moment.first + 1, index});
        }
    }
}

void resolving_passes::run() {
    while (!free_.empty()) {
        const pass_moment moment = free_.top();
        free_.pop();
        resolve(moment);
    }
}

size_t resolving_passes::waits_of(size_t index) const {
    const pass_moment &resolved = names_.at(deps_[index]->name).resolved;
    if (resolved.first == never) {
        return last_pass_;
    }
    if (resolved.first == 0) {
        return 0;
    }
    return index < resolved.second ? resolved.first : resolved.first - 1;
}

}  // namespace

static void sort_by_weight(vrd ***deps) {
    if (!deps || !*deps) {
        return;
    }
    size_t count = 0;
    while ((*deps)[count]) {
        ++count;
    }
    resolving_passes passes(*deps, count);
    passes.run();
    for (size_t i = 0; i < count; ++i) {
        vrd *const record = (*deps)[i];
        record->weight = record->status == 'I' ? 0 : static_cast<int32_t>(1 + passes.waits_of(i));
    }
    std::stable_sort(*deps, *deps + count,
                     [](const vrd *a, const vrd *b) { return a->weight > b->weight; });
}

void vrds_sort(const vri *, vrd ***deps) {
    // Without memory the array stays in the order of the walk, which found a package before what it
    // needs.
    guarded([] {}, [&] { sort_by_weight(deps); });
}
