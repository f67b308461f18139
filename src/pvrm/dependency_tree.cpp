#include "pvrm/dependency_tree.h"

#include <map>
#include <set>

#include "repository/inventory.h"
#include "support/terminal_text.h"
#include "support/text.h"

namespace {

class tree {
 public:
    explicit tree(const vrt &walk) : top_(walk.info) {
        for (int32_t i = 0; i < walk.num_deps; i++) {
            if (walk.deps[i]->info) {
                found_.emplace(lower_case(walk.deps[i]->name), walk.deps[i]);
            }
        }
    }

    std::vector<std::string> lines();

 private:
    struct level {
        char *const *rest;  // names that are still to be shown
    };
    void show(const char *name);
    void enter(const vri *package);

    const vri *top_;
    std::map<std::string, const vrd *> found_;
    std::set<const vri *> entered_;
    std::vector<level> levels_;
    std::vector<std::string> lines_;
};

}  // namespace

void tree::enter(const vri *package) {
    entered_.insert(package);
    levels_.push_back({package->deps});
}

void tree::show(const char *name) {
    const std::string indent(2 * levels_.size(), ' ');
    const auto found = found_.find(lower_case(name));
    if (found == found_.end()) {
        // The walk leaves out only what leads back to the top.
        lines_.push_back(indent + terminal_safe_cell(name) + " (see the first line)");
        return;
    }
    const vri *package = found->second->info;
    std::string line = indent + terminal_safe_cell(name) + " " +
                       terminal_safe_cell(package->version) + " (" +
                       vrk_stat_desc(found->second->status) + ")";
    const bool again = entered_.contains(package);
    if (again && package->deps) {
        line += ", see above";
    }
    lines_.push_back(line);
    if (!again) {
        enter(package);
    }
}

// A loop with levels of its own: a chain of packages may be longer than the stack is deep.
std::vector<std::string> tree::lines() {
    lines_.push_back(terminal_safe_cell(top_->name) + " " + terminal_safe_cell(top_->version));
    enter(top_);
    while (!levels_.empty()) {
        level &deepest = levels_.back();
        if (!deepest.rest || !*deepest.rest) {
            levels_.pop_back();
        } else {
            show(*deepest.rest++);
        }
    }
    return lines_;
}

std::vector<std::string> dependency_tree(const vrt &walk) {
    return tree(walk).lines();
}
