#include "pvrm/change_job.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <string_view>

#include "pvrm/agreement.h"
#include "pvrm/exit_status.h"
#include "pvrm/interruption.h"
#include "pvrm/tell.h"
#include "ui/vrmui.h"

// To name the same thing twice is to name it once.
static std::vector<std::string> each_once(const std::vector<std::string> &texts) {
    std::vector<std::string> once;
    std::set<std::string> seen;
    std::copy_if(texts.begin(), texts.end(), std::back_inserter(once),
                 [&](const std::string &text) { return seen.insert(text).second; });
    return once;
}

change_job::change_job(session &work, const std::vector<std::string> &requests, words said)
    : work_(work), requests_(each_once(requests)), said_(said) {}

std::string reason_after(const std::string &name, const std::string &problem) {
    if (name.empty() || !problem.starts_with(name)) {
        return problem;
    }
    const std::string rest = problem.substr(name.size());
    if (rest.starts_with(": ")) {
        return rest.substr(2);
    }
    if (!rest.starts_with(" ")) {
        return problem;
    }
    if (rest.starts_with(" can't be ")) {
        for (const std::string_view separator : {": ", ", as "}) {
            if (const size_t at = rest.find(separator); at != std::string::npos) {
                return rest.substr(at + separator.size());
            }
        }
    }
    return "it" + rest;
}

void change_job::fail(const std::string &request, const std::string &reason) {
    const bool is_known =
        std::any_of(failures_.begin(), failures_.end(),
                    [&](const failure &known) { return known.request == request; });
    if (!is_known) {
        failures_.push_back(
            {request, reason_after(request, reason.empty() ? first_problem() : reason)});
    }
}

void change_job::plan_all() {
    for (const std::string &request : requests_) {
        note_problems();
        if (!plan(request)) {
            fail(request);
        }
    }
    note_problems();
    plan_together();
    tried_ = planned_.size() + failures_.size();
}

bool change_job::show_and_ask() {
    for (const planned_change &planned : planned_) {
        add_to_view(planned, &shown_);
    }
    if (!work_.options.quiet || work_.options.dry_run || vote_mode == 1) {
        print(shown_);
    }
    return work_.options.dry_run || user_agrees(question_of_packages(said_.verb, shown_.size()), 1);
}

void change_job::carry_out_all() {
    bool stopped = false;
    for (planned_change &planned : planned_) {
        if (!is_due(planned)) {
            continue;
        }
        if (!stopped && was_interrupted()) {
            stopped = true;
            tell_problem("interrupted: %s and what follows was not %s", planned.request.c_str(),
                         said_.done);
        }
        if (stopped) {
            fail(planned.request, "interrupted");
            continue;
        }
        note_problems();
        if (!carry_out(&planned)) {
            fail(planned.request);
        }
    }
}

// Of many requests the user would have to look for what failed.
void change_job::summarise() const {
    const size_t tried = were_named() ? requests_.size() : tried_;
    if (failures_.empty() || tried < 2) {
        return;
    }
    tell_problem("%zu of %zu %ss failed:", failures_.size(), tried, said_.noun);
    for (const failure &failed : failures_) {
        tell_detail("%s: %s", failed.request.c_str(), failed.reason.c_str());
    }
}

int change_job::run() {
    plan_all();
    if (!planned_.empty()) {
        if (!show_and_ask()) {
            tell_problem(was_interrupted() ? "interrupted: nothing was %s" : "nothing was %s",
                         said_.done);
            return EXIT_FAILED;
        }
        if (!work_.options.dry_run) {
            carry_out_all();
        }
    }
    summarise();
    return has_failed() ? EXIT_FAILED : EXIT_DONE;
}
