#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "package/safe_name.h"
#include "pvrm/agreement.h"
#include "pvrm/config_files.h"
#include "pvrm/engine_report.h"
#include "pvrm/exit_status.h"
#include "pvrm/installed_needs.h"
#include "pvrm/interruption.h"
#include "pvrm/plan_view.h"
#include "pvrm/request.h"
#include "pvrm/request_order.h"
#include "pvrm/session.h"
#include "pvrm/stages.h"
#include "pvrm/tell.h"
#include "pvrm/words.h"
#include "repository/inventory.h"
#include "transaction/plan_removal.h"
#include "transaction/removal.h"
#include "ui/vrmui.h"

namespace {

// What the planner is asked for: the package alone, or with what only it needs.
enum removal_mode { with_orphans = 1, alone = 2 };

class removal {
 public:
    removal(session &work, const remove_options &what)
        : work_(work), mode_(what.keep_deps ? alone : with_orphans), requests_(what.requests) {}

    // Plans all requests, each behind those that need it, and gathers what they would do; tells of
    // those that can't be planned.
    void plan_all(plan_view *view);
    // Whether a request failed so far.
    bool failed() const {
        return failed_;
    }
    bool has_work() const {
        return !planned_.empty();
    }
    // Carries the planned requests out, each planned anew. One that fails does not stop the rest,
    // but it holds what it needs; an interruption stops all.
    void carry_out(const plan_view &shown);

 private:
    bool is_removable(const std::string &name);
    bool is_installed(const std::string &name) const;
    std::vector<std::string> needed_by(const std::string &name,
                                       const std::set<std::string> &going) const;
    std::vector<std::string> held_by(const vrt &transaction) const;
    own_vrt plan(const std::string &name, int mode);
    own_vrt plan_behind_others(const std::string &name, int mode);
    own_vrt plan_now(const std::string &name, int mode);
    own_vrt plan_for_showing(const std::string &name);
    own_vrt plan_as_shown(const std::string &name, const plan_view &shown);
    bool run(own_vrt transaction);

    session &work_;
    const int mode_;
    const std::vector<std::string> &requests_;
    std::vector<planned_request> planned_;
    std::set<std::string> together_;  // requests that nobody but other requests needs
    std::set<std::string> going_;     // all that the plans so far would remove
    std::set<std::string> deferred_;  // requests that have to wait for others to go
    std::map<std::string, std::set<std::string>> left_;  // told to be left without what they need
    std::set<std::string> pending_;                      // requests whose turn is still to come
    std::set<std::string> stuck_;                        // all that was tried and stayed
    kept_reasons refusal_;                               // why the planner refused the last package
    bool failed_ = false;
};

}  // namespace

static std::string joined(const std::vector<std::string> &names) {
    std::string text;
    for (const std::string &name : names) {
        text += (text.empty() ? "" : ", ") + name;
    }
    return text;
}

bool removal::is_removable(const std::string &name) {
    if (names_nothing(name)) {
        return false;
    }
    if (looks_like_file(name)) {
        tell_problem("%s is no name of a package", name.c_str());
        return false;
    }
    const own_vri package(vrm_vrl_info(work_.repository(), name.c_str()));
    if (!package) {
        return true;  // the planner has a sentence for it
    }
    if (package->name != name) {
        tell_problem(
            "%s can't be removed: its entry in the inventory is that of another package, %s; "
            "pvrm check offers to delete that entry",
            name.c_str(), package->name);
        return false;
    }
    if (const char *part = vrk_info_unsafe_part(package.get())) {
        tell_problem("%s can't be removed: its %s holds characters that are not allowed",
                     name.c_str(), part);
        return false;
    }
    return true;
}

bool removal::is_installed(const std::string &name) const {
    return own_vri(vrm_vrl_info(work_.repository(), name.c_str())) != nullptr;
}

// The installed packages that need one, without those that are going too.
std::vector<std::string> removal::needed_by(const std::string &name,
                                            const std::set<std::string> &going) const {
    const own_array all(vrm_dependson(work_.repository(), name.c_str()));
    std::vector<std::string> names;
    for (char *const *dependent = all.get(); dependent && *dependent; dependent++) {
        if (*dependent != name && !going.contains(*dependent)) {
            names.push_back(*dependent);
        }
    }
    return names;
}

static installed_needs all_needs(vrm_handle *repository) {
    vri **raw = nullptr;
    vrm_list_vri(repository, nullptr, 1, &raw);
    const own_vri_list packages(raw);
    return installed_needs(raw);
}

// The installed packages that hold what a transaction removes: of those that need it, all but those
// that go with it, those that still go in their turn, and those that the user was told are left.
// One whose turn is still to come, as in a circle, holds it too if that one is held itself by now.
std::vector<std::string> removal::held_by(const vrt &transaction) const {
    const std::string name = transaction.info->name;
    const std::vector<std::string> direct = needed_by(name, {});
    std::set<std::string> holders(direct.begin(), direct.end());
    if (!holders.empty() && together_.contains(name)) {
        holders = all_needs(work_.repository()).all_that_need(name);
        std::erase_if(holders, [this](const std::string &one) { return pending_.contains(one); });
    }
    for (int32_t i = 0; i < transaction.num_deps; i++) {
        holders.erase(transaction.deps[i]->name);
    }
    if (const auto left = left_.find(name); left != left_.end()) {
        std::erase_if(holders, [&](const std::string &one) { return left->second.contains(one); });
    }
    std::vector<std::string> names;
    std::copy_if(direct.begin(), direct.end(), std::back_inserter(names),
                 [&](const std::string &one) { return holders.contains(one); });
    return holders.empty() || !names.empty() ? names : direct;
}

// Why the planner refuses a package is kept in `refusal_`: the tool may have another way.
own_vrt removal::plan(const std::string &name, int mode) {
    vrt *made = nullptr;
    vrmui_line_new(vrmui, "");  // the planner adds its text to what is there
    keep_reasons();
    vrm_pre_delete(work_.repository(), name.c_str(), mode, &made);
    kept_reasons others = take_reasons();
    refusal_ = {};
    for (kept_reasons::given &given : std::exchange(others.reasons, {})) {
        const bool refuses = given.kind == event_kind::removal_needed ||
                             given.kind == event_kind::removal_not_installed;
        (refuses ? refusal_ : others).reasons.push_back(std::move(given));
    }
    tell_reasons(std::move(others));
    return own_vrt(made);
}

// The plan of a package that only other requests need: the planner refuses it as long as they are
// there.
own_vrt removal::plan_behind_others(const std::string &name, int mode) {
    own_vrt transaction(static_cast<vrt *>(calloc(1, sizeof(vrt))));
    if (!transaction || !(transaction->info = vrm_vrl_info(work_.repository(), name.c_str()))) {
        return nullptr;
    }
    transaction->source = 'L';
    transaction->action = 'D';
    transaction->mark = 'N';
    if (mode != alone) {
        int found = 0;
        if (vrm_chk_delete_deps(work_.repository(), transaction->info, &found,
                                &transaction->deps) != 0) {
            found = 0;
        }
        transaction->num_deps = found;
    }
    deferred_.insert(name);
    return transaction;
}

own_vrt removal::plan_for_showing(const std::string &name) {
    own_vrt transaction = plan(name, mode_);
    const std::vector<std::string> dependents = needed_by(name, going_);
    if (transaction) {
        if (std::vector<std::string> left = dependents; !left.empty()) {
            for (int32_t i = 0; i < transaction->num_deps; i++) {
                std::erase(left, transaction->deps[i]->name);
            }
            if (!left.empty() && !together_.contains(name)) {
                tell_problem("warning: %s goes although it is needed by %s", name.c_str(),
                             joined(left).c_str());
                left_[name].insert(left.begin(), left.end());
            }
        }
        return transaction;
    }
    if ((dependents.empty() || together_.contains(name)) &&
        own_vri(vrm_vrl_info(work_.repository(), name.c_str()))) {
        return plan_behind_others(name, mode_);
    }
    tell_reasons(std::move(refusal_));
    // The planner looks at two.
    if (dependents.size() > 2) {
        tell_problem("%s is needed by %zu packages: %s", name.c_str(), dependents.size(),
                     joined(dependents).c_str());
    }
    return nullptr;
}

void removal::plan_all(plan_view *view) {
    const installed_needs installed = all_needs(work_.repository());
    std::vector<planned_request> wanted;
    std::set<std::string> seen;
    for (const std::string &name : requests_) {
        if (!seen.insert(name).second) {
            continue;  // to say the same thing twice is to say it once
        }
        if (!is_removable(name)) {
            failed_ = true;
            continue;
        }
        // With all of them, also from afar, a circle of requests comes as a whole behind what needs
        // any of it: else a part of it could be gone when another part turns out to have to stay.
        wanted.push_back({name, name, installed.all_that_need(name)});
    }
    // The planner alone is not enough: of packages that need each other it refuses each, and of one
    // that needs itself too.
    together_ = needing_only_each_other(wanted);
    for (planned_request &request : in_order(std::move(wanted))) {
        if (going_.contains(request.name)) {
            // It goes with one ahead of it, or in its own turn when that one fails.
            deferred_.insert(request.name);
            pending_.insert(request.name);
            planned_.push_back(std::move(request));
            continue;
        }
        const own_vrt transaction = plan_for_showing(request.name);
        if (!transaction) {
            failed_ = true;
            continue;
        }
        going_.insert(request.name);
        for (int32_t i = 0; i < transaction->num_deps; i++) {
            going_.insert(transaction->deps[i]->name);
        }
        view->add(*transaction);
        pending_.insert(request.name);
        planned_.push_back(std::move(request));
    }
}

// The plan of the moment. What counts is what is really installed by now: of what was to go ahead,
// something may have stayed.
own_vrt removal::plan_now(const std::string &name, int mode) {
    own_vrt transaction = plan(name, mode);
    if (!transaction && together_.contains(name)) {
        transaction = plan_behind_others(name, mode);
    }
    if (!transaction) {
        tell_reasons(std::move(refusal_));
        return nullptr;
    }
    if (const std::vector<std::string> holders = held_by(*transaction); !holders.empty()) {
        tell_problem("%s can't be removed, as %s need%s it", name.c_str(), joined(holders).c_str(),
                     holders.size() == 1 ? "s" : "");
        return nullptr;
    }
    return transaction;
}

// That plan, if the user saw it all.
own_vrt removal::plan_as_shown(const std::string &name, const plan_view &shown) {
    own_vrt transaction = plan_now(name, mode_);
    if (transaction && !shown.covers(*transaction) && deferred_.contains(name)) {
        // With what went ahead of it gone, more could go than was shown.
        transaction = plan_now(name, alone);
        if (transaction) {
            tell_problem("warning: some packages that only %s needed stay installed", name.c_str());
        }
    }
    if (transaction && !shown.covers(*transaction)) {
        tell_problem(
            "%s was not removed: what goes with it has changed since it was shown; try "
            "again",
            name.c_str());
        return nullptr;
    }
    return transaction;
}

bool removal::run(own_vrt transaction) {
    vrm_handle *repository = work_.repository();
    const std::string top = transaction->info->name;
    // Which files are configuration, and as what they came, is told by the entries, which go.
    std::vector<std::string> names = {top};
    for (int32_t i = 0; i < transaction->num_deps; i++) {
        names.push_back(transaction->deps[i]->name);
    }
    std::map<std::string, std::vector<kept_config>> config;
    for (const std::string &name : names) {
        config[name] = config_to_keep(repository, name.c_str());
    }

    if (!clear_stages(repository, *transaction)) {
        tell_problem("%s was not removed", top.c_str());
        stuck_.insert(top);
        return false;
    }
    vrt *raw = transaction.get();
    const int rc = vrm_exe_delete(repository, &raw);
    for (const std::string &name : names) {
        if (!is_installed(name)) {
            tell_kept(config[name]);
        }
    }
    if (rc != 0) {
        was_interrupted(rc);
        // The engine stops at the first that stays.
        const auto failed = std::find_if(names.begin(), names.end(),
                                         [this](const auto &name) { return is_installed(name); });
        if (failed != names.end()) {
            stuck_.insert(*failed);
        }
        if (is_installed(top)) {
            tell_problem("%s was not removed", top.c_str());
        } else {
            tell_problem("%s was removed, but not all that goes with it", top.c_str());
        }
        return false;
    }
    if (is_installed(top)) {
        tell_problem("%s was removed, but its entry in the inventory is still there", top.c_str());
        return false;
    }
    return true;
}

void removal::carry_out(const plan_view &shown) {
    for (const planned_request &planned : planned_) {
        const std::string &name = planned.name;
        pending_.erase(name);
        if (!is_installed(name)) {
            continue;  // it went with one ahead of it
        }
        if (was_interrupted()) {
            tell_problem("interrupted: %s and what follows was not removed", name.c_str());
            failed_ = true;
            return;
        }
        if (stuck_.contains(name)) {
            // Its script just refused. To run that again would hardly change its mind.
            tell_problem("%s was not removed", name.c_str());
            failed_ = true;
            continue;
        }
        own_vrt transaction = plan_as_shown(name, shown);
        failed_ = !transaction || !run(std::move(transaction)) || failed_;
    }
}

int word_remove(const common_options &options, const remove_options &what) {
    session work(options);
    if (const int refused = work.begin_change()) {
        return refused;
    }
    removal job(work, what);
    plan_view shown;
    job.plan_all(&shown);
    if (job.has_work()) {
        if (!options.quiet || options.dry_run || vote_mode == 1) {
            shown.print_removal();
        }
        if (!options.dry_run) {
            if (!user_agrees(question_of_packages("Remove", shown.size()), 1)) {
                tell_problem(was_interrupted() ? "interrupted: nothing was removed"
                                               : "nothing was removed");
                return EXIT_FAILED;
            }
            job.carry_out(shown);
        }
    }
    return job.failed() ? EXIT_FAILED : EXIT_DONE;
}
