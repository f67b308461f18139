#include "pvrm/change_job.h"

#include <algorithm>
#include <iterator>
#include <set>

#include "pvrm/change_transaction.h"
#include "pvrm/interruption.h"
#include "pvrm/tell.h"
#include "transaction/journal_scope.h"
#include "transaction/space.h"
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

void change_job::fail(const std::string &request, const std::string &reason) {
    if (has_failed(request)) {
        return;
    }
    std::string why = reason;
    if (why.empty()) {
        const problem first = first_problem();
        // That there is no catalogue was printed once, ahead of all requests.
        const bool unexplained = needs_catalogue() && first.subject == request && first.why.empty();
        why = unexplained && !work_.catalogue() ? "the package catalogue can't be used"
                                                : first.text_after(request);
    }
    failures_.push_back({request, why});
    failed_requests_.insert(request);
}

bool change_job::has_failed(const std::string &request) const {
    return failed_requests_.contains(request);
}

void change_job::forget_changed(const vrt &transaction) {
    for (const std::string &name : names_of(transaction)) {
        work_.installed().forget(name);
    }
}

void change_job::plan_all() {
    planned_.clear();
    begin_planning();
    for (const std::string &request : requests_) {
        note_problems();
        if (!has_failed(request) && !plan(request)) {
            fail(request);
        }
    }
    note_problems();
    plan_together();
    tried_ = planned_.size() + failures_.size();
}

void change_job::show() {
    for (const planned_change &planned : planned_) {
        add_to_view(planned, &shown_);
    }
    if (!work_.options.quiet || work_.options.dry_run || vote_mode == 1) {
        print(shown_);
    }
}

// For all requests together, as the first ones would be changed by the time the last ones fail.
bool change_job::has_space() {
    std::vector<const vrt *> plans;
    for (const planned_change &planned : planned_) {
        plans.push_back(planned.transaction.get());
    }
    return has_space_for(&work_.installed(), plans);
}

bool change_job::ask() {
    return work_.options.dry_run || user_agrees(question(), 1);
}

std::string change_job::question() const {
    const size_t packages = shown_.size();
    return std::string(said_.verb) +
           (packages == 1 ? " this package?" : " these " + std::to_string(packages) + " packages?");
}

// The lock keeps other programs off that respect it, and nobody else.
void change_job::plan_again_if_changed() {
    if (work_.installed().refresh()) {
        tell_warning("what is installed has changed since the plan was made; it is made anew");
        plan_all();
    }
}

void change_job::carry_out_all() {
    // One record for all of them.
    const journal_scope scope(work_.repository());
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

exit_status change_job::run() {
    plan_all();
    if (!planned_.empty()) {
        show();
        if (!has_space() || !ask()) {
            tell_problem(was_interrupted() ? "interrupted: nothing was %s" : "nothing was %s",
                         said_.done);
            return EXIT_FAILED;
        }
        if (!work_.options.dry_run) {
            plan_again_if_changed();
            carry_out_all();
        }
    }
    summarise();
    return failures_.empty() ? EXIT_DONE : EXIT_FAILED;
}
