// A change of several packages by one command line: what installing and upgrading share.
#pragma once

#include <string>
#include <vector>

#include "pvrm/plan_view.h"
#include "pvrm/request_order.h"
#include "pvrm/session.h"
#include "transaction/vrt.h"

class change_job {
 public:
    // `verb` is the word for what is done, such as "Install", and `done` the one for what was done.
    change_job(session &work, std::vector<std::string> requests,
               const std::vector<std::string> &dirs, const char *verb, const char *done);
    virtual ~change_job() = default;
    change_job(const change_job &) = delete;
    change_job &operator=(const change_job &) = delete;

    // Plans everything, shows it, asks and does it, as far as the options have it. Result: the exit
    // status.
    int run(const common_options &options);

 protected:
    // The plan of one request; null when there is nothing to do, or, with `failed_`, none can be
    // made. The reason is told.
    virtual own_vrt plan(const std::string &request) = 0;
    virtual int execute(vrt **transaction) = 0;
    // What the plan's table says of the top package.
    virtual std::string remark(const vri * /*package*/) {
        return "";
    }
    // Called for each package whose transaction came to a good end.
    virtual void tell_afterwards(const vri * /*package*/) {}

    // The name of the package that a request means; empty, with the reason told, when it means
    // none.
    std::string package_name(const std::string &request);
    // Whether the executor would take what the planner lets through; tells when not.
    bool is_acceptable(const std::string &request, const vrt &transaction);
    // The directories for dependencies, as the planners take them.
    char *const *dirs() const {
        return dirs_.size() > 1 ? dirs_.data() : nullptr;
    }

    session &work_;
    bool failed_ = false;

 private:
    // Plans all requests and gathers what they would do.
    void plan_all(plan_view *view);
    // Carries the planned requests out, each planned anew, as what came before may have changed
    // what it needs. One that fails does not stop the rest, an interruption does.
    void carry_out(const plan_view &shown);
    bool run_one(own_vrt transaction);
    bool hand_over_local_dependencies(vrt *transaction);

    const std::vector<std::string> requests_;
    std::vector<std::string> dir_texts_;
    std::vector<char *> dirs_;
    const char *const verb_;
    const char *const done_;
    std::vector<planned_request> planned_;
};
