#include "transaction/plan_proof.h"

#include <algorithm>

#include "package/signed_record.h"
#include "package/vrf.h"
#include "support/event.h"
#include "support/file.h"
#include "transaction/staging.h"

std::string file_name_of(const vri *package) {
    const char *uri = package->relative_uri;
    const std::string path = uri ? uri : "";
    const std::string name = path.substr(path.rfind('/') + 1);
    const bool fit = !name.empty() && std::none_of(name.begin(), name.end(), [](unsigned char c) {
        return c < 0x20 || c == 0x7f;
    });
    return fit ? name : std::string(vrk_puname(package)) + ".vrk";
}

// Where the plan has the record from: `R` is the catalogue.
static char source_of(const vrt *plan, const vri *package) {
    if (plan->info == package) {
        return plan->source;
    }
    for (int32_t i = 0; plan->deps && i < plan->num_deps; i++) {
        if (plan->deps[i]->info == package) {
            return plan->deps[i]->status;
        }
    }
    return 'L';
}

std::string plan_difference(const vrt *plan, const vri *package, const vri *signed_record) {
    const bool is_catalogues = source_of(plan, package) == 'R';
    vri planned = *package;
    if (is_catalogues && !planned.creator) {
        planned.creator = signed_record->creator;
    }
    if (is_catalogues && planned.datasize == 0) {
        planned.datasize = signed_record->datasize;
    }
    return difference_in_words(is_catalogues ? "the catalogue" : "the plan", &planned,
                               "its signed description", signed_record);
}

static bool is_changed(const vrd *dep) {
    return dep->info && dep->action != 'N';
}

static int prove(const change_run &run, const vri *package) {
    stage_paths paths;
    if (!stage_paths_of(run.who, run.handle, package, &paths)) {
        return -1;
    }
    if (is_missing(paths.file.c_str())) {
        return 0;
    }
    const own_vri head(vrm_vrf_info(run.handle, paths.file.c_str(), 1));
    if (head && head->sig_status != 1) {
        report({.kind = event_kind::signature_not_trusted, .path = paths.file});
        return -1;
    }
    // The head is the signed description when they match.
    std::string why = compare_head(paths.file.c_str()).why;
    if (why.empty()) {
        why = head ? plan_difference(*run.transaction, package, head.get())
                   : "its head cannot be read";
    }
    if (!why.empty()) {
        report({.kind = event_kind::package_not_believed,
                .who = run.who,
                .package = paths.puname,
                .path = file_name_of(package),
                .other = why});
        return -1;
    }
    return 0;
}

int prove_dependencies(const change_run &run) {
    const vrt *plan = *run.transaction;
    bool changes_one = false, fails = false;
    for (int32_t i = 0; plan->deps && i < plan->num_deps && !fails; i++) {
        const vrd *dep = plan->deps[i];
        if (is_changed(dep)) {
            changes_one = true;
            // What needs nothing brings nothing in.
            fails = dep->info->deps && dep->info->deps[0] && prove(run, dep->info) != 0;
        }
    }
    return fails || (changes_one && prove(run, plan->info) != 0) ? -1 : 0;
}
