#include "maintenance/inventory_audit.h"

#include <unistd.h>

#include <cstring>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "maintenance/upkeep.h"
#include "package/fileops.h"
#include "repository/inventory.h"
#include "support/array.h"
#include "support/boundary.h"
#include "support/event.h"
#include "support/log.h"
#include "transaction/dependents.h"
#include "transaction/interrupt.h"
#include "transaction/plan_removal.h"
#include "ui/vrmui.h"

namespace {

constexpr char head_answers[] =
    "k=keep entry,L=Leave all entries,f=fix entry,F=Fix all entries,a=abort chkhead";
constexpr char inst_answers[] =
    "k=keep entry,L=Leave all entries,d=delete entry,R=Remove all entries,a=abort chkinst";

// Shows a finding in the engine's own words, and reports it for programs that have better ones.
void report_finding(const event &finding) {
    if (vrmui) {
        vrmui_say_new("%s\n", event_line(finding).c_str());
        vrmui_write_info(vrmui, vrmui->text, 0);
    }
    report(finding);
}

// The heads of the packages looked at. Many packages share one head, which may have as many
// dependencies as there are packages: it is read once.
class head_lookup {
 public:
    explicit head_lookup(vrm_handle *handle) : handle_(handle) {}

    struct head {
        int count = 0;
        std::unordered_set<std::string> dependencies;
    };
    // Null when it isn't installed.
    const head *find(const std::string &name);

 private:
    vrm_handle *handle_;
    std::unordered_map<std::string, head> known_;
};

const head_lookup::head *head_lookup::find(const std::string &name) {
    const auto known = known_.find(name);
    // Reading tells about itself at DEBUG, each time.
    if (known != known_.end() && !log_wants(LEVEL_DEBUG)) {
        return &known->second;
    }
    const own_vri info(vrm_vrl_info(handle_, name.c_str()));
    if (!info) {
        return nullptr;
    }
    head found = {arr_count(info->deps), {}};
    for (char *const *dependency = info->deps; dependency && *dependency; dependency++) {
        found.dependencies.insert(*dependency);
    }
    return &known_.insert_or_assign(name, std::move(found)).first->second;
}

// Who depends on a package, as vrm_dependson answers it. That reads the whole inventory for each
// name; this reads it once, for the first.
class dependson_lookup {
 public:
    explicit dependson_lookup(vrm_handle *handle) : handle_(handle) {}

    std::vector<std::string> find(const char *name);

 private:
    void read_inventory();

    vrm_handle *handle_;
    std::vector<own_vri> packages_;
    std::vector<std::string> passed_over_;
    std::optional<dependson_index> index_;
};

void dependson_lookup::read_inventory() {
    installed_walk walk(handle_);
    std::vector<vri *> list;
    while (walk.is_open() && walk.next()) {
        if (own_vri info = walk.take_info()) {
            list.push_back(info.get());
            packages_.push_back(std::move(info));
        } else {
            passed_over_.emplace_back(walk.name());
        }
    }
    list.push_back(nullptr);
    vri **sorted = list.data();
    vrm_vri_list_sort(&sorted);
    index_.emplace(sorted);
}

std::vector<std::string> dependson_lookup::find(const char *name) {
    std::vector<std::string> names;
    // The listing tells about itself at DEBUG, each time.
    if (log_wants(LEVEL_DEBUG)) {
        const own_array found(vrm_dependson(handle_, name));
        for (char *const *dependent = found.get(); dependent && *dependent; dependent++) {
            names.emplace_back(*dependent);
        }
        return names;
    }
    if (!index_) {
        read_inventory();
    }
    for (const std::string &entry : passed_over_) {
        log_passed_over(entry.c_str());
    }
    for (const vri *dependent : index_->of(name)) {
        names.emplace_back(dependent->name);
    }
    return names;
}

class head_audit {
 public:
    explicit head_audit(vrm_handle *handle)
        : heads_(handle), dependents_(handle), question_(head_answers, "l") {
        question_.begin_walk('l');
    }

    // False when the walk is to be aborted.
    bool visit(const char *entry, const vri *package);
    int orphans() const {
        return orphans_;
    }

 private:
    bool is_wanted_by_head(const vri &package);
    bool offer_repair(const vri &package);

    head_lookup heads_;
    dependson_lookup dependents_;
    recurring_question question_;
    int orphans_ = 0;
};

bool head_audit::visit(const char *entry, const vri *package) {
    if (!package) {
        log_debug("%s is not a valid package, skipping", entry);
        return true;
    }
    if (package->install_type != 'D' || is_wanted_by_head(*package)) {
        return true;
    }
    for (const std::string &dependent : dependents_.find(package->name)) {
        report_finding({.kind = event_kind::orphan_needed,
                        .who = "vrm_chkhead",
                        .package = package->name,
                        .other = dependent});
    }
    orphans_++;
    return dry_run || offer_repair(*package);
}

bool head_audit::is_wanted_by_head(const vri &package) {
    const std::string name = package.name, head_name = package.install_head;
    const head_lookup::head *head = heads_.find(head_name);
    if (!head) {
        report_finding({.kind = event_kind::head_gone, .package = name, .other = head_name});
        return false;
    }
    if (head->count > 0) {
        log_debug("vrm_chkhead: %s has %d dependencies", head_name.c_str(), head->count);
    }
    if (!head->dependencies.contains(name)) {
        report_finding({.kind = event_kind::head_done, .package = name, .other = head_name});
        return false;
    }
    log_debug("vrm_chkhead: %s is still needed by %s", name.c_str(), head_name.c_str());
    return true;
}

// What a repair would be is not settled: the letters that ask for one do nothing.
bool head_audit::offer_repair(const vri &package) {
    switch (question_.letter_for("fix install info")) {
        case 'L':
            question_.settle('l');
            [[fallthrough]];
        case 'l':
            report({.kind = event_kind::orphan_left, .package = package.name});
            return true;
        case 'F':
            question_.settle('f');
            return true;
        case 'd':
            report({.kind = event_kind::orphan_not_fixed, .package = package.name});
            return true;
        case 'a':
            return false;
        default:
            return true;
    }
}

class entry_audit {
 public:
    explicit entry_audit(vrm_handle *handle) : handle_(handle), question_(inst_answers, "k") {
        question_.begin_walk('k');
    }

    // False when the walk is to be aborted.
    bool visit(const char *entry, const std::string &path, const vri *package);
    int invalid() const {
        return invalid_;
    }
    void report_sums() const;

 private:
    bool offer_removal(const char *entry, const std::string &path, bool with_index);

    vrm_handle *handle_;
    recurring_question question_;
    int valid_ = 0;
    int invalid_ = 0;
};

bool entry_audit::visit(const char *entry, const std::string &path, const vri *package) {
    if (package && strcmp(package->name, entry) == 0) {
        log_debug("%s is a valid package dir", entry);
        valid_++;
        return true;
    }
    // A record of another name answers for that package where it is looked up, and its files are
    // another's: neither of the two could be upgraded or removed.
    if (package) {
        report_finding(
            {.kind = event_kind::entry_misnamed, .package = entry, .other = package->name});
    } else {
        report_finding({.kind = event_kind::entry_invalid, .package = entry});
    }
    invalid_++;
    return dry_run || offer_removal(entry, path, package != nullptr);
}

// A directory that can be read was entered as a whole, with a file index under its name. What the
// index lists belongs to nobody when the entry is gone; a new installation may then replace it.
bool entry_audit::offer_removal(const char *entry, const std::string &path, bool with_index) {
    const std::string told_path = path.substr(0, 1000);
    switch (question_.letter_of_removal("remove directory " + told_path)) {
        case 'k':
            report({.kind = event_kind::entry_kept, .package = entry});
            return true;
        case 'd':
            report({.kind = event_kind::entry_removed, .package = entry});
            if (vrm_vrf_rmdir(path.c_str()) != 0) {
                report({.kind = event_kind::audited_entry_not_removed, .path = told_path});
            } else if (with_index) {
                const char *indexes = ekva_getval(handle_->dirs, "fileindex");
                unlink((std::string(indexes ? indexes : "") + "/" + entry).c_str());
            }
            return true;
        case 'a':
            return false;
        default:
            return true;
    }
}

void entry_audit::report_sums() const {
    report_finding({.kind = event_kind::entries_counted,
                    .found = std::to_string(invalid_),
                    .number = valid_,
                    .total = valid_ + invalid_});
}

// Hands each entry to `visit`, which gives false to abort. The number of entries, or nothing after
// an abort or when the inventory can't be read to its end.
template <typename Visit>
std::optional<int> visit_all(installed_walk *walk, Visit visit) {
    int count = 0;
    while (walk->next()) {
        const own_vri package = walk->take_info();
        if (vrm_stop_requested || !visit(package.get())) {
            return std::nullopt;
        }
        count++;
    }
    return walk->broke_off() ? std::nullopt : std::optional(count);
}

// The frame of an audit of all entries. `visit` is called with the audit and the walk at an entry,
// `finish` with the audit at the end of a whole walk, for the result.
template <typename Audit, typename Visit, typename Finish>
int run_audit(const char *who, vrm_handle *handle, event_kind aborted, Visit visit, Finish finish) {
    return guarded(who, -1, [&] {
        if (!may_begin(who, handle)) {
            return -1;
        }
        installed_walk walk(handle);
        if (!walk.is_open()) {
            return 0;
        }
        Audit audit(handle);
        const std::optional<int> count =
            visit_all(&walk, [&](const vri *package) { return visit(audit, walk, package); });
        if (!count) {
            report({.kind = aborted});
            return -1;
        }
        log_debug("Found %d packages", *count);
        const int result = finish(audit);
        walk.close();
        return result;
    });
}

}  // namespace

int vrm_chkhead(vrm_handle *handle) {
    return run_audit<head_audit>(
        "vrm_chkhead", handle, event_kind::head_audit_aborted,
        [](head_audit &audit, const installed_walk &walk, const vri *package) {
            return audit.visit(walk.name(), package);
        },
        [](const head_audit &audit) { return audit.orphans(); });
}

int vrm_chkinst(vrm_handle *handle, unsigned report) {
    return run_audit<entry_audit>(
        "vrm_chkinst", handle, event_kind::entry_audit_aborted,
        [](entry_audit &audit, const installed_walk &walk, const vri *package) {
            return audit.visit(walk.name(), walk.path(), package);
        },
        [report](const entry_audit &audit) {
            if (report) {
                audit.report_sums();
            }
            return audit.invalid();
        });
}
