// What installing and upgrading share: packages that come to the system, with what they need.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "pvrm/change_job.h"
#include "pvrm/named_files.h"
#include "pvrm/tell.h"
#include "repository/snapshot.h"

class installing_job : public change_job {
 public:
    installing_job(session &work, const std::vector<std::string> &requests,
                   const std::vector<std::string> &dirs, words said);

 protected:
    void begin_planning() override {
        requests_by_name_.clear();
        failed_attempts_.clear();
    }
    // The plan of one request; null when there is nothing to do, or, with `*failed`, none can be
    // made. The reason is printed.
    virtual own_vrt make_plan(const std::string &request, const given_packages &given,
                              bool *failed) = 0;
    // Carries a plan out, and forgets what it changed. Result: not 0 when it fails.
    virtual int execute(vrt **transaction) = 0;
    // What the plan's table says of the top package.
    virtual std::string remark(const vri * /*package*/) {
        return "";
    }
    // Called for each package whose transaction came to a good end.
    virtual void print_afterwards(const vri * /*package*/) {}
    // Called when all requests are planned: what could not be judged before.
    virtual void judge_late() {}

    // The name of the package that a request means; empty, with the reason printed, when it means
    // none.
    std::string package_name(const std::string &request);
    // Whether the executor would take what the planner lets through; prints why when not.
    bool is_acceptable(const std::string &request, const vrt &transaction);
    // The same of a package file that may only serve as a dependency.
    bool is_acceptable_file(const std::string &request);
    // Whether a planned change brings in a package.
    bool is_brought_along(const std::string &name) const;
    // The directories for dependencies, as the planners take them.
    char *const *dirs() const {
        return dirs_.size() > 1 ? dirs_.data() : nullptr;
    }

 private:
    bool plan(const std::string &request) override;
    void plan_together() override;
    void add_to_view(const planned_change &planned, plan_view *view) override;
    void refuse(const std::string &request, const std::string &why);
    bool carry_out(planned_change *planned) override;

    bool is_sound(const std::string &request, const vri &package);
    bool is_signed(const std::string &request, const vri &package);
    own_vrt plan_with_files(const std::string &request, bool *failed);
    bool plan_one(const std::string &request);
    bool attempt(const std::string &request, std::vector<held_problem> *held);
    void attempt_again();
    given_packages given_with_requests(const std::string &request);
    void plan_without_unusable_files();
    void plan_without_requested();
    void share_dependencies();

    bool can_rely(const planned_change &planned, bool *is_to_be_planned);
    bool plan_anew(planned_change *planned);
    bool was_shown(const planned_change &planned);
    bool run_one(vrt *transaction);
    void note_failed_dependency(const vrt &transaction);
    bool hand_over_local_dependencies(vrt *transaction);

    // A request for which no plan could be made so far, with the reasons.
    struct failed_attempt {
        std::string request;
        std::vector<held_problem> problems;
    };

    named_files files_;
    std::vector<failed_attempt> failed_attempts_;
    std::map<std::string, std::string> requests_by_name_;  // of what is planned
    std::set<std::string> failed_names_;                   // packages that were not installed
    std::vector<std::string> dir_texts_;
    std::vector<char *> dirs_;
};
