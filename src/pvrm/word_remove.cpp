#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "package/safe_name.h"
#include "pvrm/change_job.h"
#include "pvrm/change_transaction.h"
#include "pvrm/config_files.h"
#include "pvrm/engine_report.h"
#include "pvrm/interruption.h"
#include "pvrm/removal_plan.h"
#include "pvrm/request.h"
#include "pvrm/tell.h"
#include "pvrm/words.h"
#include "repository/inventory.h"
#include "transaction/plan_removal.h"
#include "transaction/removal.h"
#include "ui/vrmui.h"

namespace {

// What the planner is asked for: the package alone, or with what only it needs.
enum removal_mode { with_orphans = 1, alone = 2 };

// One package is planned by the engine's planner. Several are planned as one (removal_plan), where
// that planner would judge each as if the others stayed.
class removal : public change_job {
 public:
    removal(session &work, const remove_options &what)
        : change_job(work, what.requests, {"Remove", "removed", "removal"}),
          mode_(what.keep_deps ? alone : with_orphans) {}

 private:
    void begin_planning() override {
        wanted_.clear();
    }
    bool plan(const std::string &request) override;
    void plan_together() override;
    void add_to_view(const planned_change &planned, plan_view *view) override {
        view->add(*planned.transaction);
        agreed_left_[planned.name] = left_by(*planned.transaction);
    }
    void print(const plan_view &view) const override {
        view.print_removal();
    }
    bool is_due(const planned_change &planned) override {
        return is_installed(planned.name);  // or it went with one before it
    }
    bool needs_catalogue() const override {
        return false;
    }
    bool carry_out(planned_change *planned) override;

    bool is_removable(const std::string &name);
    bool is_installed(const std::string &name) const;
    own_vrt ask_planner(const std::string &name, kept_reasons *refusal);
    void plan_one(const std::string &name);
    void plan_several();
    void add_planned(const removal_plan::removal &planned);
    void refuse(const std::string &name, const std::vector<std::string> &holders);
    std::set<std::string> left_by(const vrt &transaction) const;
    bool leaves_as_shown(const vrt &transaction);
    void drop_what_stays(vrt *transaction);
    bool is_as_shown(const vrt &transaction);
    bool run_one(vrt *transaction);
    void note_outcome(const std::vector<std::string> &names);

    const int mode_;
    std::vector<std::string> wanted_;  // requests that can be planned
    std::optional<removal_plan> together_;
    // What the user was warned of: by name, the packages that stay and are left without it.
    std::map<std::string, std::set<std::string>> agreed_left_;
    std::map<std::string, std::string> stuck_;  // what was tried and stayed, with the reason
};

}  // namespace

static std::string joined(const std::vector<std::string> &names) {
    std::string text;
    for (const std::string &name : names) {
        text += (text.empty() ? "" : ", ") + name;
    }
    return text;
}

// "a needs", "a, b need".
static std::string all_need(const std::vector<std::string> &names) {
    return joined(names) + (names.size() == 1 ? " needs" : " need");
}

bool removal::is_installed(const std::string &name) const {
    return work_.installed().find(name) != nullptr;
}

// ---- The plan ----

bool removal::is_removable(const std::string &name) {
    if (names_nothing(name)) {
        return false;
    }
    if (looks_like_file(name)) {
        tell_problem({name, "is no name of a package"});
        return false;
    }
    const vri *const package = work_.installed().find(name);
    if (!package) {
        kept_reasons refusal;
        ask_planner(name, &refusal);
        tell_reasons(std::move(refusal));
        return false;
    }
    if (package->name != name) {
        tell_problem({name, "can't be removed",
                      std::string("its entry in the inventory is that of another package, ") +
                          package->name + "; pvrm check offers to delete that entry"});
        return false;
    }
    if (const char *part = vrk_info_unsafe_part(package)) {
        tell_problem({name, "can't be removed",
                      std::string("its ") + part + " holds characters that are not allowed"});
        return false;
    }
    return true;
}

bool removal::plan(const std::string &request) {
    if (!is_removable(request)) {
        return false;
    }
    wanted_.push_back(request);
    return true;
}

// Why the planner refuses a package is kept: the tool may have another way.
own_vrt removal::ask_planner(const std::string &name, kept_reasons *refusal) {
    vrt *made = nullptr;
    vrmui_line_new(vrmui, "");  // the planner adds its text to what is there
    keep_reasons();
    plan_removal(work_.installed(), name.c_str(), mode_, &made);
    kept_reasons others = take_reasons();
    for (kept_reasons::given &given : std::exchange(others.reasons, {})) {
        const bool refuses = given.kind == event_kind::removal_needed ||
                             given.kind == event_kind::removal_not_installed;
        (refuses ? *refusal : others).reasons.push_back(std::move(given));
    }
    tell_reasons(std::move(others));
    return own_vrt(made);
}

static void warn_of_left(const std::string &name, const std::set<std::string> &left) {
    if (!left.empty()) {
        tell_warning("%s goes although it is needed by %s", name.c_str(),
                     joined({left.begin(), left.end()}).c_str());
    }
}

void removal::plan_one(const std::string &name) {
    kept_reasons refusal;
    own_vrt transaction = ask_planner(name, &refusal);
    const std::vector<std::string> dependents = together_->dependents(name);
    if (transaction) {
        warn_of_left(name, left_by(*transaction));
        planned_.push_back({name, name, std::move(transaction)});
        return;
    }
    if (dependents.empty() && !together_->removals().empty()) {
        // The planner refuses one that needs itself.
        add_planned(together_->removals().front());
        return;
    }
    tell_reasons(std::move(refusal));
    // The planner looks at two.
    if (dependents.size() > 2) {
        tell_problem("%s is needed by %zu packages: %s", name.c_str(), dependents.size(),
                     joined(dependents).c_str());
    }
    fail(name, dependents.empty() ? "" : all_need(dependents) + " it");
}

void removal::refuse(const std::string &name, const std::vector<std::string> &holders) {
    const std::string reason = all_need(holders) + " it";
    tell_problem("%s can't be removed, as %s", name.c_str(), reason.c_str());
    fail(name, reason);
}

// A requested package that goes with another one has a turn of its own, for the case that the other
// one's removal ends before it.
void removal::add_planned(const removal_plan::removal &planned) {
    const auto add = [this](const removal_plan::removal &one) {
        own_vrt transaction = removal_transaction(one, work_.installed().packages());
        if (!transaction) {
            throw std::bad_alloc();
        }
        planned_.push_back({one.name, one.name, std::move(transaction)});
    };
    add(planned);
    warn_of_left(planned.name, left_by(*planned_.back().transaction));
    for (const removal_plan::part &part : planned.parts) {
        if (std::find(wanted_.begin(), wanted_.end(), part.name) != wanted_.end()) {
            add({part.place, part.name, {}});
        }
    }
}

void removal::plan_several() {
    for (const std::string &name : wanted_) {
        if (!together_->goes(name)) {
            refuse(name, together_->holders(name));
        }
    }
    for (const removal_plan::removal &planned : together_->removals()) {
        add_planned(planned);
    }
}

void removal::plan_together() {
    if (wanted_.empty()) {
        return;
    }
    together_.emplace(work_.installed().packages(), wanted_, mode_ == alone);
    if (wanted_.size() == 1) {
        plan_one(wanted_.front());
    } else {
        plan_several();
    }
}

// ---- Carrying it out ----

// What came for a package that stays, or is needed by one, stays too.
void removal::drop_what_stays(vrt *transaction) {
    drop_deps(transaction, [this](const vrd &dep) {
        if (together_->goes(dep.name)) {
            return false;
        }
        const std::vector<std::string> holders = together_->holders(dep.name);
        const std::string why = holders.empty() ? "" : ", as " + all_need(holders) + " it";
        // Not the reason why a request fails: that is the problem ahead of it.
        tell_warning_text(std::string(dep.name) + " stays installed" + why);
        return true;
    });
}

// The packages that stay and need the top package. The engine's planner has its own view of one.
std::set<std::string> removal::left_by(const vrt &transaction) const {
    const std::string top = transaction.info->name;
    const std::vector<std::string> left =
        wanted_.size() > 1 ? together_->left_without(top) : together_->dependents(top);
    std::set<std::string> names(left.begin(), left.end());
    for (const std::string &gone : names_of(transaction)) {
        names.erase(gone);
    }
    return names;
}

// The plan may have been made anew since the user agreed, and what was to go may have stayed.
bool removal::leaves_as_shown(const vrt &transaction) {
    const std::string name = transaction.info->name;
    const std::set<std::string> &agreed = agreed_left_[name];
    std::vector<std::string> found;
    for (const std::string &left : left_by(transaction)) {
        if (!agreed.contains(left)) {
            found.push_back(left);
        }
    }
    if (found.empty()) {
        return true;
    }
    tell_problem(
        {name, "was not removed", all_need(found) + " it, which was not shown; try again"});
    return false;
}

// Whether all that goes was shown and is installed as it was then, also after the scripts of what
// went before.
bool removal::is_as_shown(const vrt &transaction) {
    if (!shown_.covers(transaction)) {
        return false;
    }
    const auto is_same = [this](const vri *planned) {
        work_.installed().refresh(planned->name);
        const vri *const now = work_.installed().find(planned->name);
        const std::string identity = vrk_puname(planned);
        return now && identity == vrk_puname(now);
    };
    for (int32_t i = 0; i < transaction.num_deps; i++) {
        if (!is_same(transaction.deps[i]->info)) {
            return false;
        }
    }
    return is_same(transaction.info);
}

// Notes what is gone, and what stays and so holds what it needs.
void removal::note_outcome(const std::vector<std::string> &names) {
    bool is_first = true;
    for (const std::string &name : names) {
        if (!is_installed(name)) {
            together_->note_gone(name);
            continue;
        }
        // The engine stops at the first that stays. A request that it did not reach has its turn.
        const bool is_requested = std::find(wanted_.begin(), wanted_.end(), name) != wanted_.end();
        if (is_first) {
            stuck_[name] = first_problem().text_after(name);
        }
        if (is_first || !is_requested) {
            together_->note_stays(name);
        }
        is_first = false;
    }
}

bool removal::run_one(vrt *transaction) {
    vrm_handle *repository = work_.repository();
    const std::string top = transaction->info->name;
    // Which files are configuration, and as what they came, is told by the entries, which go.
    const std::vector<std::string> names = names_of(*transaction);
    std::map<std::string, std::vector<kept_config>> config;
    for (const std::string &name : names) {
        config[name] = config_to_keep(repository, name.c_str());
    }

    if (!clear_stages(repository, *transaction)) {
        tell_problem({top, "was not removed"});
        note_outcome(names);
        return false;
    }
    const int rc = vrm_exe_delete(repository, &transaction);
    for (const std::string &name : names) {
        work_.installed().forget(name);
    }
    for (const std::string &name : names) {
        if (!is_installed(name)) {
            tell_kept(config[name]);
        }
    }
    note_outcome(names);
    if (rc != 0) {
        was_interrupted(rc);
        if (is_installed(top)) {
            tell_problem({top, "was not removed"});
        } else {
            tell_problem({top, "was removed, but not all that goes with it"});
        }
        return false;
    }
    if (is_installed(top)) {
        tell_problem({top, "was removed, but its entry in the inventory is still there"});
        return false;
    }
    return true;
}

bool removal::carry_out(planned_change *planned) {
    const std::string &name = planned->name;
    if (const auto stuck = stuck_.find(name); stuck != stuck_.end()) {
        // Its script just refused. To run that again would hardly change its mind.
        tell_problem({name, "was not removed"});
        fail(name, stuck->second);
        return false;
    }
    if (wanted_.size() > 1 && !together_->goes(name)) {
        refuse(name, together_->holders(name));
        return false;
    }
    if (wanted_.size() > 1) {
        drop_what_stays(planned->transaction.get());
    }
    if (!leaves_as_shown(*planned->transaction)) {
        return false;
    }
    if (!is_as_shown(*planned->transaction)) {
        tell_problem({name, "was not removed",
                      "what goes with it has changed since it was shown; try again"});
        return false;
    }
    return run_one(planned->transaction.get());
}

exit_status word_remove(const common_options &options, const remove_options &what) {
    session work(options);
    if (const exit_status refused = work.begin_change()) {
        return refused;
    }
    return removal(work, what).run();
}
