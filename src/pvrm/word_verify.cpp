#include <algorithm>
#include <string>
#include <vector>

#include "maintenance/consistency_audit.h"
#include "maintenance/hash_audit.h"
#include "pvrm/engine_report.h"
#include "pvrm/request.h"
#include "pvrm/session.h"
#include "pvrm/tell.h"
#include "pvrm/words.h"
#include "repository/inventory.h"
#include "ui/vrmui.h"

// The names of the entries' directories, by which they are found. Those in the records may be other
// ones.
static std::vector<std::string> all_installed(vrm_handle *repository) {
    std::vector<std::string> names;
    installed_walk walk(repository);
    while (walk.is_open() && walk.next()) {
        if (walk.take_info()) {
            names.emplace_back(walk.name());
        } else {
            log_passed_over(walk.name());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

// Whether an entry's record is that of the package that its directory is named for; tells when not.
static bool has_its_own_record(vrm_handle *repository, const std::string &name) {
    const own_vri info(vrm_vrl_info(repository, name.c_str()));
    if (!info || (info->name && info->name == name)) {
        return true;
    }
    tell_problem("the inventory's entry %s has the record of another package, %s", name.c_str(),
                 info->name ? info->name : "without a name");
    return false;
}

static bool verify(const session &work, const std::string &name) {
    if (names_nothing(name)) {
        return false;
    }
    const bool own_record = has_its_own_record(work.repository(), name);
    const int errors = vrm_chkhash_settled(work.repository(), name.c_str(), work.options.verbose);
    vrmui_write(vrmui, vrmui->text, 0);
    if (errors < 0 && was_explained()) {
        tell_failure("%s can't be verified", name.c_str());
    }
    if (errors < 0 && !own_vri(vrm_vrl_info(work.repository(), name.c_str()))) {
        return false;
    }
    const int differences = vrm_chkplaces(work.repository(), name.c_str());
    return errors == 0 && differences == 0 && own_record;
}

exit_status word_verify(const common_options &options, const std::vector<std::string> &names) {
    session work(options);
    if (!work.open_repository() || !work.has_directories({"installed"})) {
        return EXIT_FAILED;
    }
    // An entry that is passed over was not verified either.
    const size_t problems_before = reasons_told();
    bool good = true;
    for (const std::string &name : names.empty() ? all_installed(work.repository()) : names) {
        good = verify(work, name) && good;
    }
    return good && reasons_told() == problems_before ? EXIT_DONE : EXIT_FAILED;
}
