// The plan of a change, as it is shown before anything happens.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "transaction/vrt.h"

// Gathers what several transactions would do together: each package once, in the order in which the
// transactions bring it in.
class plan_view {
 public:
    plan_view() = default;
    ~plan_view();
    plan_view(const plan_view &) = delete;
    plan_view &operator=(const plan_view &) = delete;

    // `remark` stands beside the top package.
    void add(const vrt &transaction, const std::string &remark = "");
    size_t size() const {
        return lines_.size();
    }

    // Whether all that a transaction would install is in here, in the very version and variant:
    // what the user agreed to covers it then. Plans are made anew before they run, and the
    // catalogue may have changed meanwhile.
    bool covers(const vrt &transaction) const;

    // Prints a table of the packages, each with version, where it comes from and sizes, and the
    // totals.
    void print() const;

    // The same for removals, with what they free.
    void print_removal() const;

 private:
    struct line {
        std::string origin;
        std::string reason;
    };
    vra **list_ = nullptr;
    std::vector<line> lines_;  // beside list_
    std::set<std::string> unique_names_;
};
