#include <string>

#include "pvrm/change_job.h"
#include "pvrm/engine_report.h"
#include "pvrm/exit_status.h"
#include "pvrm/tell.h"
#include "pvrm/words.h"
#include "repository/inventory.h"
#include "transaction/install.h"
#include "transaction/plan_install.h"

namespace {

class installation : public change_job {
 public:
    installation(session &work, const install_options &what)
        : change_job(work, what.requests, what.dirs, "Install", "installed"), what_(what) {}

 private:
    own_vrt plan(const std::string &request) override;
    int execute(vrt **transaction) override {
        return vrm_exe_install(work_.repository(), transaction, work_.catalogue(), 1, 0);
    }
    own_vrt make_plan(const std::string &request);

    const install_options &what_;
};

}  // namespace

own_vrt installation::make_plan(const std::string &request) {
    vrt *made = nullptr;
    take_cause();
    vrm_pre_install(work_.repository(), work_.catalogue(), request.c_str(),
                    what_.has_variant ? what_.variant.c_str() : nullptr,
                    what_.version.empty() ? nullptr : what_.version.c_str(), dirs(), &made);
    return own_vrt(made);
}

own_vrt installation::plan(const std::string &request) {
    const std::string name = package_name(request);
    if (name.empty()) {
        failed_ = true;
        return nullptr;
    }
    if (own_vri installed{vrm_vrl_info(work_.repository(), name.c_str())}) {
        tell_step("%s is already installed, version %s", name.c_str(), installed->version);
        return nullptr;
    }
    own_vrt transaction = work_.look_up([&] { return make_plan(request); });
    if (!transaction) {
        tell_failure("%s can't be installed", request.c_str());
    } else if (!is_acceptable(request, *transaction)) {
        transaction.reset();
    }
    take_cause();
    failed_ = failed_ || !transaction;
    return transaction;
}

int word_install(const common_options &options, const install_options &what) {
    session work(options);
    if (const int refused = work.begin_change()) {
        return refused;
    }
    // Package files can do without a catalogue, and a name that can't be found says so itself.
    work.connect();

    return installation(work, what).run(options);
}
