#include <filesystem>
#include <map>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "package/vrf.h"
#include "package/vri.h"
#include "pvrm/config_files.h"
#include "pvrm/engine_report.h"
#include "pvrm/installing_job.h"
#include "pvrm/lost_files.h"
#include "pvrm/tell.h"
#include "pvrm/words.h"
#include "repository/inventory.h"
#include "repository/owner_lookup.h"
#include "support/file.h"
#include "transaction/plan_update.h"
#include "transaction/update.h"

namespace {

class upgrade : public installing_job {
 public:
    upgrade(session &work, const std::vector<std::string> &requests, bool all)
        : installing_job(work, requests, {}, {"Upgrade", "upgraded", "upgrade"}), all_(all) {}

    exit_status run_all();

 private:
    void begin_planning() override {
        installing_job::begin_planning();
        not_installed_.clear();
    }
    own_vrt make_plan(const std::string &request, const given_packages &given,
                      bool *failed) override;
    void judge_late() override;
    bool were_named() const override {
        return !all_;
    }
    int execute(vrt **transaction) override;
    std::string remark(const vri *package) override;
    void print_afterwards(const vri *package) override;
    own_vrt ask_planner(const std::string &request, const given_packages &given);
    bool is_wanted(const std::string &request, const std::string &name, bool *failed);
    void tell_up_to_date(const std::string &name);
    void tell_not_offered(const std::string &name, bool *failed);
    void tell_dropped_config(const std::string &name, const std::vector<std::string> &before);
    bool has_owner(const std::string &config_file);

    // Package files of what is not installed: they may serve as dependencies.
    std::vector<std::pair<std::string, std::string>> not_installed_;  // request and name
    const bool all_;  // nobody named the packages: what needs nothing is not spoken of
    bool found_work_ = false;
};

}  // namespace

std::string upgrade::remark(const vri *package) {
    const vri *const installed = work_.installed().find(package->name);
    return installed ? std::string("in place of ") + installed->version : "";
}

void upgrade::tell_up_to_date(const std::string &name) {
    if (all_) {
        return;
    }
    if (const vri *installed = work_.installed().find(name)) {
        tell_step("%s is up to date, version %s", name.c_str(), installed->version);
    }
}

// What was installed from a file and is in no catalogue is no fault of a run over all packages.
void upgrade::tell_not_offered(const std::string &name, bool *failed) {
    if (all_) {
        return;
    }
    *failed = true;
    if (!work_.catalogue()) {
        tell_problem({name, "can't be upgraded"});
        return;
    }
    const vri *const installed = work_.installed().find(name);
    const std::string variant = installed && installed->variant ? installed->variant : "default";
    tell_problem(
        {name, "can't be upgraded", "its variant " + variant + " is not in the package catalogue"});
}

// Tells why there is no plan for a package, if there is none for the package's own sake. What is
// left then are its dependencies.
bool upgrade::is_wanted(const std::string &request, const std::string &name, bool *failed) {
    const auto look = [&] {
        return outlook_of_update(work_.installed(), work_.catalogue(), request.c_str(), nullptr,
                                 nullptr);
    };
    update_outlook outlook = look();
    // A catalogue that turns out damaged half way must not pass for one without updates.
    if (all_ && outlook == UPDATE_NOT_OFFERED && work_.learned_catalogue()) {
        outlook = look();
    }
    switch (outlook) {
        case UPDATE_WANTED:
            return true;
        case UPDATE_NOT_NEEDED:
            tell_up_to_date(name);
            return false;
        case UPDATE_NOT_OFFERED:
            tell_not_offered(name, failed);
            return false;
        case UPDATE_NOT_INSTALLED:
            tell_problem({name, "is not installed"});
            break;
        case UPDATE_NO_PACKAGE:
            tell_failure({request, "is not a valid package file"});
            break;
    }
    *failed = true;
    return false;
}

own_vrt upgrade::ask_planner(const std::string &request, const given_packages &given) {
    vrt *made = nullptr;
    plan_update({work_.installed(), given}, work_.catalogue(), request.c_str(), nullptr, nullptr,
                dirs(), &made);
    return own_vrt(made);
}

own_vrt upgrade::make_plan(const std::string &request, const given_packages &given, bool *failed) {
    const std::string name = package_name(request);
    if (name.empty()) {
        *failed = true;
        return nullptr;
    }
    if (vrk_file_is_vrk(request.c_str()) && requests_.size() > 1 &&
        !work_.installed().find_own(name)) {
        *failed = !is_acceptable_file(request);
        if (!*failed) {
            not_installed_.emplace_back(request, name);
        }
        return nullptr;
    }
    take_cause();
    // Of all that is installed little needs anything. Who names a package expects a plan, and to
    // judge a package file is to verify it.
    if (all_ && !is_wanted(request, name, failed)) {
        return nullptr;
    }
    own_vrt transaction = all_ ? ask_planner(request, given)
                               : work_.look_up([&] { return ask_planner(request, given); });
    if (!transaction && !all_ && !is_wanted(request, name, failed)) {
        return nullptr;
    }
    if (!transaction) {
        tell_failure({request, "can't be upgraded"});
    } else if (!is_acceptable(request, *transaction)) {
        transaction.reset();
    }
    take_cause();
    *failed = !transaction;
    found_work_ = found_work_ || transaction;
    return transaction;
}

void upgrade::judge_late() {
    for (const auto &[request, name] : not_installed_) {
        if (!is_brought_along(name)) {
            tell_problem({name, "is not installed"});
            fail(request, name + " is not installed");
        }
    }
}

// Edited configuration is kept, and who edited it wants to know what came with the new version.
void upgrade::print_afterwards(const vri *package) {
    const std::string shipped = shipped_config_dir(work_.repository(), package->name);
    for (const std::string &live : config_files(work_.repository(), package->name)) {
        std::error_code none;
        if (std::filesystem::is_regular_file(live, none) &&
            is_edited(work_.repository(), package->name, live)) {
            tell_problem("%s was edited and is kept; the one that came with version %s is %s",
                         live.c_str(), package->version, (shipped + live).c_str());
        }
    }
}

// Whether a package has a file among its configuration, or lists it among its files.
bool upgrade::has_owner(const std::string &config_file) {
    for (const std::string &name : work_.installed().names()) {
        const std::string copy = shipped_config_dir(work_.repository(), name.c_str()) + config_file;
        if (path_exists(copy.c_str())) {
            return true;
        }
    }
    return own_string(vrm_file_owner(work_.repository(), config_file.c_str())) != nullptr;
}

// Configuration that a new version does without stays, as it is the administrator's, and nothing
// else would ever speak of it again.
void upgrade::tell_dropped_config(const std::string &name, const std::vector<std::string> &before) {
    for (const std::string &path : before) {
        if (path_exists(path.c_str()) && !has_owner(path)) {
            tell_problem(
                "%s came with the old version of %s and not with the new one; it is kept and "
                "belongs to no package",
                path.c_str(), name.c_str());
        }
    }
}

static std::vector<std::string> names_of_upgraded(const vrt &transaction) {
    std::vector<std::string> names;
    if (transaction.action == 'U') {
        names.emplace_back(transaction.info->name);
    }
    for (int32_t i = 0; transaction.deps && i < transaction.num_deps; i++) {
        const vrd *dep = transaction.deps[i];
        if (dep->info && dep->action == 'U') {
            names.emplace_back(dep->info->name);
        }
    }
    return names;
}

int upgrade::execute(vrt **transaction) {
    vrm_handle *const repository = work_.repository();
    const std::vector<std::string> names = names_of_upgraded(**transaction);
    const lost_files files(work_.installed(), names);
    // Which files are configuration is told by the entries, which are replaced.
    std::map<std::string, std::vector<std::string>> config;
    for (const std::string &name : names) {
        config[name] = config_files(repository, name.c_str());
    }
    take_rollback();
    const int rc = vrm_exe_update(repository, transaction, work_.catalogue(), 1, 0);
    forget_changed(**transaction);
    // Of a dependency the engine says itself that it failed.
    if (const rollback how = take_rollback(); rc != 0 && how != rollback::none) {
        const std::string failed =
            std::string("the upgrade to ") + vrk_puname((*transaction)->info);
        tell_problem("%s", with_rollback(failed + " failed", how).c_str());
    }
    if (rc != 0) {
        files.tell();
    }
    for (const auto &[name, before] : config) {
        tell_dropped_config(name, before);
    }
    return rc;
}

exit_status upgrade::run_all() {
    const exit_status status = run();
    if (all_ && !found_work_ && status == EXIT_DONE && !work_.found_cut_off()) {
        tell_step("everything is up to date");
    }
    return status;
}

exit_status word_upgrade(const common_options &options, const std::vector<std::string> &requests) {
    session work(options);
    if (const exit_status refused = work.begin_change()) {
        return refused;
    }
    // Package files can do without a catalogue. All packages can't: they would seem up to date.
    const bool all = requests.empty();
    if (!work.connect() && all) {
        return EXIT_FAILED;
    }
    if (all) {
        work.prepare_many_lookups();
    }
    return upgrade(work, all ? work.installed().names() : requests, all).run_all();
}
