// Private to the maintenance: findings that are reported only when they are not half of what
// another process is changing at this moment.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "repository/repository.h"
#include "support/event.h"

// An event that owns its texts.
class finding {
 public:
    explicit finding(const event &found)
        : kind_(found.kind),
          package_(found.package),
          path_(found.path),
          other_(found.other),
          found_(found.found),
          error_(found.error),
          number_(found.number) {}

    // Its texts are those of the finding.
    event as_event() const {
        return {.kind = kind_,
                .package = package_,
                .path = path_,
                .other = other_,
                .found = found_,
                .error = error_,
                .number = number_};
    }

 private:
    event_kind kind_;
    std::string package_, path_, other_, found_;
    int error_;
    int64_t number_;
};

using finding_list = std::vector<finding>;

// Reports and counts what an audit finds. Without the lock it looks twice, and reports only what
// is found while no other process holds the lock.
class settled_findings {
 public:
    // The handle must outlive the object.
    explicit settled_findings(vrm_handle *handle) : handle_(handle) {}

    // Reports what was found first or, without the lock, what `look` finds, which gives a
    // finding_list and looks at the disk again. It is not called when nothing was found.
    template <typename Look>
    void add(const finding_list &first, Look look) {
        if (first.empty()) {
            return;
        }
        if (handle_->locked) {
            report_all(first);
            return;
        }
        if (!is_quiet()) {
            withheld_ = true;
            return;
        }
        const finding_list again = look();
        if (again.empty() || is_quiet()) {
            report_all(again);
        } else {
            withheld_ = true;
        }
    }

    // Reports one finding if it is still so.
    template <typename Look>
    void add_if(const event &found, Look still_so) {
        const finding_list one = {finding(found)};
        add(one, [&] { return still_so() ? one : finding_list(); });
    }

    // After the last finding: reports, as a finding, that some were withheld. `what` names what was
    // not compared.
    void end(const std::string &what) {
        if (withheld_) {
            report_all({finding({.kind = event_kind::change_in_progress, .other = what})});
        }
    }

    // Whether a finding was withheld so far.
    bool withheld() const {
        return withheld_;
    }
    int count() const {
        return count_;
    }

 private:
    bool is_quiet() const {
        return vrm_lock_holder(handle_) <= 0;
    }
    void report_all(const finding_list &all) {
        for (const finding &one : all) {
            report(one.as_event());
            count_++;
        }
    }

    vrm_handle *handle_;
    bool withheld_ = false;
    int count_ = 0;
};
