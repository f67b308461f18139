#include "pvrm/installing_job.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <string_view>

#include "package/safe_name.h"
#include "package/vrf.h"
#include "pvrm/change_transaction.h"
#include "pvrm/engine_report.h"
#include "pvrm/interruption.h"
#include "pvrm/request.h"
#include "pvrm/request_order.h"
#include "pvrm/tell.h"
#include "support/arch.h"
#include "transaction/fetch.h"
#include "transaction/install.h"
#include "transaction/scripts.h"

installing_job::installing_job(session &work, const std::vector<std::string> &requests,
                               const std::vector<std::string> &dirs, words said)
    : change_job(work, requests, said), dir_texts_(dirs) {
    for (std::string &dir : dir_texts_) {
        dirs_.push_back(dir.data());
    }
    dirs_.push_back(nullptr);
}

// ---- What a request means ----

std::string installing_job::package_name(const std::string &request) {
    if (vrk_file_is_vrk(request.c_str())) {
        if (const vri *known = files_.record_of(request)) {
            return known->name;
        }
        own_vri info(vrm_vrf_info(work_.repository(), request.c_str(), 0));
        if (!info) {
            tell_failure({request, "is not a valid package file"});
            return "";
        }
        if (info->name[0] == '\0') {
            refuse(request, "its description gives the package no name");
        }
        return info->name;
    }
    if (looks_like_file(request)) {
        tell_no_package_file(request);
        return "";
    }
    return names_nothing(request) ? "" : request;
}

void installing_job::refuse(const std::string &request, const std::string &why) {
    tell_problem({request, std::string("can't be ") + said_.done, why});
}

static const char *arch_name(int32_t arch) {
    const char *name = vrm_arch_getname(arch);
    return name ? name : "an unknown machine";
}

// The first package to come whose name is that of a package file, null when there is none. No word
// could be said of it any more: the name would be taken for a file of the working directory.
static const char *name_of_a_file(const vrt &transaction) {
    const auto is_one = [](const vri *package) {
        return package && package->name && std::string_view(package->name).ends_with(".vrk");
    };
    if (is_one(transaction.info)) {
        return transaction.info->name;
    }
    for (int32_t i = 0; i < transaction.num_deps; i++) {
        const vrd *dep = transaction.deps[i];
        if (dep->action != 'N' && is_one(dep->info)) {
            return dep->info->name;
        }
    }
    return nullptr;
}

bool installing_job::is_sound(const std::string &request, const vri &package) {
    const int32_t own_arch = work_.repository()->arch;
    if (package.arch != arch_any && package.arch != own_arch) {
        take_cause();
        refuse(request, std::string("it is built for ") + arch_name(package.arch) +
                            ", and this machine is " + arch_name(own_arch));
        return false;
    }
    if (const char *part = vrk_info_unsafe_part(&package)) {
        refuse(request, std::string("its ") + part + " holds characters that are not allowed");
        return false;
    }
    return true;
}

bool installing_job::is_signed(const std::string &request, const vri &package) {
    if (package.sig_status != 1) {
        tell_failure({request, std::string("can't be ") + said_.done});
        return false;
    }
    return true;
}

bool installing_job::is_acceptable_file(const std::string &request) {
    const own_vri package(vrm_vrf_info(work_.repository(), request.c_str(), 1));
    if (!package) {
        tell_failure({request, "is not a valid package file"});
        return false;
    }
    const bool is_acceptable = is_sound(request, *package) && is_signed(request, *package);
    take_cause();
    return is_acceptable;
}

// What the planner lets through and the executor would not, or should not.
bool installing_job::is_acceptable(const std::string &request, const vrt &transaction) {
    const vri &package = *transaction.info;
    if (!is_sound(request, package)) {
        return false;
    }
    if (const char *name = name_of_a_file(transaction)) {
        refuse(request,
               std::string("a package called ") + name + " would be taken for a package file");
        return false;
    }
    // That of a package file is known now, that of another one when it has been fetched.
    return !vrk_file_is_vrk(request.c_str()) || is_signed(request, package);
}

// ---- The plan ----

// The planner may find a file that can't be used once more, in a directory.
own_vrt installing_job::plan_with_files(const std::string &request, bool *failed) {
    own_vrt transaction = make_plan(request, files_.given_for(request), failed);
    const vrd *const part = transaction ? files_.unusable_part(*transaction) : nullptr;
    if (!part) {
        return transaction;
    }
    refuse(request, std::string("it needs ") + part->name + ", whose package file " +
                        part->info->absolute_uri + " can't be used");
    *failed = true;
    return nullptr;
}

bool installing_job::plan_one(const std::string &request) {
    bool failed = false;
    own_vrt transaction = plan_with_files(request, &failed);
    if (!transaction) {
        return !failed;
    }
    const std::string name = transaction->info->name;
    const auto [first, is_new] = requests_by_name_.emplace(name, request);
    if (is_new) {
        planned_.push_back({request, name, std::move(transaction)});
    } else {
        tell_problem({request, "is passed over: it is the package " + name + ", as " +
                                   first->second + " is"});
    }
    return true;
}

// Plans a request and prints its problems only when it can be planned.
bool installing_job::attempt(const std::string &request, std::vector<held_problem> *held) {
    hold_problems();
    forget_last_reason();
    const bool done = plan_one(request);
    *held = take_held_problems();
    forget_last_reason();
    if (done) {
        tell_held(*held);
    }
    return done;
}

// A request may fail for a file that another one names and that turns out not to be usable later.
bool installing_job::plan(const std::string &request) {
    files_.read(work_, requests_);
    if (!files_.may_serve_others()) {
        return plan_one(request);
    }
    std::vector<held_problem> held;
    if (!attempt(request, &held)) {
        files_.set_usable(request, false);
        failed_attempts_.push_back({request, std::move(held)});
    }
    return true;
}

// Plans what failed without the files of all that failed, so that the outcome does not depend on
// the order of the requests. A file whose request can be planned serves the others again.
void installing_job::attempt_again() {
    for (bool again = true; again;) {
        again = false;
        std::vector<failed_attempt> still_failed;
        for (failed_attempt &failed : failed_attempts_) {
            if (files_.has_unusable_besides(failed.request) &&
                attempt(failed.request, &failed.problems)) {
                files_.set_usable(failed.request, true);
                again = true;
            } else {
                still_failed.push_back(std::move(failed));
            }
        }
        failed_attempts_ = std::move(still_failed);
    }
    for (const failed_attempt &failed : failed_attempts_) {
        note_problems();
        tell_held(failed.problems);
        fail(failed.request);
    }
}

// Plans again what would take a dependency from a file that can't be used. Each step takes a
// request out of the plan, or leaves it with a plan that does without such files.
void installing_job::plan_without_unusable_files() {
    for (size_t i = 0; i < planned_.size();) {
        planned_change &planned = planned_[i];
        if (!files_.unusable_part(*planned.transaction)) {
            i++;
            continue;
        }
        bool failed = false;
        note_problems();
        planned.transaction = plan_with_files(planned.request, &failed);
        if (planned.transaction) {
            continue;
        }
        fail(planned.request);
        files_.set_usable(planned.request, false);
        requests_by_name_.erase(planned.name);
        planned_.erase(planned_.begin() + static_cast<std::ptrdiff_t>(i));
        i = 0;
    }
}

// The packages of all requests that are still expected to be installed.
given_packages installing_job::given_with_requests(const std::string &request) {
    given_packages given = files_.given_for(request);
    for (const planned_change &planned : planned_) {
        if (!failed_names_.contains(planned.name)) {
            given.coming[planned.name] = planned.transaction->info;
        }
    }
    return given;
}

// A request is installed in its own right and by its own plan, also when another one needs it.
void installing_job::plan_without_requested() {
    std::vector<own_vrt> replaced;  // the records of their packages are still in use
    const given_packages given = given_with_requests("");
    for (planned_change &planned : planned_) {
        const std::vector<std::string> names = names_of(*planned.transaction);
        if (std::none_of(names.begin() + 1, names.end(), [&](const std::string &name) {
                return requests_by_name_.contains(name);
            })) {
            continue;
        }
        bool failed = false;
        own_vrt alone = make_plan(planned.request, given, &failed);
        if (alone) {
            replaced.push_back(std::exchange(planned.transaction, std::move(alone)));
        }
    }
}

// What has to be there before a package, as far as its plan goes.
static std::set<std::string> needs_of(const vrt &transaction) {
    std::set<std::string> names;
    const auto add_needs = [&](const vri *package) {
        for (char *const *dep = package->deps; dep && *dep; dep++) {
            names.insert(*dep);
        }
    };
    add_needs(transaction.info);
    for (int32_t i = 0; i < transaction.num_deps; i++) {
        const vrd *dep = transaction.deps[i];
        if (dep->info && dep->action != 'N') {
            names.insert(dep->info->name);
            add_needs(dep->info);
        }
    }
    return names;
}

// A dependency comes with the first request that needs it. The later ones rely on that.
void installing_job::share_dependencies() {
    std::vector<planned_request> wanted;
    std::map<std::string, planned_change> by_request;
    for (planned_change &planned : planned_) {
        wanted.push_back({planned.request, planned.name, needs_of(*planned.transaction)});
        by_request.emplace(planned.request, std::move(planned));
    }
    planned_.clear();
    std::set<std::string> brought;
    for (const planned_request &next : in_order(std::move(wanted))) {
        planned_change planned = std::move(by_request.at(next.request));
        for (const std::string &name : next.needs) {
            if (name != planned.name &&
                (brought.contains(name) || requests_by_name_.contains(name))) {
                planned.relies_on.push_back(name);
            }
        }
        drop_deps(planned.transaction.get(), [&](const vrd &dep) {
            return dep.info && dep.action == 'I' && brought.contains(dep.info->name);
        });
        for (std::string &name : names_of(*planned.transaction)) {
            brought.insert(std::move(name));
        }
        planned_.push_back(std::move(planned));
    }
}

void installing_job::plan_together() {
    attempt_again();
    plan_without_unusable_files();
    plan_without_requested();
    share_dependencies();
    judge_late();
}

bool installing_job::is_brought_along(const std::string &name) const {
    return std::any_of(planned_.begin(), planned_.end(), [&](const planned_change &planned) {
        const std::vector<std::string> names = names_of(*planned.transaction);
        return std::find(names.begin(), names.end(), name) != names.end();
    });
}

void installing_job::add_to_view(const planned_change &planned, plan_view *view) {
    view->add(*planned.transaction, remark(planned.transaction->info));
}

// ---- Carrying it out ----

// A dependency that was found in a directory is put into the stage area here, under its own name,
// and handed over as if fetched: the executor would copy it over the file that it staged before.
bool installing_job::hand_over_local_dependencies(vrt *transaction) {
    for (int32_t i = 0; i < transaction->num_deps; i++) {
        vrd *dep = transaction->deps[i];
        if (dep->status != 'L') {
            continue;
        }
        if (vrm_stage_file(work_.repository(), dep->info, 1) != 0) {
            return false;
        }
        dep->status = 'R';
    }
    return true;
}

// Those that share the dependency that failed need not try it again.
void installing_job::note_failed_dependency(const vrt &transaction) {
    const std::string failed = take_failed_installation();
    for (int32_t i = 0; transaction.deps && i < transaction.num_deps; i++) {
        const vrd *dep = transaction.deps[i];
        if (dep->info && dep->action != 'N' && failed == vrk_puname(dep->info)) {
            failed_names_.insert(dep->info->name);
        }
    }
}

bool installing_job::run_one(vrt *transaction) {
    const std::string name = transaction->info->name;
    if (!clear_stages(work_.repository(), *transaction) ||
        !hand_over_local_dependencies(transaction)) {
        tell_problem({name, std::string("was not ") + said_.done});
        return false;
    }
    vrt *raw = transaction;
    vrm_script_status = 0;
    take_failed_installation();
    const int rc = execute(&raw);
    // Also after a failure: the packages that got through are there, and their hooks want to know.
    vrm_exe_hooks(raw->hookcmds);
    vrm_hookcmds_del(work_.repository(), &raw);
    if (rc != 0) {
        // An executor may return a plain -1 for a script that ended so.
        was_interrupted(vrm_script_status);
        note_failed_dependency(*raw);
        tell_problem({name, std::string("was not ") + said_.done});
        return false;
    }
    const vri *const entry = work_.installed().find(name);
    if (!entry) {
        tell_problem({name, "was unpacked, but its entry in the inventory can't be read"});
        return false;
    }
    // The engine does not look back at the swap of an update.
    if (strcmp(entry->version, raw->info->version) != 0) {
        tell_problem(
            {name, std::string("was unpacked, but its entry in the inventory is still that "
                               "of version ") +
                       entry->version});
        return false;
    }
    print_afterwards(raw->info);
    return true;
}

// Whether what a change was planned to find is there. `is_to_be_planned` is set when a dependency
// that an earlier request was to bring is missing: the request can still bring it itself.
bool installing_job::can_rely(const planned_change &planned, bool *is_to_be_planned) {
    for (const std::string &name : planned.relies_on) {
        if (work_.installed().find_own(name)) {
            continue;
        }
        if (failed_names_.contains(name)) {
            const std::string reason = "it needs " + name + ", which was not " + said_.done;
            tell_problem({planned.name, std::string("was not ") + said_.done, reason});
            fail(planned.request, reason);
            return false;
        }
        // Another request whose turn is still to come: the two need each other.
        *is_to_be_planned = *is_to_be_planned || !requests_by_name_.contains(name);
    }
    return true;
}

bool installing_job::plan_anew(planned_change *planned) {
    bool failed = false;
    own_vrt transaction =
        make_plan(planned->request, given_with_requests(planned->request), &failed);
    if (!transaction) {
        return false;
    }
    planned->transaction = std::move(transaction);
    return true;
}

bool installing_job::was_shown(const planned_change &planned) {
    const bool was = shown_.covers(*planned.transaction);
    if (!was) {
        tell_problem({planned.request, std::string("was not ") + said_.done,
                      "what it takes has changed since it was shown; try again"});
    }
    return was;
}

bool installing_job::carry_out(planned_change *planned) {
    bool is_to_be_planned = false;
    const bool done = can_rely(*planned, &is_to_be_planned) &&
                      (!is_to_be_planned || plan_anew(planned)) && was_shown(*planned) &&
                      run_one(planned->transaction.get());
    if (!done) {
        failed_names_.insert(planned->name);
    }
    return done;
}
