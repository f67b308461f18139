#include <algorithm>

#include "faults/judge.h"

namespace {

struct told_text {
    told reason;
    const char *name;
    const char *sentence;
    bool is_loss = false;
};

constexpr told_text told_texts[] = {
    {told::not_reached, "not-reached",
     "the rollback removes a file that was to be replaced and had not been reached yet", true},
    {told::not_restored, "not-restored",
     "the rollback could not put a backup back, and the backup went with the stage directory",
     true},
    {told::not_deleted, "not-deleted",
     "a file that could not be deleted, or not be looked at, stays and belongs to nobody"},
    {told::new_version_stays, "new-stays",
     "the rollback could not remove a file of the package, which stays and belongs to nobody"},
    {told::mode_not_set, "mode-not-set",
     "permissions that could not be set are no failure: a file stays as private as it was made"},
    {told::conf_stays, "conf-stays", "new configuration files stay after a rollback"},
    {told::conf_unread, "conf-unread",
     "a configuration file that can't be compared with the shipped one passes for an edited one"},
    {told::links_stay, "links-stay", "links that were made or replaced stay after a rollback"},
    {told::link_not_made, "link-not-made",
     "a link that could not be made or taken away is no failure of the package"},
    {told::perm_not_set, "perm-not-set",
     "permissions of perm.txt that could not be set are no failure of the package"},
    {told::removal_not_finished, "removal-not-finished",
     "the end of a removal is not taken back: what could not be deleted stays in the inventory",
     true},
    {told::swap_not_finished, "swap-not-finished",
     "the swap of an update is not taken back: entry and file index can be of different versions",
     true},
    {told::entry_unread, "entry-unread",
     "a package whose entry can't be read counts as not installed, and is left alone"},
    {told::stage_kept, "stage-kept",
     "a package that could not be unpacked or verified leaves its directory in the stage area"},
    {told::not_cleared, "not-cleared",
     "something of the change's own that could not be deleted stays: a stage directory, a retired "
     "entry, a temporary file, the lock file, the note of a script"},
    {told::not_logged, "not-logged", "the history lacks a line that could not be written"},
    {told::killed_mid_swap, "killed-mid-swap",
     "killed between the renames of an update: missing, or with the old list of files, until the "
     "next "
     "change brings the old entry back",
     true},
    {told::killed_half_removed, "killed-half-removed",
     "killed between the file index and the entry of a removed package: listed without files until "
     "it "
     "is removed again",
     true},
    {told::killed_conf, "killed-conf",
     "killed while it wrote a configuration file, or put one back: it passes for an edited one and "
     "is kept",
     true},
    {told::killed_unindexed, "killed-unindexed",
     "killed between the install record and the file index: installed without its list of files",
     true},
    {told::killed_in_between, "killed-in-between",
     "killed when a package was removed and what goes with it was not: that stays as an orphan"},
    {told::killed_left_overs, "killed-left-overs",
     "killed before it cleared up: its stage directory, a retired entry, a temporary file stay"},
    {told::killed_record, "killed-record",
     "killed behind the registration: no line in the history, no run of the configuration script"},
};

const told_text &text_of_told(told reason) {
    return *std::find_if(std::begin(told_texts), std::end(told_texts),
                         [reason](const told_text &text) { return text.reason == reason; });
}

}  // namespace

const char *name_of(told reason) {
    return text_of_told(reason).name;
}

const char *sentence_of(told reason) {
    return text_of_told(reason).sentence;
}

bool is_loss(told reason) {
    return text_of_told(reason).is_loss;
}

const std::vector<told> &all_told() {
    static const std::vector<told> all = [] {
        std::vector<told> reasons;
        for (const told_text &text : told_texts) {
            reasons.push_back(text.reason);
        }
        return reasons;
    }();
    return all;
}

bool has_fault(const std::vector<finding> &findings) {
    return std::any_of(findings.begin(), findings.end(),
                       [](const finding &found) { return !found.reason; });
}
