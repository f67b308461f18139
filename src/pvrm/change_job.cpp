#include "pvrm/change_job.h"

#include <cstring>
#include <map>
#include <set>
#include <string_view>
#include <utility>

#include "package/safe_name.h"
#include "package/vrf.h"
#include "pvrm/agreement.h"
#include "pvrm/engine_report.h"
#include "pvrm/exit_status.h"
#include "pvrm/interruption.h"
#include "pvrm/request.h"
#include "pvrm/stages.h"
#include "pvrm/tell.h"
#include "repository/inventory.h"
#include "support/arch.h"
#include "transaction/fetch.h"
#include "transaction/scripts.h"
#include "ui/vrmui.h"

change_job::change_job(session &work, std::vector<std::string> requests,
                       const std::vector<std::string> &dirs, const char *verb, const char *done)
    : work_(work), requests_(std::move(requests)), dir_texts_(dirs), verb_(verb), done_(done) {
    for (std::string &dir : dir_texts_) {
        dirs_.push_back(dir.data());
    }
    dirs_.push_back(nullptr);
}

std::string change_job::package_name(const std::string &request) {
    if (vrk_file_is_vrk(request.c_str())) {
        own_vri info(vrm_vrf_info(work_.repository(), request.c_str(), 0));
        if (!info) {
            tell_failure("%s is not a valid package file", request.c_str());
            return "";
        }
        if (info->name[0] == '\0') {
            tell_problem("%s can't be %s: its description gives the package no name",
                         request.c_str(), done_);
        }
        return info->name;
    }
    if (looks_like_file(request)) {
        tell_no_package_file(request);
        return "";
    }
    return names_nothing(request) ? "" : request;
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

// What the planner lets through and the executor would not, or should not.
bool change_job::is_acceptable(const std::string &request, const vrt &transaction) {
    const vri *const package = transaction.info;
    const int32_t own_arch = work_.repository()->arch;
    if (package->arch != arch_any && package->arch != own_arch) {
        take_cause();
        tell_problem("%s can't be %s: it is built for %s, and this machine is %s", request.c_str(),
                     done_, arch_name(package->arch), arch_name(own_arch));
        return false;
    }
    if (const char *part = vrk_info_unsafe_part(package)) {
        tell_problem("%s can't be %s: its %s holds characters that are not allowed",
                     request.c_str(), done_, part);
        return false;
    }
    if (const char *name = name_of_a_file(transaction)) {
        tell_problem("%s can't be %s: a package called %s would be taken for a package file",
                     request.c_str(), done_, name);
        return false;
    }
    // That of a package file is known now, that of another one when it has been fetched.
    const bool is_file = vrk_file_is_vrk(request.c_str());
    if (is_file && package->sig_status != 1) {
        tell_failure("%s can't be %s", request.c_str(), done_);
        return false;
    }
    return true;
}

// What has to be there before a package: what comes with it, and those of its dependencies that
// have a request of their own.
static std::set<std::string> needs_of(const vrt &transaction) {
    std::set<std::string> names;
    for (char *const *dep = transaction.info->deps; dep && *dep; dep++) {
        names.insert(*dep);
    }
    for (int32_t i = 0; i < transaction.num_deps; i++) {
        if (transaction.deps[i]->info && transaction.deps[i]->action != 'N') {
            names.insert(transaction.deps[i]->info->name);
        }
    }
    return names;
}

void change_job::plan_all(plan_view *view) {
    std::map<std::string, std::string> requests_by_name;
    std::map<std::string, own_vrt> transactions;
    std::set<std::string> seen;
    for (const std::string &request : requests_) {
        if (!seen.insert(request).second) {
            continue;  // to say the same thing twice is to say it once
        }
        own_vrt transaction = plan(request);
        if (!transaction) {
            continue;
        }
        const std::string name = transaction->info->name;
        const auto [first, is_new] = requests_by_name.emplace(name, request);
        if (!is_new) {
            tell_problem("%s is passed over: it is the package %s, as %s is", request.c_str(),
                         name.c_str(), first->second.c_str());
            continue;
        }
        planned_.push_back({request, name, needs_of(*transaction)});
        transactions.emplace(request, std::move(transaction));
    }
    planned_ = in_order(std::move(planned_));
    for (const planned_request &planned : planned_) {
        const vrt &transaction = *transactions[planned.request];
        view->add(transaction, remark(transaction.info));
    }
}

// A dependency that was found in a directory is put into the stage area here, under its own name,
// and handed over as if fetched: the executor would copy it over the file that it staged before.
bool change_job::hand_over_local_dependencies(vrt *transaction) {
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

bool change_job::run_one(own_vrt transaction) {
    const std::string name = transaction->info->name;
    if (!clear_stages(work_.repository(), *transaction) ||
        !hand_over_local_dependencies(transaction.get())) {
        tell_problem("%s was not %s", name.c_str(), done_);
        return false;
    }
    vrt *raw = transaction.get();
    vrm_script_status = 0;
    const int rc = execute(&raw);
    // Also after a failure: the packages that got through are there, and their hooks want to know.
    vrm_exe_hooks(raw->hookcmds);
    vrm_hookcmds_del(work_.repository(), &raw);
    if (rc != 0) {
        // An executor may tell a script's end by a plain -1.
        was_interrupted(vrm_script_status);
        tell_problem("%s was not %s", name.c_str(), done_);
        return false;
    }
    const own_vri entry(vrm_vrl_info(work_.repository(), name.c_str()));
    if (!entry) {
        tell_problem("%s was unpacked, but its entry in the inventory can't be read", name.c_str());
        return false;
    }
    // The engine does not look back at the swap of an update.
    if (strcmp(entry->version, raw->info->version) != 0) {
        tell_problem("%s was unpacked, but its entry in the inventory is still that of version %s",
                     name.c_str(), entry->version);
        return false;
    }
    tell_afterwards(raw->info);
    return true;
}

void change_job::carry_out(const plan_view &shown) {
    for (const planned_request &planned : planned_) {
        if (was_interrupted()) {
            tell_problem("interrupted: %s and what follows was not %s", planned.request.c_str(),
                         done_);
            failed_ = true;
            return;
        }
        own_vrt transaction = plan(planned.request);
        if (!transaction) {
            continue;
        }
        if (!shown.covers(*transaction)) {
            tell_problem("%s was not %s: what it takes has changed since it was shown; try again",
                         planned.request.c_str(), done_);
            failed_ = true;
            continue;
        }
        failed_ = !run_one(std::move(transaction)) || failed_;
    }
}

int change_job::run(const common_options &options) {
    plan_view shown;
    plan_all(&shown);
    if (!planned_.empty()) {
        if (!options.quiet || options.dry_run || vote_mode == 1) {
            shown.print();
        }
        if (!options.dry_run) {
            if (!user_agrees(question_of_packages(verb_, shown.size()), 1)) {
                tell_problem(was_interrupted() ? "interrupted: nothing was %s" : "nothing was %s",
                             done_);
                return EXIT_FAILED;
            }
            carry_out(shown);
        }
    }
    return failed_ ? EXIT_FAILED : EXIT_DONE;
}
