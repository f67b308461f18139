// A change of packages by one command line: what installing, upgrading and removing share.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "pvrm/plan_view.h"
#include "pvrm/session.h"
#include "transaction/vrt.h"

// What is to be done with one transaction.
struct planned_change {
    std::string request;  // as it is on the command line
    std::string name;     // of its package
    own_vrt transaction;
    std::vector<std::string> relies_on = {};  // names that are to be installed before it
};

class change_job {
 public:
    // The words for what is done, such as "Install", "installed" and "installation".
    struct words {
        const char *verb, *done, *noun;
    };
    change_job(session &work, const std::vector<std::string> &requests, words said);
    virtual ~change_job() = default;
    change_job(const change_job &) = delete;
    change_job &operator=(const change_job &) = delete;

    // The stages of a change: plans all requests, shows the plan, asks, carries it out, and names
    // what failed at the end. When what is installed was changed by another program meanwhile, the
    // requests are planned again, and what was not shown is not done. A request that fails does not
    // stop the others, an interruption does. Result: the exit status.
    exit_status run();

 protected:
    // Forgets what the requests were planned as.
    virtual void begin_planning() {}
    // Plans one request, or notes what is to be planned for it together with the others. False,
    // with the reason printed, when it fails.
    virtual bool plan(const std::string &request) = 0;
    // Puts the plans of all requests together: `planned_` is what will be done, in its order.
    virtual void plan_together() = 0;
    // Adds a change to what the user sees.
    virtual void add_to_view(const planned_change &planned, plan_view *view) = 0;
    virtual void print(const plan_view &view) const {
        view.print();
    }
    // Whether a change is still to be done when its turn comes.
    virtual bool is_due(const planned_change & /*planned*/) {
        return true;
    }
    // Whether the user named the requests.
    virtual bool were_named() const {
        return true;
    }
    // Whether a request may fail for want of a catalogue.
    virtual bool needs_catalogue() const {
        return true;
    }
    // Carries one change out. False, with the reason printed, when it fails.
    virtual bool carry_out(planned_change *planned) = 0;

    // Counts a request as failed, once. Without a reason it is the first problem that was printed
    // since the work on the request began.
    void fail(const std::string &request, const std::string &reason = "");
    bool has_failed(const std::string &request) const;
    // Forgets what is known of the packages that a transaction has just changed, or tried to.
    void forget_changed(const vrt &transaction);

    session &work_;
    const std::vector<std::string> requests_;  // each once
    const words said_;
    std::vector<planned_change> planned_;
    plan_view shown_;  // what the user agreed to

 private:
    struct failure {
        std::string request, reason;
    };
    void plan_all();
    void show();
    bool has_space();
    bool ask();
    std::string question() const;
    void plan_again_if_changed();
    void carry_out_all();
    void summarise() const;

    std::vector<failure> failures_;
    std::set<std::string> failed_requests_;
    size_t tried_ = 0;  // requests that were planned, or failed so far
};
