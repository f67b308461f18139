// What may be left after a change that was disturbed.
//
// The rule: each package is, as a whole, what it was before or what the change makes of it, on the
// disk and in the inventory, and nothing else is touched. What the engine's order of steps leaves
// beyond that is told: a list of named losses and left-overs, each bound to the operation that was
// disturbed, and written up in the administrator's guide. All else is a fault.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "faults/cases.h"
#include "faults/operation.h"
#include "faults/tree.h"

enum class told {
    not_reached,
    not_restored,
    not_deleted,
    new_version_stays,
    mode_not_set,
    conf_stays,
    conf_unread,
    links_stay,
    link_not_made,
    perm_not_set,
    removal_not_finished,
    swap_not_finished,
    entry_unread,
    stage_kept,
    not_cleared,
    not_logged,
    // After a kill:
    killed_mid_swap,
    killed_half_removed,
    // After a kill, and a repeated run too:
    killed_conf,
    killed_unindexed,
    killed_in_between,
    killed_left_overs,
    killed_record,
};

// The name and the sentence for a list.
const char *name_of(told reason);
const char *sentence_of(told reason);
// Whether a file of the old version is lost by it, or a package half registered: of these the
// number of each operation is told.
bool is_loss(told reason);
const std::vector<told> &all_told();

struct finding {
    std::optional<told> reason;  // none: a fault
    std::string path;
    std::string what;
};

struct failed_run {
    operation disturbed;
    size_t number;                 // of that operation
    std::vector<operation> trace;  // of the whole run
    bool success_told;             // exit status 0
    std::string log;               // what the engine logged
    tree now;
};

// After a run in which one operation failed.
std::vector<finding> judge_failure(const scene &expected, const failed_run &run);

// After a run that was killed. `listed` are the packages that count as installed now.
std::vector<finding> judge_killed(const scene &expected, const tree &killed,
                                  const std::set<std::string> &listed);

// After a run that was killed, in the state `killed`, and the backups that it left were put back as
// the administrator's guide tells.
std::vector<finding> judge_recovery(const scene &expected, const tree &killed, const tree &now);

// The stage directories whose backups are the reason, by what the tool printed, why it did not
// begin a change.
std::set<std::string> refused_stages(const std::string &output);

// After a run that was killed, in the state `killed`, and an attempt to repeat it, which printed
// `output`: backups are never touched, only they are a reason to refuse, and a refusal changes
// nothing.
std::vector<finding> judge_refusal(const tree &killed, const tree &now, const std::string &output);

// After a run that was killed, in the state `killed`, and a repetition of it that got through, with
// the good package where the run was to fail.
std::vector<finding> judge_repetition(const scene &expected, const tree &killed, const tree &now);

// Whether any of the findings is a fault.
bool has_fault(const std::vector<finding> &findings);
