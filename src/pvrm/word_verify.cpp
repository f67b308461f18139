#include <string>
#include <vector>

#include "maintenance/hash_audit.h"
#include "pvrm/engine_report.h"
#include "pvrm/exit_status.h"
#include "pvrm/request.h"
#include "pvrm/session.h"
#include "pvrm/words.h"
#include "repository/inventory.h"
#include "ui/vrmui.h"

static std::vector<std::string> all_installed(vrm_handle *repository) {
    vri **raw = nullptr;
    vrm_list_vri(repository, nullptr, 1, &raw);
    const own_vri_list list(raw);
    std::vector<std::string> names;
    for (vri *const *package = raw; package && *package; package++) {
        names.emplace_back((*package)->name);
    }
    return names;
}

static bool verify(const session &work, const std::string &name) {
    if (names_nothing(name)) {
        return false;
    }
    vrmui_line_new(vrmui, "");
    const int errors = vrm_chkhash(work.repository(), name.c_str(), work.options.verbose);
    vrmui_write(vrmui, vrmui->text, 0);
    if (errors < 0 && was_explained()) {
        tell_failure("%s can't be verified", name.c_str());
    }
    return errors == 0;
}

int word_verify(const common_options &options, const std::vector<std::string> &names) {
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
